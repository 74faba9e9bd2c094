# What a script or the control port makes the exchange do.

let buy 55=AAPL|54=1|38=100|40=2|44=100.00|59=0|18=i

story the_next_order_is_rejected
control reject
ALPHA > D 11=a1|&buy
ALPHA < 8 150=8|39=8|37=NONE|11=a1|58=bench:scripted_reject|103=0
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 100 @ 100.00 last
counts  orders+2 accepts+1 rejects+1

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

story a_cancel_that_nobody_asked_for
control unsolicited_cancel
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0|37=$id
feed    8 100 @ 100.00 last
after   1s
ALPHA < 8 150=4|39=4|37=$id|11=$name|41=a1
feed    8 0 @ 100.00 last
log     bench: unsolicited cancel of a1$rest
counts  orders+1 accepts+1 unsolicited_cancels+1

story an_unknown_command
control dance twice -> err unknown command 'dance'
control mark here
log     bench: mark here at seq $seq orders $orders
counts
