// The passcode gate of the lumeo command. Every command that opens the
// journal passes it, except capture (add) and the commands that belong to
// capturing (complete, template, levels), lock status and enable, and the
// reminder agent: the journal session's start hook asks for the passcode
// when one is set. Commands that must ask again later may call
// requireUnlocked() themselves; it asks only once per process.
#pragma once

namespace lumeo::cli {

class CliApp;

// Returns when no passcode is set or the user gave the right one (on the
// terminal without echo, or from --passcode-fd N); otherwise throws
// CommandError: "Pass code didn't match. Try again." with status 1 for a
// wrong code, status 2 for a code that is not four digits.
void requireUnlocked(CliApp& app);

}  // namespace lumeo::cli
