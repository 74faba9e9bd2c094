# Commands on the control port: what they answer, and what a number is to them.

let buy 55=AAPL|54=1|38=100|40=2|44=100.00|59=0|18=i

# None of them does anything that a client could see.
story every_command_is_answered_by_itself
each @command
| drop 0 | dup 0 | reorder 0 | drop_every 0 | dup_every 0 | reorder_every 0 | rate -1
| lapse 0 | reject 0 | partial 0 | fill_on_cancel 0 | unsolicited_cancel 0 | replace_reject 0
| drop 0 and more words
control @command
end
control pause
log     bench: paused at seq $seq
control resume now
log     bench: resumed at seq $seq
control mark one two
log     bench: mark one at seq $seq orders $orders
counts

story a_word_that_is_no_command_is_named
each @line @word
| PAUSE | PAUSE
| pauses | pauses
| foo bar baz | foo
| stop! | stop!
| drop=1 | drop=1
| unsolicited cancel | unsolicited
| %s%n | %s%n
control @line -> err unknown command '@word'
end
counts

# As far as its digits go, and of that the low 32 bits; one where none can be read.
story a_number_that_is_two
each @number @id
| 2 | a1
| +2 | a2
| 002 | a3
| 2x | a4
| 2.9 | a5
| 2 4 | a6
| 4294967298 | a7
| -4294967294 | a8
control reject @number
ALPHA > D 11=no|&buy
ALPHA < 8 150=8|11=no|58=bench:scripted_reject
ALPHA > D 11=no|&buy
ALPHA < 8 150=8|11=no|58=bench:scripted_reject
ALPHA rests 11=@id|&buy
counts  orders+2 rejects+2
end

story a_number_that_is_one
each @number @id
| 1 | a1
| x2 | a2
| - | a3
| 18446744073709551616 | a4
| -18446744073709551616 | a5
control reject @number
ALPHA > D 11=no|&buy
ALPHA < 8 150=8|11=no|58=bench:scripted_reject
ALPHA rests 11=@id|&buy
counts  orders+1 rejects+1
end
control reject
ALPHA > D 11=no|&buy
ALPHA < 8 150=8|11=no|58=bench:scripted_reject
ALPHA rests 11=a6|&buy
counts  orders+1 rejects+1

story a_number_that_is_none
each @number @id
| 0 | a1
| 4294967296 | a2
control reject 3
control reject @number
ALPHA rests 11=@id|&buy
end

# 4294967295.
story a_number_below_none_is_the_highest
control reject -1
each @id
| a1 | a2 | a3 | a4 | a5 | a6
ALPHA > D 11=@id|&buy
ALPHA < 8 150=8|11=@id|58=bench:scripted_reject
end
counts  orders+6 rejects+6

story a_count_replaces_the_one_before_it
control reject 5
control reject 2
each @id
| a1 | a2
ALPHA > D 11=@id|&buy
ALPHA < 8 150=8|11=@id|58=bench:scripted_reject
end
ALPHA rests 11=a3|&buy
counts  orders+2 rejects+2

# One packet each, and all packets no longer.
story what_is_not_said_is_one_packet_or_no_rule
control drop
ALPHA > D 11=a1|&buy
ALPHA < 8 150=0
log     quorl fault: dropped seq $seq (packet $packet, 1 message(s))
counts  orders+1 accepts+1 dropped+1
control dup x
ALPHA > D 11=a2|&buy
ALPHA < 8 150=0
feed    8 200 @ 100.00 last; 8 200 @ 100.00 last
log     quorl fault: duplicated seq $seq+1
counts  orders+1 accepts+1 duplicated+1
each @rule @none
| drop_every 1 | drop_every
| dup_every 1 | dup_every abc
| reorder_every 1 | reorder_every -
control @rule
control @none
end
ALPHA > D 11=a3|&buy
ALPHA < 8 150=0
feed    8 300 @ 100.00 last
counts  orders+1 accepts+1

# The market hears the client, who hears nothing: 20 s, and 30 s from there. The end is not announced.
story a_lapse_lasts_until_another_command_ends_it
control lapse
log     bench: going silent for $ms ms (no heartbeats, no reports on the wire — the client should Test Request, then drop and log on again; a ResendRequest brings what it missed)
ALPHA > 1 112=unanswered
ALPHA > D 11=a1|&buy
feed    8 100 @ 100.00 last
counts  orders+1 accepts+1
control lapse 30000
log     bench: going silent for $more ms (no heartbeats, no reports on the wire — the client should Test Request, then drop and log on again; a ResendRequest brings what it missed)
ALPHA > 1 112=unanswered
control lapse 0
ALPHA > 1 112=answered
ALPHA < 0 34=5|112=answered
ALPHA > 2 7=2|16=4
ALPHA < 4 34=2|43=Y|36=3
ALPHA < 8 34=3|43=Y|150=0|11=a1
ALPHA < 4 34=4|43=Y|36=5
log     bench: ResendRequest from ALPHA 7=2 16=4 -> serving 2..4
log     bench: resend done: replayed 1 application message(s), 2 GapFill(s)
counts  resend_requests+1 replays+1 replayed+1
