# What `cmake --install` lays down: the library, the debug module, the headers, and a package that
# find_package(orvi_core) and pkg-config find.
include(CMakePackageConfigHelpers)

install(TARGETS orvi_core EXPORT orvi_coreTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS orvi_debug LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/core/include/orvi
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/orvi_core)
install(EXPORT orvi_coreTargets NAMESPACE orvi:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvi_coreConfig.cmake.in
    ${PROJECT_BINARY_DIR}/orvi_coreConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvi_coreConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvi_coreConfig.cmake ${PROJECT_BINARY_DIR}/orvi_coreConfigVersion.cmake
    DESTINATION ${package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/orvi_core.pc.in ${PROJECT_BINARY_DIR}/orvi_core.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvi_core.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
