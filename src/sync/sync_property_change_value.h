// One property's new value inside an object change: an attribute's value (or
// the data file that holds it), a to-one target, or the members added to and
// removed from a to-many relationship, all by global identifier. Kept in the
// event store as an archived array and shipped in event files; the archive is
// a property-list dictionary with fixed keys, read back strictly.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "objectgraph/managed_object_id.h"
#include "platform/value.h"

namespace lumeo {

class ManagedObject;
class SyncEventStore;
class AttributeDescription;

enum SyncPropertyChangeType : int {
  kSyncPropertyChangeTypeAttribute = 0,
  kSyncPropertyChangeTypeToOneRelationship = 1,
  kSyncPropertyChangeTypeToManyRelationship = 2,
  kSyncPropertyChangeTypeOrderedToManyRelationship = 3,
};

// The pseudo-property that carries a description's photo file.
inline constexpr char kSyncPhotoDataPropertyName[] = "photoData";
// Values larger than this go to a data file instead of the database.
inline constexpr std::size_t kSyncMaximumInlineDataLength = 10000;

class SyncPropertyChangeValue {
 public:
  SyncPropertyChangeValue() = default;
  SyncPropertyChangeValue(int type, std::string propertyName)
      : type(type), propertyName(std::move(propertyName)) {}

  int type = kSyncPropertyChangeTypeAttribute;
  std::string propertyName;
  Value value;  // null: nil
  std::optional<std::string> filename;
  std::optional<std::string> relatedIdentifier;
  std::optional<std::set<std::string>> addedIdentifiers;
  std::optional<std::set<std::string>> removedIdentifiers;
  std::optional<std::map<std::int64_t, std::string>> movedIdentifiersByIndex;

  // Working values while an event is built; never archived.
  ManagedObjectID objectID;
  std::optional<std::vector<ManagedObjectID>> relatedObjectIDs;  // committed to-many members (pre-save)
  ManagedObjectID relatedObjectID;                               // to-one target
  std::vector<ManagedObjectID> addedObjectIDs;
  std::vector<ManagedObjectID> removedObjectIDs;
  std::map<std::int64_t, ManagedObjectID> movedObjectIDsByIndex;

  // The archive dictionary ("classVersion" 1; nil fields left out).
  Value archive() const;
  // Reads an archive dictionary back. Throws SyncException for anything that
  // is not one: another type, a key it does not know, a field of the wrong
  // type, a property type outside 0...3.
  static SyncPropertyChangeValue unarchive(const Value& archive);
  // The same, taking the archive's strings instead of copying them.
  static SyncPropertyChangeValue unarchive(Value&& archive);
  static Value archiveArray(const std::vector<SyncPropertyChangeValue>& values);
  // Null gives no array (nil); anything else must be an array of archives.
  static std::optional<std::vector<SyncPropertyChangeValue>> unarchiveArray(const Value& archive);
  static std::optional<std::vector<SyncPropertyChangeValue>> unarchiveArray(Value&& archive);
  // The same from the bytes the object store keeps a transformable
  // attribute in (its built-in value coding): what
  // unarchiveArray(decodeValue(bytes)) gives, errors included, but read
  // straight into the values when the bytes hold the usual shape instead of
  // through a dictionary per value.
  static std::optional<std::vector<SyncPropertyChangeValue>> unarchiveArrayFromCodedBytes(
      const std::uint8_t* data, std::size_t size);

  // The attribute's value as the journal should hold it: read from the data
  // file when there is one, else `value`, reverse-transformed when the
  // attribute names a transformer. Throws SyncException when the value is
  // of a type the attribute cannot hold.
  Value attributeValueForAttributeDescription(const AttributeDescription& attribute,
                                              SyncEventStore* eventStore) const;

  // Merges the to-many changes of a later change into this one.
  void mergeToManyRelationshipFromSubordinatePropertyChangeValue(const SyncPropertyChangeValue& other);
};

}  // namespace lumeo
