// Test support: a device of its own in a folder (journal, image store,
// event store with capture on) that exchanges with others through a cloud
// file system: joins, merges, and is compared by its canonical dump.
// Test-only.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "sync/sync_cloud_manager_merge.h"
#include "sync/sync_test_replica.h"

namespace lumeo::testing {

class SyncCloudDevice {
 public:
  SyncCloudDevice(std::filesystem::path home, std::shared_ptr<SyncCloudFileSystem> cloud)
      : replica_(std::move(home), false), cloud_(std::move(cloud)) {
    merger_ = std::make_unique<SyncCloudMerger>(replica_.storePath(), replica_.eventsPtr(), cloud_,
                                                &replica_.hooks(), replica_.integratorPtr());
  }

  SyncReplica& replica() { return replica_; }
  SyncCloudMerger& merger() { return *merger_; }
  SyncCloudFileSystem& cloud() { return *cloud_; }
  // A fresh merger (and cloud manager): what a new run of the program has.
  void restart(std::shared_ptr<SyncCloudFileSystem> cloud = nullptr) {
    if (cloud) cloud_ = std::move(cloud);
    merger_ = std::make_unique<SyncCloudMerger>(replica_.storePath(), replica_.eventsPtr(), cloud_,
                                                &replica_.hooks(), replica_.integratorPtr());
  }

  void leech() {
    OptionalError error = merger_->leech();
    ASSERT_FALSE(error) << error->toString();
  }
  SyncCloudMergeReport merge() {
    auto result = merger_->merge();
    replica_.context().reset();
    if (auto* error = std::get_if<Error>(&result)) {
      ADD_FAILURE() << "merge failed: " << error->toString() << "\n" << eventsText();
      return {};
    }
    return std::get<SyncCloudMergeReport>(result);
  }
  SyncResult<SyncCloudMergeReport> tryMerge() {
    auto result = merger_->merge();
    replica_.context().reset();
    return result;
  }
  std::string dump() { return replica_.dump(); }
  // The events of the event store, one a line, for failure messages.
  std::string eventsText() {
    std::string text = "store " + replica_.events().persistentStoreIdentifier().value_or("?") + "\n";
    auto context = replica_.events().managedObjectContext();
    context->performBlockAndWait([&] {
      FetchRequest request(kSyncStoreModificationEventEntity);
      for (const auto& object : context->executeFetchRequest(request)) {
        auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(object);
        text += "  type " + std::to_string(event->type()) + " gc " + std::to_string(event->globalCount()) +
                " " + event->uniqueIdentifier() + " " + event->revisionSet().description() + " own " +
                event->persistentStoreIdentifier() + "\n";
      }
    });
    return text;
  }

 private:
  SyncReplica replica_;
  std::shared_ptr<SyncCloudFileSystem> cloud_;
  std::unique_ptr<SyncCloudMerger> merger_;
};

// The names of the files in a directory of a local cloud folder.
inline std::set<std::string> filesIn(const std::filesystem::path& directory) {
  std::set<std::string> names;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(directory, ec)) {
    if (entry.is_regular_file()) names.insert(entry.path().filename().string());
  }
  return names;
}

}  // namespace lumeo::testing
