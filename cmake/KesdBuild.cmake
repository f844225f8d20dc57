# What every target of the project shares: language, warnings, where things are built and found, and how a test is added.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

include(GNUInstallDirs)
# Libraries keep their device names and lie in one private folder beside the programs, which find them from where
# they lie themselves: a build tree and an installed tree look alike. LD_LIBRARY_PATH wins over a run path.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/kesd)
set(KESD_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/kesd)
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
add_link_options(-Wl,--enable-new-dtags)

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(KESD_WERROR)
  add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  add_compile_options(-Wthread-safety)
endif()
include_directories(${PROJECT_SOURCE_DIR})
include(Hardening)

find_package(Threads REQUIRED)

# kesd_private_library(TARGET NAME): `TARGET` becomes libNAME.so in the private folder, next to its siblings.
function(kesd_private_library target name)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${target} LIBRARY DESTINATION ${KESD_PRIVATE_LIBDIR})
endfunction()

# kesd_program(TARGET BINDIR|SBINDIR): a program that finds the private libraries in a build tree as in an installed one.
function(kesd_program target folder)
  file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_${folder}} ${CMAKE_INSTALL_FULL_LIBDIR}/kesd)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib/kesd;$ORIGIN/${libraries}")
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_${folder}})
endfunction()

if(KESD_BUILD_TESTS)
  enable_testing()
  find_package(GTest REQUIRED)
  include(GoogleTest)
  set(KESD_TEST_SECONDS 120)  # the longest that a test may take
  if(CMAKE_CROSSCOMPILING)
    set(KESD_TEST_SECONDS 600)  # an emulator is slow
  endif()
endif()

# kesd_add_test(NAME SOURCES file... LIBRARIES target...): a GoogleTest program; each of its tests becomes a CTest test.
function(kesd_add_test name)
  if(NOT KESD_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 test "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${test_SOURCES})
  target_link_libraries(${name} PRIVATE ${test_LIBRARIES} GTest::gtest GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests
                                           INSTALL_RPATH "$ORIGIN/../lib/kesd")
  target_compile_definitions(${name} PRIVATE KESD_BINARY_DIR="${PROJECT_BINARY_DIR}" KESD_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${KESD_TEST_SECONDS})
endfunction()
