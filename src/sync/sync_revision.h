// Revision numbers and revision vectors. Every event carries its own store's
// revision (one more than that store's previous event) and the global count
// (one more than the highest count the store knew), plus what it knew of
// every other store: a SyncRevisionSet. These numbers are all that orders
// events made on devices that work offline.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace lumeo {

class SyncRevision {
 public:
  SyncRevision() = default;
  SyncRevision(std::string persistentStoreIdentifier, std::int64_t revisionNumber,
               std::int64_t globalCount = -1)
      : persistentStoreIdentifier_(std::move(persistentStoreIdentifier)),
        revisionNumber_(revisionNumber),
        globalCount_(globalCount) {}

  const std::string& persistentStoreIdentifier() const { return persistentStoreIdentifier_; }
  std::int64_t revisionNumber() const { return revisionNumber_; }
  std::int64_t globalCount() const { return globalCount_; }

  // "<global count>_<revision number>_<store>": equality and hashing go by
  // this text, so a different global count makes two revisions unequal.
  std::string uniqueIdentifier() const;

  // Same store: by revision number; different stores: by global count.
  // -1, 0 or 1.
  int compare(const SyncRevision& other) const;

  friend bool operator==(const SyncRevision& a, const SyncRevision& b) {
    return a.globalCount_ == b.globalCount_ && a.revisionNumber_ == b.revisionNumber_ &&
           a.persistentStoreIdentifier_ == b.persistentStoreIdentifier_;
  }
  std::string description() const;

 private:
  friend class SyncRevisionSet;
  std::string persistentStoreIdentifier_;
  std::int64_t revisionNumber_ = -1;
  std::int64_t globalCount_ = -1;
};

// At most one revision per store.
class SyncRevisionSet {
 public:
  SyncRevisionSet() = default;

  // In the stores' plain string order.
  std::vector<SyncRevision> revisions() const { return revisions_; }
  // The same without a copy, for loops over a set that outlives them.
  std::vector<SyncRevision>::const_iterator begin() const { return revisions_.begin(); }
  std::vector<SyncRevision>::const_iterator end() const { return revisions_.end(); }
  std::set<std::string> persistentStoreIdentifiers() const;
  std::size_t numberOfRevisions() const { return revisions_.size(); }

  const SyncRevision* revisionForPersistentStoreIdentifier(const std::string& identifier) const;
  bool hasRevisionForPersistentStoreIdentifier(const std::string& identifier) const {
    return revisionForPersistentStoreIdentifier(identifier) != nullptr;
  }

  // Replaces (and logs) an existing revision of the same store.
  void addRevision(const SyncRevision& revision);
  void removeRevision(const SyncRevision& revision);
  void removeRevisionForPersistentStoreIdentifier(const std::string& identifier);
  // The store's revision number plus one, global count -1; an absent store
  // starts at 0.
  void incrementRevisionForStoreWithIdentifier(const std::string& identifier);

  // Store-wise minimum or maximum over the union of stores; revision number
  // and global count are reduced separately.
  SyncRevisionSet revisionSetByTakingStoreWiseMinimumWithRevisionSet(const SyncRevisionSet& other) const;
  SyncRevisionSet revisionSetByTakingStoreWiseMaximumWithRevisionSet(const SyncRevisionSet& other) const;
  // The maximum in place: what `*this = revisionSetByTakingStoreWiseMaximumWithRevisionSet(other)`
  // gives, without a new set each time (a merge folds in every event's set).
  void takeStoreWiseMaximumWithRevisionSet(const SyncRevisionSet& other);
  static SyncRevisionSet revisionSetByTakingStoreWiseMaximumOfRevisionSets(
      const std::vector<SyncRevisionSet>& sets);

  // By revision numbers only: -1 when every store here is at or below the
  // other's (and the other has them all), 1 the reverse, 0 when equal and
  // also when the sets are concurrent. Use isEqualToRevisionSet to tell
  // those two apart.
  int compare(const SyncRevisionSet& other) const;
  bool isEqualToRevisionSet(const SyncRevisionSet& other) const;

  std::string description() const;

 private:
  // Sorted by store: a device knows a handful of stores, and an event
  // carries a set, so a vector beats a tree in both time and memory.
  std::vector<SyncRevision>::iterator lowerBound(const std::string& identifier);
  static SyncRevisionSet reduce(const SyncRevisionSet& a, const SyncRevisionSet& b, bool maximum);
  std::vector<SyncRevision> revisions_;
};

}  // namespace lumeo
