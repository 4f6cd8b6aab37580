// The run-time description of what a store holds: entities with attributes and
// relationships, built in code by the owner of the data (the journal, the sync
// engine's event store) and shared read-only by coordinators once finalized.
// A model is immutable after finalize(); every description it hands out lives
// as long as the model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/value.h"

namespace lumeo {

class ManagedObject;
class EntityDescription;
class ManagedObjectModel;

// Lets name tables be searched with a string_view without making a string.
struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
};
template <class T>
using NameMap = std::unordered_map<std::string, T, NameHash, std::equal_to<>>;

enum class AttributeType {
  kString,
  kInteger16,
  kInteger32,
  kInteger64,
  kDouble,
  kBoolean,
  kDate,
  kBinary,
  // Any Value, stored as data through a named ValueTransformer, or through
  // the built-in value coder when no name is given.
  kTransformable,
};

enum class DeleteRule { kNullify, kCascade, kNoAction, kDeny };

class PropertyDescription {
 public:
  virtual ~PropertyDescription() = default;
  const std::string& name() const { return name_; }
  const EntityDescription& entity() const { return *entity_; }
  bool isOptional() const { return optional_; }
  bool isTransient() const { return transient_; }
  const Value::Dictionary& userInfo() const { return userInfo_; }
  virtual bool isAttribute() const = 0;
  bool isRelationship() const { return !isAttribute(); }

  // Index of the property among the attributes (or the to-one, or to-many
  // relationships) of its entity; subentities keep inherited indexes.
  std::size_t slot() const { return slot_; }

 protected:
  PropertyDescription(EntityDescription* entity, std::string name)
      : name_(std::move(name)), entity_(entity) {}
  friend class EntityDescription;
  friend class ManagedObjectModel;
  std::string name_;
  EntityDescription* entity_;
  bool optional_ = true;
  bool transient_ = false;
  Value::Dictionary userInfo_;
  std::size_t slot_ = 0;
};

class AttributeDescription : public PropertyDescription {
 public:
  bool isAttribute() const override { return true; }
  AttributeType attributeType() const { return type_; }
  const Value& defaultValue() const { return defaultValue_; }
  bool isIndexed() const { return indexed_; }
  const std::string& valueTransformerName() const { return transformerName_; }

  // Builder calls, valid until the model is finalized.
  AttributeDescription& setDefaultValue(Value v) {
    defaultValue_ = std::move(v);
    return *this;
  }
  AttributeDescription& setOptional(bool optional) {
    optional_ = optional;
    return *this;
  }
  AttributeDescription& setTransient(bool transient) {
    transient_ = transient;
    return *this;
  }
  AttributeDescription& setIndexed(bool indexed) {
    indexed_ = indexed;
    return *this;
  }
  AttributeDescription& setValueTransformerName(std::string name) {
    transformerName_ = std::move(name);
    return *this;
  }
  AttributeDescription& setUserInfo(Value::Dictionary info) {
    userInfo_ = std::move(info);
    return *this;
  }

  // Brings a value to the attribute's type (an integer for an integer
  // attribute, a Date for a date ...); null stays null. Used for every write,
  // so that 1 and 1.0 and true compare equal after a round trip.
  Value coerce(const Value& v) const;

 private:
  friend class EntityDescription;
  friend class ManagedObjectModel;
  AttributeDescription(EntityDescription* entity, std::string name, AttributeType type)
      : PropertyDescription(entity, std::move(name)), type_(type) {}
  AttributeType type_;
  Value defaultValue_;
  bool indexed_ = false;
  std::string transformerName_;
};

class RelationshipDescription : public PropertyDescription {
 public:
  bool isAttribute() const override { return false; }
  bool isToMany() const { return toMany_; }
  bool isOrdered() const { return ordered_; }
  DeleteRule deleteRule() const { return deleteRule_; }
  const std::string& destinationEntityName() const { return destinationName_; }
  const std::string& inverseName() const { return inverseName_; }
  // Resolved by finalize().
  const EntityDescription& destinationEntity() const { return *destination_; }
  const RelationshipDescription* inverseRelationship() const { return inverse_; }

  RelationshipDescription& setToMany(bool toMany) {
    toMany_ = toMany;
    return *this;
  }
  RelationshipDescription& setOrdered(bool ordered) {
    ordered_ = ordered;
    if (ordered) toMany_ = true;
    return *this;
  }
  RelationshipDescription& setDeleteRule(DeleteRule rule) {
    deleteRule_ = rule;
    return *this;
  }
  RelationshipDescription& setInverseName(std::string name) {
    inverseName_ = std::move(name);
    return *this;
  }
  RelationshipDescription& setOptional(bool optional) {
    optional_ = optional;
    return *this;
  }
  RelationshipDescription& setUserInfo(Value::Dictionary info) {
    userInfo_ = std::move(info);
    return *this;
  }

 private:
  friend class EntityDescription;
  friend class ManagedObjectModel;
  RelationshipDescription(EntityDescription* entity, std::string name, std::string destination)
      : PropertyDescription(entity, std::move(name)), destinationName_(std::move(destination)) {}
  bool toMany_ = false;
  bool ordered_ = false;
  DeleteRule deleteRule_ = DeleteRule::kNullify;
  std::string destinationName_;
  std::string inverseName_;
  const EntityDescription* destination_ = nullptr;
  const RelationshipDescription* inverse_ = nullptr;
};

class EntityDescription {
 public:
  using InstanceFactory = std::function<std::shared_ptr<ManagedObject>()>;

  const std::string& name() const { return name_; }
  const ManagedObjectModel& managedObjectModel() const { return *model_; }

  // Builder calls, valid until the model is finalized.
  AttributeDescription& addAttribute(std::string name, AttributeType type);
  // A to-one relationship unless setToMany()/setOrdered() is called on it.
  RelationshipDescription& addRelationship(std::string name, std::string destinationEntity);
  EntityDescription& setSuperentityName(std::string name) {
    superentityName_ = std::move(name);
    return *this;
  }
  EntityDescription& setAbstract(bool abstract) {
    abstract_ = abstract;
    return *this;
  }
  EntityDescription& setUserInfo(Value::Dictionary info) {
    userInfo_ = std::move(info);
    return *this;
  }
  // Makes the instances of this entity (and of subentities without a factory
  // of their own): how typed classes such as MoodRecord plug in their hooks.
  EntityDescription& setInstanceFactory(InstanceFactory factory) {
    factory_ = std::move(factory);
    return *this;
  }
  template <class T>
  EntityDescription& setInstanceClass() {
    return setInstanceFactory([] { return std::make_shared<T>(); });
  }

  bool isAbstract() const { return abstract_; }
  const Value::Dictionary& userInfo() const { return userInfo_; }
  const EntityDescription* superentity() const { return super_; }
  const std::vector<const EntityDescription*>& subentities() const { return subentities_; }
  // The entity at the top of this one's inheritance chain; all entities of a
  // chain share one table.
  const EntityDescription& rootEntity() const { return super_ ? super_->rootEntity() : *this; }
  bool isKindOfEntity(const EntityDescription& other) const;
  // This entity and every entity below it.
  std::vector<const EntityDescription*> selfAndSubentities() const;

  // All properties including inherited ones, in declaration order (the
  // superentity's first).
  const std::vector<const AttributeDescription*>& attributes() const { return allAttributes_; }
  const std::vector<const RelationshipDescription*>& relationships() const { return allRelationships_; }
  const std::vector<const RelationshipDescription*>& toOneRelationships() const { return toOnes_; }
  const std::vector<const RelationshipDescription*>& toManyRelationships() const { return toManys_; }
  std::vector<std::string> propertyNames() const;

  const PropertyDescription* propertyNamed(std::string_view name) const;
  const AttributeDescription* attributeNamed(std::string_view name) const;
  const RelationshipDescription* relationshipNamed(std::string_view name) const;

  // 32 bytes, stable across runs and machines: a digest of the entity's name,
  // superentity and the names, types and shapes of its stored properties.
  const Value::Data& versionHash() const { return versionHash_; }

  std::shared_ptr<ManagedObject> makeInstance() const;
  // Small number of the entity in its model, stable for a given model.
  int entityIndex() const { return index_; }
  // Hash of the root entity's name, set by finalize(): equal object IDs have
  // equal chains by name (see ManagedObjectID's ==), so ID hashes may mix it in.
  std::size_t chainHash() const { return chainHash_; }

 private:
  friend class ManagedObjectModel;
  EntityDescription(ManagedObjectModel* model, std::string name);
  void checkMutable() const;

  ManagedObjectModel* model_;
  std::string name_;
  std::string superentityName_;
  bool abstract_ = false;
  Value::Dictionary userInfo_;
  InstanceFactory factory_;
  std::vector<std::unique_ptr<AttributeDescription>> ownAttributes_;
  std::vector<std::unique_ptr<RelationshipDescription>> ownRelationships_;

  // Filled by finalize().
  const EntityDescription* super_ = nullptr;
  std::vector<const EntityDescription*> subentities_;
  std::vector<const AttributeDescription*> allAttributes_;
  std::vector<const RelationshipDescription*> allRelationships_;
  std::vector<const RelationshipDescription*> toOnes_;
  std::vector<const RelationshipDescription*> toManys_;
  NameMap<const PropertyDescription*> byName_;
  Value::Data versionHash_;
  int index_ = 0;
  std::size_t chainHash_ = 0;
  // Never reused in the process, unlike addresses: names this entity in the
  // per-thread memory of attributeNamed.
  std::uint64_t serial_ = 0;
};

class ManagedObjectModel {
 public:
  ManagedObjectModel() = default;
  ManagedObjectModel(const ManagedObjectModel&) = delete;
  ManagedObjectModel& operator=(const ManagedObjectModel&) = delete;

  // Adds an entity; the reference stays valid for the model's life.
  EntityDescription& addEntity(std::string name);

  // Resolves superentities, destinations and inverses and computes version
  // hashes. Throws std::invalid_argument naming the fault (unknown entity,
  // inverse that does not point back, duplicate property). Idempotent.
  void finalize();
  bool isFinalized() const { return finalized_; }

  const EntityDescription* entityNamed(std::string_view name) const;
  // In the order they were added.
  std::vector<const EntityDescription*> entities() const;
  // Entity name to version hash.
  std::map<std::string, Value::Data> entityVersionHashesByName() const;
  // True when the entity hashes recorded in a store's metadata (under
  // kStoreModelVersionHashesKey) are those of this model.
  bool isConfigurationCompatibleWithStoreMetadata(const Value::Dictionary& metadata) const;

  Value::Dictionary& userInfo() { return userInfo_; }
  const Value::Dictionary& userInfo() const { return userInfo_; }

 private:
  bool finalized_ = false;
  std::vector<std::unique_ptr<EntityDescription>> entities_;
  NameMap<EntityDescription*> byName_;
  Value::Dictionary userInfo_;
};

// Key of a store's metadata: dictionary of entity name to version hash.
inline constexpr const char* kStoreModelVersionHashesKey = "ModelVersionHashes";

// Named two-way conversions for transformable attributes. The forward
// direction turns the attribute's value into the data that is stored.
class ValueTransformer {
 public:
  virtual ~ValueTransformer() = default;
  virtual Value::Data transformedValue(const Value& value) const = 0;
  virtual Value reverseTransformedValue(const Value::Data& data) const = 0;

  // Process-wide registry; thread-safe.
  static void setValueTransformer(std::shared_ptr<const ValueTransformer> transformer,
                                  const std::string& name);
  static std::shared_ptr<const ValueTransformer> valueTransformerForName(const std::string& name);
};

// The built-in coding of any Value as data, used by transformable attributes
// without a transformer name. decode() returns null for data it cannot read.
Value::Data encodeValue(const Value& value);
Value decodeValue(const Value::Data& data);

}  // namespace lumeo
