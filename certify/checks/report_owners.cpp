#include "certify/checks/report_owners.h"

#include <algorithm>

namespace certify {

uint32_t ReportOwners::index_of(const std::string& comp) {
  const auto found = std::find(comps_.begin(), comps_.end(), comp);
  const auto index = static_cast<uint32_t>(found - comps_.begin());
  if (found == comps_.end()) comps_.push_back(comp);
  return index;
}

ReportOwners::User* ReportOwners::user_of(const std::string& name, uint32_t comp) {
  const auto users = by_name_.find(name);
  if (users == by_name_.end()) return nullptr;
  const auto user = std::find_if(users->second.begin(), users->second.end(),
                                 [comp](const User& one) { return one.comp == comp; });
  return user == users->second.end() ? nullptr : &*user;
}

void ReportOwners::sent(const WireMessage& message, const std::string& comp) {
  const uint32_t index = index_of(comp);
  for (const int tag : {11, 41}) {
    const std::string& name = message.value(tag);
    if (name.empty()) continue;
    User* const user = user_of(name, index);
    if (user == nullptr) by_name_[name].push_back({.comp = index});
    if (user != nullptr && tag == 11) user->again = true;
  }
}

void ReportOwners::heard(const WireMessage& message, const std::string& comp) {
  const auto id = message.number(37);
  if (!id) return;
  const uint32_t index = index_of(comp);
  by_id_[*id] = index;
  for (const int tag : {11, 41}) {
    User* const user = user_of(message.value(tag), index);
    if (user != nullptr && user->id == 0) user->id = *id;
  }
}

const std::string& ReportOwners::owner_of(const quorl::client::OrderEvent& order) {
  const auto by_id = by_id_.find(order.oid);
  if (order.oid != 0 && by_id != by_id_.end()) return comps_[by_id->second];
  const auto users = by_name_.find(order.cl);
  if (users == by_name_.end()) return comps_[NOBODY];
  // Who has been told of another order of that name has no part in this one.
  const User* only = nullptr;
  for (const User& user : users->second) {
    if (order.oid != 0 && users->second.size() > 1 && user.id != 0 && !user.again) continue;
    if (only != nullptr) return comps_[NOBODY];
    only = &user;
  }
  if (only == nullptr) return comps_[NOBODY];
  if (order.oid != 0 && users->second.size() == 1) by_id_[order.oid] = only->comp;
  return comps_[only->comp];
}

}  // namespace certify
