// Peer side of bench/cluster.sh: loads the points that cluster_bench wrote,
// builds a supercluster index over them and clusters the same viewports,
// timing each the way cluster_bench times Lumeo (median of runs). A radius of
// 30 pixels matches Lumeo's 60-point grid cells at the same scale. Prints
// "<case> <count> <milliseconds> [clusters]" lines.
import fs from 'node:fs';
import path from 'node:path';
import Supercluster from 'supercluster';

const dir = process.argv[2];
const sizes = [100000, 1000000];

function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  const n = sorted.length;
  return n % 2 ? sorted[(n - 1) / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
}

function now() {
  return Number(process.hrtime.bigint()) / 1e6;
}

function readPoints(count) {
  const bytes = fs.readFileSync(path.join(dir, `points_${count}.f64`));
  const copy = new ArrayBuffer(bytes.length);
  new Uint8Array(copy).set(bytes);
  const lonLat = new Float64Array(copy);
  const features = new Array(count);
  for (let i = 0; i < count; i++) {
    features[i] = {
      type: 'Feature',
      properties: null,
      geometry: {type: 'Point', coordinates: [lonLat[2 * i], lonLat[2 * i + 1]]},
    };
  }
  return features;
}

const viewports = fs.readFileSync(path.join(dir, 'viewports.txt'), 'utf8').trim().split('\n').map(line => {
  const [name, west, south, east, north, zoom] = line.split(' ');
  return {name, bbox: [Number(west), Number(south), Number(east), Number(north)], zoom: Number(zoom)};
});

for (const count of sizes) {
  const features = readPoints(count);
  const builds = [];
  let index;
  const buildRuns = count >= 1000000 ? 3 : 5;
  for (let run = 0; run < buildRuns; run++) {
    index = null;
    const start = now();
    const fresh = new Supercluster({radius: 30, extent: 512, maxZoom: 16, minPoints: 2});
    fresh.load(features);
    builds.push(now() - start);
    index = fresh;
  }
  console.log(`build ${count} ${median(builds).toFixed(4)}`);

  for (const viewport of viewports) {
    const times = [];
    let clusters = 0;
    const deadline = now() + 1500;
    for (let run = 0; run < 200 && (run < 5 || now() < deadline); run++) {
      const start = now();
      const result = index.getClusters(viewport.bbox, viewport.zoom);
      const elapsed = now() - start;
      if (run > 0) times.push(elapsed);
      clusters = result.length;
    }
    console.log(`${viewport.name} ${count} ${median(times).toFixed(4)} ${clusters}`);
  }
}
