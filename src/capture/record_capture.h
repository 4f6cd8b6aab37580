// Capturing a new record without the editor on screen: the path of the
// command line's `lumeo add` (and of anything else that records a mood in
// one step). It makes the record exactly as the capture tile and the editor
// do — record and description together, the editor's state applied once —
// so tags become links, photos land in the image store and the backup
// counter counts the record, and it follows the editor's rule for the
// starting text: a record given no comment starts from the template.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "capture/mood_record_state.h"
#include "platform/date.h"
#include "platform/error.h"
#include "platform/image.h"

namespace lumeo {

class MoodRecord;
class MoodUserDefaultsOperator;

// The text a new record starts with: the template of the reminder that
// opened the capture if there is one, else the user's template (`lumeo
// template set`, the template screen); nothing when neither is set. A
// reminder's template serves one record, so this uses it up.
std::optional<std::string> takeNewRecordTemplate(MoodUserDefaultsOperator& defaults);

struct NewRecordInput {
  long level = 0;  // 1..10, checked by the caller
  Date date;
  // The comment; without one the record starts from the template. An empty
  // text is a comment too: the record then has none, template or not.
  std::optional<std::string> comment;
  std::optional<Image> photo;                      // within 640 × 860, upright
  std::optional<Image> thumb;                      // 264 × 264
  std::optional<std::pair<double, double>> place;  // latitude, longitude
};

// Inserts the record, applies the state (tags, pictures, backup counter)
// and saves, in one transaction. On failure the context is rolled back,
// nothing is kept and the error says why.
std::variant<std::shared_ptr<MoodRecord>, Error> captureNewRecord(const RecordStateServices& services,
                                                                  MoodUserDefaultsOperator& defaults,
                                                                  const NewRecordInput& input);

}  // namespace lumeo
