// The journal's data model, "Model": the entities MoodRecord,
// MoodDescription and MoodTag with their attributes, defaults, indexes and
// relationships, each entity made by its typed class so that the save hooks
// run.
#pragma once

#include <memory>

#include "objectgraph/managed_object_model.h"

namespace lumeo {

inline constexpr const char* kJournalModelName = "Model";
inline constexpr const char* kMoodRecordEntity = "MoodRecord";
inline constexpr const char* kMoodDescriptionEntity = "MoodDescription";
inline constexpr const char* kMoodTagEntity = "MoodTag";

// A new, finalized model. Each call builds its own; they are equal in shape,
// so stores made by one open with another.
std::shared_ptr<ManagedObjectModel> makeJournalModel();

}  // namespace lumeo
