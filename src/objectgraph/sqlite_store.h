// The SQLite side of a store: the schema made from the model, its lightweight
// migration, prepared statements, and reading and writing rows. Not
// thread-safe by itself; the coordinator's lock guards every call.
//
// Schema (see docs/object-graph.md): one table per root entity named after it,
// holding the rows of its whole inheritance chain with the system columns
// _pk (row number), _ent (entity number) and _opt (row version), a column per
// attribute and one per to-one relationship (the target's _pk). To-many
// relationships without a to-one inverse, and ordered ones, live in join
// tables "<Entity>_<relationship>" with _src, _dst (and _idx when ordered).
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "objectgraph/managed_object_id.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/object_state.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

class SQLiteStore {
 public:
  // Opens or creates the database and brings its schema up to the model.
  static std::unique_ptr<SQLiteStore> open(const ManagedObjectModel& model, const std::string& type,
                                           const std::filesystem::path& url, const Value::Dictionary& options,
                                           OptionalError& error);
  ~SQLiteStore();
  SQLiteStore(const SQLiteStore&) = delete;
  SQLiteStore& operator=(const SQLiteStore&) = delete;

  const std::string& identifier() const { return identifier_; }
  const std::string* internedIdentifier() const { return interned_; }
  const Value::Dictionary& metadata() const { return metadata_; }
  sqlite3* db() const { return db_; }
  const ManagedObjectModel& model() const { return model_; }

  // --- Schema names (quoted where they go into SQL).
  std::string tableFor(const EntityDescription& entity) const;
  std::string columnFor(const PropertyDescription& property) const;
  // "t0._ent IN (3,4)" for the entity (and its subentities), or empty when
  // the table holds that entity only.
  std::string entityFilter(const EntityDescription& entity, bool includeSubentities,
                           const std::string& alias) const;
  struct JoinTable {
    std::string table;   // quoted
    bool sourceIsOwner;  // this relationship's objects are in _src
    bool ordered;
  };
  // The join table of a to-many relationship, or none when it is stored as
  // its inverse's to-one column.
  std::optional<JoinTable> joinTableFor(const RelationshipDescription& relationship) const;
  // "SELECT t0._pk, t0._ent, t0._opt, <columns> FROM <table> t0" of the root.
  const std::string& selectPrefix(const EntityDescription& entity) const;

  ManagedObjectID makeID(const EntityDescription& anyOfChain, int entityNumber, std::int64_t pk) const;
  const EntityDescription* entityForNumber(const EntityDescription& anyOfChain, int entityNumber) const;

  // --- Statements.
  // A cached prepared statement, reset and with bindings cleared.
  sqlite3_stmt* prepare(const std::string& sql, OptionalError& error);
  static void bind(sqlite3_stmt* statement, int index, const Value& value);
  Error lastError(const std::string& what, long code) const;
  // Runs a query; `row` is called for each row and returns false to stop.
  bool query(const std::string& sql, const std::vector<Value>& bindings,
             const std::function<bool(sqlite3_stmt*)>& row, OptionalError& error);
  bool execute(const std::string& sql, OptionalError& error);

  // --- Reading.
  // Reads the row a statement built on selectPrefix() is positioned on.
  RowSnapshot rowFromStatement(const EntityDescription& anyOfChain, sqlite3_stmt* statement) const;
  // The same in parts, for callers that fill an object straight from the row:
  // the row's concrete entity (of anyOfChain's chain), its ID, and its
  // attributes and to-one targets as `entity` has them, written into the
  // vectors (which are resized) without a snapshot in between.
  const EntityDescription& rowEntity(const EntityDescription& anyOfChain, sqlite3_stmt* statement) const;
  ManagedObjectID rowID(const EntityDescription& entity, sqlite3_stmt* statement) const {
    return ManagedObjectID::makePermanent(entity, interned_, sqlite3_column_int64(statement, 0));
  }
  static std::int64_t rowVersion(sqlite3_stmt* statement) { return sqlite3_column_int64(statement, 2); }
  void readColumns(const EntityDescription& entity, sqlite3_stmt* statement, ValueSlots& attributes,
                   IdSlots& toOne) const;
  // False (and no error) when the row does not exist.
  bool readRow(const ManagedObjectID& id, RowSnapshot& out, OptionalError& error);
  // Rows of a chain by row number, in no particular order.
  bool readRows(const EntityDescription& anyOfChain, const std::vector<std::int64_t>& pks,
                const std::function<void(RowSnapshot&&)>& sink, OptionalError& error);
  bool readToMany(const ManagedObjectID& source, const RelationshipDescription& relationship,
                  std::vector<ManagedObjectID>& out, OptionalError& error);
  // Destination IDs of a to-one for several sources: source pk -> target.
  Value readAttributeColumn(const AttributeDescription& attribute, sqlite3_stmt* statement, int column) const;

  // --- Writing, inside begin()/commit().
  bool begin(OptionalError& error);
  bool commit(OptionalError& error);
  void rollback();
  bool inTransaction() const { return inTransaction_; }
  // Reserves `count` row numbers of the entity's table; `first` is the first.
  bool allocatePrimaryKeys(const EntityDescription& entity, std::int64_t count, std::int64_t& first,
                           OptionalError& error);
  bool insertRow(const ObjectState& object, OptionalError& error);
  // With `checkVersion`, writes only if the row's version is still
  // object.version; `conflict` tells when it was not (or the row is gone).
  bool updateRow(const ObjectState& object, bool checkVersion, bool& conflict, std::int64_t& newVersion,
                 OptionalError& error);
  bool deleteRow(const ManagedObjectID& id, OptionalError& error);
  // Writes the join-table side of a to-many change of the object.
  bool writeToMany(const ObjectState& object, const RelationshipDescription& relationship,
                   OptionalError& error);

  // Binds a Value for SQL comparison: dates as seconds since 1970, booleans
  // as 0/1.
  static Value sqlValue(const Value& value);
  Value columnValueFor(const AttributeDescription& attribute, const Value& value) const;

 private:
  struct Layout {
    const EntityDescription* root = nullptr;
    std::string table;
    std::vector<std::string> columns;  // quoted, after _pk, _ent, _opt
    std::string selectPrefix;
    // Per entity of the chain: attribute slot -> column index (in columns),
    // to-one slot -> column index.
    std::unordered_map<const EntityDescription*, std::vector<int>> attributeColumn;
    std::unordered_map<const EntityDescription*, std::vector<int>> toOneColumn;
    std::vector<std::string> columnTypes;
  };
  SQLiteStore(const ManagedObjectModel& model) : model_(model) {}
  bool openDatabase(const std::string& type, const std::filesystem::path& url,
                    const Value::Dictionary& options, OptionalError& error);
  bool setUpSchema(const Value::Dictionary& options, OptionalError& error);
  void buildLayouts();
  const Layout& layoutFor(const EntityDescription& entity) const;
  // The statements of a save, kept with their prepared form so that each
  // row written skips the lookup by SQL text.
  struct CachedStatement {
    std::string sql;
    sqlite3_stmt* statement = nullptr;
  };
  struct EntitySQL {
    CachedStatement insert, update, updateChecked;
  };
  struct JoinSQL {
    bool written = false;  // this side owns a join table
    bool ordered = false;
    CachedStatement clear, remove, add, place;
  };
  EntitySQL& entitySQL(const EntityDescription& entity);
  // The cached statement, reset and with bindings cleared.
  sqlite3_stmt* reuse(CachedStatement& cached, OptionalError& error);
  int bindColumns(sqlite3_stmt* statement, int index, const ObjectState& object) const;
  bool writeMetadata(OptionalError& error);

  const ManagedObjectModel& model_;
  sqlite3* db_ = nullptr;
  std::string identifier_;
  const std::string* interned_ = nullptr;
  Value::Dictionary metadata_;
  // The metadata row as the file held it at open, so that an open which
  // changes nothing leaves the file's bytes alone.
  Value::Data storedMetadata_;
  bool inTransaction_ = false;
  std::unordered_map<const EntityDescription*, Layout> layouts_;  // by root
  // Entity name <-> number in this file.
  std::map<std::string, int> entityNumbers_;
  std::unordered_map<int, const EntityDescription*> entitiesByNumber_;
  std::unordered_map<std::string, sqlite3_stmt*> statements_;
  std::unordered_map<const EntityDescription*, EntitySQL> entitySQL_;
  std::unordered_map<const RelationshipDescription*, JoinSQL> joinSQL_;
};

// Registers the SQL functions that predicates use (og_cmp, og_fold).
void registerPredicateFunctions(sqlite3* db);

}  // namespace lumeo
