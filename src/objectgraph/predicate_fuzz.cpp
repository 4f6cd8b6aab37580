// Fuzz target of the predicate parser: any bytes as a format string, with a
// fixed set of arguments for its placeholders. Parsing must either succeed
// or throw PredicateSyntaxError (with an offset inside the input); a parsed
// predicate must print and evaluate on a dictionary without crashing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "objectgraph/predicate.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 4096) return 0;
  const std::string format(reinterpret_cast<const char*>(data), size);
  const std::vector<lumeo::PredicateValue> arguments = {
      lumeo::PredicateValue("date"),  lumeo::PredicateValue(5),
      lumeo::PredicateValue("Sl*p"),  lumeo::PredicateValue(std::vector<lumeo::PredicateValue>{1, 2, 3}),
      lumeo::PredicateValue(-1.0),    lumeo::PredicateValue(lumeo::Date::fromTimeIntervalSince1970(1e9)),
      lumeo::PredicateValue(nullptr), lumeo::PredicateValue("tagName"),
      lumeo::PredicateValue(7LL)};
  try {
    lumeo::Predicate p = lumeo::Predicate::predicateWithFormatArguments(format, arguments);
    lumeo::Value::Dictionary object{
        {"date", lumeo::Value(lumeo::Date::fromTimeIntervalSince1970(5))},
        {"tagName", lumeo::Value("Sleep")},
        {"frequency", lumeo::Value(3)},
        {"moodTags", lumeo::Value(lumeo::Value::Array{lumeo::Value("a"), lumeo::Value(2)})}};
    (void)p.evaluateWithObject(lumeo::Value(object));
    (void)p.predicateFormat();
  } catch (const lumeo::PredicateSyntaxError& e) {
    if (e.position() > size) std::abort();
  }
  return 0;
}
