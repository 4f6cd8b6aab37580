// The sync benchmarks' seeded event stream and its writers (see the header).
#include "sync_event_stream.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>

#include "sync/sync_event_entities.h"

namespace lumeo::bench {

namespace {

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

void saveOrExit(ManagedObjectContext& context) {
  if (auto error = context.save()) {
    std::fprintf(stderr, "saving events failed: %s\n", error->toString().c_str());
    std::exit(1);
  }
}

}  // namespace

std::vector<StreamOperation> makeEventStream(int count) {
  std::mt19937_64 rng(18);
  std::vector<StreamOperation> ops;
  std::vector<std::string> live;
  int serial = 0;
  for (int i = 0; i < count; ++i) {
    int roll = int(rng() % 100);
    if (live.empty() || roll < 40) {
      StreamOperation op{StreamOperation::kInsert, "obj-" + std::to_string(serial++), "", Value()};
      live.push_back(op.id);
      ops.push_back(op);
    } else if (roll < 90) {
      const std::string& id = live[rng() % live.size()];
      if (rng() % 2) {
        ops.push_back({StreamOperation::kUpdate, id, "comment", Value("comment " + std::to_string(i))});
      } else {
        ops.push_back(
            {StreamOperation::kUpdate, id, "latitude", Value(double(rng() % 18000) / 100.0 - 90.0)});
      }
    } else {
      std::size_t k = rng() % live.size();
      ops.push_back({StreamOperation::kDelete, live[k], "", Value()});
      live[k] = live.back();
      live.pop_back();
    }
  }
  return ops;
}

void writeEventStream(SyncEventStore& store, const std::vector<StreamOperation>& ops,
                      const std::string& storeIdentifier) {
  auto context = store.managedObjectContext();
  context->performBlockAndWait([&] {
    std::map<std::string, std::shared_ptr<SyncGlobalIdentifier>> rows;
    for (std::size_t i = 0; i < ops.size(); ++i) {
      const StreamOperation& op = ops[i];
      auto event = context->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
      event->setType(kSyncEventTypeSave);
      event->setGlobalCount(std::int64_t(i));
      event->setTimestamp(double(i));
      SyncRevisionSet set;
      set.addRevision(SyncRevision(storeIdentifier, std::int64_t(i)));
      event->setRevisionSet(set, storeIdentifier);
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
      if (op.kind == StreamOperation::kInsert) {
        change->setType(kSyncObjectChangeTypeInsert);
        change->setPropertyChangeValues(insertValues(op.id));
      } else if (op.kind == StreamOperation::kUpdate) {
        change->setType(kSyncObjectChangeTypeUpdate);
        SyncPropertyChangeValue value(kSyncPropertyChangeTypeAttribute, op.property);
        value.value = op.value;
        change->setPropertyChangeValues(std::vector<SyncPropertyChangeValue>{value});
      } else {
        change->setType(kSyncObjectChangeTypeDelete);
      }
      if (i % 1000 == 999) saveOrExit(*context);
    }
    saveOrExit(*context);
    context->reset();
  });
}

void emitEventStream(const std::vector<StreamOperation>& ops, const std::string& path) {
  std::ofstream out(path);
  for (const auto& op : ops) {
    out << "{\"k\":" << op.kind << ",\"id\":\"" << op.id << "\"";
    if (op.kind == StreamOperation::kUpdate) {
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

}  // namespace lumeo::bench
