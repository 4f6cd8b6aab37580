// Reads the located records for the Map tab and hands them to the map in
// batches of 500, at most ten batches a second, so that a large journal
// fills the map gradually instead of freezing it. The reader copies what a
// pin needs (position and level) out of the records; the map never holds a
// record. A record with an impossible position (NaN, or beyond ±90° / ±180°)
// is left out and counted, never shown.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "map/map_annotation.h"
#include "objectgraph/predicate.h"
#include "platform/date.h"
#include "platform/dispatch_queue.h"

namespace lumeo {

class JournalStore;
class MapDataReader;

// One located record on the map: its position, its level as the title
// ("7") and the level itself.
class MoodMapPointAnnotation : public PointAnnotation {
 public:
  MoodMapPointAnnotation(LocationCoordinate2D coordinate, long moodLevel);
  long moodLevel() const { return moodLevel_; }

 private:
  long moodLevel_;
};

using MoodMapPointAnnotationPtr = std::shared_ptr<MoodMapPointAnnotation>;
using MoodMapPointAnnotationList = std::vector<MoodMapPointAnnotationPtr>;

class MapDataReaderDelegate {
 public:
  virtual ~MapDataReaderDelegate() = default;
  // A batch of pins, on the main queue.
  virtual void dataReaderAddAnnotations(MapDataReader& reader,
                                        const MoodMapPointAnnotationList& annotations) = 0;
  // Every batch of the read has been delivered (or the read was stopped).
  virtual void dataReaderDidFinish(MapDataReader& /*reader*/) {}
};

class MapDataReader : public std::enable_shared_from_this<MapDataReader> {
 public:
  static constexpr std::size_t kBatchSize = 500;
  // The pause after each batch, in seconds.
  static constexpr double kBatchPause = 0.1;

  // The store must outlive the reader's reads; it is read on the main queue.
  static std::shared_ptr<MapDataReader> create(JournalStore& store);
  explicit MapDataReader(JournalStore& store);  // use create()

  std::optional<Date> startDate() const { return startDate_; }
  void setStartDate(std::optional<Date> date) { startDate_ = date; }
  std::optional<Date> endDate() const { return endDate_; }
  void setEndDate(std::optional<Date> date) { endDate_ = date; }
  // Tag names; a record qualifies with any of them. Empty: no tag filter.
  const std::vector<std::string>& tagsSet() const { return tagsSet_; }
  void setTagsSet(std::vector<std::string> tags) { tagsSet_ = std::move(tags); }
  void setDelegate(const std::shared_ptr<MapDataReaderDelegate>& delegate) { delegate_ = delegate; }

  // The pause between batches; the command line, which draws no frames,
  // sets 0.
  void setBatchPause(double seconds) { batchPause_ = seconds; }

  // The fetch of located records: both coordinates set, the date range if
  // both ends are set, any of the tags if there are any.
  Predicate predicate() const;

  // Starts a read; its batches go to the delegate on the main queue. A read
  // already running is stopped first.
  void startReadingMoodData();
  // Drops every batch not yet delivered; a delivered one stays delivered.
  void stopReadingData();
  // Queues one batch for the delegate (a copy is kept).
  void dispatchAnnotations(const MoodMapPointAnnotationList& annotations);

  bool isReading() const;
  // Records of the last read left out for an impossible position.
  std::size_t skippedCount() const { return skipped_; }

 private:
  struct Batch {
    std::uint64_t generation = 0;
    MoodMapPointAnnotationList annotations;
    bool last = false;
  };
  void read(std::uint64_t generation);
  void queueBatch(Batch batch);
  void pump();

  JournalStore& store_;
  std::optional<Date> startDate_;
  std::optional<Date> endDate_;
  std::vector<std::string> tagsSet_;
  std::weak_ptr<MapDataReaderDelegate> delegate_;
  double batchPause_ = kBatchPause;
  std::size_t skipped_ = 0;

  // The serial queue that delivers batches and pauses after each.
  std::shared_ptr<DispatchQueue> operationQueue_;
  mutable std::mutex mutex_;
  std::uint64_t generation_ = 0;  // a stop or a new start makes older batches stale
  bool reading_ = false;
  std::deque<Batch> pending_;
  bool pumping_ = false;
  DelayedCall pause_;
};

}  // namespace lumeo
