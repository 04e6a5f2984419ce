#pragma once
// Names of old-style (numeric) animation events.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zv {

struct EventName {
  std::optional<std::string> name;  // nothing when the id names no event
  bool unknown = false;             // the id is in no table
};

// The name of a numeric event: first from the per-model table (rows matching part of the
// model's file name), then from the generic table, where the footstep ids pick left or
// right by the option text. Any other id has no name and is unknown.
EventName lookupEventName(std::string_view modelFileName, int32_t id, std::string_view options);

// The word of the message for an event without a name: ids inside the families the
// generic table numbers (1000 to 9999) are events the runtime retired ("ignoring
// obsolete"); ids outside them are a title's own events ("imported with unknown": the
// sequence is imported, that event is not).
const char* unnamedEventWord(int32_t id, const EventName& lookup);

}  // namespace zv
