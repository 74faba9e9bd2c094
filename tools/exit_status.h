#pragma once

namespace tools {

/// What the exit status of every tool says to a script.
enum ExitStatus : int {
  GOOD = 0,
  SAID_NO = 1,          // the exchange refused, or the tool found what it looked for
  USED_WRONGLY = 2,     // nothing has been done
  NOBODY_ANSWERED = 3,  // no exchange where it was looked for
};

}  // namespace tools
