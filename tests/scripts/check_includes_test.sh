#!/usr/bin/env bash
# check-includes finds one planted include of each kind that it is there to find, and says from
# where to where it runs; the tree as it is passes.
set -euo pipefail
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

fresh_tree() {
  rm -rf "$scratch/tree"
  mkdir -p "$scratch/tree/tests" "$scratch/tree/docs"
  cp -R "$root/src" "$root/client" "$root/tools" "$scratch/tree/"
  cp -R "$root/tests/e2e" "$scratch/tree/tests/"
  cp "$root/docs/architecture.md" "$scratch/tree/docs/"
}

# expect_found WHAT FILE LINE: with the line added to the file, the check fails and says WHAT.
expect_found() {
  local what=$1 file=$2 line=$3 said
  fresh_tree
  echo "$line" >>"$scratch/tree/$file"
  if said=$("$root/scripts/check-includes" "$scratch/tree" 2>&1); then
    echo "FAILED: not found: $line in $file"
    failed=1
  elif [[ $said != *"$what"* ]]; then
    printf 'FAILED: %s in %s was answered by\n%s\n' "$line" "$file" "$said"
    failed=1
  fi
}

fresh_tree
"$root/scripts/check-includes" "$scratch/tree" || failed=1

expect_found 'src/base/clocks.h (floor 1) includes src/market/records.h (floor 2)' \
  src/base/clocks.h '#include "market/records.h"'
expect_found 'src/market/book.h (floor 3) includes src/market/engine.h (floor 4)' \
  src/market/book.h '#include "market/engine.h"'
expect_found 'src/market/engine.cpp (floor 4) includes src/fix/reports.h (floor 5)' \
  src/market/engine.cpp '#include "fix/reports.h"'
expect_found 'src/bench/control_port.cpp (floor 7) includes src/driver/turn.h (floor 8)' \
  src/bench/control_port.cpp '  #  include <driver/turn.h>'
expect_found 'src/market/new_thing.h has no floor' \
  src/market/new_thing.h '#include "market/records.h"'
expect_found 'a file includes itself' src/feed/snap.h '#include "feed/snap.h"'
expect_found 'include each other in a circle' src/market/records.h '#include "market/order_checks.h"'
expect_found "client/ must not know the program's own source" \
  client/book.cpp '#include "../src/market/book.h"'
expect_found "tools/ must not know the program's own source" \
  tools/trade.cpp '#include "fix/fix_codec.h"'
expect_found "tests/e2e/ must not know" tests/e2e/order_test.cpp '#include "base/price4.h"'

# A folder that cannot be read is not one that includes nothing.
fresh_tree
mkdir "$scratch/bin"
cat >"$scratch/bin/grep" <<END
#!/bin/sh
for last; do :; done
[ "\$last" != client ] || exit 2
exec $(command -v grep) "\$@"
END
chmod +x "$scratch/bin/grep"
if PATH="$scratch/bin:$PATH" "$root/scripts/check-includes" "$scratch/tree"; then
  echo 'FAILED: client/ could not be read, and passed'
  failed=1
fi
exit $failed
