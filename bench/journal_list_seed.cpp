// Fills the journal under a home folder with COUNT records (default 100000),
// five hours apart going back from now, each with a description, a comment
// and one of a handful of tags, saved in batches through the store stack the
// application uses.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench_journal.h"
#include "platform/linux/data_directories.h"
#include "platform/user_defaults.h"
#include "store/journal_store.h"

int main(int argc, char** argv) {
  using namespace lumeo;
  if (argc < 2) {
    std::fprintf(stderr, "usage: journal_list_seed HOME [COUNT]\n");
    return 2;
  }
  DataDirectories dirs = DataDirectories::underHome(argv[1]);
  if (!dirs.create()) return 1;
  auto defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  JournalStore store({dirs.library, dirs.documents}, defaults);
  bench::JournalSeed seed;
  seed.count = argc > 2 ? std::atol(argv[2]) : 100000;
  seed.seed = 11;
  seed.spacingSeconds = 5 * 3600.0;
  seed.comment = [](long i, std::mt19937&) { return "Sample entry " + std::to_string(i); };
  seed.tagNames = {"sleep", "work", "walk", "friends", "coffee", "reading"};
  seed.tagsPerRecord = 1;
  if (!bench::seedJournal(store, seed)) return 1;
  std::printf("%ld records in %s\n", seed.count, store.storeURL().c_str());
  return 0;
}
