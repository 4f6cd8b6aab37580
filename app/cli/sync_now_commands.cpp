// lumeo sync now: one exchange with the sync destination that `lumeo sync
// folder|webdav` chose. The first run joins: it records the journal as it
// stands in a baseline and registers this device. Every run then publishes
// this device's events, fetches the others', integrates them into the
// journal and removes from the destination what a baseline absorbed.
//
// Once this device has joined, every command that changes the journal
// records its saves as events (a save monitor runs while the journal is
// open), so that `sync now` has them to publish.
#include <filesystem>
#include <memory>

#include "cli_app.h"
#include "journal_commands.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/plist_user_defaults.h"
#include "platform/linux/secret_service_store.h"
#include "platform/log.h"
#include "shell/mood_app_delegate.h"
#include "sync/sync_cloud_file_system_settings.h"
#include "sync/sync_cloud_manager_merge.h"
#include "sync/sync_event_store.h"
#include "sync/sync_journal_capture.h"

namespace lumeo::cli {

namespace {

std::unique_ptr<SyncJournalCapture>& sessionSlot() {
  static std::unique_ptr<SyncJournalCapture> session;
  return session;
}

// The engine of this process, made when the journal opens.
SyncJournalCapture& syncSession() {
  auto& slot = sessionSlot();
  if (slot) return *slot;
  DataDirectories dirs = DataDirectories::current();
  slot = std::make_unique<SyncJournalCapture>(dirs.library, dirs.applicationSupport);
  return *slot;
}

// Open hook: once this device syncs, the saves of every journal session
// become events.
void startCapture(CliApp&) {
  if (SyncJournalCapture::deviceSyncs(DataDirectories::current().applicationSupport)) syncSession();
}

// Close hook: the events of the session's saves are on disk, and the event
// log is closed, before the writer lock goes, so that the next writer (a
// `sync now` in another process) finds each of them whole and nothing of
// this process writes after it. A session that saved nothing writes
// nothing here; one that did, but ran as a reading command, takes the lock
// for the write.
void stopCapture(CliApp&) {
  std::unique_ptr<SyncJournalCapture> session = std::move(sessionSlot());
  if (!session) return;
  LUMEO_DROP_ERROR(session->close(holdJournalLock));
}

std::string counted(std::size_t n, const std::string& noun) {
  return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

std::string describe(const Error& error) {
  std::string text = error.description;
  if (error.domain == kSyncErrorDomain) text += " (" + error.domain + " " + std::to_string(error.code) + ")";
  return text;
}

void runSyncNow(CliApp& cli) {
  MoodAppDelegate& app = journalSession(cli);
  auto destination = syncCloudDestination(*PlistUserDefaults::installStandard());
  if (!destination) {
    throw CommandError(
        "sync is not set up: choose a folder with `lumeo sync folder PATH` or a server with `lumeo sync "
        "webdav URL "
        "--user NAME` first");
  }
  // What the journal holds unsaved goes into the exchange.
  app.saveContext();
  SyncJournalCapture& session = syncSession();
  if (OptionalError error = session.eventStore()->setupError())
    throw CommandError("the sync engine's files cannot be read: " + describe(*error));
  std::shared_ptr<SyncCloudFileSystem> cloud = makeSyncCloudFileSystem(*destination, journalKeyring());
  SyncCloudMerger merger(app.storeURL(), session.eventStore(), cloud, &session.hooks(), session.integrator());

  bool joined = false;
  if (!merger.isLeeched()) {
    if (OptionalError error = merger.leech())
      throw CommandError("could not join the sync destination: " + describe(*error));
    joined = true;
  }
  auto result = merger.merge();
  if (auto* error = std::get_if<Error>(&result)) {
    throw CommandError("sync failed, nothing in the journal changed: " + describe(*error));
  }
  const SyncCloudMergeReport& report = std::get<SyncCloudMergeReport>(result);
  // The journal changed underneath the application's context.
  app.managedObjectContext()->reset();

  if (cli.json()) {
    nlohmann::json skipped = nlohmann::json::array();
    for (const auto& [name, error] : report.skippedFiles)
      skipped.push_back({{"file", name}, {"error", error.description}, {"code", error.code}});
    cli.printJson({{"joined", joined},
                   {"destination", destination->service},
                   {"eventsImported", report.counts.eventsImported},
                   {"baselinesImported", report.counts.baselinesImported},
                   {"dataFilesImported", report.counts.dataFilesImported},
                   {"filesUploaded", report.counts.filesUploaded},
                   {"filesRemoved", report.counts.filesRemoved},
                   {"imagesSaved", report.counts.imagesSaved},
                   {"rebased", report.rebased},
                   {"baselinesConsolidated", report.baselinesConsolidated},
                   {"skipped", skipped}});
    return;
  }
  if (joined) cli.out() << "Joined the sync destination: this device's journal goes out as a baseline.\n";
  cli.out() << "Synced: " << counted(report.counts.eventsImported, "event") << " and "
            << counted(report.counts.baselinesImported, "baseline") << " received, "
            << counted(report.counts.filesUploaded, "file") << " sent, "
            << counted(report.counts.filesRemoved, "old file") << " removed";
  if (report.counts.imagesSaved)
    cli.out() << ", " << counted(report.counts.imagesSaved, "picture") << " updated";
  cli.out() << ".\n";
  for (const auto& [name, error] : report.skippedFiles) {
    cli.err() << "lumeo: skipped " << name << ": " << error.description
              << " (left in place; it is tried again next time)\n";
  }
}

void registerHooks(CliApp& cli) {
  cli.addOpenHook(startCapture);
  cli.addCloseHook(stopCapture);
}

void registerCommands(CliApp& cli) {
  CLI::App& sync = cli.noun("sync", "Where this device syncs its journal to");
  CLI::App* now = sync.add_subcommand("now", "Exchange with the sync destination: send, receive and merge");
  now->callback([&cli] { runSyncNow(cli); });
}

// The capture hooks register right after the journal's own (at 10); the
// command itself sits with the other sync verbs.
const CommandRegistration kSyncCaptureHooks(11, registerHooks);
const CommandRegistration kSyncNowCommand(71, registerCommands);

}  // namespace

}  // namespace lumeo::cli
