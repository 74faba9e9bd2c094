# shellcheck shell=bash
# Sourced by the scripts that a fresh machine starts with: brings in the Debian packages they need.

# What the tools around the exchange are built with, and what it takes to build and run all tests.
TOOL_PACKAGES=(libcli11-dev nlohmann-json3-dev libncurses-dev libpcap-dev libpugixml-dev)
# shellcheck disable=SC2034  # for those who source this
TEST_PACKAGES=(g++ cmake ninja-build libgtest-dev libgmock-dev "${TOOL_PACKAGES[@]}"
  libquickfix-dev python3-jsonschema tmux tshark)

# Whether what a package is wanted for is there, whoever installed it.
has_package() {
  case $1 in
    g++ | cmake | clang-tidy | clang-format) command -v "$1" ;;
    ninja-build) command -v ninja ;;
    clang) command -v clang++ ;;
    libgtest-dev) ls /usr/include/gtest/gtest.h ;;
    libgmock-dev) ls /usr/include/gmock/gmock.h ;;
    libclang-rt-dev) ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a ;;
    *) dpkg -s "$1" ;;
  esac >/dev/null 2>&1
}

# Runs a command without a word; if it fails, shows on standard error what it said, and ends.
quietly() {
  local said
  if ! said=$("$@" 2>&1 </dev/null); then
    printf '%s\n' "$said" >&2
    echo "${0##*/}: failed: $*" >&2
    exit 1
  fi
}

# Installs those of the named packages that are missing. Asks the network only if one is.
install_missing() {
  local package missing=()
  for package in "$@"; do
    has_package "$package" || missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  if ((EUID != 0)) || ! command -v apt-get >/dev/null; then
    echo "${0##*/}: please install first (Debian's names): ${missing[*]}" >&2
    exit 1
  fi
  echo "${0##*/}: installing ${missing[*]} with apt-get" >&2
  export DEBIAN_FRONTEND=noninteractive
  # A source that cannot be refreshed does not matter as long as the install finds its packages.
  apt-get update >/dev/null 2>&1 </dev/null || true
  quietly apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}"
}
