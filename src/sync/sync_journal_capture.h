// The sync engine of one process on the journal of one device: the event
// log, the integrator that replays other devices' events into the journal,
// and the save monitor that turns each save of the journal into an event.
// The command line and the desktop application open it beside the journal
// while they hold the journal's writer lock, and close it before they let
// go of the lock: the events of their saves are then whole on disk, and the
// next writer (a `lumeo sync now` in another process, say) reads the event
// log as it stands instead of having it written over by a stale copy.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "platform/error.h"
#include "sync/sync_ensemble_hooks.h"

namespace lumeo {

class SyncEventStore;
class SyncEventIntegrator;
class SyncSaveMonitor;

class SyncJournalCapture {
 public:
  // `library`: the folder of the journal store (Model.sqlite) and its
  // pictures; `applicationSupport`: the folder the event log lives under.
  SyncJournalCapture(const std::filesystem::path& library, const std::filesystem::path& applicationSupport);
  ~SyncJournalCapture();
  SyncJournalCapture(const SyncJournalCapture&) = delete;
  SyncJournalCapture& operator=(const SyncJournalCapture&) = delete;

  // Where the device's event logs live under `applicationSupport`.
  static std::filesystem::path eventDataRoot(const std::filesystem::path& applicationSupport);
  // Whether this device has joined a sync destination: its event log
  // exists. Until then saves are not captured (the join records the
  // journal as it stands).
  static bool deviceSyncs(const std::filesystem::path& applicationSupport);

  SyncEnsembleHooks& hooks() { return hooks_; }
  const std::shared_ptr<SyncEventStore>& eventStore() const { return eventStore_; }
  const std::shared_ptr<SyncEventIntegrator>& integrator() const { return integrator_; }
  SyncSaveMonitor& monitor() { return *monitor_; }

  // Stops capturing, waits for the events already queued to be made and
  // writes what they left unsaved. `beforeWriting` runs first, only when
  // there is something to write (a front end that holds no writer lock
  // takes it there). A session that saved nothing writes nothing, not even
  // the event log's metadata. Closing twice writes nothing the second time.
  OptionalError close(const std::function<void()>& beforeWriting = {});

 private:
  SyncEnsembleHooks hooks_;
  std::shared_ptr<SyncEventStore> eventStore_;
  std::shared_ptr<SyncEventIntegrator> integrator_;
  std::unique_ptr<SyncSaveMonitor> monitor_;
  bool closed_ = false;
};

}  // namespace lumeo
