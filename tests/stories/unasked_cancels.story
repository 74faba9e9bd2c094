# Cancels that nobody asked for: 300 ms after an order came to rest the exchange takes it off the book,
# if something rests under that name of that client by then.

let sell 55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i
let hit  55=AAPL|54=1|38=100|40=1|59=3|18=i

# A cancel of its own that comes within 2 s is too late, and the count is spent.
story comes_300_ms_after_the_order_came_to_rest
inside only: to the millisecond
control unsolicited_cancel 1
ALPHA > D 11=a1|&sell
ALPHA < 8 34=2|150=0|37=$id|17=$exec
feed    5 100 @ 190.00 last
event   new a1 oid $id AAPL S 100 @ 190 cum 0 leaves 100 last 0 ""
after   299ms
counts  orders+1 accepts+1
after   1ms
ALPHA < 8 34=3|37=$id|11=a1|41=a1|17=$exec+1|20=0|150=4|39=4|55=AAPL|54=2|38=100|44=190|32=0|31=0|151=0|14=0|6=0|58=AdminCancel|!30|!103
feed    5 0 @ 190.00 last
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
event   cancel a1 oid $id AAPL S 100 @ 190 cum 0 leaves 0 last 0 "unsolicited"
counts  unsolicited_cancels+1
after   1999ms
ALPHA > F 11=c1|41=a1
ALPHA < 9 37=NONE|11=c1|41=a1|39=2|102=0|58=Too late to cancel
event   cancel_reject a1 oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Too late to cancel"
after   1ms
ALPHA > F 11=c2|41=a1
ALPHA < 9 39=2|102=1|58=Unknown order
log     bench: stale cancel for a1 (closed more than 2 s ago)
event   cancel_reject a1 oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Unknown order"
ALPHA > D 11=a2|&sell
ALPHA < 8 150=0
feed    5 100 @ 190.00 last
event   new a2 oid $id+1 AAPL S 100 @ 190 cum 0 leaves 100 last 0 ""
after   1s
counts  orders+1 accepts+1 cancel_rejects+2 late_cancels+1 stale_cancels+1

story is_told_to_the_owner_and_on_the_feed
control unsolicited_cancel 1
ALPHA rests 11=a1|&sell|37=$id
after   1s
ALPHA < 8 150=4|39=4|37=$id|11=a1|41=a1|38=100|32=0|31=0|151=0|14=0|6=0|58=AdminCancel|!103
feed    5 0 @ 190.00 last
event   cancel a1 oid $id AAPL S 100 @ 190 cum 0 leaves 0 last 0 "unsolicited"
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
counts  unsolicited_cancels+1
ALPHA rests 11=a2|&sell
after   1s
counts

# All of it within the 300 ms.
story of_a_part_filled_order_takes_the_remainder
control unsolicited_cancel 1
ALPHA > D 11=a1|&sell|38=300
+ BETA > D 11=b1|&hit
ALPHA < 8 150=0
ALPHA < 8 150=1|14=100|151=200
BETA  < 8 150=0
BETA  < 8 150=2
feed    5 300 @ 190.00 last; T 100 @ 190.00; 5 200 @ 190.00 last
after   1s
ALPHA < 8 150=4|39=4|38=300|14=100|151=0|6=190|58=AdminCancel
feed    5 0 @ 190.00 last
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
counts  orders+2 accepts+2 fills+2 unsolicited_cancels+1

# The second order's comes all the same.
story of_an_order_filled_meanwhile_is_spent_without_a_word
control unsolicited_cancel 2
ALPHA > D 11=a1|&sell
+ ALPHA > D 11=later|&sell
+ BETA > D 11=b1|&hit
ALPHA < 8 150=0|11=a1
ALPHA < 8 150=0|11=later
ALPHA < 8 150=2|11=a1
BETA  < 8 150=0
BETA  < 8 150=2
feed    5 100 @ 190.00 last; 5 200 @ 190.00 last; T 100 @ 190.00; 5 100 @ 190.00 last
after   1s
ALPHA < 8 150=4|39=4|11=later|41=later|32=0|31=0|151=0|58=AdminCancel
feed    5 0 @ 190.00 last
log     bench: unsolicited cancel of later (exchange-initiated; the client must mark it cancelled)
counts  orders+3 accepts+3 fills+2 unsolicited_cancels+1

story of_an_order_cancelled_meanwhile_is_spent_without_a_word
control unsolicited_cancel
ALPHA > D 11=a1|&sell
+ ALPHA > F 11=c1|41=a1
ALPHA < 8 150=0
ALPHA < 8 150=4|!58
feed    5 100 @ 190.00 last; 5 0 @ 190.00 last
after   1s
counts  orders+1 accepts+1 cancels+1

story does_not_find_an_order_that_was_replaced
control unsolicited_cancel 2
ALPHA > D 11=a1|&sell
+ ALPHA > G 11=a2|41=a1|55=AAPL|54=2|38=50
+ ALPHA > D 11=later|&sell
ALPHA < 8 150=0|11=a1
ALPHA < 8 150=5|11=a2|41=a1
ALPHA < 8 150=0|11=later
feed    5 100 @ 190.00 last; 5 50 @ 190.00 last; 5 150 @ 190.00 last
after   1s
ALPHA < 8 150=4|11=later|58=AdminCancel
feed    5 50 @ 190.00 last
log     bench: unsolicited cancel of later (exchange-initiated; the client must mark it cancelled)
counts  orders+2 accepts+2 replaces+1 unsolicited_cancels+1
ALPHA > F 11=c1|41=a2
ALPHA < 8 150=4|11=c1|41=a2|!58
feed    5 0 @ 190.00 last
counts  cancels+1

story takes_a_new_order_under_the_same_name_in_its_place
control unsolicited_cancel
ALPHA > D 11=a1|&sell
+ ALPHA > F 11=c1|41=a1
+ ALPHA > D 11=a1|&sell|38=700|44=191.00
ALPHA < 8 150=0|37=$id
ALPHA < 8 150=4|11=c1|41=a1|37=$id
ALPHA < 8 150=0|37=$id+1
feed    5 100 @ 190.00 last; 5 0 @ 190.00 last; 5 700 @ 191.00 last
after   1s
ALPHA < 8 150=4|37=$id+1|38=700|44=191|11=a1|41=a1|58=AdminCancel
feed    5 0 @ 191.00 last
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
counts  orders+2 accepts+2 cancels+1 unsolicited_cancels+1

story reaches_an_owner_who_has_left_by_the_resend_after_the_next_logon
control unsolicited_cancel
ALPHA > D 11=a1|&sell
+ ALPHA > 5
ALPHA < 8 34=2|150=0|11=a1
ALPHA < 5 34=3
ALPHA closed
feed    5 100 @ 190.00 last
log     bench: client ALPHA logged out (1 resting order(s) kept)
after   1s
feed    5 0 @ 190.00 last
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=5
log     bench: logon ALPHA 34=4 141=N (stream expected 4, next out 5)
ALPHA > 2 7=4|16=0
log     bench: ResendRequest from ALPHA 7=4 16=0 -> serving 4..5
ALPHA < 8 43=Y|34=4|150=4|39=4|11=a1|41=a1|32=0|31=0|151=0|58=AdminCancel
ALPHA < 4 43=Y|34=5|123=Y|36=6
log     bench: resend done: replayed 1 application message(s), 1 GapFill(s)
counts  orders+1 accepts+1 unsolicited_cancels+1 logons+1 resend_requests+1 replays+1 replayed+1

# One that fills, one that may not rest and one that is refused spend none.
story a_one_shot_waits_for_an_order_that_rests
BETA  rests 11=b1|&hit|54=2|40=2|44=190.00|59=0
control unsolicited_cancel
ALPHA > D 11=a1|&sell|54=1
ALPHA < 8 150=0
ALPHA < 8 150=2
BETA  < 8 150=2
feed    T 100 @ 190.00; 5 0 @ 190.00 last
ALPHA > D 11=a2|&sell|54=1|59=3
ALPHA < 8 150=0
ALPHA < 8 150=4|58=UnmatchedIOC
ALPHA > D 11=a3|&sell|38=0
ALPHA < 8 150=8
after   1s
ALPHA rests 11=a4|&sell
after   1s
ALPHA < 8 150=4|11=a4|41=a4|58=AdminCancel
feed    5 0 @ 190.00 last
log     bench: unsolicited cancel of a4 (exchange-initiated; the client must mark it cancelled)
counts  orders+2 accepts+2 fills+2 cancels+1 unsolicited_cancels+1

# Accepted orders are counted. The second fills, and there is nothing for it; a refused one is none.
story every_second_accepted_order_if_it_rests
script unsolicited_cancel_every=2
ALPHA rests 11=a1|&sell|54=1
ALPHA > D 11=a2|&sell
ALPHA < 8 150=0
ALPHA < 8 150=2
ALPHA < 8 150=2|11=a1
feed    T 100 @ 190.00; 8 0 @ 190.00 last
ALPHA > D 11=refused|&sell|38=0
ALPHA < 8 150=8
ALPHA rests 11=a3|&sell
after   1s
ALPHA rests 11=a4|&sell
after   1s
ALPHA < 8 150=4|11=a4|58=AdminCancel
feed    5 100 @ 190.00 last
log     bench: unsolicited cancel of a4 (exchange-initiated; the client must mark it cancelled)
counts  orders+1 accepts+1 fills+2 unsolicited_cancels+1

# a2's is due for both reasons: none is left for a3.
story a_recurring_cancel_spends_a_one_shot_and_comes_once
script unsolicited_cancel_every=2
ALPHA rests 11=a1|&sell
control unsolicited_cancel
ALPHA rests 11=a2|&sell
after   1s
ALPHA < 8 150=4|11=a2|58=AdminCancel
feed    5 100 @ 190.00 last
log     bench: unsolicited cancel of a2 (exchange-initiated; the client must mark it cancelled)
ALPHA rests 11=a3|&sell
after   1s
counts  unsolicited_cancels+1

story of_an_order_that_rests_after_part_fills
BETA  rests 11=b1|&sell|38=40
control unsolicited_cancel
ALPHA > D 11=a1|&sell|54=1
ALPHA < 8 150=0
ALPHA < 8 150=1|14=40|151=60
BETA  < 8 150=2
feed    T 40 @ 190.00; 5 0 @ 190.00; 8 60 @ 190.00 last
after   1s
ALPHA < 8 150=4|11=a1|14=40|151=0|58=AdminCancel
feed    8 0 @ 190.00 last
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
counts  orders+1 accepts+1 fills+2 unsolicited_cancels+1

# Each is an event of its own.
story of_several_orders_come_in_the_order_in_which_they_came_to_rest
options --symbols AAPL:190.00,MSFT:410.00
control unsolicited_cancel 4
ALPHA > D 11=a1|&sell
+ ALPHA > D 11=a2|&sell|38=200
+ BETA > D 11=b1|&sell|55=MSFT
+ BETA > D 11=b2|&sell|38=50
+ BETA > D 11=b3|&sell|38=70
ALPHA < 8 150=0|11=a1
ALPHA < 8 150=0|11=a2
BETA  < 8 150=0|11=b1
BETA  < 8 150=0|11=b2
BETA  < 8 150=0|11=b3
feed    AAPL 5 100 @ 190.00 last; AAPL 5 300 @ 190.00 last; MSFT 5 100 @ 190.00 last
feed    AAPL 5 350 @ 190.00 last; AAPL 5 420 @ 190.00 last
after   1s
ALPHA < 8 150=4|11=a1|41=a1|17=$exec
ALPHA < 8 150=4|11=a2|41=a2|17=$exec+1
BETA  < 8 150=4|11=b1|41=b1|17=$exec+2
BETA  < 8 150=4|11=b2|41=b2|17=$exec+3
feed    AAPL 5 320 @ 190.00 last; AAPL 5 120 @ 190.00 last; MSFT 5 0 @ 190.00 last; AAPL 5 70 @ 190.00 last
log     bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it cancelled)
log     bench: unsolicited cancel of a2 (exchange-initiated; the client must mark it cancelled)
log     bench: unsolicited cancel of b1 (exchange-initiated; the client must mark it cancelled)
log     bench: unsolicited cancel of b2 (exchange-initiated; the client must mark it cancelled)
counts  orders+5 accepts+5 unsolicited_cancels+4
