# What an OrderCancelReplaceRequest brings.

let sell 55=AAPL|54=2|38=300|40=2|44=190.00|59=0|18=i

story smaller_keeps_its_place
ALPHA > D 11=a1|&sell
ALPHA < 8 150=0|37=$alpha
feed    5 300 @ 190.00 last
BETA  > D 11=b1|&sell
BETA  < 8 150=0
feed    5 600 @ 190.00 last
ALPHA > G 11=r1|41=a1|55=AAPL|54=2|38=200|44=190.00
ALPHA < 8 150=5|39=5|37=$alpha|11=r1|41=a1|38=200|151=200
feed    5 500 @ 190.00 last
BETA  > D 11=b2|55=AAPL|54=1|38=200|40=1|18=i
BETA  < 8 150=0
BETA  < 8 150=2|14=200
ALPHA < 8 150=2|11=r1|14=200
feed    T 200 @ 190.00; 5 300 @ 190.00 last
counts  orders+3 accepts+3 replaces+1 fills+2
