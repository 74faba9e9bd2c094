#pragma once

#include <string>

#include "certify/plan/plan.h"
#include "certify/plan/words.h"

namespace certify {

/// Terms joined by "and", up to the first word behind a term that is not "and". Throws Mistake.
Condition take_condition(Words& words);

/// Whether the next words are a term that stands without "when": a time, or the client's end.
bool begins_timed_term(const Words& words);

/// "logons >= 2 and quiet for 2s"; "at once" for none.
std::string condition_text(const Condition& condition);

}  // namespace certify
