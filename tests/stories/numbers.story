# The numbers of a client's messages, and messages that none is due for.

let order 55=AAPL|54=1|38=100|40=2|44=100|59=0|18=i

story rise_with_each_message_of_any_type
ALPHA > 0 34=2
ALPHA > Q 34=3
ALPHA < 3 34=2|45=3|373=11|58=Invalid MsgType|!372
ALPHA > 0 34=5
ALPHA < 2 34=3|7=4|16=4
log     bench: client ALPHA seq gap expected 4 got 5 (0) — ResendRequest sent
counts

# Only an exact Y drops it.
story that_are_low_act_uncounted_unless_they_mark_a_replay
each @seq
| 2 | 3 | 4 | 5
ALPHA > 0 34=@seq
end
ALPHA > 1 34=6|112=x
ALPHA < 0 112=x
ALPHA > D 34=1|11=a1|&order
ALPHA < 8 150=0|11=a1
feed    8 100 @ 100.00 last
counts  orders+1 accepts+1
each @type
| D | 1 | 5 | Q | F |
ALPHA > X 35=@type|34=2|43=Y|11=a2|&order
end
counts
each @flag
| N | y | YY |
ALPHA > 1 34=1|112=a|43=@flag
ALPHA < 0 112=a
end
ALPHA > D 34=0|43=N|11=a2|&order
ALPHA < 8 150=0|11=a2
feed    8 200 @ 100.00 last
ALPHA > D 34=6|43=|11=a3|&order
ALPHA < 8 150=0|11=a3
feed    8 300 @ 100.00 last
counts  orders+2 accepts+2
ALPHA > 0 34=7
ALPHA > 0 34=9
ALPHA < 2 7=8|16=8
log     bench: client ALPHA seq gap expected 8 got 9 (0) — ResendRequest sent

story that_are_due_or_high_act_even_in_a_replay
ALPHA > 1 34=2|43=Y|112=a
ALPHA < 0 34=2|112=a
ALPHA > 1 34=5|43=Y|112=b
ALPHA < 2 34=3|7=3|16=4
ALPHA < 0 34=4|112=b
log     bench: client ALPHA seq gap expected 3 got 5 (1) — ResendRequest sent
counts

story that_are_high_are_asked_for_and_act_at_once
ALPHA > D 34=7|11=a1|&order
ALPHA < 2 34=2|7=2|16=6
ALPHA < 8 34=3|150=0|11=a1
feed    8 100 @ 100.00 last
log     bench: client ALPHA seq gap expected 2 got 7 (D) — ResendRequest sent
ALPHA > 0 34=8
ALPHA > 0 34=11
ALPHA < 2 34=4|7=9|16=10
log     bench: client ALPHA seq gap expected 9 got 11 (0) — ResendRequest sent
ALPHA > 5 34=14
ALPHA < 2 34=5|7=12|16=13
ALPHA < 5 34=6
ALPHA closed
log     bench: client ALPHA seq gap expected 12 got 14 (5) — ResendRequest sent
log     bench: client ALPHA logged out (1 resting order(s) kept)
counts  orders+1 accepts+1

# 45 shows what a number was read as.
story that_are_missing_or_odd_count_as_0
each @number
| !34 | 34=abc | 34= | 34=99999999999999999999
ALPHA > 1 @number|112=a
ALPHA < 0 112=a
ALPHA > Q @number
ALPHA < 3 45=0|373=11|58=Invalid MsgType
end
ALPHA > 0 34=3
ALPHA < 2 7=2|16=2
log     bench: client ALPHA seq gap expected 2 got 3 (0) — ResendRequest sent
counts

# 4294967298 is 2.
story are_read_by_their_low_32_bits_and_wrap_behind_the_highest
ALPHA > 0 34=4294967298
ALPHA > 0 34=-1
ALPHA < 2 34=2|7=3|16=4294967294
log     bench: client ALPHA seq gap expected 3 got 4294967295 (0) — ResendRequest sent
ALPHA > 0 34=5
ALPHA < 2 34=3|7=0|16=4
log     bench: client ALPHA seq gap expected 0 got 5 (0) — ResendRequest sent
counts

# Bytes of a message whose text was changed behind its CheckSum.
story of_garbled_messages_are_missing
ALPHA >> 8=FIX.4.2|9=33|35=1|34=2|49=ALPHA|56=IEXG|112=b|10=196|
ALPHA > 0 34=3
ALPHA < 2 7=2|16=2
log     bench: client ALPHA seq gap expected 2 got 3 (0) — ResendRequest sent
counts
