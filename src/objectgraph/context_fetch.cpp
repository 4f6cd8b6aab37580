// Fetching: the SQL for a request (predicate and sort pushed down where they
// translate), the merge with the context's unsaved changes, batches loaded on
// demand, counts, dictionary results with min/max expressions, and
// prefetching of relationship key paths.
#include <algorithm>
#include <unordered_set>

#include "objectgraph/context_core.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/predicate_sql.h"
#include "objectgraph/sqlite_store.h"
#include "objectgraph/text_folding.h"

namespace lumeo {

namespace {

bool entityMatches(const EntityDescription& e, const EntityDescription& wanted, bool includeSubentities) {
  return includeSubentities ? e.isKindOfEntity(wanted) : e.name() == wanted.name();
}

Value sortValue(const ManagedObject& o, const std::string& key) {
  try {
    return o.valueForKeyPath(key);
  } catch (const std::exception&) {
    return {};
  }
}

// Nil first, then by value; values of different kinds keep their order.
int compareSortValues(const Value& a, const Value& b, bool caseInsensitive) {
  if (a.isNull() || b.isNull()) return a.isNull() == b.isNull() ? 0 : (a.isNull() ? -1 : 1);
  if (a.isNumber() && b.isNumber()) {
    const double x = a.toDouble(), y = b.toDouble();
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  if (a.asDate() && b.asDate()) return *a.asDate() < *b.asDate() ? -1 : (*b.asDate() < *a.asDate() ? 1 : 0);
  if (a.asString() && b.asString()) {
    if (caseInsensitive) {
      const std::string x = foldTextUTF8(*a.asString(), 1), y = foldTextUTF8(*b.asString(), 1);
      return x < y ? -1 : (x > y ? 1 : 0);
    }
    return *a.asString() < *b.asString() ? -1 : (*b.asString() < *a.asString() ? 1 : 0);
  }
  return 0;
}

// Saved rows in row order, new objects after them.
std::int64_t tieKey(const ManagedObjectID& id) {
  return id.isTemporaryID() ? INT64_MAX / 2 - id.rawKey() : id.primaryKey();
}

void sortObjects(std::vector<ManagedObjectPtr>& objects, const std::vector<SortDescriptor>& sort) {
  std::stable_sort(objects.begin(), objects.end(), [&](const ManagedObjectPtr& a, const ManagedObjectPtr& b) {
    for (const auto& d : sort) {
      int c = compareSortValues(sortValue(*a, d.key), sortValue(*b, d.key), d.caseInsensitive);
      if (c != 0) return d.ascending ? c < 0 : c > 0;
    }
    return tieKey(a->objectID()) < tieKey(b->objectID());
  });
}

std::string jsonKeys(const std::vector<std::int64_t>& pks) {
  std::string out = "[";
  for (std::size_t i = 0; i < pks.size(); ++i) out += (i ? "," : "") + std::to_string(pks[i]);
  return out + "]";
}

}  // namespace

bool ContextCore::fetchIDs(const FetchRequest& request, const EntityDescription& entity,
                           std::vector<ManagedObjectID>& ids, std::vector<ManagedObjectPtr>* objects,
                           OptionalError& error) {
  ids.clear();
  const bool includeSub = request.includesSubentities();
  std::vector<ManagedObjectPtr> relevant;
  if (request.includesPendingChanges()) {
    for (auto& o : trackedObjects()) {
      if (entityMatches(*o->state_->entity, entity, includeSub) && o->state_->hasChanges())
        relevant.push_back(o);
    }
  }
  std::vector<ManagedObjectPtr> found;
  std::optional<Predicate> check;  // what memory must still verify
  bool sorted = false;

  if (parent_) {
    FetchRequest upward = request;
    upward.setFetchBatchSize(0);
    if (!relevant.empty()) {
      upward.setFetchLimit(0);
      upward.setFetchOffset(0);
    }
    std::vector<ManagedObjectID> parentIDs;
    {
      ContextCore& parent = parent_->core();
      std::lock_guard<std::recursive_mutex> lock(parent.mutex_);
      if (!parent.fetchIDs(upward, entity, parentIDs, nullptr, error)) return false;
    }
    if (relevant.empty() && !objects) {
      ids = std::move(parentIDs);
      return true;
    }
    for (const auto& id : parentIDs) {
      ManagedObjectPtr o = objectForID(id);
      if (o && fireFault(*o, error)) found.push_back(std::move(o));
      if (error) return false;
    }
    if (relevant.empty()) {
      *objects = std::move(found);
      return true;
    }
    check = request.predicate();
  } else {
    PersistentStoreCoordinator* coordinator = rootCoordinator();
    SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
    if (!store) return true;  // no store: nothing to find
    std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
    SqlTranslation sql = request.predicate() ? PredicateSQL::translate(*request.predicate(), entity, *store)
                                             : SqlTranslation{};
    std::optional<std::string> order = PredicateSQL::orderBy(request.sortDescriptors(), entity, *store, sql);
    const bool needMemory = !sql.complete() || !order || !relevant.empty();
    const bool fullRows = objects || needMemory;
    std::string text = fullRows ? store->selectPrefix(entity)
                                : "SELECT t0._pk, t0._ent FROM " + store->tableFor(entity) + " t0";
    text += sql.joins;
    std::string where = store->entityFilter(entity, includeSub, "t0");
    if (!sql.where.empty()) where += (where.empty() ? "" : " AND ") + sql.where;
    if (!where.empty()) text += " WHERE " + where;
    if (order) text += " ORDER BY " + *order;
    if (!needMemory && (request.fetchLimit() || request.fetchOffset())) {
      text += " LIMIT " + (request.fetchLimit() ? std::to_string(request.fetchLimit()) : std::string("-1")) +
              " OFFSET " + std::to_string(request.fetchOffset());
    }
    std::vector<ManagedObject*> awaken;
    const bool ok = store->query(
        text, sql.bindings,
        [&](sqlite3_stmt* s) {
          if (fullRows) {
            found.push_back(objectFromStatement(*store, entity, s, awaken));
          } else {
            ids.push_back(store->makeID(entity, sqlite3_column_int(s, 1), sqlite3_column_int64(s, 0)));
          }
          return true;
        },
        error);
    // Hooks run once the statement is done with.
    for (ManagedObject* o : awaken) o->awakeFromFetch();
    if (!ok) return false;
    if (!fullRows) return true;
    if (!needMemory) {
      *objects = std::move(found);
      return true;
    }
    check = sql.residual;
    sorted = order.has_value() && relevant.empty();
  }

  // Bring in the unsaved state: drop deleted objects, re-check changed ones,
  // add new and changed ones that now match.
  std::unordered_set<const ManagedObject*> present;
  std::vector<ManagedObjectPtr> result;
  const std::optional<Predicate>& full = request.predicate();
  for (auto& o : found) {
    const ObjectState& s = *o->state_;
    if (request.includesPendingChanges() && s.deleted) continue;
    const bool changed = s.hasChanges() && request.includesPendingChanges();
    if (changed && full && !full->evaluateWithObject(*o)) continue;
    if (!changed && check && !check->evaluateWithObject(*o)) continue;
    present.insert(o.get());
    result.push_back(o);
  }
  for (auto& o : relevant) {
    const ObjectState& s = *o->state_;
    if (s.deleted || present.count(o.get())) continue;
    if (full && !full->evaluateWithObject(*o)) continue;
    result.push_back(o);
  }
  if (!sorted) sortObjects(result, request.sortDescriptors());
  const std::size_t offset = std::min(request.fetchOffset(), result.size());
  std::size_t end = result.size();
  if (request.fetchLimit()) end = std::min(end, offset + request.fetchLimit());
  result = std::vector<ManagedObjectPtr>(result.begin() + static_cast<long>(offset),
                                         result.begin() + static_cast<long>(end));
  if (objects) {
    *objects = std::move(result);
    return true;
  }
  ids.reserve(result.size());
  for (auto& o : result) ids.push_back(o->state_->id);
  return true;
}

FetchResults ContextCore::fetch(const FetchRequest& request, OptionalError& error) {
  const ManagedObjectModel* m = model();
  const EntityDescription* entity = m ? m->entityNamed(request.entityName()) : nullptr;
  if (!entity) {
    error = objectGraphError(kFetchRequestError, "no entity named " + request.entityName());
    return FetchResults();
  }
  if (request.resultType() == FetchRequestResultType::kDictionary)
    return fetchDictionaries(request, *entity, error);
  if (request.resultType() == FetchRequestResultType::kCount) {
    const std::size_t n = count(request, error);
    if (error) return FetchResults();
    return FetchResults(std::vector<Value::Dictionary>{{{"count", Value(static_cast<long long>(n))}}});
  }
  auto source = std::make_shared<FetchResults::Source>();
  source->context = owner_.weak_from_this();
  source->core = this;
  const bool wantObjects = request.resultType() == FetchRequestResultType::kManagedObject;
  const bool batched = wantObjects && request.fetchBatchSize() > 0 && !parent_;
  std::vector<ManagedObjectPtr> objects;
  if (!fetchIDs(request, *entity, source->ids, (wantObjects && !batched) ? &objects : nullptr, error)) {
    return FetchResults();
  }
  if (wantObjects && !batched) {
    source->holdsObjects = true;
    source->objects = std::move(objects);
    for (const auto& keyPath : request.relationshipKeyPathsForPrefetching()) {
      if (!prefetch(source->objects, keyPath, source->keepAlive, error)) return FetchResults();
    }
  }
  source->batchSize = batched ? request.fetchBatchSize() : 0;
  return FetchResults(source);
}

std::size_t ContextCore::count(const FetchRequest& request, OptionalError& error) {
  const ManagedObjectModel* m = model();
  const EntityDescription* entity = m ? m->entityNamed(request.entityName()) : nullptr;
  if (!entity) {
    error = objectGraphError(kFetchRequestError, "no entity named " + request.entityName());
    return SIZE_MAX;
  }
  bool pending = false;
  if (request.includesPendingChanges()) {
    for (auto& o : trackedObjects()) {
      if (entityMatches(*o->state_->entity, *entity, request.includesSubentities()) &&
          o->state_->hasChanges()) {
        pending = true;
        break;
      }
    }
  }
  PersistentStoreCoordinator* coordinator = rootCoordinator();
  SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
  if (!parent_ && !pending && store) {
    std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
    SqlTranslation sql = request.predicate() ? PredicateSQL::translate(*request.predicate(), *entity, *store)
                                             : SqlTranslation{};
    if (sql.complete()) {
      std::string text = "SELECT COUNT(*) FROM " + store->tableFor(*entity) + " t0" + sql.joins;
      std::string where = store->entityFilter(*entity, request.includesSubentities(), "t0");
      if (!sql.where.empty()) where += (where.empty() ? "" : " AND ") + sql.where;
      if (!where.empty()) text += " WHERE " + where;
      std::size_t n = 0;
      if (!store->query(
              text, sql.bindings,
              [&](sqlite3_stmt* s) {
                n = static_cast<std::size_t>(sqlite3_column_int64(s, 0));
                return false;
              },
              error)) {
        return SIZE_MAX;
      }
      n = n > request.fetchOffset() ? n - request.fetchOffset() : 0;
      if (request.fetchLimit()) n = std::min(n, request.fetchLimit());
      return n;
    }
  }
  std::vector<ManagedObjectID> ids;
  if (!fetchIDs(request, *entity, ids, nullptr, error)) return SIZE_MAX;
  return ids.size();
}

OptionalError ContextCore::forEachRow(const FetchRequest& request,
                                      const std::function<void(const std::vector<Value>&)>& row) {
  const ManagedObjectModel* m = model();
  const EntityDescription* entity = m ? m->entityNamed(request.entityName()) : nullptr;
  if (!entity) return objectGraphError(kFetchRequestError, "no entity named " + request.entityName());
  OptionalError error;
  (void)fetchDictionaries(request, *entity, error, &row);
  return error;
}

FetchResults ContextCore::fetchDictionaries(const FetchRequest& request, const EntityDescription& entity,
                                            OptionalError& error,
                                            const std::function<void(const std::vector<Value>&)>* row) {
  // Dictionary results read what is saved, as the platform's do.
  PersistentStoreCoordinator* coordinator = rootCoordinator();
  SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
  if (!store) return FetchResults(std::vector<Value::Dictionary>{});
  std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
  SqlTranslation sql =
      request.predicate() ? PredicateSQL::translate(*request.predicate(), entity, *store) : SqlTranslation{};
  if (!sql.complete()) {
    error = objectGraphError(kFetchRequestError, "the predicate of a dictionary fetch must run in the store");
    return FetchResults();
  }
  struct Column {
    std::string name;
    std::string expr;
    const AttributeDescription* attribute = nullptr;
    std::optional<AttributeType> resultType;
  };
  std::vector<Column> columns;
  std::vector<std::string> plain = request.propertiesToFetch();
  if (plain.empty() && request.expressionsToFetch().empty()) {
    for (const auto* a : entity.attributes()) {
      if (!a->isTransient()) plain.push_back(a->name());
    }
  }
  std::string groupBy;
  for (const auto& name : plain) {
    Column c;
    c.name = name;
    auto expr = PredicateSQL::attributeExpression(name, entity, *store, sql, &c.attribute);
    if (!expr) {
      error = objectGraphError(kFetchRequestError, "'" + name + "' is no attribute of " + entity.name());
      return FetchResults();
    }
    c.expr = *expr;
    groupBy += (groupBy.empty() ? "" : ", ") + c.expr;
    columns.push_back(c);
  }
  static const std::map<std::string, std::string> kFunctions = {
      {"min:", "MIN"}, {"max:", "MAX"}, {"sum:", "SUM"}, {"average:", "AVG"}, {"count:", "COUNT"}};
  for (const auto& e : request.expressionsToFetch()) {
    auto fn = kFunctions.find(e.function);
    const AttributeDescription* attribute = nullptr;
    auto expr = PredicateSQL::attributeExpression(e.keyPath, entity, *store, sql, &attribute);
    if (fn == kFunctions.end() || !expr) {
      error = objectGraphError(kFetchRequestError, "cannot fetch " + e.function + " of '" + e.keyPath + "'");
      return FetchResults();
    }
    columns.push_back(Column{e.name, fn->second + "(" + *expr + ")", nullptr, e.expressionResultType});
  }
  std::string text = "SELECT ";
  for (std::size_t i = 0; i < columns.size(); ++i) text += (i ? ", " : "") + columns[i].expr;
  text += " FROM " + store->tableFor(entity) + " t0" + sql.joins;
  std::string where = store->entityFilter(entity, request.includesSubentities(), "t0");
  if (!sql.where.empty()) where += (where.empty() ? "" : " AND ") + sql.where;
  if (!where.empty()) text += " WHERE " + where;
  if (!request.expressionsToFetch().empty() && !groupBy.empty()) text += " GROUP BY " + groupBy;
  if (request.expressionsToFetch().empty()) {
    if (auto order = PredicateSQL::orderBy(request.sortDescriptors(), entity, *store, sql))
      text += " ORDER BY " + *order;
  }
  if (request.fetchLimit()) text += " LIMIT " + std::to_string(request.fetchLimit());
  std::vector<Value::Dictionary> rows;
  std::vector<Value> values(columns.size());
  const bool ok = store->query(
      text, sql.bindings,
      [&](sqlite3_stmt* s) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
          const int col = static_cast<int>(i);
          Value v;
          if (columns[i].attribute) {
            v = store->readAttributeColumn(*columns[i].attribute, s, col);
          } else if (sqlite3_column_type(s, col) != SQLITE_NULL) {
            switch (*columns[i].resultType) {
              case AttributeType::kDate:
                v = Date::fromTimeIntervalSince1970(sqlite3_column_double(s, col));
                break;
              case AttributeType::kInteger16:
              case AttributeType::kInteger32:
              case AttributeType::kInteger64:
                v = Value(static_cast<long long>(sqlite3_column_int64(s, col)));
                break;
              case AttributeType::kString:
                v = std::string(reinterpret_cast<const char*>(sqlite3_column_text(s, col)));
                break;
              default:
                v = sqlite3_column_double(s, col);
            }
          }
          values[i] = std::move(v);
        }
        if (row) {
          (*row)(values);
          return true;
        }
        Value::Dictionary dictionary;
        for (std::size_t i = 0; i < columns.size(); ++i) {
          if (!values[i].isNull()) dictionary[columns[i].name] = std::move(values[i]);
        }
        rows.push_back(std::move(dictionary));
        return true;
      },
      error);
  if (!ok) return FetchResults();
  return FetchResults(std::move(rows));
}

bool ContextCore::prefetch(const std::vector<ManagedObjectPtr>& objects, const std::string& keyPath,
                           std::vector<ManagedObjectPtr>& keepAlive, OptionalError& error) {
  PersistentStoreCoordinator* coordinator = rootCoordinator();
  SQLiteStore* store = coordinator ? coordinator->sqliteStore() : nullptr;
  if (!store || parent_) return true;  // a child faults them in on use instead
  std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
  std::vector<ManagedObjectPtr> current = objects;
  std::size_t from = 0;
  while (from <= keyPath.size() && !current.empty()) {
    const std::size_t dot = keyPath.find('.', from);
    const std::string key = keyPath.substr(from, dot == std::string::npos ? std::string::npos : dot - from);
    from = dot == std::string::npos ? keyPath.size() + 1 : dot + 1;
    std::vector<ManagedObjectID> targets;
    std::unordered_set<ManagedObjectID, ManagedObjectIDHash> seen;
    for (auto& o : current) {
      const RelationshipDescription* r = o->state_->entity->relationshipNamed(key);
      if (!r || o->state_->fault) continue;
      if (!r->isToMany()) {
        const ManagedObjectID id = resolveID(o->state_->toOne[r->slot()]);
        if (id && seen.insert(id).second) targets.push_back(id);
      }
    }
    // To-many members of every object, one query per relationship.
    std::map<const RelationshipDescription*, std::vector<ManagedObject*>> unloaded;
    for (auto& o : current) {
      const RelationshipDescription* r = o->state_->entity->relationshipNamed(key);
      if (!r || !r->isToMany() || o->state_->fault) continue;
      if (!o->state_->toManyAt(r->slot()).loaded && !o->state_->id.isTemporaryID()) {
        unloaded[r].push_back(o.get());
      } else {
        if (!ensureToManyLoaded(*o->state_, *r, error)) return false;
        for (const auto& id : o->state_->toManyAt(r->slot()).current.items()) {
          if (seen.insert(id).second) targets.push_back(id);
        }
      }
    }
    for (auto& [r, owners] : unloaded) {
      std::vector<std::int64_t> pks;
      std::unordered_map<std::int64_t, std::vector<ManagedObjectID>> members;
      for (ManagedObject* o : owners) pks.push_back(o->state_->id.primaryKey());
      const EntityDescription& destination = r->destinationEntity();
      const std::string table = store->tableFor(destination);
      auto join = store->joinTableFor(*r);
      std::string text;
      if (!join) {
        const std::string fk = "d." + store->columnFor(*r->inverseRelationship());
        text = "SELECT " + fk + ", d._pk, d._ent FROM " + table + " d WHERE " + fk +
               " IN (SELECT value FROM json_each(?)) ORDER BY d._pk";
      } else {
        const char* mine = join->sourceIsOwner ? "_src" : "_dst";
        const char* theirs = join->sourceIsOwner ? "_dst" : "_src";
        text = std::string("SELECT j.") + mine + ", d._pk, d._ent FROM " + join->table + " j JOIN " + table +
               " d ON d._pk = j." + theirs + " WHERE j." + mine +
               " IN (SELECT value FROM json_each(?)) ORDER BY " + (join->ordered ? "j._idx" : "j.rowid");
      }
      if (!store->query(
              text, {Value(jsonKeys(pks))},
              [&](sqlite3_stmt* s) {
                members[sqlite3_column_int64(s, 0)].push_back(
                    store->makeID(destination, sqlite3_column_int(s, 2), sqlite3_column_int64(s, 1)));
                return true;
              },
              error)) {
        return false;
      }
      for (ManagedObject* o : owners) {
        ToManyState& tm = o->state_->toManyAt(r->slot());
        std::vector<ManagedObjectID> list = members[o->state_->id.primaryKey()];
        tm.committed.assign(list);
        for (const auto& id : tm.removed.items())
          list.erase(std::remove(list.begin(), list.end(), id), list.end());
        tm.current.assign(std::move(list));
        for (const auto& id : tm.added.items()) tm.current.add(id);
        tm.loaded = true;
        for (const auto& id : tm.current.items()) {
          if (seen.insert(id).second) targets.push_back(id);
        }
      }
    }
    // Load the rows of targets that are not in memory yet, a chain at a time.
    std::map<const EntityDescription*, std::vector<std::int64_t>> missing;
    for (const auto& id : targets) {
      ManagedObjectPtr o = registeredObject(id);
      if (o && !o->state_->fault) {
        keepAlive.push_back(o);
      } else if (!id.isTemporaryID()) {
        missing[&id.entity().rootEntity()].push_back(id.primaryKey());
      }
    }
    for (auto& [root, pks] : missing) {
      for (std::size_t i = 0; i < pks.size(); i += 500) {
        std::vector<std::int64_t> chunk(pks.begin() + static_cast<long>(i),
                                        pks.begin() + static_cast<long>(std::min(pks.size(), i + 500)));
        if (!store->readRows(
                *root, chunk,
                [&](RowSnapshot&& row) { keepAlive.push_back(objectFromSnapshot(std::move(row))); }, error)) {
          return false;
        }
      }
    }
    std::vector<ManagedObjectPtr> next;
    for (const auto& id : targets) {
      if (ManagedObjectPtr o = registeredObject(id)) next.push_back(std::move(o));
    }
    current = std::move(next);
  }
  return true;
}

}  // namespace lumeo
