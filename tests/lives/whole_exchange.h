#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "day/day_network.h"
#include "day/day_outputs.h"
#include "driver/exchange.h"
#include "lives/machine.h"

namespace lives {

/// The whole exchange in memory, for a test that looks at what it does and in which order. Nothing
/// happens in it but what the test asks for: the market stands still and there is no control port,
/// unless the options say otherwise.
class WholeExchange {
 public:
  static constexpr day::Network::Ports PORTS{
      .fix = 7001, .snap = 7002, .control = 7003, .gap_fill = 7004};

  /// Constructed and not begun: its ports are open. `options` come behind those of this class;
  /// of the environment only what is given here is set.
  explicit WholeExchange(const std::vector<std::string>& options = {},
                         const std::map<std::string, std::string>& environment = {});
  ~WholeExchange();
  WholeExchange(const WholeExchange&) = delete;
  WholeExchange& operator=(const WholeExchange&) = delete;

  void begin();
  /// Begins if need be; one turn, behind so many ms in which nothing happened.
  void turn(uint64_t behind_ms = 0);
  /// The orderly end.
  void end();

  /// A FIX connection that has logged on, a turn later.
  size_t logs_on(const std::string& comp_id, int heartbeat_s);
  /// What can be read in the next turn: "35=1|34=2|..." gets its head and trailer.
  void says(size_t connection, const std::string& body);
  void sends(size_t connection, const std::string& bytes);
  static std::string image_request();

  /// All that has been done since the last look, in order: each call of a socket that changes
  /// something, such as "bind 7001", "accept FIX" or "send"; each "open", "write" and "log" of the
  /// machine.
  std::vector<std::string> take_acts();

  /// What the latest wait of the loop waited for: "FIX listener", "FIX 0" (with the number of the
  /// connection), "?" for a descriptor that is none of the exchange's.
  std::vector<std::string> waited_for;
  int waited_at_most_ms = -1;
  /// Waits for one connection that takes no more: "SNAP 0 for 1000 ms".
  std::vector<std::string> waits_for_room;

  Machine machine;
  day::Outputs outputs{""};
  day::Network network{PORTS, outputs};

 private:
  void note_act(int fd, std::string_view what);
  void note_wait(std::span<const pollfd> set, int timeout_ms);
  void add_act(std::string act);
  std::string name_of(int fd) const;

  std::vector<std::string> acts_;
  std::map<int, std::string> names_;  // of listeners and connections, while they are open
  size_t accepted_ = 0;
  bool has_begun_ = false;
  std::optional<quorl::Exchange> exchange_;
};

}  // namespace lives
