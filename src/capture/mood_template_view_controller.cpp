// The template screen's logic. Unlike the record editor it looks at the
// last character of the whole text for the unit offer and has no deletion
// check, so deleting back to a ":" at the end offers the unit again.
#include "capture/mood_template_view_controller.h"

#include "capture/hashtag_grammar.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "store/journal_store.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

MoodTemplateViewController::MoodTemplateViewController(JournalStore& store,
                                                       std::filesystem::path libraryDirectory,
                                                       MoodUserDefaultsOperator& defaults)
    : MoodViewController("MoodTemplateViewController"),
      store_(store),
      defaults_(defaults),
      suggestions_(store, std::move(libraryDirectory), CompletionSort::kFrequencyOnly) {}

std::string MoodTemplateViewController::placeholder() const {
  return localized(kPlaceholder);
}

void MoodTemplateViewController::viewDidLoad() {
  text_ = defaults_.templateText().value_or("");
  cursor_ = text_.size();
}

void MoodTemplateViewController::viewWillAppear() {
  suggestions_.createChildManagedObjectContext();
}

void MoodTemplateViewController::textViewDidChange(const std::string& text, std::size_t cursor) {
  text_ = text;
  cursor_ = std::min(cursor, text_.size());
  selectionLength_ = 0;
  checkTagCompletion();
  if (text_.empty() || text_.back() != ':') return;
  auto name = tagNameForUnitOffer(text_);
  if (!name) return;
  auto tag = store_.tagNamed(*name);
  if (!tag || !tag->tagUnit() || tag->tagUnit()->empty()) return;
  text_.insert(cursor_, *tag->tagUnit());
}

void MoodTemplateViewController::setSelection(std::size_t location, std::size_t length) {
  cursor_ = std::min(location, text_.size());
  selectionLength_ = std::min(length, text_.size() - cursor_);
}

void MoodTemplateViewController::returnButtonClicked() {
  text_ += "\n";
  cursor_ = text_.size();
}

void MoodTemplateViewController::backButtonClicked() {
  LUMEO_DROP_ERROR(defaults_.setTemplateText(text_));
}

std::optional<TextRange> MoodTemplateViewController::rangeOfIncompleteTag() const {
  if (selectionLength_ > 0) return std::nullopt;
  return lumeo::rangeOfIncompleteTag(text_, cursor_);
}

void MoodTemplateViewController::checkTagCompletion() {
  auto range = rangeOfIncompleteTag();
  if (!range) {
    completionOptions_.clear();
    return;
  }
  completionOptions_ = suggestions_.completionOptionsForString(text_.substr(range->location, range->length));
}

void MoodTemplateViewController::didSelectCompletionRow(std::size_t row) {
  if (row >= completionOptions_.size()) return;
  auto range = rangeOfIncompleteTag();
  std::string name = completionOptions_[row]->tagName();
  if (range && range->length <= name.size()) {
    std::string rest = name.substr(range->length);
    text_.insert(cursor_, rest);
    cursor_ += rest.size();
  }
  completionOptions_.clear();
}

}  // namespace lumeo
