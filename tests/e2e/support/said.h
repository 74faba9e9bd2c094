#pragma once

#include <string>

#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace e2e {

/// All fields from MsgType on but SendingTime and the trailer: "35=0|34=2|49=IEXG|56=ALPHA|".
std::string said(const client::FixMessage& message);

/// What stands between the header and the trailer, with TransactTime as "60=now".
std::string body_text(const client::FixMessage& message);

}  // namespace e2e
