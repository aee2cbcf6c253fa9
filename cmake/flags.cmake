# Compiler and linker flags of everything we build.
add_library(vos_flags INTERFACE)

target_compile_options(vos_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wformat=2
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(VOS_WERROR)
  target_compile_options(vos_flags INTERFACE -Werror)
endif()

# What is delivered is hardened; tests are not.
add_library(vos_hardening INTERFACE)
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT VOS_SANITIZE)
  target_compile_options(vos_hardening INTERFACE -D_FORTIFY_SOURCE=2 -fstack-protector-strong -fstack-clash-protection)
  target_link_options(vos_hardening INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    target_compile_options(vos_hardening INTERFACE -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(vos_hardening INTERFACE -mbranch-protection=standard)
  endif()
endif()

if(VOS_SANITIZE)
  target_compile_options(vos_flags INTERFACE -fsanitize=${VOS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vos_flags INTERFACE -fsanitize=${VOS_SANITIZE})
endif()
if(VOS_COVERAGE)
  target_compile_options(vos_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(vos_flags INTERFACE --coverage)
endif()
