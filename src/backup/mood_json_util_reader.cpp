// Reading the backup documents back: records into a temporary store, the
// settings documents into checked values. Every fault names what was
// wrong, so that a damaged backup is refused with a reason, before the
// journal is touched.
#include <cmath>
#include <cstdlib>
#include <unordered_map>

#include "backup/backup_journal_reader.h"
#include "backup/mood_json_util.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/text_folding.h"
#include "platform/date_formatter.h"
#include "platform/file_system.h"
#include "platform/property_list.h"
#include "platform/time_zone.h"
#include "store/journal_model.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo {

namespace {

Error unreadable(const std::string& document, const std::string& why) {
  return Error(kBackupErrorDomain, kBackupDocumentUnreadable, document + " " + why,
               {{"document", Value(document)}});
}

std::string recordLabel(std::size_t index) {
  return "record " + std::to_string(index + 1);
}

// A name of the image store: a plain file name, nothing that leads
// elsewhere.
bool isPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos && name.find('\\') == std::string::npos && name.size() <= 255;
}

struct RecordReader {
  ManagedObjectContext& context;
  const MoodJSONUtil::ChecksumForName& checksum;
  DateFormatter formatter;
  // Tags by name up to case and accents, as the journal keeps one tag per
  // such name.
  std::unordered_map<std::string, std::shared_ptr<MoodTag>> tags;

  std::optional<Error> read(const Value& element, std::size_t index) {
    const auto* dict = element.asDictionary();
    if (!dict) return unreadable("backup.json", recordLabel(index) + " is not an object");
    const Value& dateText = element["date"];
    const Value& timestamp = element["timestamp"];
    std::optional<Date> date;
    if (timestamp.type() == Value::Type::kInteger || timestamp.type() == Value::Type::kReal) {
      const double seconds = timestamp.toDouble();
      if (!std::isfinite(seconds) || std::fabs(seconds) > 1e12) {
        return unreadable("backup.json", recordLabel(index) + " has a timestamp out of range");
      }
      date = Date::fromTimeIntervalSince1970(seconds);
    } else if (!timestamp.isNull()) {
      return unreadable("backup.json", recordLabel(index) + " has a timestamp that is not a number");
    } else if (const std::string* text = dateText.asString()) {
      date = formatter.dateFromString(*text);
      if (!date)
        return unreadable("backup.json",
                          recordLabel(index) + " has a date that cannot be read: \"" + *text + "\"");
    } else {
      return unreadable("backup.json", recordLabel(index) + " has no date");
    }
    const Value& level = element["moodLevel"];
    if (level.type() != Value::Type::kInteger || level.toInt() < 1 || level.toInt() > 10) {
      return unreadable("backup.json", recordLabel(index) + " has no mood level from 1 to 10");
    }

    auto record = context.insertNewObject<MoodRecord>(kMoodRecordEntity);
    record->setDate(date);
    record->setMoodLevel(static_cast<long>(level.toInt()));
    auto description = context.insertNewObject<MoodDescription>(kMoodDescriptionEntity);
    const Value& descriptionValue = element["moodDescription"];
    if (!descriptionValue.isNull()) {
      const auto* fields = descriptionValue.asDictionary();
      if (!fields)
        return unreadable("backup.json", recordLabel(index) + " has a description that is not an object");
      if (auto error = readDescription(*fields, *description, index)) return error;
    }
    record->setMoodDescription(description);

    const Value& tagList = element["moodTags"];
    if (!tagList.isNull()) {
      const auto* array = tagList.asArray();
      if (!array) return unreadable("backup.json", recordLabel(index) + " has tags that are not a list");
      for (const Value& tagValue : *array) {
        const auto* tagFields = tagValue.asDictionary();
        const std::string* name = tagValue["tagName"].asString();
        if (!tagFields || !name || name->empty())
          return unreadable("backup.json", recordLabel(index) + " has a tag without a name");
        const std::string key = foldTextUTF8(*name, 3);
        auto& tag = tags[key];
        if (!tag) tag = context.insertNewObject<MoodTag>(kMoodTagEntity);
        // The last spelling read wins, as it would have on the phone.
        tag->setTagName(*name);
        const Value& frequency = tagValue["frequency"];
        if (!frequency.isNull() && !frequency.isNumber()) {
          return unreadable("backup.json", recordLabel(index) + " has a tag frequency that is not a number");
        }
        tag->setFrequency(static_cast<long>(frequency.toInt()));
        if (tagFields->count("tagUnit")) {
          const std::string* unit = tagFields->at("tagUnit").asString();
          if (!unit)
            return unreadable("backup.json", recordLabel(index) + " has a tag unit that is not text");
          tag->setTagUnit(*unit);
        }
        record->addMoodTagsObject(tag);
      }
    }
    return std::nullopt;
  }

  std::optional<Error> readDescription(const Value::Dictionary& fields, MoodDescription& description,
                                       std::size_t index) {
    auto text = [&](const char* key, std::optional<std::string>& out) -> std::optional<Error> {
      auto it = fields.find(key);
      if (it == fields.end() || it->second.isNull()) return std::nullopt;
      if (!it->second.asString()) {
        return unreadable("backup.json", recordLabel(index) + " has a " + key + " that is not text");
      }
      out = *it->second.asString();
      return std::nullopt;
    };
    std::optional<std::string> comment, thumb, photo;
    if (auto e = text("comment", comment)) return e;
    if (auto e = text("thumbName", thumb)) return e;
    if (auto e = text("photoName", photo)) return e;
    for (const auto* name : {&thumb, &photo}) {
      if (*name && !isPlainFileName(**name)) {
        return unreadable("backup.json", recordLabel(index) + " names a picture outside the image store: \"" +
                                             **name + "\"");
      }
    }
    description.setComment(comment);
    description.setThumbName(thumb);
    description.setPhotoName(photo);
    for (const char* key : {"latitude", "longitude"}) {
      auto it = fields.find(key);
      if (it == fields.end()) continue;
      double value = 0;
      if (const std::string* s = it->second.asString()) {
        char* end = nullptr;
        value = std::strtod(s->c_str(), &end);
        if (s->empty() || end != s->c_str() + s->size() || !std::isfinite(value)) {
          return unreadable("backup.json",
                            recordLabel(index) + " has a " + key + " that is not a number: \"" + *s + "\"");
        }
      } else if (it->second.type() == Value::Type::kInteger || it->second.type() == Value::Type::kReal) {
        value = it->second.toDouble();
      } else {
        return unreadable("backup.json", recordLabel(index) + " has a " + key + " that is not a number");
      }
      if (std::string(key) == "latitude") {
        description.setLatitude(value);
      } else {
        description.setLongitude(value);
      }
    }
    description.setThumbChecksum(checksum(thumb));
    description.setPhotoChecksum(checksum(photo));
    auto edited = fields.find("wasEdited");
    if (edited != fields.end() && !edited->second.isNull()) {
      if (!edited->second.isNumber())
        return unreadable("backup.json", recordLabel(index) + " has a wasEdited that is not a number");
      description.setWasEdited(edited->second.toBool());
    }
    return std::nullopt;
  }
};

}  // namespace

std::variant<std::size_t, Error> MoodJSONUtil::recordsFromJSONString(std::string_view document,
                                                                     ManagedObjectContext& context,
                                                                     const ChecksumForName& checksum) {
  auto parsed = parseLenientJSON(document);
  if (auto* error = std::get_if<Error>(&parsed)) {
    return unreadable("backup.json", "is " + error->description);
  }
  const auto* records = std::get<Value>(parsed).asArray();
  if (!records) return unreadable("backup.json", "is not a list of records");
  RecordReader reader{context, checksum, DateFormatter(kBackupDateFormat), {}};
  reader.formatter.setLocale("en_US");
  for (std::size_t i = 0; i < records->size(); ++i) {
    if (auto error = reader.read((*records)[i], i)) return *error;
  }
  return records->size();
}

std::variant<std::size_t, Error> MoodJSONUtil::restoreBackupFromJSON(std::string_view document,
                                                                     const std::filesystem::path& storeFile,
                                                                     const ChecksumForName& checksum) {
  std::variant<std::size_t, Error> result = std::size_t{0};
  {
    auto coordinator = std::make_shared<PersistentStoreCoordinator>(makeJournalModel());
    Value::Dictionary pragmas{{"journal_mode", Value("DELETE")}};
    Value::Dictionary options{{kMigratePersistentStoresAutomaticallyOption, Value(true)},
                              {kInferMappingModelAutomaticallyOption, Value(true)},
                              {kSQLitePragmasOption, Value(pragmas)}};
    OptionalError error;
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, storeFile, options, error);
    if (error) {
      result = Error(kBackupErrorDomain, kBackupWriteFailed,
                     "cannot make the temporary store " + storeFile.string() + ": " + error->description);
    } else {
      auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
      context->setPersistentStoreCoordinator(coordinator);
      result = recordsFromJSONString(document, *context, checksum);
      if (std::holds_alternative<std::size_t>(result)) {
        if (auto saveError = context->save()) {
          result = Error(kBackupErrorDomain, kBackupWriteFailed,
                         "cannot write the restored records: " + saveError->description);
        }
      }
      context->reset();
    }
  }
  if (std::holds_alternative<Error>(result)) {
    std::error_code ec;
    for (const char* suffix : {"", "-journal"}) {
      std::filesystem::path file = storeFile;
      file += suffix;
      std::filesystem::remove(file, ec);
    }
  }
  return result;
}

std::variant<Value::Array, Error> MoodJSONUtil::restoreBackupMoodsFromJSON(std::string_view document) {
  auto parsed = parseLenientJSON(document);
  if (auto* error = std::get_if<Error>(&parsed)) return unreadable("moods.json", "is " + error->description);
  const auto* table = std::get<Value>(parsed).asArray();
  if (!table) return unreadable("moods.json", "is not a list of levels");
  for (const Value& level : *table) {
    if (!level.asDictionary()) return unreadable("moods.json", "holds a level that is not an object");
  }
  if (auto error = checkPropertyListValue(Value(*table)))
    return unreadable("moods.json", "holds " + error->description);
  return *table;
}

std::variant<Value::Array, Error> MoodJSONUtil::restoreRemindersFile(std::string_view document) {
  auto parsed = parsePropertyList(document);
  if (auto* error = std::get_if<Error>(&parsed))
    return unreadable("reminders.json", "is " + error->description);
  const auto* alarms = std::get<Value>(parsed).asArray();
  if (!alarms) return unreadable("reminders.json", "is not a list of reminders");
  for (const Value& alarm : *alarms) {
    if (!alarm.asDictionary())
      return unreadable("reminders.json", "holds a reminder that is not a dictionary");
  }
  return *alarms;
}

std::variant<std::array<Color, 3>, Error> MoodJSONUtil::restoreColorsFromJSON(std::string_view document) {
  auto parsed = parsePropertyList(document);
  if (auto* error = std::get_if<Error>(&parsed)) return unreadable("colors.json", "is " + error->description);
  const auto* list = std::get<Value>(parsed).asArray();
  if (!list || list->size() != 3) return unreadable("colors.json", "is not a list of three colours");
  std::array<Color, 3> colors;
  for (std::size_t i = 0; i < 3; ++i) {
    const auto* triple = (*list)[i].asArray();
    if (!triple || triple->size() < 3)
      return unreadable("colors.json", "holds a colour that is not three numbers");
    for (const Value& component : *triple) {
      if (!component.isNumber())
        return unreadable("colors.json", "holds a colour component that is not a number");
    }
    // Single precision, as colour components are kept.
    colors[i] =
        Color(static_cast<float>((*triple)[0].toDouble()), static_cast<float>((*triple)[1].toDouble()),
              static_cast<float>((*triple)[2].toDouble()), 1.0);
  }
  return colors;
}

std::variant<Value::Array, Error> MoodJSONUtil::restoreEmotionsFile(std::string_view document) {
  auto parsed = parsePropertyList(document);
  if (auto* error = std::get_if<Error>(&parsed))
    return unreadable("emotions.xml", "is " + error->description);
  const auto* words = std::get<Value>(parsed).asArray();
  if (!words) return unreadable("emotions.xml", "is not a list");
  return *words;
}

}  // namespace lumeo
