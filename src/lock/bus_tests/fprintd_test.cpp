// The fingerprint check against a fake fprintd: python3-dbusmock on a
// private bus of our own, shaped with the Manager and Device interfaces of
// net.reactivated.Fprint, and driven both directly and through the facade.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "lock/mood_biometric_authentication_facade.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/fprintd_authenticator.h"
#include "platform/user_defaults.h"
#include "testing/private_bus.h"

namespace lumeo {
namespace {

constexpr const char* kManagerPath = "/net/reactivated/Fprint/Manager";
constexpr const char* kDevicePath = "/net/reactivated/Fprint/Device/0";
constexpr const char* kDeviceInterface = "net.reactivated.Fprint.Device";

// A private bus and a dbusmock process on it, for the whole suite.
class FakeFprintd {
 public:
  FakeFprintd() {
    bus_.startMock("net.reactivated.Fprint",
                   {"net.reactivated.Fprint", kManagerPath, "net.reactivated.Fprint.Manager"});
  }

  bool ready() { return bus_.ready() && bus_.nameOwned("net.reactivated.Fprint"); }
  const std::string& address() const { return bus_.address(); }

  // A call on the mock's control interface; false when it failed.
  bool mock(const char* path, const char* method, GVariant* parameters, GVariant** reply = nullptr) {
    return bus_.mock("net.reactivated.Fprint", path, method, parameters, reply);
  }

  // Starts over with a manager whose default device answers with `deviceCode`,
  // and (unless `withDevice` is false) a reader whose VerifyStart runs
  // `verifyCode` and whose enrolled fingers come from `fingersCode`.
  void shape(bool withDevice, const std::string& verifyCode,
             const std::string& fingersCode = "ret = ['right-index-finger']") {
    mock(kManagerPath, "Reset", nullptr);
    std::string deviceCode = withDevice ? "ret = dbus.ObjectPath('/net/reactivated/Fprint/Device/0')"
                                        : "raise dbus.exceptions.DBusException('No devices available', "
                                          "name='net.reactivated.Fprint.Error.NoSuchDevice')";
    mock(kManagerPath, "AddMethod",
         g_variant_new("(sssss)", "net.reactivated.Fprint.Manager", "GetDefaultDevice", "", "o",
                       deviceCode.c_str()));
    if (!withDevice) return;
    GVariantBuilder methods;
    g_variant_builder_init(&methods, G_VARIANT_TYPE("a(ssss)"));
    g_variant_builder_add(&methods, "(ssss)", "Claim", "s", "", "");
    g_variant_builder_add(&methods, "(ssss)", "Release", "", "", "");
    g_variant_builder_add(&methods, "(ssss)", "ListEnrolledFingers", "s", "as", fingersCode.c_str());
    g_variant_builder_add(&methods, "(ssss)", "VerifyStart", "s", "", verifyCode.c_str());
    g_variant_builder_add(&methods, "(ssss)", "VerifyStop", "", "", "");
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    mock(kManagerPath, "AddObject",
         g_variant_new("(ssa{sv}a(ssss))", kDevicePath, kDeviceInterface, &properties, &methods));
  }

  // The reader's methods called so far, in order.
  std::vector<std::string> deviceCalls() {
    std::vector<std::string> names;
    GVariant* reply = nullptr;
    if (!mock(kDevicePath, "GetCalls", nullptr, &reply)) return names;
    GVariant* calls = g_variant_get_child_value(reply, 0);
    for (gsize i = 0; i < g_variant_n_children(calls); ++i) {
      GVariant* call = g_variant_get_child_value(calls, i);
      GVariant* name = g_variant_get_child_value(call, 1);
      names.emplace_back(g_variant_get_string(name, nullptr));
      g_variant_unref(name);
      g_variant_unref(call);
    }
    g_variant_unref(calls);
    g_variant_unref(reply);
    return names;
  }

 private:
  testing::PrivateBus bus_;
};

std::string signalCode(const char* status, bool done) {
  return std::string("self.EmitSignal('net.reactivated.Fprint.Device', 'VerifyStatus', 'sb', ['") + status +
         "', " + (done ? "True" : "False") + "])";
}

class FprintdTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { fake_ = new FakeFprintd(); }
  static void TearDownTestSuite() {
    delete fake_;
    fake_ = nullptr;
  }
  void SetUp() override {
    if (!fake_->ready()) GTEST_SKIP() << "no private bus or python3-dbusmock";
  }

  // One check's outcome, waited for without a main loop.
  static OptionalError check(FprintdAuthenticator& reader,
                             const std::function<void()>& whileWaiting = nullptr) {
    std::promise<OptionalError> outcome;
    auto future = outcome.get_future();
    reader.evaluatePolicy("UNLOCK_APPLICATION", [&](OptionalError error) { outcome.set_value(error); });
    if (whileWaiting) whileWaiting();
    EXPECT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    return future.get();
  }

  static FakeFprintd* fake_;
};
FakeFprintd* FprintdTest::fake_ = nullptr;

TEST_F(FprintdTest, NoReaderOrNoFingerMeansNotAvailable) {
  fake_->shape(false, "");
  FprintdAuthenticator reader(fake_->address());
  OptionalError why;
  EXPECT_FALSE(reader.canEvaluatePolicy(&why));
  ASSERT_TRUE(why);
  EXPECT_TRUE(why->is(kBiometricErrorDomain, kBiometricNotAvailable)) << why->toString();
  OptionalError error = check(reader);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kBiometricNotAvailable);

  fake_->shape(true, "", "ret = []");
  EXPECT_FALSE(reader.canEvaluatePolicy(&why));
  EXPECT_TRUE(why->is(kBiometricErrorDomain, kBiometricNotEnrolled));
  fake_->shape(
      true, "",
      "raise dbus.exceptions.DBusException('none', name='net.reactivated.Fprint.Error.NoEnrolledPrints')");
  EXPECT_FALSE(reader.canEvaluatePolicy(&why));
  EXPECT_TRUE(why->is(kBiometricErrorDomain, kBiometricNotEnrolled));

  FprintdAuthenticator nowhere("unix:path=/nonexistent/lumeo-bus");
  EXPECT_FALSE(nowhere.canEvaluatePolicy(&why));
  EXPECT_TRUE(why->is(kBiometricErrorDomain, kBiometricNotAvailable));
}

TEST_F(FprintdTest, AMatchAfterARetryPassesAndTheReaderIsReleased) {
  fake_->shape(true, signalCode("verify-retry-scan", false) + "\n" + signalCode("verify-match", true));
  FprintdAuthenticator reader(fake_->address());
  EXPECT_TRUE(reader.canEvaluatePolicy());
  EXPECT_FALSE(check(reader));
  EXPECT_EQ(fake_->deviceCalls(),
            (std::vector<std::string>{"ListEnrolledFingers", "ListEnrolledFingers", "Claim", "VerifyStart",
                                      "VerifyStop", "Release"}));
}

TEST_F(FprintdTest, ANoMatchFailsAndTheReaderIsReleased) {
  fake_->shape(true, signalCode("verify-no-match", true));
  FprintdAuthenticator reader(fake_->address());
  OptionalError error = check(reader);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kBiometricErrorDomain, kBiometricAuthenticationFailed));
  auto calls = fake_->deviceCalls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls.back(), "Release");
}

TEST_F(FprintdTest, ACancelEndsTheWaitAndStopsTheReader) {
  fake_->shape(true, "pass");  // the finger never comes
  FprintdAuthenticator reader(fake_->address());
  OptionalError error = check(reader, [&] {
    for (int i = 0; i < 400; ++i) {
      auto calls = fake_->deviceCalls();
      if (std::find(calls.begin(), calls.end(), "VerifyStart") != calls.end()) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    reader.cancel();
  });
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kBiometricErrorDomain, kBiometricUserCancel));
  auto calls = fake_->deviceCalls();
  EXPECT_EQ(std::vector<std::string>(calls.end() - 2, calls.end()),
            (std::vector<std::string>{"VerifyStop", "Release"}));
}

TEST_F(FprintdTest, TheFacadeUnlocksWithAFingerAndFallsBackOnAFailure) {
  fake_->shape(true, signalCode("verify-match", true));
  auto reader = std::make_shared<FprintdAuthenticator>(fake_->address());
  auto defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  MoodBiometricAuthenticationFacade facade(reader, defaults);
  EXPECT_EQ(facade.biometryName(), "Fingerprint");
  facade.enableBiometricForThisApp();
  facade.enableAuthenticationForFeature("PasscodeEnabled", nullptr, nullptr);
  int successes = 0, failures = 0;
  ASSERT_TRUE(facade.authenticateForAccessToFeature(
      "PasscodeEnabled", "UNLOCK_APPLICATION", [&] { ++successes; }, [&](const Error&) { ++failures; }));
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return successes + failures > 0; }, 20));
  EXPECT_EQ(successes, 1);
  EXPECT_FALSE(MoodBiometricAuthenticationFacade::isBiometricInputRequestDisplayed());

  fake_->shape(true, signalCode("verify-no-match", true));
  ASSERT_TRUE(facade.authenticateForAccessToFeature(
      "PasscodeEnabled", "UNLOCK_APPLICATION", [&] { ++successes; }, [&](const Error&) { ++failures; }));
  EXPECT_TRUE(MainLoop::shared().runUntil([&] { return successes + failures > 1; }, 20));
  EXPECT_EQ(failures, 1);
}

}  // namespace
}  // namespace lumeo
