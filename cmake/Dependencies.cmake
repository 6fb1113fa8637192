# Everything that is taken from the machine; packaging/build-depends.txt names the packages.
find_package(PkgConfig REQUIRED)
pkg_check_modules(GIO REQUIRED gio-2.0)
pkg_check_modules(LIBSYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(BLKID REQUIRED IMPORTED_TARGET blkid)

find_package(Python3 REQUIRED COMPONENTS Interpreter) # for the build and for the checks

find_program(CCACHE ccache)
find_program(MKFS_EXT4 mkfs.ext4 PATHS /usr/sbin /sbin REQUIRED)

if(DDAL_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(DDAL_BUILD_BENCH AND NOT CMAKE_CROSSCOMPILING) # times that an emulator takes mean nothing
    find_package(benchmark REQUIRED)
endif()
