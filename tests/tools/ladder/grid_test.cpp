#include "tools/ladder/grid.h"

#include <gtest/gtest.h>

namespace ladder {
namespace {

TEST(Grid, puts_one_code_point_a_cell_and_tells_how_many) {
  Grid grid(1, 10);
  EXPECT_EQ(grid.put(0, 1, "▲ 1.5"), 5u);
  EXPECT_EQ(grid.at(0, 1).glyph, "▲");
  EXPECT_EQ(grid.text(false), " ▲ 1.5\n");
  EXPECT_EQ(grid.text(true), " ^ 1.5\n");
}

TEST(Grid, cuts_off_what_does_not_fit) {
  Grid grid(2, 4);
  grid.put(0, 2, "abcdef");
  grid.put(7, 0, "nowhere");
  grid.put(1, 0, "abcdef", Style::PLAIN, 2);
  EXPECT_EQ(grid.text(false), "  ab\nab\n");
  Grid(0, 0).put(0, 0, "nothing");
}

TEST(Grid, puts_text_flush_with_the_right_edge) {
  Grid grid(1, 8);
  grid.put_right(0, 0, 5, "42");
  EXPECT_EQ(grid.text(false), "   42\n");
  grid.put_right(0, 0, 5, "1234567");
  EXPECT_EQ(grid.text(false), "12345\n");
}

TEST(Grid, keeps_the_style_of_each_cell) {
  Grid grid(1, 3);
  grid.put(0, 0, "ab", Style::ALARM);
  EXPECT_EQ(grid.at(0, 1).style, Style::ALARM);
  EXPECT_EQ(grid.at(0, 2), Cell{});
}

TEST(Printable, lets_nothing_through_that_could_steer_a_terminal) {
  EXPECT_EQ(printable("AB\x1b[2J\x80\n~ "), "AB?[2J??~ ");
}

}  // namespace
}  // namespace ladder
