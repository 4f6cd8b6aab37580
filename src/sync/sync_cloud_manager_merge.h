// One device's exchange with the cloud: joining (leech) and the merge that
// publishes, fetches and integrates, in the engine's fixed order:
//
//   flush pending save events, make the cloud's directories, snapshot them,
//   fetch baselines, consolidate them, fetch events, drop events the
//   baseline covers, rebase when due, integrate into the journal, install
//   photos, publish data files, the baseline and this device's events, and
//   last remove what a baseline has absorbed.
//
// Any step's error ends the merge with that error; nothing is lost, and the
// next merge starts again from the beginning. Files that cannot be imported
// (truncated, damaged, of a newer format) do not end it: they are skipped,
// reported, and left in the cloud for the next try.
//
// Thread: blocking calls, made on the main thread (the cloud's completions
// arrive on the main queue, which runs while they wait) or on any other
// thread while the main loop runs.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "sync/sync_cloud_file_system.h"
#include "sync/sync_cloud_manager.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_error.h"

namespace lumeo {

class SyncEventStore;
class SyncEventIntegrator;

inline constexpr long kSyncErrorCodeNotLeeched = 103;
inline constexpr long kSyncErrorCodeCloudIdentityChanged = 202;
inline constexpr long kSyncErrorCodeStoreFileMissing = 209;

struct SyncCloudMergeReport {
  bool rebased = false;
  bool baselinesConsolidated = false;
  SyncCloudManager::Counts counts;
  std::vector<std::pair<std::string, Error>> skippedFiles;
};

class SyncCloudMerger {
 public:
  // `hooks` (the journal's model, its global identifiers, the image store)
  // must outlive the merger. `integrator` is the one the save monitor knows
  // (so that merges are not captured as saves); a new one when none.
  SyncCloudMerger(std::filesystem::path journalStoreURL, std::shared_ptr<SyncEventStore> eventStore,
                  std::shared_ptr<SyncCloudFileSystem> cloudFileSystem, const SyncEnsembleHooks* hooks,
                  std::shared_ptr<SyncEventIntegrator> integrator = nullptr);
  ~SyncCloudMerger();

  SyncCloudManager& cloudManager() { return *cloudManager_; }
  SyncEventIntegrator& integrator() { return *integrator_; }

  bool isLeeched() const;
  // Joins: connects, makes the event store, records the journal as it
  // stands in a baseline (every object, global count 0, timestamp in the
  // distant past so that any other baseline outranks it), registers the
  // store in the cloud. The journal's objects reach other devices at the
  // next merge. 103 when already leeched.
  OptionalError leech();
  SyncResult<SyncCloudMergeReport> merge();

 private:
  OptionalError importJournalAsBaseline();

  std::filesystem::path journalStoreURL_;
  std::shared_ptr<SyncEventStore> eventStore_;
  std::shared_ptr<SyncCloudFileSystem> cloudFileSystem_;
  const SyncEnsembleHooks* hooks_;
  std::unique_ptr<SyncCloudManager> cloudManager_;
  std::shared_ptr<SyncEventIntegrator> integrator_;
};

}  // namespace lumeo
