// A journal of sample records: what "Explore with sample data" opens and
// what the screenshots and benchmarks show. The same seed and end date give
// the same records, so screenshots compare against fixed references.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/date.h"

namespace lumeo {
class JournalStore;
}

namespace lumeo::gui {

// Adds `days` days of records ending on the day of `end` (two or three a
// day, none after `end`), with comments and tags (some with values, like
// #sleep:7h), saved in one transaction. Returns how many were made.
std::size_t fillSampleJournal(JournalStore& store, Date end, int days = 42, std::uint32_t seed = 11);

}  // namespace lumeo::gui
