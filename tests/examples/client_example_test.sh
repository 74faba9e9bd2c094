#!/usr/bin/env bash
# client_example_test.sh BUILD_FOLDER QUORL: installs the client library from the build folder into
# a prefix of its own, builds examples/client against it as a user does, without anything of this
# tree, and lets it trade with the exchange.
set -euo pipefail
build=$1 quorl=$2
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

complain() {
  printf 'FAILED: %s\n' "$*"
  failed=1
}

# The installed files are moved, so that a path written into them would not be found again.
cmake --install "$build" --prefix "$scratch/there" --component client >/dev/null
mv "$scratch/there" "$scratch/prefix"
cp -R "$root/examples/client" "$scratch/example"

# configured FOLDER WORDS...: the example with the installed library, in a build folder of its own.
configured() {
  cmake -G Ninja -S "$scratch/example" -B "$scratch/$1" -DCMAKE_PREFIX_PATH="$scratch/prefix" \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON "${@:2}" 2>&1
}

configured built >"$scratch/said" || { cat "$scratch/said"; exit 1; }
cmake --build "$scratch/built" || exit 1
commands=$scratch/built/compile_commands.json
grep -q -- '-std=[a-z+]*20' "$commands" || complain "C++20 is not asked for: $(<"$commands")"
! grep -qE -- '-W|-ffp-contract' "$commands" || complain "our flags reach users: $(<"$commands")"

said=$("$scratch/built/client-example" "$quorl") || complain "the example ended with $?"
printf '%s\n' "$said"
[[ $said == *'the feed shows it'* ]] || complain 'no trade was seen'
[[ $said =~ ([0-9]+)' reports, '([0-9]+)' order events: they agree' &&
  ${BASH_REMATCH[1]} -ge 2 ]] || complain 'no order was reconciled'
if "$scratch/built/client-example" /bin/true 2>"$scratch/said"; then
  complain 'a program that is no exchange passes'
fi

# Headers need nothing that is not installed with them.
headers=$scratch/prefix/include/quorl/client
[[ $(ls "$headers") == "$(ls "$root/client/include/quorl/client")" ]] || complain 'a header is missing'
! grep -rn 'nlohmann' "$scratch/prefix" --include='*.h' --include='*.cmake' ||
  complain 'users would need the JSON library'

# A version that this is not is not taken for it.
sed -i 's/quorl-client 0.1/quorl-client 99.0/' "$scratch/example/CMakeLists.txt"
if configured other >"$scratch/said"; then
  complain 'version 99.0 was found'
elif ! grep -q 'requested version "99.0"' "$scratch/said"; then
  cat "$scratch/said"
  complain 'not refused for its version'
fi
exit $failed
