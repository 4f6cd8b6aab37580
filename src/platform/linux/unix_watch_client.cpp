#include "platform/linux/unix_watch_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace lumeo {

namespace {

Error clientError(const std::string& description) {
  return Error{"LumeoWatchClientErrorDomain", 1, description, {}};
}

}  // namespace

UnixWatchClient::~UnixWatchClient() {
  close();
}

void UnixWatchClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  buffer_.clear();
}

OptionalError UnixWatchClient::connect(const std::filesystem::path& socketPath) {
  close();
  sockaddr_un address;
  std::memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  const std::string text = socketPath.string();
  if (text.size() >= sizeof address.sun_path) return clientError("the socket path " + text + " is too long");
  std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return clientError(std::strerror(errno));
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    const int why = errno;
    close();
    if (why == ENOENT || why == ECONNREFUSED) {
      return clientError("nothing listens on " + text + " (start it with `lumeo watch serve`)");
    }
    return clientError("cannot connect to " + text + ": " + std::strerror(why));
  }
  return std::nullopt;
}

OptionalError UnixWatchClient::send(const watch_wire::Envelope& envelope) {
  return sendRaw(watch_wire::encodeLine(envelope));
}

OptionalError UnixWatchClient::sendRaw(const std::string& bytes) {
  if (fd_ < 0) return clientError("not connected");
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return clientError(std::string("the phone side went away: ") + std::strerror(errno));
    sent += static_cast<std::size_t>(n);
  }
  return std::nullopt;
}

std::optional<std::string> UnixWatchClient::readLine(double timeoutSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
  while (fd_ >= 0) {
    const std::size_t newline = buffer_.find('\n');
    if (newline != std::string::npos) {
      std::string line = buffer_.substr(0, newline);
      buffer_.erase(0, newline + 1);
      return line;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd fd{fd_, POLLIN, 0};
    const int ready = ::poll(&fd, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    char chunk[65536];
    const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      close();
      return std::nullopt;
    }
    buffer_.append(chunk, static_cast<std::size_t>(n));
  }
  return std::nullopt;
}

std::optional<watch_wire::Envelope> UnixWatchClient::readEnvelope(double timeoutSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
  for (;;) {
    const double left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
    auto line = readLine(left > 0 ? left : 0);
    if (!line) return std::nullopt;
    if (auto envelope = watch_wire::parseLine(*line)) return envelope;
  }
}

std::optional<Value::Dictionary> UnixWatchClient::readReply(std::int64_t id, double timeoutSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
  for (;;) {
    const double left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
    auto envelope = readEnvelope(left > 0 ? left : 0);
    if (!envelope) return std::nullopt;
    if (envelope->reply == id) return std::move(envelope->message);
  }
}

}  // namespace lumeo
