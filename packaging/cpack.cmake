# SPDX-License-Identifier: Apache-2.0
# Read by cpack: the times in the packages are those of the change log's newest entry, unless the
# caller has set others.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} "${CPACK_ZT_DATE}")
endif()
# It would become the first line of every package's description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
