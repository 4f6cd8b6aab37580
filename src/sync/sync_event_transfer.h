// Moving events between event stores as plain values: what an event file
// will hold, without the file. An archived event carries its identity, its
// numbers, what it knew of other stores and its changes by global
// identifier; its data files travel beside it by name. Replicas on one
// machine exchange events this way, and the event files build on it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/value.h"
#include "sync/sync_event_entities.h"

namespace lumeo {

class SyncEventStore;
class ImageStore;

struct SyncArchivedEvent {
  Value event;                                   // a property-list dictionary
  std::map<std::string, Value::Data> dataFiles;  // by file name
};

// Every complete event of the store (save, merge and baseline events).
std::vector<SyncArchivedEvent> syncArchiveEvents(SyncEventStore& eventStore);
// The complete events this store made itself with a revision above
// `sinceRevisionNumber`: what it has not published yet.
std::vector<SyncArchivedEvent> syncArchiveOwnEvents(SyncEventStore& eventStore,
                                                    std::int64_t sinceRevisionNumber);

// Adds the event unless the store has it already (same identifier, store
// and revision): delivering an event twice changes nothing. Data files go to
// "newdata". An archive of the wrong shape is refused with code -1 and adds
// nothing.
OptionalError syncImportEvent(SyncEventStore& eventStore, const SyncArchivedEvent& archived);

// Puts the photos named by `photos` (see SyncEventIntegrator::
// createPhotosAndThumbs) into the image store from the event store's data
// files where the image store lacks them, and remakes a thumbnail whose file
// is missing or whose checksum differs. Returns the names written.
std::vector<std::string> syncInstallPhotosAndThumbs(SyncEventStore& eventStore, const ImageStore& imageStore,
                                                    const Value::Dictionary& photos);

}  // namespace lumeo
