// The documents of a backup and their readers. "backup.json" holds every
// record with its description and tags, in the layout the phone app
// writes, but with complete JSON escaping and two more fields ("timestamp",
// the exact instant, and "tagUnit"), so that every comment, name and value
// comes back byte for byte. "moods.json" is the level table as JSON;
// "reminders.json", "colors.json" and "emotions.xml" are XML property lists
// in spite of their names.
//
// The reader takes Lumeo's documents and those written by the phone app's
// looser rules (raw control characters, unescaped backslashes and names):
// its JSON parser is strict about structure and lenient about the text of
// strings. Records are read into a temporary store, "ModelTmp.sqlite",
// which only takes the journal's place once it is complete and checked
// (mood_dropbox_helper.h).
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/color.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

class JournalStore;
class ManagedObjectContext;
class MoodDescription;
class MoodRecord;
class MoodTag;
class UserDefaults;

inline constexpr char kBackupJSONFileName[] = "backup.json";
inline constexpr char kMoodsJSONFileName[] = "moods.json";
inline constexpr char kRemindersJSONFileName[] = "reminders.json";
inline constexpr char kColorsJSONFileName[] = "colors.json";
inline constexpr char kEmotionsXMLFileName[] = "emotions.xml";
inline constexpr char kTemporaryStoreFileName[] = "ModelTmp.sqlite";
// The unified date form of "date": local wall-clock time, 12-hour.
inline constexpr char kBackupDateFormat[] = "yyyy-MM-dd hh:mm:ss a";

// `text` as the inside of a JSON string: quote, backslash and every control
// character escaped; other bytes, UTF-8 or not, as they are.
std::string escapeJSONString(std::string_view text);

// Parses JSON: objects, arrays, strings, numbers, true, false, null, nested
// at most 256 deep. Inside strings, raw control characters are taken as
// they are and an unknown escape ("\q") stands for itself, as documents
// written without escaping need. Numbers without fraction or exponent are
// integers. kBackupDocumentUnreadable with the offset of the fault.
std::variant<Value, Error> parseLenientJSON(std::string_view text);
// JSON text of a value (pretty: two-space indentation, as "moods.json").
// Reals always carry a point or an exponent, so they read back as reals.
std::string jsonText(const Value& value, bool pretty);

// What a restore reads from the documents, checked, before anything of the
// journal is touched.
struct RestoredSettings {
  std::optional<Value::Array> moodTable;       // from moods.json
  std::optional<Value::Array> reminders;       // from reminders.json
  std::optional<std::array<Color, 3>> colors;  // from colors.json
  std::optional<Value::Array> emotions;        // from emotions.xml
};

class MoodJSONUtil {
 public:
  // --- Writing ------------------------------------------------------------
  // "backup.json" of every record of the store's main context.
  static std::string jsonCreateFile(JournalStore& store);
  static std::string jsonRecords(const std::vector<std::shared_ptr<MoodRecord>>& records);
  static std::string jsonRecord(const MoodRecord& record);
  static std::string jsonDescription(const MoodDescription* description);
  static std::string jsonTags(const std::vector<std::shared_ptr<MoodTag>>& tags);
  static std::string jsonTag(MoodTag& tag);
  // "moods.json": the level table in effect, pretty-printed.
  static std::string jsonMoodsFile(const Value::Array& moodTable);
  // "reminders.json", "colors.json", "emotions.xml": XML property lists.
  static std::variant<std::string, Error> remindersFile(const Value::Array& alarms);
  static std::variant<std::string, Error> jsonColorsFile(const Color& from, const Color& middle,
                                                         const Color& to);
  static std::variant<std::string, Error> emotionsFile(const Value::Array& emotions);

  // --- Reading ------------------------------------------------------------
  // The checksum a description gets for an image name (the image store of
  // the folder being restored); nothing for no name.
  using ChecksumForName = std::function<std::optional<std::string>(const std::optional<std::string>&)>;

  // Reads "backup.json" into a new store at `storeFile` (which must not
  // exist): every record, its description and its tags, in one save.
  // Returns the number of records, or kBackupDocumentUnreadable naming the
  // fault (not JSON, wrong types, a date that cannot be read, an image name
  // that is not a plain file name). On failure the store file is removed.
  static std::variant<std::size_t, Error> restoreBackupFromJSON(std::string_view document,
                                                                const std::filesystem::path& storeFile,
                                                                const ChecksumForName& checksum);
  // Inserts the records of the document into `context`; their number.
  static std::variant<std::size_t, Error> recordsFromJSONString(std::string_view document,
                                                                ManagedObjectContext& context,
                                                                const ChecksumForName& checksum);
  // The level table of "moods.json", checked to be one a property list
  // holds.
  static std::variant<Value::Array, Error> restoreBackupMoodsFromJSON(std::string_view document);
  // The reminder dictionaries of "reminders.json".
  static std::variant<Value::Array, Error> restoreRemindersFile(std::string_view document);
  // The three gradient colours of "colors.json".
  static std::variant<std::array<Color, 3>, Error> restoreColorsFromJSON(std::string_view document);
  // The feeling words of "emotions.xml".
  static std::variant<Value::Array, Error> restoreEmotionsFile(std::string_view document);
};

}  // namespace lumeo
