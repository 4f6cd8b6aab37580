// lumeo map and lumeo locations: the Map tab on a terminal. `map` runs the
// tab's controller on a headless map of the asked view and prints its pins
// (or draws them with --png); `locations clear` erases every position, as
// the map's settings screen does.
#include "map_commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "capture/location_helper.h"
#include "capture/mood_levels_presentation.h"
#include "capture_commands.h"
#include "cli_app.h"
#include "journal_commands.h"
#include "map/headless_map_view.h"
#include "map/mood_circle_view.h"
#include "map/mood_map_view_controller.h"
#include "map/nominatim_place_search.h"
#include "objectgraph/managed_object_context.h"
#include "platform/calendar.h"
#include "platform/canvas.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/geoclue_position_source.h"
#include "platform/linux/plist_user_defaults.h"
#include "platform/localization.h"
#include "platform/user_date_parser.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_store.h"
#include "store/mood_tag.h"

namespace lumeo::cli {

std::pair<double, double> currentPlace() {
  constexpr double kWaitSeconds = 30;
  GeoCluePositionSource source("lumeo");
  std::optional<PositionFix> good;
  std::optional<PositionFix> coarse;
  std::optional<Error> failure;
  source.start(
      [&](const PositionFix& fix) {
        const double age = std::fabs(Date::now().timeIntervalSinceDate(fix.timestamp));
        // The same rule as for a record stamped in the editor.
        if (fix.horizontalAccuracy >= 0 && fix.horizontalAccuracy < LocationHelper::kAcceptedAccuracy &&
            age <= LocationHelper::kMaximumFixAge) {
          good = fix;
        } else {
          coarse = fix;
        }
      },
      [&](const Error& error) { failure = error; });
  MainLoop::shared().runUntil([&] { return good || failure; }, kWaitSeconds);
  source.stop();
  const std::string instead = "; give the place with --place LAT,LON instead";
  if (failure) throw CommandError(failure->description + instead);
  if (!good) {
    std::string why = "no position accurate to 100 m came within 30 seconds";
    if (coarse) {
      char best[80];
      std::snprintf(best, sizeof best, " (the last was within %.0f m)", coarse->horizontalAccuracy);
      why += best;
    }
    throw CommandError(why + instead);
  }
  return {good->latitude, good->longitude};
}

namespace {

// The view's size in points; the picture has one pixel per point.
constexpr double kMapWidth = 800;
constexpr double kMapHeight = 600;

struct MapOptions {
  std::optional<std::string> from;
  std::optional<std::string> to;
  std::vector<std::string> tags;
  std::optional<std::string> bbox;
  std::optional<std::string> zoom;
  std::optional<std::string> png;
  bool average = false;
};

struct BoundingBox {
  double west = 0, south = 0, east = 0, north = 0;
};

Date requireDay(const std::string& text, const std::string& what) {
  auto date = parseUserDate(text, Calendar::current());
  if (!date) {
    throw CommandError(
        "cannot read the " + what + " \"" + text + "\": write it as 2026-11-22 or as your locale writes it",
        kUsageError);
  }
  return *date;
}

double requireNumber(const std::string& text, const std::string& what) {
  double value = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), " %lf %c", &value, &rest) != 1 || !std::isfinite(value)) {
    throw CommandError(what + " must be a number, not \"" + text + "\"", kUsageError);
  }
  return value;
}

// "W,S,E,N" in degrees: west before east, south before north, latitudes
// within the map's ±85°.
BoundingBox parseBoundingBox(const std::string& text) {
  BoundingBox box;
  char rest = 0;
  const bool read = std::sscanf(text.c_str(), " %lf , %lf , %lf , %lf %c", &box.west, &box.south, &box.east,
                                &box.north, &rest) == 4;
  const auto usage = [&](const std::string& why) {
    return CommandError("--bbox is WEST,SOUTH,EAST,NORTH in degrees (" + why + "), not \"" + text + "\"",
                        kUsageError);
  };
  if (!read) throw usage("four numbers");
  for (double v : {box.west, box.south, box.east, box.north}) {
    if (!std::isfinite(v)) throw usage("four numbers");
  }
  if (box.west < -180 || box.east > 180) throw usage("longitudes from -180 to 180");
  if (box.south < -85 || box.north > 85) throw usage("latitudes from -85 to 85");
  if (box.west >= box.east) throw usage("west before east");
  if (box.south >= box.north) throw usage("south before north");
  return box;
}

// The longitude span that a map `width` points wide shows at a zoom level
// (the inverse of the cluster controller's zoomLevel).
double longitudeSpanForZoom(double zoom, double width) {
  constexpr double kPointsPerDegree = 2982616.177777778;
  const double mapPoints = width * std::pow(2.0, 22.0 - zoom);
  return std::min(360.0, mapPoints / kPointsPerDegree);
}

// The smallest region that holds every pin, with a margin; a single place
// gets about 2 km around it.
CoordinateRegion regionAround(const MoodMapPointAnnotationList& pins) {
  if (pins.empty()) return {{20, 0}, {150, 360}};
  double south = 90, north = -90, west = 180, east = -180;
  for (const auto& pin : pins) {
    const auto c = pin->coordinate();
    south = std::min(south, c.latitude);
    north = std::max(north, c.latitude);
    west = std::min(west, c.longitude);
    east = std::max(east, c.longitude);
  }
  const double latSpan = std::max(0.02, (north - south) * 1.2);
  const double lonSpan = std::max(0.02, (east - west) * 1.2);
  return {{(south + north) / 2, (west + east) / 2}, {std::min(latSpan, 170.0), std::min(lonSpan, 360.0)}};
}

void settle(MoodMapViewController& screen) {
  if (!MainLoop::shared().runUntil([&] { return screen.isSettled(); }, 120)) {
    throw CommandError("the map did not finish clustering in two minutes");
  }
  // A clustering pass hands its result to the main queue; let it land.
  for (int quiet = 0; quiet < 3;) {
    quiet = MainLoop::shared().runOnce() == 0 && screen.isSettled() ? quiet + 1 : 0;
  }
}

// Faint lines every few degrees, so that the pins have a frame of reference
// without any map tiles.
void drawGraticule(Canvas& canvas, const MapView& map) {
  const CoordinateRegion region = map.region();
  const double span = std::max(region.span.longitudeDelta, region.span.latitudeDelta);
  double step = 30;
  for (double s : {0.01, 0.05, 0.1, 0.5, 1.0, 5.0, 10.0, 30.0}) {
    if (span / s <= 12) {
      step = s;
      break;
    }
  }
  const Color line(0.75, 0.80, 0.86);
  const double w = map.width(), h = map.height();
  const double west = region.center.longitude - region.span.longitudeDelta / 2;
  const double east = region.center.longitude + region.span.longitudeDelta / 2;
  for (double lon = std::ceil(west / step) * step; lon <= east; lon += step) {
    const double x = map.convertCoordinateToPoint({region.center.latitude, lon}).x;
    canvas.fillRect({std::round(x), 0, 1, h}, line);
  }
  const double south = std::max(-85.0, region.center.latitude - region.span.latitudeDelta / 2);
  const double north = std::min(85.0, region.center.latitude + region.span.latitudeDelta / 2);
  for (double lat = std::ceil(south / step) * step; lat <= north; lat += step) {
    const double y = map.convertCoordinateToPoint({lat, region.center.longitude}).y;
    canvas.fillRect({0, std::round(y), w, 1}, line);
  }
}

OptionalError drawPins(const HeadlessMapView& map, std::vector<GeoMapClusterAnnotationPtr> pins, bool average,
                       const std::filesystem::path& file) {
  Canvas canvas(static_cast<int>(map.width()), static_cast<int>(map.height()));
  canvas.fillRect({0, 0, map.width(), map.height()}, Color(0.91, 0.93, 0.95));
  drawGraticule(canvas, map);
  // North first, so that pins further south overlap them, as on a map.
  std::sort(pins.begin(), pins.end(),
            [](const auto& a, const auto& b) { return a->coordinate().latitude > b->coordinate().latitude; });
  const MoodLevelsPresentation levels;
  for (const auto& pin : pins) {
    MoodCircleView view;
    view.moodArray = MoodMapViewController::moodsArrayForClusterAnnotation(*pin);
    view.count = pin->count();
    view.averageCircle = average;
    const ViewPoint at = map.convertCoordinateToPoint(pin->coordinate());
    const double s = MoodCircleView::kSize;
    view.drawRect(canvas, {at.x - s / 2, at.y - s / 2, s, s}, levels);
  }
  canvas.drawText("Lumeo", {6, map.height() - 18}, Font{11, false, false, {}}, Color(0.45, 0.5, 0.56));
  return canvas.writePNG(file);
}

void runMap(CliApp& cli, const MapOptions& options) {
  // Everything the user typed is checked before the journal opens.
  std::optional<Date> from;
  if (options.from) from = Calendar::current().startOfDay(requireDay(*options.from, "--from date"));
  std::optional<Date> to;
  if (options.to) {
    const Calendar calendar = Calendar::current();
    Date day = calendar.startOfDay(requireDay(*options.to, "--to date"));
    to = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, day).value_or(day).dateByAddingTimeInterval(-0.001);
  }
  if (from && to && *to < *from) throw CommandError("--to lies before --from", kUsageError);
  std::optional<BoundingBox> bbox;
  if (options.bbox) bbox = parseBoundingBox(*options.bbox);
  std::optional<double> zoom;
  if (options.zoom) {
    zoom = requireNumber(*options.zoom, "--zoom");
    if (*zoom < 0 || *zoom > 22) throw CommandError("--zoom goes from 0 (the world) to 22", kUsageError);
  }
  std::optional<std::filesystem::path> png;
  if (options.png) png = std::filesystem::path(*options.png);

  MoodAppDelegate& app = journalSession(cli);
  JournalStore& store = app.store();
  std::vector<std::string> tagNames;
  for (const auto& raw : options.tags) {
    const std::string name = !raw.empty() && raw[0] == '#' ? raw.substr(1) : raw;
    if (name.empty() || name.find_first_of("*?") != std::string::npos) {
      throw CommandError("\"" + raw + "\" is not a tag name (see `lumeo tags`)", kUsageError);
    }
    auto tag = store.tagNamed(name);
    if (!tag) throw CommandError("no tag named \"" + name + "\" (see `lumeo tags`)");
    tagNames.push_back(tag->tagName());
  }

  auto map = std::make_shared<HeadlessMapView>(kMapWidth, kMapHeight);
  auto screen = MoodMapViewController::create(store, map);
  screen->setFollowsOwnLocation(false);
  screen->dataReader().setBatchPause(0);
  if (options.average) screen->changeModeButtonClicked();
  screen->viewDidLoad();
  if (from || to) {
    // The tab filters by dates only with both ends; an open end here means
    // "since the beginning" or "until now".
    const Date start = from ? *from : Date::fromTimeIntervalSince1970(0);
    const Date end = to ? *to : Date::now();
    screen->setFilterDates(start, end);
  }
  if (!tagNames.empty()) screen->selectionCompleatedWithSet({tagNames.begin(), tagNames.end()});
  settle(*screen);

  CoordinateRegion region;
  if (bbox) {
    region = {{(bbox->south + bbox->north) / 2, (bbox->west + bbox->east) / 2},
              {bbox->north - bbox->south, bbox->east - bbox->west}};
  } else {
    region = regionAround(screen->allAnnotations());
  }
  // Shown as a rectangle of the map's plane around the region's centre, so
  // that a tall region far from the equator keeps its centre.
  MapRect rect = MapRectForCoordinateRegion(region);
  const MapPoint centre = MapPointForCoordinate(region.center);
  double mapWidth = std::max(rect.size.width, rect.size.height * kMapWidth / kMapHeight);
  if (zoom) mapWidth = longitudeSpanForZoom(*zoom, kMapWidth) / 360.0 * kMapWorldWidth;
  mapWidth = std::min(mapWidth, kMapWorldWidth);
  const double mapHeight = mapWidth * kMapHeight / kMapWidth;
  map->setVisibleMapRect(MapRectMake(centre.x - mapWidth / 2, centre.y - mapHeight / 2, mapWidth, mapHeight));
  settle(*screen);

  auto pins = screen->clusterAnnotations();
  std::sort(pins.begin(), pins.end(), [](const auto& a, const auto& b) {
    if (a->count() != b->count()) return a->count() > b->count();
    return a->coordinate().latitude > b->coordinate().latitude;
  });
  const CoordinateRegion shown = map->region();
  const double zoomShown = screen->clusterController().zoomLevel();
  std::size_t records = 0;
  for (const auto& pin : pins) records += pin->count();

  if (png) {
    if (auto error = drawPins(*map, pins, screen->averageDrawing(), *png)) {
      throw CommandError("cannot write " + png->string() + ": " + error->description);
    }
  }
  const auto round6 = [](double v) { return std::round(v * 1e6) / 1e6; };
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& pin : pins) {
      list.push_back({{"latitude", round6(pin->coordinate().latitude)},
                      {"longitude", round6(pin->coordinate().longitude)},
                      {"count", pin->count()},
                      {"levels", MoodMapViewController::moodsArrayForClusterAnnotation(*pin)},
                      {"uniqueLocation", pin->isUniqueLocation()},
                      {"title", pin->title()},
                      {"subtitle", pin->subtitle()}});
    }
    cli.printJson(
        {{"center",
          {{"latitude", round6(shown.center.latitude)}, {"longitude", round6(shown.center.longitude)}}},
         {"span",
          {{"latitude", round6(shown.span.latitudeDelta)}, {"longitude", round6(shown.span.longitudeDelta)}}},
         {"zoom", std::round(zoomShown * 100) / 100},
         {"located", screen->allAnnotations().size()},
         {"shown", records},
         {"skipped", screen->dataReader().skippedCount()},
         {"pins", list},
         {"png", png ? nlohmann::json(png->string()) : nlohmann::json(nullptr)}});
    return;
  }
  char head[200];
  std::snprintf(head, sizeof head, "Map around %.5f, %.5f, %.4f by %.4f degrees (zoom %.1f)\n",
                shown.center.latitude, shown.center.longitude, shown.span.latitudeDelta,
                shown.span.longitudeDelta, zoomShown);
  cli.out() << head;
  if (screen->allAnnotations().empty()) {
    cli.out() << "No records with a place" << (tagNames.empty() && !from && !to ? "" : " match the filter")
              << ".\n";
  } else {
    cli.out() << pins.size() << (pins.size() == 1 ? " pin" : " pins") << " for " << records << " of "
              << screen->allAnnotations().size() << " located records in view\n";
  }
  for (const auto& pin : pins) {
    auto moods = MoodMapViewController::moodsArrayForClusterAnnotation(*pin);
    std::string levels;
    for (long level : moods) levels += (levels.empty() ? "" : " ") + std::to_string(level);
    char line[160];
    std::snprintf(line, sizeof line, "  %10.5f %11.5f  %-16s", pin->coordinate().latitude,
                  pin->coordinate().longitude, pin->title().c_str());
    cli.out() << line << (pin->isUniqueLocation() ? "one place   " : "many places ") << "levels "
              << oneLine(levels, 60) << "\n";
  }
  if (auto skipped = screen->dataReader().skippedCount()) {
    cli.out() << skipped << (skipped == 1 ? " record has" : " records have")
              << " an impossible position (beyond ±90° / ±180°) and is left out.\n";
  }
  if (png) cli.out() << "Written to " << png->string() << "\n";
}

void runLocationsClear(CliApp& cli, bool yes) {
  MoodAppDelegate& app = journalSession(cli);
  const std::size_t located = app.store().locatedDescriptions().size();
  if (located == 0) {
    if (cli.json()) {
      cli.printJson({{"cleared", 0}});
    } else {
      cli.out() << "No record has a place; nothing to delete.\n";
    }
    return;
  }
  if (!yes) {
    if (!cli.interactive())
      throw CommandError("deleting all places needs --yes when not run on a terminal", 2);
    cli.out() << localized("Attention!") << "\n"
              << localized("All location data will be permanently deleted. Are you sure?") << " (" << located
              << (located == 1 ? " record" : " records") << ")\nYes or Cancel? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes" && answer != "Yes") {
      cli.out() << "Kept every place.\n";
      return;
    }
  }
  app.store().removeCoordinates();
  if (auto error = app.store().lastSaveError()) {
    app.managedObjectContext()->rollback();
    throw CommandError("could not delete the places: " + error->description + " (nothing was changed)");
  }
  if (cli.json()) {
    cli.printJson({{"cleared", located}});
  } else {
    cli.out() << localized("All location data has been successfully deleted") << " (" << located
              << (located == 1 ? " record" : " records") << ").\n";
  }
}

// --- Places ----------------------------------------------------------------

// The user's settings without opening the journal: a place search reads
// nothing of it and needs no passcode.
std::shared_ptr<UserDefaults> placeSettings(CliApp& cli) {
  if (cli.home()) DataDirectories::setHomeOverride(*cli.home());
  if (!DataDirectories::current().create()) throw CommandError("cannot make Lumeo's folders");
  return PlistUserDefaults::installStandard();
}

std::shared_ptr<NominatimPlaceSearch> placeSearch(CliApp& cli) {
  NominatimPlaceSearch::Options options;
  if (auto endpoint = placeSettings(cli)->stringForKey(kPlaceSearchEndpointKey)) options.endpoint = *endpoint;
  // A terminal user waits longer than a search box would.
  options.timeoutSeconds = 20;
  return NominatimPlaceSearch::create(options);
}

nlohmann::json placeJson(const Place& place) {
  return {{"name", place.name},
          {"displayName", place.displayName},
          {"kind", place.kind},
          {"latitude", place.coordinate.latitude},
          {"longitude", place.coordinate.longitude}};
}

void printPlace(CliApp& cli, const Place& place) {
  char line[80];
  std::snprintf(line, sizeof line, "%10.5f,%-11.5f ", place.coordinate.latitude, place.coordinate.longitude);
  cli.out() << line << oneLine(place.displayName.empty() ? place.name : place.displayName, 100)
            << (place.kind.empty() ? "" : " (" + place.kind + ")") << "\n";
}

void runPlaceSearch(CliApp& cli, const std::string& text, const std::optional<std::string>& nearText) {
  requireUtf8(text, "the search");
  if (text.find_first_not_of(" \t\r\n") == std::string::npos)
    throw CommandError("say what to search for", kUsageError);
  std::optional<CoordinateRegion> near;
  if (nearText) {
    auto [latitude, longitude] = parsePlace(*nearText);
    near = CoordinateRegion{{latitude, longitude}, {1.0, 1.0}};
  }
  auto search = placeSearch(cli);
  std::optional<std::vector<Place>> places;
  OptionalError failure;
  search->search(text, near, [&](const std::vector<Place>& found, const OptionalError& error) {
    places = found;
    failure = error;
  });
  MainLoop::shared().runUntil([&] { return places.has_value(); }, 120);
  if (!places) throw CommandError("the place search did not finish");
  if (failure) throw CommandError(failure->description);
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& place : *places) list.push_back(placeJson(place));
    cli.printJson({{"query", text}, {"places", list}});
    return;
  }
  if (places->empty()) {
    cli.out() << "No place found for \"" << text << "\".\n";
    return;
  }
  for (const auto& place : *places) printPlace(cli, place);
}

void runPlaceReverse(CliApp& cli, const std::string& where) {
  auto [latitude, longitude] = parsePlace(where);
  auto search = placeSearch(cli);
  bool done = false;
  std::optional<Place> place;
  OptionalError failure;
  search->reverse({latitude, longitude}, [&](const std::optional<Place>& found, const OptionalError& error) {
    place = found;
    failure = error;
    done = true;
  });
  MainLoop::shared().runUntil([&] { return done; }, 120);
  if (!done) throw CommandError("the place lookup did not finish");
  if (failure) throw CommandError(failure->description);
  if (cli.json()) {
    cli.printJson({{"place", place ? placeJson(*place) : nlohmann::json(nullptr)}});
    return;
  }
  if (!place) {
    cli.out() << "No named place at " << where << ".\n";
    return;
  }
  printPlace(cli, *place);
}

void runPlaceServer(CliApp& cli, const std::optional<std::string>& url, bool reset) {
  auto settings = placeSettings(cli);
  if (url && reset) throw CommandError("give a server or --reset, not both", kUsageError);
  if (url) {
    if (url->rfind("http://", 0) != 0 && url->rfind("https://", 0) != 0) {
      throw CommandError("the place server is an http:// or https:// address, not \"" + *url + "\"",
                         kUsageError);
    }
    if (auto error = settings->setString(kPlaceSearchEndpointKey, *url))
      throw CommandError(error->description);
  } else if (reset) {
    if (auto error = settings->removeObjectForKey(kPlaceSearchEndpointKey))
      throw CommandError(error->description);
  }
  settings->synchronize();
  const std::string current =
      settings->stringForKey(kPlaceSearchEndpointKey).value_or(kNominatimPublicEndpoint);
  if (cli.json()) {
    cli.printJson({{"server", current}});
  } else {
    cli.out() << "Places are looked up on " << current << "\n";
  }
}

void registerCommands(CliApp& cli) {
  auto map = std::make_shared<MapOptions>();
  CLI::App* m =
      cli.root().add_subcommand("map", "The pins of the Map tab for a view: clusters, counts and levels");
  m->add_option("--from", map->from, "First day of records to show")->type_name("DATE");
  m->add_option("--to", map->to, "Last day of records to show")->type_name("DATE");
  m->add_option("--tag", map->tags, "Only records with this tag (repeatable: any of them)")
      ->type_name("NAME");
  m->add_option("--bbox", map->bbox, "The view: WEST,SOUTH,EAST,NORTH in degrees (default: all pins)")
      ->type_name("W,S,E,N");
  m->add_option("--zoom", map->zoom, "Zoom level, 0 (world) to 22; centred on the view")->type_name("Z");
  m->add_option("--png", map->png, "Also draw the pins into this picture (800x600)")->type_name("FILE");
  m->add_flag("--average", map->average, "One circle in the average mood's colour instead of pies");
  m->callback([&cli, map] { runMap(cli, *map); });

  CLI::App& locations = cli.noun("locations", "The places stored with records");
  auto yes = std::make_shared<bool>(false);
  CLI::App* clear = locations.add_subcommand("clear", "Delete the place of every record (records stay)");
  clear->add_flag("--yes", *yes, "Do not ask");
  clear->callback([&cli, yes] { runLocationsClear(cli, *yes); });

  CLI::App& place = cli.noun("place", "Find places by name and name a position (Nominatim)");
  auto text = std::make_shared<std::string>();
  auto near = std::make_shared<std::optional<std::string>>();
  CLI::App* search = place.add_subcommand("search", "Places that match a name or an address");
  search->add_option("TEXT", *text, "What to look for")->required();
  search->add_option("--near", *near, "Prefer places around LAT,LON")->type_name("LAT,LON");
  search->callback([&cli, text, near] { runPlaceSearch(cli, *text, *near); });
  auto where = std::make_shared<std::string>();
  CLI::App* reverse = place.add_subcommand("reverse", "The named place at a position");
  reverse->add_option("POSITION", *where, "The position in degrees")->required()->type_name("LAT,LON");
  reverse->callback([&cli, where] { runPlaceReverse(cli, *where); });
  auto url = std::make_shared<std::optional<std::string>>();
  auto reset = std::make_shared<bool>(false);
  CLI::App* server = place.add_subcommand("server", "Show or set the Nominatim server places come from");
  server->add_option("URL", *url, "The server's address, e.g. https://nominatim.example.org");
  server->add_flag("--reset", *reset, "Back to the public server");
  server->callback([&cli, url, reset] { runPlaceServer(cli, *url, *reset); });
}

const CommandRegistration kMapCommands(45, registerCommands);

}  // namespace

}  // namespace lumeo::cli
