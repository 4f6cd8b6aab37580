// The unit buttons of the tag panel: a row of common units that fill the
// unit field with one touch. Which row depends on the user's first
// preferred language (and, for French, on whether the locale is Canadian).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumeo {

// The units for a preferred language ("fr", "fr_CA" or "fr-CA": only the
// language part counts) and a locale identifier ("fr_CA", "fr_CA.UTF-8").
// Russian gets its own row, French in Canada imperial units under their
// French names, everything else the default row. "ml" stands twice in the
// Latin rows on purpose: the panel has always shown it so.
std::vector<std::string> tagUnitsForLanguage(std::string_view preferredLanguage,
                                             std::string_view localeIdentifier);

// The language the user prefers most: the first of LANGUAGE (colon
// separated), then of LC_ALL, LC_MESSAGES or LANG, as the text catalogue
// chooses it; "en" when none is set.
std::string preferredLanguage();

// The user's locale for the unit choice: LC_ALL, then LC_MESSAGES, then
// LANG, as an ICU name ("fr_CA"); "en_US_POSIX" when none is set.
std::string tagUnitLocaleIdentifier();

// The row for the current user.
std::vector<std::string> tagUnitButtons();

}  // namespace lumeo
