// Reads the saved journal straight from its SQLite file, without making
// objects: the exports walk hundreds of thousands of records, and a managed
// object per record would cost more than the export itself. The tables are
// those of the object-graph store (docs/object-graph.md); the file is opened
// read-only, so an export never changes the journal.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/date.h"
#include "platform/error.h"

namespace lumeo {

inline constexpr char kBackupErrorDomain[] = "LumeoBackupErrorDomain";
enum BackupErrorCode : long {
  kBackupStoreUnreadable = 1,     // the journal file cannot be opened or read
  kBackupNotAnArchive = 2,        // not a zip file, empty, truncated
  kBackupHostileArchive = 3,      // a member outside the layout, a bomb, ...
  kBackupNoDocuments = 4,         // a zip without any of the documents
  kBackupDocumentUnreadable = 5,  // a document that does not parse or has wrong types
  kBackupMemberDamaged = 6,       // a member whose data does not match its CRC
  kBackupWriteFailed = 7,         // a file could not be written (disk full, ...)
  kBackupRestoredJournalBad = 8,  // the rebuilt journal failed its check
  kBackupForeignStore = 9,        // an old archive whose store Lumeo cannot read
  kBackupNotEnoughSpace = 10,     // the unpacked archive would not fit
};

struct JournalRow {
  std::int64_t pk = 0;
  Date date;
  long moodLevel = 0;
  std::optional<std::string> comment;
  double latitude = -1;
  double longitude = -1;
  bool hasDescription = false;
};

// Which record holds which tag: indexes into JournalRows::records and
// JournalRows::tagNames.
struct JournalTagLink {
  std::uint32_t record = 0;
  std::uint32_t tag = 0;
};

struct JournalRows {
  std::vector<JournalRow> records;    // by date, then by insertion
  std::vector<std::string> tagNames;  // every stored tag some record of the range holds, once
  std::vector<JournalTagLink> links;  // by record
};

// The records whose date lies in [from, to], with their descriptions and
// tags. kBackupStoreUnreadable when the file is missing or not a journal.
std::variant<JournalRows, Error> readJournalRows(const std::filesystem::path& storeFile, Date from, Date to);

}  // namespace lumeo
