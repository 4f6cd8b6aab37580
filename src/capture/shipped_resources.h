// The shipped level table and word list, built into the program from
// resources/mood.plist and resources/emotions.plist, so that a fresh journal
// has labels, colours and suggestions without any installed data files.
#pragma once

#include <string_view>

namespace lumeo {

// XML property-list text of the shipped "mood.plist".
std::string_view shippedMoodTable();
// XML property-list text of the shipped "emotions.plist".
std::string_view shippedEmotionsList();

}  // namespace lumeo
