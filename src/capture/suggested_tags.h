// Completion of a tag being typed: the real tags of the journal plus the
// feeling words of "emotions.plist" that are not tags yet, offered from a
// child context that holds the words as unsaved tags and is never saved.
// The record editor, the template screen and the reminder text share it;
// only their sort differs.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace lumeo {

class JournalStore;
class ManagedObjectContext;
class MoodTag;

enum class CompletionSort {
  kFrequencyThenName,  // the record editor: unused suggestions alphabetically
  kFrequencyOnly,      // template and reminder texts: ties in store order
};

inline constexpr std::size_t kCompletionLimit = 100;

class SuggestedTags {
 public:
  // `libraryDirectory` holds "emotions.plist"; a missing or unreadable list
  // gives no suggestions and completion works from real tags alone.
  SuggestedTags(JournalStore& store, std::filesystem::path libraryDirectory, CompletionSort sort);

  // The child of the main context with one unsaved tag (frequency 0) per
  // word that no tag has yet, up to case and accents. Built once; null when
  // the journal has no context.
  std::shared_ptr<ManagedObjectContext> createChildManagedObjectContext();
  // Forgets the child, so the next use reads the word list again (after a
  // tag was renamed or deleted).
  void dropChildManagedObjectContext() { child_.reset(); }
  bool hasChildManagedObjectContext() const { return child_ != nullptr; }

  // Offers for `typed` (the text after "#", may be empty): names starting
  // with it, most used first, at most `limit`. Empty when the only match
  // already is the typed word, so there is nothing left to complete.
  std::vector<std::shared_ptr<MoodTag>> completionOptionsForString(const std::string& typed,
                                                                   std::size_t limit = kCompletionLimit);

 private:
  JournalStore& store_;
  std::filesystem::path libraryDirectory_;
  CompletionSort sort_;
  std::shared_ptr<ManagedObjectContext> child_;
};

}  // namespace lumeo
