// Row traffic of the SQLite store: cached statements, value conversion
// between attributes and columns, reading rows and to-many members, and the
// writes of a save (inserts, versioned updates, deletes, join tables).
#include <cstring>

#include "objectgraph/object_graph_error.h"
#include "objectgraph/sqlite_store.h"

namespace lumeo {

sqlite3_stmt* SQLiteStore::prepare(const std::string& sql, OptionalError& error) {
  auto it = statements_.find(sql);
  if (it != statements_.end()) {
    sqlite3_reset(it->second);
    sqlite3_clear_bindings(it->second);
    return it->second;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v3(db_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                         &statement, nullptr) != SQLITE_OK) {
    error = lastError("cannot prepare " + sql, kSQLiteError);
    return nullptr;
  }
  statements_[sql] = statement;
  return statement;
}

Error SQLiteStore::lastError(const std::string& what, long code) const {
  Error e(kObjectGraphErrorDomain, code, what + ": " + sqlite3_errmsg(db_));
  e.userInfo["SQLiteErrorCode"] = Value(sqlite3_extended_errcode(db_));
  return e;
}

Value SQLiteStore::sqlValue(const Value& v) {
  switch (v.type()) {
    case Value::Type::kBool:
      return Value(v.toBool() ? 1 : 0);
    case Value::Type::kDate:
      return Value(v.asDate()->timeIntervalSince1970());
    default:
      return v;
  }
}

void SQLiteStore::bind(sqlite3_stmt* s, int index, const Value& v) {
  switch (v.type()) {
    case Value::Type::kBool:
      sqlite3_bind_int(s, index, v.toBool() ? 1 : 0);
      break;
    case Value::Type::kDate:
      sqlite3_bind_double(s, index, v.asDate()->timeIntervalSince1970());
      break;
    case Value::Type::kNull:
      sqlite3_bind_null(s, index);
      break;
    case Value::Type::kInteger:
      sqlite3_bind_int64(s, index, v.toInt());
      break;
    case Value::Type::kReal:
      sqlite3_bind_double(s, index, v.toDouble());
      break;
    case Value::Type::kString:
      sqlite3_bind_text(s, index, v.asString()->data(), static_cast<int>(v.asString()->size()),
                        SQLITE_TRANSIENT);
      break;
    case Value::Type::kData:
      sqlite3_bind_blob(s, index, v.asData()->data(), static_cast<int>(v.asData()->size()), SQLITE_TRANSIENT);
      break;
    default: {
      Value::Data data = encodeValue(v);
      sqlite3_bind_blob(s, index, data.data(), static_cast<int>(data.size()), SQLITE_TRANSIENT);
    }
  }
}

bool SQLiteStore::query(const std::string& sql, const std::vector<Value>& bindings,
                        const std::function<bool(sqlite3_stmt*)>& row, OptionalError& error) {
  sqlite3_stmt* s = prepare(sql, error);
  if (!s) return false;
  for (std::size_t i = 0; i < bindings.size(); ++i) bind(s, static_cast<int>(i + 1), bindings[i]);
  for (;;) {
    int rc = sqlite3_step(s);
    if (rc == SQLITE_ROW) {
      if (!row(s)) break;
      continue;
    }
    if (rc == SQLITE_DONE) break;
    error = lastError("cannot run " + sql, kSQLiteError);
    sqlite3_reset(s);
    return false;
  }
  sqlite3_reset(s);
  return true;
}

bool SQLiteStore::execute(const std::string& sql, OptionalError& error) {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    error = objectGraphError(kSQLiteError, "cannot run " + sql + ": " + (message ? message : "?"));
    error->userInfo["SQLiteErrorCode"] = Value(sqlite3_extended_errcode(db_));
    sqlite3_free(message);
    return false;
  }
  return true;
}

Value SQLiteStore::readAttributeColumn(const AttributeDescription& a, sqlite3_stmt* s, int column) const {
  // One call for the column, then the cheap value accessors: each column
  // call checks the statement anew, which a 100,000-row fetch notices. The
  // coordinator's lock serialises the connection, so the column's value may
  // be read this way.
  sqlite3_value* value = sqlite3_column_value(s, column);
  const int kind = sqlite3_value_type(value);
  if (kind == SQLITE_NULL) return {};
  switch (a.attributeType()) {
    case AttributeType::kString:
      if (kind != SQLITE_TEXT) return {};
      return Value(std::string(reinterpret_cast<const char*>(sqlite3_value_text(value)),
                               static_cast<std::size_t>(sqlite3_value_bytes(value))));
    case AttributeType::kInteger16:
    case AttributeType::kInteger32:
    case AttributeType::kInteger64:
      if (kind != SQLITE_INTEGER && kind != SQLITE_FLOAT) return {};
      return Value(static_cast<long long>(sqlite3_value_int64(value)));
    case AttributeType::kBoolean:
      if (kind != SQLITE_INTEGER && kind != SQLITE_FLOAT) return {};
      return Value(sqlite3_value_int64(value) != 0);
    case AttributeType::kDouble:
      if (kind != SQLITE_INTEGER && kind != SQLITE_FLOAT) return {};
      return Value(sqlite3_value_double(value));
    case AttributeType::kDate:
      if (kind != SQLITE_INTEGER && kind != SQLITE_FLOAT) return {};
      return Value(Date::fromTimeIntervalSince1970(sqlite3_value_double(value)));
    case AttributeType::kBinary:
    case AttributeType::kTransformable: {
      const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_value_blob(value));
      Value::Data data(bytes, bytes + sqlite3_value_bytes(value));
      if (a.attributeType() == AttributeType::kBinary) return Value(std::move(data));
      if (!a.valueTransformerName().empty()) {
        auto transformer = ValueTransformer::valueTransformerForName(a.valueTransformerName());
        return transformer ? transformer->reverseTransformedValue(data) : Value();
      }
      return decodeValue(data);
    }
  }
  return {};
}

Value SQLiteStore::columnValueFor(const AttributeDescription& a, const Value& value) const {
  if (value.isNull()) return value;
  if (a.attributeType() != AttributeType::kTransformable) return sqlValue(value);
  if (!a.valueTransformerName().empty()) {
    auto transformer = ValueTransformer::valueTransformerForName(a.valueTransformerName());
    if (!transformer) return {};
    return Value(transformer->transformedValue(value));
  }
  return Value(encodeValue(value));
}

const EntityDescription& SQLiteStore::rowEntity(const EntityDescription& anyOfChain, sqlite3_stmt* s) const {
  const EntityDescription* entity = entityForNumber(anyOfChain, sqlite3_column_int(s, 1));
  return entity ? *entity : anyOfChain;
}

void SQLiteStore::readColumns(const EntityDescription& entity, sqlite3_stmt* s, ValueSlots& attributeValues,
                              IdSlots& toOne) const {
  const Layout& layout = layoutFor(entity);
  const auto& attributeColumns = layout.attributeColumn.at(&entity);
  const auto& attributes = entity.attributes();
  // Built by appending: a value is constructed once in place instead of
  // being made null first and then assigned.
  attributeValues.clear();
  attributeValues.reserve(attributes.size());
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    if (attributeColumns[i] >= 0) {
      attributeValues.push_back(readAttributeColumn(*attributes[i], s, attributeColumns[i] + 3));
    } else {
      attributeValues.emplace_back();
    }
  }
  const auto& toOneColumns = layout.toOneColumn.at(&entity);
  const auto& toOnes = entity.toOneRelationships();
  toOne.clear();
  toOne.resize(toOnes.size());
  for (std::size_t i = 0; i < toOnes.size(); ++i) {
    sqlite3_value* value = sqlite3_column_value(s, toOneColumns[i] + 3);
    if (sqlite3_value_type(value) == SQLITE_NULL) continue;
    // Only a destination with subentities needs a look at the target's row
    // to know its entity; that happens lazily when the fault fires.
    toOne[i] =
        ManagedObjectID::makePermanent(toOnes[i]->destinationEntity(), interned_, sqlite3_value_int64(value));
  }
}

RowSnapshot SQLiteStore::rowFromStatement(const EntityDescription& anyOfChain, sqlite3_stmt* s) const {
  RowSnapshot row;
  row.entity = &rowEntity(anyOfChain, s);
  row.id = rowID(*row.entity, s);
  row.version = rowVersion(s);
  readColumns(*row.entity, s, row.attributes, row.toOne);
  return row;
}

bool SQLiteStore::readRow(const ManagedObjectID& id, RowSnapshot& out, OptionalError& error) {
  if (id.isTemporaryID() || id.storeIdentifier() != identifier_) return false;
  bool found = false;
  if (!query(
          selectPrefix(id.entity()) + " WHERE t0._pk = ?", {Value(static_cast<long long>(id.primaryKey()))},
          [&](sqlite3_stmt* s) {
            out = rowFromStatement(id.entity(), s);
            found = true;
            return false;
          },
          error)) {
    return false;
  }
  return found;
}

bool SQLiteStore::readRows(const EntityDescription& anyOfChain, const std::vector<std::int64_t>& pks,
                           const std::function<void(RowSnapshot&&)>& sink, OptionalError& error) {
  if (pks.empty()) return true;
  std::string list = "[";
  for (std::size_t i = 0; i < pks.size(); ++i) {
    if (i) list += ',';
    list += std::to_string(pks[i]);
  }
  list += "]";
  return query(
      selectPrefix(anyOfChain) + " WHERE t0._pk IN (SELECT value FROM json_each(?))", {Value(list)},
      [&](sqlite3_stmt* s) {
        sink(rowFromStatement(anyOfChain, s));
        return true;
      },
      error);
}

bool SQLiteStore::readToMany(const ManagedObjectID& source, const RelationshipDescription& r,
                             std::vector<ManagedObjectID>& out, OptionalError& error) {
  out.clear();
  if (source.isTemporaryID()) return true;
  const EntityDescription& destination = r.destinationEntity();
  const std::string destinationTable = tableFor(destination);
  std::string sql;
  auto join = joinTableFor(r);
  if (!join) {
    sql = "SELECT d._pk, d._ent FROM " + destinationTable + " d WHERE d." +
          columnFor(*r.inverseRelationship()) + " = ? ORDER BY d._pk";
  } else if (join->sourceIsOwner) {
    sql = "SELECT d._pk, d._ent FROM " + join->table + " j JOIN " + destinationTable +
          " d ON d._pk = j._dst WHERE j._src = ? ORDER BY " + (join->ordered ? "j._idx" : "j.rowid");
  } else {
    sql = "SELECT d._pk, d._ent FROM " + join->table + " j JOIN " + destinationTable +
          " d ON d._pk = j._src WHERE j._dst = ? ORDER BY j.rowid";
  }
  return query(
      sql, {Value(static_cast<long long>(source.primaryKey()))},
      [&](sqlite3_stmt* s) {
        out.push_back(makeID(destination, sqlite3_column_int(s, 1), sqlite3_column_int64(s, 0)));
        return true;
      },
      error);
}

bool SQLiteStore::begin(OptionalError& error) {
  if (!execute("BEGIN IMMEDIATE", error)) return false;
  inTransaction_ = true;
  return true;
}

bool SQLiteStore::commit(OptionalError& error) {
  if (!execute("COMMIT", error)) return false;
  inTransaction_ = false;
  return true;
}

void SQLiteStore::rollback() {
  if (sqlite3_get_autocommit(db_) == 0) {
    OptionalError ignored;
    execute("ROLLBACK", ignored);
  }
  inTransaction_ = false;
}

bool SQLiteStore::allocatePrimaryKeys(const EntityDescription& entity, std::int64_t count,
                                      std::int64_t& first, OptionalError& error) {
  const std::string& name = entity.rootEntity().name();
  std::int64_t max = 0;
  if (!query(
          "SELECT max FROM _og_pk WHERE name = ?", {Value(name)},
          [&](sqlite3_stmt* s) {
            max = sqlite3_column_int64(s, 0);
            return false;
          },
          error)) {
    return false;
  }
  first = max + 1;
  return query(
      "INSERT OR REPLACE INTO _og_pk(name, max) VALUES(?, ?)",
      {Value(name), Value(static_cast<long long>(max + count))}, [](sqlite3_stmt*) { return true; }, error);
}

// Binds the object's columns (attributes, then to-one targets) from `index`
// on; returns the next free index.
int SQLiteStore::bindColumns(sqlite3_stmt* s, int index, const ObjectState& o) const {
  const auto& attributes = o.entity->attributes();
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    if (attributes[i]->isTransient()) continue;
    if (attributes[i]->attributeType() == AttributeType::kTransformable) {
      bind(s, index++, columnValueFor(*attributes[i], o.attributes[i]));
    } else {
      bind(s, index++, o.attributes[i]);
    }
  }
  for (const ManagedObjectID& target : o.toOne) {
    if (target && !target.isTemporaryID()) {
      sqlite3_bind_int64(s, index++, target.primaryKey());
    } else {
      sqlite3_bind_null(s, index++);
    }
  }
  return index;
}

SQLiteStore::EntitySQL& SQLiteStore::entitySQL(const EntityDescription& e) {
  auto it = entitySQL_.find(&e);
  if (it != entitySQL_.end()) return it->second;
  EntitySQL sql;
  std::string columns, marks, sets;
  for (const AttributeDescription* a : e.attributes()) {
    if (a->isTransient()) continue;
    columns += ", " + columnFor(*a);
    marks += ", ?";
    sets += ", " + columnFor(*a) + " = ?";
  }
  for (const RelationshipDescription* r : e.toOneRelationships()) {
    columns += ", " + columnFor(*r);
    marks += ", ?";
    sets += ", " + columnFor(*r) + " = ?";
  }
  sql.insert.sql =
      "INSERT INTO " + tableFor(e) + "(_pk, _ent, _opt" + columns + ") VALUES(?, ?, 1" + marks + ")";
  sql.update.sql = "UPDATE " + tableFor(e) + " SET _opt = _opt + 1" + sets + " WHERE _pk = ? RETURNING _opt";
  sql.updateChecked.sql =
      "UPDATE " + tableFor(e) + " SET _opt = _opt + 1" + sets + " WHERE _pk = ? AND _opt = ? RETURNING _opt";
  return entitySQL_.emplace(&e, std::move(sql)).first->second;
}

sqlite3_stmt* SQLiteStore::reuse(CachedStatement& cached, OptionalError& error) {
  if (cached.statement) {
    sqlite3_reset(cached.statement);
    sqlite3_clear_bindings(cached.statement);
    return cached.statement;
  }
  cached.statement = prepare(cached.sql, error);
  return cached.statement;
}

bool SQLiteStore::insertRow(const ObjectState& o, OptionalError& error) {
  sqlite3_stmt* s = reuse(entitySQL(*o.entity).insert, error);
  if (!s) return false;
  sqlite3_bind_int64(s, 1, o.id.primaryKey());
  sqlite3_bind_int(s, 2, entityNumbers_.at(o.entity->name()));
  bindColumns(s, 3, o);
  const int rc = sqlite3_step(s);
  sqlite3_reset(s);
  if (rc != SQLITE_DONE) {
    error = lastError("cannot insert into " + o.entity->name(), kPersistentStoreSaveError);
    return false;
  }
  return true;
}

bool SQLiteStore::updateRow(const ObjectState& o, bool checkVersion, bool& conflict, std::int64_t& newVersion,
                            OptionalError& error) {
  conflict = false;
  EntitySQL& sql = entitySQL(*o.entity);
  sqlite3_stmt* s = reuse(checkVersion ? sql.updateChecked : sql.update, error);
  if (!s) return false;
  int index = bindColumns(s, 1, o);
  sqlite3_bind_int64(s, index++, o.id.primaryKey());
  if (checkVersion) sqlite3_bind_int64(s, index++, o.version);
  int rc = sqlite3_step(s);
  if (rc == SQLITE_ROW) {
    newVersion = sqlite3_column_int64(s, 0);
    rc = sqlite3_step(s);
  } else if (rc == SQLITE_DONE) {
    conflict = true;
  }
  sqlite3_reset(s);
  if (rc != SQLITE_DONE) {
    error = lastError("cannot update " + o.entity->name(), kPersistentStoreSaveError);
    return false;
  }
  return true;
}

bool SQLiteStore::deleteRow(const ManagedObjectID& id, OptionalError& error) {
  const std::vector<Value> key{Value(static_cast<long long>(id.primaryKey()))};
  auto noRows = [](sqlite3_stmt*) { return true; };
  if (!query("DELETE FROM " + tableFor(id.entity()) + " WHERE _pk = ?", key, noRows, error)) return false;
  // Join rows on either side of every many-to-many of the chain.
  for (const EntityDescription* member : id.entity().rootEntity().selfAndSubentities()) {
    for (const RelationshipDescription* r : member->toManyRelationships()) {
      if (r->entity().name() != member->name()) continue;
      auto join = joinTableFor(*r);
      if (!join) continue;
      const char* column = join->sourceIsOwner ? "_src" : "_dst";
      if (!query("DELETE FROM " + join->table + " WHERE " + column + " = ?", key, noRows, error))
        return false;
    }
  }
  return true;
}

bool SQLiteStore::writeToMany(const ObjectState& o, const RelationshipDescription& r, OptionalError& error) {
  auto it = joinSQL_.find(&r);
  if (it == joinSQL_.end()) {
    JoinSQL sql;
    if (auto join = joinTableFor(r); join && join->sourceIsOwner) {
      sql.written = true;
      sql.ordered = join->ordered;
      sql.clear.sql = "DELETE FROM " + join->table + " WHERE _src = ?";
      sql.remove.sql = "DELETE FROM " + join->table + " WHERE _src = ? AND _dst = ?";
      sql.add.sql = "INSERT OR IGNORE INTO " + join->table + "(_src, _dst) VALUES(?, ?)";
      sql.place.sql = "INSERT OR REPLACE INTO " + join->table + "(_src, _dst, _idx) VALUES(?, ?, ?)";
    }
    it = joinSQL_.emplace(&r, std::move(sql)).first;
  }
  JoinSQL& sql = it->second;
  if (!sql.written) return true;
  if (o.toMany.size() <= r.slot()) return true;  // never touched
  const ToManyState& state = o.toMany[r.slot()];
  const std::int64_t source = o.id.primaryKey();
  auto run = [&](CachedStatement& cached, std::int64_t member, std::int64_t index, int arity) {
    sqlite3_stmt* s = reuse(cached, error);
    if (!s) return false;
    sqlite3_bind_int64(s, 1, source);
    if (arity > 1) sqlite3_bind_int64(s, 2, member);
    if (arity > 2) sqlite3_bind_int64(s, 3, index);
    const int rc = sqlite3_step(s);
    sqlite3_reset(s);
    if (rc != SQLITE_DONE) {
      error = lastError("cannot write " + r.entity().name() + "." + r.name(), kPersistentStoreSaveError);
      return false;
    }
    return true;
  };
  if (sql.ordered) {
    if (!run(sql.clear, 0, 0, 1)) return false;
    std::int64_t index = 0;
    for (const ManagedObjectID& member : state.current.items()) {
      if (!run(sql.place, member.primaryKey(), index++, 3)) return false;
    }
    return true;
  }
  for (const ManagedObjectID& member : state.removed.items()) {
    if (!run(sql.remove, member.primaryKey(), 0, 2)) return false;
  }
  for (const ManagedObjectID& member : state.added.items()) {
    if (!run(sql.add, member.primaryKey(), 0, 2)) return false;
  }
  return true;
}

}  // namespace lumeo
