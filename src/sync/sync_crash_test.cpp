// Crash safety of capture: a child process saves batches of records with
// capture on and is killed at a random moment; on restart the partial event
// is cleaned up, no acknowledged save is missing from the event store, and
// the journal and the event store name the same records.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <sstream>
#include <thread>

#include "platform/log.h"
#include "sync/sync_capture_recovery.h"
#include "sync/sync_test_replica.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

constexpr char kCrashHomeVariable[] = "LUMEO_SYNC_CRASH_HOME";

// Runs only inside the child that the crash test starts.
TEST(SyncCrashChild, SavesBatchesUntilKilled) {
  const char* home = std::getenv(kCrashHomeVariable);
  if (!home) GTEST_SKIP() << "started by SyncCrashTest only";
  ScopedLogCapture quiet(kLogLevelOff);
  testing::SyncReplica replica(home);
  auto recovered = syncRecoverAfterCrash(replica.events(), replica.context(), &replica.hooks());
  ASSERT_TRUE(std::holds_alternative<SyncRecoveryReport>(recovered));
  std::string prefix = globallyUniqueString().substr(0, 8);
  for (int batch = 0; batch < 100000; ++batch) {
    std::string line = "ACK";
    for (int i = 0; i < 5; ++i) {
      std::string uid = prefix + "-" + std::to_string(batch) + "-" + std::to_string(i);
      replica.addRecord(1 + i, "batch " + std::to_string(batch))->setUniqueIdentifier(uid);
      line += " " + uid;
    }
    replica.save();
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  }
}

struct ChildRun {
  std::vector<std::string> acknowledged;
};

// Starts the child, lets it acknowledge `acks` batches, waits a little more
// and kills it. Returns every record it acknowledged before it died.
ChildRun runAndKill(const std::filesystem::path& home, int acks, int extraMicroseconds) {
  int fds[2];
  EXPECT_EQ(pipe(fds), 0);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    setenv(kCrashHomeVariable, home.c_str(), 1);
    execl("/proc/self/exe", "sync_tests", "--gtest_filter=SyncCrashChild.*", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  FILE* in = fdopen(fds[0], "r");
  ChildRun run;
  char buffer[4096];
  int seen = 0;
  auto take = [&](const std::string& line) {
    if (line.rfind("ACK ", 0) != 0) return false;
    std::istringstream words(line.substr(4));
    std::string uid;
    while (words >> uid) run.acknowledged.push_back(uid);
    return true;
  };
  while (seen < acks && std::fgets(buffer, sizeof buffer, in)) {
    if (take(buffer)) ++seen;
  }
  std::this_thread::sleep_for(std::chrono::microseconds(extraMicroseconds));
  kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  // What the child printed before it died was acknowledged too.
  while (std::fgets(buffer, sizeof buffer, in)) take(buffer);
  std::fclose(in);
  return run;
}

TEST(SyncCrashTest, AKilledSaveLosesNoAcknowledgedRecordAndLeavesStoresInAgreement) {
  ScopedLogCapture quiet(kLogLevelOff);
  testing::TempDir dir;
  std::filesystem::path home = dir / "device";
  std::mt19937 rng(18);
  std::set<std::string> acknowledged;
  for (int round = 0; round < 6; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    ChildRun run = runAndKill(home, 1 + int(rng() % 3), int(rng() % 20000));
    acknowledged.insert(run.acknowledged.begin(), run.acknowledged.end());
    ASSERT_FALSE(acknowledged.empty());

    testing::SyncReplica replica(home);
    auto recovered = syncRecoverAfterCrash(replica.events(), replica.context(), &replica.hooks());
    ASSERT_TRUE(std::holds_alternative<SyncRecoveryReport>(recovered));
    EXPECT_TRUE(replica.events().incompleteEventIdentifiers().empty());

    std::set<std::string> inJournal;
    for (const auto& record : replica.records()) inJournal.insert(record->uniqueIdentifier().value_or(""));
    std::set<std::string> inEvents;
    auto context = replica.events().managedObjectContext();
    context->performBlockAndWait([&] {
      FetchRequest partial(kSyncStoreModificationEventEntity);
      partial.setPredicate(Predicate::predicateWithFormat("type = 0"));
      EXPECT_EQ(context->countForFetchRequest(partial), 0u);
      FetchRequest inserts(kSyncObjectChangeEntity);
      inserts.setPredicate(Predicate::predicateWithFormat("nameOfEntity = %@ AND type = %@", "MoodRecord",
                                                          int(kSyncObjectChangeTypeInsert)));
      inserts.setRelationshipKeyPathsForPrefetching({"globalIdentifier"});
      for (const auto& change : context->executeFetchRequest(inserts)) {
        inEvents.insert(static_cast<SyncObjectChange&>(*change).globalIdentifier()->globalIdentifier());
      }
    });
    for (const auto& uid : acknowledged) {
      EXPECT_TRUE(inJournal.count(uid)) << uid << " acknowledged but not in the journal";
      EXPECT_TRUE(inEvents.count(uid)) << uid << " acknowledged but not in the event store";
    }
    EXPECT_EQ(inJournal, inEvents);
  }
}

}  // namespace
}  // namespace lumeo
