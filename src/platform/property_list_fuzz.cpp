// Feeds arbitrary bytes to the property-list reader: it must not crash or
// hang, and whatever it reads and the writer accepts must read back equal.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto read = lumeo::parsePropertyList(std::string_view(reinterpret_cast<const char*>(data), size));
  const auto* value = std::get_if<lumeo::Value>(&read);
  if (!value || lumeo::checkPropertyListValue(*value)) return 0;
  auto xml = lumeo::xmlPropertyList(*value);
  if (!std::holds_alternative<std::string>(xml)) std::abort();
  auto back = lumeo::parsePropertyList(std::get<std::string>(xml));
  if (!std::holds_alternative<lumeo::Value>(back) || !(std::get<lumeo::Value>(back) == *value)) std::abort();
  return 0;
}
