# SPDX-License-Identifier: Apache-2.0
# Run by cpack on the staged files: a Debian package holds its manual pages compressed (policy 12.1).
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share/man/*.[1-9]")
foreach(page IN LISTS pages)
  execute_process(COMMAND gzip -9n "${page}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
