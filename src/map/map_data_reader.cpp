// The read runs on the main queue, where the journal's context lives; what
// leaves it are plain copies (position and level). Delivery goes through a
// serial queue that waits after each batch, so the map gets at most ten
// batches a second however fast the store answers.
#include "map/map_data_reader.h"

#include <cmath>

#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace lumeo {

namespace {

bool isPlausible(double latitude, double longitude) {
  return std::isfinite(latitude) && std::isfinite(longitude) && std::fabs(latitude) <= 90.0 &&
         std::fabs(longitude) <= 180.0;
}

}  // namespace

MoodMapPointAnnotation::MoodMapPointAnnotation(LocationCoordinate2D coordinate, long moodLevel)
    : PointAnnotation(coordinate, std::to_string(moodLevel)), moodLevel_(moodLevel) {}

std::shared_ptr<MapDataReader> MapDataReader::create(JournalStore& store) {
  return std::make_shared<MapDataReader>(store);
}

MapDataReader::MapDataReader(JournalStore& store)
    : store_(store), operationQueue_(DispatchQueue::makeSerial("lumeo.map.reader")) {}

Predicate MapDataReader::predicate() const {
  std::vector<Predicate> parts;
  parts.push_back(Predicate::predicateWithFormat(
      "moodDescription.longitude != %@ AND moodDescription.latitude != %@", -1, -1));
  if (startDate_ && endDate_) {
    parts.push_back(Predicate::predicateWithFormat("date >= %@ AND date <= %@", *startDate_, *endDate_));
  }
  if (!tagsSet_.empty()) {
    std::vector<Predicate> anyTag;
    for (const auto& name : tagsSet_) {
      anyTag.push_back(
          Predicate::predicateWithFormat("SUBQUERY(moodTags, $x, $x.tagName == %@).@count > 0", name));
    }
    parts.push_back(Predicate::orPredicateWithSubpredicates(anyTag));
  }
  return Predicate::andPredicateWithSubpredicates(parts);
}

void MapDataReader::startReadingMoodData() {
  stopReadingData();
  std::uint64_t generation = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    generation = generation_;
    reading_ = true;
  }
  std::weak_ptr<MapDataReader> weak = weak_from_this();
  DispatchQueue::main().async([weak, generation] {
    if (auto self = weak.lock()) self->read(generation);
  });
}

void MapDataReader::read(std::uint64_t generation) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (generation != generation_) return;
  }
  skipped_ = 0;
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(predicate());
  request.setFetchBatchSize(kBatchSize);
  Batch batch{generation, {}, false};
  batch.annotations.reserve(kBatchSize);
  for (const auto& object : store_.executeFetch(request)) {
    auto record = std::dynamic_pointer_cast<MoodRecord>(object);
    if (!record) continue;
    auto description = record->moodDescription();
    if (!description) continue;
    const double latitude = description->latitude();
    const double longitude = description->longitude();
    // A value the store cannot read as a number (NULL, text written by
    // hand) reads as -1, "no place", although the fetch let it through.
    if (!description->hasPosition()) continue;
    if (!isPlausible(latitude, longitude)) {
      ++skipped_;
      continue;
    }
    batch.annotations.push_back(std::make_shared<MoodMapPointAnnotation>(
        LocationCoordinate2D{latitude, longitude}, record->moodLevel()));
    if (batch.annotations.size() == kBatchSize) {
      queueBatch(std::move(batch));
      batch = Batch{generation, {}, false};
      batch.annotations.reserve(kBatchSize);
    }
  }
  batch.last = true;
  queueBatch(std::move(batch));
}

void MapDataReader::dispatchAnnotations(const MoodMapPointAnnotationList& annotations) {
  std::uint64_t generation = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    generation = generation_;
  }
  queueBatch(Batch{generation, annotations, false});
}

void MapDataReader::queueBatch(Batch batch) {
  std::lock_guard<std::mutex> lock(mutex_);
  pending_.push_back(std::move(batch));
  if (pumping_) return;
  pumping_ = true;
  std::weak_ptr<MapDataReader> weak = weak_from_this();
  operationQueue_->async([weak] {
    if (auto self = weak.lock()) self->pump();
  });
}

// On the serial queue: hands the next current batch to the main queue, then
// waits the pause before the one after it.
void MapDataReader::pump() {
  Batch batch;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    while (!pending_.empty() && pending_.front().generation != generation_) pending_.pop_front();
    if (pending_.empty()) {
      pumping_ = false;
      return;
    }
    batch = std::move(pending_.front());
    pending_.pop_front();
  }
  std::weak_ptr<MapDataReader> weak = weak_from_this();
  const bool paced = !batch.annotations.empty() && batchPause_ > 0;
  DispatchQueue::main().async([weak, batch = std::move(batch)] {
    auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard<std::mutex> lock(self->mutex_);
      if (batch.generation != self->generation_) return;
    }
    auto delegate = self->delegate_.lock();
    if (delegate && !batch.annotations.empty()) delegate->dataReaderAddAnnotations(*self, batch.annotations);
    if (!batch.last) return;
    {
      std::lock_guard<std::mutex> lock(self->mutex_);
      if (batch.generation == self->generation_) self->reading_ = false;
    }
    if (delegate) delegate->dataReaderDidFinish(*self);
  });
  auto next = [weak] {
    if (auto self = weak.lock()) self->pump();
  };
  if (paced) {
    std::lock_guard<std::mutex> lock(mutex_);
    pause_ = operationQueue_->after(batchPause_, next);
  } else {
    operationQueue_->async(next);
  }
}

void MapDataReader::stopReadingData() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++generation_;
  pending_.clear();
  reading_ = false;
}

bool MapDataReader::isReading() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return reading_;
}

}  // namespace lumeo
