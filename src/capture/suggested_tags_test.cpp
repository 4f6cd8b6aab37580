// Suggestions and the template screen on a real journal: feeling words that
// are tags already are not doubled, the two sort orders, an unreadable word
// list, and the template screen's unit offer and storing on back.
#include "capture/suggested_tags.h"

#include <gtest/gtest.h>

#include "capture/emotions_list.h"
#include "capture/mood_record_state.h"
#include "capture/mood_template_view_controller.h"
#include "objectgraph/managed_object_context.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "store/journal_store.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class SuggestedTagsTest : public ::testing::Test {
 protected:
  SuggestedTagsTest()
      : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())),
        store_(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"}, defaults_) {
    std::filesystem::create_directories(dir_ / "Library");
  }

  void words(const std::vector<std::string>& list) {
    Value::Array array;
    for (const auto& w : list) array.push_back(Value(w));
    ASSERT_FALSE(writePropertyListFile(emotionsListURL(dir_ / "Library"), Value(array)));
  }
  void record(const std::string& comment) {
    auto r = store_.insertRecordWithDescription();
    r->setMoodLevel(5);
    r->setDate(Date::fromTimeIntervalSince1970(1700000000));
    MoodRecordState state(*r, nullptr);
    state.comment = comment;
    EXPECT_FALSE(state.applyToRecord(r, RecordStateServices{&store_, nullptr, {}}));
  }
  static std::vector<std::string> names(const std::vector<std::shared_ptr<MoodTag>>& tags) {
    std::vector<std::string> out;
    for (const auto& t : tags) out.push_back(t->tagName());
    return out;
  }

  testing::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  JournalStore store_;
};

TEST_F(SuggestedTagsTest, WordsThatAreTagsAreNotDoubledAndSuggestionsComeLast) {
  words({"joy", "Happy", "héros", "not a tag", "hungry"});
  record("#happy #hungry");
  record("#HUNGRY");
  record("#heros");
  SuggestedTags editor(store_, dir_ / "Library", CompletionSort::kFrequencyThenName);
  EXPECT_EQ(names(editor.completionOptionsForString("h")),
            (std::vector<std::string>{"HUNGRY", "happy", "heros"}));
  EXPECT_EQ(names(editor.completionOptionsForString("")),
            (std::vector<std::string>{"HUNGRY", "happy", "heros", "joy"}));
  EXPECT_TRUE(editor.completionOptionsForString("JOY").empty());  // nothing left to complete
  EXPECT_EQ(editor.completionOptionsForString("", 2).size(), 2u);
  // The suggestions never reach the store.
  store_.saveContext();
  EXPECT_FALSE(store_.tagNamed("joy"));

  // After the list changed, a dropped child is rebuilt from the file.
  removeTagFromEmotionsList(dir_ / "Library", "joy");
  EXPECT_EQ(editor.completionOptionsForString("j").size(), 1u);
  editor.dropChildManagedObjectContext();
  EXPECT_TRUE(editor.completionOptionsForString("j").empty());
}

TEST_F(SuggestedTagsTest, MissingOrDamagedWordListLeavesRealTagsOnly) {
  record("#calm");
  SuggestedTags noList(store_, dir_ / "Library", CompletionSort::kFrequencyOnly);
  EXPECT_EQ(names(noList.completionOptionsForString("")), (std::vector<std::string>{"calm"}));
  testing::writeFile(emotionsListURL(dir_ / "Library"), "not a property list");
  SuggestedTags damaged(store_, dir_ / "Library", CompletionSort::kFrequencyOnly);
  EXPECT_EQ(names(damaged.completionOptionsForString("")), (std::vector<std::string>{"calm"}));
}

TEST_F(SuggestedTagsTest, TemplateScreenOffersUnitsAgainAndStoresOnBack) {
  words({"sleepy"});
  record("#sleep:8h");
  MoodUserDefaultsOperator defaults(defaults_);
  EXPECT_FALSE(defaults.setTemplateText(std::string("Day:")));
  MoodTemplateViewController screen(store_, dir_ / "Library", defaults);
  screen.viewDidLoad();
  screen.viewWillAppear();
  EXPECT_EQ(screen.text(), "Day:");
  screen.textViewDidChange("Day: #sl", 8);
  EXPECT_EQ(names(screen.completionOptions()), (std::vector<std::string>{"sleep", "sleepy"}));
  screen.didSelectCompletionRow(0);
  EXPECT_EQ(screen.text(), "Day: #sleep");
  screen.textViewDidChange("Day: #sleep:", 12);
  EXPECT_EQ(screen.text(), "Day: #sleep:h");
  // Deleting the unit back to ":" offers it again here.
  screen.textViewDidChange("Day: #sleep:", 12);
  EXPECT_EQ(screen.text(), "Day: #sleep:h");
  screen.returnButtonClicked();
  EXPECT_EQ(defaults.templateText(), "Day:");  // stored only on back
  screen.backButtonClicked();
  EXPECT_EQ(defaults.templateText(), "Day: #sleep:h\n");
}

TEST_F(SuggestedTagsTest, OffersLeaveNoRecordsLoaded) {
  record("#walk");
  record("#walk #work");
  SuggestedTags editor(store_, dir_ / "Library", CompletionSort::kFrequencyThenName);
  auto offers = editor.completionOptionsForString("w");
  ASSERT_EQ(names(offers), (std::vector<std::string>{"walk", "work"}));
  // A row that shows its tag's average loads the tag's records.
  std::vector<std::shared_ptr<MoodRecord>> loaded;
  for (const auto& tag : offers) {
    for (const auto& r : tag->moodRecords()) {
      EXPECT_EQ(r->moodLevel(), 5);
      loaded.push_back(r);
    }
  }
  ASSERT_EQ(loaded.size(), 3u);
  for (const auto& r : loaded) EXPECT_FALSE(r->isFault());
  // The next keystroke's offers turn them back into faults, which still
  // read their values on demand.
  editor.completionOptionsForString("wa");
  for (const auto& r : loaded) EXPECT_TRUE(r->isFault());
  EXPECT_EQ(loaded.front()->moodLevel(), 5);
}

}  // namespace
}  // namespace lumeo
