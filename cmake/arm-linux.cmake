# Cross build for a 32-bit ARM of the handhelds' kind (ARMv5, no floating point unit) under Linux: what cannot be
# tried with Windows CE itself, the portable parts without wide integers and vectors, runs in an emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-restrict) # GCC bug 105651: warns about its own strings
set(CMAKE_CXX_STANDARD_LIBRARIES -latomic) # 64-bit atomics
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabi)
