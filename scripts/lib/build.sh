# shellcheck shell=bash
# Sourced by the scripts that start a program: builds one target of the program's own build folder.
# Needs `root` and lib/packages.sh.

# build_target NAME [OPTION=VALUE...]: the options are CMake's, and stay set once they are.
# Two starts at once share one build: the second waits for the first.
build_target() (
  local target=$1 option missing=()
  shift
  # shellcheck disable=SC2154  # whoever sources this has set it
  build=$root/build/run
  mkdir -p "$root/build"
  exec 9>"$root/build/run.lock"
  flock 9
  # A checkout that was moved or copied still names its old place in the cache.
  if [[ ! -f $build/build.ninja ]] ||
    ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$build/CMakeCache.txt"; then
    quietly cmake -S "$root" --preset run --fresh
  fi
  for option in "$@"; do
    grep -qxE "${option/=/:[A-Z]+=}" "$build/CMakeCache.txt" || missing+=("-D$option")
  done
  ((${#missing[@]} == 0)) || quietly cmake "${missing[@]}" "$build"
  if [[ ! -x $build/$target && ! -x $build/perf/$target ]]; then
    echo "building $target, which takes some minutes the first time" >&2
  fi
  quietly cmake --build "$build" --target "$target"
)
