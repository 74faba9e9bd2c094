#pragma once

#include <string>

namespace tools {

/// Lets nothing that is opened later take the number of a standard stream that was closed when the
/// program began: what is said there would go into a file or a connection. To read from it finds
/// its end, to write to it fails, as to a closed one. To be called before anything is opened.
void hold_closed_standard_streams();

/// To be asked at the end of `program`. If not all of standard output could be written, as on a
/// full disk, says so, and a status of GOOD becomes SAID_NO; any other status is returned as it is.
int status_behind_output(const std::string& program, int status);

}  // namespace tools
