// The identity of one stored object: its entity, its store and its row. A new
// object has a temporary ID until its first save (or obtainPermanentIDs);
// a permanent ID has a URI form that survives restarts and other processes:
//   x-lumeo-og://<store identifier>/<entity name>/p<row>
// Temporary ones look like x-lumeo-og:///<entity name>/t<serial> and mean
// something only inside the process that made them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace lumeo {

class EntityDescription;

class ManagedObjectID {
 public:
  ManagedObjectID() = default;  // the null ID

  bool isNull() const { return entity_ == nullptr; }
  explicit operator bool() const { return entity_ != nullptr; }
  const EntityDescription& entity() const { return *entity_; }
  const std::string& entityName() const;
  bool isTemporaryID() const { return key_ < 0; }
  // Identifier of the store the object lives in; empty for a temporary ID.
  const std::string& storeIdentifier() const;
  std::string URIRepresentation() const;

  // For the store: the row number of a permanent ID.
  std::int64_t primaryKey() const { return key_ > 0 ? key_ : 0; }
  std::int64_t rawKey() const { return key_; }
  // The interned store identifier's address: equal IDs share it, so hashes
  // may use it without reading the string.
  const void* storeKey() const { return store_; }

  static ManagedObjectID makePermanent(const EntityDescription& entity, const std::string& storeIdentifier,
                                       std::int64_t primaryKey);
  static ManagedObjectID makeTemporary(const EntityDescription& entity);
  // The shared copy of a store identifier, for stores that make many IDs:
  // makePermanent with it skips the interning lookup.
  static const std::string* internStoreIdentifier(const std::string& storeIdentifier);
  static ManagedObjectID makePermanent(const EntityDescription& entity, const std::string* internedStore,
                                       std::int64_t primaryKey) {
    ManagedObjectID id;
    id.entity_ = &entity;
    id.store_ = internedStore;
    id.key_ = primaryKey;
    return id;
  }

  friend bool operator==(const ManagedObjectID& a, const ManagedObjectID& b);
  friend bool operator!=(const ManagedObjectID& a, const ManagedObjectID& b) { return !(a == b); }
  // Orders by entity name, then store, then key: a stable order for tests and
  // for sorting by object.
  friend bool operator<(const ManagedObjectID& a, const ManagedObjectID& b);
  std::size_t hash() const {
    return std::hash<std::int64_t>()(key_) ^ (std::hash<const void*>()(store_) << 1);
  }

 private:
  const EntityDescription* entity_ = nullptr;
  // Interned store identifier; null for temporary IDs.
  const std::string* store_ = nullptr;
  // Row number (> 0) or minus a process-wide serial for temporary IDs.
  std::int64_t key_ = 0;
};

struct ManagedObjectIDHash {
  std::size_t operator()(const ManagedObjectID& id) const { return id.hash(); }
};

// Parses a URI into its parts without resolving the entity; false when the
// text is not an object URI. `temporary` is set for t-forms.
bool parseObjectURI(const std::string& uri, std::string& storeIdentifier, std::string& entityName,
                    std::int64_t& key, bool& temporary);

}  // namespace lumeo

template <>
struct std::hash<lumeo::ManagedObjectID> {
  std::size_t operator()(const lumeo::ManagedObjectID& id) const { return id.hash(); }
};
