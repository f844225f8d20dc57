# How long marshalling takes: beside the least there is to do, and beside whichever serialisation libraries are installed.
# The files lie beside this one; generated code goes to the build tree.
set(here ${CMAKE_CURRENT_LIST_DIR})
set(generated ${CMAKE_CURRENT_BINARY_DIR}/marshal_messages)
file(MAKE_DIRECTORY ${generated})
find_package(PkgConfig REQUIRED)

add_executable(marshal ${here}/marshal.cpp ${here}/marshal.h ${here}/marshal_measurements.cpp)
target_link_libraries(marshal PRIVATE kesd_marshal vexo_client zv_loc_fw benchmark::benchmark)
kesd_benchmark(marshal)

# add_contender(LIBRARY COMPILER SCHEMA OPTIONS argument... OUTPUT file...): where the library and its compiler are
# installed, the compiler makes the files of the schema, and marshal_LIBRARY.cpp takes part.
function(add_contender library compiler schema)
  cmake_parse_arguments(PARSE_ARGV 3 contender "" "" "OPTIONS;OUTPUT")
  pkg_check_modules(${library} QUIET IMPORTED_TARGET ${library})
  find_program(KESD_${compiler} ${compiler})
  if(NOT ${library}_FOUND OR NOT KESD_${compiler})
    message(STATUS "marshal: without ${library}, which is not installed")
    return()
  endif()
  list(TRANSFORM contender_OUTPUT PREPEND ${generated}/)
  add_custom_command(OUTPUT ${contender_OUTPUT} DEPENDS ${here}/${schema}
                     COMMAND ${KESD_${compiler}} ${contender_OPTIONS} ${here}/${schema})
  # Generated code is not held to the project's warnings.
  add_library(marshal_${library} OBJECT ${contender_OUTPUT})
  set_target_properties(marshal_${library} PROPERTIES LINKER_LANGUAGE CXX)
  target_compile_options(marshal_${library} PRIVATE -w)
  target_include_directories(marshal_${library} SYSTEM PUBLIC ${generated})
  target_link_libraries(marshal_${library} PUBLIC PkgConfig::${library})
  target_sources(marshal PRIVATE ${here}/marshal_${library}.cpp)
  target_link_libraries(marshal PRIVATE marshal_${library})
endfunction()

add_contender(protobuf protoc marshal.proto
  OPTIONS --proto_path=${here} --cpp_out=${generated} OUTPUT marshal.pb.cc marshal.pb.h)
add_contender(flatbuffers flatc marshal.fbs OPTIONS --cpp -o ${generated} OUTPUT marshal_generated.h)
add_contender(capnp capnp marshal.capnp
  OPTIONS compile --src-prefix=${here} -oc++:${generated} OUTPUT marshal.capnp.c++ marshal.capnp.h)
