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

# The doctor finds nothing to say of this start, and the exchange serves.
diagnosis=$(quorl-doctor --control-port 25500 --truth-out /root/market.jsonl 2>/root/said) ||
  complain "quorl-doctor: $diagnosis $(cat /root/said)"
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
  counters=$(timeout 15 quorl-control --timeout 15 stats)
  [[ $counters == 'ok orders=0 '* ]] || complain "quorl-control stats: $counters"
fi
grep -q '"mark":"here"' /root/market.jsonl || complain 'no mark in the market truth file'
seen=$(timeout 15 quorl-watch | grep -m 1 '^packet from') || complain 'quorl-watch sees no packet'
echo "quorl-watch: ${seen-}"
session=$(echo quit | timeout 15 quorl-trade) || complain 'quorl-trade does not come back'
[[ $session == *'|35=A|'* ]] || complain "quorl-trade logs on: $session"

# The ladder draws on a terminal, for which it needs what the package depends on, and ends by its key.
mkfifo /root/keys
TERM=xterm timeout 30 script -qefc 'stty rows 24 cols 80; quorl-ladder' /root/screen \
  </root/keys >/dev/null &
ladder=$!
exec 4>/root/keys
tries=0
until grep -aqs 'spread 0' /root/screen; do
  if ((++tries > 200)) || ! kill -0 "$ladder"; then
    complain "quorl-ladder shows no book: $(cat -v /root/screen)"
    break
  fi
  sleep 0.1
done
printf q >&4
wait "$ladder" || complain "quorl-ladder ended with $?"
exec 4>&-

# What is recorded can be replayed.
timeout 15 quorl-record /root/day.pcap --count 20 2>/root/heard || complain "$(cat /root/heard)"
timeout 15 quorl-replay /root/day.pcap --mcast 233.54.26.113 --snap-port 26479 --speed max \
  2>/root/heard || complain "$(cat /root/heard)"

kill -TERM "$exchange"
wait "$exchange" || complain "the exchange ended with $?"
grep -qxF '[quorl] stopped' /root/said || complain 'the exchange did not say that it stopped'

# A client is judged by a plan that came along.
timeout 100 quorl-certify --out /root/verdicts /usr/share/quorl/plans/calm.plan -- quorl-trader \
  >/root/heard 2>&1 || complain "quorl-certify: $(cat /root/heard)"
grep -q '^PASSED' /root/verdicts/calm/report.txt || complain 'no report of quorl-certify'

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

# What other programs read is where they look for it, and what a page links to is there.
[[ -e /usr/share/doc/quorl/docs/bench.md ]] || complain 'no documentation'
while IFS=: read -r page link; do
  link=${link#*(}
  link=${link%%[#)]*}
  [[ -e ${page%/*}/$link ]] || complain "$page links to $link"
done < <(grep -roHE --include='*.md' '\]\([^)#: ]+(#[^)]*)?\)' /usr/share/doc/quorl)
if [[ -e /usr/share/quorl/quorl.lua ]]; then
  cmp /usr/share/quorl/quorl.lua /usr/lib/*/wireshark/plugins/quorl.lua ||
    complain 'the dissector is not where Wireshark looks'
fi
for tool in $tools; do printf '%s ' "$tool"; done
((failed)) || echo 'work'
exit $failed
