// The event store's five entities and their class-level fetches: events,
// their revisions, object changes, global identifiers and data files. All of
// them live in the event store's own SQLite file and are touched only on the
// event store context's queue.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_context.h"
#include "sync/sync_property_change_value.h"
#include "sync/sync_revision.h"

namespace lumeo {

inline constexpr char kSyncStoreModificationEventEntity[] = "SyncStoreModificationEvent";
inline constexpr char kSyncEventRevisionEntity[] = "SyncEventRevision";
inline constexpr char kSyncObjectChangeEntity[] = "SyncObjectChange";
inline constexpr char kSyncGlobalIdentifierEntity[] = "SyncGlobalIdentifier";
inline constexpr char kSyncDataFileEntity[] = "SyncDataFile";

enum SyncStoreModificationEventType : std::int16_t {
  kSyncEventTypeIncomplete = 0,
  kSyncEventTypeBaseline = 100,
  kSyncEventTypeSave = 200,
  kSyncEventTypeMerge = 300,
};

enum SyncObjectChangeType : std::int16_t {
  kSyncObjectChangeTypeInsert = 100,
  kSyncObjectChangeTypeUpdate = 200,
  kSyncObjectChangeTypeDelete = 300,
};

std::shared_ptr<ManagedObjectModel> makeSyncEventStoreModel();

class SyncEventRevision;
class SyncObjectChange;
class SyncGlobalIdentifier;
class SyncDataFile;

class SyncStoreModificationEvent : public ManagedObject {
 public:
  std::string uniqueIdentifier() const;
  void setUniqueIdentifier(const std::string& identifier);
  std::int16_t type() const;
  void setType(std::int16_t type);
  std::int64_t globalCount() const;
  void setGlobalCount(std::int64_t count);
  double timestamp() const;
  void setTimestamp(double timestamp);
  std::optional<std::string> modelVersion() const;
  void setModelVersion(const std::optional<std::string>& version);

  std::shared_ptr<SyncEventRevision> eventRevision() const;
  std::vector<std::shared_ptr<SyncEventRevision>> eventRevisionsOfOtherStores() const;
  std::vector<std::shared_ptr<SyncObjectChange>> objectChanges() const;
  std::string persistentStoreIdentifier() const;  // of eventRevision; "" when none

  SyncRevisionSet revisionSetOfOtherStoresAtCreation() const;
  void setRevisionSetOfOtherStoresAtCreation(const SyncRevisionSet& set);
  // The others plus this event's own revision.
  SyncRevisionSet revisionSet() const;
  void setRevisionSet(SyncRevisionSet& set, const std::string& persistentStoreIdentifier);
  void deleteEventRevisions();

  // --- Class-level fetches (on the context's queue).
  static std::vector<std::shared_ptr<SyncStoreModificationEvent>> fetchStoreModificationEventsWithTypes(
      const std::vector<int>& types, const std::optional<std::string>& persistentStoreIdentifier,
      ManagedObjectContext& context);
  static std::shared_ptr<SyncStoreModificationEvent> fetchStoreModificationEventWithUniqueIdentifier(
      const std::string& uniqueIdentifier, ManagedObjectContext& context);
  static std::shared_ptr<SyncStoreModificationEvent> fetchStoreModificationEventWithAllowedTypes(
      const std::vector<int>& types, const std::optional<std::string>& persistentStoreIdentifier,
      std::int64_t revisionNumber, ManagedObjectContext& context);
  static std::shared_ptr<SyncStoreModificationEvent> fetchNonBaselineEventForPersistentStoreIdentifier(
      const std::string& persistentStoreIdentifier, std::int64_t revisionNumber,
      ManagedObjectContext& context);
  static std::vector<std::shared_ptr<SyncStoreModificationEvent>>
  fetchNonBaselineEventsForPersistentStoreIdentifier(const std::string& persistentStoreIdentifier,
                                                     std::int64_t sinceRevisionNumber,
                                                     ManagedObjectContext& context);
  static std::shared_ptr<SyncStoreModificationEvent> fetchMostRecentBaselineStoreModificationEvent(
      ManagedObjectContext& context);
  static std::vector<std::shared_ptr<SyncStoreModificationEvent>> fetchNonBaselineEventsUpToGlobalCount(
      std::int64_t globalCount, ManagedObjectContext& context);
  static std::vector<std::shared_ptr<SyncStoreModificationEvent>> fetchNonBaselineEvents(
      ManagedObjectContext& context);
  // Loads the events' changes, their global identifiers and revisions, so
  // that walking many events makes no fetch per relationship.
  static void prefetchRelatedObjectsForStoreModificationEvents(
      const std::vector<std::shared_ptr<SyncStoreModificationEvent>>& events, ManagedObjectContext& context);
  static Predicate predicateForAllowedTypes(const std::vector<int>& types,
                                            const std::optional<std::string>& persistentStoreIdentifier);

 protected:
  void awakeFromInsert() override;
  void awakeFromFetch() override;
};

class SyncEventRevision : public ManagedObject {
 public:
  std::string persistentStoreIdentifier() const;
  void setPersistentStoreIdentifier(const std::string& identifier);
  std::int64_t revisionNumber() const;
  void setRevisionNumber(std::int64_t number);
  // The identifier, the number and the global count of the event it hangs
  // on (-1 with none).
  SyncRevision revision() const;

  static std::set<std::string> fetchPersistentStoreIdentifiers(ManagedObjectContext& context);
  static std::shared_ptr<SyncEventRevision> makeEventRevisionForPersistentStoreIdentifier(
      const std::string& identifier, std::int64_t revisionNumber, ManagedObjectContext& context);
  static std::vector<std::shared_ptr<SyncEventRevision>> makeEventRevisionsForRevisionSet(
      const SyncRevisionSet& set, ManagedObjectContext& context);
};

class SyncObjectChange : public ManagedObject {
 public:
  std::int16_t type() const;
  void setType(std::int16_t type);
  std::string nameOfEntity() const;
  void setNameOfEntity(const std::string& name);
  std::shared_ptr<SyncGlobalIdentifier> globalIdentifier() const;
  void setGlobalIdentifier(const std::shared_ptr<SyncGlobalIdentifier>& identifier);
  std::shared_ptr<SyncStoreModificationEvent> storeModificationEvent() const;
  void setStoreModificationEvent(const std::shared_ptr<SyncStoreModificationEvent>& event);

  // Throws SyncException when the stored archive is malformed.
  std::optional<std::vector<SyncPropertyChangeValue>> propertyChangeValues() const;
  // Assigns the values and keeps the data file rows in step; the names in
  // `oldDataFiles` count as still present.
  void setPropertyChangeValues(const std::optional<std::vector<SyncPropertyChangeValue>>& values,
                               const std::vector<std::string>& oldDataFiles = {});
  std::optional<SyncPropertyChangeValue> propertyChangeValueForPropertyName(const std::string& name) const;
  void mergeValuesFromSubordinateObjectChange(const SyncObjectChange& subordinate);
  // Code -1 in the sync domain when there are no values and this is no delete.
  OptionalError validatePropertyChangeValues() const;

 private:
  void updateDataFiles(const std::vector<SyncPropertyChangeValue>* values,
                       const std::vector<std::string>& oldFiles);
};

class SyncGlobalIdentifier : public ManagedObject {
 public:
  std::string globalIdentifier() const;
  void setGlobalIdentifier(const std::string& identifier);
  std::optional<std::string> storeURI() const;
  void setStoreURI(const std::optional<std::string>& uri);
  std::string nameOfEntity() const;
  void setNameOfEntity(const std::string& name);

  // In the order of the URIs, null where none matched.
  static std::vector<std::shared_ptr<SyncGlobalIdentifier>> fetchGlobalIdentifiersForObjectURIs(
      const std::vector<std::string>& uris, ManagedObjectContext& context);
  // For each position, the row of that string and entity, or null.
  static std::vector<std::shared_ptr<SyncGlobalIdentifier>> fetchGlobalIdentifiersForIdentifierStrings(
      const std::vector<std::string>& identifiers, const std::vector<std::string>& entityNames,
      ManagedObjectContext& context);
  static std::vector<std::shared_ptr<SyncGlobalIdentifier>> fetchUnreferencedGlobalIdentifiers(
      ManagedObjectContext& context);

 protected:
  void awakeFromInsert() override;
};

class SyncDataFile : public ManagedObject {
 public:
  std::string filename() const;
  void setFilename(const std::string& name);

  static std::set<std::string> allFilenames(ManagedObjectContext& context);
  static std::set<std::string> unreferencedFilenames(ManagedObjectContext& context);
  static std::set<std::string> filenamesInStoreModificationEvents(
      const std::vector<std::shared_ptr<SyncStoreModificationEvent>>& events, ManagedObjectContext& context);
};

// Event order: global count, timestamp, store identifier.
bool syncEventPrecedes(const SyncStoreModificationEvent& a, const SyncStoreModificationEvent& b);

// Visits `items` in batches of `batchSize`, calling `drain` after each batch
// so that temporary objects of the batch can go (the engine uses 50 for
// capture and 100 for folding changes into baselines).
template <class T, class Block>
void sync_enumerateObjectsDrainingEveryIterations(const std::vector<T>& items, std::size_t batchSize,
                                                  const Block& block) {
  if (batchSize == 0) batchSize = 1;
  for (std::size_t start = 0; start < items.size(); start += batchSize) {
    std::size_t end = std::min(items.size(), start + batchSize);
    for (std::size_t i = start; i < end; ++i) {
      bool stop = false;
      block(items[i], i, stop);
      if (stop) return;
    }
  }
}

}  // namespace lumeo
