# `cpack -G DEB` in the build directory makes a Debian package of what the install rules put
# under /usr. The version is the project's; the dependencies are found by dpkg-shlibdeps from
# the installed programs and engine (Qt 6 widgets, charts, concurrent, libstdc++, ...).

set(CPACK_PACKAGE_NAME orvex)
set(CPACK_PACKAGE_VENDOR "Orvex")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_CONTACT "Orvex developers <orvex@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The window system plugins are loaded by Qt at run time, so no library names them; Debian
# only recommends them with Qt's GUI library.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "desktop-file-utils, shared-mime-info")
include(CPack)
