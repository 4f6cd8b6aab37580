// The PDF report of 500 records with 50 photos, timed against pdfkit (the
// Node.js PDF library) laying out the same content in the same run; see
// bench/pdf.sh, which drives both.
//
//   pdf_bench --write-journal DIR   makes the journal under DIR and writes
//                                   DIR/content.json for the peer, with the
//                                   charts as PNG files
//   pdf_bench --run DIR [RUNS]      times the report RUNS times (default 7)
//                                   and prints "lumeo_ms", "pages" and
//                                   "bytes" lines; writes DIR/lumeo.pdf
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "backup/mood_pdf_export.h"
#include "capture/mood_levels_presentation.h"
#include "insight/mood_draw_chart.h"
#include "insight/mood_summary_chart_view.h"
#include "objectgraph/managed_object_context.h"
#include "platform/atomic_file.h"
#include "platform/canvas.h"
#include "platform/clock.h"
#include "platform/date_formatter.h"
#include "platform/image.h"
#include "platform/user_defaults.h"
#include "shell/resources_location.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace {

using namespace lumeo;

constexpr int kRecords = 500;
constexpr int kPhotoEvery = 10;  // 50 photos

const char* kSentences[] = {
    "Woke up early and went for a run along the river before work.",
    "The meeting ran long, and the afternoon went by in small tasks.",
    "Called my sister; we laughed about the trip we took years ago.",
    "Too little sleep, and the headache stayed until the evening.",
    "Cooked a new recipe, and it turned out better than expected.",
    "Rain all day, so I read on the sofa with a pot of tea.",
    "A friend came by with news that made the whole week lighter.",
    "Worried about money again; I wrote the numbers down to see them plainly.",
};
const char* kTags[] = {"run", "work", "family", "sleep", "cooking", "reading", "friends", "money"};

Date dayOf(int i) {
  return Date::fromTimeIntervalSince1970(1767225600.0 + i * 43200.0 + (i % 7) * 1800.0);  // from 2026-01-01
}

std::string comment(int i) {
  std::string text;
  const int sentences = 1 + (i * 7) % 9;
  for (int k = 0; k < sentences; ++k) {
    if (k) text += (k % 4 == 3) ? "\n" : " ";
    text += kSentences[(i + k * 3) % 8];
  }
  text += std::string(" #") + kTags[i % 8];
  if (i % 3 == 0) text += std::string(" #") + kTags[(i / 3) % 8];
  return text;
}

// A photo-like thumbnail: a two-colour ramp with a disc, different for each.
Image thumbnailImage(int i) {
  Canvas canvas(264, 264);
  canvas.fillLinearGradient(
      Rect{0, 0, 264, 264}, Point{0, 0}, Point{264, 264},
      {Color((i * 37 % 255) / 255.0, 0.4, 0.6, 1), Color(0.9, (i * 53 % 255) / 255.0, 0.3, 1)});
  Path disc;
  disc.addEllipseInRect(Rect{40.0 + i % 60, 50, 120, 120});
  canvas.fillPath(disc, Color(1, 1, 1, 0.6));
  return canvas.image();
}

struct Journal {
  std::shared_ptr<UserDefaults> defaults;
  std::unique_ptr<JournalStore> store;
  std::shared_ptr<ImageStore> images;
};

Journal openJournal(const std::filesystem::path& dir) {
  Journal j;
  std::filesystem::create_directories(dir / "Library");
  j.defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  j.store =
      std::make_unique<JournalStore>(JournalStore::Locations{dir / "Library", dir / "Documents"}, j.defaults);
  j.images = std::make_shared<ImageStore>(dir / "Library");
  ImageStore::setShared(j.images);
  return j;
}

std::string hex(const Color& c) {
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x", static_cast<int>(c.red * 255 + 0.5),
                static_cast<int>(c.green * 255 + 0.5), static_cast<int>(c.blue * 255 + 0.5));
  return buffer;
}

int writeJournal(const std::filesystem::path& dir) {
  Journal j = openJournal(dir);
  JournalStore& store = *j.store;
  for (int i = 0; i < kRecords; ++i) {
    auto record = store.insertRecordWithDescription();
    record->setMoodLevel(1 + (i * 7 + i / 5) % 10);
    record->setDate(dayOf(i));
    record->moodDescription()->setComment(comment(i));
    for (const char* name : {kTags[i % 8], kTags[(i / 3) % 8]}) {
      auto tag = store.tagWithExactName(name);
      if (!tag) {
        tag = store.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
        tag->setTagName(name);
      }
      record->addMoodTagsObject(tag);
    }
    if (i % kPhotoEvery == 0) {
      auto name = j.images->writeNewImage(thumbnailImage(i));
      if (auto* n = std::get_if<std::string>(&name)) record->moodDescription()->setThumbName(*n);
    }
  }
  store.saveContext();

  // What the peer lays out: the same texts, colours, photos and charts.
  const Date from = dayOf(0);
  const Date to = dayOf(kRecords - 1);
  DateFormatter recordFormat;
  recordFormat.setDateStyle(DateFormatter::Style::kLong);
  recordFormat.setTimeStyle(DateFormatter::Style::kShort);
  DateFormatter periodFormat;
  periodFormat.setDateStyle(DateFormatter::Style::kLong);
  const MoodLevelsPresentation levels = MoodLevelsPresentation::defaultMoodLevels();
  nlohmann::json content;
  content["resources"] = (resourcesDirectory() / "pdf").string();
  content["first"] = periodFormat.stringFromDate(from);
  content["last"] = periodFormat.stringFromDate(to);
  nlohmann::json records = nlohmann::json::array();
  std::vector<ChartRecord> chartRecords;
  for (const auto& record : store.recordsFrom(from, to)) {
    auto level = levels.presentationForMoodLevel(record->moodLevel());
    nlohmann::json r{{"date", recordFormat.stringFromDate(*record->date())},
                     {"level", record->moodLevel()},
                     {"levelText", level ? level->text : ""},
                     {"color", level ? hex(level->baseColor) : "#000000"},
                     {"comment", record->moodDescription()->comment().value_or("")}};
    if (auto thumb = j.images->imageURLForName(record->moodDescription()->thumbName()))
      r["thumb"] = thumb->string();
    records.push_back(r);
    chartRecords.push_back({*record->date(), record->moodLevel()});
  }
  content["records"] = records;
  nlohmann::json charts = nlohmann::json::array();
  const MoodSummaryChartKind kinds[] = {MoodSummaryChartKind::kTrend, MoodSummaryChartKind::kWeekly,
                                        MoodSummaryChartKind::kDaily};
  for (int k = 0; k < 3; ++k) {
    auto image = MoodDrawChart::drawChartImage(static_cast<ChartKind>(k), chartRecords, Size{312, 125}, true,
                                               ChartStyle::current(), 2);
    const auto png = dir / ("chart" + std::to_string(k) + ".png");
    Canvas canvas(image->width(), image->height());
    canvas.drawImage(*image,
                     Rect{0, 0, static_cast<double>(image->width()), static_cast<double>(image->height())});
    if (canvas.writePNG(png)) return 1;
    charts.push_back({{"title", MoodSummaryChartView::infoTitle(kinds[k])},
                      {"text", MoodSummaryChartView::infoText(kinds[k])},
                      {"png", png.string()}});
  }
  content["charts"] = charts;
  for (bool negative : {false, true}) {
    nlohmann::json rows = nlohmann::json::array();
    for (const RankedTag& tag : MoodPDFExport::tagArray(negative, store, from, to)) {
      rows.push_back(
          {{"name", "#" + tag.tagName},
           {"average", tag.average()},
           {"color",
            hex(levels.interpolatedColorForMoodLevel(tag.average()).value_or(Color(0.5, 0.5, 0.5, 1)))}});
    }
    content[negative ? "negative" : "positive"] = rows;
  }
  const std::string text = content.dump(1);
  return writeFileAtomically(dir / "content.json", text) ? 1 : 0;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

int run(const std::filesystem::path& dir, int runs) {
  Journal j = openJournal(dir);
  JournalStore& store = *j.store;
  const Date from = dayOf(0);
  const Date to = dayOf(kRecords - 1);
  std::vector<double> times;
  std::vector<std::uint8_t> data;
  for (int r = 0; r < runs; ++r) {
    const auto start = std::chrono::steady_clock::now();
    MoodPDFExport exporter(store);
    data = exporter.pdf(MoodPDFExport::tagArray(false, store, from, to),
                        MoodPDFExport::tagArray(true, store, from, to), from, to);
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    if (data.empty()) return 1;
  }
  if (writeFileAtomically(dir / "lumeo.pdf", data, FileAccess::kUserDefault)) return 1;
  const std::string text(data.begin(), data.end());
  std::size_t pages = 0;
  for (std::size_t at = text.find("/Type /Page %"); at != std::string::npos;
       at = text.find("/Type /Page %", at + 1)) {
    ++pages;
  }
  std::cout << "lumeo_ms " << median(times) << "\n"
            << "pages " << pages << "\n"
            << "bytes " << data.size() << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  setenv("TZ", "UTC", 1);
  setenv("LANG", "en_US.UTF-8", 1);
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() >= 2 && args[0] == "--write-journal") return writeJournal(args[1]);
  if (args.size() >= 2 && args[0] == "--run") return run(args[1], args.size() > 2 ? std::stoi(args[2]) : 7);
  std::cerr << "usage: pdf_bench --write-journal DIR | --run DIR [RUNS]\n";
  return 2;
}
