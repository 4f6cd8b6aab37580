// The user's locale for dates and numbers, read from the environment at every
// call the way the C library does (LC_ALL, then LC_TIME, then LANG), and
// turned from a POSIX name ("en_GB.UTF-8") into an ICU one ("en_GB").
#pragma once

#include <string>
#include <string_view>

namespace lumeo {

// "de_DE.UTF-8@euro" -> "de_DE", "sr_RS@latin" -> "sr_Latn_RS",
// "C" and "POSIX" -> "en_US_POSIX". ICU names pass through unchanged.
std::string icuLocaleFromPosix(std::string_view posixName);

// The ICU name of the locale that governs date formats and the calendar's
// first weekday now. Empty variables count as unset; with none set the
// locale is "en_US_POSIX", as for a C program.
std::string userLocaleIdentifier();

}  // namespace lumeo
