# What an OrderCancelRequest brings.

let sell 55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i

# A cancel that loses the race to a fill.
story lost_race
script fill_on_cancel_every=1
ALPHA > D 11=a1|&sell|38=300
ALPHA < 8 150=0|37=$id
feed    5 300 @ 190.00 last
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=2|39=2|37=$id|11=a1|!41|32=300|31=190|151=0|14=300|851=1|9730=ML|!58
ALPHA < 9 37=$id|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel
feed    T 300 @ 190.00; 5 0 @ 190.00 last
counts  orders+1 accepts+1 race_fills+1 fills+1 cancel_rejects+1
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
