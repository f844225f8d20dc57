# What is installed beside the programs and their private libraries, and the Debian package: `cpack -G DEB` in a build
# with the prefix /usr, such as that of the preset `package`.
option(KESD_MAN "Make the manual pages (needs lowdown)" OFF)

set(rendered ${PROJECT_BINARY_DIR}/packaging)

# The client library: its headers keep their folders, as they include one another by these.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/kesd)
install(TARGETS kes EXPORT kes ARCHIVE FILE_SET HEADERS DESTINATION ${headers})
foreach(folder kesd_fenksocket kesd_ipc kesd_support kesd_wifi)
  get_target_property(files ${folder} HEADER_SET)
  foreach(file ${files} ${PROJECT_SOURCE_DIR}/marshal/records.h ${PROJECT_SOURCE_DIR}/platform/log.h)
    cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE path)
    cmake_path(GET path PARENT_PATH path)
    install(FILES ${file} DESTINATION ${headers}/${path})
  endforeach()
endforeach()
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${rendered}/kes-config-version.cmake COMPATIBILITY SameMinorVersion)
install(EXPORT kes NAMESPACE kes:: FILE kes-targets.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kes)
install(FILES packaging/kes-config.cmake ${rendered}/kes-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kes)
file(RELATIVE_PATH KESD_PREFIX_OF_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(packaging/kes.pc.in ${rendered}/kes.pc @ONLY)
install(FILES ${rendered}/kes.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# systemd looks in lib/ of /usr and /usr/local, whatever the libraries' folder is called.
configure_file(packaging/systemd/kesd.service.in ${rendered}/kesd.service @ONLY)
configure_file(packaging/default.in ${rendered}/default @ONLY)
install(FILES packaging/systemd/kesd.socket ${rendered}/kesd.service DESTINATION lib/systemd/system)
install(FILES packaging/systemd/sysusers.conf DESTINATION lib/sysusers.d RENAME kesd.conf)
set(default ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default)  # an administrator's own is left alone
install(CODE "if(NOT EXISTS \"\$ENV{DESTDIR}${default}/kesd\")
  file(INSTALL \"${rendered}/default\" DESTINATION \"${default}\" RENAME kesd)
endif()")
install(DIRECTORY DESTINATION ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/kesd)

install(FILES packaging/completion/kesctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME kesctl)
install(FILES packaging/completion/kesctl.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)  # where Debian has it
  install(FILES packaging/completion/_kesctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
else()
  install(FILES packaging/completion/_kesctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()

install(FILES README.md DEVELOPERS.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(KESD_MAN)
  find_program(LOWDOWN lowdown REQUIRED)
  foreach(page kesctl.1 kesd-protocol.7 kesd.8 kesd-launch.8)
    set(inputs ${PROJECT_SOURCE_DIR}/packaging/man/${page}.md ${PROJECT_VERSION})
    if(page STREQUAL kesd-protocol.7)
      list(APPEND inputs ${PROJECT_SOURCE_DIR}/docs/wire-protocol.md)
    endif()
    set(file ${rendered}/${page}.gz)
    add_custom_command(OUTPUT ${file}
      COMMAND ${PROJECT_SOURCE_DIR}/packaging/man/render ${inputs} | gzip -9n > ${file}
      DEPENDS packaging/man/render packaging/man/${page}.md docs/wire-protocol.md VERBATIM)
    list(APPEND pages ${file})
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
  add_custom_target(man ALL DEPENDS ${pages})
endif()

# The Debian package.
configure_file(packaging/debian/changelog.in ${rendered}/changelog @ONLY)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  execute_process(COMMAND gzip -9nf ${rendered}/changelog)
  install(FILES packaging/debian/copyright ${rendered}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)  # what does not lie below the prefix is packed, too
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS  # whatever the umask
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "the maintainers of kesd <maintainers@kesd.example>" CACHE STRING "Who answers for the package")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Wi-Fi location daemon, its client library and kesctl")
set(CPACK_PACKAGE_DESCRIPTION "kesd scans for Wi-Fi access points and measures distances to peers for other
programs, from the machine's own radio, from a capture file or from a built-in
neighbourhood. kesctl shows the results, and libkes is for programs in C++.")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(scripts conffiles postinst postrm prerm)
list(TRANSFORM scripts PREPEND ${PROJECT_SOURCE_DIR}/packaging/debian/ OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
