// What to fetch (entity, predicate, sort, limits, result shape) and what a
// fetch gives back. FetchResults with a batch size holds only row numbers and
// fills objects a batch at a time as they are read, so walking a million rows
// keeps about one batch of objects in memory.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_id.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/predicate.h"
#include "platform/value.h"

namespace lumeo {

struct SortDescriptor {
  std::string key;  // a key path, "date" or "moodDescription.latitude"
  bool ascending = true;
  // Folds case (and diacritics) when comparing strings, as a localized
  // case-insensitive compare.
  bool caseInsensitive = false;

  SortDescriptor(std::string k, bool asc = true, bool ci = false)
      : key(std::move(k)), ascending(asc), caseInsensitive(ci) {}
  static SortDescriptor sortDescriptorWithKey(std::string key, bool ascending) {
    return SortDescriptor(std::move(key), ascending);
  }
};

// An expression column of a dictionary fetch: "min:" or "max:" (also "sum:",
// "average:", "count:") of an attribute, named in the result dictionary.
struct ExpressionDescription {
  std::string name;
  std::string function;  // "min:", "max:", "sum:", "average:", "count:"
  std::string keyPath;
  AttributeType expressionResultType = AttributeType::kDouble;
};

enum class FetchRequestResultType { kManagedObject, kManagedObjectID, kDictionary, kCount };

class FetchRequest {
 public:
  explicit FetchRequest(std::string entityName) : entityName_(std::move(entityName)) {}
  static FetchRequest fetchRequestWithEntityName(std::string entityName) {
    return FetchRequest(std::move(entityName));
  }

  const std::string& entityName() const { return entityName_; }

  void setPredicate(std::optional<Predicate> predicate) { predicate_ = std::move(predicate); }
  const std::optional<Predicate>& predicate() const { return predicate_; }

  void setSortDescriptors(std::vector<SortDescriptor> sort) { sort_ = std::move(sort); }
  const std::vector<SortDescriptor>& sortDescriptors() const { return sort_; }

  // 0 means no limit.
  void setFetchLimit(std::size_t limit) { limit_ = limit; }
  std::size_t fetchLimit() const { return limit_; }
  void setFetchOffset(std::size_t offset) { offset_ = offset; }
  std::size_t fetchOffset() const { return offset_; }
  // 0 means everything at once.
  void setFetchBatchSize(std::size_t size) { batchSize_ = size; }
  std::size_t fetchBatchSize() const { return batchSize_; }

  // Whether unsaved inserts, changes and deletes of the context (and its
  // parents) count. On by default.
  void setIncludesPendingChanges(bool include) { includesPendingChanges_ = include; }
  bool includesPendingChanges() const { return includesPendingChanges_; }
  void setIncludesSubentities(bool include) { includesSubentities_ = include; }
  bool includesSubentities() const { return includesSubentities_; }

  void setResultType(FetchRequestResultType type) { resultType_ = type; }
  FetchRequestResultType resultType() const { return resultType_; }

  // Dictionary results: attribute names and expressions.
  void setPropertiesToFetch(std::vector<std::string> attributes) {
    propertiesToFetch_ = std::move(attributes);
  }
  const std::vector<std::string>& propertiesToFetch() const { return propertiesToFetch_; }
  void setExpressionsToFetch(std::vector<ExpressionDescription> expressions) {
    expressions_ = std::move(expressions);
  }
  const std::vector<ExpressionDescription>& expressionsToFetch() const { return expressions_; }

  // Relationship key paths ("eventRevision", "objectChanges.globalIdentifier")
  // whose targets are loaded with the fetch and kept alive by the results.
  void setRelationshipKeyPathsForPrefetching(std::vector<std::string> keyPaths) {
    prefetch_ = std::move(keyPaths);
  }
  const std::vector<std::string>& relationshipKeyPathsForPrefetching() const { return prefetch_; }

  void setReturnsObjectsAsFaults(bool faults) { returnsFaults_ = faults; }
  bool returnsObjectsAsFaults() const { return returnsFaults_; }

 private:
  std::string entityName_;
  std::optional<Predicate> predicate_;
  std::vector<SortDescriptor> sort_;
  std::size_t limit_ = 0;
  std::size_t offset_ = 0;
  std::size_t batchSize_ = 0;
  bool includesPendingChanges_ = true;
  bool includesSubentities_ = true;
  FetchRequestResultType resultType_ = FetchRequestResultType::kManagedObject;
  std::vector<std::string> propertiesToFetch_;
  std::vector<ExpressionDescription> expressions_;
  std::vector<std::string> prefetch_;
  bool returnsFaults_ = false;
};

// Results of a fetch. Objects are produced on demand when a batch size was
// set; otherwise they are all held. Use on the context's thread.
class FetchResults {
 public:
  FetchResults() = default;

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  // Object results: the object at `index` (filling its batch when needed).
  ManagedObjectPtr operator[](std::size_t index) const { return at(index); }
  ManagedObjectPtr at(std::size_t index) const;
  ManagedObjectPtr firstObject() const { return empty() ? nullptr : at(0); }
  ManagedObjectPtr lastObject() const { return empty() ? nullptr : at(size() - 1); }
  // Copies every object out (fills all batches).
  std::vector<ManagedObjectPtr> objects() const;

  // Object-ID results, and the IDs behind object results.
  std::vector<ManagedObjectID> objectIDs() const;
  // Dictionary results.
  const std::vector<Value::Dictionary>& dictionaries() const { return dictionaries_; }

  class Iterator {
   public:
    using value_type = ManagedObjectPtr;
    using difference_type = std::ptrdiff_t;
    Iterator(const FetchResults* r, std::size_t i) : results_(r), index_(i) {}
    ManagedObjectPtr operator*() const { return results_->at(index_); }
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    bool operator!=(const Iterator& o) const { return index_ != o.index_; }
    bool operator==(const Iterator& o) const { return index_ == o.index_; }

   private:
    const FetchResults* results_;
    std::size_t index_;
  };
  Iterator begin() const { return Iterator(this, 0); }
  Iterator end() const { return Iterator(this, size()); }

  // Filled by the context.
  struct Source;
  explicit FetchResults(std::shared_ptr<Source> source) : source_(std::move(source)) {}
  explicit FetchResults(std::vector<Value::Dictionary> rows) : dictionaries_(std::move(rows)) {}

 private:
  std::shared_ptr<Source> source_;
  std::vector<Value::Dictionary> dictionaries_;
};

}  // namespace lumeo
