#pragma once

#include <stdexcept>
#include <string>

namespace quorl::client {

/// What arrived breaks its format or contradicts what arrived before.
class WireError : public std::runtime_error {
 public:
  explicit WireError(const std::string& what) : std::runtime_error(what) {}
};

/// What was waited for did not come before its deadline.
class Timeout : public std::runtime_error {
 public:
  explicit Timeout(const std::string& what) : std::runtime_error(what) {}
};

/// A call to the operating system failed; the text names the call and errno's meaning.
class SystemError : public std::runtime_error {
 public:
  explicit SystemError(const std::string& call);
};

}  // namespace quorl::client
