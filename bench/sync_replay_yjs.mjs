// The peer of sync_replay_bench: the same stream of operations as Yjs
// updates. Each operation is made on a source document and its update kept
// (not timed); then a fresh document integrates all updates one by one, as a
// device receiving them would (timed). Prints events per second.
//
//   node sync_replay_yjs.mjs STREAM.jsonl   (yjs resolved from NODE_PATH)
import { createRequire } from 'module';
import fs from 'fs';

const require = createRequire(import.meta.url);
const Y = require('yjs');

const lines = fs.readFileSync(process.argv[2], 'utf8').split('\n').filter(Boolean);
const ops = lines.map((l) => JSON.parse(l));

const source = new Y.Doc();
const records = source.getMap('records');
const updates = [];
source.on('update', (u) => updates.push(u));
for (const op of ops) {
  source.transact(() => {
    if (op.k === 0) {
      const m = new Y.Map();
      m.set('uniqueIdentifier', op.id);
      m.set('comment', 'new ' + op.id);
      m.set('latitude', 48.1);
      m.set('longitude', 11.5);
      m.set('wasEdited', false);
      m.set('thumbChecksum', 'd41d8cd98f00b204e9800998ecf8427e');
      records.set(op.id, m);
    } else if (op.k === 1) {
      records.get(op.id).set(op.p, op.v);
    } else {
      records.delete(op.id);
    }
  });
}

const target = new Y.Doc();
const start = process.hrtime.bigint();
for (const u of updates) Y.applyUpdate(target, u);
const seconds = Number(process.hrtime.bigint() - start) / 1e9;
const live = target.getMap('records').size;
console.log(`yjs: ${ops.length} events integrated in ${seconds.toFixed(3)} s: ${Math.round(ops.length / seconds)} events/s, ${live} objects live`);
