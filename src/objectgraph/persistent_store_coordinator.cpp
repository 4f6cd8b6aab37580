// The coordinator: one store per model, opened (and migrated) on add, with
// the lock that serialises all use of its connection.
#include "objectgraph/persistent_store_coordinator.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "objectgraph/object_graph_error.h"
#include "objectgraph/sqlite_store.h"

namespace lumeo {

Value::Dictionary PersistentStore::metadata() const {
  return metadata_;
}

namespace {

// Object IDs name their entity by address and are values that callers keep
// as long as they like, beyond the coordinator that made them. So a model
// that a coordinator has used lives for the rest of the process: a program
// makes one or a few, and their descriptions are small.
void keepForTheProcess(const std::shared_ptr<ManagedObjectModel>& model) {
  static std::mutex mutex;
  static std::vector<std::shared_ptr<ManagedObjectModel>> kept;
  std::lock_guard<std::mutex> lock(mutex);
  if (std::find(kept.begin(), kept.end(), model) == kept.end()) kept.push_back(model);
}

}  // namespace

PersistentStoreCoordinator::PersistentStoreCoordinator(std::shared_ptr<ManagedObjectModel> model)
    : model_(std::move(model)) {
  if (!model_) throw std::invalid_argument("a coordinator needs a model");
  model_->finalize();
  keepForTheProcess(model_);
}

PersistentStoreCoordinator::~PersistentStoreCoordinator() = default;

PersistentStore* PersistentStoreCoordinator::addPersistentStoreWithType(const std::string& type,
                                                                        const std::filesystem::path& url,
                                                                        const Value::Dictionary& options,
                                                                        OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (store_) {
    error = objectGraphError(kPersistentStoreOperationError, "the coordinator already has a store");
    return nullptr;
  }
  if (type != kSQLiteStoreType && type != kInMemoryStoreType && type != kBinaryStoreType) {
    error = objectGraphError(kPersistentStoreInvalidTypeError, "unknown store type " + type);
    return nullptr;
  }
  if (type != kInMemoryStoreType && url.empty()) {
    error = objectGraphError(kPersistentStoreOpenError, "a file store needs a path");
    return nullptr;
  }
  auto store = SQLiteStore::open(*model_, type, url, options, error);
  if (!store) return nullptr;
  storeInfo_ = std::make_unique<PersistentStore>();
  storeInfo_->type_ = type;
  if (type != kInMemoryStoreType) storeInfo_->url_ = std::filesystem::absolute(url).lexically_normal();
  storeInfo_->identifier_ = store->identifier();
  storeInfo_->options_ = options;
  storeInfo_->metadata_ = store->metadata();
  store_ = std::move(store);
  return storeInfo_.get();
}

PersistentStore* PersistentStoreCoordinator::addPersistentStoreWithType(const std::string& type,
                                                                        const std::filesystem::path& url,
                                                                        const Value::Dictionary& options) {
  OptionalError ignored;
  return addPersistentStoreWithType(type, url, options, ignored);
}

bool PersistentStoreCoordinator::removePersistentStore(PersistentStore* store, OptionalError& error) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!store || store != storeInfo_.get()) {
    error = objectGraphError(kPersistentStoreOperationError, "the store is not in this coordinator");
    return false;
  }
  store_.reset();
  storeInfo_.reset();
  return true;
}

std::vector<PersistentStore*> PersistentStoreCoordinator::persistentStores() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!storeInfo_) return {};
  return {storeInfo_.get()};
}

PersistentStore* PersistentStoreCoordinator::persistentStoreForURL(const std::filesystem::path& url) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!storeInfo_ || storeInfo_->url_.empty()) return nullptr;
  std::error_code ec;
  return std::filesystem::weakly_canonical(url, ec) == std::filesystem::weakly_canonical(storeInfo_->url_, ec)
             ? storeInfo_.get()
             : nullptr;
}

std::optional<ManagedObjectID> PersistentStoreCoordinator::managedObjectIDForURIRepresentation(
    const std::string& uri) const {
  std::string storeIdentifier, entityName;
  std::int64_t key = 0;
  bool temporary = false;
  if (!parseObjectURI(uri, storeIdentifier, entityName, key, temporary) || temporary) return std::nullopt;
  const EntityDescription* entity = model_->entityNamed(entityName);
  if (!entity) return std::nullopt;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!storeInfo_ || storeInfo_->identifier_ != storeIdentifier) return std::nullopt;
  return ManagedObjectID::makePermanent(*entity, storeIdentifier, key);
}

Value::Dictionary PersistentStoreCoordinator::metadataForPersistentStoreOfType(
    const std::string& type, const std::filesystem::path& url, OptionalError& error) {
  if (type == kInMemoryStoreType || !std::filesystem::exists(url)) {
    error = objectGraphError(kPersistentStoreOpenError, "no store file at " + url.string());
    return {};
  }
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(url.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    error = objectGraphError(kPersistentStoreOpenError, "cannot open " + url.string());
    sqlite3_close_v2(db);
    return {};
  }
  Value::Dictionary out;
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT value FROM _og_metadata WHERE key = 'metadata'", -1, &s, nullptr) ==
          SQLITE_OK &&
      sqlite3_step(s) == SQLITE_ROW) {
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, 0));
    Value decoded = decodeValue(Value::Data(bytes, bytes + sqlite3_column_bytes(s, 0)));
    if (decoded.asDictionary()) out = *decoded.asDictionary();
  }
  sqlite3_finalize(s);
  sqlite3_close_v2(db);
  if (out.empty())
    error = objectGraphError(kPersistentStoreInvalidTypeError, url.string() + " is not a store");
  return out;
}

void PersistentStoreCoordinator::performBlockAndWait(const std::function<void()>& block) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  block();
}

}  // namespace lumeo
