// Revisions and revision sets: plain values.
#include "sync/sync_revision.h"

#include <algorithm>
#include <functional>

#include "platform/log.h"

namespace lumeo {

std::string SyncRevision::uniqueIdentifier() const {
  return std::to_string(globalCount_) + "_" + std::to_string(revisionNumber_) + "_" +
         persistentStoreIdentifier_;
}

int SyncRevision::compare(const SyncRevision& other) const {
  std::int64_t a = globalCount_;
  std::int64_t b = other.globalCount_;
  if (persistentStoreIdentifier_ == other.persistentStoreIdentifier_) {
    a = revisionNumber_;
    b = other.revisionNumber_;
  }
  return a < b ? -1 : (a > b ? 1 : 0);
}

std::string SyncRevision::description() const {
  return "Store: " + persistentStoreIdentifier_ + ", Global Count: " + std::to_string(globalCount_) +
         ", Revision: " + std::to_string(revisionNumber_);
}

std::vector<SyncRevision> SyncRevisionSet::revisions() const {
  std::vector<SyncRevision> out;
  out.reserve(revisions_.size());
  for (const auto& [store, revision] : revisions_) out.push_back(revision);
  return out;
}

std::set<std::string> SyncRevisionSet::persistentStoreIdentifiers() const {
  std::set<std::string> out;
  for (const auto& [store, revision] : revisions_) out.insert(store);
  return out;
}

const SyncRevision* SyncRevisionSet::revisionForPersistentStoreIdentifier(
    const std::string& identifier) const {
  auto it = revisions_.find(identifier);
  return it == revisions_.end() ? nullptr : &it->second;
}

void SyncRevisionSet::addRevision(const SyncRevision& revision) {
  auto it = revisions_.find(revision.persistentStoreIdentifier());
  if (it != revisions_.end()) {
    LUMEO_LOG_WARNING("Found duplicate store in revision set. Existing Set: %@\rNew Rev: %@", description(),
                      revision.description());
    it->second = revision;
    return;
  }
  revisions_.emplace(revision.persistentStoreIdentifier(), revision);
}

void SyncRevisionSet::removeRevision(const SyncRevision& revision) {
  auto it = revisions_.find(revision.persistentStoreIdentifier());
  if (it != revisions_.end() && it->second == revision) revisions_.erase(it);
}

void SyncRevisionSet::removeRevisionForPersistentStoreIdentifier(const std::string& identifier) {
  revisions_.erase(identifier);
}

void SyncRevisionSet::incrementRevisionForStoreWithIdentifier(const std::string& identifier) {
  const SyncRevision* present = revisionForPersistentStoreIdentifier(identifier);
  std::int64_t next = present ? present->revisionNumber() + 1 : 0;
  revisions_[identifier] = SyncRevision(identifier, next, -1);
}

namespace {

SyncRevisionSet reduce(const std::map<std::string, SyncRevision>& a,
                       const std::map<std::string, SyncRevision>& b,
                       const std::function<std::int64_t(std::int64_t, std::int64_t)>& f) {
  SyncRevisionSet out;
  for (const auto& [store, revision] : a) {
    auto other = b.find(store);
    if (other == b.end()) {
      out.addRevision(revision);
    } else {
      out.addRevision(SyncRevision(store, f(revision.revisionNumber(), other->second.revisionNumber()),
                                   f(revision.globalCount(), other->second.globalCount())));
    }
  }
  for (const auto& [store, revision] : b) {
    if (!a.count(store)) out.addRevision(revision);
  }
  return out;
}

}  // namespace

SyncRevisionSet SyncRevisionSet::revisionSetByTakingStoreWiseMinimumWithRevisionSet(
    const SyncRevisionSet& other) const {
  return reduce(revisions_, other.revisions_, [](std::int64_t x, std::int64_t y) { return std::min(x, y); });
}

SyncRevisionSet SyncRevisionSet::revisionSetByTakingStoreWiseMaximumWithRevisionSet(
    const SyncRevisionSet& other) const {
  return reduce(revisions_, other.revisions_, [](std::int64_t x, std::int64_t y) { return std::max(x, y); });
}

SyncRevisionSet SyncRevisionSet::revisionSetByTakingStoreWiseMaximumOfRevisionSets(
    const std::vector<SyncRevisionSet>& sets) {
  SyncRevisionSet result;
  for (const auto& set : sets) result = result.revisionSetByTakingStoreWiseMaximumWithRevisionSet(set);
  return result;
}

int SyncRevisionSet::compare(const SyncRevisionSet& other) const {
  bool equal = true;
  bool lessOrEqual = true;
  bool greaterOrEqual = true;
  for (const auto& [store, revision] : revisions_) {
    const SyncRevision* theirs = other.revisionForPersistentStoreIdentifier(store);
    if (!theirs) {
      equal = false;
      lessOrEqual = false;
      continue;
    }
    std::int64_t mine = revision.revisionNumber();
    std::int64_t other_number = theirs->revisionNumber();
    equal = equal && mine == other_number;
    lessOrEqual = lessOrEqual && mine <= other_number;
    greaterOrEqual = greaterOrEqual && mine >= other_number;
  }
  for (const auto& [store, revision] : other.revisions_) {
    if (!revisions_.count(store)) {
      equal = false;
      greaterOrEqual = false;
    }
  }
  if (equal) return 0;
  if (lessOrEqual) return -1;
  if (greaterOrEqual) return 1;
  return 0;
}

bool SyncRevisionSet::isEqualToRevisionSet(const SyncRevisionSet& other) const {
  if (revisions_.size() != other.revisions_.size()) return false;
  for (const auto& [store, revision] : revisions_) {
    const SyncRevision* theirs = other.revisionForPersistentStoreIdentifier(store);
    if (!theirs || theirs->revisionNumber() != revision.revisionNumber()) return false;
  }
  return true;
}

std::string SyncRevisionSet::description() const {
  std::string out = "SyncRevisionSet\n";
  for (const auto& [store, revision] : revisions_) {
    out += "Store: " + store + ", Global Count: " + std::to_string(revision.globalCount()) +
           ", Revision: " + std::to_string(revision.revisionNumber()) + "\n";
  }
  return out;
}

}  // namespace lumeo
