// A real journal in a temporary folder for the backup and export tests:
// the store on its SQLite file, records with tags and places, and a
// canonical dump of everything a journal holds, to compare journals byte
// for byte.
#pragma once

#include <sqlite3.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/date.h"
#include "platform/md5.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

// Tests name only the fields a record needs: RecordSpec{.level = 7, ...}.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace lumeo::testing {

struct RecordSpec {
  long level = 5;
  Date date;
  std::optional<std::string> comment;
  std::vector<std::string> tags;
  double latitude = -1;
  double longitude = -1;
  std::optional<std::string> photoName;
  std::optional<std::string> thumbName;
  bool wasEdited = false;
  std::optional<std::string> tagUnit;  // given to every tag of the record
};

// Inserts the record (its tags found by name up to case, or made) without
// saving.
inline std::shared_ptr<MoodRecord> addRecord(JournalStore& store, const RecordSpec& spec) {
  auto record = store.insertRecordWithDescription();
  record->setMoodLevel(spec.level);
  record->setDate(spec.date);
  auto description = record->moodDescription();
  description->setComment(spec.comment);
  description->setLatitude(spec.latitude);
  description->setLongitude(spec.longitude);
  description->setPhotoName(spec.photoName);
  description->setThumbName(spec.thumbName);
  // Checksums as the capture path gives them: of the file, "" if missing.
  ImageStore images(store.storeURL().parent_path());
  description->setPhotoChecksum(images.checksumForName(spec.photoName));
  description->setThumbChecksum(images.checksumForName(spec.thumbName));
  description->setWasEdited(spec.wasEdited);
  for (const auto& name : spec.tags) {
    auto tag = store.tagNamed(name);
    if (!tag) {
      tag = store.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
      tag->setTagName(name);
    }
    if (spec.tagUnit) tag->setTagUnit(spec.tagUnit);
    record->addMoodTagsObject(tag);
  }
  return record;
}

// Text in a dump: every byte outside printable ASCII as \xNN, so that the
// dump shows any difference in a comment.
inline std::string dumpText(const unsigned char* text, int size) {
  if (!text) return "<null>";
  std::string out = "\"";
  for (int i = 0; i < size; ++i) {
    unsigned char c = text[i];
    if (c < 0x20 || c >= 0x7f || c == '\\' || c == '"') {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\x%02x", c);
      out += buffer;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

// Every field of every record, description and tag of the journal file
// (identifiers aside: they are the journal's own, not the user's data), one
// line per record, sorted; then the image files with their MD5. Dates are
// the exact instants.
inline std::string canonicalDump(const std::filesystem::path& library) {
  std::vector<std::string> lines;
  sqlite3* db = nullptr;
  const auto store = library / "Model.sqlite";
  if (std::filesystem::exists(store) &&
      sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    const char* sql =
        "SELECT r.date, r.moodLevel, d.comment, d.thumbName, d.thumbChecksum, d.photoName, d.photoChecksum, "
        "d.wasEdited, d.latitude, d.longitude, "
        "(SELECT group_concat(x, ' ') FROM (SELECT quote(t.tagName) || '/' || quote(t.tagUnit) || '/' || "
        "t.frequency AS x FROM \"MoodRecord_moodTags\" j JOIN \"MoodTag\" t ON t._pk = j._dst "
        "WHERE j._src = r._pk ORDER BY x)) "
        "FROM \"MoodRecord\" r LEFT JOIN \"MoodDescription\" d ON d._pk = r.\"moodDescription\"";
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK) {
      while (sqlite3_step(stmt) == SQLITE_ROW) {
        std::ostringstream line;
        char number[160];
        std::snprintf(number, sizeof number, "%.6f", sqlite3_column_double(stmt, 0));
        line << number << " level=" << sqlite3_column_int64(stmt, 1);
        const char* names[] = {"comment", "thumb", "thumbMD5", "photo", "photoMD5"};
        for (int c = 2; c <= 6; ++c) {
          line << " " << names[c - 2] << "="
               << dumpText(sqlite3_column_text(stmt, c), sqlite3_column_bytes(stmt, c));
        }
        std::snprintf(number, sizeof number, " edited=%lld lat=%.17g lon=%.17g",
                      static_cast<long long>(sqlite3_column_int64(stmt, 7)), sqlite3_column_double(stmt, 8),
                      sqlite3_column_double(stmt, 9));
        line << number << " tags=" << dumpText(sqlite3_column_text(stmt, 10), sqlite3_column_bytes(stmt, 10));
        lines.push_back(line.str());
      }
    } else {
      lines.push_back(std::string("unreadable store: ") + sqlite3_errmsg(db));
    }
    sqlite3_finalize(stmt);
  } else {
    lines.push_back("no store");
  }
  sqlite3_close(db);
  std::sort(lines.begin(), lines.end());
  std::vector<std::string> images;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(library / "imageStore", ec)) {
    images.push_back("~image " + entry.path().filename().string() + " " + md5HashOfPath(entry.path()));
  }
  std::sort(images.begin(), images.end());
  std::string out;
  for (const auto& line : lines) out += line + "\n";
  for (const auto& line : images) out += line + "\n";
  return out;
}

// Runs a shell command; its exit status.
inline int runCommand(const std::string& command) {
  int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace lumeo::testing
