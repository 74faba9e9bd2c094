#include "market/random.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

#include "support/exchange.h"

// The pinned values are printed by derivations/market_random.py: its own Mersenne Twister from the
// published recurrence, and exact integer and rational arithmetic behind it.

namespace quorl::test {
namespace {

constexpr uint64_t HIGHEST_DRAW = std::numeric_limits<uint64_t>::max();

TEST(Random, the_engine_is_the_published_one) {
  std::mt19937_64 rng(42);
  for (const uint64_t output :
       {13930160852258120406U, 11788048577503494824U, 13874630024467741450U, 2513787319205155662U,
        16662371453428439381U, 1735254072534978428U, 10598951352238613536U, 6878563960102566144U}) {
    EXPECT_EQ(rng(), output);
  }
  std::mt19937_64 unseeded;
  unseeded.discard(9999);
  EXPECT_EQ(unseeded(), 9981545732273789042U);  // the check value of the language's standard
}

TEST(Random, a_uniform_is_an_output_scaled) {
  std::mt19937_64 rng(42);
  for (const double u : {0x1.82a3befaddcbcp-1, 0x1.472f1f73724a0p-1, 0x1.81192cfe1cbcfp-1,
                         0x1.171621fc50d6ap-3, 0x1.ce79451c9a6c3p-1, 0x1.814dc629c7f4fp-4}) {
    double drawn = 0.0;
    EXPECT_EQ(draws_taken(rng, [&] { drawn = uniform01(rng); }), 1U);
    EXPECT_EQ(drawn, u);
  }
}

TEST(Random, a_uniform_is_rounded_to_nearest_and_stays_below_1) {
  const double largest_below_1 = 0x1.fffffffffffffp-1;  // 0.9999999999999999
  std::mt19937_64 rng = rng_yielding({
      0,
      1,
      uint64_t{1} << 63,
      HIGHEST_DRAW - 2047,  // 2^64 - 2048, the largest double below 2^64
      HIGHEST_DRAW - 1024,  // below the middle between it and 2^64
      HIGHEST_DRAW - 1023,  // the middle, which rounds up to even: 2^64
      HIGHEST_DRAW,
      (uint64_t{1} << 63) + 1024,  // a half, rounded down to even
      (uint64_t{1} << 63) + 1025,
  });
  EXPECT_EQ(uniform01(rng), 0.0);
  EXPECT_EQ(uniform01(rng), 0x1p-64);
  EXPECT_EQ(uniform01(rng), 0.5);
  EXPECT_EQ(uniform01(rng), largest_below_1);
  EXPECT_EQ(uniform01(rng), largest_below_1);
  EXPECT_EQ(uniform01(rng), largest_below_1);
  EXPECT_EQ(uniform01(rng), largest_below_1);
  EXPECT_EQ(uniform01(rng), 0.5);
  EXPECT_EQ(uniform01(rng), 0x1.0000000000001p-1);
}

TEST(Random, a_coin_is_a_uniform_below_a_half) {
  const uint64_t half = uint64_t{1} << 63;
  // half - 512 is the middle between half - 1024 and half, and rounds up to the even one: half.
  std::mt19937_64 rng = rng_yielding({0, half - 513, half - 512, half, HIGHEST_DRAW});
  EXPECT_TRUE(coin(rng));
  EXPECT_TRUE(coin(rng));
  EXPECT_FALSE(coin(rng));
  EXPECT_FALSE(coin(rng));
  EXPECT_FALSE(coin(rng));
  EXPECT_EQ(draws_taken(rng, [&] { coin(rng); }), 1U);
}

struct IndexCase {
  uint64_t n;
  uint64_t draws;  // for the eight
  std::vector<uint64_t> drawn;
};

TEST(Random, an_index_is_the_high_half_of_the_product) {
  const IndexCase cases[] = {
      {2, 8, {1U, 1U, 1U, 0U, 1U, 0U, 1U, 0U}},
      {6, 8, {4U, 3U, 4U, 0U, 5U, 0U, 3U, 2U}},
      {10, 8, {7U, 6U, 7U, 1U, 9U, 0U, 5U, 3U}},
      {1000003, 8, {755157U, 639033U, 752147U, 136273U, 903271U, 94068U, 574572U, 372888U}},
  };
  for (const IndexCase& c : cases) {
    std::mt19937_64 rng(42);
    const uint64_t draws = draws_taken(rng, [&] {
      for (const uint64_t index : c.drawn) EXPECT_EQ(uniform_index(rng, c.n), index) << c.n;
    });
    EXPECT_EQ(draws, c.draws) << c.n;
  }
}

TEST(Random, an_index_is_drawn_again_where_the_outputs_do_not_divide_evenly) {
  const IndexCase cases[] = {
      {(uint64_t{1} << 63) + 1,
       13,
       {6965080426129060203U, 5894024288751747412U, 6937315012233870725U, 5299475676119306768U,
        3599613534435262128U, 114210904997797797U, 4830331484890487331U, 6320512023615785196U}},
      {uint64_t{3} << 62,
       12,
       {10447620639193590304U, 10405972518350806087U, 1885340489403866746U, 12496778590071329535U,
        3789064097372011912U, 5399420301652893192U, 171316357496696696U, 7245497227335730996U}},
  };
  for (const IndexCase& c : cases) {
    std::mt19937_64 rng(42);
    const uint64_t draws = draws_taken(rng, [&] {
      for (const uint64_t index : c.drawn) EXPECT_EQ(uniform_index(rng, c.n), index) << c.n;
    });
    EXPECT_EQ(draws, c.draws) << c.n;
  }
}

TEST(Random, an_index_below_the_uneven_rest_is_the_only_one_drawn_again) {
  // 2^64 modulo 10 is 6: the products of 0 (low half 0) and of a tenth of 2^64 rounded up to whole
  // outputs (low half 4) are below it; that of the output behind it is not (low half 14).
  const uint64_t tenth = HIGHEST_DRAW / 10 + 1;
  std::mt19937_64 rng = rng_yielding({0, tenth, tenth + 1});
  uint64_t drawn = 0;
  EXPECT_EQ(draws_taken(rng, [&] { drawn = uniform_index(rng, 10); }), 3U);
  EXPECT_EQ(drawn, 1U);
  rng = rng_yielding({tenth - 1});  // low half 2^64 - 6
  EXPECT_EQ(draws_taken(rng, [&] { drawn = uniform_index(rng, 10); }), 1U);
  EXPECT_EQ(drawn, 0U);
  rng = rng_yielding({0});  // 2^64 divides evenly by 8
  EXPECT_EQ(draws_taken(rng, [&] { drawn = uniform_index(rng, 8); }), 1U);
  EXPECT_EQ(drawn, 0U);
}

TEST(Random, an_index_of_1_is_0_and_takes_its_draw) {
  std::mt19937_64 rng(42);
  EXPECT_EQ(draws_taken(rng, [&] { EXPECT_EQ(uniform_index(rng, 1), 0U); }), 1U);
}

TEST(Random, normals_come_in_pairs_and_a_pair_outside_the_circle_is_drawn_again) {
  struct Step {
    double z;
    uint64_t draws;  // up to here
  };
  const Step steps[] = {
      {0x1.68f438d8aec29p-1, 2},   {0x1.4b37d0b4daa8fp+0, 2},   {-0x1.25efc127557c7p-1, 4},
      {0x1.978762f4a05e1p-2, 4},   {-0x1.e81c87dfcf302p+0, 8},  {0x1.1e599fb914979p+0, 8},
      {-0x1.72c03dadaa429p-1, 10}, {-0x1.7e03e64e8ab39p+0, 10}, {0x1.ebf0591ff37c1p-7, 12},
      {-0x1.3c385727c931dp-2, 12}, {0x1.0c3638961767ep+0, 14},  {0x1.69d267030b341p+0, 14},
  };
  std::mt19937_64 rng(42);
  NormalDeviates normal;
  uint64_t draws = 0;
  for (const Step& step : steps) {
    double z = 0.0;
    draws += draws_taken(rng, [&] { z = normal.next(rng); });
    EXPECT_DOUBLE_EQ(z, step.z);
    EXPECT_EQ(draws, step.draws);
  }
}

TEST(Random, the_centre_of_the_circle_is_drawn_again_and_its_edge_is_not) {
  const uint64_t half = uint64_t{1} << 63;  // x or y is 0
  std::mt19937_64 rng = rng_yielding({half, half, 0, half, half});
  NormalDeviates normal;
  double z = 1.0;
  EXPECT_EQ(draws_taken(rng, [&] { z = normal.next(rng); }), 4U);
  EXPECT_EQ(z, 0.0);  // x -1, y 0: the logarithm of 1 is 0
}

TEST(Random, the_second_of_a_pair_is_that_of_the_first_draw) {
  // x 0.5, y 0.25: r2 is 0.3125, m the root of -2 ln(0.3125) / 0.3125.
  const double m = 2.7283997476096418;
  std::mt19937_64 rng = rng_yielding({uint64_t{3} << 62, uint64_t{5} << 61});
  NormalDeviates normal;
  EXPECT_DOUBLE_EQ(normal.next(rng), 0.25 * m);
  EXPECT_DOUBLE_EQ(normal.next(rng), 0.5 * m);
}

}  // namespace
}  // namespace quorl::test
