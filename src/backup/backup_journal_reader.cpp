// Straight reads of the journal file for the exports.
#include "backup/backup_journal_reader.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <optional>
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
  if (sqlite3_open_v2(storeFile.c_str(), &connection.db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                      nullptr) != SQLITE_OK) {
    return storeError(storeFile, connection.db ? sqlite3_errmsg(connection.db) : "out of memory");
  }
  sqlite3_busy_timeout(connection.db, 10000);
  // One pass over the whole file: map it rather than copy it page by page.
  sqlite3_exec(connection.db, "PRAGMA mmap_size = 1073741824", nullptr, nullptr, nullptr);
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
        // As MoodDescription reads them: a NULL (a NaN written by SQLite)
        // or non-number in either column is no place, both -1.
        const auto coordinate = [&](int column) -> std::optional<double> {
          const int type = sqlite3_column_type(records.stmt, column);
          if (type != SQLITE_FLOAT && type != SQLITE_INTEGER) return std::nullopt;
          const double degrees = sqlite3_column_double(records.stmt, column);
          if (!std::isfinite(degrees)) return std::nullopt;
          return degrees;
        };
        const auto latitude = coordinate(5);
        const auto longitude = coordinate(6);
        row.latitude = latitude && longitude ? *latitude : -1;
        row.longitude = latitude && longitude ? *longitude : -1;
      }
      rows.records.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) return storeError(storeFile, sqlite3_errmsg(connection.db));
  }
  if (!rows.records.empty()) {
    // Record numbers to positions: a table when the numbers are dense (the
    // usual journal), a hash map otherwise.
    std::int64_t maxPk = 0;
    for (const auto& row : rows.records) maxPk = std::max(maxPk, row.pk);
    const bool dense = maxPk <= static_cast<std::int64_t>(rows.records.size()) * 4 + 1024;
    std::vector<std::int32_t> table;
    std::unordered_map<std::int64_t, std::uint32_t> map;
    if (dense) {
      table.assign(static_cast<std::size_t>(maxPk) + 1, -1);
      for (std::size_t i = 0; i < rows.records.size(); ++i)
        table[static_cast<std::size_t>(rows.records[i].pk)] = static_cast<std::int32_t>(i);
    } else {
      map.reserve(rows.records.size());
      for (std::size_t i = 0; i < rows.records.size(); ++i)
        map.emplace(rows.records[i].pk, static_cast<std::uint32_t>(i));
    }
    auto position = [&](std::int64_t pk) -> std::int64_t {
      if (dense) return pk >= 0 && pk <= maxPk ? table[static_cast<std::size_t>(pk)] : -1;
      auto it = map.find(pk);
      return it == map.end() ? -1 : it->second;
    };
    // The links alone, without a join: records outside the range drop out
    // by the look-up above.
    Statement links;
    if (sqlite3_prepare_v2(connection.db, "SELECT _src, _dst FROM \"MoodRecord_moodTags\"", -1, &links.stmt,
                           nullptr) != SQLITE_OK) {
      return storeError(storeFile, sqlite3_errmsg(connection.db));
    }
    std::unordered_map<std::int64_t, std::uint32_t> tagIndex;
    std::vector<std::int64_t> tagPks;
    int rc;
    while ((rc = sqlite3_step(links.stmt)) == SQLITE_ROW) {
      const std::int64_t record = position(sqlite3_column_int64(links.stmt, 0));
      if (record < 0) continue;
      const std::int64_t tagPk = sqlite3_column_int64(links.stmt, 1);
      auto [it, added] = tagIndex.emplace(tagPk, static_cast<std::uint32_t>(tagPks.size()));
      if (added) tagPks.push_back(tagPk);
      rows.links.push_back({static_cast<std::uint32_t>(record), it->second});
    }
    if (rc != SQLITE_DONE) return storeError(storeFile, sqlite3_errmsg(connection.db));
    rows.tagNames.assign(tagPks.size(), std::string());
    if (!tagPks.empty()) {
      Statement names;
      if (sqlite3_prepare_v2(connection.db, "SELECT _pk, \"tagName\" FROM \"MoodTag\"", -1, &names.stmt,
                             nullptr) != SQLITE_OK) {
        return storeError(storeFile, sqlite3_errmsg(connection.db));
      }
      while ((rc = sqlite3_step(names.stmt)) == SQLITE_ROW) {
        auto it = tagIndex.find(sqlite3_column_int64(names.stmt, 0));
        if (it != tagIndex.end()) rows.tagNames[it->second] = columnText(names.stmt, 1).value_or("");
      }
      if (rc != SQLITE_DONE) return storeError(storeFile, sqlite3_errmsg(connection.db));
    }
    std::stable_sort(rows.links.begin(), rows.links.end(),
                     [](const JournalTagLink& a, const JournalTagLink& b) { return a.record < b.record; });
  }
  sqlite3_exec(connection.db, "COMMIT", nullptr, nullptr, nullptr);
  return rows;
}

}  // namespace lumeo
