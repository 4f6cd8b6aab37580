// Lumeo's one property-list codec: the XML form of the settings file, the
// level table "mood.plist", the feeling words "emotions.plist" and the
// property-list documents of backups. It reads and writes the XML text
// itself, so that dates keep their full range (years 0000 to 9999), and it
// refuses what it could not give back. The format and its limits are in
// docs/settings.md.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/atomic_file.h"
#include "platform/date.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

inline constexpr char kPropertyListErrorDomain[] = "LumeoPropertyListErrorDomain";
enum PropertyListErrorCode : long {
  kPropertyListUnreadable = 1,   // not an XML property list (binary lists included)
  kPropertyListUnsupported = 2,  // a value that the file cannot hold as it is
};

// Containers nest at most this deep, in a file and in a value to write.
// Settings nest a few levels; deeper means damage, and following it would
// only exhaust the stack.
inline constexpr int kPropertyListMaxNesting = 256;

// The value of an XML property list, or kPropertyListUnreadable with the
// reason: malformed XML, an unknown element, text that is not UTF-8, a
// number or date out of range, nesting deeper than kPropertyListMaxNesting,
// or a binary property list (Lumeo writes none). Never throws, whatever the
// bytes.
std::variant<Value, Error> parsePropertyList(std::string_view data);

// Nothing if `value` can be written (and reads back equal, dates to the
// whole second), else
// kPropertyListUnsupported naming the reason: a null, text or a key that is
// not UTF-8 or holds control characters other than tab, line feed and
// carriage return, a real that is not finite, a date outside the years 0000
// to 9999, or nesting deeper than kPropertyListMaxNesting.
OptionalError checkPropertyListValue(const Value& value);

// The XML text of `value`, or the error of checkPropertyListValue.
std::variant<std::string, Error> xmlPropertyList(const Value& value);

// The list in a file; file errors (kFileNotFound, kFileReadFailed) come from
// the file domain, contents that do not parse from the property-list domain
// with userInfo "path".
std::variant<Value, Error> readPropertyListFile(const std::filesystem::path& path);
// Writes the list atomically, private to the user unless `access` says
// otherwise. Nothing is written when the value is refused.
OptionalError writePropertyListFile(const std::filesystem::path& path, const Value& value,
                                    FileAccess access = FileAccess::kPrivate);

// The date form of the files, "2026-11-23T10:15:30Z", in UTC. Written with
// whole seconds, cut towards the past, as every property-list reader expects
// them; read with an optional fraction ("…30.25Z") as some writers add one.
// Nothing for dates outside the years 0000 to 9999 and for other text.
std::optional<std::string> propertyListDateText(Date date);
std::optional<Date> parsePropertyListDate(std::string_view text);

}  // namespace lumeo
