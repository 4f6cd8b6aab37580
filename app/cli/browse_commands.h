// The browsing commands (history, calendar, photos) and the picture of a
// record's comment that `lumeo show ID --png` writes.
#pragma once

#include <filesystem>

namespace lumeo {
class MoodRecord;
}

namespace lumeo::cli {

class CliApp;

// Draws the record's comment as the history's detail pane shows it
// (tagged text, `width` points wide, at twice the pixels) and writes it as
// a PNG. Throws CommandError for a width out of range or a file that
// cannot be written; nothing is left half-written.
void writeCommentPicture(CliApp& cli, const MoodRecord& record, const std::filesystem::path& file,
                         long width);

}  // namespace lumeo::cli
