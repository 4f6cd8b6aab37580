// A poll loop over the listening socket, the connections and a wake-up pipe.
// Writes happen on whichever thread answers, under the connection's own
// lock, with a send timeout so that a companion that stops reading cannot
// hold a reply forever.
#include "platform/linux/unix_watch_session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/data_directories.h"
#include "platform/linux/watch_wire.h"
#include "platform/log.h"

namespace lumeo {

struct UnixWatchSession::Connection {
  int fd = -1;
  std::string buffer;
  bool discarding = false;  // inside a line that is too long
  std::mutex writeMutex;
  bool closed = false;  // guarded by writeMutex
};

namespace {

Error sessionError(long code, const std::string& description) {
  return Error{kWatchSessionErrorDomain, code, description, {}};
}

bool fillAddress(const std::filesystem::path& path, sockaddr_un& address) {
  std::memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  const std::string text = path.string();
  if (text.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
  return true;
}

// Whether a server answers on the socket file.
bool someoneListens(const std::filesystem::path& path) {
  sockaddr_un address;
  if (!fillAddress(path, address)) return false;
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool answered = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return answered;
}

}  // namespace

std::filesystem::path UnixWatchSession::defaultSocketPath() {
  return DataDirectories::current().temporary / "watch.sock";
}

UnixWatchSession::UnixWatchSession(std::filesystem::path socketPath)
    : path_(std::move(socketPath)), queue_(DispatchQueue::makeSerial("lumeo.watch.session")) {}

UnixWatchSession::~UnixWatchSession() {
  stop();
}

OptionalError UnixWatchSession::listen() {
  sockaddr_un address;
  if (!fillAddress(path_, address)) {
    return sessionError(kWatchSessionCannotListen, "the socket path " + path_.string() + " is too long");
  }
  std::error_code ec;
  const auto folder = path_.parent_path();
  std::filesystem::create_directories(folder, ec);
  if (ec)
    return sessionError(kWatchSessionCannotListen, "cannot make " + folder.string() + ": " + ec.message());
  ::chmod(folder.c_str(), 0700);
  if (std::filesystem::exists(std::filesystem::symlink_status(path_))) {
    if (someoneListens(path_)) {
      return sessionError(kWatchSessionInUse, "another lumeo watch serve is listening on " + path_.string());
    }
    std::filesystem::remove(path_, ec);
  }
  listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listenFd_ < 0) return sessionError(kWatchSessionCannotListen, std::strerror(errno));
  // The socket is made private before anyone can connect to it.
  const mode_t previous = ::umask(0177);
  const int bound = ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
  const int bindErrno = errno;
  ::umask(previous);
  if (bound != 0 || ::listen(listenFd_, 8) != 0) {
    const std::string why = std::strerror(bound != 0 ? bindErrno : errno);
    ::close(listenFd_);
    listenFd_ = -1;
    return sessionError(kWatchSessionCannotListen, "cannot listen on " + path_.string() + ": " + why);
  }
  ::chmod(path_.c_str(), 0600);
  if (::pipe2(wakeFd_, O_CLOEXEC | O_NONBLOCK) != 0) {
    ::close(listenFd_);
    listenFd_ = -1;
    return sessionError(kWatchSessionCannotListen, std::strerror(errno));
  }
  return std::nullopt;
}

void UnixWatchSession::activate(std::weak_ptr<WatchSessionDelegate> delegate) {
  delegate_ = std::move(delegate);
  if (listenFd_ >= 0 && !thread_.joinable()) thread_ = std::thread([this] { serve(); });
  announce(isPaired());
}

void UnixWatchSession::announce(bool paired) {
  std::weak_ptr<WatchSessionDelegate> weakDelegate = delegate_;
  std::weak_ptr<UnixWatchSession> weakSelf = weak_from_this();
  queue_->async([weakDelegate, weakSelf, paired] {
    auto delegate = weakDelegate.lock();
    auto self = weakSelf.lock();
    if (delegate && self) delegate->sessionActivationDidComplete(*self, paired);
  });
}

void UnixWatchSession::stop() {
  if (stopping_.exchange(true)) return;
  if (wakeFd_[1] >= 0) {
    const char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(wakeFd_[1], &byte, 1);
  }
  if (thread_.joinable()) thread_.join();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& connection : open_) {
      std::lock_guard<std::mutex> writeLock(connection->writeMutex);
      ::close(connection->fd);
      connection->closed = true;
    }
    open_.clear();
    awaitingReply_.clear();
  }
  connections_ = 0;
  if (listenFd_ >= 0) {
    ::close(listenFd_);
    listenFd_ = -1;
    std::error_code ec;
    std::filesystem::remove(path_, ec);
  }
  for (int& fd : wakeFd_) {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }
}

void UnixWatchSession::serve() {
  std::vector<pollfd> fds;
  std::vector<std::shared_ptr<Connection>> polled;
  while (!stopping_) {
    fds.clear();
    polled.clear();
    fds.push_back({wakeFd_[0], POLLIN, 0});
    fds.push_back({listenFd_, POLLIN, 0});
    {
      std::lock_guard<std::mutex> lock(mutex_);
      for (const auto& connection : open_) {
        fds.push_back({connection->fd, POLLIN, 0});
        polled.push_back(connection);
      }
    }
    if (::poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      LUMEO_LOG_ERROR("watch session: poll failed: %s", std::strerror(errno));
      return;
    }
    if (fds[0].revents) return;  // stop() woke us
    if (fds[1].revents & POLLIN) accept();
    for (std::size_t i = 0; i < polled.size(); ++i) {
      if (!fds[i + 2].revents) continue;
      if (readFrom(polled[i])) continue;
      bool paired = false;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        std::erase(open_, polled[i]);
        connections_ = open_.size();
        paired = !open_.empty();
      }
      {
        std::lock_guard<std::mutex> writeLock(polled[i]->writeMutex);
        ::close(polled[i]->fd);
        polled[i]->closed = true;
      }
      if (!paired) announce(false);
    }
  }
}

void UnixWatchSession::accept() {
  int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (open_.size() >= kMaxConnections) {
      ::close(fd);
      return;
    }
    // Replies go out blocking, but not forever.
    timeval timeout{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    const int flags = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    auto connection = std::make_shared<Connection>();
    connection->fd = fd;
    open_.push_back(std::move(connection));
    connections_ = open_.size();
  }
  announce(true);
}

bool UnixWatchSession::readFrom(const std::shared_ptr<Connection>& connection) {
  char chunk[65536];
  const ssize_t n = ::recv(connection->fd, chunk, sizeof chunk, MSG_DONTWAIT);
  if (n == 0) return false;
  if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  std::string_view data(chunk, static_cast<std::size_t>(n));
  while (!data.empty()) {
    const std::size_t newline = data.find('\n');
    const std::string_view piece = data.substr(0, newline);
    if (connection->discarding) {
      if (newline != std::string_view::npos) connection->discarding = false;
    } else if (connection->buffer.size() + piece.size() > watch_wire::kMaxLineBytes) {
      // Too long: drop what came and everything up to the next line feed.
      connection->buffer.clear();
      ++dropped_;
      connection->discarding = newline == std::string_view::npos;
    } else {
      connection->buffer.append(piece);
      if (newline != std::string_view::npos) {
        std::string line;
        line.swap(connection->buffer);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) handleLine(connection, line);
      }
    }
    if (newline == std::string_view::npos) break;
    data.remove_prefix(newline + 1);
  }
  return true;
}

void UnixWatchSession::handleLine(const std::shared_ptr<Connection>& connection, std::string_view line) {
  auto envelope = watch_wire::parseLine(line);
  if (!envelope) {
    ++dropped_;
    LUMEO_LOG_DEBUG("watch session: dropped a line that is no message (%zu bytes)", line.size());
    return;
  }
  if (envelope->reply) {
    std::shared_ptr<ReplyHandler> handler;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      auto it = awaitingReply_.find(*envelope->reply);
      if (it == awaitingReply_.end()) return;
      handler = std::move(it->second);
      awaitingReply_.erase(it);
    }
    queue_->async([handler, message = std::move(envelope->message)] {
      if (*handler) (*handler)(message);
    });
    return;
  }
  std::weak_ptr<WatchSessionDelegate> weakDelegate = delegate_;
  std::weak_ptr<UnixWatchSession> weakSelf = weak_from_this();
  std::weak_ptr<Connection> weakConnection = connection;
  queue_->async([weakDelegate, weakSelf, weakConnection, envelope = std::move(*envelope)] {
    auto delegate = weakDelegate.lock();
    auto self = weakSelf.lock();
    if (!delegate || !self) return;
    if (!envelope.id) {
      delegate->sessionDidReceiveMessage(*self, envelope.message);
      return;
    }
    auto answered = std::make_shared<std::atomic<bool>>(false);
    const std::int64_t id = *envelope.id;
    delegate->sessionDidReceiveMessage(
        *self, envelope.message, [weakSelf, weakConnection, answered, id](const Value::Dictionary& reply) {
          if (answered->exchange(true)) return;
          auto session = weakSelf.lock();
          auto connection = weakConnection.lock();
          if (!session || !connection) return;
          session->writeTo(connection, watch_wire::encodeLine({std::nullopt, id, reply}));
        });
  });
}

void UnixWatchSession::writeTo(const std::shared_ptr<Connection>& connection, const std::string& line) {
  std::lock_guard<std::mutex> lock(connection->writeMutex);
  if (connection->closed) return;
  std::size_t sent = 0;
  while (sent < line.size()) {
    const ssize_t n = ::send(connection->fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      LUMEO_LOG_DEBUG("watch session: a companion stopped reading; reply dropped");
      return;
    }
    sent += static_cast<std::size_t>(n);
  }
}

void UnixWatchSession::sendMessage(const Value::Dictionary& message, ReplyHandler replyHandler,
                                   ErrorHandler errorHandler) {
  std::vector<std::shared_ptr<Connection>> targets;
  std::optional<std::int64_t> id;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    targets = open_;
    if (!targets.empty() && replyHandler) {
      id = nextId_++;
      awaitingReply_[*id] = std::make_shared<ReplyHandler>(std::move(replyHandler));
    }
  }
  if (targets.empty()) {
    if (errorHandler) queue_->async(std::move(errorHandler));
    return;
  }
  const std::string line = watch_wire::encodeLine({id, std::nullopt, message});
  for (const auto& connection : targets) writeTo(connection, line);
}

}  // namespace lumeo
