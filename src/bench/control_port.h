#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace quorl {

struct Engine;

/// What the control commands work on. Borrows all of it.
struct ControlTargets {
  Engine& engine;
  int32_t& interval_ms;  // of the walk; 0 is every turn, negative is never
  bool session_up;       // any client is connected and logged on
};

/// A non-blocking UDP socket on 127.0.0.1 and the line that says so. -1 for port 0, and after a
/// failed bind, which is said on standard error and leaves the run without a control port.
int open_control_port(uint16_t port);

/// Answers every datagram that waits on `fd`, which is bound to `port`, in order of arrival; an
/// empty one ends the service for this turn. One whose source is the port itself is passed over:
/// the answer would come back as the next command, for ever. `scratch` holds at least 512 bytes.
/// The command "stop" ends the process.
void serve_control_port(int fd, uint16_t port, const ControlTargets& targets,
                        std::span<char> scratch);

struct ControlReply {
  std::string text;    // whole, with its line end
  bool stops = false;  // the process ends once the reply is sent
};

/// Carries out one datagram's command line.
ControlReply run_control_command(std::string_view received, const ControlTargets& targets);

}  // namespace quorl
