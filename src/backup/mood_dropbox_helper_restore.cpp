// The restore: check, unpack, build and check the new journal beside the old
// one, keep the old one as an archive, then swap the files in with renames
// that are undone one by one if any step fails.
#include <sqlite3.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "backup/backup_archive_io.h"
#include "backup/backup_journal_reader.h"
#include "backup/mood_dropbox_helper.h"
#include "backup/mood_json_util.h"
#include "backup/zip_archive_scan.h"
#include "capture/mood_levels_presentation.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "platform/file_system.h"
#include "platform/md5.h"
#include "platform/notification_center.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

namespace {

// The journal's files that a restore replaces, in the library folder. The
// writer lock ("Model.sqlite.lock") is not among them: it belongs to the
// running command.
constexpr const char* kStoreFiles[] = {"Model.sqlite", "Model.sqlite-journal"};
constexpr const char* kSettingsKeys[] = {kAlarm, kMoodGradientEnabled, kMoodGradientFromColor,
                                         kMoodGradientMiddleColor, kMoodGradientToColor};

Error restoreError(long code, const std::string& message) {
  return Error(kBackupErrorDomain, code, message);
}

std::string megabytes(std::uint64_t bytes) {
  return std::to_string((bytes + (1 << 20) - 1) >> 20) + " MB";
}

void removeTree(const std::filesystem::path& path) {
  std::error_code ec;
  std::filesystem::remove_all(path, ec);
}

// "ok" from SQLite's own check, and the number of records.
std::variant<std::size_t, Error> checkStoreFile(const std::filesystem::path& file) {
  sqlite3* db = nullptr;
  std::variant<std::size_t, Error> result = std::size_t{0};
  if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    result = restoreError(kBackupRestoredJournalBad, "the restored journal cannot be opened");
  } else {
    sqlite3_stmt* stmt = nullptr;
    std::string verdict;
    if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &stmt, nullptr) == SQLITE_OK &&
        sqlite3_step(stmt) == SQLITE_ROW) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
      verdict = text ? text : "";
    }
    sqlite3_finalize(stmt);
    stmt = nullptr;
    if (verdict != "ok") {
      result =
          restoreError(kBackupRestoredJournalBad, "the restored journal failed SQLite's integrity check" +
                                                      (verdict.empty() ? "" : ": " + verdict));
    } else if (sqlite3_prepare_v2(db, "SELECT count(*) FROM \"MoodRecord\"", -1, &stmt, nullptr) ==
                   SQLITE_OK &&
               sqlite3_step(stmt) == SQLITE_ROW) {
      result = static_cast<std::size_t>(sqlite3_column_int64(stmt, 0));
    } else {
      result = restoreError(
          kBackupForeignStore,
          "the archive carries a store file that is not a Lumeo journal (a store of the phone app "
          "cannot be read here); nothing was changed");
    }
    sqlite3_finalize(stmt);
  }
  sqlite3_close(db);
  return result;
}

// Opens a store file as the journal does, so that one made by an older
// Lumeo is brought up to date before it takes the journal's place.
OptionalError openAsJournal(const std::filesystem::path& file) {
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(makeJournalModel());
  Value::Dictionary pragmas{{"journal_mode", Value("DELETE")}};
  Value::Dictionary options{{kMigratePersistentStoresAutomaticallyOption, Value(true)},
                            {kInferMappingModelAutomaticallyOption, Value(true)},
                            {kSQLitePragmasOption, Value(pragmas)}};
  OptionalError error;
  coordinator->addPersistentStoreWithType(kSQLiteStoreType, file, options, error);
  return error;
}

// One step of the swap, remembered so that it can be undone.
struct Move {
  std::filesystem::path from;
  std::filesystem::path to;
};

class Swap {
 public:
  OptionalError move(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (auto error = FileSystem::current()->rename(from, to)) return error;
    done_.push_back({from, to});
    return std::nullopt;
  }
  // Undoes every move, newest first. A move back that fails is tried
  // again: the journal's files must come back.
  void undo() {
    for (auto it = done_.rbegin(); it != done_.rend(); ++it) {
      for (int attempt = 0; attempt < 3; ++attempt) {
        if (!FileSystem::current()->rename(it->to, it->from)) break;
      }
    }
    done_.clear();
  }

 private:
  std::vector<Move> done_;
};

}  // namespace

std::variant<MoodDropboxHelper::UnpackedBackup, Error> MoodDropboxHelper::unpackBackup(
    const std::filesystem::path& path) {
  const BackupEnvironment& env = environment_;
  if (!env.store) return restoreError(kBackupStoreUnreadable, "no journal is open");
  auto fs = FileSystem::current();
  const std::string archiveLabel = path.filename().string();

  // 1. The archive as a whole, before anything is unpacked.
  auto scanned = scanBackupArchive(path);
  if (auto* error = std::get_if<Error>(&scanned)) {
    Error e = *error;
    e.description += "; nothing was changed";
    return e;
  }
  const ScannedArchive& scan = std::get<ScannedArchive>(scanned);
  auto has = [&](BackupMemberKind kind) {
    return std::any_of(scan.members.begin(), scan.members.end(), [&](auto& m) { return m.kind == kind; });
  };
  if (!has(BackupMemberKind::kJournalDocument) && !has(BackupMemberKind::kStoreFile)) {
    return restoreError(kBackupNoDocuments,
                        archiveLabel +
                            " is not a Lumeo backup: it holds neither backup.json nor Model.sqlite; "
                            "nothing was changed");
  }

  // 2. Room for the unpacked archive and for the copy of the current
  // journal; a full disk is found here rather than half-way.
  const std::filesystem::path home = env.library.parent_path();
  std::uint64_t journalBytes = 0;
  {
    std::error_code ec;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(env.library, ec)) {
      if (entry.is_regular_file(ec)) journalBytes += entry.file_size(ec);
    }
  }
  struct statvfs space {};
  if (::statvfs(home.c_str(), &space) == 0) {
    const std::uint64_t available = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
    const std::uint64_t needed = scan.totalUncompressed * 2 + journalBytes + (1 << 20);
    if (available < needed) {
      return restoreError(kBackupNotEnoughSpace, "not enough free space to restore " + archiveLabel +
                                                     ": it needs " + megabytes(needed) + ", " +
                                                     megabytes(available) + " are free; nothing was changed");
    }
  }

  // 3. Unpack into a working folder beside the library, on the same file
  // system, so that the swap is made of renames.
  const std::filesystem::path work = home / "Backup";
  removeTree(work);
  // Removed again on every failure; on success the caller removes it.
  struct Cleanup {
    std::filesystem::path path;
    ~Cleanup() {
      if (!path.empty()) removeTree(path);
    }
  } cleanup{work};
  if (auto error = fs->makeFolder(work, kPrivateFolderMode))
    return backupWriteError("cannot make the folder " + work.string(), *error);
  if (auto error = fs->makeFolder(work / "imageStore", kPrivateFolderMode)) {
    return backupWriteError("cannot make the folder " + work.string(), *error);
  }
  auto unpacked = unpackArchive(path, scan, work);
  if (auto* error = std::get_if<Error>(&unpacked)) {
    Error e = *error;
    e.description += "; nothing was changed";
    return e;
  }
  cleanup.path.clear();
  return UnpackedBackup{path, scan, std::move(std::get<UnpackedArchive>(unpacked)), work};
}

std::variant<RestoreResult, Error> MoodDropboxHelper::restoreUnpacked(const UnpackedBackup& unpacked) {
  const BackupEnvironment& env = environment_;
  auto fs = FileSystem::current();
  const std::string archiveLabel = unpacked.path.filename().string();
  const ScannedArchive& scan = unpacked.scan;
  const UnpackedArchive& archive = unpacked.archive;
  const std::filesystem::path& work = unpacked.work;
  const std::filesystem::path home = env.library.parent_path();
  auto document = [&](BackupMemberKind kind) -> const std::string* {
    auto it = archive.documents.find(kind);
    return it == archive.documents.end() ? nullptr : &it->second;
  };

  // 4. The new journal and settings, checked, in the working folder.
  RestoreResult result;
  result.images = archive.images;
  const auto newStore = work / kTemporaryStoreFileName;
  if (const std::string* json = document(BackupMemberKind::kJournalDocument)) {
    // The descriptions' checksums, of the pictures as unpacked; a name
    // without a picture gets "", as the image store gives it.
    std::map<std::string, std::string> checksums;
    for (const auto& member : scan.members) {
      if (member.kind != BackupMemberKind::kImage) continue;
      auto bytes = fs->readFile(work / member.relativePath);
      if (auto* error = std::get_if<Error>(&bytes)) {
        return backupWriteError(
            "cannot read the unpacked picture " + member.relativePath + "; nothing was changed", *error);
      }
      checksums[member.relativePath.substr(std::string("imageStore/").size())] =
          md5Hash(std::get<std::vector<std::uint8_t>>(bytes));
    }
    auto read =
        MoodJSONUtil::restoreBackupFromJSON(*json, newStore, [&](const std::optional<std::string>& name) {
          if (!name) return std::optional<std::string>();
          auto it = checksums.find(*name);
          return std::optional<std::string>(it == checksums.end() ? "" : it->second);
        });
    if (auto* error = std::get_if<Error>(&read)) {
      Error e = *error;
      e.description = archiveLabel + ": " + e.description + "; nothing was changed";
      return e;
    }
    result.records = std::get<std::size_t>(read);
    // An archive without records leaves the journal as it is, pictures
    // included; its settings still apply.
    result.journalReplaced = result.records > 0;
  } else {
    result.oldFormat = true;
    if (auto error = fs->rename(work / "Model.sqlite", newStore)) {
      return backupWriteError("cannot prepare the restored journal", *error);
    }
    auto counted = checkStoreFile(newStore);
    if (auto* error = std::get_if<Error>(&counted)) {
      Error e = *error;
      if (e.description.find("nothing was changed") == std::string::npos)
        e.description += "; nothing was changed";
      return e;
    }
    if (auto error = openAsJournal(newStore)) {
      return restoreError(kBackupForeignStore, archiveLabel + " carries a store file Lumeo cannot open (" +
                                                   error->description + "); nothing was changed");
    }
  }
  if (result.journalReplaced) {
    auto checked = checkStoreFile(newStore);
    if (auto* error = std::get_if<Error>(&checked)) {
      Error e = *error;
      e.description += "; nothing was changed";
      return e;
    }
    result.records = std::get<std::size_t>(checked);
  }
  RestoredSettings settings;
  if (const std::string* text = document(BackupMemberKind::kMoodsDocument)) {
    auto r = MoodJSONUtil::restoreBackupMoodsFromJSON(*text);
    if (auto* e = std::get_if<Error>(&r))
      return restoreError(e->code, archiveLabel + ": " + e->description + "; nothing was changed");
    settings.moodTable = std::get<Value::Array>(r);
  }
  if (const std::string* text = document(BackupMemberKind::kRemindersDocument)) {
    auto r = MoodJSONUtil::restoreRemindersFile(*text);
    if (auto* e = std::get_if<Error>(&r))
      return restoreError(e->code, archiveLabel + ": " + e->description + "; nothing was changed");
    settings.reminders = std::get<Value::Array>(r);
  }
  if (const std::string* text = document(BackupMemberKind::kColorsDocument)) {
    auto r = MoodJSONUtil::restoreColorsFromJSON(*text);
    if (auto* e = std::get_if<Error>(&r))
      return restoreError(e->code, archiveLabel + ": " + e->description + "; nothing was changed");
    settings.colors = std::get<std::array<Color, 3>>(r);
  }
  Value::Array emotions;
  if (const std::string* text = document(BackupMemberKind::kEmotionsDocument)) {
    auto r = MoodJSONUtil::restoreEmotionsFile(*text);
    if (auto* e = std::get_if<Error>(&r))
      return restoreError(e->code, archiveLabel + ": " + e->description + "; nothing was changed");
    emotions = std::get<Value::Array>(r);
  } else {
    // A backup without feeling words brings back the shipped ones.
    auto shipped = readPropertyListFile(env.resources / "emotions.plist");
    if (auto* error = std::get_if<Error>(&shipped)) {
      return backupWriteError("cannot read the shipped feeling words; nothing was changed", *error);
    }
    if (const auto* words = std::get<Value>(shipped).asArray()) emotions = *words;
  }
  if (settings.moodTable) {
    if (auto error = writePropertyListFile(work / "mood.plist", Value(*settings.moodTable))) {
      return backupWriteError("cannot prepare the level table", *error);
    }
  }
  if (auto error = writePropertyListFile(work / "emotions.plist", Value(emotions))) {
    return backupWriteError("cannot prepare the feeling words", *error);
  }

  // 5. The current journal, kept as an archive that restores it whole.
  const auto beforeRestore = home / kBeforeRestoreArchiveName;
  const auto beforeRestorePartial = home / ("." + std::string(kBeforeRestoreArchiveName) + ".partial");
  {
    std::error_code ec;
    std::filesystem::remove(beforeRestorePartial, ec);
    ArchiveContents old;
    MoodUserDefaultsOperator current(env.defaults);
    auto moodTable = moodTableForBackup(env.library, env.resources / "mood.plist");
    if (auto* error = std::get_if<Error>(&moodTable)) {
      return backupWriteError("cannot read the current level table; nothing was changed", *error);
    }
    old.documents.emplace_back("/moods.json", MoodJSONUtil::jsonMoodsFile(std::get<Value::Array>(moodTable)));
    if (auto xml = MoodJSONUtil::remindersFile(current.remindersAlarms());
        std::holds_alternative<std::string>(xml)) {
      old.documents.emplace_back("/reminders.json", std::get<std::string>(xml));
    }
    if (current.gradientColorEnabled()) {
      auto xml = MoodJSONUtil::jsonColorsFile(current.fromColor(), current.middleColor(), current.toColor());
      if (std::holds_alternative<std::string>(xml))
        old.documents.emplace_back("/colors.json", std::get<std::string>(xml));
    }
    auto words = readPropertyListFile(env.library / "emotions.plist");
    if (auto* error = std::get_if<Error>(&words); error && !error->is(kFileErrorDomain, kFileNotFound)) {
      return backupWriteError("cannot read the current feeling words; nothing was changed", *error);
    }
    if (auto* value = std::get_if<Value>(&words); value && value->asArray()) {
      auto xml = MoodJSONUtil::emotionsFile(*value->asArray());
      if (std::holds_alternative<std::string>(xml))
        old.documents.emplace_back("/emotions.xml", std::get<std::string>(xml));
    }
    // Saved changes only: the store file is what the journal is.
    env.store->saveContext();
    auto hasStore = presence(env.library / "Model.sqlite");
    if (auto* error = std::get_if<Error>(&hasStore)) {
      return backupWriteError("cannot read the current journal; nothing was changed", *error);
    }
    if (std::get<bool>(hasStore)) old.storeFile = env.library / "Model.sqlite";
    old.imageFolder = env.library / "imageStore";
    if (auto error = writeArchive(beforeRestorePartial, old)) {
      Error e = *error;
      e.description = "cannot keep a copy of the current journal: " + e.description + "; nothing was changed";
      return e;
    }
  }
  struct PartialCleanup {
    std::filesystem::path path;
    ~PartialCleanup() {
      std::error_code ec;
      std::filesystem::remove(path, ec);
    }
  } partialCleanup{beforeRestorePartial};

  // 6. The swap. The application lets go of its store first.
  if (auto images = ImageStore::shared()) images->waitForCleanup();
  env.store->applicationDropLinks();
  const auto aside = work / "before";
  if (auto error = fs->makeFolder(aside, kPrivateFolderMode)) {
    env.store->managedObjectContext();
    return backupWriteError("cannot prepare the restore", *error);
  }
  std::shared_ptr<UserDefaults> defaults = env.defaults ? env.defaults : UserDefaults::standard();
  const Value::Dictionary oldSettings = defaults->persistentDomain();
  Swap swap;
  auto fail = [&](Error error) -> Error {
    swap.undo();
    for (const char* key : kSettingsKeys) {
      auto it = oldSettings.find(key);
      (void)defaults->setObject(key, it == oldSettings.end() ? Value() : it->second);
    }
    (void)defaults->synchronize();
    env.store->applicationDropLinks();
    env.store->managedObjectContext();
    error.description += "; the journal was left as it was";
    return error;
  };
  auto moveAsideAndIn = [&](const std::string& name,
                            const std::optional<std::filesystem::path>& replacement) -> OptionalError {
    const auto live = env.library / name;
    // Whatever stands there goes aside; "nothing there" is the one
    // failure that is no failure.
    if (auto error = swap.move(live, aside / name)) {
      if (!(error->domain == kPOSIXErrorDomain && error->code == ENOENT)) return error;
    }
    if (replacement) {
      if (auto error = swap.move(*replacement, live)) return error;
    }
    return std::nullopt;
  };
  OptionalError moveError;
  if (result.journalReplaced) {
    for (const char* name : kStoreFiles) {
      if (!moveError)
        moveError = moveAsideAndIn(
            name, std::string(name) == "Model.sqlite" ? std::optional(newStore) : std::nullopt);
    }
    if (!moveError) moveError = moveAsideAndIn(kImageStoreFolderName, work / "imageStore");
  }
  if (!moveError && settings.moodTable) moveError = moveAsideAndIn("mood.plist", work / "mood.plist");
  if (!moveError) moveError = moveAsideAndIn("emotions.plist", work / "emotions.plist");
  if (!moveError) moveError = fs->syncFolder(env.library);
  if (moveError) return fail(backupWriteError("cannot move the restored journal into place", *moveError));

  // Settings: reminders (none in the archive: the factory ones) and the
  // gradient (none: off).
  std::vector<OptionalError> settingErrors;
  settingErrors.push_back(settings.reminders ? defaults->setObject(kAlarm, Value(*settings.reminders))
                                             : defaults->removeObjectForKey(kAlarm));
  MoodUserDefaultsOperator newSettings(defaults);
  settingErrors.push_back(newSettings.setGradientColorEnabled(settings.colors.has_value()));
  if (settings.colors) {
    settingErrors.push_back(newSettings.setFromColor((*settings.colors)[0]));
    settingErrors.push_back(newSettings.setMiddleColor((*settings.colors)[1]));
    settingErrors.push_back(newSettings.setToColor((*settings.colors)[2]));
  }
  for (auto& error : settingErrors) {
    if (error)
      return fail(
          restoreError(kBackupWriteFailed, "cannot store the restored settings: " + error->description));
  }
  if (!defaults->synchronize()) {
    return fail(restoreError(kBackupWriteFailed, "cannot store the restored settings"));
  }

  // 7. The restored journal must open where it now lies.
  if (result.journalReplaced) {
    env.store->applicationDropLinks();
    env.store->managedObjectContext();
    if (auto error = env.store->storeOpenError()) {
      return fail(restoreError(kBackupRestoredJournalBad,
                               "the restored journal does not open: " + error->description));
    }
    auto checked = checkStoreFile(env.library / "Model.sqlite");
    if (auto* error = std::get_if<Error>(&checked)) return fail(*error);
  }
  if (auto error = moveIntoPlace(beforeRestorePartial, beforeRestore)) {
    return fail(backupWriteError("cannot keep the copy of the previous journal", *error));
  }
  result.beforeRestoreArchive = beforeRestore;

  // 8. Done: what was set aside goes with the working folder.
  if (env.reschedule) env.reschedule();
  NotificationCenter::defaultCenter().post(MoodBackupWasLoadedNotification);
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
  return result;
}

std::variant<RestoreResult, Error> MoodDropboxHelper::restore(const std::filesystem::path& path) {
  auto unpacked = unpackBackup(path);
  if (auto* error = std::get_if<Error>(&unpacked)) return *error;
  pending_ = std::move(std::get<UnpackedBackup>(unpacked));
  auto result = restoreUnpacked(*pending_);
  removeTree(pending_->work);
  pending_.reset();
  return result;
}

void MoodDropboxHelper::restoreWithBackupFilePath(const std::filesystem::path& path,
                                                  const RestoreHandler& completionHandler) {
  auto unpacked = unpackBackup(path);
  if (auto* error = std::get_if<Error>(&unpacked)) {
    completionHandler(*error);
    return;
  }
  pending_ = std::move(std::get<UnpackedBackup>(unpacked));
  restoreBackupWithCompletionHandler(completionHandler);
  removeTree(pending_->work);
  pending_.reset();
}

void MoodDropboxHelper::restoreBackupWithCompletionHandler(const RestoreHandler& completionHandler) {
  if (!pending_) {
    completionHandler(restoreError(kBackupNoDocuments, "no backup has been unpacked to restore from"));
    return;
  }
  auto result = restoreUnpacked(*pending_);
  if (auto* error = std::get_if<Error>(&result)) {
    completionHandler(*error);
  } else {
    completionHandler(std::nullopt);
  }
}

}  // namespace lumeo
