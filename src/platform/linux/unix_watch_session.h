// The watch session on Linux: a Unix socket in the user's runtime directory
// on which a companion (a bridge to a real watch, or `lumeo watch-client`)
// connects and exchanges newline-delimited JSON envelopes
// (platform/linux/watch_wire.h, docs/watch-protocol.md). The socket and its
// folder are readable and writable by the user alone.
//
// One I/O thread serves every connection; messages reach the delegate on
// the session's serial queue. "Paired" means a companion is connected;
// each companion that connects is announced as an activation, so that it is
// sent the current data at once. A line that is not a valid envelope, or is
// longer than watch_wire::kMaxLineBytes, is dropped and the connection
// stays open.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/dispatch_queue.h"
#include "platform/error.h"
#include "platform/watch_session.h"

namespace lumeo {

inline constexpr const char* kWatchSessionErrorDomain = "LumeoWatchSessionErrorDomain";
// Another server is listening on the socket already.
inline constexpr long kWatchSessionInUse = 1;
// The socket's folder or the socket could not be made.
inline constexpr long kWatchSessionCannotListen = 2;

class UnixWatchSession : public WatchSession, public std::enable_shared_from_this<UnixWatchSession> {
 public:
  // Connections served at once; more are closed at once.
  static constexpr std::size_t kMaxConnections = 32;

  // The usual place: "watch.sock" in Lumeo's runtime folder.
  static std::filesystem::path defaultSocketPath();

  explicit UnixWatchSession(std::filesystem::path socketPath);
  // Closes every connection and removes the socket file.
  ~UnixWatchSession() override;

  // Makes the folder (mode 0700) and the socket (mode 0600). A socket file
  // left by a server that is gone is replaced; one that answers is not.
  [[nodiscard]] OptionalError listen();
  const std::filesystem::path& socketPath() const { return path_; }

  void activate(std::weak_ptr<WatchSessionDelegate> delegate) override;
  bool isPaired() const override { return connections_.load() > 0; }
  // Goes to every connected companion; the first answer wins.
  void sendMessage(const Value::Dictionary& message, ReplyHandler replyHandler,
                   ErrorHandler errorHandler) override;

  std::size_t connectionCount() const { return connections_.load(); }
  // Lines dropped as malformed or too long, over all connections.
  std::size_t droppedLineCount() const { return dropped_.load(); }
  // Stops serving (the destructor does it too).
  void stop();

 private:
  struct Connection;
  void serve();
  void accept();
  // Reads what is there; false when the peer closed.
  bool readFrom(const std::shared_ptr<Connection>& connection);
  void handleLine(const std::shared_ptr<Connection>& connection, std::string_view line);
  void writeTo(const std::shared_ptr<Connection>& connection, const std::string& line);
  void announce(bool paired);

  std::filesystem::path path_;
  int listenFd_ = -1;
  int wakeFd_[2] = {-1, -1};
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  std::atomic<std::size_t> connections_{0};
  std::atomic<std::size_t> dropped_{0};
  std::shared_ptr<DispatchQueue> queue_;
  std::weak_ptr<WatchSessionDelegate> delegate_;

  std::mutex mutex_;  // guards the two below
  std::vector<std::shared_ptr<Connection>> open_;
  std::map<std::int64_t, std::shared_ptr<ReplyHandler>> awaitingReply_;
  std::atomic<std::int64_t> nextId_{1};
};

}  // namespace lumeo
