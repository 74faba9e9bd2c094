#!/usr/bin/env bash
# with_other_programs.sh: run by bare_debian_test.sh within the bare system, where the package is
# installed, and from Debian what it is used with: a compiler, the QuickFIX engine, tshark.
set -u
cd "$(mktemp -d)" || exit
failed=0

complain() {
  printf 'FAILED: %s\n' "$*"
  failed=1
}

# The example is built where a user would copy it to.
cp -r /usr/share/doc/quorl/examples/quickfix example
find example -name '*.gz' -exec gunzip {} +
if ! (cmake -S example -B built && cmake --build built) >cmake.log 2>&1; then
  cat cmake.log
  complain 'the QuickFIX example does not build'
fi
sed -i 's|^DataDictionary=.*|DataDictionary=/usr/share/quorl/FIX42-quorl.xml|' example/client.cfg

quorl --control-port 25500 2>said &
exchange=$!
quorl-control --wait >/dev/null || complain 'the exchange does not answer'

# A book that moves.
quorl-ladder --once >one || complain "quorl-ladder ended with $?"
tries=0
until quorl-ladder --once >other && ! cmp -s <(grep -E ' (ask|bid) ' one) <(grep -E ' (ask|bid) ' other); do
  ((++tries < 20)) || { cat one; complain 'the book of quorl-ladder does not move'; break; }
done
grep -q 'IN STEP' one || complain 'quorl-ladder is not in step'

# The engine trades and survives a drop, while all of it is recorded.
quorl-record feed.pcap 2>recorded &
recorder=$!
timeout 100 built/quickfix-client --settings example/client.cfg --orders 20 --pace 100 >traded 2>&1 &
client=$!
tries=0
until (($(grep -c '^fill ' traded) >= 2)); do
  if ((++tries > 300)) || ! kill -0 "$client"; then break; fi
  sleep 0.1
done
quorl-control --timeout 15 disconnect >/dev/null || complain 'no drop'
wait "$client" || complain "the QuickFIX example ended with $?"
(($(grep -c '^logged on' traded) == 2)) || complain 'the QuickFIX example was not dropped once'
(($(grep -c '^order .* \(filled\|cancelled\)$' traded) == 20)) || complain 'orders without an end'
quorl-control --timeout 15 stats
((failed)) && cat traded

# Each packet is named.
kill -INT "$recorder"
wait "$recorder" || complain "quorl-record ended with $?"
tail -n 1 recorded
names=$(tshark -r feed.pcap -T fields -e _ws.col.Protocol 2>tshark.log | sort | uniq -c)
echo "tshark: $names"
[[ -n $names && $(wc -l <<<"$names") == 1 && $names == *DEEP* ]] || complain 'tshark does not know all'
! tshark -r feed.pcap -V 2>&1 | grep -E 'Lua Error|Malformed' || complain 'tshark stumbles'

kill -TERM "$exchange"
wait "$exchange" || complain "the exchange ended with $?"
exit $failed
