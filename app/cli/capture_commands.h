// The editor's commands on the command line (edit, tags, tag rename and
// delete, values, complete, template, levels) and the capture path that
// `lumeo add` shares with them: every record the CLI writes goes through
// MoodRecordState's apply, so tags become links and photos land in the
// image store exactly as in the editor.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/date.h"
#include "platform/image.h"

namespace lumeo {
class MoodAppDelegate;
class MoodRecord;
}  // namespace lumeo

namespace lumeo::cli {

// A photo ready for the store: within 640 × 860 and its 264 × 264
// thumbnail, both upright.
struct PickedPhoto {
  Image photo;
  Image thumb;
};

// Reads a picture file the way the editor takes a picked image. Throws
// CommandError (status 1) for a missing file or one that is not a picture.
PickedPhoto readPickedPhoto(const std::filesystem::path& file);
PickedPhoto pickedPhotoFromImage(const Image& image);

// "LAT,LON" in degrees; throws CommandError for anything else or a
// coordinate out of range.
std::pair<double, double> parsePlace(const std::string& text);

// A new record as the capture tab makes it and the editor finishes it.
struct CaptureInput {
  long level = 0;  // 1..10, checked by the caller
  Date date;
  // Without a comment the record starts from the template; an empty one
  // leaves it without.
  std::optional<std::string> comment;
  std::optional<PickedPhoto> photo;
  std::optional<std::pair<double, double>> place;
};

// The core's one-step capture (captureNewRecord): inserts the record,
// applies the state (tags, pictures, backup counter, the template when
// there is no comment) and saves in one transaction. On failure nothing is
// kept and CommandError says why.
std::shared_ptr<MoodRecord> captureRecord(MoodAppDelegate& app, const CaptureInput& input);

}  // namespace lumeo::cli
