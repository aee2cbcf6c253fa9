# Cross build for a processor with the other byte order.
set(CMAKE_SYSTEM_PROCESSOR s390x)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
