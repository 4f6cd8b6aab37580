// The settings store's domains, readers, failure handling and sharing, on the
// in-memory storage (the property-list file has its own tests).
#include "platform/user_defaults.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace lumeo {
namespace {

TEST(UserDefaultsTest, AbsentKeysReadAsFalseZeroOrNothing) {
  UserDefaults defaults(std::make_shared<InMemoryUserDefaultsStorage>());
  EXPECT_TRUE(defaults.objectForKey("missing").isNull());
  EXPECT_FALSE(defaults.boolForKey("missing"));
  EXPECT_EQ(defaults.integerForKey("missing"), 0);
  EXPECT_EQ(defaults.doubleForKey("missing"), 0.0);
  EXPECT_FALSE(defaults.stringForKey("missing"));
  EXPECT_FALSE(defaults.dateForKey("missing"));
  EXPECT_FALSE(defaults.arrayForKey("missing"));
  EXPECT_FALSE(defaults.dictionaryForKey("missing"));
  EXPECT_FALSE(defaults.dataForKey("missing"));
}

TEST(UserDefaultsTest, TypedReadersConvertLikeNumberObjects) {
  UserDefaults defaults(std::make_shared<InMemoryUserDefaultsStorage>());
  EXPECT_FALSE(defaults.setDouble("real", 2.75));
  EXPECT_FALSE(defaults.setString("yes", "YES"));
  EXPECT_FALSE(defaults.setString("true", "true"));
  EXPECT_FALSE(defaults.setString("no", "no"));
  EXPECT_FALSE(defaults.setString("numeric", "42abc"));
  EXPECT_FALSE(defaults.setBool("flag", true));
  EXPECT_FALSE(defaults.setInteger("count", 7));
  EXPECT_FALSE(defaults.setDate("when", Date::fromTimeIntervalSince1970(1000)));

  EXPECT_EQ(defaults.integerForKey("real"), 2);
  EXPECT_TRUE(defaults.boolForKey("real"));
  EXPECT_EQ(defaults.stringForKey("real"), "2.75");
  EXPECT_TRUE(defaults.boolForKey("yes"));
  EXPECT_TRUE(defaults.boolForKey("true"));
  EXPECT_FALSE(defaults.boolForKey("no"));
  EXPECT_EQ(defaults.integerForKey("numeric"), 42);
  EXPECT_TRUE(defaults.boolForKey("numeric"));
  EXPECT_EQ(defaults.integerForKey("flag"), 1);
  EXPECT_EQ(defaults.stringForKey("count"), "7");
  EXPECT_EQ(defaults.doubleForKey("count"), 7.0);

  // Readers of containers, dates and data refuse other kinds.
  EXPECT_FALSE(defaults.arrayForKey("count"));
  EXPECT_FALSE(defaults.dateForKey("numeric"));
  EXPECT_FALSE(defaults.stringForKey("when"));
  EXPECT_FALSE(defaults.dataForKey("yes"));
  EXPECT_EQ(defaults.dateForKey("when"), Date::fromTimeIntervalSince1970(1000));
}

TEST(UserDefaultsTest, RegistrationDomainAnswersWhatIsNotStoredAndIsNeverWritten) {
  auto storage = std::make_shared<InMemoryUserDefaultsStorage>();
  UserDefaults defaults(storage);
  defaults.registerDefaults({{"alarm", Value::Array{Value("factory")}}, {"smooth", true}});
  defaults.registerDefaults({{"smooth", false}});  // a later registration wins

  EXPECT_EQ(defaults.arrayForKey("alarm"), (Value::Array{Value("factory")}));
  EXPECT_FALSE(defaults.boolForKey("smooth"));
  EXPECT_EQ(storage->writeCount(), 0);
  EXPECT_TRUE(storage->load().empty());

  EXPECT_FALSE(defaults.setObject("alarm", Value::Array{Value("mine")}));
  EXPECT_EQ(defaults.arrayForKey("alarm"), (Value::Array{Value("mine")}));
  EXPECT_EQ(storage->load().size(), 1u) << "only the user's value is stored";

  // Removing the stored value uncovers the registered one again.
  EXPECT_FALSE(defaults.removeObjectForKey("alarm"));
  EXPECT_EQ(defaults.arrayForKey("alarm"), (Value::Array{Value("factory")}));
  EXPECT_TRUE(storage->load().empty());

  EXPECT_EQ(defaults.dictionaryRepresentation().size(), 2u);
  EXPECT_TRUE(defaults.persistentDomain().empty());
}

TEST(UserDefaultsTest, NullRemovesAtTopAndIsRefusedInsideContainers) {
  auto storage = std::make_shared<InMemoryUserDefaultsStorage>();
  UserDefaults defaults(storage);
  ASSERT_FALSE(defaults.setString("name", "Ann"));
  EXPECT_FALSE(defaults.setObject("name", Value()));
  EXPECT_TRUE(defaults.objectForKey("name").isNull());

  EXPECT_FALSE(defaults.setInteger("keep", 1));
  OptionalError e = defaults.setObject("keep", Value::Array{Value(1), Value()});
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->is(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue));
  e = defaults.setObject("keep", Value::Dictionary{{"a", Value::Array{Value()}}});
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->is(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue));
  EXPECT_EQ(defaults.integerForKey("keep"), 1) << "a refused value changes nothing";
  EXPECT_EQ(storage->load().at("keep"), Value(1));
}

TEST(UserDefaultsTest, FailedWriteKeepsTheValueAndRetriesItLater) {
  auto storage = std::make_shared<InMemoryUserDefaultsStorage>();
  UserDefaults defaults(storage);
  storage->failWrites(true);

  OptionalError e = defaults.setString("template", "#sleep:");
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->is(kUserDefaultsErrorDomain, kUserDefaultsWriteFailed));
  EXPECT_EQ(defaults.stringForKey("template"), "#sleep:") << "this process still sees the change";
  EXPECT_FALSE(defaults.synchronize());
  ASSERT_TRUE(defaults.lastError());
  EXPECT_EQ(defaults.lastError()->code, kUserDefaultsWriteFailed);
  EXPECT_EQ(defaults.stringForKey("template"), "#sleep:") << "a failed synchronize loses nothing";

  // The next successful change carries the earlier one along.
  storage->failWrites(false);
  EXPECT_FALSE(defaults.setInteger("count", 3));
  EXPECT_EQ(storage->load().at("template"), Value("#sleep:"));
  EXPECT_EQ(storage->load().at("count"), Value(3));
  EXPECT_FALSE(defaults.lastError());

  // And synchronize alone flushes what is pending.
  storage->failWrites(true);
  EXPECT_TRUE(defaults.removeObjectForKey("count"));  // the write fails, the removal stays
  storage->failWrites(false);
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(storage->load().count("count"), 0u);
}

TEST(UserDefaultsTest, TwoStoresOnOneStorageKeepEachOthersKeys) {
  auto storage = std::make_shared<InMemoryUserDefaultsStorage>();
  UserDefaults first(storage);
  UserDefaults second(storage);
  EXPECT_FALSE(first.setInteger("a", 1));
  EXPECT_FALSE(second.setInteger("b", 2));  // second never loaded "a", yet must not drop it
  EXPECT_EQ(storage->load().size(), 2u);
  EXPECT_EQ(second.integerForKey("a"), 1) << "a write refreshes the other writers' keys";
  EXPECT_EQ(first.integerForKey("b"), 0) << "not seen before a reload";
  EXPECT_TRUE(first.synchronize());
  EXPECT_EQ(first.integerForKey("b"), 2);

  EXPECT_FALSE(first.setString("shared", "first"));
  EXPECT_FALSE(second.setString("shared", "second"));
  EXPECT_EQ(storage->load().at("shared"), Value("second")) << "the later write wins";
}

TEST(UserDefaultsTest, StandardStoreCanBeReplacedAndRestored) {
  auto original = UserDefaults::standard();
  ASSERT_TRUE(original);
  EXPECT_EQ(UserDefaults::standard(), original) << "one store per process";

  auto replacement = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  UserDefaults::setStandard(replacement);
  EXPECT_FALSE(UserDefaults::standard()->setBool("inReplacement", true));
  EXPECT_TRUE(replacement->boolForKey("inReplacement"));

  UserDefaults::setStandard(nullptr);
  auto fresh = UserDefaults::standard();
  EXPECT_NE(fresh, replacement);
  EXPECT_FALSE(fresh->boolForKey("inReplacement"));
  UserDefaults::setStandard(original);
}

TEST(UserDefaultsTest, ConcurrentWritersFromManyThreadsLoseNothing) {
  auto storage = std::make_shared<InMemoryUserDefaultsStorage>();
  UserDefaults defaults(storage);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&defaults, t] {
      for (int i = 0; i < 200; ++i) {
        std::string key = "t" + std::to_string(t) + "-" + std::to_string(i);
        EXPECT_FALSE(defaults.setInteger(key, i));
        (void)defaults.integerForKey(key);
        (void)defaults.dictionaryRepresentation();
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(storage->load().size(), 800u);
  EXPECT_EQ(defaults.integerForKey("t3-199"), 199);
}

}  // namespace
}  // namespace lumeo
