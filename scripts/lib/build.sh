# shellcheck shell=bash
# Sourced by the scripts that start a program: builds one target of the program's own build folder.
# Needs `root` and lib/packages.sh.

# Two starts at once share one build: the second waits for the first.
build_target() (
  build=$root/build/run
  mkdir -p "$root/build"
  exec 9>"$root/build/run.lock"
  flock 9
  # A checkout that was moved or copied still names its old place in the cache.
  if [[ ! -f $build/build.ninja ]] ||
    ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$build/CMakeCache.txt"; then
    quietly cmake -S "$root" --preset run --fresh
  fi
  if [[ ! -x $build/$1 ]]; then
    echo "building $1, which takes up to two minutes the first time" >&2
  fi
  quietly cmake --build "$build" --target "$1"
)
