// What the capture and merge steps need from the ensemble that owns them:
// the journal's model (current and older versions) and the global
// identifiers of newly inserted objects. The ensemble itself comes with the
// sync manager; until then tests and tools fill this in directly.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/managed_object_model.h"
#include "platform/error.h"

namespace lumeo {

class ImageStore;

struct SyncEnsembleHooks {
  // For each object, in order, its identity across devices, or nothing for
  // a fresh unique one. The whole answer may be missing too.
  using GlobalIdentifiers = std::function<std::optional<std::vector<std::optional<std::string>>>(
      const std::vector<ManagedObjectPtr>&)>;

  std::shared_ptr<ManagedObjectModel> managedObjectModel;
  // Every model version this build reads, oldest first; empty means the
  // current model alone.
  std::vector<std::shared_ptr<const ManagedObjectModel>> modelVersions;
  GlobalIdentifiers globalIdentifiersForManagedObjects;
  // Where descriptions' photos are read from and written to; the
  // process-wide image store when not set.
  std::shared_ptr<ImageStore> imageStore;

  // The integrator's blocks (see SyncEventIntegrator).
  std::function<bool(ManagedObjectContext& mergeContext, ManagedObjectContext& reparationContext)>
      shouldSaveBlock;
  std::function<bool(ManagedObjectContext& mergeContext, const Error& error,
                     ManagedObjectContext& reparationContext)>
      failedSaveBlock;
  std::function<void(ManagedObjectContext& mergeContext)> didSaveBlock;

  std::vector<std::shared_ptr<const ManagedObjectModel>> allModelVersions() const {
    if (!modelVersions.empty()) return modelVersions;
    if (managedObjectModel) return {managedObjectModel};
    return {};
  }
};

// The journal's identities: a record's and a description's
// "uniqueIdentifier", a tag's name. Objects of the same identity made on two
// devices become one object.
std::optional<std::vector<std::optional<std::string>>> journalGlobalIdentifiersForManagedObjects(
    const std::vector<ManagedObjectPtr>& objects);

}  // namespace lumeo
