// The phone side of the link to a watch companion. It feeds the watch the
// level captions, the most used tags and the two step switches, answers its
// requests, and turns a mood sent from the watch into a record: text, then
// the known tags as hashtags, stamped with a position later if location is
// on. The message dictionaries are the whole protocol; their keys are
// fixed (docs/watch-protocol.md).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/value.h"
#include "platform/watch_session.h"
#include "shell/shell_services.h"

namespace lumeo {

class JournalStore;
class MoodRecord;

// The protocol's keys and fixed values.
namespace watch_keys {
inline constexpr char kCommand[] = "command";
inline constexpr char kMoods[] = "moods";
inline constexpr char kTags[] = "tags";
inline constexpr char kSkipDictation[] = "skipDictation";
inline constexpr char kSkipHashtags[] = "skipHashtags";
inline constexpr char kLevel[] = "level";
inline constexpr char kText[] = "text";
inline constexpr char kResult[] = "result";
inline constexpr char kData[] = "data";
inline constexpr char kSteps[] = "steps";
inline constexpr char kRequest[] = "request";
inline constexpr char kResponse[] = "response";
inline constexpr char kSaveMood[] = "saveMood";
inline constexpr char kOK[] = "OK";
}  // namespace watch_keys

// A "saveMood" message that may become a record.
struct WatchMood {
  long level = 0;
  std::vector<std::string> tags;
  std::optional<std::string> text;
};

class MoodWatchHelper : public WatchSessionDelegate, public std::enable_shared_from_this<MoodWatchHelper> {
 public:
  // At most this many tags go to the watch, most used first.
  static constexpr std::size_t kMaxTags = 15;

  // The one helper of the process.
  static MoodWatchHelper& sharedHelper();

  // The link in use; activating it makes this helper its delegate. Null
  // (the default) means no watch: sends go nowhere.
  void setSession(std::shared_ptr<WatchSession> session);
  const std::shared_ptr<WatchSession>& session() const { return session_; }
  // The journal records are made in (main thread only). Null: the running
  // application's.
  void setStore(JournalStore* store) {
    store_ = store;
    awaitingPlace_.reset();
  }
  // Lends the journal for one piece of work (main thread). A long-running
  // process that must not hold the journal between messages opens it for
  // each piece and closes it after. Unset: setStore's journal, as it is.
  using JournalAccess = std::function<void(const std::function<void(JournalStore&)>& work)>;
  void setJournalAccess(JournalAccess access) {
    access_ = std::move(access);
    awaitingPlace_.reset();
  }

  bool isPaired() const { return isPaired_; }
  bool skipHashtags() const;
  void setSkipHashtags(bool skip);
  bool skipDictation() const;
  void setSkipDictation(bool skip);

  // "data": the captions, tags and switches. Main thread (reads the store).
  Value::Dictionary dictForWatch();
  // "steps": the two switches.
  Value::Dictionary stepsForWatch() const;
  // Send them; a failed send is dropped.
  void saveData();
  void saveSteps();

  // Checks a "saveMood" message: an integer level from 1 to 10, an array of
  // strings as tags, and a string or nothing as text. Nothing when any of
  // them is missing or of another type: such a message gets no answer and
  // makes no record.
  static std::optional<WatchMood> moodFromMessage(const Value::Dictionary& message);

  // Makes and saves the record (main thread); returns it.
  std::shared_ptr<MoodRecord> createRecordFromLevel(long level, const std::vector<std::string>& andTags,
                                                    const std::optional<std::string>& andText);
  // Asks the location helper to stamp the record with the next good fix.
  void locationHelperStart(const std::shared_ptr<MoodRecord>& record);

  // Session delegate calls, on the session's queue.
  void sessionActivationDidComplete(WatchSession& session, bool paired) override;
  void sessionDidReceiveMessage(WatchSession& session, const Value::Dictionary& message,
                                ReplyHandler replyHandler) override;

 private:
  JournalStore* store();
  void withJournal(const std::function<void(JournalStore&)>& work);

  std::shared_ptr<WatchSession> session_;
  JournalStore* store_ = nullptr;
  JournalAccess access_;
  // The last watch mood waiting for its place; the location helper only
  // holds it weakly.
  std::shared_ptr<MoodRecord> awaitingPlace_;
  std::atomic<bool> isPaired_{false};
};

// The helper as the application object sees it: paired or not, and the
// full data sent again after a change of the level table.
class MoodWatchService : public WatchService {
 public:
  bool isPaired() const override { return MoodWatchHelper::sharedHelper().isPaired(); }
  void saveData() override { MoodWatchHelper::sharedHelper().saveData(); }
};

}  // namespace lumeo
