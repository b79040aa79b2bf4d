# SPDX-License-Identifier: Apache-2.0
# Makes a Debian change log of CHANGELOG.md. Variables: package, maintainer.

function close_entry() {
  if (date == "")
    return
  ("LC_ALL=C date -u -R -d " date) | getline stamp
  printf "\n -- %s  %s\n\n", maintainer, stamp
}
/^## / {
  close_entry()
  date = $4
  printf "%s (%s) stable; urgency=medium\n\n", package, $2
}
date == "" { next }
/^- / { sub(/^- /, "  * "); print; next }
/^  / { print "  " $0 }
END { close_entry() }
