# What a script or the control port makes the exchange do.

# The buys rest far below the market. It is not swept, since the script would count those orders too.
book opening
let buy 55=AAPL|54=1|38=100|40=2|44=100.00|59=0|18=i

# The count is the exchange's and not a client's; what the ladder refuses is not counted.
story every_third_order_is_rejected
script reject_every=3
ALPHA rests 11=a1|&buy|37=$id
BETA  rests 11=b1|&buy
ALPHA > D 11=bad|&buy|38=0
ALPHA < 8 150=8|58=ExceededMaxSharesPerOrder
event   reject bad oid 0 AAPL B 0 @ 100 cum 0 leaves 0 last 0 "ExceededMaxSharesPerOrder"
ALPHA > D 11=a3|&buy
ALPHA < 8 150=8|39=8|37=NONE|11=a3|151=0|14=0|44=100|38=100|58=bench:scripted_reject|103=0
event   reject a3 oid 0 AAPL B 100 @ 100 cum 0 leaves 0 last 0 "bench:scripted_reject"
ALPHA rests 11=a4|&buy|37=$id+2
ALPHA rests 11=a5|&buy
BETA  > D 11=b6|&buy
BETA  < 8 150=8|39=8|37=NONE|11=b6|58=bench:scripted_reject|103=0
event   reject b6 oid 0 AAPL B 100 @ 100 cum 0 leaves 0 last 0 "bench:scripted_reject"
counts  orders+2 rejects+2
ALPHA > F 11=c1|41=a3
ALPHA < 9 39=8|102=1|58=Unknown order
log     bench: stale cancel for a3 (unknown order)
event   cancel_reject a3 oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Unknown order"
counts  stale_cancels+1 cancel_rejects+1

story the_next_two_orders_are_rejected
control reject 2
ALPHA > D 11=bad|&buy|44=100.005
ALPHA < 8 150=8|58=InvalidPrice
ALPHA > D 11=a1|&buy
ALPHA < 8 150=8|39=8|37=NONE|11=a1|58=bench:scripted_reject|103=0
ALPHA > D 11=a2|&buy
ALPHA < 8 150=8|39=8|37=NONE|11=a2|58=bench:scripted_reject|103=0
ALPHA rests 11=a1|&buy
counts  orders+2 rejects+2

# By the command; by the rule, which spends a command's; not at all; by the rule.
story an_order_that_is_rejected_for_two_reasons
script reject_every=2
control reject
ALPHA > D 11=a1|&buy
ALPHA < 8 150=8|58=bench:scripted_reject
control reject
ALPHA > D 11=a2|&buy
ALPHA < 8 150=8|58=bench:scripted_reject
ALPHA rests 11=a3|&buy
ALPHA > D 11=a4|&buy
ALPHA < 8 150=8|58=bench:scripted_reject
counts  orders+3 rejects+3

story an_order_that_costs_the_connection
control disconnect
ALPHA > D 11=a1|&buy
ALPHA closed
feed    8 100 @ 100.00 last
log     bench: dropping the connection of ALPHA (driven); 1 resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=3
log     bench: logon ALPHA 34=3 141=N (stream expected 3, next out 3)
ALPHA > 2 7=2|16=2
log     bench: ResendRequest from ALPHA 7=2 16=2 -> serving 2..2
ALPHA < 8 34=2|43=Y|150=0|11=a1
log     bench: resend done: replayed 1 application message(s), 0 GapFill(s)
counts  orders+1 accepts+1 logons+1 resend_requests+1 replays+1 replayed+1

story an_unknown_command
control dance twice -> err unknown command 'dance'
control mark here
log     bench: mark here at seq $seq orders $orders
counts
