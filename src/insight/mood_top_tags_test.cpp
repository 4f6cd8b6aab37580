// The tag pages: the side and weight of a tag, both orders, the report's
// cut to eight, the photo carousel's records, the texts and the swipe state
// shared by the two sides.
#include <gtest/gtest.h>

#include "insight/mood_top_tags_view_controller.h"
#include "insight/summary_test_support.h"
#include "store/settings_keys.h"

namespace lumeo {
namespace {

RankedTag figures(std::string name, long long sum, long long frequency) {
  RankedTag t;
  t.tagName = std::move(name);
  t.sum = sum;
  t.frequency = frequency;
  return t;
}

std::vector<std::string> names(const std::vector<RankedTag>& tags) {
  std::vector<std::string> out;
  for (const auto& t : tags) out.push_back(t.tagName);
  return out;
}

TEST(TopTagRanking, SideAndWeightInIntegers) {
  // Levels 5 and 6: sum 11 over 2 > 10, positive, although its weight is 0.
  EXPECT_FALSE(isNegativeTag(11, 2));
  EXPECT_EQ(tagWeight(11, 2), 0);
  // One record of 5: negative, weight −1.
  EXPECT_TRUE(isNegativeTag(5, 1));
  EXPECT_EQ(tagWeight(5, 1), -1);
  // An average of exactly 5 over many records stays negative.
  EXPECT_TRUE(isNegativeTag(5000000000LL, 1000000000LL));
  EXPECT_FALSE(isNegativeTag(5000000001LL, 1000000000LL));
}

TEST(TopTagRanking, AverageDecidesAndWeightOnlyBreaksTies) {
  // A: 10, 10 (weight 18) is above B: forty records of 6 (weight 40).
  const std::vector<RankedTag> tags = {figures("b", 240, 40), figures("a", 20, 2),  figures("c", 14, 2),
                                       figures("d", 7, 1),    figures("low", 4, 2), figures("five", 5, 1)};
  EXPECT_EQ(names(rankTopTags(tags, false)), (std::vector<std::string>{"a", "c", "d", "b"}));
  // c and d both average 7; c weighs 6, d 3.
  // Negative side: lowest average first.
  EXPECT_EQ(names(rankTopTags(tags, true)), (std::vector<std::string>{"low", "five"}));
}

TEST(TopTagRanking, ReportKeepsTheEightHeaviest) {
  std::vector<RankedTag> tags;
  for (int i = 0; i < 8; ++i) tags.push_back(figures("t" + std::to_string(i), 35 + i, 5));  // weights 15..22
  tags.push_back(figures("rare", 10, 1));  // average 10 but weight 9
  const auto screen = rankTopTags(tags, false);
  ASSERT_EQ(screen.size(), 9u);
  EXPECT_EQ(screen.front().tagName, "rare");
  const auto report = rankTopTagsForPDF(tags, false);
  ASSERT_EQ(report.size(), 8u);
  EXPECT_EQ(report.front().tagName, "t7");
  EXPECT_EQ(report.back().tagName, "t0");
  for (const auto& t : report) EXPECT_NE(t.tagName, "rare");
  // Eight or fewer are not cut.
  tags.pop_back();
  EXPECT_EQ(rankTopTagsForPDF(tags, false).size(), 8u);
}

class TopTagsView : public MoodTopTagsViewDelegate {
 public:
  int updates = 0;
  long scrolledTo = -2;
  std::vector<bool> layouts;
  int galleries = 0;
  std::vector<std::string> histories;
  void topTagsUpdated(MoodTopTagsViewController&) override { ++updates; }
  void scrollCarouselToItem(long index, bool) override { scrolledTo = index; }
  void swipeLayoutChanged(bool raised, double) override { layouts.push_back(raised); }
  void pushGallery(const std::vector<std::shared_ptr<MoodRecord>>&, long) override { ++galleries; }
  void pushTagHistory(const std::shared_ptr<MoodTag>& tag) override { histories.push_back(tag->tagName()); }
};

class TopTagsControllerTest : public testing::JournalTest {
 protected:
  std::shared_ptr<MoodTopTagsViewController> page(bool negative) {
    auto controller = std::make_shared<MoodTopTagsViewController>(store_, negative, defaults_);
    controller->setDelegate(view_);
    controller->viewDidLoad();
    return controller;
  }
  std::shared_ptr<TopTagsView> view_ = std::make_shared<TopTagsView>();
};

TEST_F(TopTagsControllerTest, PagesFromTheStore) {
  const Date now = Date::now();
  addRecord(9, now.dateByAddingTimeInterval(-300), {"friends"}, true);
  auto five = addRecord(5, now.dateByAddingTimeInterval(-200), {"friends", "work"}, true);
  addRecord(3, now.dateByAddingTimeInterval(-100), {"work"});
  auto unused = store_.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
  unused->setTagName("forgotten");  // frequency 0
  save();

  auto positive = page(false);
  auto negative = page(true);
  positive->reloadMoodRecords();
  negative->reloadMoodRecords();
  ASSERT_EQ(positive->rows().size(), 1u);
  EXPECT_EQ(positive->rows()[0].tagName, "friends");
  EXPECT_DOUBLE_EQ(positive->rows()[0].average, 7.0);
  EXPECT_EQ(positive->rows()[0].label.string(), "#Friends 7.0");
  EXPECT_EQ(positive->rows()[0].label.runs.at(1).weight, FontWeight::kBold);
  EXPECT_DOUBLE_EQ(positive->rows()[0].label.runs.at(0).pointSize, 15);
  ASSERT_EQ(negative->rows().size(), 1u);
  EXPECT_EQ(negative->rows()[0].tagName, "work");

  // The level-5 photo is on the negative side only, whatever its tags.
  ASSERT_EQ(positive->recordsWithPhotos().size(), 1u);
  ASSERT_EQ(negative->recordsWithPhotos().size(), 1u);
  EXPECT_EQ(negative->recordsWithPhotos()[0], five);
  EXPECT_EQ(negative->currentCarouselIndex(), 0);
  EXPECT_FALSE(positive->emptyPhotosText());
  EXPECT_EQ(positive->titleForMoodGallery(), "Positive");
  EXPECT_EQ(negative->titleForMoodGallery(), "Negative");

  // The centre item opens the gallery; a row opens the tag's history.
  negative->carouselDidSelectItemAtIndex(0);
  EXPECT_EQ(view_->galleries, 1);
  negative->didSelectRowAtIndex(0);
  EXPECT_EQ(view_->histories, (std::vector<std::string>{"work"}));
  EXPECT_EQ(negative->filterTagsByAverage(store_.usedTags()).size(), 1u);
  EXPECT_EQ(MoodTopTagsViewController::tagArrayForPDF(store_, false).size(), 1u);
}

TEST_F(TopTagsControllerTest, EmptyStatesAndSelection) {
  auto negative = page(true);
  negative->reloadMoodRecords();
  EXPECT_EQ(*negative->emptyTagsText(), "No tags are associated\nwith negative mood");
  EXPECT_EQ(*negative->emptyPhotosText(), "No photos attached\nto negative mood records");
  EXPECT_EQ(negative->currentCarouselIndex(), -1);

  auto first = addRecord(2, Date::now().dateByAddingTimeInterval(-50), {}, true);
  addRecord(4, Date::now(), {}, true);
  save();  // marks the page stale: it is not on screen
  EXPECT_FALSE(negative->dataUpToDate());
  negative->selectMoodRecord(first);
  EXPECT_TRUE(negative->dataUpToDate());
  EXPECT_EQ(negative->currentCarouselIndex(), 0);
  EXPECT_EQ(view_->scrolledTo, 0);
  // Another item comes to the centre instead of opening the gallery.
  negative->carouselDidSelectItemAtIndex(1);
  EXPECT_EQ(negative->currentCarouselIndex(), 1);
  EXPECT_EQ(view_->galleries, 0);
}

TEST_F(TopTagsControllerTest, SwipeStateIsSharedByBothSides) {
  auto positive = page(false);
  auto negative = page(true);
  EXPECT_FALSE(defaults_->objectForKey(kSwipeUp).isNull());  // written as false on first load
  EXPECT_FALSE(defaults_->boolForKey(kSwipeUp));

  // A pan from below the limit is left to the list.
  EXPECT_FALSE(positive->panBegan(300));
  // A fast flick upward raises the list, whatever the distance.
  ASSERT_TRUE(positive->panBegan(100));
  positive->panEnded(-10, -700);
  EXPECT_TRUE(positive->isUpped());
  EXPECT_TRUE(defaults_->boolForKey(kSwipeUp));
  EXPECT_TRUE(defaults_->boolForKey(kSwipeViewHidden));
  EXPECT_TRUE(negative->isUpped());  // followed through its notification

  // Raised, the limit is 140; a slow pan decides by distance (77 points).
  EXPECT_FALSE(negative->panBegan(200));
  ASSERT_TRUE(negative->panBegan(100));
  negative->panEnded(30, 100);
  EXPECT_FALSE(negative->isUpped());
  EXPECT_FALSE(positive->isUpped());
  ASSERT_TRUE(negative->panBegan(100));
  negative->panEnded(-78, -100);
  EXPECT_TRUE(negative->isUpped());
  // The hint stays hidden for good.
  auto later = page(false);
  later->viewWillAppear();
  EXPECT_TRUE(later->swipeHintHidden());
  EXPECT_TRUE(later->isUpped());
}

}  // namespace
}  // namespace lumeo
