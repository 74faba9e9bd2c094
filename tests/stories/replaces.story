# What an OrderCancelReplaceRequest brings. The values that its fields may have are in
# tests/market/replace_test.cpp.

let sell 55=AAPL|54=2|38=1000|40=2|44=190.00|59=0|18=i
let buy  55=AAPL|54=1|38=100|40=2|44=189.00|59=0|18=i
let hit  55=AAPL|54=1|38=200|40=1|59=3|18=i
let to   41=a1|55=AAPL|54=2|38=600|44=190.00

# --- The ladder ---

story the_new_name_may_not_be_live_not_even_as_the_old_one
ALPHA rests 11=a1|&sell|37=$id
ALPHA > G 11=a1|&to
ALPHA < 9 37=$id|41=a1|434=2|102=2|39=0|58=Invalid or duplicate ClOrdID|!150|!17
ALPHA rests 11=a2|&sell|38=100
BETA  rests 11=b2|&sell|38=100
ALPHA > G 11=a2|&to
ALPHA < 9 37=$id|39=0|102=2|58=Invalid or duplicate ClOrdID
ALPHA > G 11=b2|&to
ALPHA < 8 150=5|11=b2|41=a1
feed    5 800 @ 190.00 last
counts  replaces+1 replace_rejects+2

story a_bad_name_answers_even_for_an_unknown_order
ALPHA rests 11=a1|&sell
ALPHA > G &to|11=123456789012345678901|41=zz
ALPHA < 9 37=NONE|41=zz|39=8|102=2|434=2|58=Invalid or duplicate ClOrdID
ALPHA > G &to|11=a1|41=zz
ALPHA < 9 37=NONE|11=a1|39=8|102=2|58=Invalid or duplicate ClOrdID
counts  replace_rejects+2

story a_bad_name_answers_as_for_an_unknown_order_even_if_it_has_just_closed
ALPHA rests 11=a1|&sell
BETA  > D 11=b1|&hit|38=1000
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=2
feed    T 1000 @ 190.00; 5 0 @ 190.00 last
ALPHA > G &to|11=
ALPHA < 9 37=NONE|39=8|102=2|58=Invalid or duplicate ClOrdID
counts  orders+1 accepts+1 fills+2 replace_rejects+1

story an_order_closed_1999_ms_ago_is_too_late_to_replace
inside only: to the millisecond
ALPHA rests 11=a1|&sell
BETA  > D 11=b1|&hit|38=1000
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=2
feed    T 1000 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2
after   1999ms
ALPHA > G 11=a2|&to
ALPHA < 9 37=NONE|11=a2|41=a1|39=2|102=0|434=2|58=Too late to cancel
counts  late_cancels+1 replace_rejects+1

story an_order_closed_2_s_ago_is_unknown_but_filled
ALPHA rests 11=a1|&sell
BETA  > D 11=b1|&hit|38=1000
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=2
feed    T 1000 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2
after   2s
ALPHA > G 11=a2|&to
ALPHA < 9 37=NONE|11=a2|41=a1|39=2|102=1|434=2|58=Unknown order
log     bench: stale replace for a1
counts  stale_cancels+1 replace_rejects+1

story an_order_never_seen_is_unknown_and_rejected
ALPHA > G 11=a2|&to|41=%s%n
ALPHA < 9 37=NONE|11=a2|41=%s%n|39=8|102=1|434=2|58=Unknown order
log     bench: stale replace for %s%n
counts  stale_cancels+1 replace_rejects+1

story an_order_of_another_owner_is_unknown
ALPHA rests 11=a1|&sell
BETA  > G 11=a2|&to
BETA  < 9 39=8|58=Unknown order
log     bench: stale replace for a1
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4|38=1000
feed    5 0 @ 190.00 last
counts  stale_cancels+1 replace_rejects+1 cancels+1

story a_short_sale_is_replaced_under_its_own_side
ALPHA rests 11=a1|&sell|114=N|54=5
ALPHA > G 11=a2|&to
ALPHA < 9 58=Side / Symbol must match the original
ALPHA > G 11=a2|&to|54=5
ALPHA < 8 150=5|54=5
feed    5 600 @ 190.00 last
ALPHA rests 11=e1|&sell|114=N|54=6
ALPHA > G 11=e2|&to|41=e1
ALPHA < 9 58=Side / Symbol must match the original
ALPHA > G 11=e2|&to|41=e1|54=6
ALPHA < 8 150=5|54=6
feed    5 1200 @ 190.00 last
counts  replaces+2 replace_rejects+2

story the_symbol_is_compared_whole
options --symbols LONGSYMBOL1:10
ALPHA rests 11=a1|&sell|55=LONGSYMBOL1
ALPHA > G 11=a2|&to|55=LONGSYMB
ALPHA < 9 58=Side / Symbol must match the original
ALPHA > G 11=a2|&to|55=LONGSYMBOL1
ALPHA < 8 150=5|55=LONGSYMBOL1
feed    5 600 @ 190.00 last
counts  replaces+1 replace_rejects+1

story a_refusal_is_an_order_event_under_the_old_name_with_the_new_as_its_ref
ALPHA rests 11=a1|&sell|37=$id
ALPHA > G 11=a2|&to|38=0
ALPHA < 9 11=a2|41=a1
event   replace_reject a1 oid $id - - 0 @ 0 cum 0 leaves 0 last 0 "InvalidOrderQty" ref a2
control replace_reject
ALPHA > G 11=a2|&to
ALPHA < 9 11=a2|41=a1
log     bench: scripted replace reject for a1 -> a2 (the order stands as it was)
event   replace_reject a1 oid $id - - 0 @ 0 cum 0 leaves 0 last 0 "bench:scripted_replace_reject" ref a2
ALPHA > G 11=a2|&to
ALPHA < 8 150=5
feed    5 600 @ 190.00 last
event   replace a2 oid $id AAPL S 600 @ 190 cum 0 leaves 600 last 0 "" ref a1
counts  replaces+1 replace_rejects+2

# Each line mends what answered before.
story a_request_with_many_faults_gets_the_word_of_the_first
ALPHA rests 11=a1|&sell
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=1
feed    T 200 @ 190.00; 5 800 @ 190.00 last
ALPHA rests 11=old|&sell
ALPHA > F 11=c1|41=old
+ ALPHA > G 11=|41=old|55=MSFT|54=1|38=0|44=0
+ ALPHA > G 11=a2|41=old|55=MSFT|54=1|38=0|44=0
ALPHA < 8 150=4
feed    5 800 @ 190.00 last
ALPHA < 9 434=2|39=8|102=2|58=Invalid or duplicate ClOrdID
ALPHA < 9 434=2|39=2|102=0|58=Too late to cancel
ALPHA > G 11=a2|41=zz|55=MSFT|54=1|38=0|44=0
ALPHA < 9 434=2|39=8|102=1|58=Unknown order
log     bench: stale replace for zz
ALPHA > G 11=a2|41=a1|55=MSFT|54=1|38=0|44=0
ALPHA < 9 434=2|39=0|102=2|58=InvalidOrderQty
ALPHA > G 11=a2|41=a1|55=MSFT|54=1|38=150|44=0
ALPHA < 9 434=2|39=0|102=2|58=InvalidPrice
ALPHA > G 11=a2|41=a1|55=MSFT|54=1|38=150|44=190
ALPHA < 9 434=2|39=1|102=2|58=OrderQty at or below executed quantity
ALPHA > G 11=a2|41=a1|55=MSFT|54=1|38=600|44=190
ALPHA < 9 434=2|39=0|102=2|58=Side / Symbol must match the original
ALPHA > G 11=a2|41=a1|55=MSFT|54=2|38=600|44=190
ALPHA < 9 434=2|39=0|102=2|58=Side / Symbol must match the original
ALPHA > G 11=a2|41=a1|55=AAPL|54=2|38=600|44=190
ALPHA < 8 150=5|151=400
feed    5 400 @ 190.00 last
counts  orders+1 accepts+1 fills+2 cancels+1 late_cancels+1 stale_cancels+1 replaces+1 replace_rejects+8

# --- The script ---

story script_a_reject_leaves_the_order_as_it_was
ALPHA rests 11=a1|&sell|37=$id
control replace_reject
ALPHA > G 11=a2|&to
ALPHA < 9 37=$id|11=a2|41=a1|39=0|102=2|434=2|58=bench:scripted_replace_reject
log     bench: scripted replace reject for a1 -> a2 (the order stands as it was)
counts  replace_rejects+1
ALPHA > G 11=a2|&to
ALPHA < 8 150=5|37=$id
feed    5 600 @ 190.00 last
counts  replaces+1

story script_a_reject_of_a_part_filled_order_says_so
script replace_reject_every=1
ALPHA rests 11=a1|&sell|37=$id
BETA  > D 11=b1|&hit
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=1
feed    T 200 @ 190.00; 5 800 @ 190.00 last
ALPHA > G 11=a2|&to
ALPHA < 9 37=$id|39=1|102=2|58=bench:scripted_replace_reject
log     bench: scripted replace reject for a1 -> a2 (the order stands as it was)
counts  orders+1 accepts+1 fills+2 replace_rejects+1

# What the ladder refuses is not counted.
story script_every_second_request_that_passes_the_ladder_is_refused
script replace_reject_every=2
ALPHA rests 11=a1|&sell
ALPHA > G 11=a2|&to|38=0
ALPHA < 9 58=InvalidOrderQty
ALPHA > G 11=a2|&to|38=900
ALPHA < 8 150=5
feed    5 900 @ 190.00 last
ALPHA > G 11=a3|&to|41=zz
ALPHA < 9 58=Unknown order
log     bench: stale replace for zz
ALPHA > G 11=a3|&to|41=a2|38=800
ALPHA < 9 58=bench:scripted_replace_reject
log     bench: scripted replace reject for a2 -> a3 (the order stands as it was)
ALPHA > G 11=a3|&to|41=a2|38=800
ALPHA < 8 150=5
feed    5 800 @ 190.00 last
ALPHA > G 11=a4|&to|41=a3|38=700
ALPHA < 9 58=bench:scripted_replace_reject
log     bench: scripted replace reject for a3 -> a4 (the order stands as it was)
counts  replaces+2 replace_rejects+4 stale_cancels+1

# The second request is refused for both reasons: none is left for the third.
story script_a_recurring_reject_spends_a_one_shot_too
script replace_reject_every=2
ALPHA rests 11=a1|&sell
ALPHA > G 11=a2|&to|38=900
ALPHA < 8 150=5
feed    5 900 @ 190.00 last
control replace_reject 1
ALPHA > G 11=a3|&to|41=a2|38=800
ALPHA < 9 58=bench:scripted_replace_reject
log     bench: scripted replace reject for a2 -> a3 (the order stands as it was)
ALPHA > G 11=a3|&to|41=a2|38=800
ALPHA < 8 150=5
feed    5 800 @ 190.00 last
counts  replaces+2 replace_rejects+1

# --- Priority kept ---

story down_in_size_keeps_the_place
ALPHA rests 11=a1|&sell|37=$id
GAMMA > D 11=g1|&hit
GAMMA < 8 150=0|37=$id+1
GAMMA < 8 150=2
ALPHA < 8 34=3|150=1|17=$exec
feed    T 200 @ 190.00; 5 800 @ 190.00 last
BETA  rests 11=b1|&sell|38=300|37=$id+2|17=$exec+1
ALPHA > G 11=a2|&to
ALPHA < 8 34=4|37=$id|11=a2|41=a1|17=$exec+2|20=0|150=5|39=5|55=AAPL|54=2|38=600|18=i|40=2|47=P|59=0|44=190|32=0|31=0|151=400|14=200|6=190|!30|!58|!103
feed    5 700 @ 190.00 last
counts  orders+1 accepts+1 fills+2 replaces+1
GAMMA > D 11=g2|&hit|38=500
GAMMA < 8 150=0|37=$id+3
GAMMA < 8 150=1|32=400
GAMMA < 8 150=2|32=100
ALPHA < 8 150=2|37=$id|11=a2|38=600|32=400|14=600
BETA  < 8 150=1|32=100|151=200
feed    T 400 @ 190.00; T 100 @ 190.00; 5 200 @ 190.00 last
counts  orders+1 accepts+1 fills+4

story without_a_price_keeps_price_and_place
ALPHA rests 11=a1|&sell
BETA  rests 11=b1|&sell|38=300
ALPHA > G 11=a2|&to|!44
ALPHA < 8 150=5|44=190|151=600
feed    5 900 @ 190.00 last
GAMMA > D 11=g1|&hit|38=650
GAMMA < 8 150=0
GAMMA < 8 150=1|32=600
GAMMA < 8 150=2|32=50
ALPHA < 8 150=2|11=a2|32=600
BETA  < 8 150=1|32=50
feed    T 600 @ 190.00; T 50 @ 190.00; 5 250 @ 190.00 last
counts  orders+1 accepts+1 replaces+1 fills+4

story to_the_same_size_only_renames_and_shows_nothing
ALPHA rests 11=a1|&sell
BETA  rests 11=b1|&sell|38=300
ALPHA > G 11=a2|&to|38=1000
ALPHA < 8 150=5|11=a2|41=a1|38=1000|151=1000
GAMMA > D 11=g1|&hit|38=1001
GAMMA < 8 150=0
GAMMA < 8 150=1|32=1000
GAMMA < 8 150=2|32=1
ALPHA < 8 150=2|11=a2|32=1000
BETA  < 8 150=1|32=1
feed    T 1000 @ 190.00; T 1 @ 190.00; 5 299 @ 190.00 last
counts  orders+1 accepts+1 replaces+1 fills+4

story reads_nothing_of_the_request_but_size_price_and_names
ALPHA rests 11=a1|&sell|37=$id
ALPHA > G 11=a2|&to|40=1|59=3|18=x|47=A|37=4711|114=Y
ALPHA < 8 150=5|40=2|59=0|18=i|47=P|37=$id|44=190
feed    5 600 @ 190.00 last
counts  replaces+1

# --- Priority lost ---

story up_in_size_goes_to_the_back_of_its_level
ALPHA rests 11=a1|&sell|37=$id
BETA  rests 11=b1|&sell|38=300
ALPHA > G 11=a2|&to|38=1001
ALPHA < 8 150=5|37=$id|11=a2|38=1001|151=1001
feed    5 1301 @ 190.00 last
GAMMA > D 11=g1|&hit|38=301
GAMMA < 8 150=0
GAMMA < 8 150=1|32=300
GAMMA < 8 150=2|32=1
BETA  < 8 150=2|32=300
ALPHA < 8 150=1|11=a2|37=$id|32=1
feed    T 300 @ 190.00; T 1 @ 190.00; 5 1000 @ 190.00 last
counts  orders+1 accepts+1 replaces+1 fills+4

story to_another_price_goes_to_the_back_of_the_level_there_even_with_less
ALPHA rests 11=a1|&sell|37=$id
BETA  rests 11=b1|&sell|38=300|44=190.01
ALPHA > G 11=a2|&to|38=100|44=190.01
ALPHA < 8 150=5|44=190.01|151=100
feed    5 0 @ 190.00; 5 400 @ 190.01 last
GAMMA > D 11=g1|&hit|38=301
GAMMA < 8 150=0
GAMMA < 8 150=1|32=300
GAMMA < 8 150=2|32=1
BETA  < 8 150=2|32=300
ALPHA < 8 150=1|11=a2|37=$id|32=1
feed    T 300 @ 190.01; T 1 @ 190.01; 5 99 @ 190.01 last
counts  orders+1 accepts+1 replaces+1 fills+4

story to_another_price_and_back_does_not_bring_the_place_back
ALPHA rests 11=a1|&sell|38=300
BETA  rests 11=b1|&sell|38=300
ALPHA > G 11=a2|&to|38=200|44=190.01
ALPHA < 8 150=5|11=a2|41=a1|38=200|44=190.01|151=200
feed    5 300 @ 190.00; 5 200 @ 190.01 last
ALPHA > G 11=a3|&to|41=a2|38=200
ALPHA < 8 150=5|11=a3|41=a2|44=190|151=200
feed    5 500 @ 190.00; 5 0 @ 190.01 last
GAMMA > D 11=g1|&hit|38=300
GAMMA < 8 150=0
GAMMA < 8 150=2
BETA  < 8 150=2|11=b1
feed    T 300 @ 190.00; 5 200 @ 190.00 last
counts  orders+1 accepts+1 replaces+2 fills+2

# 600 are open of 1000: 1000 leaves 600 open, 1001 one more.
story is_judged_by_open_shares_and_not_by_order_size
ALPHA rests 11=a1|&sell
GAMMA > D 11=g1|&hit|38=400
GAMMA < 8 150=0
GAMMA < 8 150=2
ALPHA < 8 150=1|14=400
feed    T 400 @ 190.00; 5 600 @ 190.00 last
BETA  rests 11=b1|&sell|38=300
ALPHA > G 11=a2|&to|38=1000
ALPHA < 8 150=5|151=600
GAMMA > D 11=g2|&hit|38=1
GAMMA < 8 150=0
GAMMA < 8 150=2
ALPHA < 8 150=1|11=a2|14=401
feed    T 1 @ 190.00; 5 899 @ 190.00 last
ALPHA > G 11=a3|&to|41=a2|38=1001
ALPHA < 8 150=5|151=600
feed    5 900 @ 190.00 last
GAMMA > D 11=g3|&hit|38=301
GAMMA < 8 150=0
GAMMA < 8 150=1|32=300
GAMMA < 8 150=2|32=1
BETA  < 8 150=2
ALPHA < 8 150=1|11=a3|32=1
feed    T 300 @ 190.00; T 1 @ 190.00; 5 599 @ 190.00 last
counts  orders+3 accepts+3 replaces+2 fills+8

# The report of the replace comes first and has the highest number.
story to_a_crossing_price_is_told_before_the_fills_it_caused
BETA  > D 11=b1|&buy|38=200
BETA  < 8 150=0|37=$other
feed    8 200 @ 189.00 last
event   new b1 oid $other AAPL B 200 @ 189 cum 0 leaves 200 last 0 ""
BETA  > D 11=b2|&buy|38=300|44=188.00
BETA  < 8 150=0
feed    8 300 @ 188.00 last
event   new b2 oid $other+1 AAPL B 300 @ 188 cum 0 leaves 300 last 0 ""
ALPHA > D 11=a1|&sell
ALPHA < 8 34=2|150=0|37=$id|17=$exec
feed    5 1000 @ 190.00 last
event   new a1 oid $id AAPL S 1000 @ 190 cum 0 leaves 1000 last 0 ""
ALPHA > G 11=a2|&to|44=188.00
ALPHA < 8 34=5|17=$exec+3|150=5|39=5|37=$id|11=a2|41=a1|38=600|44=188|32=0|31=0|151=100|14=500|6=188.4
ALPHA < 8 34=3|17=$exec+1|150=1|39=1|37=$id|11=a2|!41|38=600|44=188|32=200|31=189|151=400|14=200|6=189|851=2
ALPHA < 8 34=4|17=$exec+2|150=1|39=1|11=a2|!41|32=300|31=188|151=100|14=500|6=188.4
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
feed    T 200 @ 189.00; T 300 @ 188.00; 5 100 @ 188.00; 5 0 @ 190.00; 8 0 @ 188.00; 8 0 @ 189.00 last
event   fill a2 oid $id AAPL S 600 @ 188 cum 200 leaves 400 last 200 ""
event   fill a2 oid $id AAPL S 600 @ 188 cum 500 leaves 100 last 300 ""
event   replace a2 oid $id AAPL S 600 @ 188 cum 500 leaves 100 last 0 "" ref a1
event   fill b1 oid $other AAPL B 200 @ 189 cum 200 leaves 0 last 200 ""
event   fill b2 oid $other+1 AAPL B 300 @ 188 cum 300 leaves 0 last 300 ""
counts  orders+3 accepts+3 replaces+1 fills+4

story that_fills_the_order_closes_both_its_names
ALPHA rests 11=a1|&sell
BETA  rests 11=b1|&buy|38=2000
ALPHA > G 11=a2|&to|38=1000|44=189.00
+ ALPHA > F 11=c1|41=a1
+ ALPHA > F 11=c2|41=a2
ALPHA < 8 34=4|150=5|39=5|151=0|14=1000|38=1000
ALPHA < 8 34=3|150=2|39=2|32=1000|31=189|151=0|14=1000
ALPHA < 9 34=5|37=NONE|41=a1|58=Too late to cancel
ALPHA < 9 34=6|37=NONE|41=a2|58=Too late to cancel
BETA  < 8 150=1|32=1000
feed    T 1000 @ 189.00; 5 0 @ 190.00; 8 1000 @ 189.00 last
counts  replaces+1 fills+2 late_cancels+2 cancel_rejects+2

# A trade between clients is never cut by the script.
story a_client_hit_by_it_is_told_later_in_the_turn
script partial_fill_every=1
ALPHA rests 11=a1|&sell
BETA  rests 11=b1|&buy|38=300
ALPHA rests 11=own|&buy
ALPHA > G 11=a2|&to|44=189.00
ALPHA < 8 34=6|150=5|14=400|151=200
ALPHA < 8 34=4|150=1|11=a2|32=300
ALPHA < 8 34=5|150=1|11=a2|32=100
ALPHA < 8 34=7|150=2|11=own|32=100|851=1
BETA  < 8 150=2|11=b1|32=300|851=1
feed    T 300 @ 189.00; T 100 @ 189.00; 5 200 @ 189.00; 5 0 @ 190.00; 8 0 @ 189.00 last
counts  replaces+1 fills+4

# --- What becomes of the names ---

story the_order_is_found_by_its_new_name_and_the_old_one_has_closed
ALPHA rests 11=a1|&sell|37=$id
ALPHA > G 11=a2|&to
+ ALPHA > F 11=c1|41=a1
+ ALPHA > G 11=a3|&to
ALPHA < 8 150=5
ALPHA < 9 39=2|434=1|58=Too late to cancel
ALPHA < 9 39=2|102=0|434=2|58=Too late to cancel
feed    5 600 @ 190.00 last
after   2s
ALPHA > G 11=a3|&to
ALPHA < 9 39=2|102=1|58=Unknown order
log     bench: stale replace for a1
ALPHA > F 11=c2|41=a2
ALPHA < 8 150=4|41=a2|37=$id
feed    5 0 @ 190.00 last
counts  replaces+1 cancels+1 replace_rejects+2 cancel_rejects+1 late_cancels+2 stale_cancels+1

# It names the new order then.
story the_old_name_is_free_again
ALPHA rests 11=a1|&sell|37=$id
ALPHA > G 11=a2|&to|44=190.01
ALPHA < 8 150=5|11=a2|41=a1
feed    5 0 @ 190.00; 5 600 @ 190.01 last
ALPHA rests 11=a1|&sell|44=190.02|37=$id+1
ALPHA > F 11=c2|41=a2
ALPHA < 8 150=4|11=c2|41=a2|37=$id|44=190.01
feed    5 0 @ 190.01 last
ALPHA > F 11=c3|41=a1
ALPHA < 8 150=4|11=c3|41=a1|37=$id+1|44=190.02
feed    5 0 @ 190.02 last
counts  replaces+1 cancels+2

# Under the old name and as it was when it happened.
story a_fill_of_the_turn_is_told_behind_the_replace
BETA  > 0
ALPHA rests 11=a1|&sell|38=300|37=$id
BETA  > D 11=b1|&hit|38=100|40=2|44=190.00
+ ALPHA > G 11=a2|&to|38=250|!44
BETA  < 8 150=0
BETA  < 8 150=2|17=$exec
ALPHA < 8 34=3|150=5|11=a2|41=a1|37=$id|38=250|151=150|14=100|6=190|17=$exec+1
ALPHA < 8 34=4|150=1|39=1|11=a1|37=$id|38=300|32=100|31=190|151=200|14=100|17=$exec+2
feed    T 100 @ 190.00; 5 200 @ 190.00 last; 5 150 @ 190.00 last
event   new b1 oid $id+1 AAPL B 100 @ 190 cum 0 leaves 100 last 0 ""
event   fill b1 oid $id+1 AAPL B 100 @ 190 cum 100 leaves 0 last 100 ""
event   replace a2 oid $id AAPL S 250 @ 190 cum 100 leaves 150 last 0 "" ref a1
event   fill a1 oid $id AAPL S 300 @ 190 cum 100 leaves 200 last 100 ""
counts  orders+1 accepts+1 replaces+1 fills+2

story may_take_a_name_that_was_closed_a_moment_ago_and_keep_its_place
ALPHA rests 11=a1|&sell|37=$id
ALPHA rests 11=a0|&sell|44=191.00
ALPHA > F 11=c1|41=a0
+ ALPHA > G 11=a0|&to
+ ALPHA > G 11=a1|41=a0|55=AAPL|54=2|38=500|44=190.00
+ ALPHA > F 11=c2|41=a1
ALPHA < 8 150=4
ALPHA < 8 150=5|11=a0|41=a1|37=$id
ALPHA < 8 150=5|11=a1|41=a0|37=$id
ALPHA < 8 150=4|41=a1|37=$id
feed    5 0 @ 191.00 last; 5 600 @ 190.00 last; 5 500 @ 190.00 last; 5 0 @ 190.00 last
counts  cancels+2 replaces+2

story may_take_a_name_that_was_closed_a_moment_ago_and_lose_its_place
ALPHA rests 11=a1|&sell|37=$id
ALPHA rests 11=a0|&sell|44=191.00
ALPHA > F 11=c1|41=a0
+ ALPHA > G 11=a0|&to|38=2000
+ ALPHA > G 11=a1|41=a0|55=AAPL|54=2|38=500|44=190.00
+ ALPHA > F 11=c2|41=a1
ALPHA < 8 150=4
ALPHA < 8 150=5|11=a0|41=a1|37=$id
ALPHA < 8 150=5|11=a1|41=a0|37=$id
ALPHA < 8 150=4|41=a1|37=$id
feed    5 0 @ 191.00 last; 5 2000 @ 190.00 last; 5 500 @ 190.00 last; 5 0 @ 190.00 last
counts  cancels+2 replaces+2

story of_a_replaced_order_goes_on_under_one_order_id
ALPHA rests 11=a1|&sell|37=$id
ALPHA > G 11=a2|&to|38=900
ALPHA < 8 150=5|37=$id|11=a2|41=a1
feed    5 900 @ 190.00 last
ALPHA > G 11=a3|&to|41=a2|38=800
ALPHA < 8 150=5|37=$id|11=a3|41=a2
feed    5 800 @ 190.00 last
ALPHA rests 11=a1|&sell|38=100|37=$id+1
ALPHA > G 11=a4|&to|41=a3|38=800|44=190.01
ALPHA < 8 150=5|37=$id|11=a4|41=a3
feed    5 100 @ 190.00; 5 800 @ 190.01 last
ALPHA > G 11=a5|&to|41=a4|38=800|44=190.00
ALPHA < 8 150=5|37=$id|11=a5|41=a4
feed    5 900 @ 190.00; 5 0 @ 190.01 last
counts  replaces+4

# The cancel that came with the first name is not for the second, and the second brings none.
story never_schedules_a_cancel
script unsolicited_cancel_every=1
ALPHA > D 11=a1|&sell
+ ALPHA > G 11=a2|&to|38=2000
ALPHA < 8 150=0
ALPHA < 8 150=5
feed    5 1000 @ 190.00 last; 5 2000 @ 190.00 last
after   1s
counts  orders+1 accepts+1 replaces+1

story leaves_a_one_shot_cancel_for_the_next_order
ALPHA rests 11=a1|&sell
control unsolicited_cancel
ALPHA > G 11=a2|&to|38=2000
ALPHA < 8 150=5
feed    5 2000 @ 190.00 last
after   1s
ALPHA rests 11=a3|&sell
after   1s
ALPHA < 8 150=4|11=a3|41=a3
feed    5 2000 @ 190.00 last
log     bench: unsolicited cancel of a3 (exchange-initiated; the client must mark it cancelled)
counts  replaces+1 unsolicited_cancels+1

story of_a_buy_works_on_its_own_side
BETA  rests 11=b1|&sell|38=100|44=190.02
ALPHA rests 11=a1|&buy|38=300|44=190.00
ALPHA > G 11=a2|&to|54=1|38=300|44=190.02
ALPHA < 8 34=4|150=5|14=100|151=200|44=190.02
ALPHA < 8 34=3|150=1|32=100|31=190.02
BETA  < 8 150=2
feed    T 100 @ 190.02; 5 0 @ 190.02; 8 0 @ 190.00; 8 200 @ 190.02 last
counts  replaces+1 fills+2
