// The watch protocol end to end: a real journal, the phone side listening
// on a Unix socket in a temporary folder, and companions connecting with
// the reference client. Replies are awaited while the test runs the main
// loop; a message that must stay unanswered is followed by a "request",
// whose answer proves the earlier one was handled (the session's queue is
// serial), so no test waits for something not to happen.
#include "watch/mood_watch_helper.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>

#include "capture/location_helper.h"
#include "objectgraph/managed_object_context.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/unix_watch_client.h"
#include "platform/linux/unix_watch_session.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "testing/temp_dir.h"
#include "watch/mood_watch_view_controller.h"

namespace lumeo {
namespace {

using watch_wire::Envelope;

// A companion: everything it has read, and a way to wait for one reply.
class Companion {
 public:
  explicit Companion(const std::filesystem::path& socket) { EXPECT_FALSE(client.connect(socket)); }

  std::int64_t send(Value::Dictionary message, bool wantsReply = true) {
    const std::int64_t id = nextId++;
    EXPECT_FALSE(
        client.send({wantsReply ? std::optional(id) : std::nullopt, std::nullopt, std::move(message)}));
    return id;
  }
  // Runs the main loop until the reply to `id` is read (20 s at most).
  std::optional<Value::Dictionary> awaitReply(std::int64_t id) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
      for (auto it = unread.begin(); it != unread.end(); ++it) {
        if (it->reply == id) {
          auto message = it->message;
          unread.erase(it);
          return message;
        }
      }
      MainLoop::shared().runOnce();
      if (auto envelope = client.readEnvelope(0.005)) unread.push_back(std::move(*envelope));
    }
    return std::nullopt;
  }
  // The pushes (messages that are no reply) read so far, by command.
  std::vector<Value::Dictionary> pushes(const std::string& command) const {
    std::vector<Value::Dictionary> found;
    for (const auto& envelope : unread) {
      if (!envelope.reply && envelope.message.count("command") &&
          envelope.message.at("command").toString() == command)
        found.push_back(envelope.message);
    }
    return found;
  }

  UnixWatchClient client;
  std::vector<Envelope> unread;
  std::int64_t nextId = 1;
};

class WatchProtocolTest : public ::testing::Test {
 protected:
  WatchProtocolTest()
      : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())) {
    previous_ = UserDefaults::standard();
    UserDefaults::setStandard(defaults_);
    store = std::make_unique<JournalStore>(JournalStore::Locations{dir / "Library", dir / "Documents"},
                                           defaults_);
    session = std::make_shared<UnixWatchSession>(dir / "run" / "watch.sock");
    EXPECT_FALSE(session->listen());
    helper().setStore(store.get());
    helper().setSession(session);
  }
  ~WatchProtocolTest() override {
    helper().setSession(nullptr);
    helper().setStore(nullptr);
    session->stop();
    MainLoop::shared().runUntilIdle();
    UserDefaults::setStandard(previous_);
  }
  static MoodWatchHelper& helper() { return MoodWatchHelper::sharedHelper(); }

  std::shared_ptr<MoodTag> tag(const std::string& name, long frequency) {
    auto tag = store->managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
    tag->setTagName(name);
    tag->setFrequency(frequency);
    return tag;
  }
  std::vector<std::shared_ptr<MoodRecord>> records() { return store->allRecords(); }
  std::vector<std::string> strings(const Value& array) {
    std::vector<std::string> out;
    for (const auto& v : *array.asArray()) out.push_back(v.toString());
    return out;
  }

  testing::TempDir dir;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<UserDefaults> previous_;
  std::unique_ptr<JournalStore> store;
  std::shared_ptr<UnixWatchSession> session;
};

TEST_F(WatchProtocolTest, ARequestIsAnsweredWithTheDataAndTheFifteenMostUsedTags) {
  for (int i = 0; i < 20; ++i) tag("tag" + std::to_string(i), 100 - i);
  tag("", 1000);  // an empty name never goes out
  store->saveContext();
  helper().setSkipHashtags(true);

  Companion watch(session->socketPath());
  auto reply = watch.awaitReply(watch.send({{"command", "request"}}));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->size(), 5u);
  EXPECT_EQ(reply->at("command").toString(), "response");
  EXPECT_EQ(reply->at("moods").asArray()->size(), 10u);
  EXPECT_FALSE(reply->at("moods").asArray()->front().toString().empty());
  const auto tags = strings(reply->at("tags"));
  EXPECT_LE(tags.size(), MoodWatchHelper::kMaxTags);
  EXPECT_EQ(tags.front(), "tag0");
  EXPECT_EQ(std::count(tags.begin(), tags.end(), ""), 0);
  EXPECT_EQ(std::count(tags.begin(), tags.end(), "tag15"), 0) << "only the most used";
  EXPECT_EQ(reply->at("skipHashtags").type(), Value::Type::kBool);
  EXPECT_TRUE(reply->at("skipHashtags").toBool());
  EXPECT_FALSE(reply->at("skipDictation").toBool());

  // A companion that connects is sent the data and the steps unasked.
  EXPECT_EQ(watch.pushes("data").size(), 1u);
  EXPECT_EQ(watch.pushes("steps").size(), 1u);
}

TEST_F(WatchProtocolTest, AnEmptyJournalSendsNoTags) {
  Companion watch(session->socketPath());
  auto reply = watch.awaitReply(watch.send({{"command", "request"}}));
  ASSERT_TRUE(reply);
  EXPECT_TRUE(reply->at("tags").asArray()->empty());
}

TEST_F(WatchProtocolTest, SaveMoodIsAnsweredAtOnceAndThenRecordedWithItsKnownTags) {
  tag("work", 3);
  tag("Run", 1);
  store->saveContext();
  Companion watch(session->socketPath());
  const auto id = watch.send({{"command", "saveMood"},
                              {"level", 8},
                              {"tags", Value::Array{"work", "unknown", "run"}},
                              {"text", "Good day\\nreally"}});
  // Read the answer without running the main loop, where records are made.
  std::optional<Envelope> answer;
  while (!answer || answer->reply != id) {
    answer = watch.client.readEnvelope(20);
    ASSERT_TRUE(answer);
  }
  EXPECT_EQ(answer->message, (Value::Dictionary{{"result", "OK"}}));
  EXPECT_TRUE(records().empty()) << "answered before the record exists";

  // The next request's answer comes after the record was made.
  ASSERT_TRUE(watch.awaitReply(watch.send({{"command", "request"}})));
  auto all = records();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0]->moodLevel(), 8);
  EXPECT_EQ(all[0]->moodDescription()->comment(), "Good day\nreally #work #run");
  EXPECT_EQ(all[0]->moodTags().size(), 2u);
  EXPECT_EQ(all[0]->moodDescription()->latitude(), -1);
  EXPECT_FALSE(all[0]->moodDescription()->wasEdited());
}

TEST_F(WatchProtocolTest, TextWithoutTagsHasNoTrailingSpaceAndMissingTextIsEmpty) {
  Companion watch(session->socketPath());
  ASSERT_TRUE(watch.awaitReply(
      watch.send({{"command", "saveMood"}, {"level", 3}, {"tags", Value::Array{}}, {"text", "tired"}})));
  ASSERT_TRUE(
      watch.awaitReply(watch.send({{"command", "saveMood"}, {"level", 4}, {"tags", Value::Array{}}})));
  ASSERT_TRUE(watch.awaitReply(watch.send({{"command", "request"}})));
  std::vector<std::string> comments;
  for (const auto& record : records()) comments.push_back(record->moodDescription()->comment().value_or("?"));
  std::sort(comments.begin(), comments.end());
  EXPECT_EQ(comments, (std::vector<std::string>{"", "tired"}));
}

TEST_F(WatchProtocolTest, BadMessagesGetNoAnswerAndMakeNoRecord) {
  Companion watch(session->socketPath());
  const std::vector<Value::Dictionary> bad = {
      {{"command", "dance"}},
      {{"level", 5}, {"tags", Value::Array{}}},
      {{"command", 7}},
      {{"command", "saveMood"}, {"tags", Value::Array{}}},
      {{"command", "saveMood"}, {"level", 5}},
      {{"command", "saveMood"}, {"level", "5"}, {"tags", Value::Array{}}},
      {{"command", "saveMood"}, {"level", 5.5}, {"tags", Value::Array{}}},
      {{"command", "saveMood"}, {"level", true}, {"tags", Value::Array{}}},
      {{"command", "saveMood"}, {"level", 0}, {"tags", Value::Array{}}},
      {{"command", "saveMood"}, {"level", 11}, {"tags", Value::Array{}}},
      {{"command", "saveMood"}, {"level", 5}, {"tags", "work"}},
      {{"command", "saveMood"}, {"level", 5}, {"tags", Value::Array{"work", 3}}},
      {{"command", "saveMood"}, {"level", 5}, {"tags", Value::Array{}}, {"text", 12}},
  };
  std::vector<std::int64_t> ids;
  for (const auto& message : bad) ids.push_back(watch.send(message));
  ASSERT_TRUE(watch.awaitReply(watch.send({{"command", "request"}})));
  for (const auto& envelope : watch.unread) {
    if (envelope.reply) ADD_FAILURE() << "message " << *envelope.reply << " was answered";
  }
  EXPECT_TRUE(records().empty());
}

TEST_F(WatchProtocolTest, MalformedAndHugeLinesAreDroppedWithoutHarmingTheServer) {
  Companion watch(session->socketPath());
  ASSERT_FALSE(watch.client.sendRaw("this is not json\n{\"id\": 1}\n[1,2]\n{\"id\":\"x\",\"message\":{}}\n"));
  // Ten megabytes in one line, sent while the server reads.
  std::string huge =
      "{\"id\": 99, \"message\": {\"command\": \"saveMood\", \"level\": 5, \"tags\": [], \"text\": \"";
  huge.append(10 * 1024 * 1024, 'x');
  huge += "\"}}\n";
  ASSERT_FALSE(watch.client.sendRaw(huge));
  auto reply = watch.awaitReply(watch.send({{"command", "request"}}));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->at("command").toString(), "response");
  EXPECT_GE(session->droppedLineCount(), 5u);
  EXPECT_TRUE(records().empty());
}

TEST_F(WatchProtocolTest, TwoCompanionsAtOnceEachGetTheirOwnAnswers) {
  Companion first(session->socketPath());
  Companion second(session->socketPath());
  const auto a =
      first.send({{"command", "saveMood"}, {"level", 2}, {"tags", Value::Array{}}, {"text", "one"}});
  const auto b =
      second.send({{"command", "saveMood"}, {"level", 9}, {"tags", Value::Array{}}, {"text", "two"}});
  EXPECT_TRUE(second.awaitReply(b));
  EXPECT_TRUE(first.awaitReply(a));
  ASSERT_TRUE(first.awaitReply(first.send({{"command", "request"}})));
  ASSERT_TRUE(second.awaitReply(second.send({{"command", "request"}})));
  EXPECT_EQ(records().size(), 2u);
  EXPECT_EQ(session->connectionCount(), 2u);
  EXPECT_TRUE(helper().isPaired());

  // Toggling a step on the settings screen reaches both at once.
  MoodWatchViewController screen;
  screen.switchChanged(MoodWatchViewController::kSkipDictationRow, true);
  EXPECT_TRUE(screen.isRowOn(MoodWatchViewController::kSkipDictationRow));
  ASSERT_TRUE(first.awaitReply(first.send({{"command", "request"}})));
  auto steps = first.pushes("steps");
  ASSERT_FALSE(steps.empty());
  EXPECT_TRUE(steps.back().at("skipDictation").toBool());
}

TEST_F(WatchProtocolTest, TheSocketIsPrivateAndHasOneServer) {
  struct stat info {};
  ASSERT_EQ(::stat(session->socketPath().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  ASSERT_EQ(::stat(session->socketPath().parent_path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  UnixWatchSession second(session->socketPath());
  auto error = second.listen();
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kWatchSessionErrorDomain, kWatchSessionInUse));
  // The first server still answers.
  Companion watch(session->socketPath());
  EXPECT_TRUE(watch.awaitReply(watch.send({{"command", "request"}})));
}

// Stands in for the desktop's location service: enabled, with fixes given
// by the test.
class TestLocation : public LocationService {
 public:
  bool isEnabled() const override { return true; }
  void startUpdatingLocation() override { ++starts; }
  int starts = 0;
};

TEST_F(WatchProtocolTest, AMoodFromTheWatchIsPlacedByTheNextGoodFix) {
  auto location = std::make_shared<TestLocation>();
  LocationHelper::sharedInstance().setLocationService(location);
  Companion watch(session->socketPath());
  ASSERT_TRUE(
      watch.awaitReply(watch.send({{"command", "saveMood"}, {"level", 7}, {"tags", Value::Array{}}})));
  ASSERT_TRUE(watch.awaitReply(watch.send({{"command", "request"}})));
  auto all = records();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0]->moodDescription()->latitude(), -1) << "the place comes later";
  EXPECT_GE(location->starts, 1);

  location->deliverFix({46.62, 14.31, 250, Date::now()});  // too coarse
  EXPECT_EQ(all[0]->moodDescription()->latitude(), -1);
  location->deliverFix({46.6247, 14.3053, 15, Date::now()});
  EXPECT_DOUBLE_EQ(all[0]->moodDescription()->latitude(), 46.6247);
  EXPECT_DOUBLE_EQ(all[0]->moodDescription()->longitude(), 14.3053);
  EXPECT_FALSE(store->managedObjectContext()->hasChanges()) << "the place is saved";
  LocationHelper::sharedInstance().setLocationService(nullptr);
}

TEST_F(WatchProtocolTest, WithoutACompanionSendsGoNowhere) {
  EXPECT_FALSE(helper().isPaired());
  helper().saveData();
  helper().setSkipHashtags(true);
  helper().saveSteps();
  EXPECT_TRUE(defaults_->boolForKey("kSkipHashtagsStep"));
}

}  // namespace
}  // namespace lumeo
