// Styled text as a value: a sequence of runs, each with its own font weight,
// size, colour and letter spacing. Tag labels are built as such values and
// the front ends render them, so the CLI, the PDF and the GUI agree.
#pragma once

#include <string>
#include <vector>

namespace lumeo {

enum class FontWeight { kRegular, kBold };

struct TextRun {
  std::string text;
  FontWeight weight = FontWeight::kRegular;
  double pointSize = 0;  // the system font at this size
  // RGBA, 0..1.
  double red = 1, green = 1, blue = 1, alpha = 1;
  // Extra space after each character of the run, in points (0: none).
  double kern = 0;
  friend bool operator==(const TextRun&, const TextRun&) = default;
};

struct AttributedString {
  std::vector<TextRun> runs;

  // The plain text, runs joined.
  std::string string() const {
    std::string s;
    for (const auto& run : runs) s += run.text;
    return s;
  }
  friend bool operator==(const AttributedString&, const AttributedString&) = default;
};

}  // namespace lumeo
