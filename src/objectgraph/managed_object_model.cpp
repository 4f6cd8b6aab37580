// Building and finalizing a model: inheritance, inverses, property slots and
// version hashes; value coercion per attribute type; value transformers.
#include "objectgraph/managed_object_model.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "objectgraph/managed_object.h"
#include "platform/sha256.h"

namespace lumeo {

namespace {

const char* typeName(AttributeType type) {
  switch (type) {
    case AttributeType::kString:
      return "string";
    case AttributeType::kInteger16:
      return "int16";
    case AttributeType::kInteger32:
      return "int32";
    case AttributeType::kInteger64:
      return "int64";
    case AttributeType::kDouble:
      return "double";
    case AttributeType::kBoolean:
      return "bool";
    case AttributeType::kDate:
      return "date";
    case AttributeType::kBinary:
      return "binary";
    case AttributeType::kTransformable:
      return "transformable";
  }
  return "?";
}

[[noreturn]] void wrongType(const AttributeDescription& a, const Value& v) {
  static const char* kKinds[] = {"null", "bool", "integer", "double",    "string",
                                 "date", "data", "array",   "dictionary"};
  throw std::invalid_argument("value of kind " + std::string(kKinds[static_cast<int>(v.type())]) + " for " +
                              typeName(a.attributeType()) + " attribute '" + a.entity().name() + "." +
                              a.name() + "'");
}

}  // namespace

Value AttributeDescription::coerce(const Value& v) const {
  if (v.isNull()) return v;
  switch (type_) {
    case AttributeType::kString:
      if (v.asString()) return v;
      wrongType(*this, v);
    case AttributeType::kInteger16:
    case AttributeType::kInteger32:
    case AttributeType::kInteger64:
      if (v.type() == Value::Type::kInteger) return v;
      if (v.isNumber())
        return Value(
            static_cast<long long>(v.type() == Value::Type::kReal ? std::trunc(v.toDouble()) : v.toInt()));
      wrongType(*this, v);
    case AttributeType::kDouble:
      if (v.type() == Value::Type::kReal) return v;
      if (v.isNumber()) return Value(v.toDouble());
      wrongType(*this, v);
    case AttributeType::kBoolean:
      if (v.type() == Value::Type::kBool) return v;
      if (v.isNumber()) return Value(v.toBool());
      wrongType(*this, v);
    case AttributeType::kDate:
      if (v.asDate()) return v;
      wrongType(*this, v);
    case AttributeType::kBinary:
      if (v.asData()) return v;
      wrongType(*this, v);
    case AttributeType::kTransformable:
      return v;
  }
  return v;
}

void EntityDescription::checkMutable() const {
  if (model_->isFinalized())
    throw std::logic_error("model is finalized; entity '" + name_ + "' cannot change");
}

AttributeDescription& EntityDescription::addAttribute(std::string name, AttributeType type) {
  checkMutable();
  ownAttributes_.push_back(
      std::unique_ptr<AttributeDescription>(new AttributeDescription(this, std::move(name), type)));
  return *ownAttributes_.back();
}

RelationshipDescription& EntityDescription::addRelationship(std::string name, std::string destinationEntity) {
  checkMutable();
  ownRelationships_.push_back(std::unique_ptr<RelationshipDescription>(
      new RelationshipDescription(this, std::move(name), std::move(destinationEntity))));
  return *ownRelationships_.back();
}

bool EntityDescription::isKindOfEntity(const EntityDescription& other) const {
  for (const EntityDescription* e = this; e; e = e->super_) {
    if (e == &other || e->name_ == other.name_) return true;
  }
  return false;
}

std::vector<const EntityDescription*> EntityDescription::selfAndSubentities() const {
  std::vector<const EntityDescription*> out{this};
  for (std::size_t i = 0; i < out.size(); ++i) {
    for (const EntityDescription* sub : out[i]->subentities_) out.push_back(sub);
  }
  return out;
}

std::vector<std::string> EntityDescription::propertyNames() const {
  std::vector<std::string> names;
  for (const auto* a : allAttributes_) names.push_back(a->name());
  for (const auto* r : allRelationships_) names.push_back(r->name());
  return names;
}

const PropertyDescription* EntityDescription::propertyNamed(std::string_view name) const {
  auto it = byName_.find(name);
  return it == byName_.end() ? nullptr : it->second;
}

EntityDescription::EntityDescription(ManagedObjectModel* model, std::string name)
    : model_(model), name_(std::move(name)) {
  static std::atomic<std::uint64_t> serials{0};
  serial_ = ++serials;
}

const AttributeDescription* EntityDescription::attributeNamed(std::string_view name) const {
  // Every valueForKey and setValueForKey asks, mostly for the same few names
  // in a row (one attribute of each fetched object), so each thread remembers
  // its last answers: a length and byte compare instead of hashing the name.
  struct Remembered {
    std::uint64_t entity;  // serial; an address may belong to a later entity
    const AttributeDescription* attribute;
  };
  thread_local Remembered remembered[4] = {};
  Remembered& slot = remembered[(name.size() + (name.empty() ? 0 : static_cast<unsigned char>(name[0]))) & 3];
  if (slot.entity == serial_ && slot.attribute->name() == name) return slot.attribute;
  const PropertyDescription* p = propertyNamed(name);
  const AttributeDescription* a =
      p && p->isAttribute() ? static_cast<const AttributeDescription*>(p) : nullptr;
  if (a) slot = Remembered{serial_, a};
  return a;
}

const RelationshipDescription* EntityDescription::relationshipNamed(std::string_view name) const {
  const PropertyDescription* p = propertyNamed(name);
  return p && !p->isAttribute() ? static_cast<const RelationshipDescription*>(p) : nullptr;
}

std::shared_ptr<ManagedObject> EntityDescription::makeInstance() const {
  for (const EntityDescription* e = this; e; e = e->super_) {
    if (e->factory_) {
      auto object = e->factory_();
      if (!object) throw std::logic_error("instance factory of '" + e->name_ + "' returned null");
      return object;
    }
  }
  return std::make_shared<ManagedObject>();
}

EntityDescription& ManagedObjectModel::addEntity(std::string name) {
  if (finalized_) throw std::logic_error("model is finalized; cannot add entity '" + name + "'");
  if (byName_.count(name)) throw std::invalid_argument("duplicate entity '" + name + "'");
  entities_.push_back(std::unique_ptr<EntityDescription>(new EntityDescription(this, name)));
  EntityDescription* e = entities_.back().get();
  e->index_ = static_cast<int>(entities_.size());
  byName_[name] = e;
  return *e;
}

const EntityDescription* ManagedObjectModel::entityNamed(std::string_view name) const {
  auto it = byName_.find(name);
  return it == byName_.end() ? nullptr : it->second;
}

std::vector<const EntityDescription*> ManagedObjectModel::entities() const {
  std::vector<const EntityDescription*> out;
  for (const auto& e : entities_) out.push_back(e.get());
  return out;
}

void ManagedObjectModel::finalize() {
  if (finalized_) return;
  // Superentities first, so that a subentity can copy its parent's lists.
  for (auto& e : entities_) {
    if (e->superentityName_.empty()) continue;
    auto it = byName_.find(e->superentityName_);
    if (it == byName_.end()) {
      throw std::invalid_argument("entity '" + e->name_ + "' names unknown superentity '" +
                                  e->superentityName_ + "'");
    }
    e->super_ = it->second;
    it->second->subentities_.push_back(e.get());
  }
  for (auto& e : entities_) {
    int depth = 0;
    for (const EntityDescription* s = e.get(); s; s = s->super_) {
      if (++depth > static_cast<int>(entities_.size())) {
        throw std::invalid_argument("entity '" + e->name_ + "' inherits from itself");
      }
    }
  }
  // Flatten properties in inheritance order.
  std::vector<EntityDescription*> ordered;
  std::function<void(EntityDescription*)> visit = [&](EntityDescription* e) {
    if (std::find(ordered.begin(), ordered.end(), e) != ordered.end()) return;
    if (e->super_) visit(const_cast<EntityDescription*>(e->super_));
    ordered.push_back(e);
  };
  for (auto& e : entities_) visit(e.get());
  for (EntityDescription* e : ordered) {
    if (e->super_) {
      e->allAttributes_ = e->super_->allAttributes_;
      e->allRelationships_ = e->super_->allRelationships_;
      e->toOnes_ = e->super_->toOnes_;
      e->toManys_ = e->super_->toManys_;
      e->byName_ = e->super_->byName_;
    }
    for (auto& a : e->ownAttributes_) {
      if (a->name_.empty() || a->name_[0] == '_' || !e->byName_.emplace(a->name_, a.get()).second) {
        throw std::invalid_argument("bad or duplicate property '" + a->name_ + "' in entity '" + e->name_ +
                                    "'");
      }
      a->slot_ = e->allAttributes_.size();
      e->allAttributes_.push_back(a.get());
    }
    for (auto& r : e->ownRelationships_) {
      if (r->name_.empty() || r->name_[0] == '_' || !e->byName_.emplace(r->name_, r.get()).second) {
        throw std::invalid_argument("bad or duplicate property '" + r->name_ + "' in entity '" + e->name_ +
                                    "'");
      }
      auto dest = byName_.find(r->destinationName_);
      if (dest == byName_.end()) {
        throw std::invalid_argument("relationship '" + e->name_ + "." + r->name_ +
                                    "' names unknown entity '" + r->destinationName_ + "'");
      }
      r->destination_ = dest->second;
      auto& list = r->toMany_ ? e->toManys_ : e->toOnes_;
      r->slot_ = list.size();
      list.push_back(r.get());
      e->allRelationships_.push_back(r.get());
    }
  }
  // Inverses must point back at each other.
  for (auto& e : entities_) {
    for (auto& r : e->ownRelationships_) {
      if (r->inverseName_.empty()) continue;
      const RelationshipDescription* inv = r->destination_->relationshipNamed(r->inverseName_);
      if (!inv || inv->inverseName_ != r->name_ || !e->isKindOfEntity(*inv->destination_)) {
        throw std::invalid_argument("inverse of '" + e->name_ + "." + r->name_ + "' is not '" +
                                    r->destinationName_ + "." + r->inverseName_ + "' pointing back");
      }
      r->inverse_ = inv;
    }
  }
  // Version hashes: a digest of what decides the shape of the stored data.
  for (auto& e : entities_) {
    std::string text = "entity:" + e->name_ + ";super:" + e->superentityName_ + ";";
    std::vector<std::string> parts;
    for (auto& a : e->ownAttributes_) {
      if (a->transient_) continue;
      parts.push_back("a:" + a->name_ + ":" + typeName(a->type_));
    }
    for (auto& r : e->ownRelationships_) {
      parts.push_back("r:" + r->name_ + ":" + r->destinationName_ + ":" + (r->toMany_ ? "many" : "one") +
                      (r->ordered_ ? ":ordered" : "") + ":" + r->inverseName_);
    }
    std::sort(parts.begin(), parts.end());
    for (const auto& p : parts) text += p + ";";
    const auto digest = sha256(text);
    e->versionHash_.assign(digest.begin(), digest.end());
  }
  for (auto& e : entities_) e->chainHash_ = std::hash<std::string>()(e->rootEntity().name());
  finalized_ = true;
}

std::map<std::string, Value::Data> ManagedObjectModel::entityVersionHashesByName() const {
  std::map<std::string, Value::Data> out;
  for (const auto& e : entities_) out[e->name_] = e->versionHash_;
  return out;
}

bool ManagedObjectModel::isConfigurationCompatibleWithStoreMetadata(const Value::Dictionary& metadata) const {
  auto it = metadata.find(kStoreModelVersionHashesKey);
  if (it == metadata.end() || !it->second.asDictionary()) return false;
  const Value::Dictionary& stored = *it->second.asDictionary();
  if (stored.size() != entities_.size()) return false;
  for (const auto& e : entities_) {
    auto s = stored.find(e->name_);
    if (s == stored.end() || !s->second.asData() || *s->second.asData() != e->versionHash_) return false;
  }
  return true;
}

// --- Value transformers.

namespace {
std::mutex gTransformerMutex;
std::map<std::string, std::shared_ptr<const ValueTransformer>>& transformers() {
  static std::map<std::string, std::shared_ptr<const ValueTransformer>> map;
  return map;
}
}  // namespace

void ValueTransformer::setValueTransformer(std::shared_ptr<const ValueTransformer> transformer,
                                           const std::string& name) {
  std::lock_guard<std::mutex> lock(gTransformerMutex);
  if (transformer) {
    transformers()[name] = std::move(transformer);
  } else {
    transformers().erase(name);
  }
}

std::shared_ptr<const ValueTransformer> ValueTransformer::valueTransformerForName(const std::string& name) {
  std::lock_guard<std::mutex> lock(gTransformerMutex);
  auto it = transformers().find(name);
  return it == transformers().end() ? nullptr : it->second;
}

}  // namespace lumeo
