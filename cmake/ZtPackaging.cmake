# SPDX-License-Identifier: Apache-2.0
# A Debian package of what cmake --install installs.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ztcomm)
set(CPACK_PACKAGE_VENDOR "ztcomm maintainers")
set(CPACK_PACKAGE_CONTACT "ztcomm maintainers <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
"ztcomm tells why a monitoring console shows a system as grey: it follows the
console's way to the performance agent link by link, from the host's name to
the agent's servers and their data. ztsys keeps the console's database of
systems.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The settings are the administrator's once they are there.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/conffiles")
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/compress-manuals.cmake")
set(CPACK_STRIP_FILES ON)
include(CPack)
