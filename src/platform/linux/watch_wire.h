// The watch link's wire format on Linux: one JSON object per line, each an
// envelope around a message dictionary (docs/watch-protocol.md):
//   {"id": 7, "message": {...}}      a message that waits for an answer
//   {"message": {...}}               a message without an answer
//   {"reply": 7, "message": {...}}   the answer to message 7
// Numbers without a fraction or exponent are integers; others are reals.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace lumeo::watch_wire {

// The longest line a peer may send, in bytes (without the line feed).
inline constexpr std::size_t kMaxLineBytes = 1 << 20;
// How deep arrays and objects may nest inside a message.
inline constexpr int kMaxDepth = 32;

struct Envelope {
  std::optional<std::int64_t> id;
  std::optional<std::int64_t> reply;
  Value::Dictionary message;
};

// Reads one line (without its line feed). Nothing for anything that is not
// an envelope as above: malformed JSON, another shape, an id that is not an
// integer, both an id and a reply, too deep a nesting, dates or data (JSON
// has neither).
std::optional<Envelope> parseLine(std::string_view line);
// One line, with its line feed. Dates travel as seconds since 1970 and
// data as arrays of byte values; neither occurs in the watch's messages.
std::string encodeLine(const Envelope& envelope);

}  // namespace lumeo::watch_wire
