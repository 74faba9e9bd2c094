# What a client missed while it was away.

let buy  55=AAPL|54=1|38=300|40=2|44=190.00|59=0|18=i
let sell 55=AAPL|54=2|38=100|40=2|44=190.00|59=3|18=i

story a_fill_while_away_is_sent_again
ALPHA > D 11=a1|&buy
ALPHA < 8 34=2|150=0|37=$id
feed    8 300 @ 190.00 last
ALPHA resets
log     bench: client ALPHA disconnected (1 resting order(s) kept)
BETA  > D 11=b1|&sell
BETA  < 8 150=0
BETA  < 8 150=2|880=$trade
feed    T 100 @ 190.00 id $trade; 8 200 @ 190.00 last
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=4
log     bench: logon ALPHA 34=3 141=N (stream expected 3, next out 4)
ALPHA > 2 7=2|16=0
log     bench: ResendRequest from ALPHA 7=2 16=0 -> serving 2..4
ALPHA < 8 34=2|43=Y|150=0|37=$id
ALPHA < 8 34=3|43=Y|150=1|37=$id|32=100|151=200|880=$trade
ALPHA < 4 34=4|43=Y|123=Y|36=5
log     bench: resend done: replayed 2 application message(s), 1 GapFill(s)
counts  orders+2 accepts+2 fills+2 logons+1 resend_requests+1 replays+1 replayed+2

story a_reset_of_the_numbers_forgets
ALPHA > D 11=a1|&buy
ALPHA < 8 34=2|150=0
feed    8 300 @ 190.00 last
ALPHA disconnects
log     bench: client ALPHA disconnected (1 resting order(s) kept)
ALPHA connects
ALPHA > A 98=0|108=30|141=Y
ALPHA < A 34=1|141=Y
log     bench: logon ALPHA 34=1 141=Y (stream expected 1, next out 1)
ALPHA > 2 7=1|16=0
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..1
ALPHA < 4 34=1|43=Y|36=2
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  orders+1 accepts+1 logons+1 resend_requests+1
