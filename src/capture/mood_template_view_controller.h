// The template screen: the text that every new record starts with, with
// the same tag completion as the editor (most used first, no edit or delete
// of offers). The template is stored only when the user goes back.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/regular_expression.h"
#include "capture/suggested_tags.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;
class MoodTag;
class MoodUserDefaultsOperator;

class MoodTemplateViewController : public MoodViewController {
 public:
  static constexpr const char* kPlaceholder = "Enter your template for moods";

  MoodTemplateViewController(JournalStore& store, std::filesystem::path libraryDirectory,
                             MoodUserDefaultsOperator& defaults);

  // Shows the stored template, cursor at its end.
  void viewDidLoad();
  void viewWillAppear();

  void textViewDidChange(const std::string& text, std::size_t cursor);
  void setSelection(std::size_t location, std::size_t length);
  // The "Return" button over the keyboard: a line break at the end.
  void returnButtonClicked();
  // Stores the text as the template and leaves.
  void backButtonClicked();

  std::optional<TextRange> rangeOfIncompleteTag() const;
  void checkTagCompletion();
  const std::vector<std::shared_ptr<MoodTag>>& completionOptions() const { return completionOptions_; }
  void didSelectCompletionRow(std::size_t row);

  const std::string& text() const { return text_; }
  std::size_t cursor() const { return cursor_; }
  std::string placeholder() const;

 private:
  JournalStore& store_;
  MoodUserDefaultsOperator& defaults_;
  SuggestedTags suggestions_;
  std::string text_;
  std::size_t cursor_ = 0;
  std::size_t selectionLength_ = 0;
  std::vector<std::shared_ptr<MoodTag>> completionOptions_;
};

}  // namespace lumeo
