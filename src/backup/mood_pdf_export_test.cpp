// The report read back with poppler: its pages as pictures against goldens,
// its words in order, and the rules that fill and break pages.
#include "backup/mood_pdf_export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
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

// The images that pdfimages lists as JPEG data, leaving out the page bands
// (1224 pixels wide, also JPEG): the thumbnails.
long jpegImages(const std::string& list) {
  std::istringstream lines(list);
  std::string line;
  long count = 0;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string page, num, type, width, height, color, comp, bpc, enc;
    fields >> page >> num >> type >> width >> height >> color >> comp >> bpc >> enc;
    count += enc == "jpeg" && width != "1224";
  }
  return count;
}

// Pages as pictures: each page of the fixed journal's report, rendered by
// poppler at 36 dpi, against the checked-in PNGs.
void expectPagesMatchGoldens(const std::filesystem::path& pdf, const std::string& stem, int pages) {
  const std::filesystem::path prefix = pdf.parent_path() / "page";
  runTool("pdftoppm -r 36 -png " + quoted(pdf) + " " + quoted(prefix));
  for (int page = 1; page <= pages; ++page) {
    const std::filesystem::path png = prefix.string() + "-" + std::to_string(page) + ".png";
    auto read = Image::readFile(png);
    ASSERT_TRUE(std::holds_alternative<Image>(read)) << png;
    const Image& image = std::get<Image>(read);
    Canvas canvas(image.width(), image.height());
    canvas.drawImage(image,
                     Rect{0, 0, static_cast<double>(image.width()), static_cast<double>(image.height())});
    expectMatchesGolden(canvas, "pdf/" + stem + "-" + std::to_string(page) + ".png", 40, 0.01);
  }
}

TEST_F(ReportTest, FixedJournalMatchesGoldenPagesAndReadsInOrder) {
  fillFixedJournal();
  const auto pdf = writeReport(utcDate(2026, 11, 1), utcDate(2026, 11, 23, 23, 59, 59));
  const int pages = pageCount(pdf);
  ASSERT_EQ(pages, 9);
  expectPagesMatchGoldens(pdf, "report", pages);

  const std::string text = pageText(pdf);
  // The title page's period, then every record's date in order, each with
  // its level text, and the long comment's paragraphs, none lost or doubled.
  const auto pagesText = pageTexts(pdf);
  EXPECT_THAT(pagesText[0], HasSubstr("November 2, 2026"));
  EXPECT_THAT(pagesText[0], HasSubstr("\u2014"));
  EXPECT_THAT(pagesText[0], HasSubstr("November 16, 2026"));
  std::size_t at = 0;
  for (int day = 0; day < 14; ++day) {
    const std::string date = recordDate(utcDate(2026, 11, 2 + day, 8 + day % 10, 15));
    const std::size_t found = text.find(date, at);
    ASSERT_NE(found, std::string::npos) << date;
    at = found;
  }
  for (const char* level : {"Bad", "Good", "Meh", "Fantastic", "Fine", "Low", "Great"}) {
    EXPECT_THAT(text, HasSubstr(level));
  }
  EXPECT_THAT(text, HasSubstr("Long walk by the river with Anna"));
  std::size_t paragraph = 0;
  for (int i = 1; i <= 70; ++i) {
    const std::string start = "Paragraph " + std::to_string(i) + " of";
    const std::size_t found = text.find(start, paragraph);
    ASSERT_NE(found, std::string::npos) << start;
    EXPECT_EQ(text.find(start, found + 1), std::string::npos) << start << " twice";
    paragraph = found;
  }
  // The long record's header is repeated on each of its pages.
  const std::string longDate = recordDate(utcDate(2026, 11, 16, 21, 40));
  for (int page = 4; page <= 8; ++page) EXPECT_THAT(pagesText[page - 1], HasSubstr(longDate)) << page;
  // The summary: its three blocks and both tag tables.
  for (const char* words : {"Mood Trend", "Weekly Cycle", "Daily Cycle", "Top positive", "Top negative",
                            "#Cooking", "8.5", "#Coffee", "4.5", "Today"}) {
    EXPECT_THAT(pagesText[8], HasSubstr(words));
  }
  EXPECT_EQ(lastEmbedded_, 2u);
  EXPECT_EQ(lastSkipped_, 0u);
}

TEST_F(ReportTest, EmbedsItsFontsAndThumbnailsAsTheyAre) {
  fillFixedJournal();
  const auto pdf = writeReport(utcDate(2026, 11, 1), utcDate(2026, 11, 23, 23, 59, 59));
  // Every font is embedded: the second-to-last columns of pdffonts say "yes".
  const std::string fonts = runTool("pdffonts " + quoted(pdf));
  EXPECT_THAT(fonts, HasSubstr("TeXGyreHeros-Regular"));
  EXPECT_THAT(fonts, HasSubstr("TeXGyreHeros-Bold"));
  EXPECT_THAT(fonts, HasSubstr("Roboto-ThinItalic"));
  EXPECT_THAT(fonts, HasSubstr("Roboto-LightItalic"));
  std::istringstream lines(fonts);
  std::string line;
  int fontCount = 0;
  while (std::getline(lines, line)) {
    if (line.rfind("name", 0) == 0 || line.rfind("----", 0) == 0 || line.empty()) continue;
    ++fontCount;
    EXPECT_THAT(line, ::testing::ContainsRegex(" yes +(yes|no) +(yes|no) +[0-9]+ +[0-9]+$")) << line;
  }
  EXPECT_GT(fontCount, 3);
  // The thumbnails are the image store's JPEG files, byte for byte.
  const std::string document = readFile(pdf);
  int thumbnails = 0;
  for (const auto& record : store_.recordsSortedByDate()) {
    auto name = record->moodDescription()->thumbName();
    if (!name) continue;
    ++thumbnails;
    const std::string jpeg = readFile(*imageStore_->imageURLForName(name));
    ASSERT_FALSE(jpeg.empty());
    EXPECT_NE(document.find(jpeg), std::string::npos) << *name << " is not in the file as it is";
  }
  EXPECT_EQ(thumbnails, 2);
  EXPECT_EQ(jpegImages(runTool("pdfimages -list " + quoted(pdf))), 2);
}

// --- Pagination -------------------------------------------------------------

class PaginationTest : public PdfJournalTest {
 protected:
  static std::string lines(int from, int to) {
    std::string text;
    for (int i = from; i <= to; ++i) text += "Line " + std::to_string(i) + (i < to ? "\n" : "");
    return text;
  }
  // The most short lines whose record fills one record page.
  static int linesPerPage() {
    PdfTypesetter type;
    int n = 1;
    while (type.layout(lines(1, n + 1), PdfFont::comment(), L::kDescriptionWidth).height() +
               L::kRecordHeaderHeight <=
           L::kContentBottom - L::kContentTop) {
      ++n;
    }
    return n;
  }
  Date day(int d, int hour = 9) { return utcDate(2026, 10, d, hour); }
  std::filesystem::path report() {
    return writeReport(utcDate(2026, 10, 1), utcDate(2026, 10, 31, 23, 59, 59));
  }
};

TEST_F(PaginationTest, CommentThatFillsExactlyOnePageStaysOnIt) {
  const int n = linesPerPage();
  ASSERT_GT(n, 30);
  addCommented(7, day(3), lines(1, n));
  const auto pdf = report();
  ASSERT_EQ(pageCount(pdf), 3);
  const std::string page = pageText(pdf, 2);
  EXPECT_THAT(page, HasSubstr("Line 1\n"));
  EXPECT_THAT(page, HasSubstr("Line " + std::to_string(n)));
}

TEST_F(PaginationTest, OneLineMoreGoesOnWithTheHeaderRepeated) {
  const int n = linesPerPage();
  addCommented(7, day(3), lines(1, n + 1));
  const auto pdf = report();
  ASSERT_EQ(pageCount(pdf), 4);
  const std::string date = recordDate(day(3));
  EXPECT_THAT(pageText(pdf, 2), HasSubstr("Line " + std::to_string(n) + "\n"));
  EXPECT_THAT(pageText(pdf, 2), Not(HasSubstr("Line " + std::to_string(n + 1))));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr("Line " + std::to_string(n + 1)));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr(date));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr("Fine"));
}

TEST_F(PaginationTest, TwentyPageCommentLosesNoLine) {
  const int n = linesPerPage();
  addCommented(4, day(3), lines(1, 20 * n), Color(0.2, 0.5, 0.8, 1));
  const auto pdf = report();
  ASSERT_EQ(pageCount(pdf), 22);
  const auto pages = pageTexts(pdf);
  int next = 1;
  for (int page = 2; page <= 21; ++page) {
    const std::string& text = pages[page - 1];
    EXPECT_THAT(text, HasSubstr(recordDate(day(3)))) << page;
    // Each page continues exactly where the previous one stopped.
    EXPECT_THAT(text, HasSubstr("Line " + std::to_string(next) + "\n")) << page;
    while (text.find("Line " + std::to_string(next) + "\n") != std::string::npos ||
           (next == 20 * n && text.find("Line " + std::to_string(next)) != std::string::npos)) {
      ++next;
    }
  }
  EXPECT_EQ(next, 20 * n + 1);
  // Only the first piece carries the thumbnail.
  EXPECT_EQ(jpegImages(runTool("pdfimages -f 2 -l 2 -list " + quoted(pdf))), 1);
  EXPECT_EQ(jpegImages(runTool("pdfimages -f 3 -l 21 -list " + quoted(pdf))), 0);
}

TEST_F(PaginationTest, RecordWhoseHeaderWouldFallAtTheBottomMovesWhole) {
  const int n = linesPerPage();
  addCommented(6, day(3), lines(1, n - 2));
  // A photo with a short comment: the thumbnail decides the height.
  addCommented(8, day(4), "Picnic", Color(0.9, 0.6, 0.1, 1));
  // A long comment whose date line and first line would not fit either.
  addCommented(2, day(5), "First words of a long one.\n" + lines(1000, 1010));
  const auto pdf = report();
  ASSERT_EQ(pageCount(pdf), 4);
  EXPECT_THAT(pageText(pdf, 2), Not(HasSubstr(recordDate(day(4)))));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr(recordDate(day(4))));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr("Picnic"));
  // The third record fits below the picnic on page 3, whole.
  EXPECT_THAT(pageText(pdf, 3), HasSubstr("First words of a long one."));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr("Line 1010"));
}

TEST_F(PaginationTest, HeaderAndFirstLineThatDoNotFitStartANewPage) {
  const int n = linesPerPage();
  addCommented(6, day(3), lines(1, n - 2));
  addCommented(2, day(5), "First words of a long one.\n" + lines(1000, 1000 + n));
  const auto pdf = report();
  ASSERT_EQ(pageCount(pdf), 5);
  EXPECT_THAT(pageText(pdf, 2), Not(HasSubstr(recordDate(day(5)))));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr(recordDate(day(5))));
  EXPECT_THAT(pageText(pdf, 3), HasSubstr("First words of a long one."));
  EXPECT_THAT(pageText(pdf, 4), HasSubstr(recordDate(day(5))));
  EXPECT_THAT(pageText(pdf, 4), HasSubstr("Line " + std::to_string(1000 + n)));
}

TEST_F(PaginationTest, EmptyRangeHasTheTitleWithoutDatesOrDash) {
  addCommented(7, utcDate(2026, 9, 3, 9), "Outside the range");
  const auto pdf = report();
  ASSERT_EQ(pageCount(pdf), 3);
  const auto pages = pageTexts(pdf);
  EXPECT_THAT(pages[0], Not(HasSubstr("\u2014")));
  EXPECT_THAT(pages[0], Not(HasSubstr("2026")));
  EXPECT_THAT(pages[1], Not(HasSubstr("Outside the range")));
  EXPECT_THAT(pages[2], HasSubstr("Mood Trend"));
  EXPECT_THAT(pages[2], Not(HasSubstr("Today")));
}

TEST_F(PaginationTest, PageSplitsAddUpAndEndAtLines) {
  PdfTypesetter type;
  const std::string text = lines(1, 300);
  const auto pieces =
      MoodPDFExport::findPagesSplits(text, Size{L::kDescriptionWidth, 200}, PdfFont::comment());
  ASSERT_GT(pieces.size(), 5u);
  std::size_t total = 0;
  for (std::size_t piece : pieces) {
    std::string part = text.substr(total, piece);
    if (!part.empty() && part.back() == '\n') part.pop_back();
    EXPECT_LE(type.layout(part, PdfFont::comment(), L::kDescriptionWidth).height(), 200.0 + 1e-6);
    EXPECT_TRUE(part.rfind("Line ", 0) == 0) << part.substr(0, 20);
    total += piece;
  }
  EXPECT_EQ(total, text.size());
  EXPECT_TRUE(MoodPDFExport::findPagesSplits("", Size{300, 200}, PdfFont::comment()).empty());
  // A frame lower than one line: the first page gets nothing, the text
  // still comes out whole.
  const auto tiny = pageSplits(type.layout(text, PdfFont::comment(), 300), 3, 200);
  ASSERT_FALSE(tiny.empty());
  EXPECT_EQ(tiny.front(), 0u);
}

// --- Cancel ---------------------------------------------------------------------

TEST_F(PaginationTest, CancelAtAnyStageGivesNoDocument) {
  for (int d = 3; d < 6; ++d)
    addCommented(d + 2, day(d), "Entry " + std::to_string(d), Color(0.3, 0.3, 0.3, 1));
  save();
  int checks = 0;
  {
    MoodPDFExport exporter(store_);
    exporter.setCancelCheckObserver([&](int check) { checks = check; });
    EXPECT_FALSE(exporter.pdf({}, {}, utcDate(2026, 10, 1), utcDate(2026, 10, 31)).empty());
  }
  // After the fetch, after opening, before each of 3 records, and 4 on the
  // summary page.
  ASSERT_EQ(checks, 2 + 3 + 4);
  for (int stage = 1; stage <= checks; ++stage) {
    MoodPDFExport exporter(store_);
    exporter.setCancelCheckObserver([&](int check) {
      if (check == stage) exporter.cancel();
    });
    EXPECT_TRUE(exporter.pdf({}, {}, utcDate(2026, 10, 1), utcDate(2026, 10, 31)).empty()) << stage;
  }
}

TEST_F(PaginationTest, CancelIsConsumedByTheFirstCheckAndMayComeFromAnotherThread) {
  addCommented(5, day(3), "One");
  save();
  MoodPDFExport exporter(store_);
  std::thread other([&] { exporter.cancel(); });
  other.join();
  EXPECT_TRUE(exporter.shouldCancel());
  EXPECT_FALSE(exporter.shouldCancel());
  exporter.cancel();
  EXPECT_TRUE(exporter.pdf({}, {}, utcDate(2026, 10, 1), utcDate(2026, 10, 31)).empty());
  // That cancel was used up: the next export runs through.
  EXPECT_FALSE(exporter.pdf({}, {}, utcDate(2026, 10, 1), utcDate(2026, 10, 31)).empty());
}

// --- Bad input -------------------------------------------------------------------

TEST_F(PaginationTest, MissingOrBrokenThumbnailsLeaveTheRecordWithoutOne) {
  auto missing = addCommented(6, day(3), "Photo gone", Color(0.1, 0.4, 0.2, 1));
  std::filesystem::remove(*imageStore_->imageURLForName(missing->moodDescription()->thumbName()));
  auto png = addCommented(7, day(4), "Photo is a PNG", Color(0.1, 0.4, 0.2, 1));
  auto pngData = Image::filled(20, 20, Color(1, 0, 0, 1)).pngData();
  writeFile(*imageStore_->imageURLForName(png->moodDescription()->thumbName()),
            std::string(std::get<0>(pngData).begin(), std::get<0>(pngData).end()));
  auto truncated = addCommented(8, day(5), "Photo cut short", Color(0.1, 0.4, 0.2, 1));
  const auto file = *imageStore_->imageURLForName(truncated->moodDescription()->thumbName());
  writeFile(file, readFile(file).substr(0, 200));
  addCommented(9, day(6), "Photo fine", Color(0.1, 0.4, 0.2, 1));
  const auto pdf = report();
  EXPECT_EQ(lastSkipped_, 3u);
  EXPECT_EQ(lastEmbedded_, 1u);
  const std::string text = pageText(pdf);
  for (const char* words : {"Photo gone", "Photo is a PNG", "Photo cut short", "Photo fine"}) {
    EXPECT_THAT(text, HasSubstr(words));
  }
  // Only the good thumbnail is in the file (besides the resource images).
  EXPECT_EQ(jpegImages(runTool("pdfimages -list " + quoted(pdf))), 1);
}

TEST_F(PaginationTest, InvalidUtf8AndAHugeCommentArePrintedWhole) {
  addCommented(5, day(3), std::string("Before \xff\xfe bytes after"));
  std::string huge;
  huge.reserve(1 << 20);
  int sentences = 0;
  while (huge.size() < (1 << 20)) huge += "Sentence " + std::to_string(++sentences) + " of a very long day. ";
  addCommented(6, day(4), huge);
  const auto pdf = report();
  const int pages = pageCount(pdf);
  EXPECT_GT(pages, 500);
  // The start, and the end on the last record page (the summary follows).
  std::string text =
      pageText(pdf, 2) + pageText(pdf, 3) + pageText(pdf, pages - 2) + pageText(pdf, pages - 1);
  std::replace(text.begin(), text.end(), '\n', ' ');
  EXPECT_THAT(text, HasSubstr("Before \ufffd\ufffd bytes after"));
  EXPECT_THAT(text, HasSubstr("Sentence 1 of"));
  EXPECT_THAT(text, HasSubstr("Sentence " + std::to_string(sentences) + " of a very long day."));
}

// --- Top tags ---------------------------------------------------------------------

TEST_F(ReportTest, TopTagsQualifyByRangeAverageOverAllAndKeepEight) {
  auto tagged = [&](long level, Date date, const std::vector<std::string>& names) {
    auto record = addCommented(level, date, "");
    for (const auto& name : names) {
      auto tag = store_.tagWithExactName(name);
      if (!tag) {
        tag = store_.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
        tag->setTagName(name);
      }
      record->addMoodTagsObject(tag);
    }
  };
  // Nine positive tags; "rare" has the best average but the least weight.
  for (int i = 0; i < 8; ++i) {
    for (int k = 0; k <= i + 1; ++k) tagged(8 + i % 2, utcDate(2026, 11, 2 + k), {"p" + std::to_string(i)});
  }
  tagged(10, utcDate(2026, 11, 3), {"rare"});
  tagged(5, utcDate(2026, 11, 3), {"even"});  // exactly 5: negative
  tagged(2, utcDate(2026, 10, 3), {"before"});
  // A record outside the range counts in the average of a tag that qualifies.
  tagged(1, utcDate(2026, 10, 3), {"p7"});
  save();
  const Date from = utcDate(2026, 11, 1);
  const Date to = utcDate(2026, 11, 30);
  const auto positive = MoodPDFExport::tagArray(false, store_, from, to);
  ASSERT_EQ(positive.size(), 8u);
  for (const auto& tag : positive) EXPECT_NE(tag.tagName, "rare");
  for (std::size_t i = 1; i < positive.size(); ++i)
    EXPECT_GE(positive[i - 1].average(), positive[i].average());
  const auto p7 =
      std::find_if(positive.begin(), positive.end(), [](const RankedTag& t) { return t.tagName == "p7"; });
  ASSERT_NE(p7, positive.end());
  EXPECT_EQ(p7->frequency, 10);
  const auto negative = MoodPDFExport::tagArray(true, store_, from, to);
  ASSERT_EQ(negative.size(), 1u);
  EXPECT_EQ(negative[0].tagName, "even");
}

}  // namespace
}  // namespace lumeo::testing
