# SPDX-License-Identifier: Apache-2.0
# Sourced by ./demo and the end-to-end tests: a network of our own, so that ports 135 and 382 can be
# bound by anyone, nothing on the machine is in the way, and no packet leaves it.

# enter_namespace SCRIPT [ARG...]: runs the script in a user, network, mount and host-name namespace
# where the caller is root. Where the kernel refuses one of them, root goes without.
enter_namespace() {
  if unshare -rnmu true 2>/dev/null; then
    exec unshare -rnmu "$@"
  elif [ "$(id -u)" -eq 0 ] && unshare -nmu true 2>/dev/null; then
    exec unshare -nmu "$@"
  fi
  echo "This machine allows no network namespaces (unshare -rnmu failed)." >&2
  echo "As root: sysctl -w kernel.unprivileged_userns_clone=1, or run this as root." >&2
  exit 1
}

# furnish_namespace HOSTS_FILE NAME: loopback up, the hosts file in place, the host named.
furnish_namespace() {
  ip link set lo up
  mount --bind "$1" /etc/hosts
  # Names are answered from the hosts file only: there is no network to ask.
  local switch
  switch=$(mktemp)
  printf 'hosts: files\nservices: files\nprotocols: files\npasswd: files\ngroup: files\n' >"$switch"
  mount --bind "$switch" /etc/nsswitch.conf
  rm -f "$switch"
  hostname "$2"
}
