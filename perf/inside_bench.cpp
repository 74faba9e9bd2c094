// What runs in one process without a socket: the FIX codec on the messages of an order's life. The
// clocks stand still, so that no reading of a clock is in the figures.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fix/fix_codec.h"
#include "fix/receive_buffer.h"

namespace quorl {
namespace {

constexpr std::string_view ANY_TIME = "20260101-00:00:00.000";

FixFieldList new_order_body() {
  return {{11, "R0012345"}, {55, "AAPL"}, {54, "1"}, {38, "100"}, {40, "2"},
          {44, "149.73"},   {59, "0"},    {18, "i"}, {47, "P"},   {60, ANY_TIME}};
}

FixFieldList accepted_body() {
  return {{37, "13345"}, {11, "R0012345"}, {17, "E12345"}, {20, "0"},      {150, "0"},
          {39, "0"},     {55, "AAPL"},     {54, "1"},      {38, "100"},    {18, "i"},
          {40, "2"},     {47, "P"},        {59, "0"},      {44, "149.73"}, {32, "0"},
          {31, "0"},     {151, "100"},     {14, "0"},      {6, "0"},       {60, ANY_TIME}};
}

std::string new_order_frame() {
  Outbox out;
  compose_message("D", 12345, "PERF", EXCHANGE_COMP_ID, new_order_body().wire(), {}, out);
  return std::string(out[0]);
}

/// Frames out of what one recv has brought: `range(0)` orders.
void cut_frames(benchmark::State& state) {
  std::string received;
  for (int64_t i = 0; i < state.range(0); ++i) received += new_order_frame();
  ReceiveBuffer buffer;
  std::string frame;
  for (auto _ : state) {
    buffer.append(received);
    int64_t frames = 0;
    while (extract_frame(buffer, frame)) ++frames;
    if (frames != state.range(0)) state.SkipWithError("a frame was lost");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(cut_frames)->Arg(1)->Arg(64);

void parse_a_new_order(benchmark::State& state) {
  const std::string frame = new_order_frame();
  FixFieldMap fields;
  for (auto _ : state) {
    parse_fields(frame, fields);
    benchmark::DoNotOptimize(fields.text(TAG_CL_ORD_ID));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(parse_a_new_order);

void compose_a_report(benchmark::State& state) {
  const FixFieldList body = accepted_body();
  uint32_t seq = 1;
  Outbox out;
  for (auto _ : state) {
    out.clear();
    compose_message("8", seq++, EXCHANGE_COMP_ID, "PERF", body.wire(), {}, out);
    benchmark::DoNotOptimize(out[0]);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(compose_a_report);

void list_the_fields_of_a_report(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(accepted_body());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(list_the_fields_of_a_report);

}  // namespace
}  // namespace quorl

BENCHMARK_MAIN();
