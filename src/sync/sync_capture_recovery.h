// Recovery after a crash between a journal save and its event. The save
// monitor registers a mandatory incomplete identifier before it writes a
// save's event; finding one at the next start means a save may have reached
// the journal without reaching the event store. Rather than give up the
// event store (and rebuild it from a baseline), Lumeo records the journal as
// it stands: one save event that inserts every object the event store does
// not know, updates every object it knows with all its values, and deletes
// every object it knows that is gone. Replaying that event on any device
// gives this journal's state, so nothing the crash interrupted is lost.
#pragma once

#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/error.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_error.h"

namespace lumeo {

class SyncEventStore;

struct SyncRecoveryReport {
  std::vector<std::string> removedIncompleteEvents;  // mandatory ones
  bool recaptured = false;
};

// Removes partial events left by a crash; when one of them was a save's
// event, records the journal (opened in `journal`, a root context on the
// monitored store) as one recovery save event.
SyncResult<SyncRecoveryReport> syncRecoverAfterCrash(SyncEventStore& eventStore,
                                                     ManagedObjectContext& journal,
                                                     const SyncEnsembleHooks* ensemble);

}  // namespace lumeo
