// Bringing the GUI's long-lived main context up to date with the journal
// file before it writes. The command line, the reminder agent, the watch
// server and sync write the same file between the GUI's saves; objects the
// GUI read before that hold old values and old row versions, and a save of
// them would be refused as "changed since it was read" (and keep being
// refused). Under the journal's writer lock, nobody else writes, so reading
// again there and then is safe.
#pragma once

#include <cstdint>
#include <optional>

namespace lumeo {
class ManagedObjectContext;
}

namespace lumeo::gui {

// SQLite's data_version of the context's store file: a number that changes
// whenever another connection (another process, or sync's own connection)
// commits. Empty without an open store.
std::optional<std::int64_t> storeDataVersion(ManagedObjectContext& context);

// Forgets what the context read: objects without unsaved changes become
// faults and read the file again on their next use; objects with unsaved
// changes are read again with those changes on top, so the GUI's edit wins
// for what it changed and keeps what others changed besides. New and
// deleted objects are left as they are.
void rereadFromStore(ManagedObjectContext& context);

// Remembers the store's data_version and rereads the context when it moved
// since the last look: the check the GUI makes each time it takes the
// writer lock.
class JournalCatchUp {
 public:
  // Notes the version now (the GUI has just read everything it shows).
  void remember(ManagedObjectContext& context);
  // True when the context was reread.
  bool catchUp(ManagedObjectContext& context);
  // Whether another connection wrote since the last look (a cheap query:
  // no object is touched).
  bool behind(ManagedObjectContext& context) const;

 private:
  std::optional<std::int64_t> seen_;
};

}  // namespace lumeo::gui
