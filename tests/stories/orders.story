# What a NewOrderSingle brings.

let buy  55=AAPL|54=1|38=100|40=2|44=190.00|59=0|18=i
let sell 55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i

# Two levels, best price first, and the feed ahead of the reports' owners.
story market_buy_sweeps_two_levels
BETA  > D 11=b1|&sell|38=300|44=190.01
BETA  < 8 150=0|11=b1|37=$first
feed    5 300 @ 190.01 last
BETA  > D 11=b2|&sell|38=300|44=190.02
BETA  < 8 150=0|11=b2|37=$second
feed    5 300 @ 190.02 last
ALPHA > D 11=a1|55=AAPL|54=1|38=500|40=1|18=i
ALPHA < 8 150=0|39=0|151=500|14=0|!44
ALPHA < 8 150=1|39=1|32=300|31=190.01|151=200|14=300|851=2|880=$trade|17=$exec
ALPHA < 8 150=2|39=2|32=200|31=190.02|151=0|14=500|6=190.014|851=2|880=$trade+1|17=$exec+1
BETA  < 8 150=2|39=2|37=$first|32=300|31=190.01|851=1|880=$trade|17=$exec+2
BETA  < 8 150=1|39=1|37=$second|32=200|31=190.02|151=100|851=1|880=$trade+1|17=$exec+3
feed    T 300 @ 190.01 id $trade; T 200 @ 190.02 id $trade+1
feed    5 0 @ 190.01; 5 100 @ 190.02 last
counts  orders+3 accepts+3 fills+4

# The feed is split by symbol.
story of_two_symbols
options --symbols AAPL:190.00,MSFT:410.00
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0|55=AAPL
feed    AAPL 8 100 @ 190.00 last
ALPHA > D 11=a2|&buy|55=MSFT
ALPHA < 8 150=0|55=MSFT
feed    MSFT 8 100 @ 190.00 last
ALPHA > D 11=a3|&buy|55=IBM
ALPHA < 8 150=8|39=8|37=NONE|11=a3|58=UnknownSymbol|103=1
counts  orders+2 accepts+2

# The books as the opening leaves them.
story meets_the_opening_book
book    opening
ALPHA > D 11=a1|&buy|44=189.50
ALPHA < 8 150=0
feed    8 100 @ 189.50 last
counts  orders+1 accepts+1

# The events of the file in the order of the messages.
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

# Each order is an event of its own, however many a turn finds.
story two_clients_in_one_turn
ALPHA > D 11=a1|&buy|44=100.00
+ BETA > D 11=b1|&buy|44=100.00
ALPHA < 8 150=0
BETA  < 8 150=0
feed    8 100 @ 100.00 last; 8 200 @ 100.00 last
counts  orders+2 accepts+2
