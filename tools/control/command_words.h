#pragma once

#include <string>
#include <vector>

namespace tools {

/// The words of a command as one datagram, one space between them.
std::string joined(const std::vector<std::string>& words);

/// Why the exchange cannot take this text as a command, or the empty text: nothing in it, or more
/// than it reads of a datagram.
std::string complaint_about(const std::string& command);

/// What the exchange will do with this command that its reply does not tell, or the empty text.
std::string caution_about(const std::string& command);

}  // namespace tools
