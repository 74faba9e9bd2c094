// Tells every story to the real program.
#include <gtest/gtest.h>

#include <chrono>

#include "stories/real_world.h"
#include "stories/told.h"

namespace {

/// A run in which a stray Heartbeat has come proves nothing by its failure: it has taken a number
/// that the story knows nothing of.
stories::Outcome tell_undisturbed(const stories::Story& story, std::chrono::milliseconds patience) {
  constexpr int MOST_TELLINGS = 20;
  stories::Outcome outcome;
  for (int i = 0; i < MOST_TELLINGS; ++i) {
    stories::RealWorld world(story, patience);
    outcome = stories::tell(story, world);
    if (!outcome.failure || !outcome.disturbed) return outcome;
  }
  return outcome;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  stories::register_stories("real", /*is_inside=*/false, [](const stories::Story& story) {
    return tell_undisturbed(story, client::PATIENCE);
  });
  // What does not come in a spoilt story is not waited for as long as what must come.
  stories::register_spoilt_stories("real", [](const stories::Story& story) {
    constexpr std::chrono::milliseconds LITTLE_PATIENCE{2000};
    return tell_undisturbed(story, LITTLE_PATIENCE);
  });
  return RUN_ALL_TESTS();
}
