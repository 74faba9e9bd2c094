#!/usr/bin/env python3
"""The opening book of seed 42 for the default symbols, by a model of the opening of its own.

40 synthetic orders per symbol, all of one symbol before the next. Each takes from the one random
source: a coin for the side, its distance of 0 to 9 cents behind the nearest price (a cent below the
reference for a buy, the reference itself for a sell) and its size of 1 to 8 lots. With a single
reference per symbol no buy reaches a sell, so nothing trades; the model asserts that.

Run it to print what walk_test.cpp pins.
"""

import sys
from decimal import Decimal

sys.dont_write_bytecode = True  # nothing is left beside the sources

from market_random import Mt19937_64, coin, uniform_index

SYMBOLS = {"AAPL": "190.00", "MSFT": "410.00", "SPY": "520.00"}


def open_symbol(rng, ref_cents):
    bids, asks = {}, {}
    for _ in range(40):
        buy = coin(rng)
        cents_behind = uniform_index(rng, 10)
        price = ref_cents - 1 - cents_behind if buy else ref_cents + cents_behind
        lots = rng() // 2**61 + 1
        side = bids if buy else asks
        side[price] = side.get(price, 0) + 100 * lots
    assert max(bids) < min(asks)
    return bids, asks


def levels(side, best_first):
    cents = sorted(side, reverse=best_first)
    return ", ".join(f'"{side[c]} @ {Decimal(c) / 100:.2f}"' for c in cents)


def main():
    rng = Mt19937_64(42)
    for symbol, price in SYMBOLS.items():
        bids, asks = open_symbol(rng, int(Decimal(price) * 100))
        print(f"{symbol} bids: {{{levels(bids, True)}}}")
        print(f"{symbol} asks: {{{levels(asks, False)}}}")
    print(f"{rng.drawn} draws; the next output is {rng()}")


if __name__ == "__main__":
    main()
