// lumeo summary and lumeo graph: the Insight tab on a terminal. `summary`
// runs the summary page's controllers (period, averages, the charts' fits,
// the two tag pages) and prints what the page shows; with --charts it also
// writes the three chart cards as PNG files. `graph` renders the scrollable
// graph's visible range with chosen tag lines into a PNG.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "cli_app.h"
#include "insight/mood_draw_chart.h"
#include "insight/mood_summary_chart_view.h"
#include "insight/mood_summary_graph_view_controller.h"
#include "insight/mood_summary_view_controller.h"
#include "journal_commands.h"
#include "platform/date_formatter.h"
#include "platform/linux/data_directories.h"
#include "platform/string_format.h"
#include "platform/user_date_parser.h"
#include "shell/mood_app_delegate.h"
#include "store/mood_tag.h"

namespace lumeo::cli {

namespace {

const std::vector<std::string>& periodNames() {
  static const std::vector<std::string> names = {"all", "year", "quarter", "month", "30d", "180d"};
  return names;
}

long parsePeriod(const std::string& text) {
  const auto& names = periodNames();
  auto it = std::find(names.begin(), names.end(), text);
  if (it == names.end()) {
    throw CommandError("unknown period \"" + text + "\": use all, year, quarter, month, 30d or 180d", 2);
  }
  return static_cast<long>(it - names.begin());
}

// "600x400": whole points, each from 50 to 4000.
Size parseSize(const std::string& text) {
  static const std::regex form("([0-9]{1,5})[xX]([0-9]{1,5})");
  std::smatch m;
  if (!std::regex_match(text, m, form)) {
    throw CommandError("cannot read the size \"" + text + "\": write it as WIDTHxHEIGHT, e.g. 600x400", 2);
  }
  const long w = std::stol(m[1]);
  const long h = std::stol(m[2]);
  if (w < 50 || h < 50 || w > 4000 || h > 4000) {
    throw CommandError("the size " + text + " is out of range: width and height go from 50 to 4000", 2);
  }
  return Size{static_cast<double>(w), static_cast<double>(h)};
}

double parseScale(const std::string& text) {
  long scale = 0;
  try {
    scale = parseInteger(text, "--scale");
  } catch (const CommandError&) {
    throw CommandError("--scale must be a whole number from 1 to 4, not \"" + text + "\"", 2);
  }
  if (scale < 1 || scale > 4)
    throw CommandError("--scale must be a whole number from 1 to 4, not " + text, 2);
  return static_cast<double>(scale);
}

std::string dateText(Date date) {
  DateFormatter formatter("yyyy-MM-dd HH:mm");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

// The folder for pictures: made if missing; refused if it is a file or
// cannot be made, before anything is written.
std::filesystem::path requireOutputDirectory(const std::string& text) {
  std::filesystem::path dir(text);
  std::error_code ec;
  if (std::filesystem::exists(dir, ec) && !std::filesystem::is_directory(dir, ec)) {
    throw CommandError("--charts " + text + " is a file, not a folder");
  }
  std::filesystem::create_directories(dir, ec);
  if (ec || !std::filesystem::is_directory(dir)) {
    throw CommandError("cannot make the folder " + text + ": " + ec.message());
  }
  return dir;
}

// A chart as its card shows it: the card's background with the chart on it.
OptionalError writeCard(const Image& chart, const std::filesystem::path& path) {
  Canvas canvas(chart.width(), chart.height());
  MoodSummaryChartView::drawBackground(
      canvas, Rect{0, 0, static_cast<double>(chart.width()), static_cast<double>(chart.height())},
      MoodSummaryChartView::currentBackground());
  canvas.drawImage(chart,
                   Rect{0, 0, static_cast<double>(chart.width()), static_cast<double>(chart.height())});
  return canvas.writePNG(path);
}

nlohmann::json tagsJson(const std::vector<RankedTag>& tags) {
  nlohmann::json list = nlohmann::json::array();
  for (const RankedTag& tag : tags) {
    list.push_back({{"tag", tag.tagName},
                    {"average", std::round(tag.average() * 1000) / 1000},
                    {"count", tag.frequency}});
  }
  return list;
}

nlohmann::json averageJson(double value) {
  return value < 0 ? nlohmann::json(nullptr) : nlohmann::json(std::round(value * 1000) / 1000);
}

std::string averageText(double value) {
  return value < 0 ? std::string("no data") : stringWithFormat("%.1lf", value);
}

struct SummaryOptions {
  std::optional<std::string> period;
  std::optional<std::string> charts;
  std::optional<std::string> size;
  std::optional<std::string> scale;
};

void runSummary(CliApp& cli, const SummaryOptions& options) {
  // Everything the user typed is checked before the journal opens.
  std::optional<long> period;
  if (options.period) period = parsePeriod(*options.period);
  const Size size = options.size ? parseSize(*options.size) : Size{600, 400};
  const double scale = options.scale ? parseScale(*options.scale) : 1.0;
  if ((options.size || options.scale) && !options.charts) {
    throw CommandError("--size and --scale go with --charts DIR", 2);
  }
  std::optional<std::filesystem::path> chartDir;
  if (options.charts) chartDir = requireOutputDirectory(*options.charts);

  MoodAppDelegate& app = journalSession(cli);
  MoodSummaryViewController summary(app.store());
  MoodSummaryTotalViewController& total = summary.total();
  // The period is kept as the GUI keeps it.
  if (period) total.setChartType(*period);
  MoodDrawChart::setScreenScale(scale);
  total.setChartSize(size);
  summary.viewWillAppear();
  summary.positive().reloadMoodRecords();
  summary.negative().reloadMoodRecords();

  const long type = total.chartType();
  const std::string title = MoodSummaryChartView::summaryType(type).value_or("");
  const bool empty = total.recordCount() == 0;
  // With no records nothing was fitted: all three read as not enough data.
  const bool notTrend = empty || MoodDrawChart::notEnoughDataAlltime();
  const bool notWeekly = empty || MoodDrawChart::notEnoughDataWeekly();
  const bool notDaily = empty || MoodDrawChart::notEnoughDataDaily();

  nlohmann::json charts = nlohmann::json::object();
  if (chartDir) {
    const std::pair<const char*, const std::optional<Image>*> images[] = {
        {"trend", &total.chartImageAlltime()},
        {"weekly", &total.chartImageWeekly()},
        {"daily", &total.chartImageDaily()}};
    for (const auto& [name, image] : images) {
      if (empty || !*image) {
        charts[name] = nullptr;
        continue;
      }
      const auto path = *chartDir / (std::string(name) + ".png");
      if (auto error = writeCard(**image, path)) {
        throw CommandError("cannot write " + path.string() + ": " + error->description);
      }
      charts[name] = path.string();
    }
  }

  const auto positive = summary.positive().topTags();
  const auto negative = summary.negative().topTags();
  if (cli.json()) {
    nlohmann::json j;
    j["period"] = {
        {"type", type}, {"name", type >= 0 && type <= 5 ? periodNames()[type] : ""}, {"title", title}};
    j["records"] = total.recordCount();
    j["firstRecordDate"] =
        !empty && total.firstRecordDate() ? nlohmann::json(dateText(*total.firstRecordDate())) : nullptr;
    j["lastRecordDate"] =
        !empty && total.lastRecordDate() ? nlohmann::json(dateText(*total.lastRecordDate())) : nullptr;
    j["averages"] = {{"total", empty ? nlohmann::json(nullptr) : averageJson(total.totalStatAvg())},
                     {"lastWeek", empty ? nlohmann::json(nullptr) : averageJson(total.weekStatAvg())},
                     {"lastMonth", empty ? nlohmann::json(nullptr) : averageJson(total.monthStatAvg())}};
    j["notEnoughData"] = {{"trend", notTrend}, {"weekly", notWeekly}, {"daily", notDaily}};
    j["topTags"] = {{"positive", tagsJson(positive)}, {"negative", tagsJson(negative)}};
    if (chartDir) j["charts"] = charts;
    cli.printJson(j);
    return;
  }

  auto& out = cli.out();
  out << "Period      " << title << "\n";
  if (empty) {
    out << "Records     none in this period\n";
  } else {
    out << "Records     " << total.recordCount() << ", from " << dateText(*total.firstRecordDate()) << " to "
        << dateText(*total.lastRecordDate()) << "\n";
  }
  out << "Total       " << (empty ? "no data" : averageText(total.totalStatAvg())) << "\n"
      << "Last week   " << (empty ? "no data" : averageText(total.weekStatAvg())) << "\n"
      << "Last month  " << (empty ? "no data" : averageText(total.monthStatAvg())) << "\n";
  auto enough = [](bool notEnough) { return notEnough ? "not enough data" : "enough data"; };
  out << "Mood Trend    " << enough(notTrend) << "\n"
      << "Weekly Cycle  " << enough(notWeekly) << "\n"
      << "Daily Cycle   " << enough(notDaily) << "\n";
  auto printTags = [&](const char* heading, const std::vector<RankedTag>& tags, bool negativeSide) {
    out << heading << "\n";
    if (tags.empty()) {
      out << "  (none: no tags go with " << (negativeSide ? "negative" : "positive") << " moods yet)\n";
      return;
    }
    for (const RankedTag& tag : tags) {
      out << "  #" << MoodTag::displayName(tag.tagName) << " " << stringWithFormat("%.1lf", tag.average())
          << "  (" << tag.frequency << (tag.frequency == 1 ? " record" : " records") << ")\n";
    }
  };
  printTags("Positive tags", positive, false);
  printTags("Negative tags", negative, true);
  if (chartDir) {
    if (empty) {
      out << "No charts: there are no records in this period.\n";
    } else {
      out << "Charts written to " << chartDir->string() << ": trend.png, weekly.png, daily.png\n";
    }
  }
}

// --- lumeo graph ------------------------------------------------------------

// A day without a time means its start, or for the end of a range the
// whole day.
Date requireGraphDate(const std::string& text, const std::string& what, bool endOfDay) {
  const Calendar calendar = Calendar::current();
  auto date = parseUserDate(text, calendar);
  if (!date) {
    throw CommandError("cannot read the " + what + " \"" + text +
                           "\": write it as 2026-11-22, 2026-11-22T14:30 or as your locale writes it",
                       2);
  }
  if (endOfDay && text.find(':') == std::string::npos) {
    if (auto next = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, calendar.startOfDay(*date)))
      return *next;
  }
  return *date;
}

// "sleep:h" or "sleep" (values without unit): the key of a tag series.
std::string graphTagKey(const std::string& text) {
  std::string t = text;
  if (!t.empty() && t.front() == '#') t.erase(0, 1);
  const auto colon = t.find(':');
  std::string name = lowercaseString(colon == std::string::npos ? t : t.substr(0, colon));
  std::string unit = colon == std::string::npos ? std::string() : lowercaseString(t.substr(colon + 1));
  if (name.empty()) throw CommandError("--tag wants NAME:UNIT, e.g. sleep:h, not \"" + text + "\"", 2);
  return name + ":" + unit;
}

struct GraphOptions {
  std::optional<std::string> from;
  std::optional<std::string> to;
  std::vector<std::string> tags;
  std::string png;
  std::optional<std::string> size;
};

void runGraph(CliApp& cli, const GraphOptions& options) {
  const Size size = options.size ? parseSize(*options.size) : Size{800, 400};
  std::optional<Date> from;
  std::optional<Date> to;
  if (options.from) from = requireGraphDate(*options.from, "start date", false);
  if (options.to) to = requireGraphDate(*options.to, "end date", true);
  if (from && to && !(*to > *from)) throw CommandError("the end date lies before the start date", 2);
  std::vector<std::string> keys;
  for (const auto& tag : options.tags) keys.push_back(graphTagKey(tag));
  const std::filesystem::path png(options.png);
  {
    std::error_code ec;
    const auto parent = png.has_parent_path() ? png.parent_path() : std::filesystem::path(".");
    if (!std::filesystem::is_directory(parent, ec)) {
      throw CommandError("cannot write " + options.png + ": the folder " + parent.string() +
                         " does not exist");
    }
  }

  MoodAppDelegate& app = journalSession(cli);
  MoodSummaryGraphViewController graph(app.store());
  graph.viewDidLoad();
  for (const auto& key : keys) {
    if (!graph.completionOptions().contains(key)) {
      std::string known;
      for (const auto& k : graph.orderedKeys()) known += (known.empty() ? "" : ", ") + k;
      throw CommandError(
          "no values of #" + key + " in the journal" +
          (known.empty() ? std::string(" (it holds no tags with values)") : "; there are: " + known));
    }
  }
  graph.setSelectedTags(keys);
  if (graph.records().empty()) {
    if (cli.json()) {
      cli.printJson({{"records", 0}, {"png", nullptr}});
    } else {
      cli.out() << "No records yet: there is no graph to draw.\n";
    }
    return;
  }

  GraphScrollableArea area(graph.records(), size.width);
  area.scrollToRecentObjects();
  if (from || to) {
    const Date start = from.value_or(area.minimumDate());
    const Date end = to.value_or(area.maximumDate());
    if (!area.setVisibleRange(start, end)) throw CommandError("the end date lies before the start date", 2);
  }
  const auto lines = graph.tagLines();
  area.updateTags(lines);

  Canvas canvas(static_cast<int>(size.width), static_cast<int>(size.height));
  graph.renderGraph(canvas, size, area);
  if (auto error = canvas.writePNG(png))
    throw CommandError("cannot write " + options.png + ": " + error->description);

  std::size_t inRange = 0;
  for (const auto& r : graph.records()) {
    if (r.time >= area.startDate() && r.time <= area.endDate()) ++inRange;
  }
  if (cli.json()) {
    nlohmann::json series = nlohmann::json::array();
    for (const auto& line : lines) {
      series.push_back({{"key", line.key}, {"color", line.color.toHex()}, {"points", line.points.size()}});
    }
    nlohmann::json available = nlohmann::json::array();
    for (const auto& key : graph.orderedKeys()) {
      const auto& v = graph.completionOptions().at(key);
      available.push_back({{"key", key}, {"min", v.minValue}, {"max", v.maxValue}, {"count", v.count}});
    }
    cli.printJson({{"from", dateText(area.startDate())},
                   {"to", dateText(area.endDate())},
                   {"days", area.zoomRate()},
                   {"records", inRange},
                   {"lines", series},
                   {"tags", available},
                   {"png", png.string()}});
    return;
  }
  cli.out() << "Graph from " << dateText(area.startDate()) << " to " << dateText(area.endDate()) << " ("
            << inRange << (inRange == 1 ? " record" : " records") << ")\n";
  for (const auto& line : lines) {
    cli.out() << "  #" << line.key << "  " << line.points.size() << " values, " << line.color.toHex() << "\n";
  }
  if (lines.empty() && !graph.orderedKeys().empty()) {
    cli.out() << "Tags with values (add with --tag):";
    for (const auto& key : graph.orderedKeys()) cli.out() << " " << key;
    cli.out() << "\n";
  }
  cli.out() << "Written to " << png.string() << "\n";
}

void registerCommands(CliApp& cli) {
  auto summary = std::make_shared<SummaryOptions>();
  CLI::App* cmd = cli.root().add_subcommand("summary", "Averages, chart fits and top tags of a period");
  cmd->add_option("--period", summary->period,
                  "all, year, quarter, month, 30d or 180d (kept for next time; default: the last one)")
      ->type_name("PERIOD");
  cmd->add_option("--charts", summary->charts, "Also write trend.png, weekly.png and daily.png into DIR")
      ->type_name("DIR");
  cmd->add_option("--size", summary->size, "Chart size in points (default 600x400)")->type_name("WxH");
  cmd->add_option("--scale", summary->scale, "Pixels per point, 1 to 4 (default 1)")->type_name("N");
  cmd->callback([&cli, summary] { runSummary(cli, *summary); });

  auto graph = std::make_shared<GraphOptions>();
  CLI::App* g = cli.root().add_subcommand("graph", "Draw the mood line of a range with the values of tags");
  g->add_option("--from", graph->from, "Start of the range (default: the first record's day)")
      ->type_name("DATE");
  g->add_option("--to", graph->to, "End of the range; a day counts whole (default: the last record's day)")
      ->type_name("DATE");
  g->add_option("--tag", graph->tags, "A line of tag values, e.g. sleep:h (repeatable)")
      ->type_name("NAME:UNIT");
  g->add_option("--png", graph->png, "The picture to write")->required()->type_name("FILE");
  g->add_option("--size", graph->size, "Picture size in points (default 800x400)")->type_name("WxH");
  g->callback([&cli, graph] { runGraph(cli, *graph); });
}

const CommandRegistration kInsightCommands(30, registerCommands);

const DemoStep kInsightDemo(30, "Insight: averages, charts and top tags", [](CliApp& cli) {
  SummaryOptions options;
  options.period = "all";
  options.charts = (DataDirectories::current().library.parent_path() / "charts").string();
  runSummary(cli, options);
  GraphOptions graph;
  graph.png = (DataDirectories::current().library.parent_path() / "charts" / "graph.png").string();
  // The demo journal's most used value tag, if it has one, as a tag line.
  MoodSummaryGraphViewController probe(journalSession(cli).store());
  probe.loadTags();
  const std::string* best = nullptr;
  for (const auto& key : probe.orderedKeys()) {
    if (!best || probe.completionOptions().at(key).count > probe.completionOptions().at(*best).count)
      best = &key;
  }
  if (best) graph.tags = {*best};
  runGraph(cli, graph);
});

}  // namespace

}  // namespace lumeo::cli
