// Renaming and deleting a tag across the journal. Numbers and tags live in
// the comments, so both rewrite the text of every record that holds the tag;
// the links follow at the next apply of each record. Shared by the editor's
// tag panel and the command line.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace lumeo {

class JournalStore;
class MoodTag;

// Renames the tag stored under exactly `oldName` (case counts) to
// `newName` with `unit`, rewriting "#old" in each of its records' comments
// where it is followed by a blank, a colon or the end. A tag not stored yet
// (a suggestion) gets its row now. Saves. Returns the renamed row. Whether
// `newName` is taken already is not checked: two rows may then share it.
std::shared_ptr<MoodTag> updateMoodTag(JournalStore& store, const std::string& oldName,
                                       const std::string& newName, const std::optional<std::string>& unit);

// Deletes `tag`: removes its mentions from each of its records' comments
// (value forms, a plain tag at the end, a plain tag with its following
// blank; "#tag." stays) saving once per record, deletes the row and saves,
// then takes the name out of "emotions.plist" in `libraryDirectory`.
// Returns true when the word list held the name, so that suggestions must
// be rebuilt. A tag that is only a suggestion (no row) touches no comment.
bool removeMoodTag(JournalStore& store, const std::shared_ptr<MoodTag>& tag, const std::string& tagName,
                   const std::filesystem::path& libraryDirectory);

}  // namespace lumeo
