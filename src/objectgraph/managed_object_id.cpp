// Object IDs: interning of store identifiers, temporary serials and the URI
// form.
#include "objectgraph/managed_object_id.h"

#include <atomic>
#include <charconv>
#include <mutex>
#include <set>

#include "objectgraph/managed_object_model.h"

namespace lumeo {

namespace {

constexpr std::string_view kScheme = "x-lumeo-og://";

// Store identifiers are few and live for the process, so IDs carry a pointer
// to one shared copy instead of a string each.
const std::string* intern(const std::string& identifier) {
  static std::mutex mutex;
  static std::set<std::string> pool;
  std::lock_guard<std::mutex> lock(mutex);
  return &*pool.insert(identifier).first;
}

const std::string& emptyString() {
  static const std::string empty;
  return empty;
}

}  // namespace

const std::string& ManagedObjectID::entityName() const {
  return entity_ ? entity_->name() : emptyString();
}

const std::string& ManagedObjectID::storeIdentifier() const {
  return store_ ? *store_ : emptyString();
}

std::string ManagedObjectID::URIRepresentation() const {
  if (!entity_) return {};
  std::string uri(kScheme);
  if (isTemporaryID()) {
    uri += "/" + entity_->name() + "/t" + std::to_string(-key_);
  } else {
    uri += storeIdentifier() + "/" + entity_->name() + "/p" + std::to_string(key_);
  }
  return uri;
}

const std::string* ManagedObjectID::internStoreIdentifier(const std::string& storeIdentifier) {
  return intern(storeIdentifier);
}

ManagedObjectID ManagedObjectID::makePermanent(const EntityDescription& entity,
                                               const std::string& storeIdentifier, std::int64_t primaryKey) {
  ManagedObjectID id;
  id.entity_ = &entity;
  id.store_ = intern(storeIdentifier);
  id.key_ = primaryKey;
  return id;
}

ManagedObjectID ManagedObjectID::makeTemporary(const EntityDescription& entity) {
  static std::atomic<std::int64_t> serial{0};
  ManagedObjectID id;
  id.entity_ = &entity;
  id.key_ = -(++serial);
  return id;
}

bool operator==(const ManagedObjectID& a, const ManagedObjectID& b) {
  if (a.key_ != b.key_ || a.store_ != b.store_) return false;
  if (a.entity_ == b.entity_) return true;
  if (!a.entity_ || !b.entity_) return false;
  // Row numbers are unique within the table of an inheritance chain, and an
  // ID read from a to-one column names the relationship's destination, which
  // may be a superentity of the row's real entity. Comparing names also
  // matches IDs made by two coordinators with separate copies of one model.
  const EntityDescription& ra = a.entity_->rootEntity();
  const EntityDescription& rb = b.entity_->rootEntity();
  return &ra == &rb || ra.name() == rb.name();
}

bool operator<(const ManagedObjectID& a, const ManagedObjectID& b) {
  const std::string& an = a.entityName();
  const std::string& bn = b.entityName();
  if (an != bn) return an < bn;
  if (a.store_ != b.store_) return a.storeIdentifier() < b.storeIdentifier();
  return a.key_ < b.key_;
}

bool parseObjectURI(const std::string& uri, std::string& storeIdentifier, std::string& entityName,
                    std::int64_t& key, bool& temporary) {
  if (uri.compare(0, kScheme.size(), kScheme) != 0) return false;
  std::string rest = uri.substr(kScheme.size());
  auto slash1 = rest.find('/');
  if (slash1 == std::string::npos) return false;
  auto slash2 = rest.find('/', slash1 + 1);
  if (slash2 == std::string::npos || slash2 + 2 > rest.size()) return false;
  storeIdentifier = rest.substr(0, slash1);
  entityName = rest.substr(slash1 + 1, slash2 - slash1 - 1);
  char kind = rest[slash2 + 1];
  if ((kind != 'p' && kind != 't') || entityName.empty()) return false;
  temporary = kind == 't';
  if (temporary != storeIdentifier.empty()) return false;
  const char* first = rest.data() + slash2 + 2;
  const char* last = rest.data() + rest.size();
  auto [ptr, ec] = std::from_chars(first, last, key);
  if (ec != std::errc() || ptr != last || key <= 0) return false;
  return true;
}

}  // namespace lumeo
