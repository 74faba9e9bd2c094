#include "stories/spoilt.h"

#include <stdexcept>

namespace stories {
namespace {

// Two orders trade: everything a story can name happens in it.
const std::string TRUE_STORY = R"(
ALPHA > D 11=a1|55=AAPL|54=2|38=300|40=2|44=190.00|18=i
ALPHA < 8 150=0|37=$id
feed    5 300 @ 190.00 last
event   new a1 oid $id AAPL S 300 @ 190 cum 0 leaves 300 last 0 ""
control fill_on_cancel
ALPHA > F 11=c1|41=a1
ALPHA < 8 150=2|37=$id|32=300|!41
ALPHA < 9 37=$id|39=2
feed    T 300 @ 190.00 id $trade; 5 0 @ 190.00 last
log     bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too late to cancel')
event   fill a1 oid $id AAPL S 300 @ 190 cum 300 leaves 0 last 300 ""
event   cancel_reject a1 oid $id - - 0 @ 0 cum 0 leaves 0 last 0 "Too late to cancel"
BETA    > 1 112=x
BETA    < 0 112=x
BETA    > 5
BETA    < 5
BETA    closed
log     bench: client BETA logged out (0 resting order(s) kept)
counts  orders+1 accepts+1 race_fills+1 fills+1 cancel_rejects+1
)";

/// The true story but for one place, which is there exactly once.
Spoilt spoilt(const std::string& name, const std::string& from, const std::string& to,
              const std::string& failure) {
  std::string text = "story " + name + "\n" + TRUE_STORY;
  const size_t at = text.find(from);
  if (at == std::string::npos || text.find(from, at + 1) != std::string::npos) {
    throw std::logic_error("once in the true story: " + from);
  }
  return {name, text.replace(at, from.size(), to), failure};
}

}  // namespace

std::vector<Spoilt> spoilt_stories() {
  return {
      {"nothing_in_a_true_story", "story true\n" + TRUE_STORY, ""},
      // FIX.
      spoilt("a_report_not_named", "ALPHA < 8 150=0|37=$id\n", "", "not named: ALPHA hears 8=FIX"),
      spoilt("a_last_message_not_named", "BETA    < 0 112=x\n", "", "not named: BETA hears 8=FIX"),
      spoilt("a_report_that_does_not_come", "BETA    > 1 112=x\n", "", "BETA hears"),
      spoilt("another_type", "< 9 37=$id", "< 8 37=$id", "instead: 8=FIX"),
      spoilt("the_wrong_order", "ALPHA < 8 150=2|37=$id|32=300|!41\nALPHA < 9 37=$id|39=2",
             "ALPHA < 9 37=$id|39=2\nALPHA < 8 150=2|37=$id|32=300|!41", "instead: 8=FIX"),
      spoilt("a_wrong_field", "32=300", "32=200", "tag 32 is not so"),
      spoilt("a_field_that_is_absent", "32=300|!41", "41=a1", "tag 41 is not so"),
      spoilt("a_field_that_should_be_absent", "!41", "!32", "tag 32 is not so"),
      spoilt("another_than_the_bound_name", "< 9 37=$id", "< 9 37=$trade|11=$id", "tag 11 is not"),
      spoilt("a_number_left_out", "BETA    < 0 112=x", "BETA    < 0 34=3|112=x",
             "tag 34 is not so"),
      spoilt("a_close_not_named", "BETA    closed\n", "", "not named: BETA is closed"),
      spoilt("a_close_that_does_not_come", "BETA    > 5\nBETA    < 5\n", "", "BETA is not closed"),
      // A beginning.
      spoilt("an_order_that_does_not_rest",
             "ALPHA > D 11=a1|55=AAPL|54=2|38=300|40=2|44=190.00|18=i\n",
             "ALPHA rests 11=a1|55=AAPL|54=2|38=300|40=2|44=190.00|18=i|59=3\n", "no level"),
      spoilt("an_order_that_is_refused",
             "ALPHA > D 11=a1|55=AAPL|54=2|38=300|40=2|44=190.00|18=i\n",
             "ALPHA rests 11=a1|55=AAPL|54=2|38=0|40=2|44=190.00|18=i\n", "tag 150 is not so"),
      spoilt("an_order_that_trades", "BETA    > 1 112=x\n",
             "BETA rests 11=b1|55=AAPL|54=2|38=300|40=2|44=190.00|18=i\n"
             "ALPHA rests 11=a2|55=AAPL|54=1|38=100|40=2|44=190.00|18=i\n",
             "no order that rests but T 100"),
      // The feed.
      spoilt("a_trade_not_named", "T 300 @ 190.00 id $trade; ", "", "the feed shows: T 300"),
      spoilt("a_level_not_named", "feed    5 300 @ 190.00 last\n", "", "not named: the feed shows"),
      spoilt("a_level_that_does_not_come", "feed    5 300 @ 190.00 last",
             "feed    5 300 @ 190.00 last; 8 100 @ 189.00 last", "the feed does not show: 8 100"),
      spoilt("a_wrong_side", "5 300", "8 300", "the feed shows: 5 300"),
      spoilt("a_wrong_size", "5 300", "5 301", "the feed shows: 5 300"),
      spoilt("a_wrong_price", "5 0 @ 190.00", "5 0 @ 190.01", "the feed shows: 5 0 @ 190.00"),
      spoilt("a_wrong_flag", "5 0 @ 190.00 last", "5 0 @ 190.00", "the feed shows: 5 0 @ 190.00"),
      spoilt("a_wrong_trade_id", "id $trade", "id 9", "the feed shows: T 300 @ 190.00 id"),
      // Counters.
      spoilt("a_counter_not_named", " fills+1", "", "counter fills has risen by 1, not by 0"),
      spoilt("a_counter_that_stands", "fills+1 cancel", "fills+1 rejects+1 cancel",
             "counter rejects has risen by 0, not by 1"),
      spoilt("a_wrong_rise", "orders+1", "orders+2", "counter orders has risen by 1, not by 2"),
      spoilt("no_counters", "counts  orders+1 accepts+1 race_fills+1 fills+1 cancel_rejects+1", "",
             "counter orders has risen by 1, not by 0"),
      spoilt("a_counter_that_is_none", "orders+1", "orders+1 trades+1", "no counter trades"),
      // Standard error.
      spoilt("a_line_not_named",
             "log     bench: client BETA logged out (0 resting order(s) kept)\n", "",
             "standard error says bench: client BETA"),
      spoilt("a_wrong_line", "(0 resting", "(1 resting", "standard error says: bench: client BETA"),
      spoilt("a_line_that_does_not_come", "BETA    > 5\n", "log     bench: hello\nBETA    > 5\n",
             "standard error does not say: bench: hello"),
      // The order event file.
      spoilt("an_event_not_named",
             "event   new a1 oid $id AAPL S 300 @ 190 cum 0 leaves 300 last 0 \"\"\n", "",
             "not named: the order event file says new a1"),
      spoilt("a_wrong_event", "leaves 300 last 0", "leaves 300 last 1", "file says: new a1"),
      // The control port.
      spoilt("a_wrong_reply", "control fill_on_cancel", "control fill_on_cancel -> ok",
             "the control port says: ok fill_on_cancel"),
      spoilt("a_command_that_does_nothing", "control fill_on_cancel", "control stats_ -> ok stats_",
             "the control port says: err unknown command"),
  };
}

}  // namespace stories
