// The export screen: a date range and three exports of it, the PDF report,
// the CSV table and the photos. The controller holds the range with its
// defaults and clamping, the reuse of a finished report, the files in the
// documents folder, the busy state with its indicator and cancel. It never
// draws: a front end shows it through the view delegate and offers the
// finished file through its share actions (on Linux: save to a path, open
// with the default application, e-mail as an attachment).
//
// The photos go to a folder the user picks: only photos that are new there
// or whose size changed are copied. Main thread only; the work runs on the
// main queue after a short delay that lets the indicator appear, as the
// screen always did.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/mood_photo_export.h"
#include "platform/date.h"
#include "platform/error.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;
class MoodPDFExport;
class UserDefaults;

inline constexpr char kMoodExportPDFFileName[] = "mood.pdf";
// The rows, by index; row 2 is a spacer without action.
enum MoodExportRow : int {
  kMoodExportRowFrom = 0,
  kMoodExportRowTo = 1,
  kMoodExportRowPDF = 3,
  kMoodExportRowCSV = 4,
  kMoodExportRowPhotos = 5,
};

// What a photo export did, for the front end to report.
struct PhotoExportResult {
  std::vector<std::string> sent;
  std::vector<std::string> skipped;   // already there with the same size
  std::vector<std::string> replaced;  // there with another size, sent anew
  std::optional<Error> error;         // the first failure; the rest was not tried
  bool cancelled = false;
};

class MoodExportViewDelegate {
 public:
  virtual ~MoodExportViewDelegate() = default;
  // The busy indicator with its text ("Create...", "Preparing...",
  // "Exporting...", "Cancelling..."); `cancellable` shows a cancel button.
  virtual void showIndicator(const std::string& text, bool cancellable) = 0;
  // Work done in `fraction` (0..1) of the current export.
  virtual void progress(double fraction) { (void)fraction; }
  // Hides the indicator; with a result, first shows "Completed" with a
  // check (true) or a cross (false).
  virtual void hideIndicator(std::optional<bool> result) = 0;
  // The finished file, for the share actions.
  virtual void share(const std::filesystem::path& url) = 0;
  // Keep the screen from sleeping while work runs.
  virtual void setIdleTimerDisabled(bool disabled) { (void)disabled; }
  // The "Export photos" row: the front end asks for a folder and calls
  // doExportPhotos with it.
  virtual void choosePhotoFolder() {}
};

class MoodExportViewController : public MoodViewController {
 public:
  MoodExportViewController(JournalStore& store, std::filesystem::path documentsDirectory,
                           std::shared_ptr<UserDefaults> defaults = nullptr);
  ~MoodExportViewController() override;

  void setDelegate(std::weak_ptr<MoodExportViewDelegate> delegate) { delegate_ = std::move(delegate); }

  // Sets the range's defaults unless a value is there: From the first
  // record's day at midnight (today without records), To the last second of
  // today.
  void viewDidLoad();

  std::optional<Date> dateFrom() const { return dateFrom_; }
  std::optional<Date> dateTo() const { return dateTo_; }
  // As the picker clamps: To never lies after the last second of today,
  // From never after To's day, To never before From. A From after To
  // moves To to the end of From's day.
  void setDateFrom(Date date);
  void setDateTo(Date date);
  void adjustDatePicker();

  // The rows' titles by index ("" for the spacer) and their action.
  static std::vector<std::string> rowTitles();
  void didSelectRowAtIndex(int row);

  // --- Exports ---------------------------------------------------------
  // The report of the range into "mood.pdf" in the documents folder,
  // reusing the file when the last report had the same range and nothing
  // was saved since; then share. Runs on the main queue.
  void doExportToPDF();
  // The CSV into "mood_<today, medium style>.csv"; then share.
  void doExportToCSV();
  // The photos of the range into `folder` (made if missing), copying only
  // new or changed ones; "No photos to export" when there are none.
  // `completion` gets what was done.
  void doExportPhotos(const std::filesystem::path& folder,
                      std::function<void(const PhotoExportResult&)> completion);
  // Stops the running export: a report in the making is dropped, the photo
  // copy stops after the file in hand.
  void cancelClick();

  bool isBusy() const { return busy_; }
  bool isCanceled() const { return isCanceled_; }
  const std::optional<std::filesystem::path>& url() const { return url_; }
  std::filesystem::path pdfURL() const;
  std::filesystem::path csvURL() const;
  // Why the last export failed, if it did.
  const std::optional<Error>& lastError() const { return lastError_; }

 private:
  std::shared_ptr<MoodExportViewDelegate> delegate() const { return delegate_.lock(); }
  void finish(std::optional<bool> result, bool shareURL);
  void readBackCSV(int attempt);

  JournalStore& store_;
  std::filesystem::path documents_;
  std::shared_ptr<UserDefaults> defaults_;
  std::weak_ptr<MoodExportViewDelegate> delegate_;
  std::optional<Date> dateFrom_;
  std::optional<Date> dateTo_;
  std::optional<std::filesystem::path> url_;
  std::shared_ptr<MoodPDFExport> moodPDF_;
  bool isPhotoExport_ = false;
  bool isCanceled_ = false;
  bool busy_ = false;
  std::optional<Error> lastError_;
  std::vector<ScopedObserver> observers_;
};

}  // namespace lumeo
