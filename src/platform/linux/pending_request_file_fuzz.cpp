// Feeds arbitrary bytes to the pending-request reader, as a damaged or
// hand-edited file would: it must not crash, and what it accepts must come
// back the same through the writer and the reader.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <variant>

#include "platform/linux/pending_request_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  auto read = lumeo::decodePendingRequests(text);
  auto* requests = std::get_if<std::vector<lumeo::NotificationRequest>>(&read);
  if (!requests) return 0;
  for (const auto& r : *requests) {
    if (r.trigger.hour < 0 || r.trigger.hour > 23 || r.trigger.minute < 0 || r.trigger.minute > 59)
      std::abort();
  }
  auto again = lumeo::decodePendingRequests(lumeo::encodePendingRequests(*requests));
  auto* back = std::get_if<std::vector<lumeo::NotificationRequest>>(&again);
  if (!back || *back != *requests) std::abort();
  return 0;
}
