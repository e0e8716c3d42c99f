# Cross build of images for Windows CE on ARM: clang for a bare ARM with the declarations of 32-bit Windows. What is
# linked is an ELF file; tools/make-ce-image turns it into an image.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR armv5)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET armv5t-none-eabi)
set(CMAKE_ASM_COMPILER clang)
set(CMAKE_ASM_COMPILER_TARGET armv5t-none-eabi)
set(CMAKE_RC_COMPILER i686-w64-mingw32-windres)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# Types as the system's compilers have them: 16-bit wide characters, signed plain ones, no padding before 64-bit numbers.
set(CMAKE_CXX_FLAGS_INIT "-mabi=apcs-gnu -fshort-wchar -fsigned-char")
execute_process(COMMAND i686-w64-mingw32-g++-posix -print-file-name=include/c++ OUTPUT_VARIABLE mingw_library
    OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${mingw_library} ${mingw_library}/i686-w64-mingw32
    /usr/i686-w64-mingw32/include)
execute_process(COMMAND arm-linux-gnueabi-gcc -print-libgcc-file-name OUTPUT_VARIABLE QUILLA_ARM_SUPPORT
    OUTPUT_STRIP_TRAILING_WHITESPACE)
