#!/usr/bin/env bash
# check-docs finds one planted fault of each kind that it is there to find, and says which; a page
# without a fault passes. Takes the build folder whose programs the planted commands run.
# shellcheck disable=SC2016  # backquotes are those of a page
set -euo pipefail
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd)
built=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

# A tree with a page of the given text, and what pages may name.
plant() {
  rm -rf "$scratch/tree"
  mkdir -p "$scratch/tree/src/driver" "$scratch/tree/docs"
  cp -R "$root/scripts" "$scratch/tree/"
  cp "$root/src/driver/run_config.cpp" "$scratch/tree/src/driver/"
  printf '# Page\n\n## A heading\n' >"$scratch/tree/docs/other.md"
  printf '%s\n' "$1" >"$scratch/tree/README.md"
}

check() {
  "$root/scripts/check-docs" --root "$scratch/tree" --built "$built" 2>&1
}

# expect_found WHAT PAGE: the check fails with status 1 and says WHAT.
expect_found() {
  local said status=0
  plant "$2"
  said=$(check) || status=$?
  if ((status != 1)) || [[ $said != *"$1"* ]]; then
    printf 'FAILED: not said: %s\n  of\n%s\n  which ended with %d and\n%s\n' \
      "$1" "$2" "$status" "$said"
    failed=1
  fi
}

# expect_good WHAT PAGE: the check passes and says WHAT.
expect_good() {
  local said status=0
  plant "$2"
  said=$(check) || status=$?
  if ((status == 77)); then
    echo "$said"
    exit 77
  elif ((status != 0)) || [[ $said != *"$1"* ]]; then
    printf 'FAILED: %s\n  ended with %d and\n%s\n' "$2" "$status" "$said"
    failed=1
  fi
}

expect_good '1 commands run' $'```sh\nscripts/run --symbols A:10\n```'
expect_good '1 commands run' $'```console\n$ quorl --symbols A:10\n[quorl] DEEP/IEX-TP … FIX :1 as IEXG · A:9\n```'
expect_good '2 commands run' $'```sh\nscripts/run --control-port 25500\n```\n```sh
exec 3<>/dev/udp/127.0.0.1/25500; echo pause >&3
[[ $(dd bs=512 count=1 status=none <&3) == "ok pause" ]]\n```'
expect_good 'not run, line 2: it takes an hour' $'<!-- not run: it takes an hour -->\n```sh\nfalse\n```'
expect_good '1 transcripts' $'```transcript\n$ scripts/run --seed 7\n```'
expect_good '1 transcripts' $'<!-- file: docs/other.md -->\n```text\n# Page\n\n## A heading\n```'
expect_good '0 commands run' '[a link](docs/other.md#a-heading) and `scripts/run --seed 7`'

expect_found 'README.md:1: ended with status 127: scripts/nothing' $'```sh\nscripts/nothing\n```'
expect_found 'ended with status 1: false | true' $'```sh\nfalse | true\ntrue\n```'
expect_found 'ended with status 2: quorl --no-such-option' $'```sh\nquorl --no-such-option\n```'
expect_found 'not printed: B' $'```console\n$ printf "B\\nA\\n"\nA\nB\n```'
expect_found 'an exchange ended with a status of its own' \
  $'```sh
here=$(readlink /proc/self/ns/net)
for pid in $(pidof quorl); do
  if [[ $(readlink "/proc/$pid/ns/net") == "$here" ]]; then kill -ABRT "$pid"; fi
done\n```'
expect_found 'README.md:2: not what stands in docs/other.md' \
  $'<!-- file: docs/other.md -->\n```text\n# Page\n```'
expect_found 'README.md:1: a block without a tag' $'```\nanything\n```'
expect_found 'README.md:2: this would change the machine' $'```sh\nfalse && sudo true\n```'
expect_found 'README.md:1: a block without an end' $'```text\nanything\n'
expect_found 'README.md:1: unknown tag shell' $'```shell\nls\n```'
expect_found 'README.md:2: a command in a block of json' $'```json\n$ ls\n```'
expect_found 'README.md:3: a command outside a block' $'Run\n\n    scripts/run --seed 7'
expect_found 'there is no scripts/nothing' $'```transcript\n$ scripts/nothing\n```'
expect_found 'there is no scripts/nothing' $'<!-- not run: a reason -->\n```sh\nscripts/nothing\n```'
expect_found 'README.md:2: there is no scripts/nothing' $'Take\n`scripts/nothing`.'
expect_found 'there is no docs/nothing.md' 'See `docs/nothing.md`.'
expect_found 'quorl has no option --sed' 'Take `scripts/run --sed 7`.'
expect_found 'the link to docs/nothing.md leads nowhere' 'Read [this](docs/nothing.md).'
expect_found 'other.md has no heading for #nothing' 'Read [this](docs/other.md#nothing).'
exit $failed
