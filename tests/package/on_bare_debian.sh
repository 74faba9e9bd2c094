#!/usr/bin/env bash
# on_bare_debian.sh VERSION: run by bare_debian_test.sh within the bare system, where the package is
# installed and nothing else of ours is.
set -u
version=$1
failed=0

complain() {
  printf 'FAILED: %s\n' "$*"
  failed=1
}

tools=$(cd /usr/bin && ls -d quorl-*)
[[ $tools == *quorl-watch* ]] || complain "no tools: $tools"

# The exchange serves.
quorl --control-port 25500 --truth-out /root/market.jsonl 2>/root/said &
exchange=$!
tries=0
until grep -q 'FIX :28500 as IEXG' /root/said; do
  if ((++tries > 300)) || ! kill -0 "$exchange"; then
    cat /root/said
    complain 'no banner'
    break
  fi
  sleep 0.1
done
exec 3<>/dev/udp/127.0.0.1/25500
echo 'mark here' >&3
reply=$(timeout 15 head -n 1 <&3)
[[ $reply == 'ok mark here' ]] || complain "the control port answers: $reply"
exec 3>&-
if command -v quorl-control >/dev/null; then
  counters=$(timeout 15 quorl-control stats)
  [[ $counters == 'ok orders=0 '* ]] || complain "quorl-control stats: $counters"
fi
grep -q '"mark":"here"' /root/market.jsonl || complain 'no mark in the market truth file'
seen=$(timeout 15 quorl-watch | grep -m 1 '^packet from') || complain 'quorl-watch sees no packet'
echo "quorl-watch: ${seen-}"
session=$(echo quit | timeout 15 quorl-trade) || complain 'quorl-trade does not come back'
[[ $session == *'|35=A|'* ]] || complain "quorl-trade logs on: $session"
kill -TERM "$exchange"
wait "$exchange" || complain "the exchange ended with $?"
grep -qxF '[quorl] stopped' /root/said || complain 'the exchange did not say that it stopped'

# Each program tells its version, is told of by man, and is completed.
for program in quorl $tools; do
  page=$(MANPAGER='cat' man "$program" 2>&1) || complain "man $program: $page"
  [[ $page == *"quorl $version"* ]] || complain "the page of $program names another version"
done
for tool in $tools; do
  said=$("$tool" --version) || complain "$tool --version ended with $?"
  [[ $said == "$tool $version" ]] || complain "$tool --version: $said"
done

# complete_word WORDS...: what bash would offer for the last of the words.
complete_word() {
  bash -c '. /usr/share/bash-completion/bash_completion
    _completion_loader "$1"
    function=$(complete -p "$1" | sed -nE "s/.* -F ([^ ]+) .*/\1/p")
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    "$function" "$1" "${@: -1}" "${@: -2:1}"
    echo "${COMPREPLY[*]}"' _ "$@"
}
[[ $(complete_word quorl --sna) == --snap-port ]] || complain "quorl is not completed"
[[ $(complete_word quorl-watch --mc) == --mcast ]] || complain "quorl-watch is not completed"
for tool in $tools; do
  [[ $(complete_word "$tool" --versio) == --version ]] || complain "$tool is not completed"
done

# What other programs read is where they look for it.
[[ -e /usr/share/doc/quorl/docs/bench.md ]] || complain 'no documentation'
if [[ -e /usr/share/quorl/quorl.lua ]]; then
  cmp /usr/share/quorl/quorl.lua /usr/lib/*/wireshark/plugins/quorl.lua ||
    complain 'the dissector is not where Wireshark looks'
fi
for tool in $tools; do printf '%s ' "$tool"; done
((failed)) || echo 'work'
exit $failed
