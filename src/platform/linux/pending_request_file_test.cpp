// The pending-request file: what a pass writes reads back the same, a
// reader refuses damaged files as a whole, and a write never leaves half a
// file.
#include "platform/linux/pending_request_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

NotificationRequest request(const std::string& id, int hour, int minute) {
  NotificationRequest r;
  r.identifier = id;
  r.trigger = CalendarTrigger{hour, minute, "Europe/Berlin", true};
  r.content.body = "How are you feeling right now?";
  r.content.sound = "Gong small.mp3";
  r.content.userInfo = {{"template", Value("#walk ")}};
  r.content.threadIdentifier = "reminder-2";
  r.onlyIfNothingRecorded = true;
  return r;
}

TEST(PendingRequestFileTest, RoundTrip) {
  std::vector<NotificationRequest> requests = {request("A", 9, 30), request("B", 23, 59)};
  requests[1].onlyIfNothingRecorded = false;
  requests[1].content.body = "Zeit für ein Häkchen \"quoted\"";
  auto back = decodePendingRequests(encodePendingRequests(requests));
  ASSERT_TRUE(std::holds_alternative<std::vector<NotificationRequest>>(back))
      << std::get<Error>(back).toString();
  EXPECT_EQ(std::get<std::vector<NotificationRequest>>(back), requests);
}

TEST(PendingRequestFileTest, DamagedFilesAreRefusedWhole) {
  const char* bad[] = {
      "",
      "{\"version\": 1, \"requests\": [",
      "[]",
      "{\"requests\": []}",
      "{\"version\": 99, \"requests\": []}",
      "{\"version\": 1, \"requests\": {}}",
      "{\"version\": 1, \"requests\": [7]}",
      "{\"version\": 1, \"requests\": [{\"identifier\": \"a\", \"hour\": 24, \"minute\": 0, \"body\": "
      "\"x\"}]}",
      "{\"version\": 1, \"requests\": [{\"identifier\": \"a\", \"hour\": 7, \"minute\": \"5\", \"body\": "
      "\"x\"}]}",
      "{\"version\": 1, \"requests\": [{\"identifier\": \"a\", \"hour\": 7, \"minute\": 5, \"body\": \"x\"},"
      " {\"identifier\": \"b\", \"hour\": 7, \"minute\": 5}]}",
  };
  for (const char* text : bad) {
    auto result = decodePendingRequests(text);
    ASSERT_TRUE(std::holds_alternative<Error>(result)) << text;
    EXPECT_TRUE(std::get<Error>(result).is(kPendingRequestErrorDomain, kPendingRequestFileCorrupt)) << text;
  }
  auto minimal = decodePendingRequests(
      "{\"version\": 1, \"requests\": [{\"identifier\": \"a\", \"hour\": 7, \"minute\": 5, \"body\": "
      "\"x\"}]}");
  ASSERT_TRUE(std::holds_alternative<std::vector<NotificationRequest>>(minimal));
  EXPECT_TRUE(std::get<std::vector<NotificationRequest>>(minimal).at(0).trigger.repeats);
}

TEST(PendingRequestFileTest, CentreWritesOnlyWhenAPassEnds) {
  testing::TempDir dir;
  auto file = dir / kPendingRequestFileName;
  auto missing = readPendingRequestFile(file);
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
  EXPECT_TRUE(std::get<Error>(missing).is(kPendingRequestErrorDomain, kPendingRequestFileMissing));

  FileNotificationCenterService center(file);
  center.removeAllPendingNotificationRequests();
  center.addNotificationRequest(request("A", 8, 0));
  EXPECT_FALSE(std::filesystem::exists(file)) << "half a pass is never written";
  center.didFinishUpdatingPendingRequests();
  EXPECT_FALSE(center.lastWriteError());

  FileNotificationCenterService reopened(file);
  ASSERT_EQ(reopened.pendingNotificationRequests().size(), 1u);
  EXPECT_EQ(reopened.pendingNotificationRequests()[0], request("A", 8, 0));

  // An unwritable folder: the old file stands.
  std::filesystem::permissions(dir.path(),
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  center.addNotificationRequest(request("B", 9, 0));
  center.didFinishUpdatingPendingRequests();
  std::filesystem::permissions(dir.path(), std::filesystem::perms::owner_all);
  if (::geteuid() != 0) {
    EXPECT_TRUE(center.lastWriteError());
    EXPECT_EQ(std::get<std::vector<NotificationRequest>>(readPendingRequestFile(file)).size(), 1u);
  }
}

}  // namespace
}  // namespace lumeo
