// Reading, installing and editing the suggestion word list.
#include "capture/emotions_list.h"

#include <algorithm>

#include "capture/shipped_resources.h"
#include "platform/atomic_file.h"
#include "platform/log.h"
#include "platform/property_list.h"

namespace lumeo {

std::filesystem::path emotionsListURL(const std::filesystem::path& libraryDirectory) {
  return libraryDirectory / kEmotionsListFileName;
}

OptionalError installEmotionsListIfMissing(const std::filesystem::path& libraryDirectory) {
  const std::filesystem::path path = emotionsListURL(libraryDirectory);
  std::error_code ec;
  if (std::filesystem::exists(path, ec) || std::filesystem::is_symlink(path, ec)) return std::nullopt;
  return writeFileAtomically(path, shippedEmotionsList());
}

std::vector<std::string> readEmotionsList(const std::filesystem::path& libraryDirectory) {
  std::vector<std::string> words;
  auto list = readPropertyListFile(emotionsListURL(libraryDirectory));
  const Value* value = std::get_if<Value>(&list);
  if (!value || !value->asArray()) return words;
  for (const Value& word : *value->asArray()) {
    if (const std::string* s = word.asString()) words.push_back(*s);
  }
  return words;
}

bool removeTagFromEmotionsList(const std::filesystem::path& libraryDirectory, const std::string& name) {
  const std::filesystem::path path = emotionsListURL(libraryDirectory);
  auto list = readPropertyListFile(path);
  Value* value = std::get_if<Value>(&list);
  if (!value || !value->asArray()) return false;
  Value::Array& words = *value->asArray();
  const auto before = words.size();
  words.erase(std::remove_if(words.begin(), words.end(),
                             [&](const Value& w) { return w.asString() && *w.asString() == name; }),
              words.end());
  if (auto error = writePropertyListFile(path, *value)) {
    LUMEO_LOG_WARNING("Could not write the word list: %@", error->toString());
  }
  return words.size() != before;
}

}  // namespace lumeo
