#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "day/day_network.h"
#include "lives/act.h"
#include "market/engine.h"
#include "quorl/client/fix_message.h"

namespace lives {

/// The clients at the FIX port: a few accounts with a few connections, which do what the script
/// says. What they name they look up in the exchange itself, so that few bytes of script reach far.
class Traders {
 public:
  /// Both must outlive it.
  Traders(quorl::Engine& engine, day::Network& network, uint16_t port);

  /// Carries out an act at the FIX port; what is sent arrives in `turn`.
  void act(const Act& act, uint64_t turn);

 private:
  struct Link {
    size_t connection = 0;
    size_t account = 0;
    bool ended = false;     // by the client
    std::string rest = {};  // of a message of which half has been sent
  };
  struct Account {
    std::string name;
    uint32_t next_out = 1;
    uint32_t next_name = 1;
    std::vector<std::string> names;  // of orders sent
  };

  Link& link_for(uint8_t who, uint64_t turn);
  void log_on(Link& link, const Act& act, uint64_t turn);
  void order(Link& link, const Act& act, uint64_t turn);
  void cancel(Link& link, const Act& act, uint64_t turn);
  void replace(Link& link, const Act& act, uint64_t turn);
  void admin(Link& link, const Act& act, uint64_t turn);
  void resend(Link& link, const Act& act, uint64_t turn);
  void half(Link& link, const Act& act, uint64_t turn);
  void garbage(Link& link, const Act& act, uint64_t turn);
  void crowd(Link& link, const Act& act, uint64_t turn);

  std::string new_name(Account& account, uint8_t choice);
  std::string order_name(const Account& account, uint8_t choice) const;
  std::string near_touch(size_t stock, bool buy, uint8_t choice) const;
  quorl::client::FixFields order_fields(Account& account, const Act& act);
  std::string message(Account& account, const std::string& type,
                      const quorl::client::FixFields& body, uint8_t seq_choice);
  void send(Link& link, std::string bytes, uint64_t turn);

  quorl::Engine& engine_;
  day::Network& network_;
  const uint16_t port_;
  std::vector<Account> accounts_;
  std::vector<Link> links_;
};

}  // namespace lives
