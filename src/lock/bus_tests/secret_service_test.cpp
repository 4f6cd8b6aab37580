// The keychain against a real Secret Service: gnome-keyring-daemon on a
// private session bus (started by testing/with_secret_service.sh), with its
// collection unlocked, locked, stopped in the middle of a change, and not
// there at all.
#include <gtest/gtest.h>
#include <libsecret/secret.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "lock/mood_keychain_utils.h"
#include "lock/mood_passcode_storage.h"
#include "platform/linux/secret_service_store.h"
#include "platform/user_defaults.h"

namespace lumeo {
namespace {

// --- The daemon -----------------------------------------------------------------

std::optional<unsigned> keyringPid() {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!bus) return std::nullopt;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixProcessID", g_variant_new("(s)", "org.freedesktop.secrets"), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
  g_object_unref(bus);
  if (!reply) return std::nullopt;
  guint32 pid = 0;
  g_variant_get(reply, "(u)", &pid);
  g_variant_unref(reply);
  return pid;
}

// True when the daemon answers and its login collection is unlocked.
bool loginUnlocked() {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!bus) return false;
  GVariant* reply =
      g_dbus_connection_call_sync(bus, "org.freedesktop.secrets", "/org/freedesktop/secrets/collection/login",
                                  "org.freedesktop.DBus.Properties", "Get",
                                  g_variant_new("(ss)", "org.freedesktop.Secret.Collection", "Locked"),
                                  G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
  g_object_unref(bus);
  if (!reply) return false;
  GVariant* value = nullptr;
  g_variant_get(reply, "(v)", &value);
  bool unlocked =
      value && g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && !g_variant_get_boolean(value);
  if (value) g_variant_unref(value);
  g_variant_unref(reply);
  return unlocked;
}

bool waitFor(const std::function<bool()>& condition) {
  for (int i = 0; i < 200; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  return false;
}

void stopKeyring() {
  auto pid = keyringPid();
  ASSERT_TRUE(pid);
  ::kill(static_cast<pid_t>(*pid), SIGTERM);
  ASSERT_TRUE(waitFor([] { return !keyringPid(); }));
}

// Starts the daemon again on the same files and password, which unlocks
// the collection as a login does.
void startKeyring() {
  ASSERT_EQ(std::system("printf '%s' \"$LUMEO_TEST_KEYRING_PASSWORD\" | "
                        "gnome-keyring-daemon --unlock --components=secrets --daemonize >/dev/null 2>&1"),
            0);
  ASSERT_TRUE(waitFor(loginUnlocked));
}

// The item as any Secret Service client sees it, found by service and
// account alone.
struct SeenItem {
  std::string label;
  std::string journal;
};
std::vector<SeenItem> itemsSeenByOtherClients(const std::string& account) {
  GHashTable* attributes = g_hash_table_new(g_str_hash, g_str_equal);
  g_hash_table_insert(attributes, const_cast<char*>("service"), const_cast<char*>("LumeoJournal"));
  g_hash_table_insert(attributes, const_cast<char*>("account"), const_cast<char*>(account.c_str()));
  GList* items =
      secret_service_search_sync(nullptr, nullptr, attributes, SECRET_SEARCH_ALL, nullptr, nullptr);
  g_hash_table_unref(attributes);
  std::vector<SeenItem> seen;
  for (GList* l = items; l; l = l->next) {
    auto* item = SECRET_ITEM(l->data);
    gchar* label = secret_item_get_label(item);
    GHashTable* attrs = secret_item_get_attributes(item);
    const char* journal = static_cast<const char*>(g_hash_table_lookup(attrs, "journal"));
    seen.push_back({label ? label : "", journal ? journal : ""});
    g_free(label);
    g_hash_table_unref(attrs);
  }
  g_list_free_full(items, g_object_unref);
  return seen;
}

class KeyringTestBase : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("LUMEO_TEST_KEYRING_PASSWORD")) {
      GTEST_SKIP() << "runs inside testing/with_secret_service.sh keyring (see ctest)";
    }
    store_ = std::make_shared<SecretServiceStore>("/journals/" + std::string(testName()));
    SecretStore::setShared(store_);
    UserDefaults::setStandard(nullptr);
  }
  void TearDown() override { SecretStore::setShared(nullptr); }
  static const char* testName() { return ::testing::UnitTest::GetInstance()->current_test_info()->name(); }

  std::shared_ptr<SecretServiceStore> store_;
};

// --- Unlocked keyring -----------------------------------------------------------

using SecretServiceTest = KeyringTestBase;

TEST_F(SecretServiceTest, TheFourOperationsKeepTheirStatusesOnTheRealService) {
  SecretItemKey key{"LumeoJournal", "LumeoJournal"};
  std::string data;
  EXPECT_EQ(store_->copyMatchingAttributes(key).code, kSecretItemNotFound);
  EXPECT_EQ(store_->copyMatchingData(key, data).code, kSecretItemNotFound);
  EXPECT_EQ(store_->update(key, "1").code, kSecretItemNotFound);
  EXPECT_EQ(store_->remove(key).code, kSecretItemNotFound);

  ASSERT_TRUE(store_->add(key, "LumeoJournal", "2580").ok());
  EXPECT_EQ(store_->add(key, "LumeoJournal", "0000").code, kSecretDuplicateItem);
  EXPECT_TRUE(store_->copyMatchingAttributes(key).ok());
  ASSERT_TRUE(store_->copyMatchingData(key, data).ok());
  EXPECT_EQ(data, "2580");
  ASSERT_TRUE(store_->update(key, "0852").ok());
  ASSERT_TRUE(store_->copyMatchingData(key, data).ok());
  EXPECT_EQ(data, "0852");

  auto seen = itemsSeenByOtherClients("LumeoJournal");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].label, "LumeoJournal");
  EXPECT_EQ(seen[0].journal, store_->journal());

  EXPECT_TRUE(store_->remove(key).ok());
  EXPECT_EQ(store_->copyMatchingAttributes(key).code, kSecretItemNotFound);
  EXPECT_EQ(store_->add({"", "x"}, "", "1").code, kSecretParam);
}

TEST_F(SecretServiceTest, TheKeychainRulesHoldOnTheDaemon) {
  OptionalError error;
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "1234", "LumeoJournal", true, &error))
      << error->toString();
  ASSERT_TRUE(store_->add({"LumeoJournal", "SecretKey"}, "LumeoJournal", "").ok());
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("SecretKey", "LumeoJournal", &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kMoodKeychainUtilsItemWithoutData));
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("SecretKey", "otter", "LumeoJournal", false, &error));
  EXPECT_EQ(MoodKeychainUtils::getPasswordForUsername("SecretKey", "LumeoJournal"), "otter");

  // Storing the same password again leaves the item as it was.
  GHashTable* attributes = g_hash_table_new(g_str_hash, g_str_equal);
  g_hash_table_insert(attributes, const_cast<char*>("account"), const_cast<char*>("LumeoJournal"));
  GList* items =
      secret_service_search_sync(nullptr, nullptr, attributes, SECRET_SEARCH_ALL, nullptr, nullptr);
  g_hash_table_unref(attributes);
  ASSERT_TRUE(items);
  auto* item = SECRET_ITEM(items->data);
  guint64 modified = secret_item_get_modified(item);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "1234", "LumeoJournal", true));
  secret_item_refresh(item);
  EXPECT_EQ(secret_item_get_modified(item), modified);
  g_list_free_full(items, g_object_unref);

  EXPECT_TRUE(MoodKeychainUtils::deleteItemForUsername("SecretKey", "LumeoJournal"));
  EXPECT_FALSE(MoodKeychainUtils::deleteItemForUsername("SecretKey", "LumeoJournal", &error));
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretItemNotFound));
}

TEST_F(SecretServiceTest, TwoJournalsOfOneUserKeepSeparateLocks) {
  SecretServiceStore other("/journals/other");
  ASSERT_TRUE(store_->add({"LumeoJournal", "LumeoJournal"}, "LumeoJournal", "1111").ok());
  ASSERT_TRUE(other.add({"LumeoJournal", "LumeoJournal"}, "LumeoJournal", "2222").ok());
  std::string mine, theirs;
  ASSERT_TRUE(store_->copyMatchingData({"LumeoJournal", "LumeoJournal"}, mine).ok());
  ASSERT_TRUE(other.copyMatchingData({"LumeoJournal", "LumeoJournal"}, theirs).ok());
  EXPECT_EQ(mine, "1111");
  EXPECT_EQ(theirs, "2222");
  ASSERT_TRUE(other.remove({"LumeoJournal", "LumeoJournal"}).ok());
  EXPECT_TRUE(store_->copyMatchingAttributes({"LumeoJournal", "LumeoJournal"}).ok());
}

TEST_F(SecretServiceTest, AKeyringGoneInTheMiddleOfAChangeKeepsTheOldPasscode) {
  ASSERT_FALSE(MoodPasscodeStorage::setPassCode("1234"));
  stopKeyring();
  OptionalError error = MoodPasscodeStorage::setPassCode("5678");
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretNotAvailable)) << error->toString();
  EXPECT_NE(error->description.find("Secret Service"), std::string::npos) << error->description;
  OptionalError readError;
  EXPECT_TRUE(MoodPasscodeStorage::passcodeEnabled(&readError)) << "an unreadable lock stays a lock";
  EXPECT_TRUE(readError);

  startKeyring();
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
}

// --- Locked keyring ---------------------------------------------------------------

using LockedKeyringTest = KeyringTestBase;

TEST_F(LockedKeyringTest, ALockedCollectionThatIsNotUnlockedRefusesAndKeepsTheSecret) {
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "1234", "LumeoJournal", true));
  SecretService* service = secret_service_get_sync(SECRET_SERVICE_LOAD_COLLECTIONS, nullptr, nullptr);
  ASSERT_TRUE(service);
  SecretCollection* collection = secret_collection_for_alias_sync(service, SECRET_COLLECTION_DEFAULT,
                                                                  SECRET_COLLECTION_NONE, nullptr, nullptr);
  ASSERT_TRUE(collection);
  GList objects{collection, nullptr, nullptr};
  ASSERT_GE(secret_service_lock_sync(service, &objects, nullptr, nullptr, nullptr), 1);
  g_object_unref(collection);
  g_object_unref(service);

  // There is no unlock prompt on the test bus: the user "declines".
  OptionalError error;
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal", &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->code == kSecretInteractionNotAllowed || error->code == kSecretUserCanceled)
      << error->toString();
  EXPECT_FALSE(MoodKeychainUtils::storeUsername("LumeoJournal", "5678", "LumeoJournal", true, &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->code == kSecretInteractionNotAllowed || error->code == kSecretUserCanceled)
      << error->toString();
  EXPECT_TRUE(store_->copyMatchingAttributes({"LumeoJournal", "LumeoJournal"}).ok())
      << "that the item exists needs no unlock";

  stopKeyring();
  startKeyring();
  EXPECT_EQ(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal", &error), "1234")
      << (error ? error->toString() : "");
}

// --- No Secret Service ----------------------------------------------------------

class NoSecretServiceTest : public ::testing::Test {};

TEST_F(NoSecretServiceTest, EveryOperationFailsClearlyAndNothingIsKeptElsewhere) {
  if (!std::getenv("DBUS_SESSION_BUS_ADDRESS"))
    GTEST_SKIP() << "runs inside testing/with_secret_service.sh none";
  auto store = std::make_shared<SecretServiceStore>("/journals/none");
  SecretStore::setShared(store);
  UserDefaults::setStandard(nullptr);
  std::string data;
  SecretItemKey key{"LumeoJournal", "LumeoJournal"};
  for (const SecretStatus& status :
       {store->copyMatchingAttributes(key), store->copyMatchingData(key, data),
        store->add(key, "LumeoJournal", "1"), store->update(key, "1"), store->remove(key)}) {
    EXPECT_EQ(status.code, kSecretNotAvailable);
    EXPECT_NE(status.message.find("no Secret Service"), std::string::npos) << status.message;
  }
  OptionalError error;
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal", &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretNotAvailable));

  error = MoodPasscodeStorage::setPassCode("1234");
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretNotAvailable));
  EXPECT_FALSE(UserDefaults::standard()->boolForKey(kMoodPassCodeSetKey)) << "no lock was set";
  EXPECT_FALSE(MoodPasscodeStorage::passcodeEnabled());
  SecretStore::setShared(nullptr);
}

}  // namespace
}  // namespace lumeo
