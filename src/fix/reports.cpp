#include "fix/reports.h"

#include <array>
#include <cassert>
#include <string>
#include <utility>

#include "base/clocks.h"
#include "base/text_writer.h"
#include "bench/scenario.h"
#include "bench/truth_log.h"
#include "fix/fix_codec.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr std::string_view NO_ORDER_ID = "NONE";

/// What the kinds of ExecutionReport differ in.
struct ExecReportArgs {
  std::string_view symbol;
  char exec_type;       // tag 150, and 39 always says the same
  bool is_held = true;  // false: the engine does not hold the order, it has no id
  uint32_t leaves = 0;
  uint32_t cum = 0;
  const Fill* fill = nullptr;
  std::string_view text = {};        // tag 58 when not empty
  std::string_view reason = {};      // tag 103 when not empty
  std::string_view cl_ord_id = {};   // of the request that is answered: tag 11; then 41 is the
                                     // order's
  bool renames = false;              // from now on the order has that ClOrdID
  std::string_view truth_text = {};  // of the order event
};

std::string_view event_word(char exec_type) {
  switch (exec_type) {
    case '0':
      return "new";
    case '5':
      return "replace";
    case '8':
      return "reject";
    case '4':
      return "cancel";
    default:
      return "fill";
  }
}

/// The digits of an order's id, or nothing for 0.
class OrderIdText {
 public:
  explicit OrderIdText(uint64_t id) {
    if (id != 0)
      size_ = static_cast<size_t>(TextWriter(text_.data()).number(id).position() - text_.data());
  }
  std::string_view view() const { return {text_.data(), size_}; }

 private:
  std::array<char, TextWriter::LONGEST_NUMBER> text_;
  size_t size_ = 0;
};

/// Memory for the body of one message, kept from one to the next.
char* body_memory(size_t most_bytes) {
  static std::string memory;
  if (memory.size() < most_bytes) memory.resize(most_bytes);
  return memory.data();
}

/// Begins the next field: closes the one before and writes its tag.
auto behind_soh(TextWriter& out) {
  return [&out](std::string_view tag) -> TextWriter& { return out.character(SOH).text(tag); };
}

/// In the order of the wire.
std::string_view exec_report_body(const Order& order, const ExecReportArgs& args,
                                  std::string_view order_id, uint32_t exec_id) {
  constexpr size_t MOST_BYTES_OF_FIXED_SIZE = 1024;  // all tags, numbers, prices and times
  const size_t most_bytes = MOST_BYTES_OF_FIXED_SIZE + args.symbol.size() + args.text.size() +
                            args.reason.size() + args.cl_ord_id.size() + order.cl_ord_id.size();
  char* const begin = body_memory(most_bytes);
  TextWriter out(begin);
  const auto next = behind_soh(out);
  const bool answers_request = !args.cl_ord_id.empty();
  out.text("37=").text(order_id.empty() ? NO_ORDER_ID : order_id);
  next("11=").text(answers_request ? args.cl_ord_id : std::string_view(order.cl_ord_id));
  next("17=E").number(exec_id);
  next("20=0");
  next("150=").character(args.exec_type);
  next("39=").character(args.exec_type);
  next("55=").text(args.symbol);
  next("54=").character(order.side);
  next("38=").number(order.qty);
  next("18=").character(order.exec_inst);
  next("40=").character(order.ord_type);
  next("47=").character(order.capacity);
  next("59=").character(order.tif);
  if (answers_request) next("41=").text(order.cl_ord_id);
  if (order.price != 0) put_price4(next("44="), order.price);
  next("32=").number(args.fill != nullptr ? args.fill->qty : 0);
  put_price4(next("31="), args.fill != nullptr ? args.fill->price : 0);
  next("151=").number(args.leaves);
  next("14=").number(args.cum);
  if (args.cum == 0) {
    next("6=").character('0');
  } else {
    put_price(next("6="), order.notional / args.cum);
  }
  next("60=").text(fix_timestamp().view());
  if (args.fill != nullptr) {
    next("30=").text(EXCHANGE_COMP_ID);
    next("375=").text(EXCHANGE_COMP_ID);
    next("382=1");
    next("851=").character(args.fill->liquidity);
    next("880=").number(args.fill->trade_id);
    next("9730=").text(args.fill->liquidity == '1' ? "ML" : "TL");
  }
  if (!args.text.empty()) next("58=").text(args.text);
  if (!args.reason.empty()) next("103=").text(args.reason);
  out.character(SOH);
  const auto size = static_cast<size_t>(out.position() - begin);
  assert(size <= most_bytes);
  return {begin, size};
}

/// Numbers and stores the message and adds its wire form to the outbox.
void prepare_app_message(const ReportTarget& to, char msg_type, std::string_view body) {
  FixStream& stream = to.stream;
  const uint32_t seq = stream.next_out++;
  stream.store.push({.sending_time_ns = system_ns(), .seq = seq, .msg_type = msg_type}, body);
  if (stream.store.size() > MAX_STORED_MESSAGES) stream.store.pop_front();
  compose_message({&msg_type, 1}, seq, EXCHANGE_COMP_ID, stream.comp_id, body, {}, to.out);
}

void build_exec_report(const ReportTarget& to, const Order& order, const ExecReportArgs& args) {
  const OrderIdText order_id(args.is_held ? order.id : 0);
  const std::string_view body =
      exec_report_body(order, args, order_id.view(), ++to.engine.next_exec_id);
  if (args.fill != nullptr) ++to.engine.scenario->counters.fills;
  write_order_event(to.engine,
                    {.ev = event_word(args.exec_type),
                     .cl = args.renames ? args.cl_ord_id : std::string_view(order.cl_ord_id),
                     .oid = order_id.view(),
                     .symbol = args.symbol,
                     .side = order.side == '1' ? 'B' : 'S',
                     .qty = order.qty,
                     .px = order.price,
                     .last_qty = args.fill != nullptr ? args.fill->qty : 0,
                     .cum = args.cum,
                     .leaves = args.leaves,
                     .text = args.truth_text,
                     .ref = args.renames ? std::string_view(order.cl_ord_id) : std::string_view()});
  prepare_app_message(to, '8', body);
}

/// `answered` is the request's ClOrdID where the order event names what it refers to.
void build_order_cancel_reject(const ReportTarget& to, const CancelReject& reject, char response_to,
                               std::string_view event, std::string_view answered) {
  constexpr size_t MOST_BYTES_OF_FIXED_SIZE = 128;
  const OrderIdText order_id(reject.order_id);
  write_order_event(to.engine, {.ev = event,
                                .cl = reject.orig_cl_ord_id,
                                .oid = order_id.view(),
                                .side = ' ',
                                .text = reject.text,
                                .ref = answered});

  const size_t most_bytes = MOST_BYTES_OF_FIXED_SIZE + reject.cl_ord_id.size() +
                            reject.orig_cl_ord_id.size() + reject.text.size();
  char* const begin = body_memory(most_bytes);
  TextWriter out(begin);
  const auto next = behind_soh(out);
  out.text("37=").text(reject.order_id == 0 ? NO_ORDER_ID : order_id.view());
  next("11=").text(reject.cl_ord_id);
  next("41=").text(reject.orig_cl_ord_id);
  next("39=").character(reject.ord_status);
  next("102=").character(reject.reason);
  next("434=").character(response_to);
  next("58=").text(reject.text);
  out.character(SOH);
  const auto size = static_cast<size_t>(out.position() - begin);
  assert(size <= most_bytes);
  prepare_app_message(to, '9', {begin, size});
}

}  // namespace

void build_new_report(const ReportTarget& to, const Order& order, std::string_view symbol) {
  build_exec_report(to, order, {.symbol = symbol, .exec_type = '0', .leaves = order.leaves});
}

void build_reject_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                         std::string_view text, std::string_view reason) {
  build_exec_report(to, order,
                    {.symbol = symbol,
                     .exec_type = '8',
                     .is_held = false,
                     .text = text,
                     .reason = reason,
                     .truth_text = text});
}

void build_fill_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                       const Fill& fill) {
  build_exec_report(to, order,
                    {.symbol = symbol,
                     .exec_type = order.leaves > 0 ? '1' : '2',
                     .leaves = order.leaves,
                     .cum = order.cum,
                     .fill = &fill});
}

void build_unmatched_report(const ReportTarget& to, const Order& order, std::string_view symbol) {
  constexpr std::string_view TEXT = "UnmatchedIOC";
  build_exec_report(
      to, order,
      {.symbol = symbol, .exec_type = '4', .cum = order.cum, .text = TEXT, .truth_text = TEXT});
}

void build_cancel_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                         std::string_view cl_ord_id) {
  build_exec_report(to, order,
                    {.symbol = symbol,
                     .exec_type = '4',
                     .cum = order.cum,
                     .cl_ord_id = cl_ord_id,
                     .truth_text = "cancel"});
}

void build_unsolicited_cancel_report(const ReportTarget& to, const Order& order,
                                     std::string_view symbol) {
  build_exec_report(to, order,
                    {.symbol = symbol,
                     .exec_type = '4',
                     .cum = order.cum,
                     .text = "AdminCancel",
                     .cl_ord_id = order.cl_ord_id,
                     .truth_text = "unsolicited"});
}

void build_replace_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                          std::string_view cl_ord_id) {
  build_exec_report(to, order,
                    {.symbol = symbol,
                     .exec_type = '5',
                     .leaves = order.leaves,
                     .cum = order.cum,
                     .cl_ord_id = cl_ord_id,
                     .renames = true});
}

void build_cancel_reject(const ReportTarget& to, const CancelReject& reject) {
  build_order_cancel_reject(to, reject, '1', "cancel_reject", {});
}

void build_replace_reject(const ReportTarget& to, const CancelReject& reject) {
  build_order_cancel_reject(to, reject, '2', "replace_reject", reject.cl_ord_id);
}

}  // namespace quorl
