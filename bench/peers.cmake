# Gives `round_trip` the peers whose libraries are installed; generated code goes to the build tree.
# On Debian: pkg-config; libcapnp-dev capnproto; libsystemd-dev; libgrpc++-dev libprotobuf-dev protobuf-compiler
# protobuf-compiler-grpc.
set(here ${CMAKE_CURRENT_LIST_DIR})
set(generated ${CMAKE_CURRENT_BINARY_DIR}/peer_messages)
file(WRITE ${generated}/.clang-tidy "Checks: '-*,misc-definitions-in-headers'\n")  # nobody mends generated code
find_package(PkgConfig REQUIRED)
find_program(KESD_capnp capnp)
find_program(KESD_protoc protoc)
find_program(KESD_grpc_cpp_plugin grpc_cpp_plugin)

target_sources(round_trip PRIVATE ${here}/peers.cpp ${here}/peers.h)

# bench_peer(NAME MODULES module... [NEEDS program...] [SCHEMA file OUTPUT file... COMMAND ...]): when pkg-config knows
# the modules and the programs were found, peer_NAME.cpp takes part, which KESD_BENCH_NAME tells peers.cpp. COMMAND
# makes the OUTPUT, sources first, from the schema.
function(bench_peer name)
  cmake_parse_arguments(PARSE_ARGV 1 peer "" "SCHEMA" "MODULES;NEEDS;OUTPUT;COMMAND")
  pkg_check_modules(peer_${name} QUIET IMPORTED_TARGET ${peer_MODULES})
  set(found ${peer_${name}_FOUND})
  foreach(program ${peer_NEEDS})
    if(NOT program)
      set(found FALSE)
    endif()
  endforeach()
  if(NOT found)
    message(STATUS "round_trip: without ${name}, which is not installed")
    return()
  endif()
  string(TOUPPER ${name} upper)
  target_sources(round_trip PRIVATE ${here}/peer_${name}.cpp)
  target_compile_definitions(round_trip PRIVATE KESD_BENCH_${upper})
  target_link_libraries(round_trip PRIVATE PkgConfig::peer_${name})
  if(peer_SCHEMA)
    list(TRANSFORM peer_OUTPUT PREPEND ${generated}/)
    add_custom_command(OUTPUT ${peer_OUTPUT} COMMAND ${peer_COMMAND} DEPENDS ${here}/${peer_SCHEMA}
                       WORKING_DIRECTORY ${here})
    # Generated code is not held to the project's warnings; -isystem does the same for its headers.
    target_sources(round_trip PRIVATE ${peer_OUTPUT})
    set_source_files_properties(${peer_OUTPUT} PROPERTIES COMPILE_OPTIONS -w)
    target_include_directories(round_trip SYSTEM PRIVATE ${generated})
  endif()
endfunction()

bench_peer(capnp MODULES capnp-rpc NEEDS ${KESD_capnp}
  SCHEMA peer_capnp.capnp OUTPUT peer_capnp.capnp.c++ peer_capnp.capnp.h
  COMMAND ${KESD_capnp} compile -oc++:${generated} peer_capnp.capnp)
bench_peer(sdbus MODULES libsystemd)
bench_peer(grpc MODULES grpc++ protobuf NEEDS ${KESD_protoc} ${KESD_grpc_cpp_plugin}
  SCHEMA peer_grpc.proto OUTPUT peer_grpc.pb.cc peer_grpc.grpc.pb.cc peer_grpc.pb.h peer_grpc.grpc.pb.h
  COMMAND ${KESD_protoc} --cpp_out=${generated} --grpc_out=${generated}
          --plugin=protoc-gen-grpc=${KESD_grpc_cpp_plugin} peer_grpc.proto)
