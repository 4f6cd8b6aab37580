// A journal in a temporary folder with an image store, for the report's and
// the export flow's tests, and the poppler tools that read a report back:
// pdftotext for its words, pdftoppm for its pages, pdfinfo for its size.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "backup/mood_pdf_export.h"
#include "insight/summary_test_support.h"
#include "platform/atomic_file.h"
#include "platform/date_formatter.h"
#include "platform/image.h"
#include "shell/resources_location.h"
#include "store/image_store.h"

namespace lumeo::testing {

// Runs a shell command and returns what it printed; the test fails when it
// exits with an error.
inline std::string runTool(const std::string& command) {
  std::string out;
  FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
  if (!pipe) {
    ADD_FAILURE() << "cannot run " << command;
    return out;
  }
  char buffer[65536];
  std::size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  const int status = pclose(pipe);
  EXPECT_EQ(status, 0) << command;
  return out;
}

inline std::string quoted(const std::filesystem::path& path) {
  return "'" + path.string() + "'";
}

class PdfJournalTest : public JournalTest {
 protected:
  PdfJournalTest() {
    imageStore_ = std::make_shared<ImageStore>(dir_ / "Library");
    ImageStore::setShared(imageStore_);
    setResourcesDirectory(sourceDirectory() / "resources");
  }
  ~PdfJournalTest() override {
    ImageStore::setShared(nullptr);
    setResourcesDirectory({});
  }

  static std::filesystem::path sourceDirectory() {
    const char* dir = std::getenv("LUMEO_SOURCE_DIR");
    return dir ? std::filesystem::path(dir) : std::filesystem::path(".");
  }

  // A record with a comment and, with `thumbColor`, a thumbnail of that colour.
  std::shared_ptr<MoodRecord> addCommented(long level, Date date, const std::string& comment,
                                           std::optional<Color> thumbColor = std::nullopt) {
    auto record = store_.insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(date);
    record->moodDescription()->setComment(comment);
    if (thumbColor) {
      auto name = imageStore_->writeNewImage(Image::filled(264, 264, *thumbColor));
      EXPECT_TRUE(std::holds_alternative<std::string>(name));
      if (auto* n = std::get_if<std::string>(&name)) record->moodDescription()->setThumbName(*n);
    }
    return record;
  }

  // The report of the range written to a file; the test fails on empty data.
  std::filesystem::path writeReport(Date from, Date to, const std::string& name = "report.pdf") {
    save();
    MoodPDFExport exporter(store_);
    auto data = exporter.pdf(MoodPDFExport::tagArray(false, store_, from, to),
                             MoodPDFExport::tagArray(true, store_, from, to), from, to);
    lastEmbedded_ = exporter.embeddedPhotoCount();
    lastSkipped_ = exporter.skippedPhotoCount();
    EXPECT_FALSE(data.empty());
    const auto path = dir_ / name;
    EXPECT_FALSE(writeFileAtomically(path, data).has_value());
    return path;
  }

  static int pageCount(const std::filesystem::path& pdf) {
    const std::string info = runTool("pdfinfo " + quoted(pdf));
    const auto at = info.find("Pages:");
    return at == std::string::npos ? -1 : std::stoi(info.substr(at + 6));
  }
  // The words of one page (1-based), or of all pages.
  static std::string pageText(const std::filesystem::path& pdf, int page = 0) {
    const std::string range = page > 0 ? " -f " + std::to_string(page) + " -l " + std::to_string(page) : "";
    return runTool("pdftotext" + range + " " + quoted(pdf) + " -");
  }
  // Page texts split at form feeds, one element a page.
  static std::vector<std::string> pageTexts(const std::filesystem::path& pdf) {
    std::vector<std::string> pages;
    std::string all = pageText(pdf);
    std::size_t start = 0;
    for (std::size_t at = all.find('\f'); at != std::string::npos; at = all.find('\f', start)) {
      pages.push_back(all.substr(start, at - start));
      start = at + 1;
    }
    return pages;
  }

  static std::string recordDate(Date date) {
    DateFormatter formatter;
    formatter.setDateStyle(DateFormatter::Style::kLong);
    formatter.setTimeStyle(DateFormatter::Style::kShort);
    // pdftotext gives the narrow space before "AM" as a plain one.
    std::string text = formatter.stringFromDate(date);
    for (std::size_t at = text.find("\u202f"); at != std::string::npos; at = text.find("\u202f")) {
      text.replace(at, 3, " ");
    }
    return text;
  }

  std::shared_ptr<ImageStore> imageStore_;
  std::size_t lastEmbedded_ = 0;
  std::size_t lastSkipped_ = 0;
};

}  // namespace lumeo::testing
