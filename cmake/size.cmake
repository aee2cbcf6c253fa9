# The library is compiled for size, except for what runs with every message, item, checksum and list node: there the
# instructions count (tests/instructions). docs/size.md has the effect.
set(vos_fast
  base/processId vosDebug/log vosFile/checksum vosFile/crc32 vosFile/crc32Processor vosList/lst vosList/sll vosMsg/address
  vosMsg/dispatch vosMsg/receive vosMsg/requester vosMsg/respond vosMsg/send vosMsg/sockets vosMsg/stream vosMsg/timers
  vosMsg/userSockets vosSys/atomics vosSys/semaphores vosSysConfig/items vosSysConfig/partition)
# -Os makes these larger.
set(vos_larger vosFile/imageCheck vosFile/package vosMsg/configObject)

# No thread is cancelled and no exception passes in this module: it calls no function of the application and no system call.
# A debugger finds its tables in the debug file.
set(vos_not_unwound vosList)

# A property of a source file holds only for the targets of the directory that sets it, so each directory that compiles
# the library as it is delivered calls this.
function(vos_compile_for_size)
  set(delivered $<NOT:$<CONFIG:Debug>>)
  foreach(source ${vos_sources})
    cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${PROJECT_SOURCE_DIR}/vos/linux OUTPUT_VARIABLE name)
    string(REGEX MATCH "^[^/]+" module ${name})
    string(REPLACE ".cpp" "" name ${name})
    set(options "")
    if(NOT name IN_LIST vos_fast AND NOT name IN_LIST vos_larger)
      list(APPEND options $<${delivered}:-Os>)
    endif()
    if(module IN_LIST vos_not_unwound)
      list(APPEND options $<${delivered}:-fno-asynchronous-unwind-tables> $<${delivered}:-fno-unwind-tables>)
    endif()
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS ${options})
  endforeach()
endfunction()

# A gap in the file that no protection needs: GNU ld ends what becomes read-only after the start at the end of a largest
# page, which is 64 KiB on AArch64, in the file too. lld does so in the address space only. It also keeps the constants
# out of the executable segment. Its name has no prefix, so a cross compiler is told where it is.
function(vos_link_without_gaps target)
  if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    return()
  endif()
  find_program(VOS_LLD NAMES ld.lld ld.lld-14 DOC "Linker of the library on AArch64")
  if(NOT VOS_LLD)
    message(STATUS "lld is not installed: libvos.so will be up to 64 KiB larger")
    return()
  endif()
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/linker)
  file(CREATE_LINK ${VOS_LLD} ${PROJECT_BINARY_DIR}/linker/ld.lld SYMBOLIC)
  target_link_options(${target} PRIVATE -B${PROJECT_BINARY_DIR}/linker -fuse-ld=lld)
endfunction()
