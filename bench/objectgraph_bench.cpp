// The object-graph store against the raw SQLite C API doing the same work on
// the same file in the same run: inserting linked objects in batches, a
// date-range fetch out of a million rows, a sorted fetch of 100,000 objects
// reading one attribute each, and the peak memory of walking a million rows
// in batches of 100 (each walk in its own child process, so that earlier
// work does not count). Prints the ratios at the end.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"

namespace {

using namespace lumeo;

constexpr int kBigRows = 1000000;
constexpr double kBase = 1.7e9;
constexpr double kStep = 60.0;  // one record a minute

std::filesystem::path benchDir() {
  static const std::filesystem::path dir = [] {
    auto d = std::filesystem::temp_directory_path() / ("lumeo-og-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(d);
    return d;
  }();
  return dir;
}

std::shared_ptr<ManagedObjectModel> journalModel() {
  auto model = std::make_shared<ManagedObjectModel>();
  auto& record = model->addEntity("MoodRecord");
  record.addAttribute("uniqueIdentifier", AttributeType::kString);
  record.addAttribute("date", AttributeType::kDate).setIndexed(true);
  record.addAttribute("moodLevel", AttributeType::kInteger16);
  record.addRelationship("moodDescription", "MoodDescription").setInverseName("moodRecord");
  record.addRelationship("moodTags", "MoodTag").setToMany(true).setInverseName("moodRecords");
  auto& description = model->addEntity("MoodDescription");
  description.addAttribute("comment", AttributeType::kString);
  description.addAttribute("latitude", AttributeType::kDouble).setDefaultValue(-1.0);
  description.addRelationship("moodRecord", "MoodRecord").setInverseName("moodDescription");
  auto& tag = model->addEntity("MoodTag");
  tag.addAttribute("tagName", AttributeType::kString);
  tag.addRelationship("moodRecords", "MoodRecord").setToMany(true).setInverseName("moodTags");
  return model;
}

struct Stack {
  std::shared_ptr<PersistentStoreCoordinator> coordinator;
  std::shared_ptr<ManagedObjectContext> context;
  explicit Stack(const std::filesystem::path& path) {
    coordinator = std::make_shared<PersistentStoreCoordinator>(journalModel());
    OptionalError error;
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, path, {}, error);
    if (error) throw std::runtime_error(error->toString());
    context = std::make_shared<ManagedObjectContext>();
    context->setPersistentStoreCoordinator(coordinator);
  }
};

void exec(sqlite3* db, const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    std::string m = message ? message : "?";
    sqlite3_free(message);
    throw std::runtime_error(m + " in " + sql);
  }
}

int entityNumber(sqlite3* db, const char* name) {
  sqlite3_stmt* s = nullptr;
  sqlite3_prepare_v2(db, "SELECT _ent FROM _og_entities WHERE name = ?", -1, &s, nullptr);
  sqlite3_bind_text(s, 1, name, -1, SQLITE_STATIC);
  int n = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int(s, 0) : -1;
  sqlite3_finalize(s);
  return n;
}

// A million records a minute apart, written with raw SQL into the store's
// own schema; both sides then read the same file. LUMEO_OG_BENCH_STORE names
// a file to keep between runs, so that profiling one benchmark does not
// spend most of its samples on building it.
const std::filesystem::path& bigStore() {
  static const std::filesystem::path path = [] {
    const char* kept = std::getenv("LUMEO_OG_BENCH_STORE");
    auto p = kept && *kept ? std::filesystem::path(kept) : benchDir() / "big.sqlite";
    if (kept && *kept && std::filesystem::exists(p)) return p;
    { Stack schema(p); }
    sqlite3* db = nullptr;
    sqlite3_open(p.c_str(), &db);
    const int ent = entityNumber(db, "MoodRecord");
    exec(db, "BEGIN");
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(
        db,
        "INSERT INTO MoodRecord(_pk, _ent, _opt, uniqueIdentifier, date, moodLevel) VALUES(?, ?, 1, ?, ?, ?)",
        -1, &s, nullptr);
    std::mt19937 rng(7);
    for (int i = 1; i <= kBigRows; ++i) {
      const std::string uid = "record-" + std::to_string(i);
      sqlite3_bind_int64(s, 1, i);
      sqlite3_bind_int(s, 2, ent);
      sqlite3_bind_text(s, 3, uid.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_double(s, 4, kBase + kStep * i);
      sqlite3_bind_int(s, 5, 1 + static_cast<int>(rng() % 10));
      sqlite3_step(s);
      sqlite3_reset(s);
    }
    sqlite3_finalize(s);
    exec(db,
         ("INSERT OR REPLACE INTO _og_pk(name, max) VALUES('MoodRecord', " + std::to_string(kBigRows) + ")")
             .c_str());
    exec(db, "COMMIT");
    sqlite3_close(db);
    return p;
  }();
  return path;
}

// --- Inserting 100,000 records, each with a description (to-one) and a tag
// (to-many), saving every 1,000.

constexpr int kInsertCount = 100000;
constexpr int kBatch = 1000;
constexpr int kTags = 50;

void BM_Insert_ObjectGraph(benchmark::State& state) {
  int run = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto path = benchDir() / ("insert-og-" + std::to_string(run++) + ".sqlite");
    Stack stack(path);
    std::vector<ManagedObjectPtr> tags;
    for (int t = 0; t < kTags; ++t) {
      tags.push_back(stack.context->insertNewObjectForEntityForName("MoodTag"));
      tags.back()->setValueForKey("tagName", "tag" + std::to_string(t));
    }
    if (auto error = stack.context->save()) state.SkipWithError(error->toString().c_str());
    state.ResumeTiming();
    for (int i = 0; i < kInsertCount; ++i) {
      auto record = stack.context->insertNewObjectForEntityForName("MoodRecord");
      record->setValueForKey("date", Date::fromTimeIntervalSince1970(kBase + i));
      record->setValueForKey("moodLevel", 1 + i % 10);
      auto description = stack.context->insertNewObjectForEntityForName("MoodDescription");
      description->setValueForKey("comment", "note");
      record->setObjectForKey("moodDescription", description);
      record->addObjectForKey("moodTags", tags[i % kTags]);
      if ((i + 1) % kBatch == 0) {
        if (auto error = stack.context->save()) state.SkipWithError(error->toString().c_str());
      }
    }
    state.PauseTiming();
    stack.context.reset();
    std::filesystem::remove(path);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInsertCount);
}

void BM_Insert_RawSQLite(benchmark::State& state) {
  int run = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto path = benchDir() / ("insert-raw-" + std::to_string(run++) + ".sqlite");
    { Stack schema(path); }
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    const int recordEnt = entityNumber(db, "MoodRecord");
    const int descriptionEnt = entityNumber(db, "MoodDescription");
    const int tagEnt = entityNumber(db, "MoodTag");
    exec(db, "BEGIN");
    sqlite3_stmt* tag = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO MoodTag(_pk, _ent, _opt, tagName) VALUES(?, ?, 1, ?)", -1, &tag,
                       nullptr);
    for (int t = 1; t <= kTags; ++t) {
      const std::string name = "tag" + std::to_string(t);
      sqlite3_bind_int(tag, 1, t);
      sqlite3_bind_int(tag, 2, tagEnt);
      sqlite3_bind_text(tag, 3, name.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_step(tag);
      sqlite3_reset(tag);
    }
    sqlite3_finalize(tag);
    exec(db, "COMMIT");
    state.ResumeTiming();
    sqlite3_stmt* description = nullptr;
    sqlite3_stmt* record = nullptr;
    sqlite3_stmt* link = nullptr;
    sqlite3_prepare_v2(
        db, "INSERT INTO MoodDescription(_pk, _ent, _opt, comment, latitude) VALUES(?, ?, 1, ?, -1)", -1,
        &description, nullptr);
    sqlite3_prepare_v2(
        db,
        "INSERT INTO MoodRecord(_pk, _ent, _opt, date, moodLevel, moodDescription) VALUES(?, ?, 1, ?, ?, ?)",
        -1, &record, nullptr);
    sqlite3_prepare_v2(db, "INSERT INTO MoodRecord_moodTags(_src, _dst) VALUES(?, ?)", -1, &link, nullptr);
    for (int i = 0; i < kInsertCount; ++i) {
      if (i % kBatch == 0) exec(db, "BEGIN");
      sqlite3_bind_int(description, 1, i + 1);
      sqlite3_bind_int(description, 2, descriptionEnt);
      sqlite3_bind_text(description, 3, "note", -1, SQLITE_STATIC);
      sqlite3_step(description);
      sqlite3_reset(description);
      sqlite3_bind_int(record, 1, i + 1);
      sqlite3_bind_int(record, 2, recordEnt);
      sqlite3_bind_double(record, 3, kBase + i);
      sqlite3_bind_int(record, 4, 1 + i % 10);
      sqlite3_bind_int(record, 5, i + 1);
      sqlite3_step(record);
      sqlite3_reset(record);
      sqlite3_bind_int(link, 1, i + 1);
      sqlite3_bind_int(link, 2, 1 + i % kTags);
      sqlite3_step(link);
      sqlite3_reset(link);
      if ((i + 1) % kBatch == 0) exec(db, "COMMIT");
    }
    sqlite3_finalize(description);
    sqlite3_finalize(record);
    sqlite3_finalize(link);
    state.PauseTiming();
    sqlite3_close(db);
    std::filesystem::remove(path);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInsertCount);
}

// --- A date range of 1,000 rows out of 1,000,000, sorted by date.

constexpr int kRange = 1000;

double rangeStart(int iteration) {
  return kBase + kStep * (1000 + (iteration * 7919) % (kBigRows - 3000));
}

void BM_DateRange_ObjectGraph(benchmark::State& state) {
  Stack stack(bigStore());
  int iteration = 0;
  long long sum = 0;
  for (auto _ : state) {
    const double start = rangeStart(iteration++);
    FetchRequest request("MoodRecord");
    request.setPredicate(
        Predicate::predicateWithFormat("date >= %@ AND date <= %@", Date::fromTimeIntervalSince1970(start),
                                       Date::fromTimeIntervalSince1970(start + kStep * (kRange - 0.5))));
    request.setSortDescriptors({SortDescriptor("date")});
    auto results = stack.context->executeFetchRequest(request);
    for (const auto& o : results) sum += o->valueForKey("moodLevel").toInt();
    if (results.size() != kRange) state.SkipWithError("wrong count");
  }
  benchmark::DoNotOptimize(sum);
}

struct RawRow {
  long long pk;
  int ent;
  long long version;
  std::string uid;
  double date;
  int level;
  long long description;
};

void readRawRow(sqlite3_stmt* s, RawRow& row) {
  row.pk = sqlite3_column_int64(s, 0);
  row.ent = sqlite3_column_int(s, 1);
  row.version = sqlite3_column_int64(s, 2);
  const unsigned char* text = sqlite3_column_text(s, 3);
  row.uid = text ? reinterpret_cast<const char*>(text) : "";
  row.date = sqlite3_column_double(s, 4);
  row.level = sqlite3_column_int(s, 5);
  row.description = sqlite3_column_int64(s, 6);
}

// Every row of the prepared date-range select between two dates, each read
// whole, as a program without the object graph would keep them.
std::vector<RawRow> rawRowsBetween(sqlite3_stmt* s, double from, double to) {
  sqlite3_bind_double(s, 1, from);
  sqlite3_bind_double(s, 2, to);
  std::vector<RawRow> rows;
  while (sqlite3_step(s) == SQLITE_ROW) {
    rows.emplace_back();
    readRawRow(s, rows.back());
  }
  sqlite3_reset(s);
  return rows;
}

constexpr const char* kRawSelect =
    "SELECT _pk, _ent, _opt, uniqueIdentifier, date, moodLevel, moodDescription FROM MoodRecord "
    "WHERE date >= ? AND date <= ? ORDER BY date";

void BM_DateRange_RawSQLite(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(bigStore().c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* s = nullptr;
  sqlite3_prepare_v2(db, kRawSelect, -1, &s, nullptr);
  int iteration = 0;
  long long sum = 0;
  for (auto _ : state) {
    const double start = rangeStart(iteration++);
    const std::vector<RawRow> rows = rawRowsBetween(s, start, start + kStep * (kRange - 0.5));
    for (const auto& r : rows) sum += r.level;
    if (rows.size() != kRange) state.SkipWithError("wrong count");
  }
  benchmark::DoNotOptimize(sum);
  sqlite3_finalize(s);
  sqlite3_close(db);
}

// --- 100,000 objects sorted by date, one attribute read from each.

constexpr int kSorted = 100000;

void BM_Sorted100k_ObjectGraph(benchmark::State& state) {
  Stack stack(bigStore());
  long long sum = 0;
  for (auto _ : state) {
    FetchRequest request("MoodRecord");
    request.setPredicate(
        Predicate::predicateWithFormat("date >= %@ AND date <= %@", Date::fromTimeIntervalSince1970(kBase),
                                       Date::fromTimeIntervalSince1970(kBase + kStep * kSorted)));
    request.setSortDescriptors({SortDescriptor("date")});
    auto results = stack.context->executeFetchRequest(request);
    for (const auto& o : results) sum += o->valueForKey("moodLevel").toInt();
    if (results.size() != kSorted) state.SkipWithError("wrong count");
  }
  benchmark::DoNotOptimize(sum);
}

void BM_Sorted100k_RawSQLite(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(bigStore().c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* s = nullptr;
  sqlite3_prepare_v2(db, kRawSelect, -1, &s, nullptr);
  long long sum = 0;
  for (auto _ : state) {
    const std::vector<RawRow> rows = rawRowsBetween(s, kBase, kBase + kStep * kSorted);
    for (const auto& r : rows) sum += r.level;
    if (rows.size() != kSorted) state.SkipWithError("wrong count");
  }
  benchmark::DoNotOptimize(sum);
  sqlite3_finalize(s);
  sqlite3_close(db);
}

// --- Peak memory of walking all rows in batches of 100.

long kilobytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field));
  }
  return -1;
}

// Runs `walk` in a child process and returns the growth of its peak resident
// memory, in megabytes.
template <class Walk>
double childPeakMegabytes(Walk walk) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    { std::ofstream("/proc/self/clear_refs") << "5"; }  // resets the peak to the present size
    const long before = kilobytes("VmRSS:");
    walk();
    const double grown = (kilobytes("VmHWM:") - before) / 1024.0;
    if (write(fds[1], &grown, sizeof grown) != sizeof grown) _exit(1);
    _exit(0);
  }
  close(fds[1]);
  double grown = -1;
  if (read(fds[0], &grown, sizeof grown) != sizeof grown) grown = -1;
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  return grown;
}

void BM_Walk1M_ObjectGraph(benchmark::State& state) {
  const auto& path = bigStore();
  double peak = 0;
  for (auto _ : state) {
    peak = childPeakMegabytes([&] {
      Stack stack(path);
      FetchRequest request("MoodRecord");
      request.setSortDescriptors({SortDescriptor("date")});
      request.setFetchBatchSize(100);
      auto results = stack.context->executeFetchRequest(request);
      long long sum = 0;
      for (std::size_t i = 0; i < results.size(); ++i) sum += results[i]->valueForKey("moodLevel").toInt();
      if (results.size() != static_cast<std::size_t>(kBigRows)) std::_Exit(2);
      benchmark::DoNotOptimize(sum);
    });
  }
  state.counters["peak_MB"] = peak;
}

void BM_Walk1M_RawSQLite(benchmark::State& state) {
  const auto& path = bigStore();
  double peak = 0;
  for (auto _ : state) {
    peak = childPeakMegabytes([&] {
      sqlite3* db = nullptr;
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
      sqlite3_stmt* s = nullptr;
      sqlite3_prepare_v2(db,
                         "SELECT _pk, _ent, _opt, uniqueIdentifier, date, moodLevel, moodDescription FROM "
                         "MoodRecord ORDER BY date",
                         -1, &s, nullptr);
      long long sum = 0;
      RawRow row;
      while (sqlite3_step(s) == SQLITE_ROW) {
        readRawRow(s, row);
        sum += row.level;
      }
      benchmark::DoNotOptimize(sum);
      sqlite3_finalize(s);
      sqlite3_close(db);
    });
  }
  state.counters["peak_MB"] = peak;
}

BENCHMARK(BM_Insert_ObjectGraph)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Insert_RawSQLite)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_DateRange_ObjectGraph)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DateRange_RawSQLite)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Sorted100k_ObjectGraph)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_Sorted100k_RawSQLite)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_Walk1M_ObjectGraph)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_Walk1M_RawSQLite)->Unit(benchmark::kMillisecond)->Iterations(1);

// Keeps each run's time per iteration (and counters) to print the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      std::string name = run.benchmark_name();
      name = name.substr(0, name.find('/'));
      times[name] = run.GetAdjustedRealTime();
      cpu[name] = run.GetAdjustedCPUTime();
      auto it = run.counters.find("peak_MB");
      if (it != run.counters.end()) peaks[name] = it->second.value;
    }
  }
  std::map<std::string, double> times;
  std::map<std::string, double> cpu;
  std::map<std::string, double> peaks;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  bigStore();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf(
      "\nratios (object graph / raw SQLite, same run; the walks run in child processes, so\n"
      "only their wall time and peak memory count):\n");
  for (const char* name : {"Insert", "DateRange", "Sorted100k", "Walk1M"}) {
    const std::string og = std::string("BM_") + name + "_ObjectGraph";
    const std::string raw = std::string("BM_") + name + "_RawSQLite";
    auto a = reporter.times.find(og);
    auto b = reporter.times.find(raw);
    if (a == reporter.times.end() || b == reporter.times.end()) continue;
    std::printf("  %-11s wall time x%.2f  cpu time x%.2f", name, a->second / b->second,
                reporter.cpu[og] / reporter.cpu[raw]);
    if (reporter.peaks.count(og)) {
      std::printf("   peak memory %.1f MB vs %.1f MB", reporter.peaks[og], reporter.peaks[raw]);
    }
    std::printf("\n");
  }
  std::error_code ec;
  std::filesystem::remove_all(benchDir(), ec);
  benchmark::Shutdown();
  return 0;
}
