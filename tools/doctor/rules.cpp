#include "tools/doctor/rules.h"

#include "tools/doctor/addresses.h"
#include "tools/doctor/numbers.h"
#include "tools/doctor/paths.h"
#include "tools/doctor/ports.h"
#include "tools/doctor/scenario.h"
#include "tools/doctor/start.h"
#include "tools/doctor/symbols.h"

namespace tools::doctor {
namespace {

using Rule = Findings (*)(const Start& start);

constexpr Rule RULES[] = {
    repeated_options,
    swallowed_options,
    misread_numbers,
    odd_floats,
    odd_burst,
    odd_group,
    odd_interface,
    unreachable_group,
    ports_of_zero,
    ports_used_twice,
    taken_tcp_ports,
    taken_udp_ports,
    unwritable_outputs,
    odd_outputs,
    odd_temporary_files,
    full_disks,
    outputs_in_one_file,
    outputs_of_others,
    scenario_words,
    scenario_numbers,
    scenario_repetitions,
    scenario_without_rule,
    empty_market,
    odd_symbols,
    same_symbols,
    odd_prices,
};

}  // namespace

Findings look_at(const Start& start) {
  Findings findings;
  for (const Rule rule : RULES) append(findings, rule(start));
  return findings;
}

}  // namespace tools::doctor
