// lumeo history, calendar and photos: the History tab's list with its
// period and tag filters, a month of the calendar on the terminal or as a
// picture, and the records with photos. Each command drives the same
// controllers as the GUI's History tab and prints what they say.
#include "browse_commands.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>

#include "browse/mood_calendar_drawing.h"
#include "browse/mood_calendar_layout.h"
#include "browse/mood_calendar_view.h"
#include "browse/mood_date_history_view_controller.h"
#include "browse/mood_gallery_view_controller.h"
#include "browse/mood_history_view.h"
#include "browse/mood_history_view_controller.h"
#include "browse/mood_tag_history_view_controller.h"
#include "capture/mood_tagged_text_view.h"
#include "cli_app.h"
#include "journal_commands.h"
#include "platform/calendar.h"
#include "platform/canvas.h"
#include "platform/date_formatter.h"
#include "platform/user_date_parser.h"
#include "record_json.h"
#include "shell/mood_app_delegate.h"
#include "store/date_all.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo::cli {

namespace {

using RecordList = std::vector<std::shared_ptr<MoodRecord>>;

// --- Shared helpers ---------------------------------------------------------------

Date requireDay(const std::string& raw, const std::string& what) {
  std::string text = raw;
  Calendar calendar = Calendar::current();
  std::optional<Date> date;
  if (text == "today") date = Date::now();
  if (text == "yesterday") date = calendar.dateByAddingUnit(CalendarUnit::kDay, -1, Date::now());
  if (!date) date = parseUserDate(text, calendar);
  if (!date) {
    throw CommandError("cannot read the " + what + " \"" + raw +
                           "\": write it as 2026-11-22, \"today\", \"yesterday\" or as your locale writes it",
                       2);
  }
  return *date;
}

std::shared_ptr<MoodTag> requireTag(JournalStore& store, const std::string& name) {
  std::string bare = !name.empty() && name[0] == '#' ? name.substr(1) : name;
  // Wildcards would match other tags' names: a filter names one tag.
  if (bare.empty() || bare.find_first_of("*?") != std::string::npos) {
    throw CommandError("\"" + name + "\" is not a tag name (see `lumeo tags`)", 2);
  }
  auto tag = store.tagNamed(bare);
  if (!tag) throw CommandError("no tag named \"" + bare + "\" (see `lumeo tags`)");
  return tag;
}

std::string isoDay(Date date) {
  DateFormatter formatter("yyyy-MM-dd");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

std::string timeText(Date date) {
  DateFormatter formatter("HH:mm");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

// Text for JSON: invalid UTF-8 in a stored comment becomes U+FFFD rather
// than failing the whole document.
nlohmann::json jsonText(const std::string& text) {
  return nlohmann::json::parse(
      nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

std::optional<std::filesystem::path> photoFile(const MoodDescription& description) {
  auto images = ImageStore::shared();
  if (!images) return std::nullopt;
  return images->imageURLForName(description.photoName());
}

// --- lumeo history ------------------------------------------------------------------

struct HistoryOptions {
  std::optional<std::string> from;
  std::optional<std::string> to;
  std::optional<std::string> day;
  std::vector<std::string> tags;
};

// Groups any list of records by day, as the History tab does.
struct ListSource : MoodHistoryViewDelegate {
  RecordList records;
  const RecordList& moodHistoryForView(MoodHistoryView&) override { return records; }
  void moodHistoryViewDidChangeSelection(MoodHistoryView&) override {}
};

void applyPeriod(MoodHistoryViewController& screen, const HistoryOptions& options) {
  if (!options.from && !options.to) return;
  std::optional<Date> from, to;
  if (options.from) from = onlyDate(requireDay(*options.from, "start date"));
  if (options.to) to = onlyDate(requireDay(*options.to, "end date"));
  // Whole days, as the period sheet picks them; days given the wrong way
  // round are taken in order, as the sheet would keep them.
  if (from && to && *to < *from) std::swap(from, to);
  MoodHistoryPeriodFilter& filter = screen.filter();
  filter.dateFrom = from;
  if (to) filter.dateTo = to->dateByAddingTimeInterval(kMoodHistoryDayEnd);
  filter.isFiltered = true;
}

RecordList fetchHistory(JournalStore& store, const HistoryOptions& options) {
  if (options.day && (options.from || options.to)) {
    throw CommandError("--day names one day; it cannot be combined with --from or --to", 2);
  }
  std::vector<std::shared_ptr<MoodTag>> tags;
  for (const auto& name : options.tags) tags.push_back(requireTag(store, name));
  MoodHistoryEnvironment env;
  env.store = &store;
  auto load = [&](const std::shared_ptr<MoodHistoryViewController>& screen) {
    applyPeriod(*screen, options);
    screen->viewDidLoad();
    screen->reloadMoodRecords(false);
    return screen->moodRecords();
  };
  if (options.day) {
    auto screen = std::make_shared<MoodDateHistoryViewController>(requireDay(*options.day, "day"), env);
    RecordList records = load(screen);
    if (tags.empty()) return records;
    std::set<std::shared_ptr<MoodTag>> wanted(tags.begin(), tags.end());
    RecordList out;
    for (const auto& record : records) {
      for (const auto& tag : record->moodTags()) {
        if (wanted.count(tag)) {
          out.push_back(record);
          break;
        }
      }
    }
    return out;
  }
  if (tags.empty()) {
    auto screen = std::make_shared<MoodHistoryViewController>(env);
    screen->useListMode();
    return load(screen);
  }
  // Records holding any of the tags: each tag's history, merged by date.
  std::map<std::int64_t, std::shared_ptr<MoodRecord>> merged;
  for (const auto& tag : tags) {
    auto screen = std::make_shared<MoodTagHistoryViewController>(tag, env);
    for (const auto& record : load(screen)) merged[recordID(*record)] = record;
  }
  RecordList out;
  for (auto& [id, record] : merged) out.push_back(record);
  std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) {
    return a->date().value_or(Date()) < b->date().value_or(Date());
  });
  return out;
}

void runHistory(CliApp& cli, const HistoryOptions& options) {
  MoodAppDelegate& app = journalSession(cli);
  ListSource source;
  source.records = fetchHistory(app.store(), options);
  MoodHistoryView view;
  view.setDelegate(&source);
  view.reloadMoodRecords(true);
  if (cli.json()) {
    nlohmann::json sections = nlohmann::json::array();
    for (long s = 0; s < view.numberOfSections(); ++s) {
      nlohmann::json section;
      long first = view.indexForSection(s, 0);
      section["title"] = view.sectionHeaderTitle(s);
      section["day"] = isoDay(source.records[first]->date().value_or(Date()));
      nlohmann::json records = nlohmann::json::array();
      for (long r = 0; r < view.numberOfRowsInSection(s); ++r) {
        records.push_back(recordJson(*source.records[view.indexForSection(s, r)]));
      }
      section["records"] = records;
      sections.push_back(section);
    }
    cli.printJson(sections);
    return;
  }
  if (source.records.empty()) {
    bool filtered = options.from || options.to || options.day || !options.tags.empty();
    cli.out() << (filtered ? "No records match.\n" : "No records yet.\n");
    return;
  }
  for (long s = 0; s < view.numberOfSections(); ++s) {
    if (s > 0) cli.out() << "\n";
    cli.out() << view.sectionHeaderTitle(s) << "\n";
    for (long r = 0; r < view.numberOfRowsInSection(s); ++r) {
      const MoodRecord& record = *source.records[view.indexForSection(s, r)];
      auto description = record.moodDescription();
      std::string comment = description ? description->comment().value_or("") : "";
      char head[64];
      std::snprintf(head, sizeof head, "%6lld  %s  %2ld  ", static_cast<long long>(recordID(record)),
                    record.date() ? timeText(*record.date()).c_str() : "     ", record.moodLevel());
      cli.out() << head << oneLine(comment, 60) << "\n";
    }
  }
}

// --- lumeo calendar ---------------------------------------------------------------------

struct CalendarOptions {
  std::optional<std::string> month;
  std::vector<std::string> tags;
  std::optional<std::string> png;
};

// Colour on a terminal that wants it: NO_COLOR (set and not empty) or
// output that is not a terminal get plain level numbers.
bool useColor() {
  const char* noColor = std::getenv("NO_COLOR");
  if (noColor && *noColor) return false;
  return isatty(STDOUT_FILENO);
}

long requireMonthIndex(const std::optional<std::string>& text, long current) {
  if (!text) return current;
  static const std::regex pattern(R"((\d{4})-(\d{2}))");
  std::smatch m;
  long year = 0, month = 0;
  if (std::regex_match(*text, m, pattern)) {
    year = std::stol(m[1]);
    month = std::stol(m[2]);
  }
  if (month < 1 || month > 12) {
    throw CommandError("write the month as YYYY-MM (2026-11), not \"" + *text + "\"", 2);
  }
  long index = monthIndexFrom1970(year, month);
  if (index < 0 || index > current) {
    auto [y, mo] = yearMonthForMonthIndex(current);
    char last[48];
    std::snprintf(last, sizeof last, "%04ld-%02ld", y, mo);
    throw CommandError("the calendar runs from 1970-01 to this month, " + std::string(last) + "; " + *text +
                           " is outside it",
                       2);
  }
  return index;
}

std::string dayCellText(const MoodDayView& day, bool color) {
  std::string blocks;
  for (std::size_t i = 0; i < day.strip().size(); ++i) {
    const MoodDayStripPiece& piece = day.strip()[i];
    if (color) {
      char code[48];
      std::snprintf(code, sizeof code, "\x1b[38;2;%d;%d;%dm\xe2\x96\x88\x1b[0m",
                    static_cast<int>(std::lround(piece.color.red * 255)),
                    static_cast<int>(std::lround(piece.color.green * 255)),
                    static_cast<int>(std::lround(piece.color.blue * 255)));
      blocks += code;
    } else {
      if (i > 0) blocks += ",";
      blocks += std::to_string(piece.level);
    }
  }
  return blocks;
}

// The printed width of a cell's blocks (escape codes take none).
std::size_t blocksWidth(const MoodDayView& day, bool color) {
  if (color) return day.strip().size();
  return dayCellText(day, false).size();
}

void runCalendar(CliApp& cli, const CalendarOptions& options) {
  MoodAppDelegate& app = journalSession(cli);
  long current = monthFrom1970(Date::now());
  long index = requireMonthIndex(options.month, current);
  std::vector<std::shared_ptr<MoodTag>> tags;
  for (const auto& name : options.tags) tags.push_back(requireTag(app.store(), name));
  auto [year, monthNumber] = yearMonthForMonthIndex(index);
  MoodCalendarMetrics metrics;
  MoodCalendarMonthView month(app.store(), metrics);
  month.setTags(tags);
  month.setYearMonth(year, monthNumber);
  std::string title = MoodCalendarView::headerByMonthIndex(index);
  auto headings = MoodCalendarMonthView::weekdayHeadings();

  if (options.png) {
    Canvas canvas = drawCalendarMonth(month, metrics, title, 2);
    if (auto error = canvas.writePNG(*options.png)) throw CommandError(error->description);
  }
  if (cli.json()) {
    char key[48];
    std::snprintf(key, sizeof key, "%04ld-%02ld", year, monthNumber);
    nlohmann::json days = nlohmann::json::array();
    for (const auto& day : month.dayViews()) {
      if (day.hidden) continue;
      // The records in the shape of every other command; their colours,
      // in the same order, beside them.
      nlohmann::json records = nlohmann::json::array();
      nlohmann::json colors = nlohmann::json::array();
      for (std::size_t i = 0; i < day.records().size(); ++i) {
        records.push_back(recordJson(*day.records()[i]));
        colors.push_back(day.strip()[i].color.toHex());
      }
      nlohmann::json entry = {{"day", day.day + 1},
                              {"column", day.placement.column},
                              {"row", day.placement.row},
                              {"records", records},
                              {"colors", colors}};
      entry["picture"] =
          day.pictureRecord() ? nlohmann::json(recordID(*day.pictureRecord())) : nlohmann::json(nullptr);
      days.push_back(entry);
    }
    nlohmann::json document = {{"month", key},
                               {"title", title},
                               {"firstWeekday", Calendar::current().firstWeekday()},
                               {"weekdays", headings},
                               {"days", days}};
    if (options.png) document["png"] = *options.png;
    cli.printJson(document);
    return;
  }

  bool color = useColor();
  std::size_t cell = 3;
  long rows = 0;
  bool leftOfGrid = false;
  for (const auto& day : month.dayViews()) {
    if (day.hidden) continue;
    std::size_t blocks = blocksWidth(day, color);
    cell = std::max(cell, 2 + (blocks ? blocks + 1 : 0));
    rows = std::max(rows, day.placement.row + 1);
    leftOfGrid = leftOfGrid || day.placement.column < 0;
  }
  long firstColumn = leftOfGrid ? -1 : 0;
  auto pad = [](std::string text, std::size_t width, std::size_t shown) {
    return text + std::string(width > shown ? width - shown : 0, ' ');
  };
  cli.out() << title << "\n";
  std::string line = leftOfGrid ? std::string(cell + 2, ' ') : std::string();
  for (const auto& heading : headings) line += pad(heading, cell + 2, 1);
  while (!line.empty() && line.back() == ' ') line.pop_back();
  cli.out() << line << "\n";
  for (long row = 0; row < rows; ++row) {
    std::string text;
    for (long column = firstColumn; column < 7; ++column) {
      const MoodDayView* found = nullptr;
      for (const auto& day : month.dayViews()) {
        if (!day.hidden && day.placement.row == row && day.placement.column == column) found = &day;
      }
      if (!found) {
        text += std::string(cell + 2, ' ');
        continue;
      }
      char number[24];
      std::snprintf(number, sizeof number, "%2ld", found->day + 1);
      std::string blocks = dayCellText(*found, color);
      std::size_t width = 2 + (found->strip().empty() ? 0 : 1 + blocksWidth(*found, color));
      text += pad(std::string(number) + (blocks.empty() ? "" : " " + blocks), cell + 2, width);
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    cli.out() << text << "\n";
  }
  if (options.png) cli.out() << "Wrote " << *options.png << "\n";
}

// --- lumeo photos ----------------------------------------------------------------------------

struct PhotosOptions {
  std::optional<std::string> tag;
  bool negative = false;
  bool positive = false;
};

bool hasPhoto(const MoodRecord& record) {
  auto description = record.moodDescription();
  return description && !description->photoName().value_or("").empty();
}

void runPhotos(CliApp& cli, const PhotosOptions& options) {
  if (options.negative && options.positive) {
    throw CommandError("--negative and --positive exclude each other; leave both out for all photos", 2);
  }
  MoodAppDelegate& app = journalSession(cli);
  JournalStore& store = app.store();
  MoodHistoryEnvironment env;
  env.store = &store;
  std::shared_ptr<MoodHistoryViewController> list;
  if (options.tag) {
    list = std::make_shared<MoodTagHistoryViewController>(requireTag(store, *options.tag), env);
  } else {
    list = std::make_shared<MoodHistoryViewController>(env);
    list->useListMode();
  }
  list->viewDidLoad();
  list->reloadMoodRecords(false);
  // The photos the gallery pages through: the list's records with one,
  // of the asked half of the levels.
  RecordList records;
  for (const auto& record : list->moodRecords()) {
    if (!hasPhoto(*record)) continue;
    if (options.negative && record->moodLevel() > 5) continue;
    if (options.positive && record->moodLevel() <= 5) continue;
    records.push_back(record);
  }
  auto gallery = std::make_shared<MoodGalleryViewController>();
  gallery->setMoodRecords(records);

  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& record : gallery->moodRecords()) list.push_back(recordJson(*record));
    cli.printJson(list);
    return;
  }
  if (records.empty()) {
    cli.out() << "No photos" << (options.tag || options.negative || options.positive ? " match" : " yet")
              << ".\n";
    return;
  }
  long missing = 0;
  cli.out() << "    ID  DATE              LV  PHOTO\n";
  for (const auto& record : gallery->moodRecords()) {
    auto file = photoFile(*record->moodDescription());
    std::error_code ec;
    bool there = file && std::filesystem::exists(*file, ec);
    missing += there ? 0 : 1;
    char head[80];
    std::snprintf(head, sizeof head, "%6lld  %s  %2ld  ", static_cast<long long>(recordID(*record)),
                  record->date() ? (isoDay(*record->date()) + " " + timeText(*record->date())).c_str()
                                 : "                ",
                  record->moodLevel());
    cli.out() << head << (file ? file->string() : std::string("-")) << (there ? "" : "  (missing)") << "\n";
  }
  if (missing > 0) {
    cli.out() << missing << (missing == 1 ? " photo is" : " photos are")
              << " missing from the image store; a sync or a restore may still bring "
              << (missing == 1 ? "it" : "them") << ".\n";
  }
}

void registerCommands(CliApp& cli) {
  auto history = std::make_shared<HistoryOptions>();
  CLI::App* historyCmd = cli.root().add_subcommand(
      "history", "Records grouped by day, oldest first, with the History tab's filters");
  historyCmd->add_option("--from", history->from, "First day of the period")->type_name("DATE");
  historyCmd->add_option("--to", history->to, "Last day of the period (counts whole)")->type_name("DATE");
  historyCmd->add_option("--day", history->day, "Only this day")->type_name("DATE");
  historyCmd->add_option("--tag", history->tags, "Only records with this tag (repeat for any of several)")
      ->type_name("NAME");
  historyCmd->callback([&cli, history] { runHistory(cli, *history); });

  auto calendar = std::make_shared<CalendarOptions>();
  CLI::App* calendarCmd = cli.root().add_subcommand(
      "calendar", "A month as a grid in your week's order, one coloured block per record");
  calendarCmd->add_option("MONTH", calendar->month, "The month, YYYY-MM (default: this month)");
  calendarCmd->add_option("--tag", calendar->tags, "Only records with this tag (repeat for any of several)")
      ->type_name("NAME");
  calendarCmd->add_option("--png", calendar->png, "Also draw the month into a PNG file")->type_name("FILE");
  calendarCmd->callback([&cli, calendar] { runCalendar(cli, *calendar); });

  auto photos = std::make_shared<PhotosOptions>();
  CLI::App* photosCmd =
      cli.root().add_subcommand("photos", "Records with a photo, oldest first, and their image files");
  photosCmd->add_option("--tag", photos->tag, "Only records with this tag")->type_name("NAME");
  photosCmd->add_flag("--negative", photos->negative, "Only levels 1 to 5");
  photosCmd->add_flag("--positive", photos->positive, "Only levels 6 to 10");
  photosCmd->callback([&cli, photos] { runPhotos(cli, *photos); });
}

const CommandRegistration kBrowseCommands(30, registerCommands);

const DemoStep kBrowseDemo(30, "History: this month's calendar and yesterday's records", [](CliApp& cli) {
  runCalendar(cli, CalendarOptions{});
  cli.out() << "\n";
  HistoryOptions options;
  options.day = "yesterday";
  runHistory(cli, options);
});

}  // namespace

void writeCommentPicture(CliApp& cli, const MoodRecord& record, const std::filesystem::path& file,
                         long width) {
  constexpr long kMinimumWidth = 60, kMaximumWidth = 4000;
  constexpr double kMargin = 8, kScale = 2;
  if (width < kMinimumWidth || width > kMaximumWidth) {
    throw CommandError("--width must be from " + std::to_string(kMinimumWidth) + " to " +
                           std::to_string(kMaximumWidth) + " points, not " + std::to_string(width),
                       2);
  }
  auto description = record.moodDescription();
  std::string comment = description ? description->comment().value_or("") : "";
  if (comment.empty())
    throw CommandError("record " + std::to_string(recordID(record)) + " has no comment to draw");
  MoodTaggedTextView text;
  MoodHistoryDetail detail = MoodHistoryViewController::detailForRecord(nullptr);
  text.setBounds({static_cast<double>(width), 0});
  text.setMaxLinesCount(detail.maxLinesCount);
  text.setTaggedText(comment);
  double height = text.textHeight() + 2 * kMargin;
  Canvas canvas(static_cast<int>(std::ceil((width + 2 * kMargin) * kScale)),
                static_cast<int>(std::ceil(height * kScale)));
  canvas.scale(kScale, kScale);
  canvas.fillRect({0, 0, width + 2 * kMargin, height}, Color(1, 1, 1));
  text.drawInCanvas(canvas, {kMargin, kMargin});
  if (auto error = canvas.writePNG(file)) {
    throw CommandError(error->description);
  }
  if (cli.json()) {
    nlohmann::json tags = nlohmann::json::array();
    for (const auto& name : text.visibleTags()) tags.push_back(jsonText(name));
    cli.printJson({{"id", recordID(record)},
                   {"file", file.string()},
                   {"width", canvas.width()},
                   {"height", canvas.height()},
                   {"lines", text.lines().size()},
                   {"tags", tags}});
  } else {
    cli.out() << "Wrote " << file.string() << " (" << canvas.width() << " x " << canvas.height()
              << " pixels, " << text.lines().size() << " lines)\n";
  }
}

}  // namespace lumeo::cli
