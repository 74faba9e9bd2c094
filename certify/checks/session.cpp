#include "certify/checks/session.h"

#include "certify/checks/duplicates.h"

namespace certify {
namespace {

constexpr CheckKind KINDS[] = {
    {"session.frames",
     "Every message is a well-formed frame: 8, 9 and 10 at their places and right, no tag twice, "
     "nothing between messages.",
     make_frames_check},
    {"session.header",
     "Every message carries 35, 49, 56, 34 and 52, header fields first, 56=IEXG and one 49 on one "
     "connection.",
     make_header_check},
    {"session.times",
     "SendingTime (52) is UTC, near the time of day, and never goes back on a connection.",
     make_times_check},
    {"session.numbers",
     "MsgSeqNum (34) goes up by one with every message, over all connections, without hole or "
     "repeat.",
     make_numbers_check},
    {"session.logon",
     "A Logon with 98 and 108 comes first on a connection, with the next number, or with 141=Y and "
     "34=1.",
     make_logon_check},
    {"session.test_request", "A TestRequest is answered in time by a Heartbeat with the same 112.",
     make_test_request_check},
    {"session.heartbeats",
     "While logged on the client is never silent for longer than 108 says, and does not flood the "
     "line with Heartbeats.",
     make_heartbeats_check},
    {"session.resend_answered",
     "A ResendRequest is answered in time and in full: each number again with 43=Y and 122, or "
     "covered by a GapFill, and no session message again.",
     make_resend_answered_check},
    {"session.gap_asked",
     "A hole in the exchange's numbers is asked for in time, from its first number to its last.",
     make_gap_asked_check},
    {"session.asked_once",
     "Nothing is asked for that has long arrived, and nothing missing over and over.",
     make_asked_once_check},
    {"session.duplicates", "A message that comes again with 43=Y is not taken a second time.",
     make_duplicates_check},
    {"session.logout",
     "A Logout ends the talk: the client's own is waited for, and behind the exchange's nothing is "
     "said but the answer.",
     make_logout_check},
    {"session.reconnects", "The client does not storm the exchange with connections.",
     make_reconnects_check},
};

}  // namespace

std::span<const CheckKind> session_checks() { return KINDS; }

}  // namespace certify
