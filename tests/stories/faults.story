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

story what_is_pending_can_be_taken_back
control drop 3
control drop 0
control dup 3
control dup 0
control reorder 3
control reorder 0
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
feed    8 100 @ 100.00 last
counts  orders+1 accepts+1

story a_second_count_replaces_the_first
control drop 3
control drop 1
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq (packet $packet, 1 message(s))
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 200 @ 100.00 last
counts  orders+2 accepts+2 dropped+1

story a_drop_is_spent_on_a_packet_that_another_rule_drops
control drop_every 1
control drop 2
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq (packet $packet, 1 message(s))
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq+1 (packet $packet+1, 1 message(s))
control drop_every 0
ALPHA > D 11=a3|&buy
ALPHA < 8 150=0
feed    8 300 @ 100.00 last
counts  orders+3 accepts+3 dropped+2

story a_dropped_packet_leaves_the_duplicate_to_the_next
control drop
control dup
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq (packet $packet, 1 message(s))
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 200 @ 100.00 last; 8 200 @ 100.00 last
log     quorl fault: duplicated seq $seq+1
counts  orders+2 accepts+2 dropped+1 duplicated+1

story a_dropped_packet_leaves_the_delay_to_the_next
control drop
control reorder
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq (packet $packet, 1 message(s))
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
log     quorl fault: reordered seq $seq+1 (held behind the next packet)
ALPHA > D 11=a3|&buy
ALPHA < 8 150=0
feed    8 300 @ 100.00 last; 8 200 @ 100.00 last
counts  orders+3 accepts+3 dropped+1 reordered+1

# The first one is never sent.
story a_second_packet_held_back_takes_the_place_of_the_first
control reorder 2
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: reordered seq $seq (held behind the next packet)
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
log     quorl fault: reordered seq $seq+1 (held behind the next packet)
ALPHA > D 11=a3|&buy
ALPHA < 8 150=0
feed    8 300 @ 100.00 last; 8 200 @ 100.00 last
ALPHA > D 11=a4|&buy
ALPHA < 8 150=0
feed    8 400 @ 100.00 last
counts  orders+4 accepts+4 reordered+2

story a_packet_to_be_held_back_and_doubled_is_only_held_back
control dup
control reorder
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: reordered seq $seq (held behind the next packet)
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 200 @ 100.00 last; 8 100 @ 100.00 last
ALPHA > D 11=a3|&buy
ALPHA < 8 150=0
feed    8 300 @ 100.00 last
counts  orders+3 accepts+3 reordered+1

story a_packet_held_back_waits_behind_a_drop_and_a_duplicate
control reorder
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: reordered seq $seq (held behind the next packet)
control drop
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq+1 (packet $packet, 1 message(s))
control dup
ALPHA > D 11=a3|&buy
ALPHA < 8 150=0
feed    8 300 @ 100.00 last; 8 300 @ 100.00 last; 8 100 @ 100.00 last
log     quorl fault: duplicated seq $seq+2
ALPHA > D 11=a4|&buy
ALPHA < 8 150=0
feed    8 400 @ 100.00 last
counts  orders+4 accepts+4 dropped+1 duplicated+1 reordered+1
