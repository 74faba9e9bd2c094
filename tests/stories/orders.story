# What a NewOrderSingle brings. The values that its fields may have are in
# tests/market/new_order_test.cpp.

let buy    55=AAPL|54=1|38=100|40=2|44=190.00|59=0|18=i
let sell   55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i
let market 55=AAPL|54=1|38=100|40=1|18=i

# --- What is refused ---

story each_rung_of_the_ladder_in_its_own_words
let refused 37=NONE|20=0|150=8|39=8|32=0|31=0|151=0|14=0|6=0|!41|!30
ALPHA rests 11=live|&buy|37=$id
ALPHA > D &buy|11=|55=MSFT|38=0|54=9|18=x|40=9|44=0|59=9|47=X|114=Y
ALPHA < 8 &refused|11=|58=BrokerOption: invalid ClOrdID|103=0
event   reject  oid 0 MSFT S 0 @ 0 cum 0 leaves 0 last 0 "BrokerOption: invalid ClOrdID"
ALPHA > D &buy|11=live|55=MSFT|38=0|54=9|18=x|40=9|44=0|59=9|47=X|114=Y
ALPHA < 8 &refused|55=MSFT|58=UnknownSymbol|103=1
event   reject live oid 0 MSFT S 0 @ 0 cum 0 leaves 0 last 0 "UnknownSymbol"
ALPHA > D &buy|11=live|38=0|54=9|18=x|40=9|44=0|59=9|47=X|114=Y
ALPHA < 8 &refused|38=0|58=ExceededMaxSharesPerOrder|103=3
event   reject live oid 0 AAPL S 0 @ 0 cum 0 leaves 0 last 0 "ExceededMaxSharesPerOrder"
ALPHA > D &buy|11=live|54=9|18=x|40=9|44=0|59=9|47=X|114=Y
ALPHA < 8 &refused|54=9|58=BrokerOption: invalid Side|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "BrokerOption: invalid Side"
ALPHA > D &buy|11=live|54=5|18=x|40=9|44=0|59=9|47=X|114=Y
ALPHA < 8 &refused|54=5|58=MissingLocate|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "MissingLocate"
ALPHA > D &buy|11=live|54=5|18=x|40=9|44=0|59=9|47=X|114=N
ALPHA < 8 &refused|18=x|58=InvalidExecInst|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "InvalidExecInst"
ALPHA > D &buy|11=live|54=5|18=i|40=9|44=0|59=9|47=X|114=N
ALPHA < 8 &refused|40=9|58=InvalidExecInst|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "InvalidExecInst"
ALPHA > D &buy|11=live|54=5|18=i|40=2|44=0|59=9|47=X|114=N
ALPHA < 8 &refused|!44|58=InvalidPrice|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "InvalidPrice"
ALPHA > D &buy|11=live|54=5|18=i|40=2|44=190|59=9|47=X|114=N
ALPHA < 8 &refused|59=9|44=190|58=OrderInvalidInCurrentMarketSession|103=0
event   reject live oid 0 AAPL S 100 @ 190 cum 0 leaves 0 last 0 "OrderInvalidInCurrentMarketSession"
ALPHA > D &buy|11=live|54=5|18=i|40=1|44=190|59=9|47=X|114=N
ALPHA < 8 &refused|59=9|!44|58=InvalidTagCombinationForMarketOrder|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "InvalidTagCombinationForMarketOrder"
ALPHA > D &buy|11=live|54=5|18=i|40=1|44=190|59=0|47=X|114=N
ALPHA < 8 &refused|47=X|58=BrokerOption: invalid OrderCapacity|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "BrokerOption: invalid OrderCapacity"
ALPHA > D &buy|11=live|54=5|18=i|40=1|44=190|59=0|47=A|114=N
ALPHA < 8 &refused|47=A|58=BrokerOption: duplicate ClOrdID among live orders|103=0
event   reject live oid 0 AAPL S 100 @ 0 cum 0 leaves 0 last 0 "BrokerOption: duplicate ClOrdID among live orders"
counts
ALPHA > D &buy|11=fresh|54=5|18=i|40=2|44=190.01|59=0|47=A|114=N
ALPHA < 8 150=0|39=0|37=$id+1|54=5|47=A
feed    5 100 @ 190.01 last
event   new fresh oid $id+1 AAPL S 100 @ 190.01 cum 0 leaves 100 last 0 ""
counts  orders+1 accepts+1

# Two that come with hardly a field.
story a_refused_order_is_shown_as_far_as_it_was_read
ALPHA > D 11=a1|55=NONE
ALPHA < 8 37=NONE|11=a1|17=$exec|20=0|150=8|39=8|55=NONE|54= |38=0|18=i|40=2|47=P|59=0|!44|32=0|31=0|151=0|14=0|6=0|58=UnknownSymbol|103=1
ALPHA > D 11=a2|55=AAPL|54=1x|38=5e9|40=2y|44=inf|18=iz|59=0w|47=Av
ALPHA < 8 37=NONE|11=a2|17=$exec+1|20=0|150=8|39=8|55=AAPL|54=1|38=705032704|18=i|40=2|47=A|59=0|44=-922337203685477.625|32=0|31=0|151=0|14=0|6=0|58=ExceededMaxSharesPerOrder|103=3
counts

story a_name_of_a_live_order_is_a_duplicate
ALPHA rests 11=a1|&buy
ALPHA > D 11=a1|&buy|38=200
ALPHA < 8 150=8|37=NONE|103=0|58=BrokerOption: duplicate ClOrdID among live orders
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4|38=100
feed    8 0 @ 190.00 last
counts  cancels+1

story a_name_of_another_owner_does_not_collide
ALPHA rests 11=a1|&buy|37=$id
BETA  rests 11=a1|&buy|37=$id+1
BETA  > D 11=a1|&buy
BETA  < 8 150=8|58=BrokerOption: duplicate ClOrdID among live orders
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=4|37=$id
feed    8 100 @ 190.00 last
counts  cancels+1

# Cancelled at once, filled.
story a_name_may_be_used_again_as_soon_as_its_order_is_closed
ALPHA > D 11=a1|&buy|59=3
ALPHA < 8 150=0|37=$id
ALPHA < 8 150=4
ALPHA rests 11=a1|&buy|37=$id+1
BETA  > D 11=b1|&market|54=2
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=2|11=a1
feed    T 100 @ 190.00; 8 0 @ 190.00 last
ALPHA rests 11=a1|&buy|37=$id+3
counts  orders+2 accepts+2 cancels+1 fills+2

# --- What is accepted ---

story an_acknowledgement_shows_the_order_as_it_was_read
ALPHA > D 11=a1|1=ACCT|21=1|55=AAPL|54=2|38=300|40=2|44=190.50|59=0|18=i|47=A
ALPHA < 8 34=2|11=a1|20=0|150=0|39=0|55=AAPL|54=2|38=300|18=i|40=2|47=A|59=0|!41|44=190.5|32=0|31=0|151=300|14=0|6=0|!30|!375|!382|!851|!880|!9730|!58|!103|!1|!21
feed    5 300 @ 190.50 last
counts  orders+1 accepts+1

story an_order_that_does_not_cross_rests_behind_those_at_its_price
BETA  rests 11=b1|&sell|38=300|44=190.01
BETA  rests 11=b2|&buy|38=200|37=$id
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0|37=$id+1|151=100
feed    8 300 @ 190.00 last
GAMMA > D 11=g1|&market|54=2|38=201
GAMMA < 8 150=0
GAMMA < 8 150=1|32=200
GAMMA < 8 150=2|32=1
BETA  < 8 150=2|11=b2
ALPHA < 8 150=1|11=a1|32=1
feed    T 200 @ 190.00; T 1 @ 190.00; 8 99 @ 190.00 last
counts  orders+2 accepts+2 fills+4

story only_accepted_orders_take_an_order_id
ALPHA rests 11=a1|&buy|37=$id
ALPHA > D 11=a2|&buy|38=0
ALPHA < 8 150=8|37=NONE
control reject
ALPHA > D 11=a3|&buy
ALPHA < 8 150=8|37=NONE|58=bench:scripted_reject
ALPHA > D 11=a4|&buy|59=3
ALPHA < 8 150=0|37=$id+1
ALPHA < 8 150=4|37=$id+1
ALPHA > D 11=a5|&buy|59=4
ALPHA < 8 150=0|37=$id+2
ALPHA < 8 150=4|37=$id+2
ALPHA rests 11=a6|&buy|37=$id+3
counts  orders+3 accepts+2 rejects+1 cancels+2

story is_an_order_event
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0|37=$id
feed    8 100 @ 190.00 last
event   new a1 oid $id AAPL B 100 @ 190 cum 0 leaves 100 last 0 ""
BETA  > D 11=b1|&sell|59=3|38=150
BETA  < 8 150=0|37=$id+1
BETA  < 8 150=1|14=100|151=50
BETA  < 8 150=4|14=100|151=0|58=UnmatchedIOC|!41
ALPHA < 8 150=2|37=$id
feed    T 100 @ 190.00; 8 0 @ 190.00 last
event   new b1 oid $id+1 AAPL S 150 @ 190 cum 0 leaves 150 last 0 ""
event   fill b1 oid $id+1 AAPL S 150 @ 190 cum 100 leaves 50 last 100 ""
event   cancel b1 oid $id+1 AAPL S 150 @ 190 cum 100 leaves 0 last 0 "UnmatchedIOC"
event   fill a1 oid $id AAPL B 100 @ 190 cum 100 leaves 0 last 100 ""
counts  orders+2 accepts+2 fills+2 cancels+1

story short_sales_rest_among_the_sells_and_keep_their_side
ALPHA rests 11=a5|&sell|54=5|114=N
ALPHA rests 11=a6|&sell|54=6|114=N
BETA  > D 11=b1|&market|38=200
BETA  < 8 150=0
BETA  < 8 150=1
BETA  < 8 150=2
ALPHA < 8 150=2|11=a5|54=5|32=100|31=190
ALPHA < 8 150=2|11=a6|54=6|32=100|31=190
feed    T 100 @ 190.00; T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+4

story a_pause_does_not_stop_the_matching
BETA  rests 11=b1|&sell|38=300
control pause
log     bench: paused at seq $seq
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
ALPHA < 8 150=2|32=100
BETA  < 8 150=1
feed    T 100 @ 190.00; 5 200 @ 190.00 last
counts  orders+1 accepts+1 fills+2

# Each order is an event of its own, however many a turn finds.
story two_clients_in_one_turn
ALPHA > D 11=a1|&buy
+ BETA > D 11=b1|&buy
ALPHA < 8 150=0
BETA  < 8 150=0
feed    8 100 @ 190.00 last; 8 200 @ 190.00 last
counts  orders+2 accepts+2

story of_two_symbols
options --symbols AAPL:190.00,MSFT:410.00
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0|55=AAPL
feed    AAPL 8 100 @ 190.00 last
ALPHA > D 11=a2|&buy|55=MSFT
ALPHA < 8 150=0|55=MSFT
feed    MSFT 8 100 @ 190.00 last
BETA  > D 11=b1|&market|54=2|55=MSFT
BETA  < 8 150=0
BETA  < 8 150=2|880=$trade
ALPHA < 8 150=2|11=a2
feed    MSFT T 100 @ 190.00 id $trade; MSFT 8 0 @ 190.00 last
BETA  > D 11=b2|&market|54=2
BETA  < 8 150=0
BETA  < 8 150=2|880=$trade+1
ALPHA < 8 150=2|11=a1
feed    AAPL T 100 @ 190.00 id $trade+1; AAPL 8 0 @ 190.00 last
counts  orders+4 accepts+4 fills+4

story meets_the_opening_book
book    opening
ALPHA > D 11=a1|&buy|44=189.50
ALPHA < 8 150=0
feed    8 100 @ 189.50 last
counts  orders+1 accepts+1

# --- What trades ---

story market_buy_sweeps_two_levels_best_price_first
BETA  rests 11=b2|&sell|38=300|44=190.02|37=$second
BETA  rests 11=b1|&sell|38=300|44=190.01|37=$first
ALPHA > D 11=a1|&market|38=500
ALPHA < 8 34=2|17=$exec|37=$id|11=a1|20=0|150=0|39=0|55=AAPL|54=1|38=500|18=i|40=1|47=P|59=0|!44|32=0|31=0|151=500|14=0|6=0
ALPHA < 8 34=3|17=$exec+1|37=$id|11=a1|20=0|150=1|39=1|55=AAPL|54=1|38=500|18=i|40=1|47=P|59=0|!41|!44|32=300|31=190.01|151=200|14=300|6=190.01|30=IEXG|375=IEXG|382=1|851=2|880=$trade|9730=TL
ALPHA < 8 34=4|17=$exec+2|37=$id|11=a1|20=0|150=2|39=2|55=AAPL|54=1|38=500|18=i|40=1|47=P|59=0|!41|!44|32=200|31=190.02|151=0|14=500|6=190.014|30=IEXG|375=IEXG|382=1|851=2|880=$trade+1|9730=TL
BETA  < 8 17=$exec+3|37=$first|11=b1|20=0|150=2|39=2|55=AAPL|54=2|38=300|18=i|40=2|47=P|59=0|!41|44=190.01|32=300|31=190.01|151=0|14=300|6=190.01|851=1|880=$trade|9730=ML
BETA  < 8 17=$exec+4|37=$second|11=b2|20=0|150=1|39=1|55=AAPL|54=2|38=300|18=i|40=2|47=P|59=0|!41|44=190.02|32=200|31=190.02|151=100|14=200|6=190.02|851=1|880=$trade+1|9730=ML
feed    T 300 @ 190.01 id $trade; T 200 @ 190.02 id $trade+1; 5 0 @ 190.01; 5 100 @ 190.02 last
counts  orders+1 accepts+1 fills+4

story market_sell_sweeps_the_bids_best_price_first
BETA  rests 11=b2|&buy|38=300|44=189.98
BETA  rests 11=b1|&buy|38=300|44=189.99
ALPHA > D 11=a1|&market|54=2|38=500
ALPHA < 8 150=0
ALPHA < 8 150=1|32=300|31=189.99|9730=TL
ALPHA < 8 150=2|32=200|31=189.98
BETA  < 8 150=2|11=b1
BETA  < 8 150=1|11=b2
feed    T 300 @ 189.99; T 200 @ 189.98; 8 100 @ 189.98; 8 0 @ 189.99 last
counts  orders+1 accepts+1 fills+4

story orders_of_one_price_trade_in_the_order_of_their_arrival
BETA  rests 11=b1|&buy
GAMMA rests 11=g1|&buy|38=99
BETA  rests 11=b2|&buy
ALPHA > D 11=a1|&sell|38=200|44=189.00
ALPHA < 8 150=0|151=200
ALPHA < 8 150=1|32=100|31=190|151=100|14=100|6=190
ALPHA < 8 150=1|32=99|31=190|151=1|14=199|6=190
ALPHA < 8 150=2|32=1|31=190|151=0|14=200|6=190
BETA  < 8 150=2|11=b1|32=100
GAMMA < 8 150=2|11=g1|32=99
BETA  < 8 150=1|11=b2|32=1|151=99
feed    T 100 @ 190.00; T 99 @ 190.00; T 1 @ 190.00; 8 99 @ 190.00 last
counts  orders+1 accepts+1 fills+6

# What is left of a1 is met by the next, and what stands beyond its limit is not.
story a_limit_buy_trades_up_to_its_limit_and_rests_there
BETA  rests 11=b1|&sell|44=190.01
BETA  rests 11=b2|&sell|44=190.02
BETA  rests 11=b3|&sell|44=190.03
ALPHA > D 11=a1|&buy|38=500|44=190.02
ALPHA < 8 150=0|151=500|44=190.02
ALPHA < 8 150=1|39=1|32=100|31=190.01|151=400|14=100
ALPHA < 8 150=1|39=1|32=100|31=190.02|151=300|14=200|6=190.015
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
feed    T 100 @ 190.01; T 100 @ 190.02; 5 0 @ 190.01; 5 0 @ 190.02; 8 300 @ 190.02 last
BETA  > D 11=b4|&market|54=2|38=300
BETA  < 8 150=0
BETA  < 8 150=2|31=190.02
ALPHA < 8 150=2|32=300|14=500
feed    T 300 @ 190.02; 8 0 @ 190.02 last
BETA  > F 11=c1|41=b3
BETA  < 8 150=4|14=0
feed    5 0 @ 190.03 last
counts  orders+2 accepts+2 fills+6 cancels+1

story a_limit_sell_trades_down_to_its_limit_and_rests_there
BETA  rests 11=b1|&buy|44=190.00
BETA  rests 11=b2|&buy|44=189.99
BETA  rests 11=b3|&buy|44=189.98
ALPHA > D 11=a1|&sell|38=250|44=189.99
ALPHA < 8 150=0
ALPHA < 8 150=1|32=100|31=190|151=150
ALPHA < 8 150=1|32=100|31=189.99|151=50
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
feed    T 100 @ 190.00; T 100 @ 189.99; 5 50 @ 189.99; 8 0 @ 189.99; 8 0 @ 190.00 last
counts  orders+1 accepts+1 fills+4

story a_filled_order_is_closed_and_not_live
BETA  rests 11=b1|&sell
ALPHA > D 11=a1|&buy
+ ALPHA > F 11=c1|41=a1
ALPHA < 8 150=0
ALPHA < 8 150=2|39=2|151=0|14=100
ALPHA < 9 39=2|102=0|58=Too late to cancel
BETA  < 8 150=2
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2 cancel_rejects+1 late_cancels+1

story trades_with_an_order_of_its_own_owner
ALPHA rests 11=s1|&sell|37=$id
ALPHA > D 11=b1|&buy
ALPHA < 8 150=0|37=$id+1
ALPHA < 8 150=2|11=b1|54=1|851=2|880=$trade
ALPHA < 8 150=2|11=s1|54=2|851=1|880=$trade
feed    T 100 @ 190.00 id $trade; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+2

story an_event_that_leaves_the_book_as_shown_shows_nothing
BETA  rests 11=b1|&sell
BETA  rests 11=b2|&sell|38=300|44=190.01
ALPHA > D 11=a1|&buy|59=3
ALPHA < 8 150=0
ALPHA < 8 150=2
BETA  < 8 150=2
feed    T 100 @ 190.00; 5 0 @ 190.00 last
ALPHA > D 11=a2|&buy|59=3
ALPHA < 8 150=0
ALPHA < 8 150=4
counts  orders+2 accepts+2 fills+2 cancels+1

# The aggressor hears first, and both name one trade.
story between_two_clients
ALPHA rests 11=a1|&sell
ALPHA rests 11=a2|&sell
BETA  > D 11=b1|&market|38=150
BETA  < 8 150=0|17=$exec
BETA  < 8 150=1|17=$exec+1|880=$trade|851=2|9730=TL
BETA  < 8 150=2|17=$exec+2|880=$trade+1
ALPHA < 8 150=2|17=$exec+3|11=a1|880=$trade|851=1|9730=ML
ALPHA < 8 150=1|17=$exec+4|11=a2|880=$trade+1|151=50
feed    T 100 @ 190.00 id $trade; T 50 @ 190.00 id $trade+1; 5 50 @ 190.00 last
counts  orders+1 accepts+1 fills+4

story a_resting_order_is_told_of_each_fill_with_its_own_trade
ALPHA rests 11=a1|&sell|38=300|37=$id
BETA  > D 11=b1|&market
+ BETA > D 11=b2|&market|38=150
+ BETA > D 11=b3|&market|38=50
BETA  < 8 150=0
BETA  < 8 150=2|880=$trade
BETA  < 8 150=0
BETA  < 8 150=2|880=$trade+1
BETA  < 8 150=0
BETA  < 8 150=2|880=$trade+2
ALPHA < 8 34=3|37=$id|11=a1|!41|150=1|39=1|32=100|31=190|151=200|14=100|6=190|30=IEXG|375=IEXG|382=1|851=1|880=$trade|9730=ML|!58|!103
ALPHA < 8 34=4|150=1|39=1|32=150|151=50|14=250|880=$trade+1
ALPHA < 8 34=5|150=2|39=2|32=50|151=0|14=300|6=190|880=$trade+2
feed    T 100 @ 190.00; 5 200 @ 190.00 last; T 150 @ 190.00; 5 50 @ 190.00 last; T 50 @ 190.00; 5 0 @ 190.00 last
counts  orders+3 accepts+3 fills+6

story a_part_filled_order_keeps_its_place
ALPHA rests 11=a1|&sell|38=300
GAMMA rests 11=g1|&sell
BETA  > D 11=b1|&market|38=299
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 150=1|14=299
feed    T 299 @ 190.00; 5 101 @ 190.00 last
BETA  > D 11=b2|&market|38=2
BETA  < 8 150=0
BETA  < 8 150=1|32=1
BETA  < 8 150=2|32=1
ALPHA < 8 150=2|14=300
GAMMA < 8 150=1|14=1
feed    T 1 @ 190.00; T 1 @ 190.00; 5 99 @ 190.00 last
counts  orders+2 accepts+2 fills+6

# --- What may not rest ---

story a_market_order_that_meets_nothing_is_acknowledged_and_cancelled
ALPHA > D 11=a1|&market|59=0
ALPHA < 8 34=2|150=0|39=0|151=100|14=0|37=$id|40=1|59=0|!44
ALPHA < 8 34=3|150=4|39=4|37=$id|11=a1|!41|151=0|14=0|6=0|32=0|31=0|58=UnmatchedIOC|!103
ALPHA > D 11=a1|&market|59=3
ALPHA < 8 150=0|39=0|151=100|14=0|37=$id+1|59=3
ALPHA < 8 150=4|39=4|37=$id+1|11=a1|!41|151=0|14=0|58=UnmatchedIOC|!103
ALPHA > D 11=a1|&market|59=4|44=190
+ ALPHA > F 11=c1|41=a1
ALPHA < 8 150=0|39=0|151=100|14=0|37=$id+2|59=4|!44
ALPHA < 8 150=4|39=4|37=$id+2|11=a1|!41|151=0|14=0|58=UnmatchedIOC|!103
ALPHA < 9 39=2|58=Too late to cancel
counts  orders+3 accepts+3 cancels+3 late_cancels+1 cancel_rejects+1

story a_market_order_for_the_day_does_not_rest_its_remainder
BETA  rests 11=b1|&sell|38=300|44=190.01
ALPHA > D 11=a1|&market|38=500|59=0
ALPHA < 8 150=0
ALPHA < 8 150=1|32=300|151=200
ALPHA < 8 150=4|39=4|151=0|14=300|6=190.01|58=UnmatchedIOC
BETA  < 8 150=2
feed    T 300 @ 190.01; 5 0 @ 190.01 last
counts  orders+1 accepts+1 fills+2 cancels+1

story an_immediate_order_takes_what_its_limit_reaches_and_the_rest_is_cancelled
BETA  rests 11=b1|&sell|38=300|44=190.01
BETA  rests 11=b2|&sell|38=300|44=190.02
ALPHA > D 11=a1|&buy|38=500|44=190.01|59=3
ALPHA < 8 150=0
ALPHA < 8 150=1|32=300|31=190.01|151=200
ALPHA < 8 11=a1|20=0|150=4|39=4|55=AAPL|54=1|38=500|18=i|40=2|47=P|59=3|!41|44=190.01|32=0|31=0|151=0|14=300|6=190.01|58=UnmatchedIOC
BETA  < 8 150=2|11=b1
feed    T 300 @ 190.01; 5 0 @ 190.01 last
ALPHA > D 11=a2|&buy|38=100|44=190.02|59=3
ALPHA < 8 150=0
ALPHA < 8 150=2
BETA  < 8 150=1|11=b2
feed    T 100 @ 190.02; 5 200 @ 190.02 last
counts  orders+2 accepts+2 fills+4 cancels+1

story a_fill_or_kill_that_the_book_can_fill_trades_in_full
BETA  rests 11=b1|&sell|38=200|44=190.01
BETA  rests 11=b2|&sell|38=100|44=190.02
BETA  rests 11=b3|&sell|38=200|44=190.02
ALPHA > D 11=a1|&buy|38=500|44=190.02|59=4
ALPHA < 8 150=0
ALPHA < 8 150=1|32=200|31=190.01
ALPHA < 8 150=1|32=100|31=190.02
ALPHA < 8 150=2|32=200|31=190.02|151=0|14=500
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
BETA  < 8 150=2|11=b3
feed    T 200 @ 190.01; T 100 @ 190.02; T 200 @ 190.02; 5 0 @ 190.01; 5 0 @ 190.02 last
counts  orders+1 accepts+1 fills+6

# Limit and market.
story a_fill_or_kill_one_share_short_trades_nothing
BETA  rests 11=b1|&sell|38=200|44=190.01
BETA  rests 11=b2|&sell|38=299|44=190.02
BETA  rests 11=b3|&sell|38=900|44=250.00
ALPHA > D 11=a1|&buy|38=500|44=190.02|59=4
+ ALPHA > F 11=c1|41=a1
ALPHA < 8 150=0|39=0|151=500
ALPHA < 8 150=4|39=4|151=0|14=0|58=UnmatchedIOC
ALPHA < 9 58=Too late to cancel|39=2|102=0
ALPHA > D 11=a2|&market|38=1400|59=4
ALPHA < 8 150=0
ALPHA < 8 150=4|14=0|58=UnmatchedIOC
counts  orders+2 accepts+2 cancels+2 late_cancels+1 cancel_rejects+1
ALPHA > D 11=a3|&market|38=1399|59=4
ALPHA < 8 150=0
ALPHA < 8 150=1|32=200
ALPHA < 8 150=1|32=299
ALPHA < 8 150=2|32=900|31=250
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
BETA  < 8 150=2|11=b3
feed    T 200 @ 190.01; T 299 @ 190.02; T 900 @ 250.00; 5 0 @ 190.01; 5 0 @ 190.02; 5 0 @ 250.00 last
counts  orders+1 accepts+1 fills+6

story a_selling_fill_or_kill_counts_the_bids_down_to_its_limit
BETA  rests 11=b1|&buy|38=200|44=190.00
BETA  rests 11=b2|&buy|38=100|44=189.99
BETA  rests 11=b3|&buy|38=900|44=189.98
ALPHA > D 11=a1|&sell|38=301|44=189.99|59=4
ALPHA < 8 150=0
ALPHA < 8 150=4|14=0
ALPHA > D 11=a2|&sell|38=300|44=189.99|59=4
ALPHA < 8 150=0
ALPHA < 8 150=1|32=200
ALPHA < 8 150=2|14=300
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
feed    T 200 @ 190.00; T 100 @ 189.99; 8 0 @ 189.99; 8 0 @ 190.00 last
counts  orders+2 accepts+2 fills+4 cancels+1

story a_fill_or_kill_counts_the_orders_of_its_own_owner
ALPHA rests 11=s1|&sell|38=200
BETA  rests 11=b1|&sell|44=190.01
ALPHA > D 11=a1|&buy|44=190.01|59=4|38=300
ALPHA < 8 150=0|11=a1
ALPHA < 8 150=1|11=a1|32=200|31=190
ALPHA < 8 150=2|11=a1|32=100|31=190.01
ALPHA < 8 150=2|11=s1|32=200|31=190
BETA  < 8 150=2|11=b1
feed    T 200 @ 190.00; T 100 @ 190.01; 5 0 @ 190.00; 5 0 @ 190.01 last
ALPHA rests 11=s2|&sell|38=200
BETA  rests 11=b2|&sell|44=190.01
ALPHA > D 11=a2|&market|59=4|38=300
ALPHA < 8 150=0|11=a2
ALPHA < 8 150=1|11=a2|32=200|31=190
ALPHA < 8 150=2|11=a2|32=100|31=190.01
ALPHA < 8 150=2|11=s2|32=200|31=190
BETA  < 8 150=2|11=b2
feed    T 200 @ 190.00; T 100 @ 190.01; 5 0 @ 190.00; 5 0 @ 190.01 last
counts  orders+2 accepts+2 fills+8

# A level, an order and a part of one are gone.
story a_fill_or_kill_counts_only_what_still_rests
BETA  rests 11=b1|&sell|38=30|44=189.00
BETA  rests 11=b2|&sell|38=50
BETA  rests 11=b3|&sell|38=120
GAMMA > D 11=g1|&market
GAMMA < 8 150=0
GAMMA < 8 150=1|32=30
GAMMA < 8 150=1|32=50
GAMMA < 8 150=2|32=20
BETA  < 8 150=2|11=b1
BETA  < 8 150=2|11=b2
BETA  < 8 150=1|11=b3
feed    T 30 @ 189.00; T 50 @ 190.00; T 20 @ 190.00; 5 0 @ 189.00; 5 100 @ 190.00 last
ALPHA > D 11=a1|&buy|59=4|38=101
ALPHA < 8 150=0
ALPHA < 8 150=4|14=0
ALPHA > D 11=a2|&buy|59=4
ALPHA < 8 150=0
ALPHA < 8 150=2|32=100
BETA  < 8 150=2|11=b3
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+3 accepts+3 fills+8 cancels+1

# --- Whose reports ---

# The last connection to log on is told; the numbers are those of their common stream.
story the_last_logged_on_connection_of_an_owner_is_told
ALPHA   > 0
ALPHA#2 > 0
GAMMA   > 0
ALPHA#3 disconnects
log     bench: client ALPHA disconnected (0 resting order(s) kept)
ALPHA   > D 11=a1|&sell
ALPHA   < 8 34=4|150=0
feed    5 100 @ 190.00 last
GAMMA   > D 11=g1|&market
GAMMA   < 8 150=0
GAMMA   < 8 150=2
ALPHA#2 < 8 34=5|150=2|56=ALPHA
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+2 accepts+2 fills+2

# In the order of the fills, E by E, though one of the owners has left.
story reports_of_present_and_absent_owners_are_composed_in_one_order
GONE  rests 11=g1|&sell
ALPHA rests 11=a1|&sell
GONE  disconnects
log     bench: client GONE disconnected (1 resting order(s) kept)
BETA  > D 11=b1|&market|38=200
BETA  < 8 150=0|17=$exec
BETA  < 8 150=1
BETA  < 8 150=2|17=$exec+2
ALPHA < 8 150=2|17=$exec+4
feed    T 100 @ 190.00; T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 fills+4

story fills_of_an_absent_owner_wait_on_its_stream
ALPHA rests 11=a1|&sell|38=300|37=$id
ALPHA > 5
ALPHA < 5 34=3
ALPHA closed
log     bench: client ALPHA logged out (1 resting order(s) kept)
BETA  > D 11=b1|&market
BETA  < 8 150=0
BETA  < 8 150=2
feed    T 100 @ 190.00; 5 200 @ 190.00 last
event   new b1 oid $id+1 AAPL B 100 @ 0 cum 0 leaves 100 last 0 ""
event   fill b1 oid $id+1 AAPL B 100 @ 0 cum 100 leaves 0 last 100 ""
event   fill a1 oid $id AAPL S 300 @ 190 cum 100 leaves 200 last 100 ""
BETA  > D 11=b2|&market
BETA  < 8 150=0
BETA  < 8 150=2
feed    T 100 @ 190.00; 5 100 @ 190.00 last
event   new b2 oid $id+2 AAPL B 100 @ 0 cum 0 leaves 100 last 0 ""
event   fill b2 oid $id+2 AAPL B 100 @ 0 cum 100 leaves 0 last 100 ""
event   fill a1 oid $id AAPL S 300 @ 190 cum 200 leaves 100 last 100 ""
counts  orders+2 accepts+2 fills+4
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=6
log     bench: logon ALPHA 34=4 141=N (stream expected 4, next out 6)
BETA  > D 11=b3|&market
BETA  < 8 150=0
BETA  < 8 150=2
ALPHA < 8 34=7|150=2|11=a1|151=0|14=300
feed    T 100 @ 190.00; 5 0 @ 190.00 last
event   new b3 oid $id+3 AAPL B 100 @ 0 cum 0 leaves 100 last 0 ""
event   fill b3 oid $id+3 AAPL B 100 @ 0 cum 100 leaves 0 last 100 ""
event   fill a1 oid $id AAPL S 300 @ 190 cum 300 leaves 0 last 100 ""
counts  orders+1 accepts+1 fills+2 logons+1
