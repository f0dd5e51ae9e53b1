# Installed: the library, the bundled scene graph if it is the provider, headers, a CMake package
# (find_package(morva), target morva::morva) and a pkg-config file.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/morva)
set(installed morva)
if(TARGET morva_scene)
    list(APPEND installed morva_scene scene_provider)
    install(DIRECTORY opensg/include/OpenSG DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
    set(MORVA_PC_SCENE "-lmorva_scene")
else()
    list(APPEND installed scene_provider)
    set(MORVA_PC_SCENE "-lOSGSystem -lOSGBase")
endif()

install(TARGETS ${installed} EXPORT morva-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY morva DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT morva-targets NAMESPACE morva:: DESTINATION ${package_dir})
if(TARGET morva_command)
    install(TARGETS morva_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

configure_package_config_file(cmake/morva-config.cmake.in
    ${PROJECT_BINARY_DIR}/morva-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/morva-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/morva-config.cmake
    ${PROJECT_BINARY_DIR}/morva-config-version.cmake DESTINATION ${package_dir})

configure_file(cmake/morva.pc.in ${PROJECT_BINARY_DIR}/morva.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/morva.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
