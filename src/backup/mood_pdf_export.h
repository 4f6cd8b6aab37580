// The PDF report of a date range: a title page with the range, record
// pages (each record's date, level and comment, with its thumbnail) and a
// summary page with the three charts and the top tags of both sides. Pages
// are US Letter, 612 × 792 points, drawn with cairo's PDF surface; the
// fonts are embedded, so the file looks the same everywhere.
//
// A comment taller than what is left of a page starts there and goes on
// over as many pages as it needs; every piece repeats the record's date and
// level block, only the first carries the thumbnail. Thumbnails go into the
// file as the JPEG data stored in the image store, never re-encoded; a
// thumbnail that is missing or not a JPEG leaves the record without one.
//
// The export runs on one thread; cancel() may be called from any other. A
// cancelled export gives empty data, never a short document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "insight/mood_top_tags_view_controller.h"
#include "platform/canvas.h"
#include "platform/date.h"
#include "platform/image.h"

namespace lumeo {

class JournalStore;
class ManagedObjectContext;
class MoodRecord;
class MoodTag;
class PdfTypesetter;
struct PdfFont;

// The report's page geometry, in points, y growing downwards.
struct MoodPDFLayout {
  static constexpr double kPageWidth = 612;
  static constexpr double kPageHeight = 792;
  static constexpr double kHeaderHeight = 83;
  // Where the first record of a page starts, just below the header band.
  static constexpr double kContentTop = 85;
  // Records end above the page's foot margin of 103 points.
  static constexpr double kContentBottom = kPageHeight - 103;
  // A record piece that ends at or below this starts a new page for the next.
  static constexpr double kNewPageLimit = 692;
  // The most a comment may take on one page: the whole content height.
  static constexpr double kMaxCommentHeight = 604;
  // The date line above a comment.
  static constexpr double kRecordHeaderHeight = 35;
  static constexpr double kThumbSize = 89;
  static constexpr double kThumbCornerRadius = 4;
  // Space taken by the rule between two records, and the rule's place in it.
  static constexpr double kSeparatorBlock = 30;
  static constexpr double kSeparatorOffset = 14;
  static constexpr double kContentX = 50;
  static constexpr double kContentWidth = 512;
  // The columns of a record: thumbnail, level block, date and comment.
  static constexpr double kLevelX = kContentX + 110;
  static constexpr double kLevelWidth = 80;
  static constexpr double kLevelNumberHeight = 34;
  static constexpr double kLevelTextHeight = 14;
  static constexpr double kDescriptionX = 250;
  static constexpr double kDescriptionWidth = kContentX + kContentWidth - kDescriptionX;
};

// Resource images of the report at twice their size in points: the bands
// as JPEG files embedded as they are ("title7@2x.jpg"), the icon as PNG
// ("icon7@2x.png"). Each is shared by every page that shows it, so that it
// is in the file once.
struct MoodPDFImage {
  std::shared_ptr<cairo_surface_t> surface;  // null when the file is missing or unreadable
  Size size;                                 // in points
};
struct MoodPDFImages {
  MoodPDFImage title;            // "title7": the title page's band
  MoodPDFImage titleRecords;     // "titleRecords7": the record pages' header
  MoodPDFImage titleSummary;     // "titleSummary7": the summary page's header
  MoodPDFImage icon;             // "icon7"
  MoodPDFImage summaryGradient;  // "moodSummaryGradient": only its size, the charts' size
  // From resourcesDirectory()/pdf. An image that cannot be read is left
  // out of the pages; the charts then take 312 × 125 points.
  static MoodPDFImages load();
};

class MoodPDFExport {
 public:
  explicit MoodPDFExport(JournalStore& store);
  ~MoodPDFExport();
  MoodPDFExport(const MoodPDFExport&) = delete;
  MoodPDFExport& operator=(const MoodPDFExport&) = delete;

  // The whole document for the records from `from` to `to` (inclusive), or
  // empty data when the store has no file or the export was cancelled.
  std::vector<std::uint8_t> pdf(const std::vector<RankedTag>& positive,
                                const std::vector<RankedTag>& negative, Date from, Date to);

  // Sets the cancel flag; any thread.
  void cancel();
  // Returns the flag and clears it: a cancel is consumed by the first check.
  bool shouldCancel();

  // A fresh context on the journal's coordinator, or null without a store.
  std::shared_ptr<ManagedObjectContext> moc();

  // The top tags of one side for the report: tags used in the range (their
  // averages are over all their records), at most 8, by average.
  static std::vector<RankedTag> tagArray(bool negative, JournalStore& store, Date from, Date to);
  static std::vector<RankedTag> filterTagsByAverage(const std::vector<RankedTag>& tags, bool negativeFilter);

  // How a comment breaks into pages of `size` (the comment column's width
  // and the height free for text): the byte length of each page's piece.
  static std::vector<std::size_t> findPagesSplits(const std::string& text, Size size, const PdfFont& font);

  // Called before each record with the records done and their number, and
  // once more with both equal before the summary page; a handler may
  // cancel.
  void setProgressHandler(std::function<void(std::size_t done, std::size_t total)> handler) {
    progressHandler_ = std::move(handler);
  }

  // Test hook: called at each cancel check with its running number (1 is
  // the one after the fetch), so that a test can cancel at every stage.
  void setCancelCheckObserver(std::function<void(int check)> observer) {
    cancelCheckObserver_ = std::move(observer);
  }

  // Photos drawn into the last document and photos left out because their
  // file was missing or not a JPEG.
  std::size_t embeddedPhotoCount() const { return embeddedPhotos_; }
  std::size_t skippedPhotoCount() const { return skippedPhotos_; }

 private:
  class Writer;
  bool checkCancel();

  JournalStore& store_;
  std::mutex lock_;
  bool cancelled_ = false;
  int cancelChecks_ = 0;
  std::function<void(int)> cancelCheckObserver_;
  std::function<void(std::size_t, std::size_t)> progressHandler_;
  std::size_t embeddedPhotos_ = 0;
  std::size_t skippedPhotos_ = 0;
};

}  // namespace lumeo
