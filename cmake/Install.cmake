# Installs the library, its headers, a pkg-config file and a CMake package (find_package(ddal), target ddal::ddal) for
# applications. The installation may move to another prefix.
include(CMakePackageConfigHelpers)

install(TARGETS ddal EXPORT ddal-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ddal DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${CMAKE_BINARY_DIR}/include/ddal DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} OPTIONAL
        FILES_MATCHING PATTERN "*.h")

file(RELATIVE_PATH DDAL_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/ddal.pc.in ${CMAKE_BINARY_DIR}/ddal.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/ddal.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ddal)
install(EXPORT ddal-targets NAMESPACE ddal:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ddal-config.cmake.in ${CMAKE_BINARY_DIR}/ddal-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ddal-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ddal-config.cmake ${CMAKE_BINARY_DIR}/ddal-config-version.cmake
        DESTINATION ${package_dir})
