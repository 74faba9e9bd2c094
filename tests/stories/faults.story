# What the feed's faults do to its packets.

let buy 55=AAPL|54=1|38=100|40=2|44=100.00|59=0|18=i

story a_packet_is_dropped
control drop
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq (packet $packet, 1 message(s))
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 200 @ 100.00 last
counts  orders+2 accepts+2 dropped+1

story a_packet_comes_twice
control dup
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
feed    8 100 @ 100.00 last; 8 100 @ 100.00 last
log     quorl fault: duplicated seq $seq
counts  orders+1 accepts+1 duplicated+1

story a_packet_is_late
control reorder
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: reordered seq $seq (held behind the next packet)
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 200 @ 100.00 last; 8 100 @ 100.00 last
counts  orders+2 accepts+2 reordered+1
