// Times the clustering engine on the work a map does: building the tree of
// all annotations and clustering one viewport at world, country and city
// zoom. bench/cluster.sh runs it beside supercluster on the same points:
//   cluster_bench --write-points DIR        writes the points and viewports
//   cluster_bench --points DIR --peer FILE  times Lumeo and prints ratios
// Without arguments it generates the points itself and prints its own times.
// For a profiler, --count N --viewport NAME --passes P [--pan-passes Q]
// time one case with exactly P viewport passes (the build then runs once)
// and Q pans (41 unless given).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "map/geo_map_cell_grid.h"
#include "map/geo_map_cluster_operation.h"
#include "map/geo_map_cluster_utility.h"
#include "map/geo_map_tree.h"
#include "map/headless_map_view.h"

namespace {

using namespace lumeo;
using Clock = std::chrono::steady_clock;

constexpr double kMapWidth = 1280;
constexpr double kMapHeight = 800;
std::vector<std::size_t> kSizes = {100000, 1000000};
std::string onlyViewport;  // empty: all of them
int fixedPasses = 0;       // 0: as many as fit in the time budget
int panPasses = 41;

struct Viewport {
  std::string name;
  CoordinateRegion region;
};

// Whole zoom levels, so that one point of ours is one pixel of the peer's
// (its world is 512 * 2^zoom pixels, ours 256 * 2^level points).
double spanAtLevel(int level) {
  return 360.0 * kMapWidth / (256.0 * std::pow(2.0, level));
}

const std::vector<Viewport> kViewports = {
    {"world", {{20, 0}, {60, spanAtLevel(3)}}},
    {"country", {{46.6, 2.4}, {5, spanAtLevel(7)}}},
    {"city", {{48.8566, 2.3522}, {0.1, spanAtLevel(12)}}},
};

// Journal-like places: most records near a few hundred towns (the first is
// Paris, under the country and city viewports), the rest anywhere.
std::vector<double> makePoints(std::size_t count) {
  std::mt19937_64 random(20261122);
  std::uniform_real_distribution<double> unit(0, 1);
  std::normal_distribution<double> gauss(0, 1);
  std::vector<std::pair<double, double>> towns{{2.3522, 48.8566}};
  while (towns.size() < 300) towns.emplace_back(-180 + 360 * unit(random), -55 + 125 * unit(random));
  std::vector<double> lonLat;
  lonLat.reserve(count * 2);
  for (std::size_t i = 0; i < count; ++i) {
    double lon, lat;
    if (unit(random) < 0.7) {
      // A fifth of the town records near Paris, the others spread over towns.
      const auto& town = unit(random) < 0.2 ? towns[0] : towns[random() % towns.size()];
      double spread = unit(random) < 0.5 ? 0.02 : 0.5;
      lon = town.first + gauss(random) * spread;
      lat = town.second + gauss(random) * spread;
    } else {
      lon = -180 + 360 * unit(random);
      lat = -60 + 135 * unit(random);
    }
    lon = std::clamp(lon, -180.0, 180.0);
    lat = std::clamp(lat, -84.0, 84.0);
    lonLat.push_back(lon);
    lonLat.push_back(lat);
  }
  return lonLat;
}

std::string pointsPath(const std::string& dir, std::size_t count) {
  return dir + "/points_" + std::to_string(count) + ".f64";
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  std::size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The headless map shows the viewport as a 1280 by 800 window would.
std::shared_ptr<HeadlessMapView> mapFor(const Viewport& viewport) {
  auto map = std::make_shared<HeadlessMapView>(kMapWidth, kMapHeight);
  map->setRegion(viewport.region, false);
  return map;
}

// The same viewport in supercluster's terms: a bounding box and its integer
// zoom, whose world is 512 * 2^zoom pixels where ours is 256 * 2^level.
void writeViewports(const std::string& dir) {
  std::ofstream out(dir + "/viewports.txt");
  for (const Viewport& viewport : kViewports) {
    auto map = mapFor(viewport);
    MapRect rect = map->visibleMapRect();
    double west = rect.minX() / kMapWorldWidth * 360 - 180;
    double east = rect.maxX() / kMapWorldWidth * 360 - 180;
    double north = CoordinateForMapPoint(rect.origin).latitude;
    double south = CoordinateForMapPoint({rect.minX(), rect.maxY()}).latitude;
    double level = zoomLevelForRegion(map->region(), map->width());
    int zoom = std::max(0, static_cast<int>(std::lround(level - 1)));
    char line[256];
    std::snprintf(line, sizeof line, "%s %.17g %.17g %.17g %.17g %d %.6f\n", viewport.name.c_str(), west,
                  south, east, north, zoom, level);
    out << line;
  }
}

struct Measurements {
  std::map<std::string, double> milliseconds;  // "build 100000", "world 100000", ...
  std::map<std::string, std::size_t> clusters;
  std::map<std::string, double> firstPass;   // tree walk, the first pass at a zoom
  std::map<std::string, double> tableBuild;  // the second pass, which builds the cell table
  std::map<std::string, double> tableMegabytes;
  std::map<std::string, double> pan;  // steady passes, the last screen's pins on the map
};

Measurements measureLumeo(const std::map<std::size_t, std::vector<double>>& pointSets) {
  Measurements result;
  for (const auto& [count, lonLat] : pointSets) {
    MapAnnotationList annotations;
    annotations.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
      annotations.push_back(
          std::make_shared<PointAnnotation>(LocationCoordinate2D{lonLat[2 * i + 1], lonLat[2 * i]}));

    std::vector<double> builds;
    std::shared_ptr<GeoMapTree> tree;
    int buildRuns = fixedPasses ? 1 : count >= 1000000 ? 3 : 5;
    for (int run = 0; run < buildRuns; ++run) {
      tree.reset();
      auto fresh = std::make_shared<GeoMapTree>();
      auto start = Clock::now();
      fresh->addAnnotations(annotations);
      builds.push_back(millisecondsSince(start));
      tree = fresh;
    }
    result.milliseconds["build " + std::to_string(count)] = median(builds);

    for (const Viewport& viewport : kViewports) {
      if (!onlyViewport.empty() && viewport.name != onlyViewport) continue;
      auto map = mapFor(viewport);
      GeoMapClusterSnapshot snapshot;
      snapshot.visibleMapRect = map->visibleMapRect();
      snapshot.region = map->region();
      snapshot.width = map->width();
      snapshot.settings.marginFactor = 0;  // the peer clusters exactly the viewport
      snapshot.cellMapSize = cellMapSizeForCellSize(snapshot.settings.cellSize, *map);
      std::vector<double> times;
      auto clusterer = std::make_shared<GeoCenterOfMassMapClusterer>();
      auto deadline = Clock::now() + std::chrono::milliseconds(1500);
      std::string key = viewport.name + " " + std::to_string(count);
      // The first pass at a zoom walks the tree; the second builds the cell
      // table for the zoom's cell size; later ones (the steady state while
      // panning, and what the ratio compares) read the table.
      auto more = [&](int run) {
        return fixedPasses ? run < fixedPasses : run < 200 && (run < 7 || Clock::now() < deadline);
      };
      for (int run = 0; more(run); ++run) {
        auto visible = std::make_shared<GeoMapTree>();
        GeoMapClusterOperation operation(snapshot, tree, visible, clusterer, nullptr, {}, {});
        auto start = Clock::now();
        GeoMapClusterOperation::Result clusters = operation.clusterAnnotations();
        double elapsed = millisecondsSince(start);
        if (run == 0) result.firstPass[key] = elapsed;
        if (run == 1) result.tableBuild[key] = elapsed;
        if (run > 1) times.push_back(elapsed);
        result.clusters[key] = clusters.clusters.size();
      }
      result.milliseconds[key] = median(times);

      // Not in the ratio: what panning costs on a map that keeps its pins.
      // The view moves a quarter screen east and back, so most pins are
      // reused (same cell, same place) and a strip of them is new or gone.
      {
        auto visible = std::make_shared<GeoMapTree>();
        GeoMapClusterSnapshot moved = snapshot;
        moved.visibleMapRect.origin.x += snapshot.visibleMapRect.size.width / 4;
        std::vector<double> panTimes;
        for (int run = 0; run < panPasses; ++run) {
          const GeoMapClusterSnapshot& at = run % 2 ? moved : snapshot;
          GeoMapClusterOperation operation(at, tree, visible, clusterer, nullptr, {}, {});
          auto start = Clock::now();
          operation.clusterAnnotations();
          if (run > 0) panTimes.push_back(millisecondsSince(start));
        }
        result.pan[key] = median(panTimes);
      }
      if (const GeoMapCellGrid* grid = tree->cellGridForCellMapSize(snapshot.cellMapSize))
        result.tableMegabytes[key] = static_cast<double>(grid->memoryBytes()) / 1e6;
    }
  }
  return result;
}

std::map<std::size_t, std::vector<double>> generatedPoints() {
  std::map<std::size_t, std::vector<double>> sets;
  for (std::size_t count : kSizes) sets[count] = makePoints(count);
  return sets;
}

std::map<std::size_t, std::vector<double>> readPoints(const std::string& dir) {
  std::map<std::size_t, std::vector<double>> sets;
  for (std::size_t count : kSizes) {
    std::ifstream in(pointsPath(dir, count), std::ios::binary);
    std::vector<double> lonLat(count * 2);
    in.read(reinterpret_cast<char*>(lonLat.data()),
            static_cast<std::streamsize>(lonLat.size() * sizeof(double)));
    if (!in) {
      std::fprintf(stderr, "cluster_bench: cannot read %s\n", pointsPath(dir, count).c_str());
      std::exit(1);
    }
    sets[count] = std::move(lonLat);
  }
  return sets;
}

// The peer's results: lines of "<what> <count> <milliseconds> [clusters]".
Measurements readPeer(const std::string& path) {
  Measurements peer;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string what;
    std::size_t count = 0, clusters = 0;
    double milliseconds = 0;
    if (!(fields >> what >> count >> milliseconds)) continue;
    std::string key = what + " " + std::to_string(count);
    peer.milliseconds[key] = milliseconds;
    if (fields >> clusters) peer.clusters[key] = clusters;
  }
  if (peer.milliseconds.empty()) {
    std::fprintf(stderr, "cluster_bench: no peer results in %s\n", path.c_str());
    std::exit(1);
  }
  return peer;
}

void print(const Measurements& lumeo, const Measurements* peer) {
  std::printf("%-16s %10s %15s %7s %7s %9s %12s %9s %9s %8s\n", "case", "lumeo ms", "supercluster ms",
              "ratio", "pins", "peer pins", "1st pass ms", "2nd ms", "table MB", "pan ms");
  for (std::size_t count : kSizes) {
    std::vector<std::string> cases{"build"};
    for (const Viewport& viewport : kViewports) cases.push_back(viewport.name);
    for (const std::string& what : cases) {
      std::string key = what + " " + std::to_string(count);
      if (!lumeo.milliseconds.count(key)) continue;
      double ours = lumeo.milliseconds.at(key);
      auto pins = lumeo.clusters.count(key) ? std::to_string(lumeo.clusters.at(key)) : std::string("-");
      auto number = [](const std::map<std::string, double>& values, const std::string& name,
                       const char* format) {
        char text[32] = "-";
        if (values.count(name)) std::snprintf(text, sizeof text, format, values.at(name));
        return std::string(text);
      };
      std::string theirs = "-", ratio = "-", peerPins = "-";
      if (peer && peer->milliseconds.count(key)) {
        theirs = number(peer->milliseconds, key, "%.3f");
        char text[32];
        std::snprintf(text, sizeof text, "%.2f", ours / peer->milliseconds.at(key));
        ratio = text;
        if (peer->clusters.count(key)) peerPins = std::to_string(peer->clusters.at(key));
      }
      std::printf("%-16s %10.3f %15s %7s %7s %9s %12s %9s %9s %8s\n", key.c_str(), ours, theirs.c_str(),
                  ratio.c_str(), pins.c_str(), peerPins.c_str(), number(lumeo.firstPass, key, "%.3f").c_str(),
                  number(lumeo.tableBuild, key, "%.3f").c_str(),
                  number(lumeo.tableMegabytes, key, "%.1f").c_str(), number(lumeo.pan, key, "%.3f").c_str());
    }
  }
  std::printf(
      "ratio: steady-state pass (the cell table built, every pin new) / supercluster; 1st pass walks\n"
      "the tree, 2nd pass builds the table for that cell size; pan: a steady pass a quarter screen\n"
      "from the last one, with its pins still on the map (reused or removed), not in the ratio.\n");
}

}  // namespace

int main(int argc, char** argv) {
  std::string writeDir, pointsDir, peerFile;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--write-points"))
      writeDir = argv[i + 1];
    else if (!std::strcmp(argv[i], "--points"))
      pointsDir = argv[i + 1];
    else if (!std::strcmp(argv[i], "--peer"))
      peerFile = argv[i + 1];
    else if (!std::strcmp(argv[i], "--count"))
      kSizes = {std::stoul(argv[i + 1])};
    else if (!std::strcmp(argv[i], "--viewport"))
      onlyViewport = argv[i + 1];
    else if (!std::strcmp(argv[i], "--passes"))
      fixedPasses = std::max(3, std::stoi(argv[i + 1]));
    else if (!std::strcmp(argv[i], "--pan-passes"))
      panPasses = std::max(3, std::stoi(argv[i + 1]));
  }
  if (!writeDir.empty()) {
    for (std::size_t count : kSizes) {
      std::vector<double> lonLat = makePoints(count);
      std::ofstream out(pointsPath(writeDir, count), std::ios::binary);
      out.write(reinterpret_cast<const char*>(lonLat.data()),
                static_cast<std::streamsize>(lonLat.size() * sizeof(double)));
    }
    writeViewports(writeDir);
    return 0;
  }
  auto points = pointsDir.empty() ? generatedPoints() : readPoints(pointsDir);
  Measurements lumeo = measureLumeo(points);
  if (peerFile.empty()) {
    print(lumeo, nullptr);
  } else {
    Measurements peer = readPeer(peerFile);
    print(lumeo, &peer);
  }
  return 0;
}
