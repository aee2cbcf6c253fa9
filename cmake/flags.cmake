# Compiler and linker flags of everything we build.
add_library(vos_flags INTERFACE)
add_library(vos_warnings INTERFACE)
target_link_libraries(vos_flags INTERFACE vos_warnings)

target_compile_options(vos_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wformat=2
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(VOS_WERROR)
  target_compile_options(vos_warnings INTERFACE -Werror)
endif()

# Every build that may be delivered is hardened: every build type except Debug, also "None", with which Debian's
# packages are built. Tests are not hardened, and neither are builds with a sanitizer, which makes its own checks.
add_library(vos_hardening INTERFACE)
set(hardened $<NOT:$<CONFIG:Debug>>)
if(NOT VOS_SANITIZE)
  target_compile_options(vos_hardening INTERFACE
    "$<${hardened}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-fstack-protector-strong;-fstack-clash-protection>")
  target_link_options(vos_hardening INTERFACE $<${hardened}:-Wl,-z,relro,-z,now,-z,noexecstack>)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    target_compile_options(vos_hardening INTERFACE $<${hardened}:-fcf-protection>)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(vos_hardening INTERFACE $<${hardened}:-mbranch-protection=standard>)
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
