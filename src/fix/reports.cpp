#include "fix/reports.h"

#include <utility>

#include "base/price4.h"
#include "bench/scenario.h"
#include "bench/truth_log.h"
#include "fix/fix_codec.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl {
namespace {

// One allocation for the fields of nearly every report.
constexpr size_t USUAL_REPORT_BYTES = 288;
constexpr size_t USUAL_FILL_BYTES = 384;
constexpr std::string_view NO_ORDER_ID = "NONE";

bool is_fill(char exec_type) { return exec_type == '1' || exec_type == '2'; }

std::string_view or_none(std::string_view order_id) {
  return order_id.empty() ? NO_ORDER_ID : order_id;
}

std::string exec_id_of(uint32_t number) {
  std::string text(1, 'E');
  text += std::to_string(number);
  return text;
}

std::string average_price(const Order& order, uint32_t cum) {
  return cum == 0 ? "0" : format_price(4, order.notional / cum);
}

void put_fill_fields(FixFieldList& fields, const ExecReportArgs& args) {
  fields.put(TAG_LAST_MKT, EXCHANGE_COMP_ID);
  fields.put(TAG_CONTRA_BROKER, EXCHANGE_COMP_ID);
  fields.put(TAG_NO_CONTRA_BROKERS, "1");
  fields.put(TAG_LAST_LIQUIDITY_IND, args.liquidity);
  fields.put_number(TAG_TRD_MATCH_ID, args.trade_id);
  fields.put(TAG_LIQUIDITY_MARK, args.liquidity == '1' ? "ML" : "TL");
}

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

std::string_view event_text(const ExecReportArgs& args) {
  if (!args.truth_text.empty()) return args.truth_text;
  if (!args.text.empty()) return args.text;
  return args.exec_type == '4' ? "cancel" : "";
}

}  // namespace

std::string prepare_app_message(Engine& engine, const Client& client, std::string_view msg_type,
                                FixFieldList fields) {
  FixStream& stream = engine.streams[client.comp_id];
  const uint32_t seq = stream.next_out++;
  stream.store.push_back({seq, std::string(msg_type), std::move(fields), fix_timestamp()});
  if (stream.store.size() > MAX_STORED_MESSAGES) stream.store.pop_front();
  return compose_message(msg_type, seq, EXCHANGE_COMP_ID, client.comp_id,
                         stream.store.back().fields, {});
}

std::string build_exec_report(Engine& engine, const ExecReportArgs& args) {
  const Order& order = args.order;
  const bool renamed = !args.new_cl_ord_id.empty();
  const bool answers_request = renamed || !args.cl_ord_id.empty();

  FixFieldList fields;
  fields.reserve(is_fill(args.exec_type) ? USUAL_FILL_BYTES : USUAL_REPORT_BYTES);
  fields.put(TAG_ORDER_ID, or_none(args.order_id));
  fields.put(TAG_CL_ORD_ID, renamed           ? args.new_cl_ord_id
                            : answers_request ? args.cl_ord_id
                                              : std::string_view(order.cl_ord_id));
  fields.put(TAG_EXEC_ID, exec_id_of(++engine.next_exec_id));
  fields.put(TAG_EXEC_TRANS_TYPE, "0");
  fields.put(TAG_EXEC_TYPE, args.exec_type);
  fields.put(TAG_ORD_STATUS, args.ord_status);
  fields.put(TAG_SYMBOL, args.symbol);
  fields.put(TAG_SIDE, order.side);
  fields.put_number(TAG_ORDER_QTY, order.qty);
  fields.put(TAG_EXEC_INST, order.exec_inst);
  fields.put(TAG_ORD_TYPE, order.ord_type);
  fields.put(TAG_RULE_80A, order.capacity);
  fields.put(TAG_TIME_IN_FORCE, order.tif);
  if (answers_request) fields.put(TAG_ORIG_CL_ORD_ID, order.cl_ord_id);
  if (order.price != 0) fields.put(TAG_PRICE, format_price4(order.price));
  fields.put_number(TAG_LAST_SHARES, args.last_qty);
  fields.put(TAG_LAST_PX, format_price4(args.last_px));
  fields.put_number(TAG_LEAVES_QTY, args.leaves);
  fields.put_number(TAG_CUM_QTY, args.cum);
  fields.put(TAG_AVG_PX, average_price(order, args.cum));
  fields.put(TAG_TRANSACT_TIME, fix_timestamp().view());
  if (is_fill(args.exec_type)) put_fill_fields(fields, args);
  if (!args.text.empty()) fields.put(TAG_TEXT, args.text);
  if (!args.rej_reason.empty()) fields.put(TAG_ORD_REJ_REASON, args.rej_reason);

  if (is_fill(args.exec_type)) ++engine.scenario->counters.fills;
  write_order_event(engine,
                    {.ev = event_word(args.exec_type),
                     .cl = renamed ? args.new_cl_ord_id : order.cl_ord_id,
                     .oid = args.order_id,
                     .symbol = args.symbol,
                     .side = order.side == '1' ? 'B' : 'S',
                     .qty = order.qty,
                     .px = order.price,
                     .last_qty = args.last_qty,
                     .cum = args.cum,
                     .leaves = args.leaves,
                     .text = event_text(args),
                     .ref = renamed ? std::string_view(order.cl_ord_id) : std::string_view()});
  return prepare_app_message(engine, args.client, "8", std::move(fields));
}

std::string build_cancel_reject(Engine& engine, const Client& client, std::string_view cl_ord_id,
                                std::string_view orig_cl_ord_id, std::string_view order_id,
                                char ord_status, char reason, char response_to,
                                std::string_view text, std::string_view truth_event) {
  const bool answers_replace = response_to == '2';
  write_order_event(engine, {.ev = truth_event,
                             .cl = orig_cl_ord_id,
                             .oid = order_id,
                             .side = ' ',
                             .text = text,
                             .ref = answers_replace ? cl_ord_id : std::string_view()});

  FixFieldList fields;
  fields.put(TAG_ORDER_ID, or_none(order_id));
  fields.put(TAG_CL_ORD_ID, cl_ord_id);
  fields.put(TAG_ORIG_CL_ORD_ID, orig_cl_ord_id);
  fields.put(TAG_ORD_STATUS, ord_status);
  fields.put(TAG_CXL_REJ_REASON, reason);
  fields.put(TAG_CXL_REJ_RESPONSE_TO, response_to);
  fields.put(TAG_TEXT, text);
  return prepare_app_message(engine, client, "9", std::move(fields));
}

}  // namespace quorl
