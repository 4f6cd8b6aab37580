// Backup and export against the tools a user would reach for, in the same
// run on the same files:
//
// 1. The backup archive of a journal of 10,000 records with 200 photos
//    (about 150 MB of JPEG): MoodDropboxHelper::createBackupInFolder, which
//    also writes the documents from the store, against `zip -1 -r` of the
//    same documents and pictures. Target: at most 1.1 times zip's time. The
//    same with the pictures stored instead of deflated, since deflating
//    JPEG gains nothing.
// 2. The CSV export of 1,000,000 records (MoodCSVExport, to a file) against
//    `sqlite3 -csv` of the equivalent query (the same columns, tags
//    gathered per record, in date order) into a file. Target: at most 0.75
//    times sqlite3's time.
//
// Each side runs three times; the best wall-clock time counts. Usage:
// backup_bench [RECORDS_FOR_CSV [--csv-only]] (default 1000000).
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

#include "backup/backup_journal_reader.h"
#include "backup/mood_csv_export.h"
#include "backup/mood_dropbox_helper.h"
#include "backup/mood_json_util.h"
#include "bench_journal.h"
#include "objectgraph/managed_object_context.h"
#include "platform/atomic_file.h"
#include "platform/image.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"

namespace {

using namespace lumeo;
namespace fs = std::filesystem;

double best(const std::function<void()>& run, int times = 3) {
  double fastest = 1e300;
  for (int i = 0; i < times; ++i) {
    auto start = std::chrono::steady_clock::now();
    run();
    fastest =
        std::min(fastest, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return fastest;
}

void shell(const std::string& command) {
  int status = std::system(command.c_str());
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "failed: %s\n", command.c_str());
    std::exit(1);
  }
}

std::string quoted(const fs::path& path) {
  return "'" + path.string() + "'";
}

// A photo of noise: JPEG cannot shrink it, as with real photos' detail.
std::vector<std::uint8_t> noisePhoto(unsigned seed) {
  const int width = 1200, height = 900;
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * height * 4);
  std::mt19937 random(seed);
  for (std::size_t i = 0; i < rgba.size(); i += 4) {
    const auto v = random();
    rgba[i] = static_cast<std::uint8_t>(v);
    rgba[i + 1] = static_cast<std::uint8_t>(v >> 8);
    rgba[i + 2] = static_cast<std::uint8_t>(v >> 16);
    rgba[i + 3] = 255;
  }
  auto jpeg = Image(width, height, std::move(rgba)).jpegData(0.85);
  return std::get<std::vector<std::uint8_t>>(jpeg);
}

void archiveBench(const fs::path& dir) {
  const fs::path home = dir / "archive";
  const fs::path library = home / "Library";
  fs::create_directories(library / "imageStore");
  auto defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  JournalStore store({library, home / "Documents"}, defaults);
  std::uint64_t photoBytes = 0;
  std::vector<std::string> photos;
  for (unsigned i = 0; i < 200; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "%08x%08x%08x.jpg", i, i * 977u, i * 31u);
    auto bytes = noisePhoto(i);
    photoBytes += bytes.size();
    if (writeFileAtomically(library / "imageStore" / name, bytes)) std::exit(1);
    photos.push_back(name);
  }
  bench::JournalSeed seed;
  seed.count = 10000;
  seed.newest = Date::fromTimeIntervalSince1970(1700000000.0 + (seed.count - 1) * 3600.0);
  seed.jitterSeconds = 1000;
  seed.comment = [](long, std::mt19937& random) {
    return "A day with some text about it, and a number #sleep:" + std::to_string(random() % 10) + "h";
  };
  seed.tagNames = {"walk", "sleep", "work", "coffee", "friends", "rain", "run", "read"};
  seed.tagsPerRecord = 2;
  seed.decorate = [&photos](long i, MoodDescription& description, std::mt19937&) {
    if (i % 50 == 0) description.setPhotoName(photos[static_cast<std::size_t>(i / 50)]);
  };
  if (!bench::seedJournal(store, seed)) std::exit(1);

  BackupEnvironment environment;
  environment.library = library;
  environment.temporary = dir;
  environment.resources = LUMEO_BENCH_RESOURCES;
  environment.store = &store;
  environment.defaults = defaults;
  environment.deviceName = "bench";
  const fs::path out = dir / "out";
  fs::create_directories(out);
  std::uintmax_t ourSize = 0, storedSize = 0, zipSize = 0;
  const double ours = best([&] {
    auto made = MoodDropboxHelper(environment).createBackupInFolder(out, false);
    if (std::holds_alternative<Error>(made)) std::exit(1);
    ourSize = fs::file_size(std::get<fs::path>(made));
    fs::remove(std::get<fs::path>(made));
  });
  environment.storeImagesUncompressed = true;
  const double stored = best([&] {
    auto made = MoodDropboxHelper(environment).createBackupInFolder(out, false);
    if (std::holds_alternative<Error>(made)) std::exit(1);
    storedSize = fs::file_size(std::get<fs::path>(made));
    fs::remove(std::get<fs::path>(made));
  });
  // The peer: the same documents as files beside the same pictures.
  const fs::path tree = dir / "tree";
  fs::create_directories(tree);
  fs::create_directory_symlink(library / "imageStore", tree / "imageStore");
  if (writeFileAtomically(tree / "backup.json", MoodJSONUtil::jsonCreateFile(store))) std::exit(1);
  MoodUserDefaultsOperator settings(defaults);
  if (writeFileAtomically(tree / "reminders.json",
                          std::get<std::string>(MoodJSONUtil::remindersFile(settings.remindersAlarms())))) {
    std::exit(1);
  }
  const double zip = best([&] {
    shell("cd " + quoted(tree) + " && zip -1 -r -q " + quoted(out / "peer.zip") +
          " backup.json reminders.json imageStore/");
    zipSize = fs::file_size(out / "peer.zip");
    fs::remove(out / "peer.zip");
  });
  std::printf("archive of 10000 records, 200 photos (%.1f MB of JPEG)\n", photoBytes / 1e6);
  std::printf("  lumeo backup create (level 1)      %7.3f s  %6.1f MB  %.2fx zip\n", ours, ourSize / 1e6,
              ours / zip);
  std::printf("  lumeo, JPEG members stored         %7.3f s  %6.1f MB  %.2fx zip\n", stored, storedSize / 1e6,
              stored / zip);
  std::printf("  zip -1 -r (peer)                   %7.3f s  %6.1f MB\n", zip, zipSize / 1e6);
}

void csvBench(const fs::path& dir, long count) {
  const fs::path home = dir / "csv";
  const fs::path library = home / "Library";
  fs::create_directories(library);
  {
    auto defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
    JournalStore store({library, home / "Documents"}, defaults);
    store.managedObjectContext();  // makes the file with its tables
  }
  // The rows straight into the tables: a million saves through the store
  // would take longer than the benchmark itself.
  sqlite3* db = nullptr;
  const fs::path file = library / "Model.sqlite";
  sqlite3_open(file.c_str(), &db);
  sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
  const char* tags[] = {"walk", "sleep", "work",   "coffee", "friends", "rain",
                        "run",  "read",  "Family", "Ärger",  "music",   "cooking"};
  for (int t = 0; t < 12; ++t) {
    std::string sql = "INSERT INTO \"MoodTag\"(_pk, _ent, tagName, frequency) VALUES(" +
                      std::to_string(t + 1) + ", (SELECT _ent FROM _og_entities WHERE name = 'MoodTag'), '" +
                      tags[t] + "', 0)";
    sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
  }
  sqlite3_stmt *record = nullptr, *description = nullptr, *link = nullptr;
  sqlite3_prepare_v2(
      db,
      "INSERT INTO \"MoodRecord\"(_pk, _ent, date, moodLevel, moodDescription) VALUES(?1, (SELECT _ent "
      "FROM _og_entities WHERE name = 'MoodRecord'), ?2, ?3, ?1)",
      -1, &record, nullptr);
  sqlite3_prepare_v2(
      db,
      "INSERT INTO \"MoodDescription\"(_pk, _ent, comment, latitude, longitude, wasEdited, moodRecord) "
      "VALUES(?1, (SELECT _ent FROM _og_entities WHERE name = 'MoodDescription'), ?2, ?3, ?4, 0, ?1)",
      -1, &description, nullptr);
  sqlite3_prepare_v2(db, "INSERT OR IGNORE INTO \"MoodRecord_moodTags\"(_src, _dst) VALUES(?1, ?2)", -1,
                     &link, nullptr);
  std::mt19937 random(11);
  for (long i = 1; i <= count; ++i) {
    sqlite3_bind_int64(record, 1, i);
    sqlite3_bind_double(record, 2, 1500000000.0 + i * 300.0);
    sqlite3_bind_int(record, 3, 1 + static_cast<int>(random() % 10));
    sqlite3_step(record);
    sqlite3_reset(record);
    std::string comment = "Felt \"ok\", then a walk #" + std::string(tags[random() % 12]);
    sqlite3_bind_int64(description, 1, i);
    sqlite3_bind_text(description, 2, comment.c_str(), -1, SQLITE_TRANSIENT);
    const bool located = random() % 4 == 0;
    sqlite3_bind_double(description, 3, located ? 52.52 + (random() % 1000) / 1e4 : -1);
    sqlite3_bind_double(description, 4, located ? 13.40 + (random() % 1000) / 1e4 : -1);
    sqlite3_step(description);
    sqlite3_reset(description);
    for (unsigned t = random() % 3; t > 0; --t) {
      sqlite3_bind_int64(link, 1, i);
      sqlite3_bind_int64(link, 2, 1 + random() % 12);
      sqlite3_step(link);
      sqlite3_reset(link);
    }
  }
  sqlite3_finalize(record);
  sqlite3_finalize(description);
  sqlite3_finalize(link);
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(db);

  const fs::path ours = dir / "ours.csv", peer = dir / "peer.csv";
  const double lumeo = best([&] {
    auto text = MoodCSVExport::csvText(file, Date::distantPast(), Date::distantFuture());
    if (std::holds_alternative<Error>(text)) std::exit(1);
    if (writeFileAtomically(ours, std::get<std::string>(text), FileAccess::kUserDefault)) std::exit(1);
  });
  const std::string query =
      "SELECT r.date, r.moodLevel, d.comment, d.latitude, d.longitude, "
      "(SELECT group_concat(t.tagName) FROM \"MoodRecord_moodTags\" j JOIN \"MoodTag\" t ON t._pk = j._dst "
      "WHERE j._src = r._pk) FROM \"MoodRecord\" r LEFT JOIN \"MoodDescription\" d ON d._pk = "
      "r.\"moodDescription\" "
      "ORDER BY r.date";
  // Where the export's time goes.
  double readTime = 0, formatTime = 0;
  best(
      [&] {
        auto t0 = std::chrono::steady_clock::now();
        auto rows = readJournalRows(file, Date::distantPast(), Date::distantFuture());
        auto t1 = std::chrono::steady_clock::now();
        auto text = MoodCSVExport::csvText(std::get<JournalRows>(rows));
        auto t2 = std::chrono::steady_clock::now();
        readTime = std::chrono::duration<double>(t1 - t0).count();
        formatTime = std::chrono::duration<double>(t2 - t1).count();
      },
      1);
  const double sqlite =
      best([&] { shell("sqlite3 -csv " + quoted(file) + " \"" + query + "\" > " + quoted(peer)); });
  std::printf("CSV of %ld records\n", count);
  std::printf("  lumeo export csv                   %7.3f s  %6.1f MB  %.2fx sqlite3\n", lumeo,
              fs::file_size(ours) / 1e6, lumeo / sqlite);
  std::printf("    of which reading %.3f s, formatting %.3f s\n", readTime, formatTime);
  std::printf("  sqlite3 -csv (peer)                %7.3f s  %6.1f MB\n", sqlite, fs::file_size(peer) / 1e6);
}

}  // namespace

int main(int argc, char** argv) {
  const long records = argc > 1 ? std::atol(argv[1]) : 1000000;
  setenv("TZ", "Europe/Berlin", 1);
  std::string pattern = (fs::temp_directory_path() / "lumeo-backup-bench-XXXXXX").string();
  if (!mkdtemp(pattern.data())) return 1;
  const fs::path dir = pattern;
  if (!(argc > 2 && std::string(argv[2]) == "--csv-only")) archiveBench(dir);
  csvBench(dir, records);
  std::error_code ec;
  if (!std::getenv("LUMEO_BENCH_KEEP")) fs::remove_all(dir, ec);
  return 0;
}
