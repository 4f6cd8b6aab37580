// Reading and writing the small property-list files of capture: the level
// table "mood.plist" and the word list "emotions.plist". Reads accept XML
// and binary lists; writes are XML, atomic, so a crash never leaves half a
// table behind.
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/error.h"
#include "platform/image.h"
#include "platform/value.h"

namespace lumeo {

inline constexpr char kPropertyListErrorDomain[] = "LumeoPropertyListErrorDomain";
enum PropertyListErrorCode : long {
  kPropertyListUnreadable = 1,   // not a property list
  kPropertyListUnsupported = 2,  // a value that a property list cannot hold (null)
};

// The list in `data`, or an error of kPropertyListUnreadable.
OrError<Value> parsePropertyList(std::string_view data);
// The file's list; file errors (kFileNotFound, kFileReadFailed) come from
// the file domain, unparsable contents from the property-list domain.
OrError<Value> readPropertyListFile(const std::filesystem::path& path);

// XML text of `value`; an error when it holds a null anywhere.
OrError<std::string> xmlPropertyList(const Value& value);
OptionalError writePropertyListFile(const std::filesystem::path& path, const Value& value);

}  // namespace lumeo
