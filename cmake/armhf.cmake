# The board's processor: 32-bit ARM, hard float, Cortex-A15. The sysroot comes from packaging/armhf-sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

if(NOT DDAL_ARMHF_SYSROOT)
    execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../packaging/armhf-sysroot OUTPUT_VARIABLE DDAL_ARMHF_SYSROOT
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
set(DDAL_ARMHF_SYSROOT ${DDAL_ARMHF_SYSROOT} CACHE PATH "Debian's armhf libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DDAL_ARMHF_SYSROOT)

set(CMAKE_SYSROOT ${DDAL_ARMHF_SYSROOT})
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_C_FLAGS_INIT "-mcpu=cortex-a15 -mfpu=neon-vfpv4 -mfloat-abi=hard")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${DDAL_ARMHF_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${DDAL_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${DDAL_ARMHF_SYSROOT}/usr/share/pkgconfig)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-cpu;cortex-a15;-L;${DDAL_ARMHF_SYSROOT}.run")
