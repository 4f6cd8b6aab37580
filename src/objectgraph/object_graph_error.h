// Error domain and codes of the object-graph store. The numbers follow the
// platform store's codes where callers test for them (a merge conflict is
// 133020), so that code written against those numbers keeps working.
#pragma once

#include <string>

#include "platform/error.h"

namespace lumeo {

inline constexpr const char* kObjectGraphErrorDomain = "ObjectGraphErrorDomain";

enum ObjectGraphErrorCode : long {
  kValidationMissingMandatoryPropertyError = 1570,
  kValidationRelationshipDeniedDeleteError = 1600,
  kManagedObjectReferentialIntegrityError = 133000,
  kManagedObjectExternalRelationshipError = 133010,
  kManagedObjectMergeError = 133020,
  kPersistentStoreInvalidTypeError = 134000,
  kPersistentStoreTypeMismatchError = 134010,
  kPersistentStoreIncompatibleSchemaError = 134020,
  kPersistentStoreSaveError = 134030,
  kPersistentStoreIncompleteSaveError = 134040,
  kCoreDataError = 134060,
  kPersistentStoreOperationError = 134070,
  kPersistentStoreOpenError = 134080,
  kPersistentStoreTimeoutError = 134090,
  kPersistentStoreIncompatibleVersionHashError = 134100,
  kMigrationError = 134110,
  kMigrationMissingMappingModelError = 134140,
  kEntityMigrationPolicyError = 134170,
  kSQLiteError = 134180,
  kFetchRequestError = 134190,
};

inline Error objectGraphError(long code, std::string description) {
  return Error(kObjectGraphErrorDomain, code, std::move(description));
}

}  // namespace lumeo
