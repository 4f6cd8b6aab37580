#include "journal_catch_up.h"

#include <sqlite3.h>

#include <mutex>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/sqlite_store.h"

namespace lumeo::gui {

std::optional<std::int64_t> storeDataVersion(ManagedObjectContext& context) {
  auto coordinator = context.persistentStoreCoordinator();
  if (!coordinator) return std::nullopt;
  std::lock_guard<std::recursive_mutex> lock(coordinator->mutex());
  SQLiteStore* store = coordinator->sqliteStore();
  if (!store || !store->db()) return std::nullopt;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(store->db(), "PRAGMA data_version", -1, &statement, nullptr) != SQLITE_OK) {
    sqlite3_finalize(statement);
    return std::nullopt;
  }
  std::optional<std::int64_t> version;
  if (sqlite3_step(statement) == SQLITE_ROW) version = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  return version;
}

void rereadFromStore(ManagedObjectContext& context) {
  for (const auto& object : context.registeredObjects()) {
    if (object->isInserted() || object->isDeleted()) continue;
    context.refreshObject(object, object->hasChanges());
  }
}

void JournalCatchUp::remember(ManagedObjectContext& context) {
  seen_ = storeDataVersion(context);
}

bool JournalCatchUp::behind(ManagedObjectContext& context) const {
  const auto now = storeDataVersion(context);
  // Without a version to compare, reading again is the safe side.
  return !now || !seen_ || *now != *seen_;
}

bool JournalCatchUp::catchUp(ManagedObjectContext& context) {
  const auto now = storeDataVersion(context);
  const bool moved = !now || !seen_ || *now != *seen_;
  if (moved) rereadFromStore(context);
  seen_ = now;
  return moved;
}

}  // namespace lumeo::gui
