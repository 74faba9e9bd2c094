#include "stories/telling.h"

namespace stories {

void Telling::do_acts(const std::vector<const Step*>& steps) {
  demand_nothing_else();
  std::vector<Act> acts;
  std::vector<std::string> replies;
  for (const Step* const step : steps) {
    acts.push_back(act_of(*step));
    if (step->kind == Kind::CONTROL) replies.push_back(step->reply + "\n");
  }
  world_.act(acts);
  for (const Step* const step : steps) {
    if (step->kind == Kind::DISCONNECT || step->kind == Kind::RESET) open_.erase(step->connection);
  }
  const std::vector<std::string> came = world_.take_replies();
  for (size_t i = 0; i < came.size(); ++i) {
    if (i >= replies.size() || came[i] != replies[i]) fail("the control port says: " + came[i]);
  }
  if (came.size() != replies.size()) fail("the control port says nothing");
  collect();
}

Act Telling::act_of(const Step& step) {
  if (step.kind == Kind::CONTROL) return {.kind = step.kind, .bytes = names_.filled(step.words)};
  if (step.kind == Kind::CONNECT) {
    if (open_.contains(step.connection)) fail(step.connection + " is connected");
    fix_.begin_connection(step.connection);
    open_.insert(step.connection);
    return {.kind = step.kind, .connection = step.connection};
  }
  if (!open_.contains(step.connection)) fail(step.connection + " is not connected");
  Act act{.kind = step.kind, .connection = step.connection};
  if (step.kind == Kind::RAW) act.bytes = client::with_soh(names_.filled(step.words));
  if (step.kind == Kind::SEND) {
    act.kind = Kind::RAW;
    act.bytes = fix_.composed(step.connection, step.words, filled(step.fields));
  }
  return act;
}

std::vector<FieldWords> Telling::filled(const std::vector<FieldWords>& fields) const {
  std::vector<FieldWords> all = fields;
  for (FieldWords& field : all) field.value = names_.filled(field.value);
  return all;
}

}  // namespace stories
