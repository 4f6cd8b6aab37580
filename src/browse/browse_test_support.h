// A journal for the browsing tests: a real store in a temporary folder, UTC
// and US English, virtual time at Sunday 22 November 2026, 12:00, and
// helpers that add records with comments, tags and photos.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "browse/mood_history_view_controller.h"
#include "capture/mood_record_state.h"
#include "platform/clock.h"
#include "platform/user_defaults.h"
#include "store/date_all.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo::testing {

class BrowseTest : public ::testing::Test {
 protected:
  BrowseTest()
      : env_(
            {{"TZ", "UTC"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}, {"LUMEO_FIRST_WEEKDAY", "1"}}),
        clock_(at(2026, 11, 22, 12, 0)),
        defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())) {
    previousDefaults_ = UserDefaults::standard();
    UserDefaults::setStandard(defaults_);
    images_ = std::make_shared<ImageStore>(dir_ / "Library");
    previousImages_ = ImageStore::shared();
    ImageStore::setShared(images_);
    store_ = std::make_unique<JournalStore>(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"},
                                            defaults_);
  }
  ~BrowseTest() override {
    screens_.clear();
    store_.reset();
    ImageStore::setShared(previousImages_);
    UserDefaults::setStandard(previousDefaults_);
  }

  static Date at(int year, int month, int day, int hour = 0, int minute = 0) {
    return Date::fromTimeIntervalSince1970(0).dateByAddingTimeInterval(
        static_cast<double>(daysFromCivil(year, month, day)) * 86400 + hour * 3600 + minute * 60);
  }
  // Days since 1970-01-01 of a proleptic Gregorian date (UTC tests only).
  static long daysFromCivil(long y, long m, long d) {
    y -= m <= 2;
    long era = (y >= 0 ? y : y - 399) / 400;
    long yoe = y - era * 400;
    long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
  }

  // A saved record; hashtags in the comment become tags.
  std::shared_ptr<MoodRecord> add(long level, Date when, const std::string& comment = "",
                                  bool photo = false) {
    auto record = store_->insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(when);
    auto description = record->moodDescription();
    if (!comment.empty()) {
      description->setComment(comment);
      MoodRecordState::applyCommentTags(*store_, record, comment);
    }
    if (photo) {
      auto photoName = images_->writeNewImage(Image::filled(64, 48, Color::fromRGB255(40, 120, 200)));
      auto thumbName = images_->writeNewImage(Image::filled(16, 16, Color::fromRGB255(40, 120, 200)));
      description->setPhotoName(std::get<std::string>(photoName));
      description->setThumbName(std::get<std::string>(thumbName));
    }
    store_->saveContext();
    return record;
  }

  MoodHistoryEnvironment environment() {
    MoodHistoryEnvironment env;
    env.store = store_.get();
    env.defaults = defaults_;
    env.showCaptureTab = [this] { ++captureShown_; };
    env.chooseActionForRecord = [this](const std::shared_ptr<MoodRecord>& record, int kind) {
      chosen_.emplace_back(record, kind);
    };
    return env;
  }

  // A history screen with its view loaded, as the tab shows it.
  template <class T = MoodHistoryViewController, class... Args>
  std::shared_ptr<T> screen(Args&&... args) {
    auto s = std::make_shared<T>(std::forward<Args>(args)..., environment());
    s->viewDidLoad();
    s->viewWillAppear();
    screens_.push_back(s);
    return s;
  }

  std::size_t imageFiles() const {
    std::size_t n = 0;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(images_->imagesURL(), ec)) {
      (void)entry;
      ++n;
    }
    return n;
  }

  ScopedEnvironment env_;
  ScopedSimulatedClock clock_;
  TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<UserDefaults> previousDefaults_;
  std::shared_ptr<ImageStore> images_;
  std::shared_ptr<ImageStore> previousImages_;
  std::unique_ptr<JournalStore> store_;
  int captureShown_ = 0;
  std::vector<std::pair<std::shared_ptr<MoodRecord>, int>> chosen_;
  std::vector<std::shared_ptr<Screen>> screens_;
};

}  // namespace lumeo::testing
