#!/usr/bin/env python3
"""The random draws of the market, from the published algorithms and in exact arithmetic.

Shares nothing with the program, so that the values pinned in random_test.cpp come from somewhere
else. Run it to print them.

- mt19937_64: Nishimura's 64-bit Mersenne Twister as the C++ standard defines mersenne_twister_engine
  with its parameters; the standard's own check value, the 10000th output of the default seed, is
  asserted below.
- uniform01: the rounding of a 64-bit integer to a double is done on integers here (half to even),
  and the scaling by 2^-64 is exact.
- uniform_index: x * n on unbounded integers.
"""

import math
from fractions import Fraction

MASK = (1 << 64) - 1


class Mt19937_64:
    N, M = 312, 156
    UPPER = MASK ^ ((1 << 31) - 1)
    LOWER = (1 << 31) - 1
    MATRIX = 0xB5026F5AA96619E9

    def __init__(self, seed=5489):
        x = [seed & MASK]
        for i in range(1, self.N):
            x.append((6364136223846793005 * (x[-1] ^ (x[-1] >> 62)) + i) & MASK)
        self.x = x
        self.drawn = 0

    def __call__(self):
        x = self.x  # the last 312 words of the sequence, oldest first
        y = (x[0] & self.UPPER) | (x[1] & self.LOWER)
        new = x[self.M] ^ (y >> 1) ^ (self.MATRIX if y & 1 else 0)
        x.pop(0)
        x.append(new)
        self.drawn += 1
        z = new
        z ^= (z >> 29) & 0x5555555555555555
        z ^= (z << 17) & 0x71D67FFFEDA60000
        z ^= (z << 37) & 0xFFF7EEE000000000
        return (z ^ (z >> 43)) & MASK


def to_double(x):
    """A 64-bit integer rounded to 53 significant bits, half to even, as an exact integer."""
    shift = max(x.bit_length() - 53, 0)
    kept, rest, half = x >> shift, x & ((1 << shift) - 1), (1 << shift) >> 1
    if shift and (rest > half or (rest == half and kept & 1)):
        kept += 1
    return kept << shift


def uniform01(rng):
    u = Fraction(to_double(rng()), 1 << 64)
    return float(u) if u < 1 else 1.0 - 2.0**-53


def coin(rng):
    return uniform01(rng) < 0.5


def uniform_index(rng, n):
    threshold = (1 << 64) % n
    while True:
        product = rng() * n
        if (product & MASK) >= threshold:
            return product >> 64


class Normal:
    def __init__(self):
        self.spare = None

    def __call__(self, rng):
        if self.spare is not None:
            z, self.spare = self.spare, None
            return z
        while True:
            x = 2.0 * uniform01(rng) - 1.0
            y = 2.0 * uniform01(rng) - 1.0
            r2 = x * x + y * y
            if r2 <= 1.0 and r2 != 0.0:
                break
        m = math.sqrt(-2.0 * math.log(r2) / r2)
        self.spare = x * m
        return y * m


def main():
    check = Mt19937_64()
    for _ in range(9999):
        check()
    assert check() == 9981545732273789042

    rng = Mt19937_64(42)
    print("outputs of seed 42:")
    print("  ", ", ".join(f"{rng()}U" for _ in range(8)))

    rng = Mt19937_64(42)
    print("uniform01 of seed 42:")
    print("  ", ", ".join(uniform01(rng).hex() for _ in range(6)))

    for n in (2, 6, 10, 1000003, (1 << 63) + 1, 3 << 62):
        rng = Mt19937_64(42)
        values = [uniform_index(rng, n) for _ in range(8)]
        print(f"uniform_index({n}) of seed 42, {rng.drawn} draws:")
        print("  ", ", ".join(f"{v}U" for v in values))

    rng = Mt19937_64(42)
    normal = Normal()
    print("normal of seed 42, with the draws so far:")
    for _ in range(12):
        z = normal(rng)
        print("  ", f"{{{z.hex()}, {rng.drawn}}},")


if __name__ == "__main__":
    main()
