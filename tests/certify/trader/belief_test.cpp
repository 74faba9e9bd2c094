#include "certify/trader/belief.h"

#include <gtest/gtest.h>

#include "quorl/client/json_lines.h"
#include "quorl/client/temp_directory.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;

class BeliefTest : public testing::Test {
 protected:
  void hears(const std::string& fields, ReportPlace place) {
    const client::FixMessage report(client::fix_fields(
        fields + "|35=8|37=1|55=AAPL|54=1|38=300|31=190|6=190|17=E" + std::to_string(place.seq)));
    desk.on_report(report, place, {});
    belief.note(report, place);
  }
  std::string names_of_events() const {
    std::string names;
    for (const auto& event : client::parse_order_events(client::read_file(files.events))) {
      names += event.ev + " ";
    }
    return names;
  }

  client::TempDirectory folder;
  BeliefFiles files{folder.path() + "/positions.csv", folder.path() + "/events.jsonl",
                    folder.path() + "/book.json"};
  Habits habits;
  OrderDesk desk;
  MarketView market;
  Belief belief{files, habits};
};

TEST_F(BeliefTest, positions_are_those_of_which_the_exchange_has_spoken) {
  desk.add({.name = "o1"});
  desk.add({.name = "never"});
  hears("11=o1|150=1|32=100|151=200|14=100", {1, 3});
  belief.write(desk, market, {1, 4});
  EXPECT_EQ(client::read_file(files.positions),
            "cl_ord_id,state,cum,leaves,avg_px\no1,partially_filled,100,200,190\n");
}

TEST_F(BeliefTest, events_wait_for_what_is_missing_before_them) {
  hears("11=o2|41=o1|150=5|32=0|151=0|14=300", {1, 5});
  hears("11=o1|150=0|32=0|151=300|14=0", {1, 2});
  belief.write(desk, market, {1, 3});
  EXPECT_EQ(names_of_events(), "new ");
  hears("11=o2|150=1|32=100|151=200|14=100", {1, 3});
  hears("11=o2|150=2|32=200|151=0|14=300", {1, 4});
  belief.write(desk, market, {1, 6});
  EXPECT_EQ(names_of_events(), "new fill fill replace ");
}

TEST_F(BeliefTest, at_the_end_nothing_waits) {
  hears("11=o1|150=0|32=0|151=300|14=0", {2, 7});
  belief.finish(desk, market);
  EXPECT_EQ(names_of_events(), "new ");
}

TEST_F(BeliefTest, without_a_feed_there_is_no_book_to_believe_in) {
  belief.finish(desk, market);
  EXPECT_EQ(client::read_file(files.book), "");
}

}  // namespace
}  // namespace certify::trader
