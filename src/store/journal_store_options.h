// How every connection opens the journal file: a rollback journal, never
// write-ahead logging (a connection of another process left open in that
// mode keeps this one from switching the file back, and it waits until it
// gives up), with automatic migration. The application's store and the sync
// engine's own connections to the journal open it the same way.
#pragma once

#include "platform/value.h"

namespace lumeo {

Value::Dictionary journalStoreOptions();

}  // namespace lumeo
