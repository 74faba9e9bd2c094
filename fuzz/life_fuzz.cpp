#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "lives/act.h"
#include "lives/life.h"
#include "lives/shrink.h"

// A life of the whole exchange whose script is the input: four bytes of setup, eight bytes an act.
// After every turn what must hold is looked at. An input that breaks it is printed as a test.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const lives::Script script = lives::script_of_bytes({data, size});
  const lives::Course course = lives::live(script);
  if (!course.broken) return 0;
  const lives::Script small = lives::shrunk(script, [](const lives::Script& candidate) {
    return lives::live(candidate).broken.has_value();
  });
  // Standard output: standard error is the exchange's as a rule, and closed.
  std::printf("%s\n\nlives_well(Script%s);\n", course.broken->c_str(),
              lives::text_of(small).c_str());
  std::fflush(stdout);
  std::abort();
}
