#!/usr/bin/env bash
# mutants, on a tiny tree with one test: what the test looks at is killed, in a source and in a
# header, what it does not look at survives and is printed, what is named is counted, and a stale
# name is reported. The tree is left as it was. On the real tree, the same seed is the same draw.
set -euo pipefail
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
tree=$scratch/tree
failed=0

# expect WHAT TEXT...: what was said holds each text.
expect() {
  local text
  for text in "$@"; do
    if [[ $said != *"$text"* ]]; then
      printf 'FAILED: not said: %s\n' "$text"
      failed=1
    fi
  done
}

# run STATUS OPTION...: keeps what is said.
run() {
  local wanted=$1 status=0
  shift
  said=$("$root/scripts/mutants" --root "$tree" --jobs 2 "$@" 2>&1) || status=$?
  if ((status == 77)); then exit 77; fi
  if ((status != wanted)); then
    printf 'FAILED: status %d instead of %d\n%s\n' "$status" "$wanted" "$said"
    failed=1
  fi
}

content() {
  (cd "$tree" && find . -path ./build -prune -o -type f -print0 | sort -z | xargs -0 md5sum)
}

mkdir -p "$tree/src/market" "$tree/tests/market"
cat >"$tree/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(tiny LANGUAGES CXX)
find_package(GTest REQUIRED)
add_library(quorl_core STATIC src/market/fee.cpp src/market/tax.cpp)
target_include_directories(quorl_core PUBLIC src)
add_executable(unit_market tests/market/fee_test.cpp)
target_link_libraries(unit_market PRIVATE quorl_core GTest::gtest_main)
END
cat >"$tree/CMakePresets.json" <<'END'
{"version": 6,
 "configurePresets": [{"name": "mutants", "generator": "Ninja",
                       "binaryDir": "${sourceDir}/build/mutants",
                       "cacheVariables": {"CMAKE_CXX_STANDARD": "20",
                                          "CMAKE_EXPORT_COMPILE_COMMANDS": "ON"}}],
 "buildPresets": [{"name": "mutants", "configurePreset": "mutants"}]}
END
cat >"$tree/src/market/fee.h" <<'END'
#pragma once
inline int lots(int shares) { return shares / 100; }
int fee(int shares);
int unseen(int shares);
END
cat >"$tree/src/market/fee.cpp" <<'END'
#include "market/fee.h"
int fee(int shares) {
  return lots(shares) + 7;  // not + 8
}
int unseen(int shares) {
  return shares - 7;
}
END
cat >"$tree/src/market/tax.cpp" <<'END'
#include "market/fee.h"
int tax(int shares) {
  return lots(shares) * 3;
}
bool is_counted() {
  return true;
}
END
cat >"$tree/tests/market/fee_test.cpp" <<'END'
#include <gtest/gtest.h>
#include "market/fee.h"
int tax(int shares);
bool is_counted();
TEST(Fee, is_one_for_each_lot_and_seven) {
  EXPECT_EQ(fee(399), 10);
  EXPECT_EQ(fee(400), 11);
  EXPECT_EQ(tax(400), 12);
  while (!is_counted()) {
  }
}
END
before=$(content)

# Five lines can be changed. The test sees each slip in three of them, hangs by that in the fourth,
# and does not see the fifth.
run 1 --count 5 --seed 5
table='all +3 +1 +1 +0 +0 +80.0 % killed'  # killed, timed out, survived
[[ $said =~ $table ]] || { printf 'FAILED: other figures\n%s\n' "$said" && failed=1; }
expect 'src/market/fee.cpp:6: survives' '    - return shares - 7;' 'killed by unit_market 4'

# Named, a survivor is counted and not run; what the line no longer says is reported.
{
  for after in 'return shares + 7;' 'return shares - 8;' 'return shares - 6;' 'return {};'; do
    printf 'src/market/fee.cpp: return shares - 7;\n    becomes %s\n    Nobody asks.\n' "$after"
  done
} >"$tree/tests/mutants.txt"
run 0 --count 5 --seed 5
expect 'killed by unit_market 4' '100.0 % killed'
[[ $said != *survives* ]] || expect 'no survivor'  # which is not said
printf 'src/market/fee.cpp: return shares - 9;\n    becomes return {};\n    Gone.\n' \
  >>"$tree/tests/mutants.txt"
line='return lots(shares) + 7;  // not + 8'
printf 'src/market/fee.cpp: %s\n    becomes return {};  // not + 8\n' "$line" \
  >>"$tree/tests/mutants.txt"
run 1 --count 5 --seed 5
expect 'names what is no mutant: src/market/fee.cpp: return shares - 9;' \
  'gives no reason: src/market/fee.cpp: return lots(shares) + 7;'
run 1 --named
expect 'names what unit_market tells apart: src/market/fee.cpp: return lots'
rm "$tree/tests/mutants.txt"

[[ $(content) == "$before" ]] || { echo 'FAILED: the tree has changed' && failed=1; }
[[ ! -e $tree/build/mutants/tried ]] || { echo 'FAILED: something is left' && failed=1; }

tree=$root
run 0 --list --seed 7 --count 60
first=$said
run 0 --list --seed 7 --count 60
[[ $said == "$first" ]] || { echo 'FAILED: two draws from one seed' && failed=1; }
(($(grep -c ': drawn' <<<"$said") == 60)) || { echo 'FAILED: not 60 are drawn' && failed=1; }
run 0 --list --seed 8 --count 60
[[ $said != "$first" ]] || { echo 'FAILED: one draw from two seeds' && failed=1; }
exit $failed
