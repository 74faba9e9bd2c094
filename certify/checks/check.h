#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "certify/plan/plan.h"
#include "certify/record/events.h"

namespace certify {

/// One thing the client got wrong.
struct Fault {
  TimeNs at = 0;                      // its place in the timeline
  std::string what;                   // a sentence
  std::vector<std::string> evidence;  // the messages, numbers and times that show it, a line each
};

enum class Outcome : uint8_t { PASSED, FAILED, NOT_SEEN, SKIPPED };

struct Verdict {
  std::string check;
  Outcome outcome = Outcome::NOT_SEEN;
  uint64_t occasions = 0;            // times that the client could get it right or wrong
  uint64_t fault_count = 0;          // all
  std::vector<Fault> faults;         // the first ten
  std::vector<std::string> remarks;  // what the reader should know though it is no fault
};

/// Judges one matter over one run. Keeps what it needs and no more: events are gone behind
/// on_event(). Memory grows at most with the number of orders and their reports.
class Check {
 public:
  virtual ~Check() = default;
  virtual void on_event(const Event& event) = 0;
  /// No event comes any more.
  virtual void finish(TimeNs at) = 0;

  Verdict verdict() const;

  explicit Check(std::string name) { verdict_.check = std::move(name); }

 protected:
  void seen() { ++verdict_.occasions; }
  void blame(Fault fault);
  void remark(std::string text);

 private:
  Verdict verdict_;
};

/// What a check may know besides events.
struct CheckContext {
  const Plan& plan;
  uint32_t feed_session = 0;
  std::string market_truth;  // path of the market truth file
};

struct CheckKind {
  const char* name;     // "session.test_request"
  const char* meaning;  // one sentence, of a good client
  std::unique_ptr<Check> (*make)(const char* name, const CheckContext& context);
};

// One table for each group, in its own file.
std::span<const CheckKind> session_checks();
std::span<const CheckKind> order_checks();
std::span<const CheckKind> recovery_checks();
std::span<const CheckKind> feed_checks();
std::span<const CheckKind> belief_checks();

/// All of them, in this order.
std::vector<CheckKind> all_checks();

/// All checks over one run.
class Judge : public EventListener {
 public:
  explicit Judge(const CheckContext& context);
  void on_event(const Event& event) override;
  std::vector<Verdict> finish(TimeNs at);  // skipped ones by the plan are SKIPPED

 private:
  const Plan& plan_;
  std::vector<std::unique_ptr<Check>> checks_;
};

}  // namespace certify
