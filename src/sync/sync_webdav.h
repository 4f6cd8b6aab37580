// A WebDAV server as the cloud (Nextcloud, ownCloud, Apache mod_dav, rclone,
// a NAS), so that devices can sync without a sync client installed. The
// protocol is the same small file system over HTTP through libcurl:
// PROPFIND (depth 0 and 1) to look and list, MKCOL, GET, DELETE, and PUT to
// a hidden temporary name followed by MOVE with "Overwrite: T", so that no
// other device ever sees half a file.
//
// Security: the password comes from the Secret Service through the
// SecretStore seam at connect time and is kept only in memory; TLS
// certificates and host names are always verified; a redirect to another
// host, scheme or port is refused rather than followed with the password;
// plain http is refused for any host but this machine.
//
// Robustness: a connection timeout, and a stall timeout (no byte moved for
// that long) that ends any transfer with code 106; up to `maxRetries`
// retries with exponential backoff after 429 and 5xx answers and dropped
// connections, honouring "Retry-After"; an HTML page where a listing or a
// file was expected, a body shorter or longer than its Content-Length, and
// a listing that is not a WebDAV multistatus are clear errors (1001).
//
// Blocking I/O runs on a worker queue of its own, one request at a time;
// completions run on the main queue.
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "platform/dispatch_queue.h"
#include "platform/secret_store.h"
#include "sync/sync_cloud_file_system.h"

namespace lumeo {

// The keyring item of a WebDAV password: service "LumeoJournal", account
// "webdav USER@URL".
SecretItemKey syncWebDavCredentialKey(const std::string& baseURL, const std::string& user);

// Checks and normalises a server folder's address: http or https, a host,
// no user name, query or fragment in it, no trailing slash. Plain http only
// to this machine (localhost, 127.0.0.0/8, ::1). Nothing and `why` filled
// when it is not acceptable.
std::optional<std::string> syncWebDavNormalizedURL(const std::string& url, std::string* why = nullptr);

class SyncWebDavFileSystem : public SyncCloudFileSystem {
 public:
  struct Options {
    double connectTimeout = 20;  // seconds to open a connection
    double stallTimeout = 60;    // seconds without a byte moved in either direction
    int maxRetries = 4;          // retries after 429, 5xx and dropped connections
    double retryDelay = 1;       // first backoff; doubles with each retry
    double maxRetryDelay = 60;   // a longer Retry-After ends the call at once
    std::string caFile;          // an extra certificate authority bundle (a self-hosted server)
  };

  // `baseURL` is the folder on the server that stands for "/" (it must
  // exist); `user` the account whose password the SecretStore holds.
  SyncWebDavFileSystem(std::string baseURL, std::string user);
  SyncWebDavFileSystem(std::string baseURL, std::string user, Options options,
                       std::shared_ptr<SecretStore> secrets = nullptr);
  ~SyncWebDavFileSystem() override;

  // Reads the password and checks that the base folder is a WebDAV
  // collection: 1003 when there is no password or the server refuses it,
  // 1001 when the server or the folder is not there or does not speak
  // WebDAV, 106 when it does not answer.
  void connect(SyncCloudCompletion completion) override;
  LUMEO_SYNC_CLOUD_FILE_OPERATIONS_OVERRIDE

  bool isConnected() const override;
  // "webdav:USER@URL": a different server, folder or account is a
  // different cloud.
  SyncCloudIdentityToken identityToken() const override;

  const std::string& baseURL() const { return baseURL_; }

 private:
  class Session;
  void run(std::function<void(Session&)> work);

  std::string baseURL_;
  std::string user_;
  Options options_;
  std::shared_ptr<SecretStore> secrets_;
  std::unique_ptr<Session> session_;  // used on queue_ only
  mutable std::mutex mutex_;
  bool connected_ = false;
  std::shared_ptr<DispatchQueue> queue_;
};

// The entries of a PROPFIND multistatus answer, for the listing and its
// tests: each with its decoded path on the server, whether it is a
// collection, and its size. Nothing when the body is not a multistatus.
struct SyncWebDavEntry {
  std::string href;  // percent-decoded path, without scheme and host
  bool isCollection = false;
  std::uint64_t size = 0;
  bool sizeKnown = false;  // the answer gave getcontentlength
};
std::optional<std::vector<SyncWebDavEntry>> syncWebDavParseMultistatus(const std::string& body,
                                                                       std::string* why = nullptr);

// Percent-encoding of one path segment (UTF-8 bytes, all but the unreserved
// characters), and decoding of a whole path. Decoding fails (nothing) on a
// malformed escape or an encoded NUL or slash inside a segment.
std::string syncWebDavEncodeSegment(const std::string& segment);
std::optional<std::string> syncWebDavDecodePath(const std::string& encoded);

}  // namespace lumeo
