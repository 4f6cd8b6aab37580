// lumeo history, calendar and photos: the History tab's list with its
// period and tag filters, a month of the calendar on the terminal or as a
// picture, and the records with photos. Each command drives the same
// controllers as the GUI's History tab and prints what they say.
#include "browse_commands.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <set>

#include "browse/mood_date_history_view_controller.h"
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

std::string isoText(Date date) {
  DateFormatter formatter("yyyy-MM-dd'T'HH:mm:ssXXX");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

std::string timeText(Date date) {
  DateFormatter formatter("HH:mm");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

std::int64_t recordID(const MoodRecord& record) {
  return record.objectID().primaryKey();
}

// One line of a comment, cut on a character boundary.
std::string oneLine(std::string text, std::size_t width) {
  for (char& c : text) {
    if (c == '\n' || c == '\t' || c == '\r') c = ' ';
  }
  if (text.size() > width) {
    std::size_t cut = width;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    text = text.substr(0, cut) + "...";
  }
  return text;
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

nlohmann::json recordJson(const MoodRecord& record) {
  nlohmann::json j;
  j["id"] = recordID(record);
  j["date"] = record.date() ? nlohmann::json(isoText(*record.date())) : nlohmann::json(nullptr);
  j["level"] = record.moodLevel();
  auto description = record.moodDescription();
  std::string comment = description ? description->comment().value_or("") : "";
  j["comment"] = jsonText(comment);
  nlohmann::json tags = nlohmann::json::array();
  for (const auto& tag : record.moodTags()) tags.push_back(jsonText(tag->tagName()));
  j["tags"] = tags;
  if (description && !description->photoName().value_or("").empty()) {
    auto file = photoFile(*description);
    j["photo"] = file ? nlohmann::json(file->string()) : nlohmann::json(nullptr);
    std::error_code ec;
    j["photoMissing"] = !file || !std::filesystem::exists(*file, ec);
  }
  return j;
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
}

const CommandRegistration kBrowseCommands(30, registerCommands);

const DemoStep kBrowseDemo(30, "History: one day", [](CliApp& cli) {
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
