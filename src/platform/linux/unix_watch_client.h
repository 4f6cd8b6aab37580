// The companion's end of the watch socket, small enough to serve as the
// reference for a bridge to a real watch: connect, send envelopes, read
// them back one line at a time. `lumeo watch-client` and the tests use it.
// One thread at a time.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/linux/watch_wire.h"

namespace lumeo {

class UnixWatchClient {
 public:
  UnixWatchClient() = default;
  ~UnixWatchClient();
  UnixWatchClient(const UnixWatchClient&) = delete;
  UnixWatchClient& operator=(const UnixWatchClient&) = delete;

  // Connects to the phone side's socket; an error says why not (nobody
  // listening, no such file, no permission).
  [[nodiscard]] OptionalError connect(const std::filesystem::path& socketPath);
  bool isConnected() const { return fd_ >= 0; }
  void close();

  [[nodiscard]] OptionalError send(const watch_wire::Envelope& envelope);
  // Raw bytes, for tests that send what no well-behaved companion would.
  [[nodiscard]] OptionalError sendRaw(const std::string& bytes);
  // The next line within `timeoutSeconds` of wall time; nothing on timeout
  // or when the other side closed (then isConnected() turns false).
  std::optional<std::string> readLine(double timeoutSeconds);
  // The next envelope, skipping lines that are none.
  std::optional<watch_wire::Envelope> readEnvelope(double timeoutSeconds);
  // Reads until the reply to message `id` arrives; other messages (pushes
  // of the phone's data) are skipped.
  std::optional<Value::Dictionary> readReply(std::int64_t id, double timeoutSeconds);

 private:
  int fd_ = -1;
  std::string buffer_;
};

}  // namespace lumeo
