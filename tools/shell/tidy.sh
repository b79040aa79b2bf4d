# SPDX-License-Identifier: Apache-2.0
# Sourced by ./check: clang-tidy over the product's sources, as .clang-tidy asks.

# tidy [CHECKS [N SEED]]: every source of the product, or N of them, the same for the same seed, with
# these changes to the checks; one that has not changed since it was found clean, nor any header of
# ours or the checks, is not looked at again.
tidy() {
  echo "== tidy: $(clang-tidy --version | grep -o 'version [0-9.]*')"
  mkdir -p build/tidy
  local shared
  export checks=${1-}
  shared=$({ echo "$checks"; cat .clang-tidy; find agent platform present shared source tools \
    build/release/generated -name '*.h' -print0 | sort -z | xargs -0 cat; } | sha256sum)
  export shared
  find agent platform present shared source tools -name '*.cpp' -print0 | sort -z |
    if [ -n "${2-}" ]; then
      shuf -z -n "$2" --random-source=<(yes "$3")
    else
      cat
    fi |
    xargs -0 -n 1 -P "$CMAKE_BUILD_PARALLEL_LEVEL" bash -c 'tidy_one "$0"'
}

tidy_one() {
  local mark
  mark=build/tidy/$({ echo "$shared" "$1"; cat "$1"; } | sha256sum | cut -d' ' -f1)
  [ ! -e "$mark" ] || return 0
  clang-tidy --quiet --warnings-as-errors='*' ${checks:+--checks="$checks"} -p build/release "$1" 2>/dev/null || return 1
  touch "$mark"
}
export -f tidy_one
