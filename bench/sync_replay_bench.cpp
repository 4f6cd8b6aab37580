// Replays a stream of events into an empty journal and reports events per
// second. The stream is made from a fixed seed: 40% inserts of a description
// with 6 properties, 50% updates of one property of a live object, 10%
// deletes. With --emit FILE the same stream is written as JSON lines for the
// peer (bench/sync_replay_yjs.mjs), so both replay the same operations.
//
//   sync_replay_bench [--events N] [--emit FILE] [--dir DIR]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "store/journal_model.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_store.h"

using namespace lumeo;

namespace {

struct Operation {
  int kind;  // 0 insert, 1 update, 2 delete
  std::string id;
  std::string property;
  Value value;
};

std::vector<Operation> makeStream(int count) {
  std::mt19937_64 rng(18);
  std::vector<Operation> ops;
  std::vector<std::string> live;
  int serial = 0;
  for (int i = 0; i < count; ++i) {
    int roll = int(rng() % 100);
    if (live.empty() || roll < 40) {
      Operation op{0, "obj-" + std::to_string(serial++), "", Value()};
      live.push_back(op.id);
      ops.push_back(op);
    } else if (roll < 90) {
      const std::string& id = live[rng() % live.size()];
      if (rng() % 2) {
        ops.push_back({1, id, "comment", Value("comment " + std::to_string(i))});
      } else {
        ops.push_back({1, id, "latitude", Value(double(rng() % 18000) / 100.0 - 90.0)});
      }
    } else {
      std::size_t k = rng() % live.size();
      ops.push_back({2, live[k], "", Value()});
      live[k] = live.back();
      live.pop_back();
    }
  }
  return ops;
}

std::vector<SyncPropertyChangeValue> insertValues(const std::string& id) {
  std::vector<SyncPropertyChangeValue> values;
  auto add = [&](const char* name, Value v) {
    SyncPropertyChangeValue value(kSyncPropertyChangeTypeAttribute, name);
    value.value = std::move(v);
    values.push_back(std::move(value));
  };
  add("uniqueIdentifier", Value(id));
  add("comment", Value("new " + id));
  add("latitude", Value(48.1));
  add("longitude", Value(11.5));
  add("wasEdited", Value(false));
  add("thumbChecksum", Value("d41d8cd98f00b204e9800998ecf8427e"));
  return values;
}

void writeEvents(SyncEventStore& store, const std::vector<Operation>& ops) {
  auto context = store.managedObjectContext();
  context->performBlockAndWait([&] {
    std::map<std::string, std::shared_ptr<SyncGlobalIdentifier>> rows;
    for (std::size_t i = 0; i < ops.size(); ++i) {
      const Operation& op = ops[i];
      auto event = context->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
      event->setType(kSyncEventTypeSave);
      event->setGlobalCount(std::int64_t(i));
      event->setTimestamp(double(i));
      SyncRevisionSet set;
      set.addRevision(SyncRevision("PEER", std::int64_t(i)));
      event->setRevisionSet(set, "PEER");
      auto& row = rows[op.id];
      if (!row) {
        row = context->insertNewObject<SyncGlobalIdentifier>(kSyncGlobalIdentifierEntity);
        row->setGlobalIdentifier(op.id);
        row->setNameOfEntity("MoodDescription");
      }
      auto change = context->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
      change->setNameOfEntity("MoodDescription");
      change->setGlobalIdentifier(row);
      change->setStoreModificationEvent(event);
      if (op.kind == 0) {
        change->setType(kSyncObjectChangeTypeInsert);
        change->setPropertyChangeValues(insertValues(op.id));
      } else if (op.kind == 1) {
        change->setType(kSyncObjectChangeTypeUpdate);
        SyncPropertyChangeValue value(kSyncPropertyChangeTypeAttribute, op.property);
        value.value = op.value;
        change->setPropertyChangeValues(std::vector<SyncPropertyChangeValue>{value});
      } else {
        change->setType(kSyncObjectChangeTypeDelete);
      }
      if (i % 1000 == 999) {
        if (auto error = context->save()) {
          std::fprintf(stderr, "saving events failed: %s\n", error->toString().c_str());
          std::exit(1);
        }
      }
    }
    if (auto error = context->save()) {
      std::fprintf(stderr, "saving events failed: %s\n", error->toString().c_str());
      std::exit(1);
    }
    context->reset();
  });
}

void emit(const std::vector<Operation>& ops, const std::string& path) {
  std::ofstream out(path);
  for (const auto& op : ops) {
    out << "{\"k\":" << op.kind << ",\"id\":\"" << op.id << "\"";
    if (op.kind == 1) {
      out << ",\"p\":\"" << op.property << "\",\"v\":";
      if (op.value.asString()) {
        out << "\"" << *op.value.asString() << "\"";
      } else {
        out << op.value.toDouble();
      }
    }
    out << "}\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  int count = 100000;
  std::string emitPath;
  std::filesystem::path dir;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string arg = argv[i];
    if (arg == "--events") count = std::atoi(argv[i + 1]);
    if (arg == "--emit") emitPath = argv[i + 1];
    if (arg == "--dir") dir = argv[i + 1];
  }
  bool ownDir = dir.empty();
  if (ownDir) {
    std::string pattern = (std::filesystem::temp_directory_path() / "lumeo-sync-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return 1;
    dir = pattern;
  }
  std::vector<Operation> ops = makeStream(count);
  if (!emitPath.empty()) emit(ops, emitPath);

  auto events = std::make_shared<SyncEventStore>("MainStore", dir / "events");
  if (auto error = events->prepareNewEventStore()) {
    std::fprintf(stderr, "%s\n", error->toString().c_str());
    return 1;
  }
  auto setupStart = std::chrono::steady_clock::now();
  writeEvents(*events, ops);
  double setupSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - setupStart).count();

  std::filesystem::path journal = dir / "Model.sqlite";
  auto model = makeJournalModel();
  {
    auto coordinator = std::make_shared<PersistentStoreCoordinator>(model);
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, journal);
  }
  auto integrator = std::make_shared<SyncEventIntegrator>(journal, model, events);
  auto start = std::chrono::steady_clock::now();
  SyncMergeResult result = integrator->mergeEvents();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!result.succeeded || result.error) {
    std::fprintf(stderr, "merge failed: %s\n", result.error ? result.error->toString().c_str() : "no reason");
    return 1;
  }
  int live = 0;
  {
    auto coordinator = std::make_shared<PersistentStoreCoordinator>(model);
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, journal);
    ManagedObjectContext context;
    context.setPersistentStoreCoordinator(coordinator);
    live = int(context.countForFetchRequest(FetchRequest("MoodDescription")));
  }
  std::printf("lumeo: %d events (written in %.2f s) integrated in %.3f s: %.0f events/s, %d objects live\n",
              count, setupSeconds, seconds, count / seconds, live);
  if (ownDir) std::filesystem::remove_all(dir);
  return 0;
}
