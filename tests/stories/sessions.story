# Logon, Logout and the numbers between them.

let order 55=AAPL|54=1|38=100|40=2|44=100|18=i

story logon_and_logout
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=1|98=0|108=30|!141
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)
ALPHA > 1 112=are you there
ALPHA < 0 34=2|112=are you there
ALPHA > 1
ALPHA < 0 34=3|!112
ALPHA > 1 112=
ALPHA < 0 34=4|!112
ALPHA > 0 112=x
ALPHA > 5 58=bye
ALPHA < 5 34=5|!58
ALPHA closed
log     bench: client ALPHA logged out (0 resting order(s) kept)
counts  logons+1

# Bytes that are no message, and a message with a wrong CheckSum: not a word.
story garbage_is_skipped
ALPHA >> nonsense|
ALPHA > 1 10=999|112=x
ALPHA > 1 112=y
ALPHA < 2 34=2|7=2|16=2
ALPHA < 0 34=3|112=y
log     bench: client ALPHA seq gap expected 2 got 3 (1) — ResendRequest sent
counts

story a_number_too_high_is_asked_for_and_acts_all_the_same
ALPHA > 1 34=5|112=x
ALPHA < 2 34=2|7=2|16=4
ALPHA < 0 34=3|112=x
log     bench: client ALPHA seq gap expected 2 got 5 (1) — ResendRequest sent
counts

story heartbeats_come_when_nothing_else_does
inside only: 108 seconds of silence to the millisecond
ALPHA connects
ALPHA > A 98=0|108=1
ALPHA < A 108=1
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)
after   999ms
after   1ms
ALPHA < 0 !112
after   1499ms
ALPHA < 0 !112
after   1ms
ALPHA closed
log     [quorl] client ALPHA timed out (no message for 2 s; resting orders kept)
counts  logons+1

# Two connections of one name share a stream.
story two_connections_of_one_name
ALPHA   > 1 112=x
ALPHA   < 0 34=3|112=x
ALPHA#2 > 1 112=y
ALPHA#2 < 0 34=4|112=y
ALPHA#2 disconnects
log     bench: client ALPHA disconnected (0 resting order(s) kept)
counts

# Each once more than the two that have logged on.
story two_connections_of_one_name_log_on_one_behind_the_other
ALPHA   connects
ALPHA   > A 98=0|108=30
ALPHA   < A 34=1
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)
ALPHA#2 connects
ALPHA#2 > A 98=0|108=30
ALPHA#2 < A 34=2
log     bench: logon ALPHA 34=2 141=N (stream expected 2, next out 2)
counts  logons+2

# What the later says is told behind what the earlier says, or 3 would be missing.
story connections_are_served_in_the_order_of_their_acceptance
ALPHA   > 0 34=3
ALPHA#2 > 0 34=4
ALPHA#2 > 1 34=6|112=second
+ ALPHA > 1 34=5|112=first
ALPHA   < 0 34=3|112=first
ALPHA#2 < 0 34=4|112=second
counts

# The one that was accepted last and is still there, whoever has sent the order.
story later_of_two_connections_hears_of_fills_from_elsewhere
let sell 55=AAPL|54=2|38=100|40=2|44=190.00|18=i
let buy  55=AAPL|54=1|38=100|40=2|44=190.00|18=i
ALPHA   > 0 34=3
ALPHA#2 > 0 34=4
ALPHA   > D 34=5|11=a1|&sell
ALPHA   < 8 34=3|150=0|11=a1
feed    5 100 @ 190.00 last
BETA    > D 11=b1|&buy
BETA    < 8 150=0
BETA    < 8 150=2
ALPHA#2 < 8 34=4|150=2|11=a1|851=1|9730=ML
feed    T 100 @ 190.00; 5 0 @ 190.00 last
ALPHA#2 disconnects
log     bench: client ALPHA disconnected (0 resting order(s) kept)
ALPHA   > D 34=6|11=a2|&sell
ALPHA   < 8 34=5|150=0|11=a2
feed    5 100 @ 190.00 last
BETA    > D 11=b2|&buy
BETA    < 8 150=0
BETA    < 8 150=2
ALPHA   < 8 34=6|150=2|11=a2|851=1
feed    T 100 @ 190.00; 5 0 @ 190.00 last
counts  orders+4 accepts+4 fills+4

# --- Before Logon ---

# With a stream of nobody's, not even of the nameless one. "" and an absent type, too.
story any_other_message_before_logon_closes_the_connection_without_an_answer
# Each from its own file descriptor.
each @type @fd
| 0 | a | 1 | b | 2 | c | 3 | d | 4  | e | 5      | f | D | g
| F | h | G | i | Q | j | 8 | k | AA | l | %s%n%d | m |   | n
X connects
X > X 35=@type|34=9|49=ALPHA|11=a1|&order
X closed
log   bench: message 35=@type before Logon from fd $@fd — connection closed
end
X connects
X > X !35|34=1|49=ALPHA
X closed
log   bench: message 35= before Logon from fd $absent — connection closed
X connects
X > X 35=D|!49|34=1|11=a1
X closed
log   bench: message 35=D before Logon from fd $nameless — connection closed
X connects
X > A !49|34=1|98=0|108=30
X < 5 34=1|58=Logon rejected: SenderCompID (49) missing
X closed
log   bench: logon of  rejected (SenderCompID (49) missing)
counts
ALPHA connects
ALPHA > A 34=1|98=0|108=30
ALPHA < A 34=1
log   bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)
counts logons+1

story a_logon_behind_such_a_message_is_lost
ALPHA connects
ALPHA > 0 34=1
+ ALPHA > A 34=1|98=0|108=30
ALPHA closed
log   bench: message 35=0 before Logon from fd $fd — connection closed
counts

# --- What is compared, and how ---

# "" and an absent one, a type with a blank ahead or behind, and those of the exchange.
story unknown_types_are_compared_whole
each @type @seq
| Q  | 2
| DD | 3
| AA | 4
| 00 | 5
| d  | 6
| 8  | 7
| 9  | 8
| 3  | 9
| j  | 10
|    | 11
ALPHA > X 35=@type|34=@seq|11=a1|&order
ALPHA < 3 34=@seq|45=@seq|373=11|58=Invalid MsgType|!372
end
ALPHA > X 35= 0|34=12|11=a1|&order
ALPHA < 3 34=12|45=12|373=11|58=Invalid MsgType|!372
ALPHA > X 35=D |34=13|11=a1|&order
ALPHA < 3 34=13|45=13|373=11|58=Invalid MsgType|!372
ALPHA > X !35|34=14|11=a1|&order
ALPHA < 3 34=14|45=14|373=11|58=Invalid MsgType|!372
counts

# A connection is whose Logon it was.
story nothing_behind_the_logon_looks_at_comp_ids_and_times
each @sender @target @time
| 49=BETA | 56=NYSE | 52=19700101-00:00:00
| 49=     | 56=     | 52=
| 49=x    | !56     | 52=noon
| !49     | !56     | 52=20231114-22:13:20.123
| !49     | !56     | !52
ALPHA > 1 @sender|@target|@time|112=t
ALPHA < 0 112=t
end
ALPHA > D 34=7|49=BETA|56=NYSE|52=never|11=a1|&order
ALPHA < 8 34=7|150=0|11=a1
feed    8 100 @ 100.00 last
BETA  > F 34=2|49=ALPHA|11=c1|41=a1
BETA  < 9 34=2|58=Unknown order
log     bench: stale cancel for a1 (unknown order)
counts  orders+1 accepts+1 stale_cancels+1 cancel_rejects+1
ALPHA > F 34=8|49=BETA|11=c1|41=a1
ALPHA < 8 34=8|150=4|41=a1
feed    8 0 @ 100.00 last
BETA  > 1 34=3
BETA  < 0 34=3
counts  cancels+1

# --- The end ---

story a_close_is_told_once_with_the_orders_that_rest
ALPHA rests 11=a1|&order
ALPHA rests 11=a2|&order
ALPHA disconnects
log     bench: client ALPHA disconnected (2 resting order(s) kept)
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=4
log     bench: logon ALPHA 34=4 141=N (stream expected 4, next out 4)
ALPHA > 1 112=x
ALPHA < 0
ALPHA resets
log     bench: client ALPHA disconnected (2 resting order(s) kept)
counts  logons+1

# Nothing is done that comes with it in one read, and a Logon least of all.
story a_close_alone_is_told_of_all_that_comes_with_it
ALPHA > 0 34=2
STRANGER connects
ALPHA > D 34=3|11=a1|&order
+ ALPHA > 5 34=4
+ ALPHA disconnects
log     bench: client ALPHA disconnected (0 resting order(s) kept)
STRANGER > A 34=1|98=0|108=30
+ STRANGER disconnects
log     bench: client  disconnected (0 resting order(s) kept)
counts
ALPHA connects
ALPHA > A 34=3|98=0|108=30
ALPHA < A 34=2
log     bench: logon ALPHA 34=3 141=N (stream expected 3, next out 2)
counts  logons+1

story a_logout_is_the_last_that_acts_in_one_read
ALPHA > 5
+ ALPHA > D 11=a1|&order
ALPHA < 5 34=2
ALPHA closed
log     bench: client ALPHA logged out (0 resting order(s) kept)
counts
