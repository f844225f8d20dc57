# What the compiler and the linker can do against a fault that becomes an attack, in every build that no sanitizer
# watches: what is tested is what is shipped. `tests/startup/hardening_test.cpp` looks for it in the finished files.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)  # CMAKE_POSITION_INDEPENDENT_CODE makes programs position independent from here on

if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  return()
endif()

add_compile_options(
  $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
  $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>  # needs optimisation
  -D_GLIBCXX_ASSERTIONS -fstack-protector-strong)
check_cxx_compiler_flag("-Werror -fstack-clash-protection" KESD_STACK_CLASH_PROTECTION)  # clang++ 14 has none for AArch64
if(KESD_STACK_CLASH_PROTECTION)
  add_compile_options(-fstack-clash-protection)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  add_compile_options(-fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  add_compile_options(-mbranch-protection=standard)
endif()
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,separate-code)
