# Cross build of images for Windows CE on x86: the compiler of 32-bit Windows, without its run-time library.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i586)
set(CMAKE_CXX_COMPILER i686-w64-mingw32-g++-posix)
set(CMAKE_DLLTOOL i686-w64-mingw32-dlltool)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY) # nothing links without the import library made here
set(CMAKE_CXX_STANDARD_LIBRARIES "" CACHE STRING "Import libraries of the desktop stay out")
