// The Nominatim client against a small HTTP server inside the test, on
// 127.0.0.1, serving answers written in Nominatim's jsonv2 format
// (testdata/map/nominatim/): a search, a reverse lookup, no match, a 429
// with Retry-After, a server that never answers and one that is down; the
// one-request-a-second rule and the cache on virtual time; and the place
// chooser on top.
#include "map/nominatim_place_search.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "map/headless_map_view.h"
#include "map/mood_location_view_controller.h"
#include "platform/clock.h"
#include "platform/dispatch_queue.h"

namespace lumeo {
namespace {

std::string recorded(const std::string& name) {
  const char* dir = std::getenv("LUMEO_SOURCE_DIR");
  std::ifstream in(std::string(dir ? dir : ".") + "/testdata/map/nominatim/" + name);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Answers HTTP requests by the start of their path. A route may also hang
// (never answer) to try timeouts. Remembers each request's path, its
// User-Agent and the process clock's time when it came.
class LocalHttpServer {
 public:
  struct Route {
    int status = 200;
    std::string body;
    std::string extraHeaders;
    bool hang = false;
  };
  struct Request {
    std::string path;
    std::string userAgent;
    Date at;
  };

  LocalHttpServer() {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(fd_, 16);
    socklen_t length = sizeof address;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~LocalHttpServer() {
    stopping_ = true;
    ::shutdown(fd_, SHUT_RDWR);
    thread_.join();
    ::close(fd_);
  }

  std::string endpoint() const { return "http://127.0.0.1:" + std::to_string(port_); }
  void route(const std::string& prefix, Route route) {
    std::lock_guard<std::mutex> lock(mutex_);
    routes_[prefix] = std::move(route);
  }
  std::vector<Request> requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }

 private:
  void serve() {
    while (!stopping_) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, 50) <= 0) continue;
      int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      std::string head;
      char chunk[4096];
      while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t n = ::recv(client, chunk, sizeof chunk, 0);
        if (n <= 0) break;
        head.append(chunk, static_cast<std::size_t>(n));
      }
      Request request;
      request.at = Clock::current()->now();
      const auto space = head.find(' ');
      request.path = head.substr(space + 1, head.find(' ', space + 1) - space - 1);
      const auto agent = head.find("User-Agent: ");
      if (agent != std::string::npos)
        request.userAgent = head.substr(agent + 12, head.find("\r\n", agent) - agent - 12);
      Route route{404, "[]", {}, false};
      {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(request);
        for (const auto& [prefix, candidate] : routes_) {
          if (request.path.rfind(prefix, 0) == 0) route = candidate;
        }
      }
      if (route.hang) {
        // Keeps the connection open without a word until the client gives up.
        while (!stopping_ && ::recv(client, chunk, sizeof chunk, MSG_DONTWAIT) != 0) {
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        ::close(client);
        continue;
      }
      const std::string reply = "HTTP/1.1 " + std::to_string(route.status) +
                                " X\r\nContent-Type: application/json; charset=utf-8\r\nContent-Length: " +
                                std::to_string(route.body.size()) + "\r\nConnection: close\r\n" +
                                route.extraHeaders + "\r\n" + route.body;
      ::send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
      ::close(client);
    }
  }

  int fd_ = -1;
  int port_ = 0;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  std::mutex mutex_;
  std::map<std::string, Route> routes_;
  std::vector<Request> requests_;
};

class NominatimTest : public ::testing::Test {
 protected:
  NominatimTest() {
    server.route("/search", {200, recorded("search_graz.json"), {}, false});
    server.route("/reverse", {200, recorded("reverse_graz.json"), {}, false});
  }
  std::shared_ptr<NominatimPlaceSearch> client(double timeout = 10) {
    NominatimPlaceSearch::Options options;
    options.endpoint = server.endpoint() + "/";
    options.timeoutSeconds = timeout;
    options.language = "de";
    return NominatimPlaceSearch::create(options);
  }
  struct Found {
    bool done = false;
    std::vector<Place> places;
    OptionalError error;
  };
  Found search(NominatimPlaceSearch& places, const std::string& text) {
    Found found;
    places.search(text, std::nullopt, [&](const std::vector<Place>& p, const OptionalError& e) {
      found = {true, p, e};
    });
    EXPECT_TRUE(MainLoop::shared().runUntil([&] { return found.done; }, 30));
    return found;
  }

  LocalHttpServer server;
};

TEST_F(NominatimTest, SearchReadsPlacesAndLeavesOutThoseWithoutAPosition) {
  auto places = client();
  Found found = search(*places, "Graz Hbf");
  ASSERT_FALSE(found.error) << found.error->description;
  ASSERT_EQ(found.places.size(), 2u);
  EXPECT_EQ(found.places[0].name, "Graz");
  EXPECT_EQ(found.places[0].displayName, "Graz, Steiermark, Österreich");
  EXPECT_DOUBLE_EQ(found.places[0].coordinate.latitude, 47.0708678);
  EXPECT_DOUBLE_EQ(found.places[0].coordinate.longitude, 15.4382786);
  EXPECT_EQ(found.places[1].kind, "station");

  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_NE(requests[0].path.find("/search?format=jsonv2&q=Graz%20Hbf"), std::string::npos)
      << requests[0].path;
  EXPECT_NE(requests[0].path.find("accept-language=de"), std::string::npos);
  EXPECT_EQ(requests[0].userAgent.rfind("Lumeo/", 0), 0u) << requests[0].userAgent;
}

TEST_F(NominatimTest, ReverseNamesThePlaceAndTheOpenSeaIsNoError) {
  auto places = client();
  std::optional<Place> place;
  bool done = false;
  places->reverse({47.0779, 15.4213}, [&](const std::optional<Place>& p, const OptionalError& e) {
    EXPECT_FALSE(e);
    place = p;
    done = true;
  });
  ASSERT_TRUE(MainLoop::shared().runUntil([&] { return done; }, 30));
  ASSERT_TRUE(place);
  EXPECT_EQ(place->name, "Graz Hauptbahnhof");
  EXPECT_NE(server.requests().back().path.find("/reverse?format=jsonv2&lat=47.0779000&lon=15.4213000"),
            std::string::npos);

  server.route("/reverse", {200, recorded("reverse_sea.json"), {}, false});
  done = false;
  places->reverse({40.0, -30.0}, [&](const std::optional<Place>& p, const OptionalError& e) {
    EXPECT_FALSE(e);
    EXPECT_FALSE(p);
    done = true;
  });
  ASSERT_TRUE(MainLoop::shared().runUntil([&] { return done; }, 30));
}

TEST_F(NominatimTest, NoMatchIsAnEmptyListAndGarbageIsAClearError) {
  server.route("/search", {200, recorded("search_empty.json"), {}, false});
  auto places = client();
  Found found = search(*places, "Xyzzy");
  EXPECT_FALSE(found.error);
  EXPECT_TRUE(found.places.empty());

  server.route("/search", {200, "<html>maintenance</html>", {}, false});
  found = search(*places, "Graz");
  ASSERT_TRUE(found.error);
  EXPECT_TRUE(found.error->is(kPlaceSearchErrorDomain, kPlaceServerError));

  server.route("/search", {503, "", {}, false});
  found = search(*places, "Wien");
  ASSERT_TRUE(found.error);
  EXPECT_TRUE(found.error->is(kPlaceSearchErrorDomain, kPlaceServerError));
  EXPECT_NE(found.error->description.find("503"), std::string::npos);
}

TEST_F(NominatimTest, A429HoldsEveryRequestForItsRetryAfter) {
  ScopedSimulatedClock clock(Date::fromTimeIntervalSince1970(1'700'000'000));
  server.route("/search", {429, "", "Retry-After: 30\r\n", false});
  auto places = client();
  Found found = search(*places, "Graz");
  ASSERT_TRUE(found.error);
  EXPECT_TRUE(found.error->is(kPlaceSearchErrorDomain, kPlaceServerBusy));
  EXPECT_EQ(found.error->userInfo.at("retryAfter").toDouble(), 30);

  server.route("/search", {200, recorded("search_graz.json"), {}, false});
  found = search(*places, "Graz");
  EXPECT_FALSE(found.error);
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_GE(requests[1].at.timeIntervalSinceDate(requests[0].at), 30 - 1e-6);
}

TEST_F(NominatimTest, AtMostOneRequestASecondAndEachAnswerAskedOnce) {
  ScopedSimulatedClock clock(Date::fromTimeIntervalSince1970(1'700'000'000));
  auto places = client();
  int answered = 0;
  for (const char* text : {"Graz", "Wien", "Linz", "Graz"}) {
    places->search(text, std::nullopt, [&](const std::vector<Place>& p, const OptionalError& e) {
      EXPECT_FALSE(e);
      EXPECT_EQ(p.size(), 2u);
      ++answered;
    });
  }
  ASSERT_TRUE(MainLoop::shared().runUntil([&] { return answered == 4; }, 60));
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u) << "the second \"Graz\" comes from the cache";
  for (std::size_t i = 1; i < requests.size(); ++i) {
    EXPECT_GE(requests[i].at.timeIntervalSinceDate(requests[i - 1].at), 1.0 - 1e-6);
  }
  EXPECT_EQ(places->requestCount(), 3u);
  // Asked again later, from the cache, with no request at all.
  Found again = search(*places, "Wien");
  EXPECT_EQ(again.places.size(), 2u);
  EXPECT_EQ(server.requests().size(), 3u);
}

TEST_F(NominatimTest, AServerThatNeverAnswersTimesOutAndOneThatIsDownIsUnreachable) {
  server.route("/search", {200, "", {}, true});
  auto slow = client(0.5);
  Found found = search(*slow, "Graz");
  ASSERT_TRUE(found.error);
  EXPECT_TRUE(found.error->is(kPlaceSearchErrorDomain, kPlaceServerTimeout)) << found.error->description;

  // A port nobody listens on: take one and close it again.
  int probe = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(probe);
  NominatimPlaceSearch::Options options;
  options.endpoint = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  auto down = NominatimPlaceSearch::create(options);
  found = search(*down, "Graz");
  ASSERT_TRUE(found.error);
  EXPECT_TRUE(found.error->is(kPlaceSearchErrorDomain, kPlaceServerUnreachable)) << found.error->description;
}

// --- The place chooser -------------------------------------------------------

class RecordingLocationView : public MoodLocationView {
 public:
  void reloadResults() override { ++reloads; }
  void setResultsHidden(bool h) override { hidden = h; }
  void showSearchError(const std::string& message) override { errors.push_back(message); }
  int reloads = 0;
  bool hidden = true;
  std::vector<std::string> errors;
};

class ChosenPlace : public MoodLocationViewControllerDelegate {
 public:
  void didMoodLocationViewControllerLocationChanged(double latitude, double longtitude) override {
    chosen = {latitude, longtitude};
  }
  std::optional<std::pair<double, double>> chosen;
};

TEST_F(NominatimTest, TheChooserSearchesOnSubmitAndReportsTheMapsCentre) {
  auto map = std::make_shared<HeadlessMapView>(400, 400);
  auto view = std::make_shared<RecordingLocationView>();
  auto delegate = std::make_shared<ChosenPlace>();
  auto screen = MoodLocationViewController::create(map, client());
  screen->setView(view);
  screen->setDelegate(delegate);
  screen->showPlace({48.2, 16.37});

  for (const char* typed : {"G", "Gr", "Gra", "Graz"}) screen->searchTextChanged(typed);
  MainLoop::shared().runFor(0.2);
  EXPECT_TRUE(server.requests().empty()) << "typing asks nothing";

  screen->searchButtonClicked();
  ASSERT_TRUE(MainLoop::shared().runUntil([&] { return !screen->isSearching(); }, 30));
  ASSERT_EQ(screen->results().size(), 2u);
  EXPECT_FALSE(view->hidden);
  EXPECT_NE(server.requests().back().path.find("viewbox="), std::string::npos) << "prefers the map's area";

  screen->selectResult(1);
  EXPECT_TRUE(view->hidden);
  screen->done();
  ASSERT_TRUE(delegate->chosen);
  EXPECT_NEAR(delegate->chosen->first, 47.0779419, 1e-3);
  EXPECT_NEAR(delegate->chosen->second, 15.4213516, 1e-6);

  // A failed search says why and shows no list.
  server.route("/search", {503, "", {}, false});
  screen->searchTextChanged("Wien");
  screen->searchButtonClicked();
  ASSERT_TRUE(MainLoop::shared().runUntil([&] { return !screen->isSearching(); }, 30));
  EXPECT_TRUE(screen->results().empty());
  EXPECT_TRUE(view->hidden);
  ASSERT_EQ(view->errors.size(), 1u);
  EXPECT_EQ(MoodLocationViewController::searchPlaceholder(), "Search for places");
}

}  // namespace
}  // namespace lumeo
