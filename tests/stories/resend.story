# What is asked for again, by either side.

let order 55=AAPL|54=1|38=100|40=2|44=100|59=0|18=i
let bad   55=NOPE|54=1|38=100|40=2|44=100|18=i
let gap   43=Y|123=Y|!122

# --- The exchange's messages ---

# Reports under their numbers, other numbers by gap fills; a resend takes no number.
story of_everything_replays_reports_and_fills_the_gaps_between_again_and_again
ALPHA > D 11=a1|&order
ALPHA < 8 34=2|150=0
feed    8 100 @ 100.00 last
ALPHA > D 11=a2|&bad
ALPHA < 8 34=3|150=8
ALPHA > 1
ALPHA < 0 34=4|!112
counts  orders+1 accepts+1
each @time
| first | second
ALPHA > 2 7=1|16=0
ALPHA < 4 34=1|36=2|&gap
ALPHA < 8 34=2|43=Y|150=0|11=a1
ALPHA < 8 34=3|43=Y|150=8|11=a2
ALPHA < 4 34=4|36=5|&gap
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..4
log     bench: resend done: replayed 2 application message(s), 2 GapFill(s)
ALPHA > 2 7=2|16=2
ALPHA < 8 34=2|43=Y|150=0|11=a1
log     bench: ResendRequest from ALPHA 7=2 16=2 -> serving 2..2
log     bench: resend done: replayed 1 application message(s), 0 GapFill(s)
counts  resend_requests+2 replays+2 replayed+3
end
ALPHA > 1 112=x
ALPHA < 0 34=5|112=x

# Cut at the last number sent, from the front and from behind; what is no number is 0.
story of_a_range_is_cut_at_the_last_number_sent
ALPHA > D 11=a1|&order
ALPHA < 8 34=2|150=0
feed    8 100 @ 100.00 last
ALPHA > F 11=c1|41=a1
ALPHA < 8 34=3|150=4
feed    8 0 @ 100.00 last
ALPHA > 1
ALPHA < 0 34=4
counts  orders+1 accepts+1 cancels+1
each @begin @end @served
| 7=3 | 16=100        | 7=3 16=100 -> serving 3..4
| 7=3 | 16=4          | 7=3 16=4 -> serving 3..4
| 7=3 | !16           | 7=3 16=0 -> serving 3..4
| 7=3 | 16=many       | 7=3 16=0 -> serving 3..4
| 7=3 | 16=4294967295 | 7=3 16=4294967295 -> serving 3..4
ALPHA > 2 @begin|@end
ALPHA < 8 34=3|43=Y|150=4|11=c1
ALPHA < 4 34=4|36=5|&gap
log     bench: ResendRequest from ALPHA @served
log     bench: resend done: replayed 1 application message(s), 1 GapFill(s)
end
counts  resend_requests+5 replays+5 replayed+5
each @begin @end @served
| 7=9 | 16=0 | 7=9 16=0 -> serving 9..4
| 7=5 | 16=0 | 7=5 16=0 -> serving 5..4
| 7=3 | 16=2 | 7=3 16=2 -> serving 3..2
ALPHA > 2 @begin|@end
log     bench: ResendRequest from ALPHA @served
log     bench: resend done: replayed 0 application message(s), 0 GapFill(s)
end
each @begin @end @served @first @next
| 7=1     | 16=1 | 7=1 16=1 -> serving 1..1 | 1 | 2
| 7=4     | 16=4 | 7=4 16=4 -> serving 4..4 | 4 | 5
| 7=first | 16=1 | 7=0 16=1 -> serving 0..1 | 0 | 2
ALPHA > 2 @begin|@end
ALPHA < 4 34=@first|36=@next|&gap
log     bench: ResendRequest from ALPHA @served
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
end
counts  resend_requests+6
each @begin
| 7=0 | 7= | !7
ALPHA > 2 @begin|16=2
ALPHA < 4 34=0|36=2|&gap
ALPHA < 8 34=2|43=Y|150=0|11=a1
log     bench: ResendRequest from ALPHA 7=0 16=2 -> serving 0..2
log     bench: resend done: replayed 1 application message(s), 1 GapFill(s)
end
counts  resend_requests+3 replays+3 replayed+3

story of_session_messages_only_counts_as_a_request_and_not_as_a_replay
ALPHA > 1
ALPHA < 0 34=2
ALPHA > 2 7=1|16=0
ALPHA < 4 34=1|36=3|&gap
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..2
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  resend_requests+1

story covers_the_number_of_a_refusing_logout
ALPHA connects
ALPHA > A 34=1|98=0|108=30|56=NYSE
ALPHA < 5 34=1
ALPHA closed
log     bench: logon of ALPHA rejected (TargetCompID 'NYSE' is not IEXG)
ALPHA connects
ALPHA > A 34=1|98=0|108=30
ALPHA < A 34=2
log     bench: logon ALPHA 34=1 141=N (stream expected 1, next out 2)
ALPHA > 2 7=1|16=0
ALPHA < 4 34=1|36=3|&gap
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..2
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  logons+1 resend_requests+1

# What is composed while the owner is away, too.
story reaches_back_over_earlier_connections
ALPHA rests 11=a1|&order|38=300
ALPHA > 5
ALPHA < 5 34=3
ALPHA closed
log     bench: client ALPHA logged out (1 resting order(s) kept)
BETA  > D 11=b1|&order|54=2|59=3
BETA  < 8 150=0
BETA  < 8 150=2
feed    T 100 @ 100.00; 8 200 @ 100.00 last
ALPHA connects
ALPHA > A 98=0|108=30
ALPHA < A 34=5
log     bench: logon ALPHA 34=4 141=N (stream expected 4, next out 5)
ALPHA > 2 7=1|16=0
ALPHA < 4 34=1|36=2|&gap
ALPHA < 8 34=2|43=Y|150=0|11=a1
ALPHA < 4 34=3|36=4|&gap
ALPHA < 8 34=4|43=Y|150=1|11=a1|32=100|31=100|851=1
ALPHA < 4 34=5|36=6|&gap
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..5
log     bench: resend done: replayed 2 application message(s), 3 GapFill(s)
ALPHA > 2 7=4|16=4
ALPHA < 8 34=4|43=Y|150=1|11=a1|31=100
log     bench: ResendRequest from ALPHA 7=4 16=4 -> serving 4..4
log     bench: resend done: replayed 1 application message(s), 0 GapFill(s)
counts  orders+1 accepts+1 fills+2 logons+1 resend_requests+2 replays+2 replayed+3

story brings_no_other_clients_messages
ALPHA rests 11=a1|&order
BETA  > 2 7=1|16=0
BETA  < 4 34=1|36=2|&gap
log     bench: ResendRequest from BETA 7=1 16=0 -> serving 1..1
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
counts  resend_requests+1

# --- The request's own number ---

# Even far ahead. Low, and marked as a replay, it is served all the same.
story leaves_a_gap_in_the_clients_numbers_unasked_for
ALPHA > 2 34=50|7=1|16=0
ALPHA < 4 34=1|36=2|&gap
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..1
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
ALPHA > 2 34=4|43=Y|7=1|16=0
ALPHA < 4 34=1|36=2|&gap
log     bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..1
log     bench: resend done: replayed 0 application message(s), 1 GapFill(s)
ALPHA > 0 34=52
ALPHA < 2 34=2|7=51|16=51
log     bench: client ALPHA seq gap expected 51 got 52 (0) — ResendRequest sent
counts  resend_requests+2

# --- The client's SequenceReset ---

# Forward, back, with a number far ahead, a low one and as a replay.
story of_the_clients_numbers_ends_where_its_sequence_reset_says
each @number @to @mode
| 2  | 9 | 123=Y
| 77 | 4 | 43=Y
| 1  | 6 | 43=Y
| 6  | 7 | 123=N
| 99 | 7 | !123
ALPHA > 4 34=@number|36=@to|@mode
log     bench: client ALPHA SequenceReset/GapFill 36=@to
end
counts
ALPHA > 0 34=9
ALPHA < 2 34=2|7=7|16=8
log     bench: client ALPHA seq gap expected 7 got 9 (0) — ResendRequest sent
ALPHA > 4 34=10|36=4
log     bench: client ALPHA SequenceReset/GapFill 36=4
ALPHA > 0 34=6
ALPHA < 2 34=3|7=4|16=5
log     bench: client ALPHA seq gap expected 4 got 6 (0) — ResendRequest sent

story takes_a_sequence_reset_without_a_number_for_0
each @to @seq
| !36                     | 3
| 36=                     | 4
| 36=abc                  | 5
| 36=18446744073709551616 | 6
ALPHA > 4 34=5|@to
log     bench: client ALPHA SequenceReset/GapFill 36=0
ALPHA > 0 34=12
ALPHA < 2 7=0|16=11
log     bench: client ALPHA seq gap expected 0 got 12 (0) — ResendRequest sent
end

story draws_a_second_request_once_the_client_has_filled_its_gap
ALPHA > 0 34=5
ALPHA < 2 34=2|7=2|16=4
log     bench: client ALPHA seq gap expected 2 got 5 (0) — ResendRequest sent
ALPHA > 4 34=2|43=Y|123=Y|36=5
log     bench: client ALPHA SequenceReset/GapFill 36=5
ALPHA > 0 34=6
ALPHA < 2 34=3|7=5|16=5
log     bench: client ALPHA seq gap expected 5 got 6 (0) — ResendRequest sent
ALPHA > 0 34=7
ALPHA > 1 34=8|112=x
ALPHA < 0 34=4|112=x

story does_not_execute_a_clients_replay
ALPHA > 0 34=4
ALPHA < 2 7=2|16=3
log     bench: client ALPHA seq gap expected 2 got 4 (0) — ResendRequest sent
ALPHA > D 34=2|43=Y|11=a1|&order
counts
ALPHA > 0 34=6
ALPHA < 2 7=5|16=5
log     bench: client ALPHA seq gap expected 5 got 6 (0) — ResendRequest sent

story names_in_its_lines_are_not_a_format
X connects
X > A 34=1|49=%s%n|98=0|108=30
X < A 34=1
log   bench: logon %s%n 34=1 141=N (stream expected 1, next out 1)
X > 0 34=4|35=%d%n
X < 2 7=2|16=3
X < 3 45=4|373=11
log   bench: client %s%n seq gap expected 2 got 4 (%d%n) — ResendRequest sent
X > 2 34=5|7=1|16=1
X < 4 34=1|36=2|&gap
log   bench: ResendRequest from %s%n 7=1 16=1 -> serving 1..1
log   bench: resend done: replayed 0 application message(s), 1 GapFill(s)
X > 4 34=6|36=9
log   bench: client %s%n SequenceReset/GapFill 36=9
counts logons+1 resend_requests+1
