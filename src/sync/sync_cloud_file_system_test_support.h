// Test helpers for the cloud file systems: each asynchronous operation run
// to its completion on the main loop and returned as a value.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/dispatch_queue.h"
#include "sync/sync_cloud_file_system.h"
#include "sync/sync_error.h"

namespace lumeo::testing {

// Long enough for a loaded machine; the operations under test that must end
// sooner say so themselves.
inline constexpr double kCloudCallTimeout = 120;

// Runs the main loop until `done` or the timeout; fails the test on timeout.
inline void waitFor(const bool& done, double timeout = kCloudCallTimeout) {
  ASSERT_TRUE(MainLoop::shared().runUntil([&] { return done; }, timeout)) << "the completion never came";
}

struct Exists {
  bool exists = false;
  bool isDirectory = false;
  OptionalError error;
};

class CloudCalls {
 public:
  explicit CloudCalls(SyncCloudFileSystem& fs) : fs_(fs) {}

  OptionalError connect() {
    return run([&](auto done) { fs_.connect(done); });
  }
  Exists exists(const std::string& path) {
    Exists result;
    bool done = false;
    fs_.fileExistsAtPath(path, [&](bool exists, bool isDirectory, OptionalError error) {
      EXPECT_TRUE(MainLoop::shared().isMainThread());
      result = {exists, isDirectory, std::move(error)};
      done = true;
    });
    waitFor(done);
    return result;
  }
  OptionalError mkdir(const std::string& path) {
    return run([&](auto done) { fs_.createDirectoryAtPath(path, done); });
  }
  OptionalError remove(const std::string& path) {
    return run([&](auto done) { fs_.removeItemAtPath(path, done); });
  }
  OptionalError upload(const std::filesystem::path& local, const std::string& path) {
    return run([&](auto done) { fs_.uploadLocalFile(local.string(), path, done); });
  }
  OptionalError download(const std::string& path, const std::filesystem::path& local) {
    return run([&](auto done) { fs_.downloadFromPath(path, local.string(), done); });
  }
  OptionalError repair(const std::string& path) {
    return run([&](auto done) { fs_.repairEnsembleDirectory(path, done); });
  }
  std::vector<SyncCloudItem> list(const std::string& path, OptionalError* errorOut = nullptr) {
    std::vector<SyncCloudItem> result;
    OptionalError error;
    bool done = false;
    fs_.contentsOfDirectoryAtPath(path, [&](std::vector<SyncCloudItem> contents, OptionalError e) {
      EXPECT_TRUE(MainLoop::shared().isMainThread());
      result = std::move(contents);
      error = std::move(e);
      done = true;
    });
    waitFor(done);
    if (errorOut) {
      *errorOut = error;
    } else {
      EXPECT_FALSE(error) << error->toString();
    }
    return result;
  }
  // Names of a listing, sorted, directories with a trailing "/".
  std::vector<std::string> names(const std::string& path, OptionalError* errorOut = nullptr) {
    std::vector<std::string> out;
    for (const auto& item : list(path, errorOut))
      out.push_back(item.name() + (item.isDirectory() ? "/" : ""));
    std::sort(out.begin(), out.end());
    return out;
  }

 private:
  template <class Start>
  OptionalError run(Start start) {
    OptionalError result;
    bool done = false;
    bool calledBack = false;
    start([&](OptionalError error) {
      EXPECT_TRUE(MainLoop::shared().isMainThread());
      EXPECT_FALSE(calledBack) << "a completion ran twice";
      calledBack = true;
      result = std::move(error);
      done = true;
    });
    EXPECT_FALSE(done) << "the completion ran on the caller's stack";
    waitFor(done);
    return result;
  }

  SyncCloudFileSystem& fs_;
};

// Asserts a cloud error of `code` (and `err` for code 107, unless 0).
inline ::testing::AssertionResult isCloudError(const OptionalError& error, long code, int err = 0) {
  if (!error) return ::testing::AssertionFailure() << "no error, expected code " << code;
  if (!error->is(kSyncErrorDomain, code))
    return ::testing::AssertionFailure() << "got " << error->toString() << ", expected code " << code;
  if (err != 0 && syncCloudErrno(*error) != err)
    return ::testing::AssertionFailure()
           << "got errno " << syncCloudErrno(*error) << " (" << error->toString() << "), expected " << err;
  return ::testing::AssertionSuccess();
}

}  // namespace lumeo::testing
