// The export screen's rules: the range and its clamping, the reuse of a
// finished report, cancel, and photos to a folder with only new or changed
// ones copied.
#include "backup/mood_export_view_controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backup/pdf_test_support.h"
#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "shell/shell_test_support.h"
#include "store/date_all.h"
#include "store/settings_keys.h"

namespace lumeo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecordingExportView : public MoodExportViewDelegate {
 public:
  void showIndicator(const std::string& text, bool) override { indicators.push_back(text); }
  void hideIndicator(std::optional<bool> result) override { results.push_back(result); }
  void share(const std::filesystem::path& url) override { shared.push_back(url); }
  void progress(double fraction) override {
    if (onProgress) onProgress(fraction);
  }
  std::vector<std::string> indicators;
  std::vector<std::optional<bool>> results;
  std::vector<std::filesystem::path> shared;
  std::function<void(double)> onProgress;
};

class ExportFlowTest : public PdfJournalTest {
 protected:
  ExportFlowTest() {
    MoodViewController::setSharedPresenter(presenter_);
    controller_ = std::make_shared<MoodExportViewController>(store_, dir_ / "Documents", defaults_);
    controller_->setDelegate(view_);
  }
  ~ExportFlowTest() override { MoodViewController::setSharedPresenter(nullptr); }

  void runUntilDone() {
    MainLoop::shared().runUntil([&] { return !controller_->isBusy(); }, 60);
  }
  PhotoExportResult exportPhotos(const std::filesystem::path& folder) {
    PhotoExportResult result;
    controller_->doExportPhotos(folder, [&](const PhotoExportResult& r) { result = r; });
    runUntilDone();
    return result;
  }
  std::shared_ptr<MoodRecord> addPhoto(long level, Date date, int width) {
    auto record = addCommented(level, date, "with a photo");
    auto name = imageStore_->writeNewImage(Image::filled(width, 100, Color(0.2, 0.6, 0.3, 1)));
    record->moodDescription()->setPhotoName(std::get<std::string>(name));
    return record;
  }

  std::shared_ptr<ScriptedPresenter> presenter_ = std::make_shared<ScriptedPresenter>();
  std::shared_ptr<RecordingExportView> view_ = std::make_shared<RecordingExportView>();
  std::shared_ptr<MoodExportViewController> controller_;
};

// --- The range ------------------------------------------------------------------

TEST_F(ExportFlowTest, RangeStartsAtTheFirstRecordsDayAndEndsWithToday) {
  addCommented(5, utcDate(2026, 3, 4, 15, 20), "first");
  addCommented(6, utcDate(2026, 11, 2, 8), "later");
  save();
  controller_->viewDidLoad();
  EXPECT_EQ(controller_->dateFrom(), utcDate(2026, 3, 4));
  EXPECT_EQ(controller_->dateTo(), utcDate(2026, 11, 23, 23, 59, 59));
  // A value already set stays.
  controller_->setDateFrom(utcDate(2026, 6, 1, 12));
  controller_->viewDidLoad();
  EXPECT_EQ(controller_->dateFrom(), utcDate(2026, 6, 1));
  EXPECT_THAT(MoodExportViewController::rowTitles(),
              ElementsAre("From", "To", "", "Export to PDF", "Export to CSV", "Export photos"));
}

TEST_F(ExportFlowTest, RangeIsClampedAsThePickerClampsIt) {
  controller_->viewDidLoad();
  // Nothing after today.
  controller_->setDateTo(utcDate(2027, 1, 1));
  EXPECT_EQ(controller_->dateTo(), utcDate(2026, 11, 23, 23, 59, 59));
  // A From after To pulls To up to the end of From's day.
  controller_->setDateTo(utcDate(2026, 10, 5));
  controller_->setDateFrom(utcDate(2026, 10, 9, 14));
  EXPECT_EQ(controller_->dateFrom(), utcDate(2026, 10, 9));
  EXPECT_EQ(controller_->dateTo(), utcDate(2026, 10, 9, 23, 59, 59));
  // A To before From pulls From down to To's day.
  controller_->setDateTo(utcDate(2026, 10, 2, 7));
  EXPECT_EQ(controller_->dateFrom(), utcDate(2026, 10, 2));
  EXPECT_EQ(controller_->dateTo(), utcDate(2026, 10, 2, 23, 59, 59));
}

// --- The report ------------------------------------------------------------------

TEST_F(ExportFlowTest, UnchangedRangeReusesTheReportAndANewRangeOverwritesIt) {
  addCommented(7, utcDate(2026, 11, 20, 9), "Sunny");
  save();
  controller_->viewDidLoad();
  controller_->doExportToPDF();
  runUntilDone();
  const auto pdf = dir_ / "Documents" / "mood.pdf";
  ASSERT_THAT(view_->shared, ElementsAre(pdf));
  EXPECT_EQ(view_->indicators.front(), "Create...");
  EXPECT_TRUE(defaults_->boolForKey(kCreatedPDF));
  EXPECT_EQ(defaults_->dateForKey(kExportFrom), controller_->dateFrom());
  EXPECT_EQ(defaults_->dateForKey(kExportTo), controller_->dateTo());

  // The same range again: the file is offered as it is, unread and unwritten.
  writeFile(pdf, "marker");
  controller_->doExportToPDF();
  runUntilDone();
  EXPECT_EQ(readFile(pdf), "marker");
  EXPECT_EQ(view_->shared.size(), 2u);

  // Another range: a new report over the old file.
  controller_->setDateFrom(utcDate(2026, 11, 19));
  controller_->doExportToPDF();
  runUntilDone();
  EXPECT_EQ(readFile(pdf).rfind("%PDF-", 0), 0u);
  EXPECT_EQ(defaults_->dateForKey(kExportFrom), utcDate(2026, 11, 19));

  // A save anywhere in the journal makes the next export a new one.
  writeFile(pdf, "marker");
  store_.saveContext();
  controller_->doExportToPDF();
  runUntilDone();
  EXPECT_EQ(readFile(pdf).rfind("%PDF-", 0), 0u);
}

TEST_F(ExportFlowTest, CancelledReportLeavesNoFileAndForgetsTheOldOne) {
  for (int d = 1; d <= 5; ++d) addCommented(5, utcDate(2026, 11, d, 9), "day " + std::to_string(d));
  save();
  controller_->viewDidLoad();
  ASSERT_FALSE(defaults_->setBool(kCreatedPDF, true));
  view_->onProgress = [&](double fraction) {
    if (fraction > 0.3 && !controller_->isCanceled()) controller_->cancelClick();
  };
  controller_->doExportToPDF();
  runUntilDone();
  EXPECT_FALSE(std::filesystem::exists(dir_ / "Documents" / "mood.pdf"));
  EXPECT_THAT(view_->shared, IsEmpty());
  EXPECT_FALSE(defaults_->boolForKey(kCreatedPDF));
  EXPECT_EQ(view_->indicators.back(), "Cancelling...");
  EXPECT_FALSE(controller_->isBusy());
}

TEST_F(ExportFlowTest, UnwritableDocumentsFolderIsReportedAndWritesNothing) {
  addCommented(7, utcDate(2026, 11, 20, 9), "Sunny");
  save();
  writeFile(dir_ / "Documents", "a file where the folder should be");
  controller_->viewDidLoad();
  controller_->doExportToPDF();
  runUntilDone();
  ASSERT_TRUE(controller_->lastError().has_value());
  EXPECT_THAT(view_->results, ElementsAre(std::optional<bool>(false)));
  EXPECT_THAT(view_->shared, IsEmpty());
  EXPECT_FALSE(defaults_->boolForKey(kCreatedPDF));
}

TEST_F(ExportFlowTest, CsvGoesToTheDocumentsFolderUnderTodaysName) {
  addCommented(7, utcDate(2026, 11, 20, 9), "Sunny");
  save();
  controller_->viewDidLoad();
  controller_->doExportToCSV();
  runUntilDone();
  const auto csv = dir_ / "Documents" / "mood_Nov 23, 2026.csv";
  ASSERT_THAT(view_->shared, ElementsAre(csv));
  EXPECT_THAT(readFile(csv), ::testing::HasSubstr("Sunny"));
  EXPECT_FALSE(controller_->lastError().has_value());
}

// --- Photos ----------------------------------------------------------------------

TEST(PhotoComparisonTest, SameSizeStaysOtherSizeIsReplacedAndCaseDoesNotCount) {
  const std::map<std::string, std::filesystem::path> local = {
      {"A.jpg", "/l/a"}, {"B.jpg", "/l/b"}, {"C.jpg", "/l/c"}, {"D.jpg", "/l/d"}, {"E.jpg", "/l/e"}};
  const std::map<std::filesystem::path, std::uintmax_t> sizes = {
      {"/l/a", 10}, {"/l/b", 20}, {"/l/c", 30}, {"/l/d", 40}};  // e cannot be read
  const auto comparison = MoodPhotoExport::comparePhotos(
      {{"A.jpg", 10}, {"b.JPG", 20}, {"C.jpg", 31}, {"other.jpg", 5}, {"E.jpg", 1}}, local,
      [&](const std::filesystem::path& file) -> std::optional<std::uintmax_t> {
        auto it = sizes.find(file);
        return it == sizes.end() ? std::nullopt : std::optional(it->second);
      });
  EXPECT_THAT(comparison.unchanged, ElementsAre("A.jpg", "B.jpg"));
  EXPECT_THAT(comparison.toDelete, ElementsAre("C.jpg"));
  ASSERT_EQ(comparison.toSend.size(), 2u);
  EXPECT_EQ(comparison.toSend[0].first, "C.jpg");
  EXPECT_EQ(comparison.toSend[1].first, "D.jpg");
}

TEST_F(ExportFlowTest, PhotoNamesAreDatesToTheSecondAndTheLaterRecordWins) {
  addPhoto(6, utcDate(2026, 11, 20, 9, 30, 15), 100);
  auto later = addPhoto(7, utcDate(2026, 11, 20, 9, 30, 15), 120);
  later->setDate(utcDate(2026, 11, 20, 9, 30, 15).dateByAddingTimeInterval(0.5));
  addPhoto(8, utcDate(2026, 11, 21, 18, 0, 2), 140);
  addCommented(5, utcDate(2026, 11, 22), "no photo");
  save();
  const auto photos =
      MoodPhotoExport::createPhotoURLFrom(store_, utcDate(2026, 11, 1), utcDate(2026, 11, 30));
  ASSERT_EQ(photos.size(), 2u);
  const auto first = photos.find("November 20, 2026 at 9:30:15\u202fAM.jpg");
  ASSERT_NE(first, photos.end());
  EXPECT_EQ(first->second, *imageStore_->imageURLForName(later->moodDescription()->photoName()));
  EXPECT_EQ(photos.count("November 21, 2026 at 6:00:02\u202fPM.jpg"), 1u);
}

TEST_F(ExportFlowTest, PhotosToAFolderCopyOnlyWhatIsNewOrChanged) {
  addPhoto(6, utcDate(2026, 11, 20, 9), 100);
  addPhoto(7, utcDate(2026, 11, 21, 9), 120);
  addPhoto(8, utcDate(2026, 11, 22, 9), 140);
  save();
  controller_->viewDidLoad();
  const auto folder = dir_ / "out" / "photos";

  auto first = exportPhotos(folder);
  EXPECT_EQ(first.sent.size(), 3u);
  EXPECT_THAT(first.skipped, IsEmpty());
  EXPECT_THAT(view_->results.back(), std::optional<bool>(true));

  const std::string a = "November 20, 2026 at 9:00:00\u202fAM.jpg";
  const std::string b = "November 21, 2026 at 9:00:00\u202fAM.jpg";
  const std::string c = "November 22, 2026 at 9:00:00\u202fAM.jpg";
  // b changed size there; c is there under another case; a stays.
  const std::string original = readFile(folder / b);
  writeFile(folder / b, original + "extra");
  std::string upper = c;
  for (auto& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  std::filesystem::rename(folder / c, folder / upper);

  auto second = exportPhotos(folder);
  EXPECT_THAT(second.sent, IsEmpty());
  EXPECT_THAT(second.replaced, ElementsAre(b));
  EXPECT_THAT(second.skipped, ElementsAre(a, c));
  EXPECT_EQ(readFile(folder / b), original);
  EXPECT_TRUE(std::filesystem::exists(folder / upper));

  // Everything there: nothing to do, and the user is told.
  presenter_->alerts.clear();
  auto third = exportPhotos(folder);
  EXPECT_THAT(third.sent, IsEmpty());
  EXPECT_THAT(third.replaced, IsEmpty());
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.title, "No photos to export");
}

TEST_F(ExportFlowTest, RangeWithoutPhotosSaysSoAndAFileInTheWayIsAnError) {
  addPhoto(6, utcDate(2026, 10, 20, 9), 100);
  addCommented(5, utcDate(2026, 11, 20, 9), "no photo");
  save();
  controller_->viewDidLoad();
  controller_->setDateFrom(utcDate(2026, 11, 1));
  auto result = exportPhotos(dir_ / "photos");
  EXPECT_THAT(result.sent, IsEmpty());
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.title, "No photos to export");

  controller_->setDateFrom(utcDate(2026, 10, 1));
  writeFile(dir_ / "taken", "a file");
  auto blocked = exportPhotos(dir_ / "taken");
  EXPECT_TRUE(blocked.error.has_value());
  EXPECT_THAT(blocked.sent, IsEmpty());
  EXPECT_EQ(readFile(dir_ / "taken"), "a file");
}

}  // namespace
}  // namespace lumeo::testing
