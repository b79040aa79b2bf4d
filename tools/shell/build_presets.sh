# SPDX-License-Identifier: Apache-2.0
# Sourced by ./demo and ./check: configures and builds a preset, and shows how far it is.

export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-$CMAKE_BUILD_PARALLEL_LEVEL}

# show_progress: reads ninja's output. On a terminal one line that counts; elsewhere a line each
# tenth, so that a log stays short and nobody takes the build for dead.
show_progress() {
  local line tenth last=0 terminal=
  [ -t 1 ] && terminal=1
  while IFS= read -r line; do
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    if [ -n "$terminal" ]; then
      printf '\r   %d of %d ' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
      continue
    fi
    tenth=$((10 * BASH_REMATCH[1] / BASH_REMATCH[2]))
    [ "$tenth" -gt "$last" ] && printf '   %d of %d\n' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
    last=$tenth
  done
  [ -z "$terminal" ] || printf '\r\033[K'
}

# build PRESET [-DNAME=VALUE ...] [TARGET ...]: configures (which costs little where nothing has
# changed), builds what has changed, and on failure shows what the compiler said.
build() {
  local preset=$1 log=build/$1.log settings=()
  shift
  while [[ ${1-} == -D* ]]; do
    settings+=("$1")
    shift
  done
  mkdir -p build
  echo "== $preset: build"
  if cmake --preset "$preset" "${settings[@]}" >"$log" 2>&1 &&
    cmake --build --preset "$preset" ${1:+--target "$@"} 2>&1 |
      tee -a "$log" | show_progress; then
    return 0
  fi
  # From the first failure on; an error of configuration has no such line.
  sed -n '/^FAILED/,$p' "$log" | grep . >&2 || tail -n 40 "$log" >&2
  echo "The build failed; all of its output is in $log." >&2
  return 1
}
