# The Debian package: "cpack -G DEB" in the build tree (after building) writes kiv_<version>_<arch>.deb
# with everything "cmake --install" installs, under /usr.
set(CPACK_PACKAGE_NAME kiv)
set(CPACK_PACKAGE_VENDOR "Kiv")
set(CPACK_PACKAGE_CONTACT "Kiv developers <kiv@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "host data framework, Pelrix scanning-probe microscope module and the kiv command")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
# The libraries' own dependencies come from dpkg-shlibdeps; the package's own libraries are
# found in the build tree. The Python module needs the interpreter and numpy besides.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "python3, python3-numpy")
include(CPack)
