// The request queue: one job at a time, each started no sooner than a
// second after the one before (or after a 429's Retry-After), waiting with
// a delayed call on the serial queue so that the wait runs on the process
// clock. The HTTP exchange itself is a blocking libcurl call on that queue.
#include "map/nominatim_place_search.h"

#include <curl/curl.h>

#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "platform/clock.h"
#include "platform/localization.h"
#include "platform/log.h"

namespace lumeo {

namespace {

constexpr std::size_t kMaxAnswerBytes = 4 * 1024 * 1024;

Error placeError(long code, const std::string& description, Value::Dictionary info = {}) {
  return Error{kPlaceSearchErrorDomain, code, description, std::move(info)};
}

void initializeCurl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string escape(CURL* curl, const std::string& text) {
  char* escaped = curl_easy_escape(curl, text.c_str(), static_cast<int>(text.size()));
  std::string result = escaped ? escaped : "";
  curl_free(escaped);
  return result;
}

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.7f", value);
  return text;
}

// Nominatim writes coordinates as strings ("47.0708678"); older servers
// and proxies sometimes as numbers.
std::optional<double> coordinateOf(const nlohmann::json& value) {
  double result = 0;
  if (value.is_number()) {
    result = value.get<double>();
  } else if (value.is_string()) {
    const std::string text = value.get<std::string>();
    char* end = nullptr;
    result = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0') return std::nullopt;
  } else {
    return std::nullopt;
  }
  if (!std::isfinite(result)) return std::nullopt;
  return result;
}

std::string stringOf(const nlohmann::json& object, const char* key) {
  auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

// One result object; nothing when it has no usable position.
std::optional<Place> placeOf(const nlohmann::json& object) {
  if (!object.is_object()) return std::nullopt;
  auto lat = object.find("lat");
  auto lon = object.find("lon");
  if (lat == object.end() || lon == object.end()) return std::nullopt;
  auto latitude = coordinateOf(*lat);
  auto longitude = coordinateOf(*lon);
  if (!latitude || !longitude || std::fabs(*latitude) > 90 || std::fabs(*longitude) > 180)
    return std::nullopt;
  Place place;
  place.coordinate = {*latitude, *longitude};
  place.displayName = stringOf(object, "display_name");
  place.name = stringOf(object, "name");
  if (place.name.empty()) place.name = place.displayName.substr(0, place.displayName.find(','));
  place.kind = stringOf(object, "type");
  if (place.kind.empty()) place.kind = stringOf(object, "addresstype");
  return place;
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* target) {
  auto* body = static_cast<std::string*>(target);
  if (body->size() + size * count > kMaxAnswerBytes) return 0;  // aborts the transfer
  body->append(data, size * count);
  return size * count;
}

std::size_t header(char* data, std::size_t size, std::size_t count, void* target) {
  auto* retryAfter = static_cast<double*>(target);
  std::string line(data, size * count);
  static const std::string kName = "retry-after:";
  if (line.size() > kName.size()) {
    std::string start = line.substr(0, kName.size());
    for (char& c : start) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (start == kName) {
      char* end = nullptr;
      const double seconds = std::strtod(line.c_str() + kName.size(), &end);
      // The HTTP-date form is rare here; a minute is a polite guess.
      *retryAfter =
          end != line.c_str() + kName.size() && std::isfinite(seconds) && seconds >= 0 ? seconds : 60;
    }
  }
  return size * count;
}

}  // namespace

std::shared_ptr<NominatimPlaceSearch> NominatimPlaceSearch::create(Options options) {
  return std::make_shared<NominatimPlaceSearch>(std::move(options));
}

NominatimPlaceSearch::NominatimPlaceSearch(Options options)
    : options_(std::move(options)), queue_(DispatchQueue::makeSerial("lumeo.places")) {
  while (!options_.endpoint.empty() && options_.endpoint.back() == '/') options_.endpoint.pop_back();
  if (options_.userAgent.empty()) options_.userAgent = defaultUserAgent();
  if (options_.language.empty()) {
    for (const auto& language : Localization::languages()) {
      options_.language += (options_.language.empty() ? "" : ",") + language;
    }
  }
  initializeCurl();
}

std::string NominatimPlaceSearch::defaultUserAgent() {
#ifdef LUMEO_VERSION
  return std::string("Lumeo/") + LUMEO_VERSION + " (personal mood journal; place chooser)";
#else
  return "Lumeo/0.1 (personal mood journal; place chooser)";
#endif
}

std::size_t NominatimPlaceSearch::requestCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void NominatimPlaceSearch::search(const std::string& text, std::optional<CoordinateRegion> near,
                                  SearchCompletion completion) {
  CURL* curl = curl_easy_init();
  std::string url = options_.endpoint + "/search?format=jsonv2&q=" + escape(curl, text) +
                    "&limit=" + std::to_string(options_.limit);
  if (!options_.language.empty()) url += "&accept-language=" + escape(curl, options_.language);
  if (near) {
    // Prefer what is around the map, without excluding the rest.
    const double west = near->center.longitude - near->span.longitudeDelta / 2;
    const double east = near->center.longitude + near->span.longitudeDelta / 2;
    const double north = std::min(90.0, near->center.latitude + near->span.latitudeDelta / 2);
    const double south = std::max(-90.0, near->center.latitude - near->span.latitudeDelta / 2);
    url += "&viewbox=" + number(west) + "," + number(north) + "," + number(east) + "," + number(south);
  }
  curl_easy_cleanup(curl);
  enqueue(url, [completion](const Response& response) {
    if (auto error = errorFor(response)) {
      completion({}, error);
      return;
    }
    auto parsed = parseSearch(response.body);
    if (auto* error = std::get_if<Error>(&parsed)) {
      completion({}, *error);
    } else {
      completion(std::get<std::vector<Place>>(parsed), std::nullopt);
    }
  });
}

void NominatimPlaceSearch::reverse(LocationCoordinate2D coordinate, ReverseCompletion completion) {
  CURL* curl = curl_easy_init();
  std::string url = options_.endpoint + "/reverse?format=jsonv2&lat=" + number(coordinate.latitude) +
                    "&lon=" + number(coordinate.longitude) + "&zoom=18";
  if (!options_.language.empty()) url += "&accept-language=" + escape(curl, options_.language);
  curl_easy_cleanup(curl);
  enqueue(url, [completion](const Response& response) {
    if (auto error = errorFor(response)) {
      completion(std::nullopt, error);
      return;
    }
    auto parsed = parseReverse(response.body);
    if (auto* error = std::get_if<Error>(&parsed)) {
      completion(std::nullopt, *error);
    } else {
      completion(std::get<std::optional<Place>>(parsed), std::nullopt);
    }
  });
}

std::variant<std::vector<Place>, Error> NominatimPlaceSearch::parseSearch(const std::string& body) {
  nlohmann::json json = nlohmann::json::parse(body, nullptr, false);
  if (!json.is_array()) {
    return placeError(kPlaceServerError, "the place server sent something that is no list of places");
  }
  std::vector<Place> places;
  for (const auto& item : json) {
    if (auto place = placeOf(item)) places.push_back(std::move(*place));
  }
  return places;
}

std::variant<std::optional<Place>, Error> NominatimPlaceSearch::parseReverse(const std::string& body) {
  nlohmann::json json = nlohmann::json::parse(body, nullptr, false);
  if (!json.is_object())
    return placeError(kPlaceServerError, "the place server sent something that is no place");
  // {"error": "Unable to geocode"}: nothing there, which is no failure.
  if (json.contains("error")) return std::optional<Place>();
  auto place = placeOf(json);
  if (!place) return placeError(kPlaceServerError, "the place server sent a place without a position");
  return place;
}

OptionalError NominatimPlaceSearch::errorFor(const Response& response) {
  if (response.error) return response.error;
  if (response.status == 429) {
    const double wait = response.retryAfter >= 0 ? response.retryAfter : 60;
    char text[120];
    std::snprintf(text, sizeof text, "the place server is busy; it asks to wait %.0f seconds", wait);
    return placeError(kPlaceServerBusy, text, {{"retryAfter", wait}});
  }
  if (response.status != 200) {
    return placeError(kPlaceServerError, "the place server answered HTTP " + std::to_string(response.status));
  }
  return std::nullopt;
}

std::optional<NominatimPlaceSearch::Response> NominatimPlaceSearch::cached(const std::string& url) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = cache_.find(url);
  if (it == cache_.end()) return std::nullopt;
  return it->second;
}

void NominatimPlaceSearch::remember(const std::string& url, const Response& response) {
  // Only real answers are kept; a failure is asked again next time.
  if (response.error || response.status != 200) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (cache_.emplace(url, response).second) cacheOrder_.push_back(url);
  while (cache_.size() > options_.cacheEntries && !cacheOrder_.empty()) {
    cache_.erase(cacheOrder_.front());
    cacheOrder_.pop_front();
  }
}

void NominatimPlaceSearch::enqueue(std::string url, std::function<void(const Response&)> done) {
  if (auto hit = cached(url)) {
    DispatchQueue::main().async([done, response = *hit] { done(response); });
    return;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pending_.push_back({std::move(url), std::move(done)});
  }
  std::weak_ptr<NominatimPlaceSearch> weak = weak_from_this();
  queue_->async([weak] {
    if (auto self = weak.lock()) self->pump();
  });
}

// On the serial queue: starts the next job once the interval has passed.
void NominatimPlaceSearch::pump() {
  Job job;
  double wait = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (busy_ || pending_.empty()) return;
    busy_ = true;
    job = std::move(pending_.front());
    pending_.pop_front();
    wait = nextAllowed_.timeIntervalSinceDate(Clock::current()->now());
  }
  std::weak_ptr<NominatimPlaceSearch> weak = weak_from_this();
  auto run = [weak, job = std::move(job)]() mutable {
    if (auto self = weak.lock()) self->perform(std::move(job));
  };
  if (wait > 0) {
    queue_->after(wait, std::move(run));
  } else {
    run();
  }
}

void NominatimPlaceSearch::perform(Job job) {
  // A second search for the same text may have been answered meanwhile.
  Response response;
  if (auto hit = cached(job.url)) {
    response = *hit;
  } else {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      nextAllowed_ = Clock::current()->now().dateByAddingTimeInterval(options_.minimumInterval);
      ++requests_;
    }
    response = fetch(job.url);
    remember(job.url, response);
    if (response.status == 429) {
      const double wait = response.retryAfter >= 0 ? response.retryAfter : 60;
      std::lock_guard<std::mutex> lock(mutex_);
      nextAllowed_ =
          Clock::current()->now().dateByAddingTimeInterval(std::max(wait, options_.minimumInterval));
    }
  }
  DispatchQueue::main().async([done = std::move(job.done), response] { done(response); });
  {
    std::lock_guard<std::mutex> lock(mutex_);
    busy_ = false;
  }
  pump();
}

NominatimPlaceSearch::Response NominatimPlaceSearch::fetch(const std::string& url) const {
  Response response;
  CURL* curl = curl_easy_init();
  if (!curl) {
    response.error = placeError(kPlaceServerUnreachable, "cannot start an HTTP request");
    return response;
  }
  curl_slist* headers = curl_slist_append(nullptr, "Accept: application/json");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, options_.userAgent.c_str());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 3L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(options_.timeoutSeconds * 1000));
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS,
                   static_cast<long>(std::min(options_.timeoutSeconds, 10.0) * 1000));
  curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, header);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &response.retryAfter);
  const CURLcode code = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  if (code == CURLE_OK) return response;
  const std::string host = options_.endpoint;
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      response.error =
          placeError(kPlaceServerTimeout, "the place server " + host + " did not answer in time");
      break;
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      response.error = placeError(kPlaceServerUnreachable,
                                  "cannot reach the place server " + host + ": " + curl_easy_strerror(code));
      break;
    case CURLE_WRITE_ERROR:
      response.error = placeError(kPlaceServerError, "the place server's answer is too large");
      break;
    default:
      response.error = placeError(kPlaceServerUnreachable,
                                  "the place server " + host + " failed: " + curl_easy_strerror(code));
  }
  return response;
}

}  // namespace lumeo
