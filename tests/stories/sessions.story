# Logon, Logout and the numbers between them.

story logon_and_logout
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=1|98=0|108=30|!141
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)
ALPHA > 1 112=are you there
ALPHA < 0 34=2|112=are you there
ALPHA > 5
ALPHA < 5 34=3|!58
ALPHA closed
log     bench: client ALPHA logged out (0 resting order(s) kept)
counts  logons+1

story an_order_before_logon_closes_the_connection
ALPHA connects
ALPHA > D 11=a1|55=AAPL
ALPHA closed
log     bench: message 35=D before Logon from fd $fd — connection closed
counts

story a_logon_for_somebody_else_is_refused
ALPHA connects
ALPHA > A 98=0|108=30|56=NYSE
ALPHA < 5 34=1|58=Logon rejected: TargetCompID 'NYSE' is not IEXG
ALPHA closed
log     bench: logon of ALPHA rejected (TargetCompID 'NYSE' is not IEXG)
counts

story an_unknown_type_is_rejected
ALPHA > Z 34=2
ALPHA < 3 34=2|45=2|373=11|58=Invalid MsgType
counts

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
