// The WebDAV file system: requests through libcurl on a worker queue, with
// the retries, timeouts and checks that an unattended sync needs.
#include "sync/sync_webdav.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "platform/file_system.h"
#include "platform/log.h"
#include "sync/sync_error.h"
#include "sync/sync_local_cloud_file_system.h"

namespace lumeo {

namespace {

constexpr char kCredentialService[] = "LumeoJournal";
// Lumeo's files are event files and photos; anything larger is not ours.
constexpr std::size_t kMaxBodyBytes = std::size_t(1) << 30;
constexpr int kMaxRedirects = 5;

constexpr char kPropfindBody[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<D:propfind xmlns:D=\"DAV:\"><D:prop><D:resourcetype/><D:getcontentlength/></D:prop></D:propfind>\n";

std::string lowercase(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

struct ParsedURL {
  std::string scheme;  // lower case
  std::string host;    // lower case, IPv6 without brackets
  int port = 0;
  std::string path;  // encoded, starts with "/"
};

std::optional<ParsedURL> parseURL(const std::string& url) {
  CURLU* handle = curl_url();
  if (!handle) return std::nullopt;
  ParsedURL parsed;
  bool ok = curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
  auto get = [&](CURLUPart part, std::string& out, unsigned flags) {
    char* value = nullptr;
    if (curl_url_get(handle, part, &value, flags) != CURLUE_OK) return false;
    out = value;
    curl_free(value);
    return true;
  };
  std::string port;
  ok = ok && get(CURLUPART_SCHEME, parsed.scheme, 0) && get(CURLUPART_HOST, parsed.host, 0) &&
       get(CURLUPART_PORT, port, CURLU_DEFAULT_PORT) && get(CURLUPART_PATH, parsed.path, 0);
  curl_url_cleanup(handle);
  if (!ok) return std::nullopt;
  parsed.scheme = lowercase(parsed.scheme);
  parsed.host = lowercase(parsed.host);
  if (parsed.host.size() > 2 && parsed.host.front() == '[')
    parsed.host = parsed.host.substr(1, parsed.host.size() - 2);
  parsed.port = std::atoi(port.c_str());
  if (parsed.path.empty()) parsed.path = "/";
  return parsed;
}

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

bool sameOrigin(const ParsedURL& a, const ParsedURL& b) {
  return a.scheme == b.scheme && a.host == b.host && a.port == b.port;
}

// The <title> of an HTML page, for error messages.
std::string htmlTitle(const std::string& body) {
  auto lower = lowercase(body.substr(0, 64 * 1024));
  auto start = lower.find("<title>");
  if (start == std::string::npos) return {};
  start += 7;
  auto end = lower.find("</title>", start);
  if (end == std::string::npos) return {};
  std::string title = body.substr(start, std::min<std::size_t>(end - start, 200));
  std::replace_if(
      title.begin(), title.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
  return title;
}

struct HttpResponse {
  CURLcode code = CURLE_OK;
  std::string curlMessage;
  long status = 0;
  std::string body;
  std::string contentType;
  std::optional<double> retryAfter;
  curl_off_t contentLength = -1;
  bool excess = false;    // more bytes than Content-Length
  bool tooLarge = false;  // over kMaxBodyBytes
  bool foreignRedirect = false;
  std::string redirectTarget;
};

bool isTransient(const HttpResponse& response) {
  if (response.code == CURLE_GOT_NOTHING || response.code == CURLE_SEND_ERROR ||
      response.code == CURLE_RECV_ERROR)
    return true;
  if (response.code != CURLE_OK) return false;
  return response.status == 429 || response.status == 500 || response.status == 502 ||
         response.status == 503 || response.status == 504;
}

std::optional<double> parseRetryAfter(const std::string& value) {
  std::string text = value;
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.erase(0, 1);
  if (text.empty()) return std::nullopt;
  if (text.find_first_not_of("0123456789") == std::string::npos)
    return text.size() > 9 ? 1e9 : std::stod(text);
  time_t when = curl_getdate(text.c_str(), nullptr);
  if (when < 0) return std::nullopt;
  return std::max(0.0, static_cast<double>(when - time(nullptr)));
}

struct UploadBody {
  const std::vector<std::uint8_t>* bytes = nullptr;
  std::size_t offset = 0;
};

std::size_t readBody(char* buffer, std::size_t size, std::size_t count, void* data) {
  auto& body = *static_cast<UploadBody*>(data);
  std::size_t left = body.bytes->size() - body.offset;
  std::size_t n = std::min(left, size * count);
  std::memcpy(buffer, body.bytes->data() + body.offset, n);
  body.offset += n;
  return n;
}

int seekBody(void* data, curl_off_t offset, int origin) {
  auto& body = *static_cast<UploadBody*>(data);
  if (origin != SEEK_SET || offset < 0 || static_cast<std::size_t>(offset) > body.bytes->size())
    return CURL_SEEKFUNC_FAIL;
  body.offset = static_cast<std::size_t>(offset);
  return CURL_SEEKFUNC_OK;
}

std::size_t writeBody(char* data, std::size_t size, std::size_t count, void* out) {
  auto& response = *static_cast<HttpResponse*>(out);
  std::size_t n = size * count;
  if (response.body.size() + n > kMaxBodyBytes) {
    response.tooLarge = true;
    return 0;
  }
  response.body.append(data, n);
  return n;
}

std::size_t readHeader(char* data, std::size_t size, std::size_t count, void* out) {
  auto& response = *static_cast<HttpResponse*>(out);
  std::string line(data, size * count);
  auto colon = line.find(':');
  if (line.rfind("HTTP/", 0) == 0) {
    // A new response (after a 100 Continue or an authentication round).
    response.retryAfter.reset();
    response.contentType.clear();
  } else if (colon != std::string::npos) {
    std::string name = lowercase(line.substr(0, colon));
    std::string value = line.substr(colon + 1);
    while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back()))) value.pop_back();
    while (!value.empty() && std::isspace(static_cast<unsigned char>(value.front()))) value.erase(0, 1);
    if (name == "retry-after") response.retryAfter = parseRetryAfter(value);
    if (name == "content-type") response.contentType = lowercase(value);
  }
  return size * count;
}

int debugCallback(CURL*, curl_infotype type, char* data, std::size_t size, void* out) {
  // libcurl notes a body longer than its Content-Length only in its
  // diagnostics; such an answer is not to be trusted.
  if (type == CURLINFO_TEXT && std::string_view(data, size).find("Excess found") != std::string_view::npos)
    static_cast<HttpResponse*>(out)->excess = true;
  return 0;
}

void initializeCurl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

Error webDavError(long code, const std::string& message, long status = 0) {
  Error error = syncError(code, message);
  if (status) error.userInfo["status"] = Value(status);
  return error;
}

}  // namespace

SecretItemKey syncWebDavCredentialKey(const std::string& baseURL, const std::string& user) {
  return {kCredentialService, "webdav " + user + "@" + baseURL};
}

std::optional<std::string> syncWebDavNormalizedURL(const std::string& url, std::string* why) {
  auto fail = [&](const std::string& reason) -> std::optional<std::string> {
    if (why) *why = reason;
    return std::nullopt;
  };
  initializeCurl();
  CURLU* handle = curl_url();
  if (!handle) return fail("out of memory");
  bool ok = curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
  auto has = [&](CURLUPart part) {
    char* value = nullptr;
    bool present = curl_url_get(handle, part, &value, 0) == CURLUE_OK && value && *value;
    curl_free(value);
    return present;
  };
  bool extras = ok && (has(CURLUPART_USER) || has(CURLUPART_PASSWORD) || has(CURLUPART_QUERY) ||
                       has(CURLUPART_FRAGMENT));
  curl_url_cleanup(handle);
  if (!ok) return fail("\"" + url + "\" is not a URL");
  if (extras)
    return fail("the URL must not hold a user name, password, query or fragment; give the user with --user");
  auto parsed = parseURL(url);
  if (!parsed || parsed->host.empty()) return fail("\"" + url + "\" is not a URL");
  if (parsed->scheme != "https" && parsed->scheme != "http")
    return fail("only http and https URLs can be used");
  if (parsed->scheme == "http" && !isLoopback(parsed->host))
    return fail("plain http would send the password unencrypted; use https (http only to this machine)");
  std::string path = parsed->path;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path == "/") path.clear();
  std::string host = parsed->host.find(':') != std::string::npos ? "[" + parsed->host + "]" : parsed->host;
  int defaultPort = parsed->scheme == "https" ? 443 : 80;
  std::string port = parsed->port == defaultPort ? "" : ":" + std::to_string(parsed->port);
  return parsed->scheme + "://" + host + port + path;
}

// One connection's worth of state, used on the worker queue only.
class SyncWebDavFileSystem::Session {
 public:
  Session(std::string baseURL, std::string user, Options options)
      : baseURL_(std::move(baseURL)), user_(std::move(user)), options_(std::move(options)) {
    initializeCurl();
    curl_ = curl_easy_init();
    if (auto parsed = parseURL(baseURL_)) base_ = *parsed;
    basePath_ = syncWebDavDecodePath(base_.path).value_or("/");
    while (basePath_.size() > 1 && basePath_.back() == '/') basePath_.pop_back();
  }
  ~Session() {
    if (curl_) curl_easy_cleanup(curl_);
    std::fill(password_.begin(), password_.end(), '\0');
  }

  void setPassword(std::string password) { password_ = std::move(password); }

  // Directories seen on the server in this session, so that an upload need
  // not ask for its parent each time. A removal forgets what it removed;
  // a directory that another device removed shows as a failed upload,
  // which forgets it too.
  bool knowsDirectory(const std::string& path) const { return knownDirectories_.count(path) > 0; }
  void rememberDirectory(const std::string& path) { knownDirectories_.insert(path); }
  void forgetDirectory(const std::string& path) {
    for (auto it = knownDirectories_.begin(); it != knownDirectories_.end();) {
      if (*it == path || it->rfind(path == "/" ? "/" : path + "/", 0) == 0) {
        it = knownDirectories_.erase(it);
      } else {
        ++it;
      }
    }
  }
  // The sizes of the files of the last listing of each directory, so that a
  // download of a listed file needs no look of its own. Uploads and
  // removals forget what they touch.
  std::optional<std::uint64_t> listedSize(const std::string& path) const {
    auto it = listedSizes_.find(path);
    if (it == listedSizes_.end()) return std::nullopt;
    return it->second;
  }
  void rememberListing(const std::string& directory, const std::vector<SyncCloudItem>& items,
                       const std::set<std::string>& sized) {
    forgetSizesUnder(directory);
    for (const auto& item : items) {
      if (const SyncCloudFile* file = item.file(); file && sized.count(file->path))
        listedSizes_[file->path] = file->size;
    }
  }
  void forgetSize(const std::string& path) { listedSizes_.erase(path); }
  // The next request opens a new connection: the last answer was not what
  // it claimed to be, and what is left of it may still be on its way.
  void distrustConnection() { freshConnection_ = true; }
  void forgetSizesUnder(const std::string& path) {
    std::string prefix = path == "/" ? "/" : path + "/";
    for (auto it = listedSizes_.lower_bound(prefix);
         it != listedSizes_.end() && it->first.rfind(prefix, 0) == 0;)
      it = listedSizes_.erase(it);
  }

  const std::string& user() const { return user_; }
  const Options& options() const { return options_; }

  // The URL of a normalised cloud path; collections end in "/".
  std::string urlFor(const std::string& path, bool collection = false) const {
    std::string url = baseURL_;
    if (path != "/") {
      std::size_t start = 1;
      while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        url += "/" + syncWebDavEncodeSegment(path.substr(start, end - start));
        start = end + 1;
      }
    }
    if (collection || path == "/") url += "/";
    return url;
  }

  // The cloud path of a decoded server path, or nothing when it lies
  // outside the base folder.
  std::optional<std::string> cloudPathFor(std::string serverPath) const {
    while (serverPath.size() > 1 && serverPath.back() == '/') serverPath.pop_back();
    std::string base = basePath_ == "/" ? "" : basePath_;
    if (serverPath == base || (base.empty() && serverPath == "/")) return std::string("/");
    if (serverPath.rfind(base + "/", 0) != 0) return std::nullopt;
    return syncNormalizedCloudPath(serverPath.substr(base.size()));
  }

  // A request with retries; the body of a PUT comes from `upload`.
  HttpResponse execute(const std::string& method, const std::string& url,
                       std::vector<std::string> headers = {}, const std::string& textBody = {},
                       const std::vector<std::uint8_t>* upload = nullptr) {
    HttpResponse response;
    for (int attempt = 0;; ++attempt) {
      response = followingRedirects(method, url, headers, textBody, upload);
      if (!isTransient(response) || attempt >= options_.maxRetries) return response;
      double delay = response.retryAfter.value_or(options_.retryDelay * std::pow(2.0, attempt));
      if (delay > options_.maxRetryDelay) return response;
      LUMEO_LOG_VERBOSE("WebDAV %@ %@ answered %@; retrying in %@ s", method, url,
                        response.code == CURLE_OK ? std::to_string(response.status) : response.curlMessage,
                        std::to_string(delay));
      std::this_thread::sleep_for(std::chrono::duration<double>(delay));
    }
  }

  // The error of a failed answer, for the operation `what`.
  Error errorFor(const HttpResponse& response, const std::string& what) const {
    if (response.foreignRedirect)
      return webDavError(kSyncErrorCodeServerError,
                         what + ": the server redirected to another host (" + response.redirectTarget +
                             "); Lumeo does not follow it with your password",
                         response.status);
    if (response.tooLarge) return webDavError(kSyncErrorCodeServerError, what + ": the answer is too large");
    if (response.code == CURLE_OPERATION_TIMEDOUT)
      return webDavError(kSyncErrorCodeFileCoordinatorTimedOut,
                         what + ": the WebDAV server did not answer in time (" + response.curlMessage + ")");
    if (response.code == CURLE_PARTIAL_FILE)
      return webDavError(
          kSyncErrorCodeServerError,
          what + ": the answer ended before its announced length (" + response.curlMessage + ")");
    if (response.code == CURLE_PEER_FAILED_VERIFICATION || response.code == CURLE_SSL_CONNECT_ERROR ||
        response.code == CURLE_SSL_CACERT_BADFILE || response.code == CURLE_SSL_CERTPROBLEM)
      return webDavError(
          kSyncErrorCodeServerError,
          what + ": the server's certificate could not be verified (" + response.curlMessage + ")");
    if (response.code != CURLE_OK)
      return webDavError(kSyncErrorCodeServerError,
                         what + ": cannot reach the WebDAV server (" + response.curlMessage + ")");
    if (response.excess)
      return webDavError(kSyncErrorCodeServerError,
                         what + ": the server sent more bytes than its Content-Length", response.status);
    std::string detail = "HTTP " + std::to_string(response.status);
    if (response.contentType.rfind("text/html", 0) == 0) {
      auto title = htmlTitle(response.body);
      detail += title.empty() ? ", a web page" : ", a web page: \"" + title + "\"";
    }
    switch (response.status) {
      case 401:
        return webDavError(kSyncErrorCodeCloudAuthenticationFailed,
                           what + ": the WebDAV server refused the user name or password (" + detail + ")",
                           response.status);
      case 403:
        return withStatus(syncCloudFileError(EACCES, what + ": not allowed (" + detail + ")"),
                          response.status);
      case 404:
      case 409:  // a missing parent
        return withStatus(syncCloudFileError(ENOENT, what + ": no such file or directory (" + detail + ")"),
                          response.status);
      case 507:
        return withStatus(syncCloudFileError(ENOSPC, what + ": the server is full (" + detail + ")"),
                          response.status);
      default:
        if (response.status == 429 || response.status >= 500)
          return webDavError(kSyncErrorCodeServerError,
                             what + ": the WebDAV server is busy or failing (" + detail + "), even after " +
                                 std::to_string(options_.maxRetries) + " retries",
                             response.status);
        return webDavError(kSyncErrorCodeServerError, what + ": unexpected answer (" + detail + ")",
                           response.status);
    }
  }

  // PROPFIND: the entries of `path` at depth 0 or 1.
  std::variant<std::vector<SyncWebDavEntry>, Error> propfind(const std::string& path, int depth,
                                                             const std::string& what) {
    // A listing asks for the collection's own URL; a look at one entry
    // does not know whether it is a file.
    auto response = execute(
        "PROPFIND", urlFor(path, depth > 0),
        {"Depth: " + std::to_string(depth), "Content-Type: application/xml; charset=utf-8"}, kPropfindBody);
    if (response.code != CURLE_OK || response.status != 207 || response.excess || response.foreignRedirect) {
      if (response.code == CURLE_OK && response.status >= 200 && response.status < 300 &&
          !response.foreignRedirect && !response.excess) {
        std::string detail =
            response.contentType.rfind("text/html", 0) == 0
                ? "a web page" + (htmlTitle(response.body).empty() ? std::string()
                                                                   : ": \"" + htmlTitle(response.body) + "\"")
                : "HTTP " + std::to_string(response.status);
        return webDavError(kSyncErrorCodeServerError,
                           what + ": the server's answer is not a WebDAV listing (" + detail +
                               "). Is the URL a WebDAV folder?",
                           response.status);
      }
      return errorFor(response, what);
    }
    std::string why;
    auto entries = syncWebDavParseMultistatus(response.body, &why);
    if (!entries)
      return webDavError(kSyncErrorCodeServerError, what + ": the server's listing is " + why,
                         response.status);
    return *entries;
  }

 private:
  static Error withStatus(Error error, long status) {
    error.userInfo["status"] = Value(status);
    return error;
  }

  HttpResponse followingRedirects(const std::string& method, std::string url,
                                  const std::vector<std::string>& headers, const std::string& textBody,
                                  const std::vector<std::uint8_t>* upload) {
    for (int hop = 0;; ++hop) {
      HttpResponse response = once(method, url, headers, textBody, upload);
      if (response.code != CURLE_OK || response.status < 300 || response.status >= 400 ||
          response.redirectTarget.empty())
        return response;
      auto target = parseURL(response.redirectTarget);
      if (!target || !sameOrigin(*target, base_) || hop >= kMaxRedirects) {
        response.foreignRedirect = true;
        return response;
      }
      url = response.redirectTarget;
    }
  }

  HttpResponse once(const std::string& method, const std::string& url,
                    const std::vector<std::string>& headers, const std::string& textBody,
                    const std::vector<std::uint8_t>* upload) {
    HttpResponse response;
    if (!curl_) {
      response.code = CURLE_FAILED_INIT;
      response.curlMessage = "libcurl could not be started";
      return response;
    }
    CURL* curl = curl_;
    curl_easy_reset(curl);
    // After an answer that broke the protocol (bytes beyond its length, a
    // failed transfer) the connection may hold its leftovers: a new one.
    if (freshConnection_) curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    freshConnection_ = false;
    char errorBuffer[CURL_ERROR_SIZE] = {0};
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options_.caFile.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO, options_.caFile.c_str());
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options_.connectTimeout * 1000));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, std::max(1L, std::lround(options_.stallTimeout)));
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "Lumeo/1.0 (WebDAV sync)");
    if (!user_.empty()) {
      curl_easy_setopt(curl, CURLOPT_USERNAME, user_.c_str());
      curl_easy_setopt(curl, CURLOPT_PASSWORD, password_.c_str());
      curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC | CURLAUTH_DIGEST);
    }
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, readHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &response);
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, debugCallback);
    curl_easy_setopt(curl, CURLOPT_DEBUGDATA, &response);

    curl_slist* list = nullptr;
    for (const auto& header : headers) list = curl_slist_append(list, header.c_str());
    // Waiting for "100 Continue" costs a second with servers that never
    // send it; the body is small enough to send at once.
    list = curl_slist_append(list, "Expect:");
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);

    UploadBody body;
    if (upload) {
      body.bytes = upload;
      curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
      curl_easy_setopt(curl, CURLOPT_READFUNCTION, readBody);
      curl_easy_setopt(curl, CURLOPT_READDATA, &body);
      curl_easy_setopt(curl, CURLOPT_SEEKFUNCTION, seekBody);
      curl_easy_setopt(curl, CURLOPT_SEEKDATA, &body);
      curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(upload->size()));
    } else if (!textBody.empty()) {
      curl_easy_setopt(curl, CURLOPT_POSTFIELDS, textBody.c_str());
      curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(textBody.size()));
    } else if (method == "HEAD") {
      curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    }
    response.code = curl_easy_perform(curl);
    curl_slist_free_all(list);
    if (response.code != CURLE_OK) {
      freshConnection_ = true;
      response.curlMessage = errorBuffer[0] ? errorBuffer : curl_easy_strerror(response.code);
      if (response.tooLarge) response.code = CURLE_OK;
      return response;
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &response.contentLength);
    char* redirect = nullptr;
    if (curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &redirect) == CURLE_OK && redirect)
      response.redirectTarget = redirect;
    if (response.contentLength >= 0 && method != "HEAD" &&
        static_cast<curl_off_t>(response.body.size()) > response.contentLength)
      response.excess = true;
    if (response.excess) freshConnection_ = true;
    return response;
  }

  std::string baseURL_;
  std::string user_;
  Options options_;
  std::string password_;
  ParsedURL base_;
  std::string basePath_;
  std::set<std::string> knownDirectories_;
  std::map<std::string, std::uint64_t> listedSizes_;
  bool freshConnection_ = false;
  CURL* curl_ = nullptr;
};

SyncWebDavFileSystem::SyncWebDavFileSystem(std::string baseURL, std::string user)
    : SyncWebDavFileSystem(std::move(baseURL), std::move(user), Options()) {}

SyncWebDavFileSystem::SyncWebDavFileSystem(std::string baseURL, std::string user, Options options,
                                           std::shared_ptr<SecretStore> secrets)
    : baseURL_(syncWebDavNormalizedURL(baseURL).value_or(baseURL)),
      user_(std::move(user)),
      options_(std::move(options)),
      secrets_(secrets ? std::move(secrets) : SecretStore::shared()),
      session_(std::make_unique<Session>(baseURL_, user_, options_)),
      queue_(DispatchQueue::makeSerial("lumeo.sync.webdav")) {}

SyncWebDavFileSystem::~SyncWebDavFileSystem() {
  queue_.reset();  // waits for the requests under way, which use the session
}

bool SyncWebDavFileSystem::isConnected() const {
  std::lock_guard lock(mutex_);
  return connected_;
}

SyncCloudIdentityToken SyncWebDavFileSystem::identityToken() const {
  return "webdav:" + user_ + "@" + baseURL_;
}

void SyncWebDavFileSystem::run(std::function<void(Session&)> work) {
  queue_->async([this, work = std::move(work)] { work(*session_); });
}

void SyncWebDavFileSystem::connect(SyncCloudCompletion completion) {
  run([this, completion](Session& session) {
    auto finish = [&](OptionalError error) {
      {
        std::lock_guard lock(mutex_);
        connected_ = !error;
      }
      completeOnMainQueue(completion, std::move(error));
    };
    std::string why;
    if (!syncWebDavNormalizedURL(baseURL_, &why))
      return finish(webDavError(kSyncErrorCodeServerError, "The WebDAV address cannot be used: " + why));
    if (!user_.empty()) {
      std::string password;
      auto status = secrets_->copyMatchingData(syncWebDavCredentialKey(baseURL_, user_), password);
      if (!status.ok()) {
        std::string reason = status.code == kSecretItemNotFound
                                 ? "there is no password for " + user_ + " at " + baseURL_ +
                                       " in the Secret Service; set it with `lumeo sync webdav " + baseURL_ +
                                       " --user " + user_ + "`"
                                 : "the Secret Service did not give the password (" + status.message + ")";
        return finish(
            webDavError(kSyncErrorCodeCloudAuthenticationFailed, "Cannot sign in to WebDAV: " + reason));
      }
      session.setPassword(std::move(password));
    }
    auto entries = session.propfind("/", 0, "Connecting to " + baseURL_);
    if (auto* error = std::get_if<Error>(&entries)) {
      if (error->is(kSyncErrorDomain, kSyncErrorCodeFileAccessFailed) && syncCloudErrno(*error) == ENOENT)
        return finish(webDavError(
            kSyncErrorCodeServerError,
            "The folder " + baseURL_ + " does not exist on the WebDAV server; make it first", 404));
      if (error->is(kSyncErrorDomain, kSyncErrorCodeFileAccessFailed))
        return finish(webDavError(kSyncErrorCodeServerError, error->description));
      return finish(*error);
    }
    const auto& list = std::get<std::vector<SyncWebDavEntry>>(entries);
    bool isFolder = std::any_of(list.begin(), list.end(), [&](const SyncWebDavEntry& entry) {
      return entry.isCollection && session.cloudPathFor(entry.href) == std::optional<std::string>("/");
    });
    if (!isFolder)
      return finish(
          webDavError(kSyncErrorCodeServerError, baseURL_ + " is not a WebDAV folder (collection)"));
    finish(std::nullopt);
  });
}

#define LUMEO_WEBDAV_REQUIRE_CONNECTION(fail)                   \
  do {                                                          \
    std::lock_guard lock(mutex_);                               \
    if (!connected_) return fail(syncCloudNotConnectedError()); \
  } while (0)

void SyncWebDavFileSystem::fileExistsAtPath(const std::string& path, SyncCloudExistsCompletion completion) {
  run([this, path, completion](Session& session) {
    auto deliver = [&](bool exists, bool isDirectory, OptionalError error) {
      DispatchQueue::main().async([completion, exists, isDirectory, error = std::move(error)] {
        completion(exists, isDirectory, error);
      });
    };
    auto fail = [&](Error error) { deliver(false, false, std::move(error)); };
    LUMEO_WEBDAV_REQUIRE_CONNECTION(fail);
    auto normalized = syncNormalizedCloudPath(path);
    if (!normalized) return fail(syncCloudInvalidPathError(path));
    auto entries = session.propfind(*normalized, 0, "Looking for " + *normalized);
    if (auto* error = std::get_if<Error>(&entries)) {
      if (syncCloudErrno(*error) == ENOENT) return deliver(false, false, std::nullopt);
      return fail(*error);
    }
    for (const auto& entry : std::get<std::vector<SyncWebDavEntry>>(entries)) {
      if (session.cloudPathFor(entry.href) == normalized)
        return deliver(true, entry.isCollection, std::nullopt);
    }
    deliver(false, false, std::nullopt);
  });
}

void SyncWebDavFileSystem::createDirectoryAtPath(const std::string& path, SyncCloudCompletion completion) {
  run([this, path, completion](Session& session) {
    auto fail = [&](Error error) { completeOnMainQueue(completion, std::move(error)); };
    LUMEO_WEBDAV_REQUIRE_CONNECTION(fail);
    auto normalized = syncNormalizedCloudPath(path);
    if (!normalized || *normalized == "/") return fail(syncCloudInvalidPathError(path));
    std::string what = "Creating the directory " + *normalized;
    // Some servers make missing parents on their own; the cloud does not.
    auto parent = session.propfind(syncCloudPathParent(*normalized), 0, what);
    if (auto* error = std::get_if<Error>(&parent)) return fail(*error);
    // And some answer success for a directory that is there already.
    auto target = session.propfind(*normalized, 0, what);
    if (std::holds_alternative<std::vector<SyncWebDavEntry>>(target))
      return fail(syncCloudFileError(EEXIST, what + ": something is there already"));
    if (syncCloudErrno(std::get<Error>(target)) != ENOENT) return fail(std::get<Error>(target));
    auto response = session.execute("MKCOL", session.urlFor(*normalized, true));
    if (response.code == CURLE_OK && !response.foreignRedirect &&
        (response.status == 201 || response.status == 200)) {
      session.rememberDirectory(*normalized);
      return completeOnMainQueue(completion, std::nullopt);
    }
    if (response.code == CURLE_OK && !response.foreignRedirect && response.status == 405)
      return fail(syncCloudFileError(EEXIST, what + ": something is there already"));
    fail(session.errorFor(response, what));
  });
}

void SyncWebDavFileSystem::contentsOfDirectoryAtPath(const std::string& path,
                                                     SyncCloudListingCompletion completion) {
  run([this, path, completion](Session& session) {
    auto deliver = [&](std::vector<SyncCloudItem> items, OptionalError error) {
      DispatchQueue::main().async(
          [completion, items = std::move(items), error = std::move(error)] { completion(items, error); });
    };
    auto fail = [&](Error error) { deliver({}, std::move(error)); };
    LUMEO_WEBDAV_REQUIRE_CONNECTION(fail);
    auto normalized = syncNormalizedCloudPath(path);
    if (!normalized) return fail(syncCloudInvalidPathError(path));
    std::string what = "Couldn't create directory enumerator for path: " + *normalized;
    auto entries = session.propfind(*normalized, 1, what);
    if (auto* error = std::get_if<Error>(&entries)) return fail(*error);
    std::vector<SyncCloudItem> items;
    std::set<std::string> sized;
    bool sawSelf = false;
    for (const auto& entry : std::get<std::vector<SyncWebDavEntry>>(entries)) {
      auto cloudPath = session.cloudPathFor(entry.href);
      if (!cloudPath) continue;
      if (*cloudPath == *normalized) {
        if (!entry.isCollection) return fail(syncCloudFileError(ENOTDIR, what + ": it is a file"));
        sawSelf = true;
        session.rememberDirectory(*cloudPath);
        continue;
      }
      // Only direct children: a server may answer deeper than asked.
      if (syncCloudPathParent(*cloudPath) != *normalized) continue;
      std::string name = syncCloudPathName(*cloudPath);
      if (name.empty() || name[0] == '.') continue;
      if (entry.isCollection) {
        session.rememberDirectory(*cloudPath);
        items.emplace_back(SyncCloudDirectory{*cloudPath, name, {}});
      } else {
        items.emplace_back(SyncCloudFile{*cloudPath, name, entry.size});
        if (entry.sizeKnown) sized.insert(*cloudPath);
      }
    }
    if (!sawSelf && items.empty())
      return fail(
          webDavError(kSyncErrorCodeServerError, what + ": the listing does not name the folder itself"));
    session.rememberListing(*normalized, items, sized);
    deliver(std::move(items), std::nullopt);
  });
}

void SyncWebDavFileSystem::removeItemAtPath(const std::string& path, SyncCloudCompletion completion) {
  run([this, path, completion](Session& session) {
    auto fail = [&](Error error) { completeOnMainQueue(completion, std::move(error)); };
    LUMEO_WEBDAV_REQUIRE_CONNECTION(fail);
    auto normalized = syncNormalizedCloudPath(path);
    if (!normalized || *normalized == "/") return fail(syncCloudInvalidPathError(path));
    session.forgetDirectory(*normalized);
    session.forgetSize(*normalized);
    session.forgetSizesUnder(*normalized);
    auto response = session.execute("DELETE", session.urlFor(*normalized));
    if (response.code == CURLE_OK && !response.foreignRedirect && response.status >= 200 &&
        response.status < 300)
      return completeOnMainQueue(completion, std::nullopt);
    fail(session.errorFor(response, "Removing " + *normalized));
  });
}

void SyncWebDavFileSystem::uploadLocalFile(const std::string& localPath, const std::string& toPath,
                                           SyncCloudCompletion completion) {
  run([this, localPath, toPath, completion](Session& session) {
    auto fail = [&](Error error) { completeOnMainQueue(completion, std::move(error)); };
    LUMEO_WEBDAV_REQUIRE_CONNECTION(fail);
    auto normalized = syncNormalizedCloudPath(toPath);
    if (!normalized || *normalized == "/") return fail(syncCloudInvalidPathError(toPath));
    std::string what = "Uploading to " + *normalized;
    auto bytes = FileSystem::current()->readFile(localPath);
    if (auto* error = std::get_if<Error>(&bytes))
      return fail(sync_directory::fileError(*error, "Cannot read " + localPath));
    std::string parent = syncCloudPathParent(*normalized);
    session.forgetSize(*normalized);
    // The parent must exist: some servers would make it silently.
    if (!session.knowsDirectory(parent)) {
      auto parentEntries = session.propfind(parent, 0, what);
      if (auto* error = std::get_if<Error>(&parentEntries)) return fail(*error);
      session.rememberDirectory(parent);
    }

    // To a hidden name first, then moved over the target in one step, so
    // that an upload cut off half way is never seen under the real name.
    std::string temporary =
        syncCloudPathAppending(parent, sync_directory::temporaryNameFor(syncCloudPathName(*normalized)));
    auto put = session.execute("PUT", session.urlFor(temporary), {"Content-Type: application/octet-stream"},
                               {}, &std::get<std::vector<std::uint8_t>>(bytes));
    auto removeTemporary = [&] { (void)session.execute("DELETE", session.urlFor(temporary)); };
    if (put.code != CURLE_OK || put.foreignRedirect || put.status < 200 || put.status >= 300) {
      session.forgetDirectory(parent);
      removeTemporary();
      return fail(session.errorFor(put, what));
    }
    auto move = session.execute("MOVE", session.urlFor(temporary),
                                {"Destination: " + session.urlFor(*normalized), "Overwrite: T"});
    if (move.code != CURLE_OK || move.foreignRedirect || move.status < 200 || move.status >= 300) {
      removeTemporary();
      return fail(session.errorFor(move, what));
    }
    completeOnMainQueue(completion, std::nullopt);
  });
}

void SyncWebDavFileSystem::downloadFromPath(const std::string& path, const std::string& toLocalFile,
                                            SyncCloudCompletion completion) {
  run([this, path, toLocalFile, completion](Session& session) {
    auto fail = [&](Error error) { completeOnMainQueue(completion, std::move(error)); };
    LUMEO_WEBDAV_REQUIRE_CONNECTION(fail);
    auto normalized = syncNormalizedCloudPath(path);
    if (!normalized) return fail(syncCloudInvalidPathError(path));
    std::string what = "Downloading " + *normalized;
    // The size the listing gives is checked against what arrives: libcurl
    // reads no further than the Content-Length, so a server that sends more
    // than it announces would otherwise pass with a cut file. A file of the
    // last listing of its directory (the engine lists a directory, then
    // fetches what it lacks) is fetched at once with the listing's size;
    // when anything about it is amiss (another device replaced or removed it
    // since), it is fetched again as any other file: looked up first.
    auto fetch = [&](std::optional<std::uint64_t> listedSize,
                     bool fromListing) -> std::variant<std::string, Error> {
      if (!fromListing) {
        auto entries = session.propfind(*normalized, 0, what);
        if (auto* error = std::get_if<Error>(&entries)) return *error;
        for (const auto& entry : std::get<std::vector<SyncWebDavEntry>>(entries)) {
          if (session.cloudPathFor(entry.href) != normalized) continue;
          if (entry.isCollection) return syncCloudFileError(EISDIR, what + ": it is a directory");
          if (entry.sizeKnown) listedSize = entry.size;
        }
      }
      auto response = session.execute("GET", session.urlFor(*normalized));
      if (response.code != CURLE_OK || response.foreignRedirect || response.excess || response.tooLarge ||
          response.status != 200)
        return session.errorFor(response, what);
      auto lowerName = lowercase(*normalized);
      bool htmlName = lowerName.ends_with(".html") || lowerName.ends_with(".htm");
      if (response.contentType.rfind("text/html", 0) == 0 && !htmlName) {
        auto title = htmlTitle(response.body);
        return webDavError(kSyncErrorCodeServerError,
                           what + ": the server answered with a web page instead of the file" +
                               (title.empty() ? std::string() : " (\"" + title + "\")"),
                           response.status);
      }
      if (response.contentLength >= 0 &&
          static_cast<curl_off_t>(response.body.size()) != response.contentLength) {
        session.distrustConnection();
        return webDavError(kSyncErrorCodeServerError,
                           what + ": got " + std::to_string(response.body.size()) + " bytes of the " +
                               std::to_string(response.contentLength) + " announced",
                           response.status);
      }
      if (listedSize && *listedSize != response.body.size()) {
        session.distrustConnection();
        return webDavError(kSyncErrorCodeServerError,
                           what + ": got " + std::to_string(response.body.size()) +
                               " bytes where the listing says " + std::to_string(*listedSize),
                           response.status);
      }
      return std::move(response.body);
    };
    std::variant<std::string, Error> fetched;
    if (auto listedSize = session.listedSize(*normalized)) {
      fetched = fetch(listedSize, true);
      // Not after a server that did not answer or stayed busy: that would
      // only be a second wait.
      auto* error = std::get_if<Error>(&fetched);
      long status = 0;
      if (error) {
        auto it = error->userInfo.find("status");
        if (it != error->userInfo.end()) status = static_cast<long>(it->second.toInt());
      }
      if (error && error->code != kSyncErrorCodeFileCoordinatorTimedOut && status != 0 && status != 429 &&
          status < 500) {
        session.forgetSize(*normalized);
        fetched = fetch(std::nullopt, false);
      }
    } else {
      fetched = fetch(std::nullopt, false);
    }
    if (auto* error = std::get_if<Error>(&fetched)) return fail(*error);
    const std::string& body = std::get<std::string>(fetched);
    // Into the engine's transit cache: renamed into place, not flushed.
    if (auto error = sync_directory::writeReplacing(*FileSystem::current(), toLocalFile, body.data(),
                                                    body.size(), sync_directory::Durability::kScratch))
      return fail(*error);
    completeOnMainQueue(completion, std::nullopt);
  });
}

}  // namespace lumeo
