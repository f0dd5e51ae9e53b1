# The Debian package: everything that is installed, with what its programs need by their shared
# libraries. `cpack` in the build folder makes it.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME morva)
set(CPACK_PACKAGE_VENDOR libmorva)
set(CPACK_PACKAGE_CONTACT "libmorva maintainers <maintainers@morva.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "models of many parts in a form that draws fast")
set(CPACK_PACKAGE_DESCRIPTION "The command morva and the library libmorva rebuild the scene graph of a
model: equal materials are one, geometry of one material is poured together and cut into cores of bounded
size. They also pick, test collisions, simplify and divide models. Headers and the scene graph come along.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/morva ${PROJECT_BINARY_DIR}/opensg)
include(CPack)
