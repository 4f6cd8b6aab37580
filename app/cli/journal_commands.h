// The journal commands of the lumeo command (add, list, show, delete) and
// the journal session behind them: the application object, launched when a
// command first needs the journal and terminated when the command ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/date.h"

namespace lumeo {
class JournalStore;
class MoodAppDelegate;
class MoodRecord;
class SecretStore;
}  // namespace lumeo

namespace lumeo::cli {

class CliApp;

// The running application object; launches it (store open, tabs up) on
// first use. Throws CommandError when the store file is not a journal.
MoodAppDelegate& journalSession(CliApp& app);
// Saves and closes the journal and lets go of its writer lock; the next
// journalSession() opens it again. A command that runs for long (`watch
// serve`) holds the journal only while it works on it, so that other
// commands can write in between.
void closeJournalSession(CliApp& app);
// Takes the journal's writer lock for the rest of the session, if this
// process does not hold it yet: for a close hook (CliApp::addCloseHook)
// that finds it has something to write at the end of a reading command.
// Throws CommandError when another writer keeps the journal busy.
void holdJournalLock();

// The system's keyring (the Secret Service) for this journal, installed as
// the shared secret store on first use unless one is installed already.
std::shared_ptr<SecretStore> journalKeyring();

// Pieces of the commands' plain-text output, shared by every command file:
// a date in ISO 8601 with its offset, a record's number, and one line of a
// comment cut to `width` bytes on a character boundary.
std::string isoText(Date date);
std::int64_t recordID(const MoodRecord& record);
std::string oneLine(std::string text, std::size_t width);

// Fills the journal with `days` days of sample records ending today, two
// or three a day, with comments and tags, saved in one transaction; the same
// `seed` gives the same journal. Returns the number of records made.
std::size_t fillDemoJournal(JournalStore& store, int days = 28, std::uint32_t seed = 7);

}  // namespace lumeo::cli
