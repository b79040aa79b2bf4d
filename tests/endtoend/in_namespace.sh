#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs a test program in a network namespace of its own, with the hosts file beside this script.
#   in_namespace.sh PROGRAM [ARG...]
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
. "$here/../../tools/shell/namespace.sh"
if [ "${ZT_IN_NAMESPACE-}" != 1 ]; then
  ZT_IN_NAMESPACE=1 enter_namespace bash "$0" "$@"
fi
furnish_namespace "${ZT_TEST_HOSTS:-$here/hosts}" console
exec "$@"
