# Cross build for x86_64 Windows with Debian's MinGW-w64 (posix threads).
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
