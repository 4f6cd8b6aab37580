// Lines a companion might send: whatever they hold, reading them and
// checking a "saveMood" must neither crash nor accept a bad message.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/watch_wire.h"
#include "watch/mood_watch_helper.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view line(reinterpret_cast<const char*>(data), size);
  auto envelope = lumeo::watch_wire::parseLine(line);
  if (!envelope) return 0;
  if (auto mood = lumeo::MoodWatchHelper::moodFromMessage(envelope->message)) {
    if (mood->level < 1 || mood->level > 10) __builtin_trap();
  }
  auto again = lumeo::watch_wire::parseLine(lumeo::watch_wire::encodeLine(*envelope));
  if (!again || again->message.size() != envelope->message.size()) __builtin_trap();
  return 0;
}
