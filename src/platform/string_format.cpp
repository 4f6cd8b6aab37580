// The "%@" conversion and the text of an instant for printf-style formats.
#include "platform/string_format.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace lumeo::format_detail {

ObjectConversions findObjectConversions(std::string_view format) {
  // Characters that may stand between '%' and the conversion letter.
  constexpr std::string_view kSpecifierBody = "0123456789$#-+ .*lhzjtL";
  ObjectConversions result;
  result.format.reserve(format.size());
  std::size_t nextArgument = 0;
  auto markObject = [&](std::size_t argument) {
    if (result.isObject.size() <= argument) result.isObject.resize(argument + 1, false);
    result.isObject[argument] = true;
  };
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      result.format.push_back(format[i]);
      continue;
    }
    if (i + 1 < format.size() && format[i + 1] == '%') {
      result.format += "%%";
      ++i;
      continue;
    }
    std::size_t end = i + 1;
    while (end < format.size() && kSpecifierBody.find(format[end]) != std::string_view::npos) ++end;
    std::string_view body = format.substr(i + 1, end - i - 1);
    // "%2$@" names its argument; otherwise conversions take them in turn,
    // and a '*' width or precision takes one of its own.
    std::size_t argument = nextArgument;
    std::size_t dollar = body.find('$');
    if (dollar != std::string_view::npos && dollar > 0) {
      argument =
          static_cast<std::size_t>(std::strtoul(std::string(body.substr(0, dollar)).c_str(), nullptr, 10)) -
          1;
    } else {
      for (char c : body) {
        if (c == '*') ++argument;
      }
      nextArgument = argument + 1;
    }
    result.format.append(format.substr(i, end - i));
    if (end < format.size()) {
      if (format[end] == '@') {
        result.format.push_back('s');
        markObject(argument);
      } else {
        result.format.push_back(format[end]);
      }
    }
    i = end;
  }
  return result;
}

std::string dateText(Date date) {
  double seconds = date.timeIntervalSince1970();
  double whole = std::floor(seconds);
  std::time_t t = static_cast<std::time_t>(whole);
  std::tm tm{};
  if (!gmtime_r(&t, &tm)) return std::to_string(seconds);
  int millis = static_cast<int>(std::lround((seconds - whole) * 1000));
  if (millis == 1000) millis = 999;  // stay within the second printed
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900, tm.tm_mon + 1,
                tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, millis);
  return text;
}

}  // namespace lumeo::format_detail
