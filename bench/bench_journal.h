// The journals the benchmarks measure on: records written through the store
// stack the application uses, in batches that keep memory flat, the same
// journal for the same options. Every bench that needs a journal fills it
// here.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/date.h"

namespace lumeo {
class JournalStore;
class MoodDescription;
}  // namespace lumeo

namespace lumeo::bench {

struct JournalSeed {
  long count = 1000;
  std::uint32_t seed = 7;
  // Record i lies i * spacingSeconds (plus up to jitterSeconds more, at
  // random) before `newest`.
  Date newest = Date::now();
  double spacingSeconds = 3600;
  unsigned jitterSeconds = 0;
  // The comment of record i; none without it.
  std::function<std::string(long i, std::mt19937& random)> comment;
  // Each record is linked to `tagsPerRecord` tags drawn from these names
  // (a name drawn twice is linked once), and its comment ends with their
  // hashtags, as a comment typed in the editor would; the tags are made
  // once.
  std::vector<std::string> tagNames;
  int tagsPerRecord = 0;
  // Anything else a bench wants on record i: a place, a photo.
  std::function<void(long i, MoodDescription& description, std::mt19937& random)> decorate;
  // Records per save; the context is reset after each.
  long batch = 5000;
};

// Levels are 1 to 10 at random. Returns false (with a message on standard
// error) when a save fails.
bool seedJournal(JournalStore& store, const JournalSeed& seed);

}  // namespace lumeo::bench
