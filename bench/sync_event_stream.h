// The stream of events that the sync benchmarks replay, made from a fixed seed
// so that every benchmark (and the peer, through the JSON lines) works on the
// same operations: 40% inserts of a description with 6 properties, 50% updates
// of one property of a live object, 10% deletes.
#pragma once

#include <string>
#include <vector>

#include "platform/value.h"
#include "sync/sync_event_store.h"

namespace lumeo::bench {

struct StreamOperation {
  enum Kind { kInsert = 0, kUpdate = 1, kDelete = 2 };
  int kind;
  std::string id;
  std::string property;  // updates only
  Value value;           // updates only
};

// The first `count` operations of the seeded stream.
std::vector<StreamOperation> makeEventStream(int count);

// Writes the stream into `store` as one save event per operation, revisions
// 0, 1, ... of `storeIdentifier`, global counts and timestamps 0, 1, ...
// Exits the process with a message if the event store cannot save.
void writeEventStream(SyncEventStore& store, const std::vector<StreamOperation>& ops,
                      const std::string& storeIdentifier);

// The stream as JSON lines ({"k":kind,"id":...,"p":...,"v":...}) for the peer.
void emitEventStream(const std::vector<StreamOperation>& ops, const std::string& path);

}  // namespace lumeo::bench
