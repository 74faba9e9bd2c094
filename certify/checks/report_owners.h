#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "certify/checks/order_messages.h"

namespace certify {

/// Whose order an order event is about. The line does not say: it is known by the names that the
/// client has sent, and by the OrderIDs of what it has heard.
class ReportOwners {
 public:
  void sent(const WireMessage& message, const std::string& comp);
  void heard(const WireMessage& message, const std::string& comp);

  /// To be asked for every line, in order, and once more at the end of those that were not known.
  /// Empty: unknown, or several CompIDs have used the name and the line may be of more than one.
  const std::string& owner_of(const quorl::client::OrderEvent& order);

 private:
  static constexpr uint32_t NOBODY = 0;
  struct User {
    uint32_t comp = NOBODY;
    uint64_t id = 0;     // OrderID of what it used the name for; 0: not heard yet
    bool again = false;  // it has used the name for more than one thing, so that `id` says little
  };
  uint32_t index_of(const std::string& comp);
  User* user_of(const std::string& name, uint32_t comp);

  std::vector<std::string> comps_{std::string()};
  std::unordered_map<std::string, std::vector<User>> by_name_;
  std::unordered_map<uint64_t, uint32_t> by_id_;
};

}  // namespace certify
