// Fetch results: all objects at once, or row numbers with objects filled a
// batch at a time. Only the current batch is held, so the objects of earlier
// batches go away unless the caller keeps them.
#include "objectgraph/context_core.h"
#include "objectgraph/sqlite_store.h"

namespace lumeo {

std::size_t FetchResults::size() const {
  if (source_) return source_->holdsObjects ? source_->objects.size() : source_->ids.size();
  return dictionaries_.size();
}

ManagedObjectPtr FetchResults::at(std::size_t index) const {
  if (!source_ || index >= size()) return nullptr;
  return source_->at(index);
}

std::vector<ManagedObjectPtr> FetchResults::objects() const {
  std::vector<ManagedObjectPtr> out;
  if (!source_) return out;
  out.reserve(size());
  for (std::size_t i = 0; i < size(); ++i) {
    if (auto o = at(i)) out.push_back(std::move(o));
  }
  return out;
}

std::vector<ManagedObjectID> FetchResults::objectIDs() const {
  if (!source_) return {};
  if (!source_->holdsObjects) return source_->ids;
  std::vector<ManagedObjectID> out;
  out.reserve(source_->objects.size());
  for (const auto& o : source_->objects) out.push_back(o->objectID());
  return out;
}

ManagedObjectPtr FetchResults::Source::at(std::size_t index) const {
  if (holdsObjects) return objects[index];
  auto context = this->context.lock();
  if (!context) return nullptr;
  std::lock_guard<std::recursive_mutex> lock(core->mutex_);
  if (batchSize == 0) return core->objectForID(ids[index]);
  if (index < batchStart || index >= batchStart + batch.size())
    core->loadBatch(*this, index - index % batchSize);
  return index - batchStart < batch.size() ? batch[index - batchStart] : nullptr;
}

void ContextCore::loadBatch(const FetchResults::Source& source, std::size_t start) const {
  auto& self = const_cast<ContextCore&>(*this);
  const std::size_t end = std::min(source.ids.size(), start + source.batchSize);
  std::vector<ManagedObjectPtr> loaded;
  std::map<const EntityDescription*, std::vector<std::int64_t>> missing;
  for (std::size_t i = start; i < end; ++i) {
    const ManagedObjectID& id = source.ids[i];
    ManagedObjectPtr o = self.registeredObject(id);
    if (o && !o->state_->fault) {
      loaded.push_back(std::move(o));
    } else if (!id.isTemporaryID()) {
      missing[&id.entity().rootEntity()].push_back(id.primaryKey());
    }
  }
  PersistentStoreCoordinator* coordinator = rootCoordinator();
  if (coordinator && coordinator->sqliteStore() && !missing.empty()) {
    std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
    OptionalError error;
    for (auto& [root, pks] : missing) {
      coordinator->sqliteStore()->readRows(
          *root, pks, [&](RowSnapshot&& row) { loaded.push_back(self.objectFromSnapshot(std::move(row))); },
          error);
    }
  }
  source.batch.clear();
  source.batch.reserve(end - start);
  for (std::size_t i = start; i < end; ++i) source.batch.push_back(self.objectForID(source.ids[i]));
  source.batchStart = start;
}

}  // namespace lumeo
