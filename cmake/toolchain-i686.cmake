# Cross build for i686 Windows with Debian's MinGW-w64 (posix threads).
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
