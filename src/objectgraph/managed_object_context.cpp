// The public face of a context: queue handling (main, private, confined)
// and locking around the machinery in ContextCore.
#include "objectgraph/managed_object_context.h"

#include <stdexcept>

#include "objectgraph/context_core.h"
#include "objectgraph/object_graph_error.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"

namespace lumeo {

std::shared_ptr<const ContextSaveInfo> ContextSaveInfo::fromNotification(const Notification& notification) {
  const auto* info = std::any_cast<std::shared_ptr<const ContextSaveInfo>>(&notification.object);
  return info ? *info : nullptr;
}

ManagedObjectContext::ManagedObjectContext(ConcurrencyType type)
    : type_(type), core_(std::make_unique<ContextCore>(*this)) {
  if (type_ == ConcurrencyType::kPrivateQueue)
    queue_ = DispatchQueue::makeSerial("lumeo.objectgraph.context");
}

ManagedObjectContext::~ManagedObjectContext() = default;

std::recursive_mutex& ManagedObjectContext::mutex() const {
  return core_->mutex_;
}

void ManagedObjectContext::setName(std::string name) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  core_->name_ = std::move(name);
}

std::string ManagedObjectContext::name() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->name_;
}

void ManagedObjectContext::setPersistentStoreCoordinator(
    std::shared_ptr<PersistentStoreCoordinator> coordinator) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  if (coordinator && core_->parent_)
    throw std::logic_error("a context with a parent cannot have a coordinator");
  core_->coordinator_ = std::move(coordinator);
}

std::shared_ptr<PersistentStoreCoordinator> ManagedObjectContext::persistentStoreCoordinator() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  if (core_->coordinator_) return core_->coordinator_;
  return core_->parent_ ? core_->parent_->persistentStoreCoordinator() : nullptr;
}

void ManagedObjectContext::setParentContext(std::shared_ptr<ManagedObjectContext> parent) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  if (parent && core_->coordinator_)
    throw std::logic_error("a context with a coordinator cannot have a parent");
  for (auto p = parent; p; p = p->parentContext()) {
    if (p.get() == this) throw std::logic_error("a context cannot be its own ancestor");
  }
  core_->parent_ = std::move(parent);
}

std::shared_ptr<ManagedObjectContext> ManagedObjectContext::parentContext() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->parent_;
}

void ManagedObjectContext::setMergePolicy(MergePolicy policy) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  core_->mergePolicy_ = policy;
}

MergePolicy ManagedObjectContext::mergePolicy() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->mergePolicy_;
}

void ManagedObjectContext::performBlock(std::function<void()> block) {
  switch (type_) {
    case ConcurrencyType::kConfinement:
      block();
      return;
    case ConcurrencyType::kMainQueue:
      DispatchQueue::main().async(std::move(block));
      return;
    case ConcurrencyType::kPrivateQueue:
      queue_->async(std::move(block));
      return;
  }
}

void ManagedObjectContext::performBlockAndWait(const std::function<void()>& block) {
  switch (type_) {
    case ConcurrencyType::kConfinement:
      block();
      return;
    case ConcurrencyType::kMainQueue:
      // On the main thread the block runs at once; from elsewhere it waits
      // for the main loop, holding no lock of ours meanwhile.
      if (MainLoop::shared().isMainThread()) {
        block();
      } else {
        DispatchQueue::main().sync(block);
      }
      return;
    case ConcurrencyType::kPrivateQueue:
      queue_->sync(block);
      return;
  }
}

ManagedObjectPtr ManagedObjectContext::insertNewObjectForEntityForName(const std::string& entityName) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  const ManagedObjectModel* model = core_->model();
  if (!model) throw std::logic_error("the context has no coordinator to know entity " + entityName);
  const EntityDescription* entity = model->entityNamed(entityName);
  if (!entity) throw std::invalid_argument("unknown entity " + entityName);
  return core_->insert(*entity);
}

OptionalError ManagedObjectContext::deleteObject(const ManagedObjectPtr& object) {
  if (!object) return std::nullopt;
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->deleteObject(*object);
}

ManagedObjectPtr ManagedObjectContext::objectWithID(const ManagedObjectID& id) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->objectForID(id);
}

ManagedObjectPtr ManagedObjectContext::existingObjectWithID(const ManagedObjectID& id, OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  ManagedObjectPtr o = core_->objectForID(id);
  if (!o) return nullptr;
  if (o->isDeleted()) return nullptr;
  if (o->isFault() && !core_->fireFault(*o, error)) {
    if (!error)
      error = objectGraphError(kManagedObjectReferentialIntegrityError,
                               "no object for " + id.URIRepresentation());
    return nullptr;
  }
  return o;
}

ManagedObjectPtr ManagedObjectContext::existingObjectWithID(const ManagedObjectID& id) {
  OptionalError error;
  ManagedObjectPtr o = existingObjectWithID(id, error);
  if (error) LUMEO_LOG_DEBUG("%@", error->toString());
  return o;
}

ManagedObjectPtr ManagedObjectContext::objectRegisteredForID(const ManagedObjectID& id) const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->registeredObject(id);
}

FetchResults ManagedObjectContext::executeFetchRequest(const FetchRequest& request, OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->fetch(request, error);
}

FetchResults ManagedObjectContext::executeFetchRequest(const FetchRequest& request) {
  OptionalError error;
  FetchResults results = executeFetchRequest(request, error);
  if (error) LUMEO_LOG_DEBUG("fetch of %@ failed: %@", request.entityName(), error->toString());
  return results;
}

OptionalError ManagedObjectContext::forEachFetchedRow(
    const FetchRequest& request, const std::function<void(const std::vector<Value>&)>& row) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->forEachRow(request, row);
}

std::size_t ManagedObjectContext::countForFetchRequest(const FetchRequest& request, OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->count(request, error);
}

std::size_t ManagedObjectContext::countForFetchRequest(const FetchRequest& request) {
  OptionalError error;
  std::size_t n = countForFetchRequest(request, error);
  if (error) LUMEO_LOG_DEBUG("count of %@ failed: %@", request.entityName(), error->toString());
  return error ? 0 : n;
}

bool ManagedObjectContext::hasChanges() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->hasChanges();
}

namespace {

template <class Pick>
std::vector<ManagedObjectPtr> pick(const ContextCore& core, Pick wanted) {
  std::vector<ManagedObjectPtr> out;
  for (auto& o : core.trackedObjects()) {
    if (wanted(*o)) out.push_back(o);
  }
  return out;
}

}  // namespace

std::vector<ManagedObjectPtr> ManagedObjectContext::insertedObjects() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return pick(*core_, [](const ManagedObject& o) { return o.isInserted(); });
}

std::vector<ManagedObjectPtr> ManagedObjectContext::updatedObjects() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return pick(*core_, [](const ManagedObject& o) { return o.isUpdated(); });
}

std::vector<ManagedObjectPtr> ManagedObjectContext::deletedObjects() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return pick(*core_, [](const ManagedObject& o) { return o.isDeleted(); });
}

std::vector<ManagedObjectPtr> ManagedObjectContext::registeredObjects() const {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  return core_->allRegistered();
}

OptionalError ManagedObjectContext::save() {
  return core_->save();
}

void ManagedObjectContext::refreshObject(const ManagedObjectPtr& object, bool mergeChanges) {
  if (!object) return;
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  core_->refresh(*object, mergeChanges);
}

void ManagedObjectContext::refreshAllObjects() {
  std::lock_guard<std::recursive_mutex> lock(core_->mutex_);
  for (auto& o : core_->allRegistered()) core_->refresh(*o, o->hasChanges());
}

void ManagedObjectContext::reset() {
  core_->reset();
}

void ManagedObjectContext::rollback() {
  core_->rollback();
}

OptionalError ManagedObjectContext::obtainPermanentIDsForObjects(
    const std::vector<ManagedObjectPtr>& objects) {
  return core_->obtainPermanentIDs(objects);
}

void ManagedObjectContext::mergeChangesFromContextDidSaveNotification(const Notification& notification) {
  auto info = ContextSaveInfo::fromNotification(notification);
  if (info) core_->mergeDidSave(*info);
}

}  // namespace lumeo
