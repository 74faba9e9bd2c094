#include <gtest/gtest.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "lives/act.h"
#include "lives/life.h"
#include "lives/shrink.h"

// The whole exchange lives many short lives in which everything happens that a bench, a network and
// a machine can do to it, each decided by its seed alone. After every turn all that always holds is
// looked at, by readers that share nothing with what they look at. To live longer than the tests
// do:
//
//   lives --lives=100000 --first-seed=1000 --acts=400 --gtest_filter=Lives.*
//
// A life that breaks something is cut down to the acts that matter and printed as a test.

namespace lives {
namespace {

struct Options {
  uint64_t lives = 150;
  uint64_t first_seed = 1;
  uint64_t acts = 150;
};
Options options;

char living[64];  // which life it is, for a process that dies of it

void name_the_life(int) {
  [[maybe_unused]] const ssize_t shown = ::write(STDERR_FILENO, living, std::strlen(living));
}

void report_broken(const Script& script, const Course& course, const std::string& whose) {
  const std::string first_words = course.broken->substr(0, course.broken->find(':'));
  const Script small = shrunk(script, [&first_words](const Script& candidate) {
    const Course again = live(candidate);
    return again.broken && again.broken->starts_with(first_words);
  });
  ADD_FAILURE() << whose << " broke, at act " << course.acts << " of " << script.acts.size() << ": "
                << *course.broken << "\nThe same by " << small.acts.size()
                << " acts, as a test: " << *live(small).broken << "\n\nlives_well(Script"
                << text_of(small) << ");";
}

TEST(Lives, whatever_happens_what_must_hold_holds) {
  Course all;
  for (uint64_t seed = options.first_seed; seed < options.first_seed + options.lives; ++seed) {
    std::snprintf(living, sizeof living, "died in the life of seed %llu\n",
                  static_cast<unsigned long long>(seed));
    const Script script = script_of_seed(seed, options.acts);
    const Course course = live(script);
    if (course.broken) {
      report_broken(script, course, "the life of seed " + std::to_string(seed));
      return;
    }
    all.turns += course.turns;
    all.orders += course.orders;
    all.fills += course.fills;
    all.trades += course.trades;
    all.images += course.images;
  }
  std::printf(
      "%llu lives, %llu turns, %llu orders, %llu fills, %llu trades, %llu images\n",
      static_cast<unsigned long long>(options.lives), static_cast<unsigned long long>(all.turns),
      static_cast<unsigned long long>(all.orders), static_cast<unsigned long long>(all.fills),
      static_cast<unsigned long long>(all.trades), static_cast<unsigned long long>(all.images));
  // Lives in which nothing happens would prove nothing.
  EXPECT_GT(all.orders, options.lives * 5);
  EXPECT_GT(all.fills, options.lives * 2);
  EXPECT_GT(all.images, options.lives / 4);
}

TEST(Lives, the_same_seed_is_the_same_life) {
  for (uint64_t seed = 1; seed < 20; ++seed) {
    const Script script = script_of_seed(seed, 80);
    const Course one = live(script);
    const Course other = live(script);
    EXPECT_EQ(one.turns, other.turns);
    EXPECT_EQ(one.trades, other.trades);
    EXPECT_EQ(one.fills, other.fills);
  }
}

}  // namespace
}  // namespace lives

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const auto number_of = [&argument](std::string_view flag, uint64_t& number) {
      if (!argument.starts_with(flag)) return false;
      const std::string_view digits = argument.substr(flag.size());
      const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
      return read.ec == std::errc() && read.ptr == digits.data() + digits.size();
    };
    if (!number_of("--lives=", lives::options.lives) &&
        !number_of("--first-seed=", lives::options.first_seed) &&
        !number_of("--acts=", lives::options.acts)) {
      std::fprintf(stderr, "lives: unknown argument %s\n", argv[i]);
      return 2;
    }
  }
  for (const int deadly : {SIGABRT, SIGSEGV, SIGFPE, SIGBUS}) {
    struct sigaction action = {};
    action.sa_handler = lives::name_the_life;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(deadly, &action, nullptr);
  }
  return RUN_ALL_TESTS();
}
