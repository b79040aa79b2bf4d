# SPDX-License-Identifier: Apache-2.0
# Sourced by ./demo and ./check: installs the Debian packages they need, if any is missing.

# need_packages PACKAGE...: returns once all are installed; says what to do where it cannot.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "These packages are missing: ${missing[*]}" >&2
      echo "Install them as root (apt-get install ${missing[*]}) and run this again." >&2
      return 1
    fi
    as_root=(sudo)
  fi
  echo "Installing ${missing[*]} ..." >&2
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update -q &&
         "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
           apt-get install -y -q --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    echo "The installation failed:" >&2
    tail -n 15 "$log" >&2
    rm -f "$log"
    return 1
  fi
  rm -f "$log"
}
