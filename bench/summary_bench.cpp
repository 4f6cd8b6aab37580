// A full refresh of the summary page (the fetch of the period's records
// through the journal store, the three averages, the three curve fits and
// three 600 × 400 charts) against the bare fetch of the same records, date
// and level, through raw SQLite prepared statements on the same file, in
// the same run, for journals of 1,000, 10,000 and 100,000 records. Prints
// the ratios at the end.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "bench_journal.h"
#include "insight/mood_summary_total_view_controller.h"
#include "objectgraph/managed_object_context.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace {

using namespace lumeo;

std::filesystem::path benchDir() {
  static const std::filesystem::path dir = [] {
    auto d = std::filesystem::temp_directory_path() / ("lumeo-summary-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(d);
    return d;
  }();
  return dir;
}

// One journal per size, its records spread over the last two years with a
// comment each, written in batches through the store the application uses.
struct Journal {
  std::filesystem::path library;
  std::shared_ptr<UserDefaults> defaults;
  std::unique_ptr<JournalStore> store;
};

Journal& journal(long count) {
  static std::map<long, std::unique_ptr<Journal>> journals;
  auto& slot = journals[count];
  if (slot) return *slot;
  slot = std::make_unique<Journal>();
  slot->library = benchDir() / std::to_string(count);
  std::filesystem::create_directories(slot->library);
  slot->defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  slot->store =
      std::make_unique<JournalStore>(JournalStore::Locations{slot->library, slot->library}, slot->defaults);
  bench::JournalSeed seed;
  seed.count = count;
  seed.seed = 5;
  seed.spacingSeconds = 2 * 365 * 86400.0 / static_cast<double>(count);
  seed.jitterSeconds = 600;
  seed.comment = [](long i, std::mt19937&) { return "Entry " + std::to_string(i); };
  if (!bench::seedJournal(*slot->store, seed)) std::exit(1);
  return *slot;
}

void BM_SummaryRefresh(benchmark::State& state) {
  Journal& j = journal(state.range(0));
  MoodSummaryTotalViewController controller(*j.store, j.defaults);
  controller.setChartSize({600, 400});
  for (auto _ : state) {
    // A fresh context, so that every refresh reads the file as the first
    // one after launch does.
    state.PauseTiming();
    j.store->managedObjectContext()->reset();
    state.ResumeTiming();
    controller.reloadMoodRecords();
    benchmark::DoNotOptimize(controller.totalStatAvg());
    if (controller.recordCount() != static_cast<std::size_t>(state.range(0)))
      state.SkipWithError("wrong count");
  }
  state.counters["records"] = static_cast<double>(state.range(0));
}

void BM_Fetch_RawSQLite(benchmark::State& state) {
  Journal& j = journal(state.range(0));
  sqlite3* db = nullptr;
  sqlite3_open_v2((j.library / kJournalStoreFileName).c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT date, moodLevel FROM MoodRecord ORDER BY date", -1, &s, nullptr) !=
      SQLITE_OK) {
    state.SkipWithError(sqlite3_errmsg(db));
    sqlite3_close(db);
    return;
  }
  struct Row {
    double date;
    long level;
  };
  for (auto _ : state) {
    std::vector<Row> rows;
    while (sqlite3_step(s) == SQLITE_ROW)
      rows.push_back({sqlite3_column_double(s, 0), sqlite3_column_int(s, 1)});
    sqlite3_reset(s);
    benchmark::DoNotOptimize(rows.data());
    if (rows.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("wrong count");
  }
  sqlite3_finalize(s);
  sqlite3_close(db);
}

BENCHMARK(BM_SummaryRefresh)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Fetch_RawSQLite)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      times[run.benchmark_name()] = run.GetAdjustedRealTime();
      cpu[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }
  }
  std::map<std::string, double> times;
  std::map<std::string, double> cpu;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nsummary refresh / raw SQLite fetch of the same records (same run):\n");
  for (const char* n : {"1000", "10000", "100000"}) {
    auto a = reporter.times.find(std::string("BM_SummaryRefresh/") + n);
    auto b = reporter.times.find(std::string("BM_Fetch_RawSQLite/") + n);
    if (a == reporter.times.end() || b == reporter.times.end()) continue;
    const double ca = reporter.cpu[a->first];
    const double cb = reporter.cpu[b->first];
    std::printf("  %6s records: wall %.1f ms vs %.1f ms (x%.2f), cpu %.1f ms vs %.1f ms (x%.2f)\n", n,
                a->second, b->second, a->second / b->second, ca, cb, ca / cb);
  }
  std::error_code ec;
  std::filesystem::remove_all(benchDir(), ec);
  benchmark::Shutdown();
  return 0;
}
