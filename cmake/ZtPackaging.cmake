# SPDX-License-Identifier: Apache-2.0
# Debian packages of what cmake --install installs: ztcomm, and ztcomm-sim with the simulated agent.
# What the preset release builds is tested and shipped; cpack leaves the packages in its folder
# packages.

set(maintainer "ztcomm maintainers <maintainers@ztcomm.example>")
set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")
file(STRINGS "${PROJECT_SOURCE_DIR}/CHANGELOG.md" entries REGEX "^## ")
list(GET entries 0 newest)
string(REGEX MATCH "[0-9]+-[0-9]+-[0-9]+$" newest "${newest}")
set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY
  CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${debian}/changelog.awk"
  "${debian}/copyright" "${debian}/copyright-sim")

# The change log and the copyright of a package.
function(zt_package_documents package)
  set(folder "${PROJECT_BINARY_DIR}/packaging/${package}")
  file(MAKE_DIRECTORY "${folder}")
  execute_process(
    COMMAND awk -v "package=${package}" -v "maintainer=${maintainer}"
            -f "${debian}/changelog.awk" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    OUTPUT_FILE "${folder}/changelog"
    COMMAND_ERROR_IS_FATAL ANY)
  file(READ "${debian}/copyright" copyright)
  if(package STREQUAL ztcomm-sim)
    file(READ "${debian}/copyright-sim" more)
    string(APPEND copyright "${more}")
  endif()
  file(WRITE "${folder}/copyright" "${copyright}")
  install(FILES "${folder}/changelog" "${folder}/copyright"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${package})
endfunction()

zt_package_documents(ztcomm)
zt_package_documents(ztcomm-sim)
set(docs "${PROJECT_SOURCE_DIR}/docs")
install(FILES "${docs}/monitoring.md" "${docs}/faults.md"
  "${docs}/formats/system-database.md" "${docs}/formats/settings-file.md"
  "${docs}/formats/ignore-list.md"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/ztcomm" OPTIONAL)
install(FILES "${docs}/training.md" "${docs}/formats/scenario.md"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/ztcomm-sim" COMPONENT ztcomm-sim OPTIONAL)
# Shipped, not enabled.
file(GLOB units CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/packaging/systemd/*.service"
  "${PROJECT_SOURCE_DIR}/packaging/systemd/*.timer")
install(FILES ${units} DESTINATION lib/systemd/system)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/packaging/cpack.cmake")
execute_process(COMMAND date -u -d "${newest}" +%s OUTPUT_VARIABLE CPACK_ZT_DATE
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/stage.cmake")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ztcomm)
if(ZT_BUILD_AGENT)
  list(APPEND CPACK_COMPONENTS_ALL ztcomm-sim)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_ZTCOMM_PACKAGE_NAME ztcomm)
set(CPACK_DEBIAN_ZTCOMM_PACKAGE_SECTION net)
set(CPACK_DEBIAN_ZTCOMM_PACKAGE_DEPENDS passwd)
set(CPACK_DEBIAN_ZTCOMM_PACKAGE_SUGGESTS ztcomm-sim)
set(CPACK_COMPONENT_ZTCOMM_DESCRIPTION
"tells why a monitoring console shows a system as grey
It follows the console's way to the performance agent link by link, from the
host's name to the agent's servers and their data, and says where the chain
breaks and what to try. ztsys keeps the console's database of systems.")
set(CPACK_DEBIAN_ZTCOMM_PACKAGE_CONTROL_EXTRA
  "${debian}/conffiles;${debian}/postinst;${debian}/prerm;${debian}/postrm")

set(CPACK_DEBIAN_ZTCOMM-SIM_PACKAGE_NAME ztcomm-sim)
set(CPACK_DEBIAN_ZTCOMM-SIM_PACKAGE_SECTION net)
set(CPACK_DEBIAN_ZTCOMM-SIM_PACKAGE_SUGGESTS ztcomm)
set(CPACK_COMPONENT_ZTCOMM-SIM_DESCRIPTION
"plays performance agents, healthy or broken
hxasim simulates any number of agents, and their faults, from a scenario file:
for demonstrations, training and tests of ztcomm and of monitoring consoles.")
include(CPack)
