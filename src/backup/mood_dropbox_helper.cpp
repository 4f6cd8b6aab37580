// Making and verifying backup archives, and the helper's set-up.
#include "backup/mood_dropbox_helper.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "backup/backup_archive_io.h"
#include "backup/backup_journal_reader.h"
#include "backup/mood_json_util.h"
#include "backup/zip_archive_scan.h"
#include "backup/zip_file.h"
#include "capture/mood_levels_presentation.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/text_folding.h"
#include "platform/file_system.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "shell/resources_location.h"
#include "store/journal_model.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

namespace {

std::string hostName() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || !name[0]) return "Lumeo";
  return name;
}

}  // namespace

MoodDropboxHelper::MoodDropboxHelper(BackupEnvironment environment) : environment_(std::move(environment)) {
  if (environment_.deviceName.empty()) environment_.deviceName = hostName();
}

MoodDropboxHelper MoodDropboxHelper::sharedHelper() {
  BackupEnvironment environment;
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
    environment.library = app->directories().library;
    environment.resources = app->directories().resources;
    environment.store = &app->store();
  }
  if (environment.resources.empty()) environment.resources = resourcesDirectory();
  environment.temporary = std::filesystem::temp_directory_path();
  return MoodDropboxHelper(std::move(environment));
}

DateFormatter MoodDropboxHelper::formatter() {
  return DateFormatter("ddMMyyyy_HHmm");
}

std::string MoodDropboxHelper::archiveName(bool suffix, Date now) const {
  std::string name =
      environment_.deviceName + "_" + formatter().stringFromDate(now) + ".backup" + (suffix ? "1" : "");
  std::replace(name.begin(), name.end(), '/', '.');
  return name;
}

void MoodDropboxHelper::createBackup(bool suffix, const CreateHandler& completionHandler) {
  auto result = createBackupInFolder(environment_.temporary, suffix);
  if (auto* error = std::get_if<Error>(&result)) {
    completionHandler(std::nullopt, *error);
  } else {
    completionHandler(std::get<std::filesystem::path>(result), std::nullopt);
  }
}

OptionalError MoodDropboxHelper::addFilesInZip(const std::filesystem::path& directory, ZipFile& zipFile) {
  auto fs = FileSystem::current();
  auto listing = fs->listFolder(directory);
  if (auto* error = std::get_if<Error>(&listing)) return *error;
  auto entries = std::get<std::vector<FolderEntry>>(listing);
  std::sort(entries.begin(), entries.end(), [](auto& a, auto& b) { return a.name < b.name; });
  for (const auto& entry : entries) {
    if (entry.isFolder) continue;
    auto bytes = fs->readFile(directory / entry.name);
    if (auto* error = std::get_if<Error>(&bytes)) return *error;
    const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
    auto stream = zipFile.writeFileInZipWithName("/imageStore/" + entry.name, 1);
    stream->writeData(data.data(), data.size());
    stream->finishedWriting();
  }
  return std::nullopt;
}

std::variant<std::filesystem::path, Error> MoodDropboxHelper::createBackupInFolder(
    const std::filesystem::path& folder, bool suffix) {
  if (!environment_.store) return Error(kBackupErrorDomain, kBackupStoreUnreadable, "no journal is open");
  auto fs = FileSystem::current();
  auto status = fs->status(folder);
  if (!std::holds_alternative<FileStatus>(status) || !std::get<FileStatus>(status).isFolder) {
    return Error(kBackupErrorDomain, kBackupWriteFailed,
                 "cannot make the backup in " + folder.string() + ": no such folder");
  }
  if (auto error = environment_.store->storeOpenError()) {
    return Error(kBackupErrorDomain, kBackupStoreUnreadable,
                 "cannot read the journal: " + error->description);
  }
  MoodUserDefaultsOperator settings(environment_.defaults);
  ArchiveContents contents;
  contents.storeImagesUncompressed = environment_.storeImagesUncompressed;
  contents.documents.emplace_back("/backup.json", MoodJSONUtil::jsonCreateFile(*environment_.store));
  auto moodTable = moodTableForBackup(environment_.library, environment_.resources / "mood.plist");
  if (auto* error = std::get_if<Error>(&moodTable)) {
    return Error(kBackupErrorDomain, kBackupStoreUnreadable,
                 "cannot read the level table: " + error->description);
  }
  contents.documents.emplace_back("/moods.json",
                                  MoodJSONUtil::jsonMoodsFile(std::get<Value::Array>(moodTable)));
  auto reminders = MoodJSONUtil::remindersFile(settings.remindersAlarms());
  if (auto* error = std::get_if<Error>(&reminders)) {
    return Error(kBackupErrorDomain, kBackupWriteFailed, "cannot write the reminders: " + error->description);
  }
  contents.documents.emplace_back("/reminders.json", std::get<std::string>(reminders));
  if (settings.gradientColorEnabled()) {
    auto colors =
        MoodJSONUtil::jsonColorsFile(settings.fromColor(), settings.middleColor(), settings.toColor());
    if (auto* error = std::get_if<Error>(&colors)) {
      return Error(kBackupErrorDomain, kBackupWriteFailed, "cannot write the colours: " + error->description);
    }
    contents.documents.emplace_back("/colors.json", std::get<std::string>(colors));
  }
  const auto emotionsFile = environment_.library / "emotions.plist";
  auto hasEmotions = presence(emotionsFile);
  if (auto* error = std::get_if<Error>(&hasEmotions)) {
    return Error(kBackupErrorDomain, kBackupStoreUnreadable,
                 "cannot read the feeling words: " + error->description);
  }
  if (std::get<bool>(hasEmotions)) {
    auto emotions = readPropertyListFile(emotionsFile);
    if (auto* error = std::get_if<Error>(&emotions)) {
      return Error(kBackupErrorDomain, kBackupStoreUnreadable,
                   "cannot read the feeling words: " + error->description);
    }
    if (const auto* words = std::get<Value>(emotions).asArray()) {
      auto xml = MoodJSONUtil::emotionsFile(*words);
      if (auto* error = std::get_if<Error>(&xml)) {
        return Error(kBackupErrorDomain, kBackupWriteFailed,
                     "cannot write the feeling words: " + error->description);
      }
      contents.documents.emplace_back("/emotions.xml", std::get<std::string>(xml));
    }
  }
  contents.imageFolder = environment_.library / "imageStore";

  const auto target = folder / archiveName(suffix, Date::now());
  const auto partial = folder / ("." + target.filename().string() + ".partial-" + std::to_string(::getpid()));
  std::error_code ec;
  std::filesystem::remove(partial, ec);
  if (auto error = writeArchive(partial, contents)) return *error;
  if (auto error = moveIntoPlace(partial, target)) {
    std::filesystem::remove(partial, ec);
    return backupWriteError("cannot put the archive in place at " + target.string(), *error);
  }
  return target;
}

// --- verify ----------------------------------------------------------------

namespace {

struct ScratchFolder {
  std::filesystem::path path;
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "lumeo-verify-XXXXXX").string();
    if (::mkdtemp(pattern.data())) path = pattern;
  }
  ~ScratchFolder() {
    std::error_code ec;
    if (!path.empty()) std::filesystem::remove_all(path, ec);
  }
};

// Counts of a journal store file.
std::optional<Error> countStore(const std::filesystem::path& file, BackupContents& contents) {
  sqlite3* db = nullptr;
  std::optional<Error> error;
  if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    error = Error(kBackupErrorDomain, kBackupForeignStore, "the archive's store file cannot be opened");
  } else {
    auto count = [&](const char* sql) -> std::optional<std::int64_t> {
      sqlite3_stmt* stmt = nullptr;
      std::optional<std::int64_t> n;
      if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
        n = sqlite3_column_int64(stmt, 0);
      }
      sqlite3_finalize(stmt);
      return n;
    };
    auto records = count("SELECT count(*) FROM \"MoodRecord\"");
    auto tags = count(
        "SELECT count(DISTINCT t._pk) FROM \"MoodTag\" t JOIN \"MoodRecord_moodTags\" j ON j._dst = t._pk");
    auto photos = count(
        "SELECT count(*) FROM \"MoodDescription\" WHERE \"photoName\" IS NOT NULL AND \"photoName\" != ''");
    if (!records || !tags || !photos) {
      error = Error(kBackupErrorDomain, kBackupForeignStore,
                    "the archive carries a store file that is not a Lumeo journal (a store of the phone app "
                    "cannot be read here)");
    } else {
      contents.records = static_cast<std::size_t>(*records);
      contents.tags = static_cast<std::size_t>(*tags);
      contents.photos = static_cast<std::size_t>(*photos);
    }
  }
  sqlite3_close(db);
  return error;
}

// Counts of the records of "backup.json", read into a store in memory.
std::optional<Error> countDocument(const std::string& document, BackupContents& contents) {
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(makeJournalModel());
  OptionalError error;
  coordinator->addPersistentStoreWithType(kInMemoryStoreType, {}, {}, error);
  if (error)
    return Error(kBackupErrorDomain, kBackupDocumentUnreadable,
                 "cannot check backup.json: " + error->description);
  auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  context->setPersistentStoreCoordinator(coordinator);
  auto read = MoodJSONUtil::recordsFromJSONString(
      document, *context, [](const std::optional<std::string>&) { return std::optional<std::string>(); });
  if (auto* e = std::get_if<Error>(&read)) return *e;
  contents.records = std::get<std::size_t>(read);
  std::set<std::string> tags;
  for (const auto& object : context->insertedObjects()) {
    if (auto tag = std::dynamic_pointer_cast<MoodTag>(object)) tags.insert(foldTextUTF8(tag->tagName(), 3));
    if (auto description = std::dynamic_pointer_cast<MoodDescription>(object)) {
      if (description->photoName() && !description->photoName()->empty()) ++contents.photos;
    }
  }
  contents.tags = tags.size();
  context->reset();
  return std::nullopt;
}

}  // namespace

std::variant<BackupContents, Error> MoodDropboxHelper::verify(const std::filesystem::path& path) {
  auto scanned = scanBackupArchive(path);
  if (auto* error = std::get_if<Error>(&scanned)) return *error;
  const auto& scan = std::get<ScannedArchive>(scanned);
  const bool hasStore = std::any_of(scan.members.begin(), scan.members.end(),
                                    [](auto& m) { return m.kind == BackupMemberKind::kStoreFile; });
  const bool hasDocument = std::any_of(scan.members.begin(), scan.members.end(),
                                       [](auto& m) { return m.kind == BackupMemberKind::kJournalDocument; });
  if (!hasStore && !hasDocument) {
    return Error(
        kBackupErrorDomain, kBackupNoDocuments,
        path.filename().string() + " is not a Lumeo backup: it holds neither backup.json nor Model.sqlite");
  }
  std::optional<ScratchFolder> scratch;
  if (hasStore && !hasDocument) {
    scratch.emplace();
    std::error_code ec;
    std::filesystem::create_directories(scratch->path / "imageStore", ec);
  }
  auto unpacked = unpackArchive(path, scan, scratch ? std::optional(scratch->path) : std::nullopt);
  if (auto* error = std::get_if<Error>(&unpacked)) return *error;
  const auto& archive = std::get<UnpackedArchive>(unpacked);
  BackupContents contents;
  contents.members = scan.members.size();
  contents.images = archive.images;
  contents.bytes = scan.totalUncompressed;
  if (hasDocument) {
    if (auto error = countDocument(archive.documents.at(BackupMemberKind::kJournalDocument), contents))
      return *error;
  } else {
    contents.oldFormat = true;
    if (auto error = countStore(scratch->path / "Model.sqlite", contents)) return *error;
  }
  auto document = [&](BackupMemberKind kind) -> const std::string* {
    auto it = archive.documents.find(kind);
    return it == archive.documents.end() ? nullptr : &it->second;
  };
  if (auto* text = document(BackupMemberKind::kMoodsDocument)) {
    auto r = MoodJSONUtil::restoreBackupMoodsFromJSON(*text);
    if (auto* e = std::get_if<Error>(&r)) return *e;
  }
  if (auto* text = document(BackupMemberKind::kRemindersDocument)) {
    auto r = MoodJSONUtil::restoreRemindersFile(*text);
    if (auto* e = std::get_if<Error>(&r)) return *e;
  }
  if (auto* text = document(BackupMemberKind::kColorsDocument)) {
    auto r = MoodJSONUtil::restoreColorsFromJSON(*text);
    if (auto* e = std::get_if<Error>(&r)) return *e;
  }
  if (auto* text = document(BackupMemberKind::kEmotionsDocument)) {
    auto r = MoodJSONUtil::restoreEmotionsFile(*text);
    if (auto* e = std::get_if<Error>(&r)) return *e;
  }
  return contents;
}

}  // namespace lumeo
