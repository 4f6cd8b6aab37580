// Place search and reverse geocoding on a Nominatim server, within the
// rules of its public service: at most one request a second (queued, on the
// process clock, so tests run it in virtual time), a User-Agent that names
// Lumeo, a search only when the user submits it (the caller's part), and
// answers cached so that asking twice asks the server once. A 429 answer
// holds every request until its Retry-After has passed.
//
// Requests run one at a time on the search's own serial queue with libcurl;
// completions run on the main queue.
#pragma once

#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>

#include "map/place_search.h"
#include "platform/date.h"
#include "platform/dispatch_queue.h"

namespace lumeo {

// The defaults key of the server's address; unset means the public server.
inline constexpr const char* kPlaceSearchEndpointKey = "kPlaceSearchEndpoint";
inline constexpr const char* kNominatimPublicEndpoint = "https://nominatim.openstreetmap.org";

class NominatimPlaceSearch : public PlaceSearch, public std::enable_shared_from_this<NominatimPlaceSearch> {
 public:
  struct Options {
    std::string endpoint = kNominatimPublicEndpoint;  // without a trailing "/search"
    std::string userAgent;                            // empty: Lumeo's own
    double timeoutSeconds = 10;
    double minimumInterval = 1.0;  // seconds between the starts of two requests
    std::size_t limit = 10;        // results of a search
    std::string language;          // "de,en"; empty: the user's languages
    std::size_t cacheEntries = 256;
  };

  static std::shared_ptr<NominatimPlaceSearch> create(Options options);
  explicit NominatimPlaceSearch(Options options);  // use create()

  void search(const std::string& text, std::optional<CoordinateRegion> near,
              SearchCompletion completion) override;
  void reverse(LocationCoordinate2D coordinate, ReverseCompletion completion) override;

  // Requests that went to the server (cache hits do not count).
  std::size_t requestCount() const;
  static std::string defaultUserAgent();

  // Reading the server's answers; public for the tests and the fuzzer.
  static std::variant<std::vector<Place>, Error> parseSearch(const std::string& body);
  static std::variant<std::optional<Place>, Error> parseReverse(const std::string& body);

 private:
  struct Response {
    long status = 0;
    std::string body;
    double retryAfter = -1;
    OptionalError error;  // transport failures
  };
  struct Job {
    std::string url;
    std::function<void(const Response&)> done;  // on the main queue
  };
  void enqueue(std::string url, std::function<void(const Response&)> done);
  void pump();
  void perform(Job job);
  Response fetch(const std::string& url) const;
  std::optional<Response> cached(const std::string& url);
  void remember(const std::string& url, const Response& response);
  static OptionalError errorFor(const Response& response);

  Options options_;
  std::shared_ptr<DispatchQueue> queue_;
  mutable std::mutex mutex_;
  std::deque<Job> pending_;
  bool busy_ = false;
  Date nextAllowed_;  // no request starts before this
  std::size_t requests_ = 0;
  std::map<std::string, Response> cache_;
  std::list<std::string> cacheOrder_;  // oldest first
};

}  // namespace lumeo
