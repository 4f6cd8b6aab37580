// The keychain rules on an in-memory store: what a read tells apart, what a
// store writes and when it writes nothing, and how refusals come back.
#include "lock/mood_keychain_utils.h"

#include <gtest/gtest.h>

#include "lock/lock_test_support.h"

namespace lumeo {
namespace {

using testing::ScopedSecretStore;

TEST(MoodKeychainUtilsTest, ReadTellsAMissingItemFromOneWithoutPasswordAndFromAnUnreachableStore) {
  ScopedSecretStore store;
  OptionalError error;
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal", &error));
  EXPECT_FALSE(error) << "a missing item is no error";

  ASSERT_TRUE(store->add({"LumeoJournal", "LumeoJournal"}, "LumeoJournal", "").ok());
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal", &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kMoodKeychainUtilsItemWithoutData));

  store->setAvailable(false);
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal", &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretNotAvailable));

  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername(std::nullopt, "LumeoJournal", &error));
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kMoodKeychainUtilsMissingArgument));
  EXPECT_FALSE(MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "", &error));
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kMoodKeychainUtilsMissingArgument));
}

TEST(MoodKeychainUtilsTest, StoringAddsWithTheServiceAsLabelAndTheSamePasswordTwiceWritesNothing) {
  ScopedSecretStore store;
  OptionalError error;
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "1234", "LumeoJournal", true, &error));
  auto items = store->items();
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items.begin()->second.label, "LumeoJournal");
  EXPECT_EQ(items.begin()->second.data, "1234");
  int writes = store->writes();
  EXPECT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "1234", "LumeoJournal", true, &error));
  EXPECT_EQ(store->writes(), writes);

  // A different password replaces the old one only when asked to.
  EXPECT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "9876", "LumeoJournal", false, &error));
  EXPECT_EQ(*MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal"), "1234");
  EXPECT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "9876", "LumeoJournal", true, &error));
  EXPECT_EQ(*MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal"), "9876");

  EXPECT_FALSE(MoodKeychainUtils::storeUsername("LumeoJournal", std::nullopt, "LumeoJournal", true, &error));
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kMoodKeychainUtilsMissingArgument));
}

TEST(MoodKeychainUtilsTest, AnItemWithoutPasswordIsMadeAgain) {
  ScopedSecretStore store;
  ASSERT_TRUE(store->add({"LumeoJournal", "SecretKey"}, "old label", "").ok());
  OptionalError error;
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("SecretKey", "blue whale", "LumeoJournal", false, &error));
  EXPECT_FALSE(error);
  auto item = store->items().at({"LumeoJournal", "SecretKey"});
  EXPECT_EQ(item.data, "blue whale");
  EXPECT_EQ(item.label, "LumeoJournal");
}

TEST(MoodKeychainUtilsTest, ARefusedWriteKeepsTheOldPasswordAndSaysWhy) {
  ScopedSecretStore store;
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("LumeoJournal", "1234", "LumeoJournal", true));
  store->failNext(InMemorySecretStore::Operation::kUpdate,
                  {kSecretInteractionNotAllowed, "the keyring is locked"});
  OptionalError error;
  EXPECT_FALSE(MoodKeychainUtils::storeUsername("LumeoJournal", "5678", "LumeoJournal", true, &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretInteractionNotAllowed));
  EXPECT_EQ(error->description, "the keyring is locked");
  EXPECT_EQ(*MoodKeychainUtils::getPasswordForUsername("LumeoJournal", "LumeoJournal"), "1234");

  store->setLocked(true);
  EXPECT_FALSE(MoodKeychainUtils::storeUsername("LumeoJournal", "5678", "LumeoJournal", true, &error));
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretInteractionNotAllowed));
}

TEST(MoodKeychainUtilsTest, DeletingAMissingItemReportsTheStoresStatusOnly) {
  ScopedSecretStore store;
  ASSERT_TRUE(MoodKeychainUtils::storeUsername("SecretKey", "k", "LumeoJournal", true));
  int writes = store->writes();
  OptionalError error;
  EXPECT_FALSE(MoodKeychainUtils::deleteItemForUsername("LumeoJournal", "LumeoJournal", &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kMoodKeychainUtilsErrorDomain, kSecretItemNotFound));
  EXPECT_EQ(store->writes(), writes);
  EXPECT_EQ(store->items().size(), 1u);
  EXPECT_TRUE(MoodKeychainUtils::deleteItemForUsername("SecretKey", "LumeoJournal", &error));
  EXPECT_TRUE(store->items().empty());
}

}  // namespace
}  // namespace lumeo
