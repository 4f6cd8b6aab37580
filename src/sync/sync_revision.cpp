// Revisions and revision sets: plain values.
#include "sync/sync_revision.h"

#include <algorithm>

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

namespace {

bool storeBefore(const SyncRevision& revision, const std::string& identifier) {
  return revision.persistentStoreIdentifier() < identifier;
}

}  // namespace

std::vector<SyncRevision>::iterator SyncRevisionSet::lowerBound(const std::string& identifier) {
  return std::lower_bound(revisions_.begin(), revisions_.end(), identifier, storeBefore);
}

std::set<std::string> SyncRevisionSet::persistentStoreIdentifiers() const {
  std::set<std::string> out;
  for (const auto& revision : revisions_) out.insert(out.end(), revision.persistentStoreIdentifier());
  return out;
}

const SyncRevision* SyncRevisionSet::revisionForPersistentStoreIdentifier(
    const std::string& identifier) const {
  auto it = std::lower_bound(revisions_.begin(), revisions_.end(), identifier, storeBefore);
  return it != revisions_.end() && it->persistentStoreIdentifier() == identifier ? &*it : nullptr;
}

void SyncRevisionSet::addRevision(const SyncRevision& revision) {
  // Revisions mostly arrive in store order: appending needs no search.
  if (revisions_.empty() ||
      revisions_.back().persistentStoreIdentifier() < revision.persistentStoreIdentifier()) {
    revisions_.push_back(revision);
    return;
  }
  auto it = lowerBound(revision.persistentStoreIdentifier());
  if (it != revisions_.end() && it->persistentStoreIdentifier() == revision.persistentStoreIdentifier()) {
    LUMEO_LOG_WARNING("Found duplicate store in revision set. Existing Set: %@\rNew Rev: %@", description(),
                      revision.description());
    *it = revision;
    return;
  }
  revisions_.insert(it, revision);
}

void SyncRevisionSet::removeRevision(const SyncRevision& revision) {
  auto it = lowerBound(revision.persistentStoreIdentifier());
  if (it != revisions_.end() && *it == revision) revisions_.erase(it);
}

void SyncRevisionSet::removeRevisionForPersistentStoreIdentifier(const std::string& identifier) {
  auto it = lowerBound(identifier);
  if (it != revisions_.end() && it->persistentStoreIdentifier() == identifier) revisions_.erase(it);
}

void SyncRevisionSet::incrementRevisionForStoreWithIdentifier(const std::string& identifier) {
  auto it = lowerBound(identifier);
  if (it != revisions_.end() && it->persistentStoreIdentifier() == identifier) {
    *it = SyncRevision(identifier, it->revisionNumber() + 1, -1);
  } else {
    revisions_.insert(it, SyncRevision(identifier, 0, -1));
  }
}

// Both sets are sorted by store: one merge pass over the union of stores.
SyncRevisionSet SyncRevisionSet::reduce(const SyncRevisionSet& first, const SyncRevisionSet& second,
                                        bool maximum) {
  auto f = [maximum](std::int64_t x, std::int64_t y) { return maximum ? std::max(x, y) : std::min(x, y); };
  const std::vector<SyncRevision>& a = first.revisions_;
  const std::vector<SyncRevision>& b = second.revisions_;
  SyncRevisionSet set;
  std::vector<SyncRevision>& out = set.revisions_;
  out.reserve(std::max(a.size(), b.size()));
  auto i = a.begin();
  auto j = b.begin();
  while (i != a.end() || j != b.end()) {
    if (j == b.end() || (i != a.end() && i->persistentStoreIdentifier() < j->persistentStoreIdentifier())) {
      out.push_back(*i++);
    } else if (i == a.end() || j->persistentStoreIdentifier() < i->persistentStoreIdentifier()) {
      out.push_back(*j++);
    } else {
      out.emplace_back(i->persistentStoreIdentifier(), f(i->revisionNumber(), j->revisionNumber()),
                       f(i->globalCount(), j->globalCount()));
      ++i;
      ++j;
    }
  }
  return set;
}

SyncRevisionSet SyncRevisionSet::revisionSetByTakingStoreWiseMinimumWithRevisionSet(
    const SyncRevisionSet& other) const {
  return reduce(*this, other, false);
}

SyncRevisionSet SyncRevisionSet::revisionSetByTakingStoreWiseMaximumWithRevisionSet(
    const SyncRevisionSet& other) const {
  return reduce(*this, other, true);
}

void SyncRevisionSet::takeStoreWiseMaximumWithRevisionSet(const SyncRevisionSet& other) {
  for (const auto& revision : other.revisions_) {
    auto it = lowerBound(revision.persistentStoreIdentifier());
    if (it == revisions_.end() || it->persistentStoreIdentifier() != revision.persistentStoreIdentifier()) {
      revisions_.insert(it, revision);
    } else {
      it->revisionNumber_ = std::max(it->revisionNumber_, revision.revisionNumber_);
      it->globalCount_ = std::max(it->globalCount_, revision.globalCount_);
    }
  }
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
  for (const auto& revision : revisions_) {
    const SyncRevision* theirs =
        other.revisionForPersistentStoreIdentifier(revision.persistentStoreIdentifier());
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
  for (const auto& revision : other.revisions_) {
    if (!hasRevisionForPersistentStoreIdentifier(revision.persistentStoreIdentifier())) {
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
  for (const auto& revision : revisions_) {
    const SyncRevision* theirs =
        other.revisionForPersistentStoreIdentifier(revision.persistentStoreIdentifier());
    if (!theirs || theirs->revisionNumber() != revision.revisionNumber()) return false;
  }
  return true;
}

std::string SyncRevisionSet::description() const {
  std::string out = "SyncRevisionSet\n";
  for (const auto& revision : revisions_) {
    out += "Store: " + revision.persistentStoreIdentifier() +
           ", Global Count: " + std::to_string(revision.globalCount()) +
           ", Revision: " + std::to_string(revision.revisionNumber()) + "\n";
  }
  return out;
}

}  // namespace lumeo
