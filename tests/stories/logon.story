# What becomes of a Logon.

let order 55=AAPL|54=1|38=100|40=2|44=100|18=i
let good  98=0|108=30

# --- It is accepted ---

story ahead_of_a_new_stream_is_accepted_and_draws_a_resend_request
ALPHA connects
ALPHA > A &good|34=5
ALPHA < A 34=1|98=0|108=30|!141
ALPHA < 2 34=2|7=1|16=4
log     bench: logon ALPHA 34=5 141=N (stream expected 1, next out 1) — the client's sequence is ahead of ours: ResendRequest sent
counts  logons+1
ALPHA > 1 34=7|112=x
ALPHA < 2 34=3|7=6|16=6
ALPHA < 0 34=4|112=x
log     bench: client ALPHA seq gap expected 6 got 7 (1) — ResendRequest sent
ALPHA > 5
ALPHA < 5
ALPHA closed
log     bench: client ALPHA logged out (0 resting order(s) kept)
ALPHA connects
ALPHA > A &good|34=12
ALPHA < A 34=6
ALPHA < 2 34=7|7=9|16=11
log     bench: logon ALPHA 34=12 141=N (stream expected 9, next out 6) — the client's sequence is ahead of ours: ResendRequest sent
ALPHA > 0 34=13
counts  logons+1

story one_ahead_asks_for_the_one_number
ALPHA connects
ALPHA > A &good|34=2
ALPHA < A
ALPHA < 2 7=1|16=1
log     bench: logon ALPHA 34=2 141=N (stream expected 1, next out 1) — the client's sequence is ahead of ours: ResendRequest sent
counts  logons+1

story ahead_with_a_reset_asks_for_nothing
ALPHA connects
ALPHA > A &good|34=5|141=Y
ALPHA < A 34=1|98=0|141=Y
log     bench: logon ALPHA 34=5 141=Y (stream expected 1, next out 1)
counts  logons+1
ALPHA > 0 34=7
ALPHA < 2 34=2|7=6|16=6
log     bench: client ALPHA seq gap expected 6 got 7 (0) — ResendRequest sent

story a_minus_is_the_highest_number_and_the_stream_goes_on_from_0
ALPHA connects
ALPHA > A &good|34=-1
ALPHA < A
ALPHA < 2 7=1|16=4294967294
log     bench: logon ALPHA 34=4294967295 141=N (stream expected 1, next out 1) — the client's sequence is ahead of ours: ResendRequest sent
ALPHA#2 connects
ALPHA#2 > A &good|34=0
ALPHA#2 < A
log     bench: logon ALPHA 34=0 141=N (stream expected 0, next out 3)
counts  logons+2

# " Y" too.
story only_an_exact_y_is_a_reset
each @flag @seq
| N   | 2
| y   | 3
| YES | 4
|     | 5
ALPHA > A &good|34=@seq|141=@flag
ALPHA < A 34=@seq|!141
log     bench: logon ALPHA 34=@seq 141=N (stream expected @seq, next out @seq)
end
ALPHA > A 34=6|141= Y|&good
ALPHA < A 34=6|!141
log     bench: logon ALPHA 34=6 141=N (stream expected 6, next out 6)
counts  logons+5

story an_interval_that_is_no_number_above_zero_becomes_one_second
each @seq @asked @granted
| 2 | 0          | 1
| 3 | -5         | 1
| 4 | abc        | 1
| 5 |            | 1
| 6 | 7x         | 7
| 7 | 4294967326 | 30
ALPHA > A 98=0|108=@asked
ALPHA < A 34=@seq|108=@granted
log     bench: logon ALPHA 34=@seq 141=N (stream expected @seq, next out @seq)
end
counts  logons+6

# --- It is refused ---

# By the first reason of several. Each refusal takes a number of its stream, the nameless one too.
story refused_for_its_fields_gets_a_logout_and_is_closed
each @sender @target @seq @spent @beat @reason
| ALPHA | NYSE  | 1   | 1  | 108=30 | TargetCompID 'NYSE' is not IEXG
| ALPHA | IEXGX | 1   | 2  | 108=30 | TargetCompID 'IEXGX' is not IEXG
| ALPHA | iexg  | 1   | 3  | 108=30 | TargetCompID 'iexg' is not IEXG
| ALPHA |       | 1   | 4  | 108=30 | TargetCompID '' is not IEXG
|       | IEXG  | 1   | 1  | 108=30 | SenderCompID (49) missing
| ALPHA | IEXG  | 1   | 5  | !108   | HeartBtInt (108) missing
| ALPHA | IEXG  | 0   | 6  | 108=30 | MsgSeqNum too low, expecting 1 but received 0
| ALPHA | IEXG  | abc | 7  | 108=30 | MsgSeqNum too low, expecting 1 but received 0
| ALPHA | IEXG  |     | 8  | 108=30 | MsgSeqNum too low, expecting 1 but received 0
|       | NYSE  | 0   | 2  | !108   | TargetCompID 'NYSE' is not IEXG
| ALPHA | NYSE  | 0   | 9  | !108   | TargetCompID 'NYSE' is not IEXG
|       | IEXG  | 0   | 3  | !108   | SenderCompID (49) missing
| ALPHA | IEXG  | 0   | 10 | !108   | HeartBtInt (108) missing
ALPHA connects
ALPHA > A 49=@sender|56=@target|34=@seq|98=0|@beat
ALPHA < 5 34=@spent|58=Logon rejected: @reason
ALPHA closed
log     bench: logon of @sender rejected (@reason)
end
counts
ALPHA connects
ALPHA > A &good|34=1
ALPHA < A 34=11
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 11)
ALPHA > 2 7=1|16=0
ALPHA < 4 34=1|43=Y|36=12
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..11
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  logons+1 resend_requests+1

# As if they were empty.
story refused_for_what_is_absent
each @fields @sender @spent @reason
| !56 | ALPHA | 1 | TargetCompID '' is not IEXG
| !49 |       | 1 | SenderCompID (49) missing
| !34 | ALPHA | 2 | MsgSeqNum too low, expecting 1 but received 0
ALPHA connects
ALPHA > A &good|34=1|@fields
ALPHA < 5 34=@spent|58=Logon rejected: @reason
ALPHA closed
log     bench: logon of @sender rejected (@reason)
end
counts

story names_in_a_line_are_not_a_format
ALPHA connects
ALPHA > A &good|49=%s%n%d|56=%s%n
ALPHA < 5 34=1|58=Logon rejected: TargetCompID '%s%n' is not IEXG
ALPHA closed
log     bench: logon of %s%n%d rejected (TargetCompID '%s%n' is not IEXG)
ALPHA connects
ALPHA > A &good|49=%s%n%d|34=1
ALPHA < A 34=2
log     bench: logon %s%n%d 34=1 141=N (stream expected 1, next out 2)
counts  logons+1

story refused_loses_what_stands_behind_it_in_one_read
ALPHA connects
ALPHA > A &good|34=0
+ ALPHA > A &good|34=1
ALPHA < 5 58=Logon rejected: MsgSeqNum too low, expecting 1 but received 0
ALPHA closed
log     bench: logon of ALPHA rejected (MsgSeqNum too low, expecting 1 but received 0)
counts

# --- The stream is remembered ---

story numbers_go_on_over_logout_disconnect_and_reset
ALPHA > D 11=a1|&order
ALPHA < 8 34=2|150=0
feed    8 100 @ 100.00 last
ALPHA > 5
ALPHA < 5 34=3
ALPHA closed
log     bench: client ALPHA logged out (1 resting order(s) kept)
ALPHA connects
ALPHA > A &good
ALPHA < A 34=4
log     bench: logon ALPHA 34=4 141=N (stream expected 4, next out 4)
ALPHA disconnects
log     bench: client ALPHA disconnected (1 resting order(s) kept)
ALPHA connects
ALPHA > A &good
ALPHA < A 34=5
log     bench: logon ALPHA 34=5 141=N (stream expected 5, next out 5)
ALPHA resets
log     bench: client ALPHA disconnected (1 resting order(s) kept)
counts  orders+1 accepts+1 logons+2
each @spent
| 6 | 7
ALPHA connects
ALPHA > A &good|34=1
ALPHA < 5 34=@spent|58=Logon rejected: MsgSeqNum too low, expecting 6 but received 1
ALPHA closed
log     bench: logon of ALPHA rejected (MsgSeqNum too low, expecting 6 but received 1)
end
ALPHA connects
ALPHA > A &good|34=5
ALPHA < 5 34=8|58=Logon rejected: MsgSeqNum too low, expecting 6 but received 5
ALPHA closed
log     bench: logon of ALPHA rejected (MsgSeqNum too low, expecting 6 but received 5)
ALPHA connects
ALPHA > A &good|34=6
ALPHA < A 34=9
log     bench: logon ALPHA 34=6 141=N (stream expected 6, next out 9)
ALPHA > 2 34=7|7=6|16=0
ALPHA < 4 34=6|43=Y|36=10
log     bench: ResendRequest from ALPHA 7=6 16=0 -> serving 6..9
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  logons+1 resend_requests+1

story with_a_reset_empties_the_store_and_starts_both_numbers_over
ALPHA > D 11=a1|&order
ALPHA < 8 150=0
feed    8 100 @ 100.00 last
ALPHA#2 connects
ALPHA#2 > A &good|34=1|141=Y
ALPHA#2 < A 34=1|98=0|108=30|141=Y
log     bench: logon ALPHA 34=1 141=Y (stream expected 1, next out 1)
ALPHA#2 > 2 34=2|7=1|16=0
ALPHA#2 < 4 34=1|43=Y|36=2
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..1
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
ALPHA#2 > D 34=3|11=a2|&order
ALPHA#2 < 8 34=2|150=0
feed    8 200 @ 100.00 last
ALPHA#2 > 2 34=4|7=1|16=0
ALPHA#2 < 4 34=1|43=Y|36=2
ALPHA#2 < 8 34=2|43=Y|11=a2
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..2
log     bench: resend done: replayed 1 application message(s), 1 GapFill(s)
counts  orders+2 accepts+2 logons+1 resend_requests+2 replays+1 replayed+1

story with_a_reset_that_is_refused_for_its_number_has_reset_all_the_same
ALPHA > D 11=a1|&order
ALPHA < 8 150=0
feed    8 100 @ 100.00 last
ALPHA#2 connects
ALPHA#2 > A &good|34=0|141=Y
ALPHA#2 < 5 34=1|58=Logon rejected: MsgSeqNum too low, expecting 1 but received 0
ALPHA#2 closed
log     bench: logon of ALPHA rejected (MsgSeqNum too low, expecting 1 but received 0)
ALPHA#2 connects
ALPHA#2 > A &good|34=1
ALPHA#2 < A 34=2
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 2)
ALPHA#2 > 2 34=2|7=1|16=0
ALPHA#2 < 4 34=1|43=Y|36=3
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..2
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  orders+1 accepts+1 logons+1 resend_requests+1

story refused_for_another_reason_has_not_reset_anything
ALPHA > D 11=a1|&order
ALPHA < 8 34=2|150=0
feed    8 100 @ 100.00 last
ALPHA#2 connects
ALPHA#2 > A &good|34=1|56=NYSE|141=Y
ALPHA#2 < 5 34=3|58=Logon rejected: TargetCompID 'NYSE' is not IEXG
ALPHA#2 closed
log     bench: logon of ALPHA rejected (TargetCompID 'NYSE' is not IEXG)
ALPHA#2 connects
ALPHA#2 > A 98=0|34=1|141=Y
ALPHA#2 < 5 34=4|58=Logon rejected: HeartBtInt (108) missing
ALPHA#2 closed
log     bench: logon of ALPHA rejected (HeartBtInt (108) missing)
ALPHA > 1 34=4|112=x
ALPHA < 2 34=5|7=3|16=3
ALPHA < 0 34=6
log     bench: client ALPHA seq gap expected 3 got 4 (1) — ResendRequest sent
ALPHA > 2 34=5|7=1|16=0
ALPHA < 4 34=1|43=Y|36=2
ALPHA < 8 34=2|43=Y|11=a1
ALPHA < 4 34=3|43=Y|36=7
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..6
log     bench: resend done: replayed 1 application message(s), 2 GapFill(s)
counts  orders+1 accepts+1 resend_requests+1 replays+1 replayed+1

# --- A second one on a live connection ---

story a_second_one_is_like_a_first_and_if_refused_ends_the_connection
ALPHA > A 98=0|108=7
ALPHA < A 34=2|108=7
log     bench: logon ALPHA 34=2 141=N (stream expected 2, next out 2)
ALPHA > A 34=5|98=0|108=9
ALPHA < A 34=3|108=9
ALPHA < 2 34=4|7=3|16=4
log     bench: logon ALPHA 34=5 141=N (stream expected 3, next out 3) — the client's sequence is ahead of ours: ResendRequest sent
counts  logons+2
ALPHA > A 98=0
ALPHA < 5 34=5|58=Logon rejected: HeartBtInt (108) missing
ALPHA closed
log     bench: logon of ALPHA rejected (HeartBtInt (108) missing)
counts

# Marked as a replay, it is not dropped.
story a_second_one_with_a_low_number_is_refused
ALPHA > A 34=1|&good
ALPHA < 5 34=2|58=Logon rejected: MsgSeqNum too low, expecting 2 but received 1
ALPHA closed
log     bench: logon of ALPHA rejected (MsgSeqNum too low, expecting 2 but received 1)
BETA  > A 34=1|43=Y|&good
BETA  < 5 34=2|58=Logon rejected: MsgSeqNum too low, expecting 2 but received 1
BETA  closed
log     bench: logon of BETA rejected (MsgSeqNum too low, expecting 2 but received 1)
counts

story a_second_one_under_another_name_moves_the_connection_to_that_stream
ALPHA > A 49=BETA|34=1|&good
ALPHA < A 34=1
log     bench: logon BETA 34=1 141=N (stream expected 1, next out 1)
ALPHA > 1 34=2
ALPHA < 0 34=2
ALPHA > A 49=ALPHA|34=2|&good
ALPHA < A 34=2
log     bench: logon ALPHA 34=2 141=N (stream expected 2, next out 2)
counts  logons+2
