// Real WebDAV servers for tests, each started on 127.0.0.1 on a free port
// with its own configuration in a temporary folder and stopped with the
// object: Apache with mod_dav, `rclone serve webdav`, and the fault server
// of testdata/sync for what real servers do not do on demand. A server whose
// program is not installed reports why, and its tests skip.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sync/sync_webdav.h"
#include "testing/temp_dir.h"

namespace lumeo::testing {

inline std::string findProgram(const std::string& name) {
  for (const char* dir : {"/usr/sbin", "/usr/bin", "/usr/local/bin", "/usr/local/sbin", "/sbin", "/bin"}) {
    auto path = std::filesystem::path(dir) / name;
    if (::access(path.c_str(), X_OK) == 0) return path.string();
  }
  return {};
}

inline int freePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::close(fd);
    throw std::runtime_error("no free port");
  }
  ::close(fd);
  return ntohs(address.sin_port);
}

inline bool portAnswers(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return ok;
}

// A child process in its own process group, stopped (TERM, then KILL) and
// reaped with the object. Its standard output is a pipe when asked for.
class TestProcess {
 public:
  TestProcess(std::vector<std::string> argv, const std::filesystem::path& logFile, bool pipeOutput = false) {
    int fds[2] = {-1, -1};
    if (pipeOutput && ::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    // Everything the child needs is made before the fork: the parent has
    // threads, and the child may not allocate.
    std::vector<char*> args;
    for (auto& arg : argv) args.push_back(arg.data());
    args.push_back(nullptr);
    std::string logPath = logFile.string();
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
      ::setpgid(0, 0);
      // A test that crashes must not leave its servers running.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (log >= 0) {
        ::dup2(log, 2);
        if (!pipeOutput) ::dup2(log, 1);
      }
      if (pipeOutput) {
        ::dup2(fds[1], 1);
        ::close(fds[0]);
      }
      ::execv(args[0], args.data());
      ::_exit(127);
    }
    ::setpgid(pid_, pid_);
    if (pipeOutput) {
      ::close(fds[1]);
      output_ = fds[0];
    }
  }
  ~TestProcess() { stop(); }
  TestProcess(const TestProcess&) = delete;
  TestProcess& operator=(const TestProcess&) = delete;

  // The first line of its output (waiting up to `timeout` seconds).
  std::string readLine(double timeout = 30) {
    std::string line;
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
    ::fcntl(output_, F_SETFL, O_NONBLOCK);
    while (std::chrono::steady_clock::now() < end) {
      char c;
      ssize_t n = ::read(output_, &c, 1);
      if (n == 1) {
        if (c == '\n') return line;
        line += c;
      } else if (n == 0) {
        return line;
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
    }
    return line;
  }

  bool running() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return false;
    }
    return true;
  }

  void stop() {
    if (output_ >= 0) ::close(output_);
    output_ = -1;
    if (pid_ <= 0) return;
    ::kill(-pid_, SIGTERM);
    for (int i = 0; i < 100; ++i) {
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ::kill(-pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  int output_ = -1;
};

// A folder that a server running as another user can reach and write.
inline std::filesystem::path makeServerFolder(const std::filesystem::path& path,
                                              const char* owner = nullptr) {
  std::filesystem::create_directories(path);
  ::chmod(path.c_str(), 0755);
  if (owner && ::geteuid() == 0) {
    if (const passwd* entry = ::getpwnam(owner)) {
      if (::chown(path.c_str(), entry->pw_uid, entry->pw_gid) != 0) throw std::runtime_error("chown failed");
    }
  }
  return path;
}

// A WebDAV server with an empty folder at `url()`.
class WebDavServer {
 public:
  virtual ~WebDavServer() = default;
  // Why the server cannot run here, or "".
  const std::string& unavailableReason() const { return unavailable_; }
  const std::string& url() const { return url_; }
  const std::string& user() const { return user_; }
  const std::string& password() const { return password_; }
  int port() const { return port_; }
  // The folder on disk behind url(), for looking behind the server's back.
  const std::filesystem::path& folder() const { return folder_; }
  // A new empty folder on the server, as a URL.
  std::string makeFolder(const std::string& name) {
    makeServerFolder(folder_ / name, folderOwner_);
    return url_ + "/" + syncWebDavEncodeSegment(name);
  }

 protected:
  // Waits until the port answers; fills unavailable_ with the log if it
  // never does.
  void waitUntilListening(TestProcess& process, const std::filesystem::path& log) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < end) {
      if (portAnswers(port_)) return;
      if (!process.running()) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("the server did not start: " + readFile(log));
  }

  static std::filesystem::path publicFolder(const std::filesystem::path& path, const char* owner = nullptr) {
    return makeServerFolder(path, owner);
  }

  TempDir dir_;
  std::string unavailable_;
  std::string url_;
  std::string user_;
  std::string password_;
  std::filesystem::path folder_;
  const char* folderOwner_ = nullptr;
  int port_ = 0;
};

// Apache httpd with mod_dav_fs on a folder of its own. As root it runs the
// way Debian runs it, as www-data.
class ApacheDavServer : public WebDavServer {
 public:
  // With `tls`, the server speaks https with a certificate of its own
  // authority for 127.0.0.1 (certificateFile()), which nobody trusts.
  explicit ApacheDavServer(bool tls = false) {
    std::string apache = findProgram("apache2");
    const std::string modules = "/usr/lib/apache2/modules";
    if (apache.empty() || !std::filesystem::exists(modules + "/mod_dav_fs.so")) {
      unavailable_ = "Apache with mod_dav is not installed (apt-get install apache2; scripts/setup does it)";
      return;
    }
    std::string openssl = findProgram("openssl");
    if (tls && openssl.empty()) {
      unavailable_ = "openssl is not installed (scripts/setup installs it)";
      return;
    }
    if (tls) {
      certificate_ = dir_ / "cert.pem";
      TestProcess make({openssl, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout",
                        (dir_ / "key.pem").string(), "-out", certificate_.string(), "-days", "2", "-subj",
                        "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"},
                       dir_ / "openssl.log");
      for (int i = 0; i < 600 && make.running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      if (!std::filesystem::exists(certificate_)) {
        unavailable_ = "openssl could not make a certificate: " + readFile(dir_ / "openssl.log");
        return;
      }
    }
    ::chmod(dir_.path().c_str(), 0755);
    bool root = ::geteuid() == 0;
    folderOwner_ = root ? "www-data" : nullptr;
    folder_ = publicFolder(dir_ / "dav", folderOwner_);
    auto lock = publicFolder(dir_ / "lock", root ? "www-data" : nullptr);
    auto run = publicFolder(dir_ / "run");
    port_ = freePort();
    std::ofstream conf(dir_ / "httpd.conf");
    conf << "ServerRoot " << dir_.path() << "\n"
         << "ServerName 127.0.0.1\n"
         << "Listen 127.0.0.1:" << port_ << "\n"
         << "PidFile " << (run / "httpd.pid") << "\n"
         << "DefaultRuntimeDir " << run << "\n"
         << "ErrorLog " << (dir_ / "error.log") << "\n"
         << "LogLevel warn\n"
         << "LoadModule mpm_event_module " << modules << "/mod_mpm_event.so\n"
         << "LoadModule authz_core_module " << modules << "/mod_authz_core.so\n"
         << "LoadModule dav_module " << modules << "/mod_dav.so\n"
         << "LoadModule dav_fs_module " << modules << "/mod_dav_fs.so\n"
         << (tls ? "LoadModule ssl_module " + modules + "/mod_ssl.so\nSSLEngine on\nSSLCertificateFile " +
                       certificate_.string() + "\nSSLCertificateKeyFile " + (dir_ / "key.pem").string() + "\n"
                 : std::string())
         << (root ? "User www-data\nGroup www-data\n" : "")
         << "StartServers 1\nServerLimit 2\nThreadsPerChild 8\nMaxRequestWorkers 16\n"
         << "MinSpareThreads 1\nMaxSpareThreads 16\n"
         << "DAVLockDB " << (lock / "DAVLock") << "\n"
         << "DocumentRoot " << folder_ << "\n"
         << "<Directory " << folder_ << ">\n  Dav On\n  Require all granted\n  Options None\n"
         << "  AllowOverride None\n</Directory>\n";
    conf.close();
    process_ = std::make_unique<TestProcess>(
        std::vector<std::string>{apache, "-f", (dir_ / "httpd.conf").string(), "-DFOREGROUND"},
        dir_ / "start.log");
    try {
      waitUntilListening(*process_, dir_ / "error.log");
    } catch (const std::exception& e) {
      unavailable_ = std::string("Apache failed to start: ") + e.what() + readFile(dir_ / "start.log");
      return;
    }
    url_ = std::string(tls ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_);
  }

  const std::filesystem::path& certificateFile() const { return certificate_; }

 private:
  std::filesystem::path certificate_;
  std::unique_ptr<TestProcess> process_;
};

// `rclone serve webdav` on a folder, with a user and password.
class RcloneDavServer : public WebDavServer {
 public:
  RcloneDavServer() {
    std::string rclone = findProgram("rclone");
    if (rclone.empty()) {
      unavailable_ = "rclone is not installed (apt-get install rclone; scripts/setup does it)";
      return;
    }
    folder_ = publicFolder(dir_ / "dav");
    std::ofstream(dir_ / "rclone.conf").close();
    port_ = freePort();
    user_ = "ana";
    password_ = "s3cret p\u00e4ss";
    process_ = std::make_unique<TestProcess>(
        std::vector<std::string>{rclone, "serve", "webdav", folder_.string(), "--addr",
                                 "127.0.0.1:" + std::to_string(port_), "--user", user_, "--pass", password_,
                                 "--config", (dir_ / "rclone.conf").string(), "--dir-cache-time", "0s",
                                 "--cache-dir", (dir_ / "cache").string(), "--log-level", "ERROR"},
        dir_ / "rclone.log");
    try {
      waitUntilListening(*process_, dir_ / "rclone.log");
    } catch (const std::exception& e) {
      unavailable_ = std::string("rclone failed to start: ") + e.what();
      return;
    }
    url_ = "http://127.0.0.1:" + std::to_string(port_);
  }

 private:
  std::unique_ptr<TestProcess> process_;
};

// testdata/sync/webdav_fault_server.py in one of its modes.
class FaultDavServer : public WebDavServer {
 public:
  explicit FaultDavServer(std::vector<std::string> mode) {
    std::string python = findProgram("python3");
    const char* source = std::getenv("LUMEO_SOURCE_DIR");
    if (python.empty() || !source) {
      unavailable_ = "python3 or LUMEO_SOURCE_DIR is missing";
      return;
    }
    std::vector<std::string> argv = {python, std::string(source) + "/testdata/sync/webdav_fault_server.py"};
    argv.insert(argv.end(), mode.begin(), mode.end());
    process_ = std::make_unique<TestProcess>(argv, dir_ / "server.log", true);
    std::string line = process_->readLine();
    port_ = std::atoi(line.c_str());
    if (port_ <= 0) {
      unavailable_ = "the fault server did not start: " + readFile(dir_ / "server.log");
      return;
    }
    url_ = "http://127.0.0.1:" + std::to_string(port_);
  }

 private:
  std::unique_ptr<TestProcess> process_;
};

}  // namespace lumeo::testing
