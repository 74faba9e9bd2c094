# Connections that are dropped behind an order, by the script or on request.

let order 55=AAPL|54=1|38=100|40=2|44=100.00|18=i
let bad   55=NONE|54=1|38=100|40=2|44=100.00|18=i

# The sweep is two orders, a refused one is none. It comes once, but for each request anew.
story scripted_comes_once_behind_the_order_and_keeps_its_report_on_the_stream
script disconnect_after=4
ALPHA > D 11=a1|&order
ALPHA < 8 34=2|150=0
feed    8 100 @ 100.00 last
ALPHA > D 11=unknown|&bad
ALPHA < 8 34=3|150=8
counts  orders+1 accepts+1
ALPHA > D 11=a2|&order
ALPHA closed
feed    8 200 @ 100.00 last
log     bench: dropping the connection of ALPHA (scripted: the last order's reports stayed on the stream; the client must log on again, continue its sequence and ResendRequest what it missed); 2 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=5
log     bench: logon ALPHA 34=5 141=N (stream expected 5, next out 5)
ALPHA > 2 7=2|16=4
ALPHA < 8 34=2|43=Y|150=0|11=a1
ALPHA < 8 34=3|43=Y|150=8|11=unknown
ALPHA < 8 34=4|43=Y|150=0|11=a2
log     bench: ResendRequest from ALPHA 7=2 16=4 -> serving 2..4
log     bench: resend done: replayed 3 application message(s), 0 GapFill(s)
ALPHA > D 11=a3|&order
ALPHA < 8 34=6|150=0|11=a3
feed    8 300 @ 100.00 last
control disconnect
ALPHA > D 11=a4|&order
ALPHA closed
feed    8 400 @ 100.00 last
log     bench: dropping the connection of ALPHA (scripted: the last order's reports stayed on the stream; the client must log on again, continue its sequence and ResendRequest what it missed); 4 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
counts  orders+3 accepts+3 logons+1 resend_requests+1 replays+1 replayed+3

story scripted_counts_the_orders_of_all_clients
script disconnect_after=4
ALPHA > D 11=a1|&order
ALPHA < 8 150=0
feed    8 100 @ 100.00 last
BETA  > D 11=b1|&order
BETA  closed
feed    8 200 @ 100.00 last
log     bench: dropping the connection of BETA (scripted: the last order's reports stayed on the stream; the client must log on again, continue its sequence and ResendRequest what it missed); 1 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
counts  orders+2 accepts+2

# Of any client, whatever becomes of it. Cancels and replaces are none; two requests before it are one.
story driven_takes_the_next_order
control disconnect
control disconnect
ALPHA > F 11=c1|41=a1
ALPHA < 9 34=2
log     bench: stale cancel for a1 (unknown order)
ALPHA > G 11=r1|41=a1|54=1|55=AAPL|38=1|44=1
ALPHA < 9 34=3
log     bench: stale replace for a1
BETA  > D 11=b1|&bad
BETA  closed
log     bench: dropping the connection of BETA (driven); 0 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
ALPHA > D 11=a1|&order
ALPHA < 8 34=4|150=0
feed    8 100 @ 100.00 last
BETA  connects
BETA  > A 98=0|108=30
BETA  < A 34=3
log     bench: logon BETA 34=3 141=N (stream expected 3, next out 3)
BETA  > 2 7=2|16=0
BETA  < 8 34=2|43=Y|150=8|11=b1|58=UnknownSymbol
BETA  < 4 34=3|43=Y|36=4
log     bench: ResendRequest from BETA 7=2 16=0 -> serving 2..3
log     bench: resend done: replayed 1 application message(s), 1 GapFill(s)
counts  orders+1 accepts+1 cancel_rejects+1 replace_rejects+1 stale_cancels+2 logons+1 resend_requests+1 replays+1 replayed+1

story driven_before_the_threshold_uses_up_the_scripted_one
script disconnect_after=5
control disconnect
ALPHA > D 11=a1|&order
ALPHA closed
feed    8 100 @ 100.00 last
log     bench: dropping the connection of ALPHA (scripted: the last order's reports stayed on the stream; the client must log on again, continue its sequence and ResendRequest what it missed); 1 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=3
log     bench: logon ALPHA 34=3 141=N (stream expected 3, next out 3)
counts  orders+1 accepts+1 logons+1
each @id @size @seq
| a2 | 200 | 4
| a3 | 300 | 5
| a4 | 400 | 6
ALPHA > D 11=@id|&order
ALPHA < 8 34=@seq|150=0
feed    8 @size @ 100.00 last
end
counts  orders+3 accepts+3

story each_request_drops_one_connection_more
each @id @rest @next
| a1 | 1 | 3
| a2 | 2 | 5
| a3 | 3 | 7
control disconnect
ALPHA > D 11=@id|&order
ALPHA closed
feed    8 @rest00 @ 100.00 last
log     bench: dropping the connection of ALPHA (driven); @rest resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=@next
log     bench: logon ALPHA 34=@next 141=N (stream expected @next, next out @next)
end
counts  orders+3 accepts+3 logons+3

story what_stands_behind_the_order_in_one_read_never_acts
script disconnect_after=3
ALPHA > D 11=a1|&order
+ ALPHA > D 11=a2|&order
ALPHA closed
feed    8 100 @ 100.00 last
log     bench: dropping the connection of ALPHA (scripted: the last order's reports stayed on the stream; the client must log on again, continue its sequence and ResendRequest what it missed); 1 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
counts  orders+1 accepts+1
ALPHA connects
ALPHA > A 34=3|98=0|108=30
ALPHA < A 34=3
log     bench: logon ALPHA 34=3 141=N (stream expected 3, next out 3)
counts  logons+1
