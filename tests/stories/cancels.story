# What an OrderCancelRequest brings.

let sell 55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i
let hit  55=AAPL|54=1|38=100|40=1|59=3|18=i

# --- The cancel stands ---

story takes_a_live_order_off_the_book_without_a_trade
BETA rests 11=b1|&sell|38=300|37=$id|17=$exec
ALPHA > D 11=a1|&sell
ALPHA < 8 34=2|150=0|37=$id+1|17=$exec+1
feed    5 400 @ 190.00 last
ALPHA > F 11=c1|41=a1|55=AAPL|54=2|38=100
ALPHA < 8 34=3|37=$id+1|11=c1|17=$exec+2|20=0|150=4|39=4|55=AAPL|54=2|38=100|18=i|40=2|47=P|59=0|41=a1|44=190|32=0|31=0|151=0|14=0|6=0|!30|!58|!103
feed    5 300 @ 190.00 last
counts  orders+1 accepts+1 cancels+1
ALPHA > D 11=a2|&hit|38=500
ALPHA < 8 150=0
ALPHA < 8 150=1|32=300|151=200|17=$exec+4
ALPHA < 8 150=4|14=300|58=UnmatchedIOC
BETA  < 8 150=2|37=$id
feed    T 300 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2 cancels+1

story of_a_part_filled_order_tells_what_was_executed
ALPHA rests 11=a1|&sell|38=300
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=1|14=100|151=200
feed    T 100 @ 190.00; 5 200 @ 190.00 last
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4|39=4|38=300|151=0|14=100|6=190
feed    5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2 cancels+1

story reads_nothing_of_the_request_but_the_two_names
ALPHA rests 11=a1|&sell|37=$id
ALPHA > F 11=c1|41=a1|55=MSFT|54=1|38=99999|37=4711|44=1
ALPHA < 8 150=4|55=AAPL|54=2|38=100|37=$id|44=190
feed    5 0 @ 190.00 last
counts  cancels+1

# The order's own name, a live one, one that is too long and one that no order may have.
story does_not_check_its_own_name
ALPHA rests 11=c2|&sell
ALPHA rests 11=a1|&sell
ALPHA > F 11=a1|41=a1
ALPHA < 8 150=4|41=a1|11=a1
feed    5 100 @ 190.00 last
ALPHA rests 11=a1|&sell
ALPHA > F 11=c2|41=a1
ALPHA < 8 150=4|41=a1|11=c2
feed    5 100 @ 190.00 last
ALPHA rests 11=a1|&sell
ALPHA > F 11=this-name-is-longer-than-20-bytes|41=a1
ALPHA < 8 150=4|41=a1|11=this-name-is-longer-than-20-bytes
feed    5 100 @ 190.00 last
ALPHA rests 11=a1|&sell
ALPHA > F 11=with,comma"@|41=a1
ALPHA < 8 150=4|41=a1|11=with,comma"@
feed    5 100 @ 190.00 last
counts  cancels+4
ALPHA > F 11=c3|41=c2
ALPHA < 8 150=4|41=c2
feed    5 0 @ 190.00 last
counts  cancels+1

story without_a_name_is_answered_under_the_orders_own_and_no_other
ALPHA rests 11=a1|&sell|37=$id
ALPHA > F 41=a1
ALPHA < 8 150=4|11=a1|!41
feed    5 0 @ 190.00 last
event   cancel a1 oid $id AAPL S 100 @ 190 cum 0 leaves 0 last 0 "cancel"
ALPHA rests 11=a2|&sell
ALPHA > F 11=|41=a2
ALPHA < 8 150=4|11=a2|!41
feed    5 0 @ 190.00 last
event   cancel a2 oid $id+1 AAPL S 100 @ 190 cum 0 leaves 0 last 0 "cancel"
counts  cancels+2

story is_an_order_event_of_the_order_it_cancels
ALPHA > D 11=a1|&sell
ALPHA < 8 150=0|37=$id
feed    5 100 @ 190.00 last
event   new a1 oid $id AAPL S 100 @ 190 cum 0 leaves 100 last 0 ""
ALPHA > F 11=c1|41=a1
+ ALPHA > F 11=c2|41=a1
ALPHA < 8 150=4
ALPHA < 9 37=NONE|11=c2|41=a1|39=2|102=0|434=1|58=Too late to cancel
feed    5 0 @ 190.00 last
event   cancel a1 oid $id AAPL S 100 @ 190 cum 0 leaves 0 last 0 "cancel"
event   cancel_reject a1 oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Too late to cancel"
counts  orders+1 accepts+1 cancels+1 cancel_rejects+1 late_cancels+1

# The fill is reported at the end of the turn, as it was when it happened.
story leaves_reports_that_wait_for_their_own_time
BETA  > 0
ALPHA > D 11=a1|&sell|38=300
ALPHA < 8 34=2|150=0
feed    5 300 @ 190.00 last
BETA  > D 11=b1|&hit
+ ALPHA > F 11=c1|41=a1
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 34=3|150=4|14=100|151=0
ALPHA < 8 34=4|150=1|39=1|14=100|151=200
feed    T 100 @ 190.00; 5 200 @ 190.00 last; 5 0 @ 190.00 last
counts  orders+2 accepts+2 fills+2 cancels+1

# --- The order is not live ---

story of_an_order_closed_1999_ms_ago_comes_too_late_without_a_line
inside only: to the millisecond
ALPHA rests 11=a1|&sell
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=2
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2
after   1999ms
ALPHA > F 11=c1|41=a1
ALPHA < 9 37=NONE|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel|!17|!150
counts  late_cancels+1 cancel_rejects+1

story of_an_order_closed_2_s_ago_is_for_an_unknown_order_that_was_filled
ALPHA rests 11=a1|&sell
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=2
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2
after   2s
ALPHA > F 11=c1|41=a1
ALPHA < 9 37=NONE|11=c1|41=a1|39=2|102=1|434=1|58=Unknown order
log     bench: stale cancel for a1 (closed more than 2 s ago)
counts  stale_cancels+1 cancel_rejects+1

# A refusal takes a number and no ExecID.
story of_an_order_never_seen_is_for_an_unknown_order
ALPHA > F 11=c1|41=zz
ALPHA < 9 34=2|37=NONE|11=c1|41=zz|39=8|102=1|434=1|58=Unknown order
log     bench: stale cancel for zz (unknown order)
event   cancel_reject zz oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Unknown order"
counts  stale_cancels+1 cancel_rejects+1
ALPHA > D 11=a1|&sell
ALPHA < 8 34=3|150=0|17=$exec|37=$id
feed    5 100 @ 190.00 last
event   new a1 oid $id AAPL S 100 @ 190 cum 0 leaves 100 last 0 ""
ALPHA > F 11=c1|41=zz
ALPHA < 9 34=4
log     bench: stale cancel for zz (unknown order)
event   cancel_reject zz oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Unknown order"
ALPHA > D 11=a2|&sell
ALPHA < 8 34=5|150=0|17=$exec+1
feed    5 200 @ 190.00 last
event   new a2 oid $id+1 AAPL S 100 @ 190 cum 0 leaves 100 last 0 ""
counts  orders+2 accepts+2 stale_cancels+1 cancel_rejects+1

story of_an_order_that_the_ladder_refused_is_for_an_unknown_order
ALPHA > D 11=a1|&sell|44=190.005
ALPHA < 8 150=8|58=InvalidPrice
ALPHA > F 11=c1|41=a1
ALPHA < 9 39=8|102=1|58=Unknown order
log     bench: stale cancel for a1 (unknown order)
counts  stale_cancels+1 cancel_rejects+1

# The refusal overtakes the fill, which is told at the end of the turn.
story of_an_order_filled_earlier_in_the_turn_is_refused_before_the_fill_is_told
BETA  > 0
ALPHA rests 11=a1|&sell|37=$id
BETA  > D 11=b1|&hit|40=2|44=190.00
+ ALPHA > F 11=c1|41=a1
BETA  < 8 150=0|11=b1
BETA  < 8 150=2|11=b1
ALPHA < 9 34=3|37=NONE|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel
ALPHA < 8 34=4|150=2|11=a1|32=100|151=0|14=100
feed    T 100 @ 190.00; 5 0 @ 190.00 last
event   new b1 oid $id+1 AAPL B 100 @ 190 cum 0 leaves 100 last 0 ""
event   fill b1 oid $id+1 AAPL B 100 @ 190 cum 100 leaves 0 last 100 ""
event   cancel_reject a1 oid 0 - - 0 @ 0 cum 0 leaves 0 last 0 "Too late to cancel"
event   fill a1 oid $id AAPL S 100 @ 190 cum 100 leaves 0 last 100 ""
counts  orders+1 accepts+1 fills+2 late_cancels+1 cancel_rejects+1

story without_any_names_is_for_an_unknown_order
ALPHA > F 55=AAPL
ALPHA < 9 37=NONE|11=|41=|39=8
log     bench: stale cancel for  (unknown order)
counts  stale_cancels+1 cancel_rejects+1

story names_in_a_line_are_not_a_format
ALPHA > F 11=c1|41=%s%n%d
ALPHA < 9 41=%s%n%d
log     bench: stale cancel for %s%n%d (unknown order)
counts  stale_cancels+1 cancel_rejects+1

story of_an_order_of_another_owner_is_for_an_unknown_order
ALPHA rests 11=a1|&sell
BETA  > F 11=c1|41=a1
BETA  < 9 39=8|58=Unknown order
log     bench: stale cancel for a1 (unknown order)
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4|14=0
feed    5 0 @ 190.00 last
counts  stale_cancels+1 cancel_rejects+1 cancels+1

# A refused cancel does not renew the closing.
story a_second_time_comes_too_late
inside only: to the millisecond
ALPHA rests 11=a1|&sell
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4
feed    5 0 @ 190.00 last
counts  cancels+1
after   1999ms
ALPHA > F 11=c2|41=a1
ALPHA < 9 39=2|102=0|58=Too late to cancel
counts  late_cancels+1 cancel_rejects+1
after   1ms
ALPHA > F 11=c3|41=a1
ALPHA < 9 39=2|102=1|58=Unknown order
log     bench: stale cancel for a1 (closed more than 2 s ago)
counts  stale_cancels+1 cancel_rejects+1

# --- The cancel loses the race ---

story lost_race
script fill_on_cancel_every=1
ALPHA > D 11=a1|&sell|38=300
ALPHA < 8 34=2|17=$exec|150=0|37=$id
feed    5 300 @ 190.00 last
ALPHA > F 11=c1|41=a1
ALPHA < 8 34=3|17=$exec+1|150=2|39=2|37=$id|11=a1|!41|32=300|31=190|151=0|14=300|6=190|851=1|880=$trade|9730=ML|!58
ALPHA < 9 34=4|37=$id|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel
feed    T 300 @ 190.00 id $trade; 5 0 @ 190.00 last
counts  orders+1 accepts+1 race_fills+1 fills+1 cancel_rejects+1
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=4|14=0
counts  orders+1 accepts+1 cancels+1

# What the book offers below does not matter.
story lost_race_fills_at_the_orders_own_limit
BETA rests 11=b1|&sell|44=189.00
BETA rests 11=b2|&sell|54=1|44=188.00
ALPHA rests 11=a1|&sell|44=250.00
control fill_on_cancel
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=2|31=250
ALPHA < 9
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 250.00; 5 0 @ 250.00 last
counts  race_fills+1 fills+1 cancel_rejects+1
BETA  > F 11=c1|41=b1
BETA  < 8 150=4|14=0
feed    5 0 @ 189.00 last
BETA  > F 11=c2|41=b2
BETA  < 8 150=4|14=0
feed    8 0 @ 188.00 last
counts  cancels+2

story lost_race_is_never_cut_by_the_partial_fill_script
script partial_fill_every=1
control fill_on_cancel
ALPHA rests 11=a1|&sell
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=2|32=100|151=0
ALPHA < 9
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  race_fills+1 fills+1 cancel_rejects+1

# All in one turn: what GAMMA's orders have filled is owed to ALPHA and BETA until its end, but for the
# owner of the race, who is told of all that is older first.
story lost_race_brings_what_this_owner_is_owed_and_leaves_the_others_in_their_order
GAMMA > 0
ALPHA rests 11=a1|&sell
BETA rests 11=b1|&sell
ALPHA rests 11=a2|&sell|38=300
BETA rests 11=b2|&sell|38=300|44=190.01
ALPHA > D 11=a3|&sell|38=500|44=190.02
ALPHA < 8 34=4|150=0
feed    5 500 @ 190.02 last
counts  orders+1 accepts+1
control fill_on_cancel
GAMMA > D 11=g1|&hit|38=300
+ GAMMA > D 11=g2|&hit|38=250
+ ALPHA > F 11=c1|41=a3
GAMMA < 8 150=0
GAMMA < 8 150=1|880=$t
GAMMA < 8 150=1|880=$t+1
GAMMA < 8 150=2|880=$t+2
GAMMA < 8 150=0
GAMMA < 8 150=1|880=$t+3
GAMMA < 8 150=2|880=$t+4|17=$exec
ALPHA < 8 34=5|150=2|11=a1|32=100|880=$t|17=$exec+1
ALPHA < 8 34=6|150=1|11=a2|32=100|880=$t+2|17=$exec+2
ALPHA < 8 34=7|150=2|11=a2|32=200|880=$t+3|17=$exec+3
ALPHA < 8 34=8|150=2|11=a3|32=500|880=$t+5|17=$exec+4
ALPHA < 9 34=9|11=c1|41=a3
BETA  < 8 150=2|11=b1|880=$t+1|17=$exec+5
BETA  < 8 150=1|11=b2|32=50|880=$t+4|17=$exec+6
feed    T 100 @ 190.00; T 100 @ 190.00; T 100 @ 190.00; 5 200 @ 190.00 last
feed    T 200 @ 190.00; T 50 @ 190.01; 5 0 @ 190.00; 5 250 @ 190.01 last
feed    T 500 @ 190.02; 5 0 @ 190.02 last
log     bench: cancel of a3 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
counts  orders+2 accepts+2 fills+11 race_fills+1 cancel_rejects+1

story lost_race_of_a_part_filled_order_fills_what_is_left
ALPHA rests 11=a1|&sell|38=300
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=1|14=100|151=200
feed    T 100 @ 190.00; 5 200 @ 190.00 last
control fill_on_cancel
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=2|39=2|32=200|14=300|151=0
ALPHA < 9 39=2
feed    T 200 @ 190.00; 5 0 @ 190.00 last
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
counts  orders+1 accepts+1 fills+3 race_fills+1 cancel_rejects+1

story lost_race_leaves_a_closing_that_the_next_cancel_is_too_late_for
control fill_on_cancel
ALPHA rests 11=a1|&sell
ALPHA > F 11=c1|41=a1
+ ALPHA > F 11=c2|41=a1
ALPHA < 8 150=2
ALPHA < 9
ALPHA < 9 37=NONE|39=2|102=0|58=Too late to cancel
feed    T 100 @ 190.00; 5 0 @ 190.00 last
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
counts  fills+1 race_fills+1 late_cancels+1 cancel_rejects+2

# Too late, or for an unknown order: not counted.
story lost_race_counts_only_cancels_that_found_a_live_order
script fill_on_cancel_every=2
ALPHA rests 11=a1|&sell
ALPHA rests 11=a2|&sell|37=$second
ALPHA rests 11=a3|&sell
ALPHA rests 11=a4|&sell
ALPHA > F 11=c1|41=a1
+ ALPHA > F 11=c2|41=a1
+ ALPHA > F 11=c3|41=zz
ALPHA < 8 150=4|41=a1
ALPHA < 9 37=NONE|58=Too late to cancel
ALPHA < 9 37=NONE|58=Unknown order
feed    5 300 @ 190.00 last
log     bench: stale cancel for zz (unknown order)
ALPHA > F 11=c4|41=a2
ALPHA < 8 150=2
ALPHA < 9 37=$second
log     bench: cancel of a2 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 190.00; 5 200 @ 190.00 last
ALPHA > F 11=c5|41=a3
ALPHA < 8 150=4
feed    5 100 @ 190.00 last
ALPHA > F 11=c6|41=a4
ALPHA < 8 150=2
ALPHA < 9
log     bench: cancel of a4 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  fills+2 race_fills+2 cancels+2 cancel_rejects+4 late_cancels+1 stale_cancels+1

# And whoever stands ahead in the queue.
story lost_race_one_shots_take_the_next_cancels_and_a_refused_one_spends_none
control fill_on_cancel
ALPHA rests 11=a1|&sell
ALPHA rests 11=a2|&sell
ALPHA > F 11=c0|41=zz
ALPHA < 9
log     bench: stale cancel for zz (unknown order)
ALPHA > F 11=c1|41=a2
ALPHA < 8 150=2|11=a2
ALPHA < 9
log     bench: cancel of a2 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 190.00; 5 100 @ 190.00 last
ALPHA > F 11=c2|41=a1
ALPHA < 8 150=4|41=a1
feed    5 0 @ 190.00 last
counts  fills+1 race_fills+1 cancels+1 cancel_rejects+2 stale_cancels+1

# The second cancel is lost for both reasons: none is left for the third.
story lost_race_by_a_rule_spends_a_one_shot_too
script fill_on_cancel_every=2
ALPHA rests 11=a1|&sell
ALPHA rests 11=a2|&sell
ALPHA rests 11=a3|&sell
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4
feed    5 200 @ 190.00 last
control fill_on_cancel 1
ALPHA > F 11=c2|41=a2
ALPHA < 8 150=2
ALPHA < 9
log     bench: cancel of a2 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 190.00; 5 100 @ 190.00 last
ALPHA > F 11=c3|41=a3
ALPHA < 8 150=4
feed    5 0 @ 190.00 last
counts  fills+1 race_fills+1 cancels+2 cancel_rejects+1

story lost_race_its_order_events_come_in_the_order_of_its_messages
script fill_on_cancel_every=1
ALPHA > D 11=a1|&sell
ALPHA < 8 150=0|37=$id
feed    5 100 @ 190.00 last
event   new a1 oid $id AAPL S 100 @ 190 cum 0 leaves 100 last 0 ""
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=2
ALPHA < 9
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
feed    T 100 @ 190.00; 5 0 @ 190.00 last
event   fill a1 oid $id AAPL S 100 @ 190 cum 100 leaves 0 last 100 ""
event   cancel_reject a1 oid $id - - 0 @ 0 cum 0 leaves 0 last 0 "Too late to cancel"
counts  orders+1 accepts+1 fills+1 race_fills+1 cancel_rejects+1
