#include "certify/run/no_plan.h"

#include <iostream>
#include <memory>

#include "certify/run/client_process.h"
#include "certify/run/exchange_process.h"
#include "certify/run/placeholders.h"
#include "certify/run/run_folder.h"
#include "certify/run/run_options.h"
#include "quorl/client/errors.h"
#include "quorl/client/temp_directory.h"
#include "tools/exit_status.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr int LOOK_AGAIN_MS = 20;
constexpr TimeNs END_PATIENCE = 5 * SECOND;

int complain(const std::string& what) {
  std::cerr << "quorl-certify: " << what << '\n';
  return tools::NOBODY_ANSWERED;
}

Surroundings surroundings_of(const ServingExchange& serving, const NoPlanOptions& options,
                             const std::string& folder) {
  const client::Ports& ports = serving.process->ports();
  return {.ports = {.fix = ports.fix, .images = ports.snap, .gap_fill = ports.gap_fill},
          .group = ports.group,
          .feed_port = ports.feed,
          .control_port = ports.control,
          .session = serving.session,
          .symbols = symbols_of(options.market),
          .folder = folder,
          .plan = ""};
}

ClientProcess::Command command_for(const NoPlanOptions& options, const Surroundings& around) {
  ClientProcess::Command command{.environment = client::own_environment()};
  for (const auto& [name, value] : variables_of(around)) command.environment[name] = value;
  for (const std::string& word : options.command) {
    command.arguments.push_back(filled_in(word, around));
  }
  command.program = found_program(command.arguments.front()).value_or(command.arguments.front());
  command.arguments.erase(command.arguments.begin());
  return command;
}

/// Until the command has ended, by itself or because of the signal.
void attend(ClientProcess& process, ExchangeProcess& exchange, const tools::StopSignal& stop) {
  bool told = false;
  while (!process.over(now_ns(), END_PATIENCE)) {
    std::vector<pollfd> set;
    exchange.collect(set);
    (void)::poll(set.data(), set.size(), LOOK_AGAIN_MS);
    (void)exchange.take_lines();
    if (stop.came()) process.ask_to_end(now_ns());
    if (const auto end = exchange.poll_exit(); end && !told) {
      told = true;
      complain("the exchange has ended: " + end->describe());
    }
  }
}

void end(ExchangeProcess& exchange) {
  exchange.ask_to_end();
  const TimeNs deadline = now_ns() + END_PATIENCE;
  while (!exchange.poll_exit() && now_ns() < deadline) {
    std::vector<pollfd> set;
    exchange.collect(set);
    (void)::poll(set.data(), set.size(), LOOK_AGAIN_MS);
    (void)exchange.take_lines();
  }
}

int run_in(const std::string& folder, const NoPlanOptions& options, const tools::StopSignal& stop) {
  const ServingExchange serving = serve_exchange(
      {.program = options.exchange,
       .market = options.market,
       .scenario = options.scenario,
       .folder = folder},
      stop.fd(), [](const client::Ports&) {}, [](const std::string&) {});
  ClientProcess process(command_for(options, surroundings_of(serving, options, folder)));
  attend(process, *serving.process, stop);
  end(*serving.process);
  if (stop.came()) return complain("stopped by a signal");
  if (process.could_not_run()) return complain("the command could not be run: " + process.how());
  return process.status() == client::ExitStatus{.exited = true} ? tools::GOOD : tools::SAID_NO;
}

}  // namespace

int run_without_plan(const NoPlanOptions& options, const tools::StopSignal& stop) {
  try {
    if (options.out.empty()) return run_in(client::TempDirectory().path(), options, stop);
    const RunFolder folder(options.out, "no-plan");
    const int status = run_in(folder.path(), options, stop);
    std::cerr << "quorl-certify: what the exchange wrote is in " << folder.path() << '\n';
    return status;
  } catch (const std::exception& failure) {
    return complain(failure.what());
  }
}

}  // namespace certify
