// Opening an SQLite store: connection, pragmas, schema creation and the
// lightweight migration that adds new entities, attributes and
// relationships to an older file. Everything of the schema work happens in
// one transaction, so a failed open leaves the file as it was.
#include "objectgraph/sqlite_store.h"

#include <random>
#include <set>

#include "objectgraph/object_graph_error.h"
#include "objectgraph/persistent_store_coordinator.h"

namespace lumeo {

namespace {

std::string quote(const std::string& name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string sqlType(AttributeType type) {
  switch (type) {
    case AttributeType::kString:
      return "TEXT";
    case AttributeType::kInteger16:
    case AttributeType::kInteger32:
    case AttributeType::kInteger64:
    case AttributeType::kBoolean:
      return "INTEGER";
    case AttributeType::kDouble:
    case AttributeType::kDate:
      return "REAL";
    case AttributeType::kBinary:
    case AttributeType::kTransformable:
      return "BLOB";
  }
  return "BLOB";
}

std::string literal(const Value& v) {
  switch (v.type()) {
    case Value::Type::kBool:
    case Value::Type::kInteger:
      return std::to_string(v.toInt());
    case Value::Type::kReal: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.17g", v.toDouble());
      return buf;
    }
    case Value::Type::kDate: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.17g", v.asDate()->timeIntervalSince1970());
      return buf;
    }
    case Value::Type::kString: {
      std::string out = "'";
      for (char c : *v.asString()) {
        if (c == '\'') out += '\'';
        out += c;
      }
      return out + "'";
    }
    default:
      return {};
  }
}

std::string newUUID() {
  std::random_device rd;
  std::uniform_int_distribution<int> hex(0, 15);
  const char* digits = "0123456789ABCDEF";
  std::string out;
  for (int i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) out += '-';
    out += digits[hex(rd)];
  }
  return out;
}

std::string relationshipKey(const RelationshipDescription& r) {
  return r.entity().name() + "." + r.name();
}

}  // namespace

std::unique_ptr<SQLiteStore> SQLiteStore::open(const ManagedObjectModel& model, const std::string& type,
                                               const std::filesystem::path& url,
                                               const Value::Dictionary& options, OptionalError& error) {
  std::unique_ptr<SQLiteStore> store(new SQLiteStore(model));
  store->buildLayouts();
  if (!store->openDatabase(type, url, options, error)) return nullptr;
  if (!store->setUpSchema(options, error)) return nullptr;
  return store;
}

SQLiteStore::~SQLiteStore() {
  for (auto& [sql, statement] : statements_) sqlite3_finalize(statement);
  if (db_) sqlite3_close_v2(db_);
}

bool SQLiteStore::openDatabase(const std::string& type, const std::filesystem::path& url,
                               const Value::Dictionary& options, OptionalError& error) {
  const bool inMemory = type == kInMemoryStoreType;
  const bool readOnly =
      options.count(kReadOnlyPersistentStoreOption) && options.at(kReadOnlyPersistentStoreOption).toBool();
  int flags = readOnly ? SQLITE_OPEN_READONLY : (SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  flags |= SQLITE_OPEN_NOMUTEX;
  std::string path = inMemory ? std::string(":memory:") : url.string();
  if (!inMemory && !readOnly && url.has_parent_path()) {
    std::error_code ec;
    std::filesystem::create_directories(url.parent_path(), ec);
  }
  if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
    error = objectGraphError(kPersistentStoreOpenError, "cannot open store at " + path + ": " +
                                                            (db_ ? sqlite3_errmsg(db_) : "out of memory"));
    return false;
  }
  sqlite3_busy_timeout(db_, 5000);
  sqlite3_extended_result_codes(db_, 1);
  registerPredicateFunctions(db_);
  // A file that is no SQLite database fails on its first read.
  if (!execute("SELECT count(*) FROM sqlite_master", error)) {
    error = objectGraphError(kPersistentStoreInvalidTypeError,
                             "file at " + path + " is not a store: " + sqlite3_errmsg(db_));
    return false;
  }
  std::map<std::string, std::string> pragmas;
  if (!inMemory) pragmas["journal_mode"] = "WAL";
  auto it = options.find(kSQLitePragmasOption);
  if (it != options.end() && it->second.asDictionary()) {
    for (const auto& [name, value] : *it->second.asDictionary()) {
      pragmas[name] = value.asString() ? *value.asString() : std::to_string(value.toInt());
    }
  }
  for (const auto& [name, value] : pragmas) {
    bool safe = !name.empty();
    for (char c : name + value) {
      if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-') safe = false;
    }
    if (!safe) {
      error = objectGraphError(kPersistentStoreOpenError, "bad pragma " + name + " = " + value);
      return false;
    }
    if (readOnly && name == "journal_mode") continue;
    if (!query(
            "PRAGMA " + name + " = " + value, {}, [](sqlite3_stmt*) { return true; }, error))
      return false;
  }
  return true;
}

void SQLiteStore::buildLayouts() {
  for (const EntityDescription* e : model_.entities()) {
    if (e->superentity()) continue;
    Layout& layout = layouts_[e];
    layout.root = e;
    layout.table = quote(e->name());
    std::map<std::string, int> columnIndex;
    auto column = [&](const std::string& name, const std::string& type) {
      auto found = columnIndex.find(name);
      if (found != columnIndex.end()) return found->second;
      int index = static_cast<int>(layout.columns.size());
      columnIndex[name] = index;
      layout.columns.push_back(quote(name));
      layout.columnTypes.push_back(type);
      return index;
    };
    for (const EntityDescription* member : e->selfAndSubentities()) {
      auto& attrs = layout.attributeColumn[member];
      for (const AttributeDescription* a : member->attributes()) {
        attrs.push_back(a->isTransient() ? -1 : column(a->name(), sqlType(a->attributeType())));
      }
      auto& toOnes = layout.toOneColumn[member];
      for (const RelationshipDescription* r : member->toOneRelationships()) {
        toOnes.push_back(column(r->name(), "INTEGER"));
      }
    }
    layout.selectPrefix = "SELECT t0._pk, t0._ent, t0._opt";
    for (const auto& c : layout.columns) layout.selectPrefix += ", t0." + c;
    layout.selectPrefix += " FROM " + layout.table + " t0";
  }
}

const SQLiteStore::Layout& SQLiteStore::layoutFor(const EntityDescription& entity) const {
  return layouts_.at(&entity.rootEntity());
}

std::string SQLiteStore::tableFor(const EntityDescription& entity) const {
  return layoutFor(entity).table;
}

std::string SQLiteStore::columnFor(const PropertyDescription& property) const {
  return quote(property.name());
}

const std::string& SQLiteStore::selectPrefix(const EntityDescription& entity) const {
  return layoutFor(entity).selectPrefix;
}

std::string SQLiteStore::entityFilter(const EntityDescription& entity, bool includeSubentities,
                                      const std::string& alias) const {
  const EntityDescription& root = entity.rootEntity();
  std::vector<const EntityDescription*> wanted =
      includeSubentities ? entity.selfAndSubentities() : std::vector<const EntityDescription*>{&entity};
  if (wanted.size() == root.selfAndSubentities().size()) return {};
  std::string out = alias + "._ent IN (";
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (i) out += ",";
    out += std::to_string(entityNumbers_.at(wanted[i]->name()));
  }
  return out + ")";
}

std::optional<SQLiteStore::JoinTable> SQLiteStore::joinTableFor(const RelationshipDescription& r) const {
  if (!r.isToMany()) return std::nullopt;
  const RelationshipDescription* inv = r.inverseRelationship();
  if (inv && !inv->isToMany() && !r.isOrdered()) return std::nullopt;
  const RelationshipDescription* owner = &r;
  if (inv && inv->isToMany()) {
    if (inv->isOrdered() && !r.isOrdered()) {
      owner = inv;
    } else if (inv->isOrdered() == r.isOrdered() && relationshipKey(*inv) < relationshipKey(r)) {
      owner = inv;
    }
  }
  return JoinTable{quote(owner->entity().name() + "_" + owner->name()), owner == &r, owner->isOrdered()};
}

ManagedObjectID SQLiteStore::makeID(const EntityDescription& anyOfChain, int entityNumber,
                                    std::int64_t pk) const {
  const EntityDescription* e = entityForNumber(anyOfChain, entityNumber);
  return ManagedObjectID::makePermanent(e ? *e : anyOfChain, interned_, pk);
}

const EntityDescription* SQLiteStore::entityForNumber(const EntityDescription& anyOfChain,
                                                      int entityNumber) const {
  auto it = entitiesByNumber_.find(entityNumber);
  if (it == entitiesByNumber_.end()) return nullptr;
  return &it->second->rootEntity() == &anyOfChain.rootEntity() ? it->second : nullptr;
}

bool SQLiteStore::setUpSchema(const Value::Dictionary& options, OptionalError& error) {
  bool hasMetadata = false;
  bool hasOtherTables = false;
  if (!query(
          "SELECT name FROM sqlite_master WHERE type = 'table'", {},
          [&](sqlite3_stmt* s) {
            std::string name = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
            if (name == "_og_metadata")
              hasMetadata = true;
            else if (name.rfind("sqlite_", 0) != 0)
              hasOtherTables = true;
            return true;
          },
          error)) {
    return false;
  }
  if (hasOtherTables && !hasMetadata) {
    error =
        objectGraphError(kPersistentStoreInvalidTypeError, "the database holds tables of another program");
    return false;
  }
  const bool readOnly =
      options.count(kReadOnlyPersistentStoreOption) && options.at(kReadOnlyPersistentStoreOption).toBool();
  if (hasMetadata) {
    query(
        "SELECT value FROM _og_metadata WHERE key = 'metadata'", {},
        [&](sqlite3_stmt* s) {
          const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, 0));
          Value::Data data(bytes, bytes + sqlite3_column_bytes(s, 0));
          Value decoded = decodeValue(data);
          storedMetadata_ = std::move(data);
          if (decoded.asDictionary()) metadata_ = *decoded.asDictionary();
          return false;
        },
        error);
    if (error) return false;
    auto migrate = options.find(kMigratePersistentStoresAutomaticallyOption);
    auto infer = options.find(kInferMappingModelAutomaticallyOption);
    const bool mayMigrate = migrate != options.end() && migrate->second.toBool() && infer != options.end() &&
                            infer->second.toBool();
    if (!model_.isConfigurationCompatibleWithStoreMetadata(metadata_) && (!mayMigrate || readOnly)) {
      error = objectGraphError(kPersistentStoreIncompatibleVersionHashError,
                               "the store was made by another version of the model");
      return false;
    }
  } else if (readOnly) {
    error = objectGraphError(kPersistentStoreOpenError, "no store to open read-only");
    return false;
  }
  identifier_ = metadata_[kStoreUUIDKey].toString();
  if (identifier_.empty()) identifier_ = newUUID();
  interned_ = ManagedObjectID::internStoreIdentifier(identifier_);

  if (readOnly) {
    return query(
        "SELECT _ent, name FROM _og_entities", {},
        [&](sqlite3_stmt* s) {
          int number = sqlite3_column_int(s, 0);
          std::string name = reinterpret_cast<const char*>(sqlite3_column_text(s, 1));
          entityNumbers_[name] = number;
          if (const EntityDescription* e = model_.entityNamed(name)) entitiesByNumber_[number] = e;
          return true;
        },
        error);
  }

  if (!begin(error)) return false;
  auto fail = [&]() {
    rollback();
    return false;
  };
  if (!execute("CREATE TABLE IF NOT EXISTS _og_metadata(key TEXT PRIMARY KEY, value BLOB)", error) ||
      !execute("CREATE TABLE IF NOT EXISTS _og_entities(_ent INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL)",
               error) ||
      !execute("CREATE TABLE IF NOT EXISTS _og_pk(name TEXT PRIMARY KEY, max INTEGER NOT NULL)", error)) {
    return fail();
  }
  int maxNumber = 0;
  if (!query(
          "SELECT _ent, name FROM _og_entities", {},
          [&](sqlite3_stmt* s) {
            int number = sqlite3_column_int(s, 0);
            entityNumbers_[reinterpret_cast<const char*>(sqlite3_column_text(s, 1))] = number;
            maxNumber = std::max(maxNumber, number);
            return true;
          },
          error)) {
    return fail();
  }
  for (const EntityDescription* e : model_.entities()) {
    if (!entityNumbers_.count(e->name())) {
      entityNumbers_[e->name()] = ++maxNumber;
      if (!query(
              "INSERT INTO _og_entities(_ent, name) VALUES(?, ?)", {Value(maxNumber), Value(e->name())},
              [](sqlite3_stmt*) { return true; }, error)) {
        return fail();
      }
    }
    entitiesByNumber_[entityNumbers_[e->name()]] = e;
  }

  for (const auto& [root, layout] : layouts_) {
    std::string create = "CREATE TABLE IF NOT EXISTS " + layout.table +
                         "(_pk INTEGER PRIMARY KEY, _ent INTEGER NOT NULL, _opt INTEGER NOT NULL DEFAULT 1";
    for (std::size_t i = 0; i < layout.columns.size(); ++i) {
      create += ", " + layout.columns[i] + " " + layout.columnTypes[i];
    }
    if (!execute(create + ")", error)) return fail();
    // Columns that an older model did not have.
    std::set<std::string> present;
    if (!query(
            "PRAGMA table_info(" + layout.table + ")", {},
            [&](sqlite3_stmt* s) {
              present.insert(quote(reinterpret_cast<const char*>(sqlite3_column_text(s, 1))));
              return true;
            },
            error)) {
      return fail();
    }
    std::map<std::string, Value> defaults;
    for (const EntityDescription* member : root->selfAndSubentities()) {
      for (const AttributeDescription* a : member->attributes())
        defaults[quote(a->name())] = a->defaultValue();
    }
    for (std::size_t i = 0; i < layout.columns.size(); ++i) {
      if (present.count(layout.columns[i])) continue;
      std::string alter =
          "ALTER TABLE " + layout.table + " ADD COLUMN " + layout.columns[i] + " " + layout.columnTypes[i];
      std::string lit = literal(defaults[layout.columns[i]]);
      if (!lit.empty()) alter += " DEFAULT " + lit;
      if (!execute(alter, error)) return fail();
    }
    std::string base = root->name();
    if (!execute("CREATE INDEX IF NOT EXISTS " + quote(base + "__ent") + " ON " + layout.table + "(_ent)",
                 error)) {
      return fail();
    }
    for (const EntityDescription* member : root->selfAndSubentities()) {
      for (const AttributeDescription* a : member->attributes()) {
        if (!a->isIndexed() || a->entity().name() != member->name()) continue;
        if (!execute("CREATE INDEX IF NOT EXISTS " + quote(base + "_" + a->name()) + " ON " + layout.table +
                         "(" + quote(a->name()) + ")",
                     error)) {
          return fail();
        }
      }
      for (const RelationshipDescription* r : member->toOneRelationships()) {
        if (r->entity().name() != member->name()) continue;
        if (!execute("CREATE INDEX IF NOT EXISTS " + quote(base + "_" + r->name()) + " ON " + layout.table +
                         "(" + quote(r->name()) + ")",
                     error)) {
          return fail();
        }
      }
      for (const RelationshipDescription* r : member->toManyRelationships()) {
        auto join = joinTableFor(*r);
        if (!join || !join->sourceIsOwner || r->entity().name() != member->name()) continue;
        std::string plain = join->table.substr(1, join->table.size() - 2);
        if (!execute("CREATE TABLE IF NOT EXISTS " + join->table +
                         "(_src INTEGER NOT NULL, _dst INTEGER NOT NULL" +
                         (join->ordered ? ", _idx INTEGER NOT NULL DEFAULT 0" : "") + ")",
                     error) ||
            !execute("CREATE UNIQUE INDEX IF NOT EXISTS " + quote(plain + "_pair") + " ON " + join->table +
                         "(_src, _dst)",
                     error) ||
            !execute("CREATE INDEX IF NOT EXISTS " + quote(plain + "_dst") + " ON " + join->table + "(_dst)",
                     error)) {
          return fail();
        }
      }
    }
  }
  if (!writeMetadata(error) || !commit(error)) return fail();
  return true;
}

bool SQLiteStore::writeMetadata(OptionalError& error) {
  Value::Dictionary hashes;
  for (const auto& [name, hash] : model_.entityVersionHashesByName()) hashes[name] = hash;
  metadata_[kStoreModelVersionHashesKey] = hashes;
  metadata_[kStoreUUIDKey] = identifier_;
  metadata_[kStoreTypeKey] = kSQLiteStoreType;
  Value::Data encoded = encodeValue(Value(metadata_));
  if (encoded == storedMetadata_) return true;
  if (!query(
          "INSERT OR REPLACE INTO _og_metadata(key, value) VALUES('metadata', ?)", {Value(encoded)},
          [](sqlite3_stmt*) { return true; }, error)) {
    return false;
  }
  storedMetadata_ = std::move(encoded);
  return true;
}

}  // namespace lumeo
