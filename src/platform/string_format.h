// Text from printf-style formats, the way the journal's messages, file names
// and log lines are written: "%@" stands for any value (text, number, Error,
// Date, path), the other conversions ("%d", "%ld", "%.1f", "%08x", "%1$@")
// work as in printf, checked against the argument types.
#pragma once

#include <fmt/args.h>
#include <fmt/printf.h>

#include <concepts>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/date.h"

namespace lumeo {

// A format that does not fit its arguments (too few, or a broken
// conversion): a programming error, reported with fmt's reason.
class FormatError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

namespace format_detail {

// The format as fmt reads it ("%@" turned into "%s") and which arguments,
// by position, a "%@" takes; fmt's own "%s" refuses numbers, so those
// arguments are turned into text first.
struct ObjectConversions {
  std::string format;
  std::vector<bool> isObject;
};
ObjectConversions findObjectConversions(std::string_view format);
// An instant as "2024-03-01T08:30:00.250Z" (UTC).
std::string dateText(Date date);

template <typename>
inline constexpr bool kUnformattable = false;

// What an argument prints as: numbers, text and pointers as they are; our
// values through their own text (an Error as "domain code: description"), a
// path as its string, a Date in UTC, an enum as its number.
template <typename T>
decltype(auto) formatArgument(const T& v) {
  if constexpr (std::is_arithmetic_v<T> || std::is_pointer_v<T> ||
                std::is_convertible_v<const T&, std::string_view>) {
    return v;
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<std::underlying_type_t<T>>(v);
  } else if constexpr (std::is_same_v<T, Date>) {
    return dateText(v);
  } else if constexpr (std::is_same_v<T, std::filesystem::path>) {
    return v.string();
  } else if constexpr (requires {
                         { v.toString() } -> std::convertible_to<std::string>;
                       }) {
    return std::string(v.toString());
  } else if constexpr (fmt::is_formattable<T>::value) {
    return fmt::format("{}", v);
  } else {
    static_assert(kUnformattable<T>, "give this type a toString() to format it");
  }
}

}  // namespace format_detail

namespace format_detail {
template <typename T>
void pushArgument(fmt::dynamic_format_arg_store<fmt::printf_context>& store, bool asObject, const T& v) {
  if (asObject) {
    store.push_back(fmt::format("{}", formatArgument(v)));
  } else {
    store.push_back(formatArgument(v));
  }
}
}  // namespace format_detail

// stringWithFormat("%@_%@.backup%@", device, date, suffix). Throws FormatError
// when the format does not fit the arguments.
template <typename... Args>
std::string stringWithFormat(std::string_view format, const Args&... args) {
  format_detail::ObjectConversions conversions = format_detail::findObjectConversions(format);
  fmt::dynamic_format_arg_store<fmt::printf_context> store;
  [[maybe_unused]] std::size_t index = 0;
  [[maybe_unused]] auto isObject = [&](std::size_t i) {
    return i < conversions.isObject.size() && conversions.isObject[i];
  };
  (format_detail::pushArgument(store, isObject(index++), args), ...);
  try {
    return fmt::vsprintf(conversions.format, store);
  } catch (const fmt::format_error& e) {
    throw FormatError(std::string(e.what()) + " in \"" + std::string(format) + "\"");
  }
}

}  // namespace lumeo
