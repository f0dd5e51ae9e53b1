# Installed: the library, the bundled scene graph if it is the provider, the public headers, a CMake
# package (find_package(morva), target morva::morva), a pkg-config file, the schemas of report and
# manifest, the manual page and the completions of two shells.

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
install(EXPORT morva-targets NAMESPACE morva:: DESTINATION ${package_dir})
if(TARGET morva_command)
    install(TARGETS morva_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES docs/manifest.schema.json docs/report.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/morva)
    install(FILES packaging/morva.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES packaging/morva.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME morva)
    install(FILES packaging/_morva DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()

# The public headers: morva.h, and what it includes, directly or not.
set(public_headers morva/morva.h)
set(unread_headers morva/morva.h)
while(unread_headers)
    list(POP_FRONT unread_headers header)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
    file(STRINGS ${header} includes REGEX "^#include <morva/")
    list(TRANSFORM includes REPLACE "^#include <(.*)>.*" "\\1")
    list(REMOVE_ITEM includes ${public_headers})
    list(APPEND public_headers ${includes})
    list(APPEND unread_headers ${includes})
endwhile()

configure_package_config_file(cmake/morva-config.cmake.in
    ${PROJECT_BINARY_DIR}/morva-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/morva-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/morva-config.cmake
    ${PROJECT_BINARY_DIR}/morva-config-version.cmake DESTINATION ${package_dir})

# The way from the pkg-config file back to the prefix, wherever that is installed to.
file(RELATIVE_PATH MORVA_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/morva.pc.in ${PROJECT_BINARY_DIR}/morva.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/morva.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
