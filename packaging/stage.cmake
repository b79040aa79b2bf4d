# SPDX-License-Identifier: Apache-2.0
# Run by cpack on the staged files, whose folders have the modes of the caller's umask. A Debian
# package holds manual pages and change logs compressed, and its units in /lib.
file(GLOB units "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/lib/systemd")
foreach(folder IN LISTS units)
  cmake_path(GET folder PARENT_PATH usr_lib)
  file(MAKE_DIRECTORY "${usr_lib}/../../lib")
  file(RENAME "${folder}" "${usr_lib}/../../lib/systemd")
  file(GLOB rest "${usr_lib}/*")
  if(NOT rest)
    file(REMOVE_RECURSE "${usr_lib}")
  endif()
endforeach()
execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -type d -exec chmod 0755 {} +
  COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE texts "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
list(FILTER texts INCLUDE REGEX "/share/(man/.*[1-9]|doc/[^/]*/changelog)$")
foreach(text IN LISTS texts)
  execute_process(COMMAND gzip -9n "${text}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
