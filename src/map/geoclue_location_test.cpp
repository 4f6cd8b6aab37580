// Positions from GeoClue, end to end: a private bus of our own standing for
// the system bus, a fake GeoClue on it (python3-dbusmock with the template
// in testdata/map/), the GeoClue source, the application's location service
// on it and LocationHelper stamping a real record. A fix, a denial by the
// user's agent, no service at all, and a fix too coarse to stamp.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "capture/location_helper.h"
#include "map/map_test_support.h"
#include "map/position_location_service.h"
#include "platform/linux/geoclue_position_source.h"
#include "testing/private_bus.h"

namespace lumeo {
namespace {

constexpr const char* kManagerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* kClientPath = "/org/freedesktop/GeoClue2/Client/1";

std::string sourceDir() {
  const char* dir = std::getenv("LUMEO_SOURCE_DIR");
  return dir ? dir : ".";
}

// A bus of our own standing for the system bus and, when asked, a fake
// GeoClue on it.
class FakeSystemBus {
 public:
  // Starts GeoClue with the template's parameters (JSON); true once it owns
  // its name.
  bool startGeoClue(const std::string& parameters) {
    return bus_.startMock("org.freedesktop.GeoClue2",
                          {"--template", sourceDir() + "/testdata/map/geoclue2_mock.py", "-p", parameters});
  }

  bool ready() const { return bus_.ready(); }
  const std::string& address() const { return bus_.address(); }

  bool mock(const char* method, GVariant* parameters) {
    return bus_.mock("org.freedesktop.GeoClue2", kManagerPath, method, parameters);
  }

  // A property of the fake's client, as Lumeo left it.
  GVariant* clientProperty(const char* name) {
    GVariant* reply = bus_.call("org.freedesktop.GeoClue2", kClientPath, "org.freedesktop.DBus.Properties",
                                "Get", g_variant_new("(ss)", "org.freedesktop.GeoClue2.Client", name),
                                G_VARIANT_TYPE("(v)"), true);
    if (!reply) return nullptr;
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    g_variant_unref(reply);
    return value;
  }

 private:
  testing::PrivateBus bus_;
};

class GeoClueLocationTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bus.ready()) << "no dbus-daemon"; }
  void TearDown() override {
    helper().setLocationService(nullptr);
    service.reset();
  }
  static LocationHelper& helper() { return LocationHelper::sharedInstance(); }

  // The application's location on the fake bus, and a record waiting.
  void listen() {
    auto source = std::make_shared<GeoCluePositionSource>("lumeo", bus.address());
    service = std::make_shared<PositionLocationService>(source);
    helper().setLocationService(service);
    record = journal.add(6, -1, -1);
    journal.save();
    helper().setRecord(record);
    helper().setTarget([this] { ++stamped; });
    helper().requestLocation();
  }
  bool runUntil(const std::function<bool()>& condition) { return MainLoop::shared().runUntil(condition, 20); }

  FakeSystemBus bus;
  testing::MapJournal journal;
  std::shared_ptr<PositionLocationService> service;
  std::shared_ptr<MoodRecord> record;
  int stamped = 0;
};

TEST_F(GeoClueLocationTest, AGoodFixStampsTheWaitingRecord) {
  ASSERT_TRUE(bus.startGeoClue(R"({"latitude": 47.0707, "longitude": 15.4395, "accuracy": 18})"));
  listen();
  ASSERT_TRUE(runUntil([&] { return stamped > 0; }));
  EXPECT_DOUBLE_EQ(record->moodDescription()->latitude(), 47.0707);
  EXPECT_DOUBLE_EQ(record->moodDescription()->longitude(), 15.4395);
  EXPECT_DOUBLE_EQ(helper().accuracy(), 18);
  EXPECT_TRUE(service->isEnabled());

  // Lumeo introduced itself and asked for an exact position.
  GVariant* desktopId = bus.clientProperty("DesktopId");
  ASSERT_TRUE(desktopId);
  EXPECT_STREQ(g_variant_get_string(desktopId, nullptr), "lumeo");
  g_variant_unref(desktopId);
  GVariant* level = bus.clientProperty("RequestedAccuracyLevel");
  ASSERT_TRUE(level);
  EXPECT_EQ(g_variant_get_uint32(level), GeoCluePositionSource::kAccuracyLevelExact);
  g_variant_unref(level);

  // Stopping stops GeoClue's client too.
  helper().stopUpdatingLocation();
  GVariant* active = bus.clientProperty("Active");
  ASSERT_TRUE(active);
  EXPECT_FALSE(g_variant_get_boolean(active));
  g_variant_unref(active);
}

TEST_F(GeoClueLocationTest, AFixWorseThanAHundredMetresIsKeptButDoesNotStamp) {
  ASSERT_TRUE(bus.startGeoClue(R"({"latitude": 48.2, "longitude": 16.37, "accuracy": 100.0})"));
  listen();
  ASSERT_TRUE(runUntil([&] { return helper().location().has_value(); }));
  EXPECT_DOUBLE_EQ(helper().accuracy(), 100.0);
  EXPECT_EQ(record->moodDescription()->latitude(), -1);

  // An old fix does not stamp either, however accurate.
  ASSERT_TRUE(bus.mock("EmitFix", g_variant_new("(dddd)", 48.3, 16.4, 10.0, 101.0)));
  ASSERT_TRUE(runUntil([&] { return helper().latitude() == 48.3; }));
  EXPECT_EQ(record->moodDescription()->latitude(), -1);

  ASSERT_TRUE(bus.mock("EmitFix", g_variant_new("(dddd)", 48.21, 16.38, 12.0, 0.0)));
  ASSERT_TRUE(runUntil([&] { return stamped > 0; }));
  EXPECT_DOUBLE_EQ(record->moodDescription()->latitude(), 48.21);
}

TEST_F(GeoClueLocationTest, ADenialIsAnOrdinaryOutcome) {
  ASSERT_TRUE(bus.startGeoClue(R"({"deny": true})"));
  listen();
  ASSERT_TRUE(runUntil([&] { return service->lastError().has_value(); }));
  EXPECT_TRUE(service->lastError()->is(kLocationErrorDomain, kLocationDenied))
      << service->lastError()->description;
  EXPECT_FALSE(service->isEnabled());
  EXPECT_TRUE(service->isEnabledOnlyServices());
  EXPECT_FALSE(helper().location());
  EXPECT_EQ(record->moodDescription()->latitude(), -1);

  // Allowed later, the next request finds the position.
  ASSERT_TRUE(bus.mock("SetDeny", g_variant_new("(b)", FALSE)));
  helper().setRecord(record);
  helper().requestLocation();
  ASSERT_TRUE(runUntil([&] { return stamped > 0; }));
  EXPECT_TRUE(service->isEnabled());
}

TEST_F(GeoClueLocationTest, NoGeoClueOnTheBusMeansNoService) {
  listen();
  ASSERT_TRUE(runUntil([&] { return service->lastError().has_value(); }));
  EXPECT_TRUE(service->lastError()->is(kLocationErrorDomain, kLocationNoService))
      << service->lastError()->description;
  EXPECT_FALSE(service->isEnabledOnlyServices());
  EXPECT_EQ(record->moodDescription()->latitude(), -1);
}

}  // namespace
}  // namespace lumeo
