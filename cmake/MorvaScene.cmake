# scene::provider: the one way to the scene graph. Bundled: the layer in opensg/. System: an
# OpenSG 1.8 below OPENSG_ROOT. Headers come in as system headers under either.

find_package(Threads REQUIRED)
if(MORVA_SCENE STREQUAL "bundled")
    add_subdirectory(${PROJECT_SOURCE_DIR}/opensg ${PROJECT_BINARY_DIR}/opensg)
    add_library(scene_provider INTERFACE)
    target_link_libraries(scene_provider INTERFACE morva_scene Threads::Threads)
    target_include_directories(scene_provider SYSTEM INTERFACE
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/opensg/include>)
elseif(MORVA_SCENE STREQUAL "system")
    set(OPENSG_ROOT "" CACHE PATH "Prefix of an installed OpenSG 1.8")
    find_path(OPENSG_INCLUDE_DIR OpenSG/OSGNode.h HINTS ${OPENSG_ROOT}/include REQUIRED)
    find_library(OPENSG_BASE_LIBRARY OSGBase HINTS ${OPENSG_ROOT}/lib REQUIRED)
    find_library(OPENSG_SYSTEM_LIBRARY OSGSystem HINTS ${OPENSG_ROOT}/lib REQUIRED)
    find_package(OpenGL REQUIRED)
    add_library(scene_provider INTERFACE)
    target_include_directories(scene_provider SYSTEM INTERFACE
        ${OPENSG_INCLUDE_DIR} ${OPENSG_INCLUDE_DIR}/OpenSG)
    target_compile_definitions(scene_provider INTERFACE _OSG_HAVE_CONFIGURED_H_)
    # Its headers use what C++17 has marked as leaving; templates warn where ours instantiate them.
    target_compile_options(scene_provider INTERFACE -Wno-deprecated)
    target_link_libraries(scene_provider INTERFACE ${OPENSG_SYSTEM_LIBRARY} ${OPENSG_BASE_LIBRARY}
        Threads::Threads)
    foreach(library OpenGL::GL OpenGL::GLU)
        if(TARGET ${library})
            target_link_libraries(scene_provider INTERFACE ${library})
        endif()
    endforeach()
else()
    message(FATAL_ERROR "MORVA_SCENE must be bundled or system, not '${MORVA_SCENE}'")
endif()
add_library(scene::provider ALIAS scene_provider)
