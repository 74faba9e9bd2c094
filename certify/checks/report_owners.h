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

  /// To be asked for every line, in order. Empty: unknown, or two CompIDs have used the name.
  const std::string& owner_of(const quorl::client::OrderEvent& order);

 private:
  static constexpr uint32_t NOBODY = 0;
  uint32_t index_of(const std::string& comp);

  std::vector<std::string> comps_{std::string()};
  std::unordered_map<std::string, uint32_t> by_name_;
  std::unordered_map<uint64_t, uint32_t> by_id_;
};

}  // namespace certify
