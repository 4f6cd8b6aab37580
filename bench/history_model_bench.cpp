// The History tab's list on journals of 1,000, 10,000 and 100,000 records,
// each against a peer in the same run:
//
// - Open: the GUI's HistoryController (the core controller's fetch and day
//   grouping, then the list model) against the core controller's reload
//   alone. The difference is what the GUI adds before the first frame.
// - Flick: every role of a screenful of 20 rows, at a position that moves
//   through the whole list as a flick does, against reading the same
//   records' level and formatted time directly. The model reads only the
//   rows asked for, so the cost per screenful must not grow with the
//   journal.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <QAbstractItemModel>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>

#include "bench_journal.h"
#include "browse/mood_history_view_controller.h"
#include "history_controller.h"
#include "history_model.h"
#include "objectgraph/managed_object_context.h"
#include "platform/date_formatter.h"
#include "platform/user_defaults.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace {

using namespace lumeo;

constexpr int kScreenRows = 20;
constexpr int kFlickStep = 37;

std::filesystem::path benchDir() {
  static const std::filesystem::path dir = [] {
    auto d = std::filesystem::temp_directory_path() / ("lumeo-history-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(d);
    return d;
  }();
  return dir;
}

// One journal per size: records over the last two years, several a day,
// each with a comment with a tag, written in batches through the store.
struct Journal {
  std::shared_ptr<UserDefaults> defaults;
  std::unique_ptr<JournalStore> store;
};

Journal& journal(long count) {
  static std::map<long, std::unique_ptr<Journal>> journals;
  auto& slot = journals[count];
  if (slot) return *slot;
  slot = std::make_unique<Journal>();
  const auto library = benchDir() / std::to_string(count);
  std::filesystem::create_directories(library);
  slot->defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  slot->store = std::make_unique<JournalStore>(JournalStore::Locations{library, library}, slot->defaults);
  bench::JournalSeed seed;
  seed.count = count;
  seed.spacingSeconds = 2 * 365 * 86400.0 / static_cast<double>(count);
  seed.jitterSeconds = 600;
  seed.comment = [](long i, std::mt19937&) {
    return "A walk by the river with #friends, entry " + std::to_string(i);
  };
  if (!bench::seedJournal(*slot->store, seed)) std::exit(1);
  return *slot;
}

MoodHistoryEnvironment environment(Journal& j) {
  MoodHistoryEnvironment env;
  env.store = j.store.get();
  env.defaults = j.defaults;
  env.showCaptureTab = [] {};
  env.chooseActionForRecord = [](const std::shared_ptr<MoodRecord>&, int) {};
  return env;
}

void BM_OpenHistoryInGui(benchmark::State& state) {
  Journal& j = journal(state.range(0));
  for (auto _ : state) {
    j.store->managedObjectContext()->reset();
    gui::HistoryController history(*j.store, environment(j));
    benchmark::DoNotOptimize(history.count());
  }
  state.counters["records"] = static_cast<double>(state.range(0));
}

void BM_OpenHistoryCoreOnly(benchmark::State& state) {
  Journal& j = journal(state.range(0));
  for (auto _ : state) {
    j.store->managedObjectContext()->reset();
    auto controller = std::make_shared<MoodHistoryViewController>(environment(j));
    controller->viewDidLoad();
    controller->reloadMoodRecords(false);
    benchmark::DoNotOptimize(controller->moodRecords().size());
  }
  state.counters["records"] = static_cast<double>(state.range(0));
}

void BM_FlickModelRows(benchmark::State& state) {
  Journal& j = journal(state.range(0));
  j.store->managedObjectContext()->reset();
  gui::HistoryController history(*j.store, environment(j));
  auto* model = qobject_cast<QAbstractItemModel*>(history.model());
  const int count = model->rowCount();
  const auto roles = model->roleNames().keys();
  int top = 0;
  for (auto _ : state) {
    for (int row = top; row < top + kScreenRows && row < count; ++row) {
      const QModelIndex index = model->index(row, 0);
      for (int role : roles) benchmark::DoNotOptimize(model->data(index, role));
    }
    top = (top + kFlickStep) % std::max(1, count - kScreenRows);
  }
  state.SetItemsProcessed(state.iterations() * kScreenRows);
}

void BM_FlickRecordsDirectly(benchmark::State& state) {
  Journal& j = journal(state.range(0));
  j.store->managedObjectContext()->reset();
  auto controller = std::make_shared<MoodHistoryViewController>(environment(j));
  controller->viewDidLoad();
  controller->reloadMoodRecords(false);
  const auto& records = controller->moodRecords();
  const int count = static_cast<int>(records.size());
  DateFormatter time;
  time.setDateStyle(DateFormatter::Style::kNone);
  time.setTimeStyle(DateFormatter::Style::kShort);
  int top = 0;
  for (auto _ : state) {
    for (int row = top; row < top + kScreenRows && row < count; ++row) {
      const auto& record = records[static_cast<std::size_t>(row)];
      benchmark::DoNotOptimize(record->moodLevel());
      benchmark::DoNotOptimize(time.stringFromDate(record->date().value_or(Date())));
    }
    top = (top + kFlickStep) % std::max(1, count - kScreenRows);
  }
  state.SetItemsProcessed(state.iterations() * kScreenRows);
}

}  // namespace

BENCHMARK(BM_OpenHistoryInGui)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenHistoryCoreOnly)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlickModelRows)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FlickRecordsDirectly)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
  setenv("TZ", "UTC", 0);
  setenv("LANG", "en_US.UTF-8", 0);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(benchDir());
  return 0;
}
