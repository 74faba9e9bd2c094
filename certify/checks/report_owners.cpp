#include "certify/checks/report_owners.h"

#include <algorithm>

namespace certify {

uint32_t ReportOwners::index_of(const std::string& comp) {
  const auto found = std::find(comps_.begin(), comps_.end(), comp);
  const auto index = static_cast<uint32_t>(found - comps_.begin());
  if (found == comps_.end()) comps_.push_back(comp);
  return index;
}

void ReportOwners::sent(const WireMessage& message, const std::string& comp) {
  const uint32_t index = index_of(comp);
  for (const int tag : {11, 41}) {
    const std::string& name = message.value(tag);
    if (name.empty()) continue;
    const auto [entry, is_new] = by_name_.try_emplace(name, index);
    if (!is_new && entry->second != index) entry->second = NOBODY;
  }
}

void ReportOwners::heard(const WireMessage& message, const std::string& comp) {
  const auto id = message.number(37);
  if (id) by_id_[*id] = index_of(comp);
}

const std::string& ReportOwners::owner_of(const quorl::client::OrderEvent& order) {
  if (order.oid != 0) {
    const auto by_id = by_id_.find(order.oid);
    if (by_id != by_id_.end()) return comps_[by_id->second];
  }
  const auto by_name = by_name_.find(order.cl);
  if (by_name == by_name_.end()) return comps_[NOBODY];
  if (order.oid != 0 && by_name->second != NOBODY) by_id_[order.oid] = by_name->second;
  return comps_[by_name->second];
}

}  // namespace certify
