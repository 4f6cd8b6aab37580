// The pending notification requests on Linux: one JSON file in the library
// folder that each reminder pass replaces whole and that the delivery agent
// (`lumeo agent`) reads. The format is in docs/reminders.md.
#pragma once

#include <filesystem>
#include <mutex>
#include <variant>
#include <vector>

#include "platform/error.h"
#include "platform/notification_center_service.h"

namespace lumeo {

inline constexpr char kPendingRequestErrorDomain[] = "LumeoPendingRequestErrorDomain";
enum PendingRequestErrorCode : long {
  kPendingRequestFileMissing = 1,  // no file yet: no pass has run
  kPendingRequestFileCorrupt = 2,  // not JSON, or not the shape below
  kPendingRequestFileUnreadable = 3,
};

inline constexpr char kPendingRequestFileName[] = "pending-reminders.json";
inline constexpr int kPendingRequestFileVersion = 1;

// The file's text for a set of requests.
std::string encodePendingRequests(const std::vector<NotificationRequest>& requests);
// The requests in a file's text, or an error of kPendingRequestFileCorrupt
// that says what is wrong. A request with a bad field makes the whole file
// corrupt: a reader keeps its last good set rather than act on half of one.
std::variant<std::vector<NotificationRequest>, Error> decodePendingRequests(const std::string& text);
// Reads the file; kPendingRequestFileMissing when there is none.
std::variant<std::vector<NotificationRequest>, Error> readPendingRequestFile(
    const std::filesystem::path& file);

// The notification centre kept in the file. Adds and removes change the set
// in memory; didFinishUpdatingPendingRequests() writes it atomically (a
// temporary file renamed over the old one), so a reader sees the last pass
// or the one before, never half of one. A failed write is logged and the
// old file stands.
class FileNotificationCenterService : public NotificationCenterService {
 public:
  // Starts from what the file holds, if it is readable.
  explicit FileNotificationCenterService(std::filesystem::path file);

  void addNotificationRequest(const NotificationRequest& request) override;
  void removeAllPendingNotificationRequests() override;
  void didFinishUpdatingPendingRequests() override;
  std::vector<NotificationRequest> pendingNotificationRequests() const override;

  const std::filesystem::path& file() const { return file_; }
  // The error of the last write, if it failed.
  OptionalError lastWriteError() const;

 private:
  std::filesystem::path file_;
  mutable std::mutex mutex_;
  std::vector<NotificationRequest> requests_;
  OptionalError lastWriteError_;
};

}  // namespace lumeo
