# Build types and the warning flags of our own code.
#
# Dev is optimised. Exact results need -ffp-contract=off: a fused multiply-add
# would change the last bit of planes and cut points.

set(CMAKE_CXX_FLAGS_DEV "-O1 -g1")
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

set(MORVA_SANITIZE "" CACHE STRING "Sanitizers, comma separated: address,undefined or thread")
add_compile_options(-ffp-contract=off)
if(MORVA_SANITIZE)
    add_compile_options(-fsanitize=${MORVA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${MORVA_SANITIZE})
endif()

# The one switch of all checks of our own invariants, in any build type: assertions, validators at
# the borders of stages, container pointers at every access.
option(MORVA_VALIDATE "Check invariants while running" OFF)
if(MORVA_VALIDATE)
    add_compile_definitions(MORVA_VALIDATE)
    add_compile_options(-UNDEBUG)
else()
    add_compile_definitions(NDEBUG)
endif()

add_library(morva_build_flags INTERFACE)
target_compile_options(morva_build_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wdouble-promotion -Wfloat-conversion
    $<$<CXX_COMPILER_ID:GNU>:-Werror>) # another compiler, for fuzzing, warns of other things
target_include_directories(morva_build_flags INTERFACE ${PROJECT_SOURCE_DIR})
