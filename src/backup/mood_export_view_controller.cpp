// The export screen's range, its three exports and their busy state.
#include "backup/mood_export_view_controller.h"

#include <algorithm>

#include "backup/mood_csv_export.h"
#include "backup/mood_pdf_export.h"
#include "platform/atomic_file.h"
#include "platform/clock.h"
#include "platform/date_formatter.h"
#include "platform/dispatch_queue.h"
#include "platform/file_system.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "store/date_all.h"
#include "store/journal_store.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

namespace {

constexpr double kLastSecondOfDay = 86399;
// The indicator gets this long to appear before the work blocks the loop.
constexpr double kIndicatorDelay = 0.2;
// How long the CSV export waits for its file to become readable.
constexpr int kCSVReadRetries = 300;
constexpr double kCSVReadRetryInterval = 0.1;

Date endOfToday() {
  return onlyDate(Date::now()).dateByAddingTimeInterval(kLastSecondOfDay);
}

}  // namespace

MoodExportViewController::MoodExportViewController(JournalStore& store,
                                                   std::filesystem::path documentsDirectory,
                                                   std::shared_ptr<UserDefaults> defaults)
    : MoodViewController("MoodExportViewController"),
      store_(store),
      documents_(std::move(documentsDirectory)),
      defaults_(defaults ? std::move(defaults) : UserDefaults::standard()) {
  // Leaving the application stops an export, as the cancel button does.
  observers_.emplace_back(NotificationCenter::defaultCenter(), MoodBackgroundEndedNotification, nullptr,
                          [this](const Notification&) {
                            if (busy_) cancelClick();
                          });
}

MoodExportViewController::~MoodExportViewController() = default;

void MoodExportViewController::viewDidLoad() {
  if (!dateFrom_) dateFrom_ = onlyDate(store_.getFirstDate().value_or(Date::now()));
  if (!dateTo_) dateTo_ = endOfToday();
  adjustDatePicker();
}

void MoodExportViewController::setDateFrom(Date date) {
  dateFrom_ = onlyDate(std::min(date, endOfToday()));
  adjustDatePicker();
}

void MoodExportViewController::setDateTo(Date date) {
  dateTo_ = onlyDate(std::min(date, endOfToday())).dateByAddingTimeInterval(kLastSecondOfDay);
  if (dateFrom_ && *dateTo_ < *dateFrom_) dateFrom_ = onlyDate(*dateTo_);
  adjustDatePicker();
}

void MoodExportViewController::adjustDatePicker() {
  if (dateFrom_ && dateTo_ && *dateTo_ < *dateFrom_) {
    dateTo_ = onlyDate(*dateFrom_).dateByAddingTimeInterval(kLastSecondOfDay);
  }
}

std::vector<std::string> MoodExportViewController::rowTitles() {
  return {localized("From"),          localized("To"),           "", localized("Export to PDF"),
          localized("Export to CSV"), localized("Export photos")};
}

void MoodExportViewController::didSelectRowAtIndex(int row) {
  switch (row) {
    case kMoodExportRowPDF:
      doExportToPDF();
      break;
    case kMoodExportRowCSV:
      doExportToCSV();
      break;
    case kMoodExportRowPhotos:
      if (auto d = delegate()) d->choosePhotoFolder();
      break;
    default:
      break;
  }
}

std::filesystem::path MoodExportViewController::pdfURL() const {
  return documents_ / kMoodExportPDFFileName;
}

std::filesystem::path MoodExportViewController::csvURL() const {
  std::string day = DateFormatter::localizedStringFromDate(Date::now(), DateFormatter::Style::kMedium,
                                                           DateFormatter::Style::kNone);
  std::replace(day.begin(), day.end(), '/', '-');
  return documents_ / ("mood_" + day + ".csv");
}

void MoodExportViewController::finish(std::optional<bool> result, bool shareURL) {
  if (auto d = delegate()) d->hideIndicator(result);
  auto done = guardedHandler([this, shareURL](int) {
    busy_ = false;
    if (auto d = delegate()) {
      d->setIdleTimerDisabled(false);
      if (shareURL && url_) d->share(*url_);
    }
  });
  after(kIndicatorDelay, [done] { done(0); });
}

void MoodExportViewController::doExportToPDF() {
  if (busy_ || !dateFrom_ || !dateTo_) return;
  const Date from = *dateFrom_;
  const Date to = *dateTo_;
  auto positive = MoodPDFExport::tagArray(false, store_, from, to);
  auto negative = MoodPDFExport::tagArray(true, store_, from, to);
  busy_ = true;
  isCanceled_ = false;
  lastError_.reset();
  if (auto d = delegate()) {
    d->setIdleTimerDisabled(true);
    d->showIndicator(localized("Create..."), true);
  }
  auto work = guardedHandler([this, positive, negative, from, to](int) {
    moodPDF_ = std::make_shared<MoodPDFExport>(store_);
    moodPDF_->setProgressHandler([this](std::size_t done, std::size_t total) {
      if (auto d = delegate())
        d->progress(total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total));
    });
    url_ = pdfURL();
    bool result = false;
    const bool reusable = defaults_->boolForKey(kCreatedPDF) && defaults_->dateForKey(kExportFrom) == from &&
                          defaults_->dateForKey(kExportTo) == to && FileSystem::current()->exists(*url_);
    if (reusable) {
      result = true;
    } else {
      const std::vector<std::uint8_t> data = moodPDF_->pdf(positive, negative, from, to);
      if (!data.empty()) {
        if (auto error = FileSystem::current()->makeFolders(documents_, kPrivateFolderMode)) {
          lastError_ = *error;
        } else if (auto error = writeFileAtomically(*url_, data, FileAccess::kUserDefault)) {
          lastError_ = *error;
        } else {
          result = true;
          LUMEO_DROP_ERROR(defaults_->setBool(kCreatedPDF, true));
          LUMEO_DROP_ERROR(defaults_->setDate(kExportFrom, from));
          LUMEO_DROP_ERROR(defaults_->setDate(kExportTo, to));
          defaults_->synchronize();
        }
      }
    }
    moodPDF_.reset();
    if (!result) LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kCreatedPDF));
    finish(lastError_ ? std::optional<bool>(false) : std::nullopt, result);
  });
  after(kIndicatorDelay, [work] { work(0); });
}

void MoodExportViewController::doExportToCSV() {
  if (busy_ || !dateFrom_ || !dateTo_) return;
  const Date from = *dateFrom_;
  const Date to = *dateTo_;
  busy_ = true;
  isCanceled_ = false;
  lastError_.reset();
  if (auto d = delegate()) {
    d->setIdleTimerDisabled(true);
    d->showIndicator(localized("Create..."), false);
  }
  auto work = guardedHandler([this, from, to](int) {
    url_ = csvURL();
    auto text = MoodCSVExport::csvText(store_.storeURL(), from, to);
    if (auto* error = std::get_if<Error>(&text)) {
      lastError_ = *error;
    } else if (auto error = FileSystem::current()->makeFolders(documents_, kPrivateFolderMode)) {
      lastError_ = *error;
    } else if (auto error =
                   writeFileAtomically(*url_, std::get<std::string>(text), FileAccess::kUserDefault)) {
      lastError_ = *error;
    }
    if (lastError_) {
      finish(false, false);
      return;
    }
    readBackCSV(0);
  });
  after(kIndicatorDelay, [work] { work(0); });
}

// The file is read back before it is offered; a slow disk gets up to 30
// seconds.
void MoodExportViewController::readBackCSV(int attempt) {
  if (std::holds_alternative<std::vector<std::uint8_t>>(readFileBytes(*url_))) {
    finish(std::nullopt, true);
  } else if (attempt + 1 >= kCSVReadRetries) {
    lastError_ = Error(kFileErrorDomain, kFileReadFailed, "the CSV file did not become readable");
    finish(false, false);
  } else {
    auto next = guardedHandler([this](int next) { readBackCSV(next); });
    after(kCSVReadRetryInterval, [next, attempt] { next(attempt + 1); });
  }
}

void MoodExportViewController::doExportPhotos(const std::filesystem::path& folder,
                                              std::function<void(const PhotoExportResult&)> completion) {
  if (busy_ || !dateFrom_ || !dateTo_) return;
  busy_ = true;
  isPhotoExport_ = true;
  isCanceled_ = false;
  lastError_.reset();
  if (auto d = delegate()) d->showIndicator(localized("Preparing..."), true);

  auto result = std::make_shared<PhotoExportResult>();
  auto end = [this, result, completion](std::optional<bool> outcome) {
    lastError_ = result->error;
    result->cancelled = isCanceled_;
    if (!isCanceled_) {
      if (auto d = delegate()) d->hideIndicator(outcome);
    }
    isCanceled_ = false;
    isPhotoExport_ = false;
    busy_ = false;
    if (completion) completion(*result);
  };

  auto fs = FileSystem::current();
  if (auto error = fs->makeFolders(folder, 0777 & ~currentUmask())) {
    result->error = *error;
    end(false);
    return;
  }
  auto listing = MoodPhotoExport::listFolder(folder);
  if (auto* error = std::get_if<Error>(&listing)) {
    result->error = *error;
    end(false);
    return;
  }
  const auto local = MoodPhotoExport::createPhotoURLFrom(store_, *dateFrom_, *dateTo_);
  const PhotoComparison comparison = MoodPhotoExport::comparePhotos(
      std::get<std::vector<PhotoEntry>>(listing), local,
      [&fs](const std::filesystem::path& file) -> std::optional<std::uintmax_t> {
        auto status = fs->status(file);
        if (auto* st = std::get_if<FileStatus>(&status)) return st->size;
        return std::nullopt;
      });
  result->skipped = comparison.unchanged;
  if (comparison.toSend.empty()) {
    if (auto d = delegate()) d->hideIndicator(std::nullopt);
    showAlert(localized("No photos to export"), "", localized("OK"));
    end(std::nullopt);
    return;
  }
  if (auto d = delegate()) d->showIndicator(localized("Exporting..."), true);
  std::map<std::string, std::vector<std::string>> stale;  // lower-case name → entries to remove
  for (const std::string& name : comparison.toDelete) stale[photoNameKey(name)].push_back(name);
  const std::size_t total = comparison.toSend.size();
  for (std::size_t i = 0; i < total; ++i) {
    if (auto d = delegate()) d->progress(static_cast<double>(i) / static_cast<double>(total));
    if (isCanceled_) break;
    const auto& [name, file] = comparison.toSend[i];
    auto bytes = readFileBytes(file);
    if (auto* error = std::get_if<Error>(&bytes)) {
      result->error = *error;
      break;
    }
    // The new copy lands whole under its name first; only then does an
    // older copy under another spelling of the name go.
    if (auto error = writeFileAtomically(folder / name, std::get<std::vector<std::uint8_t>>(bytes),
                                         FileAccess::kUserDefault)) {
      result->error = *error;
      break;
    }
    auto old = stale.find(photoNameKey(name));
    if (old != stale.end()) {
      for (const std::string& entry : old->second) {
        if (entry != name) LUMEO_DROP_ERROR(fs->removeFile(folder / entry));
      }
      result->replaced.push_back(name);
    } else {
      result->sent.push_back(name);
    }
  }
  if (auto d = delegate()) d->progress(1.0);
  end(!result->error);
}

void MoodExportViewController::cancelClick() {
  isCanceled_ = true;
  if (auto d = delegate()) {
    d->showIndicator(localized("Cancelling..."), false);
    d->setIdleTimerDisabled(false);
  }
  if (moodPDF_) moodPDF_->cancel();
}

}  // namespace lumeo
