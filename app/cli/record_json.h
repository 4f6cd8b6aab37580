// The one shape in which every command's --json prints a record: add, list,
// show and edit print it alone, history in its day sections, photos in the
// gallery's order, calendar in each day's cell.
#pragma once

#include <nlohmann/json.hpp>

namespace lumeo {
class MoodRecord;
}

namespace lumeo::cli {

// id, uri, uniqueIdentifier, date, level, comment, tags, latitude,
// longitude, photo (the image store's file name), photoFile and thumbFile
// (their paths in the image store), photoMissing (the record names a photo
// that is gone from the image store) and edited; absent values are null.
// A record without a place has null latitude and longitude, never -1.
nlohmann::json recordJson(const MoodRecord& record);

}  // namespace lumeo::cli
