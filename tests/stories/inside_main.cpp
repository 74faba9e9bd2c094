// Tells every story to the exchange in this process.
#include <gtest/gtest.h>

#include "stories/inside_world.h"
#include "stories/told.h"

namespace {

stories::Outcome tell_inside(const stories::Story& story) {
  stories::InsideWorld world(story);
  return stories::tell(story, world);
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  stories::register_stories("inside", /*is_inside=*/true, tell_inside);
  stories::register_spoilt_stories("inside", tell_inside);
  return RUN_ALL_TESTS();
}
