// Straight reads of the journal file for the exports.
#include "backup/backup_journal_reader.h"

#include <sqlite3.h>

#include <unordered_map>

namespace lumeo {

namespace {

Error storeError(const std::filesystem::path& file, const std::string& why) {
  return Error(kBackupErrorDomain, kBackupStoreUnreadable,
               "cannot read the journal " + file.string() + ": " + why, {{"path", Value(file.string())}});
}

struct Statement {
  sqlite3_stmt* stmt = nullptr;
  ~Statement() { sqlite3_finalize(stmt); }
};

struct Connection {
  sqlite3* db = nullptr;
  ~Connection() { sqlite3_close(db); }
};

std::optional<std::string> columnText(sqlite3_stmt* stmt, int column) {
  if (sqlite3_column_type(stmt, column) == SQLITE_NULL) return std::nullopt;
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
  return std::string(text ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(stmt, column)));
}

}  // namespace

std::variant<JournalRows, Error> readJournalRows(const std::filesystem::path& storeFile, Date from, Date to) {
  Connection connection;
  if (sqlite3_open_v2(storeFile.c_str(), &connection.db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    return storeError(storeFile, connection.db ? sqlite3_errmsg(connection.db) : "out of memory");
  }
  sqlite3_busy_timeout(connection.db, 10000);
  JournalRows rows;
  // One read transaction for both queries, so that a writer in between
  // cannot make the tags disagree with the records.
  if (sqlite3_exec(connection.db, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return storeError(storeFile, sqlite3_errmsg(connection.db));
  }
  {
    Statement records;
    const char* sql =
        "SELECT r._pk, r.date, r.moodLevel, d._pk, d.comment, d.latitude, d.longitude "
        "FROM \"MoodRecord\" r LEFT JOIN \"MoodDescription\" d ON d._pk = r.\"moodDescription\" "
        "WHERE r.date >= ?1 AND r.date <= ?2 ORDER BY r.date, r._pk";
    if (sqlite3_prepare_v2(connection.db, sql, -1, &records.stmt, nullptr) != SQLITE_OK) {
      return storeError(storeFile, sqlite3_errmsg(connection.db));
    }
    sqlite3_bind_double(records.stmt, 1, from.timeIntervalSince1970());
    sqlite3_bind_double(records.stmt, 2, to.timeIntervalSince1970());
    int rc;
    while ((rc = sqlite3_step(records.stmt)) == SQLITE_ROW) {
      JournalRow row;
      row.pk = sqlite3_column_int64(records.stmt, 0);
      row.date = Date::fromTimeIntervalSince1970(sqlite3_column_double(records.stmt, 1));
      row.moodLevel = static_cast<long>(sqlite3_column_int64(records.stmt, 2));
      row.hasDescription = sqlite3_column_type(records.stmt, 3) != SQLITE_NULL;
      if (row.hasDescription) {
        row.comment = columnText(records.stmt, 4);
        row.latitude =
            sqlite3_column_type(records.stmt, 5) == SQLITE_NULL ? -1 : sqlite3_column_double(records.stmt, 5);
        row.longitude =
            sqlite3_column_type(records.stmt, 6) == SQLITE_NULL ? -1 : sqlite3_column_double(records.stmt, 6);
      }
      rows.records.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) return storeError(storeFile, sqlite3_errmsg(connection.db));
  }
  if (!rows.records.empty()) {
    std::unordered_map<std::int64_t, std::size_t> index;
    index.reserve(rows.records.size());
    for (std::size_t i = 0; i < rows.records.size(); ++i) index.emplace(rows.records[i].pk, i);
    Statement tags;
    const char* sql =
        "SELECT j._src, t._pk, t.\"tagName\" FROM \"MoodRecord_moodTags\" j "
        "JOIN \"MoodTag\" t ON t._pk = j._dst JOIN \"MoodRecord\" r ON r._pk = j._src "
        "WHERE r.date >= ?1 AND r.date <= ?2";
    if (sqlite3_prepare_v2(connection.db, sql, -1, &tags.stmt, nullptr) != SQLITE_OK) {
      return storeError(storeFile, sqlite3_errmsg(connection.db));
    }
    sqlite3_bind_double(tags.stmt, 1, from.timeIntervalSince1970());
    sqlite3_bind_double(tags.stmt, 2, to.timeIntervalSince1970());
    std::unordered_map<std::int64_t, std::uint32_t> tagIndex;
    int rc;
    while ((rc = sqlite3_step(tags.stmt)) == SQLITE_ROW) {
      const std::int64_t tagPk = sqlite3_column_int64(tags.stmt, 1);
      auto [it, added] = tagIndex.emplace(tagPk, static_cast<std::uint32_t>(rows.tagNames.size()));
      if (added) rows.tagNames.push_back(columnText(tags.stmt, 2).value_or(""));
      auto record = index.find(sqlite3_column_int64(tags.stmt, 0));
      if (record != index.end()) rows.records[record->second].tags.push_back(it->second);
    }
    if (rc != SQLITE_DONE) return storeError(storeFile, sqlite3_errmsg(connection.db));
  }
  sqlite3_exec(connection.db, "COMMIT", nullptr, nullptr, nullptr);
  return rows;
}

}  // namespace lumeo
