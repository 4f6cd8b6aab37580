// Tokens, line breaking, truncation and tap targets of the tagged text, on
// pango. Every line is laid out on its own from a bounded slice of the text,
// so a comment of a megabyte costs no more than the lines that show.
#include "capture/mood_tagged_text_view.h"

#include <glib.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "capture/hashtag_grammar.h"

namespace lumeo {

namespace {

constexpr char kEllipsis[] = "...";
constexpr double kButtonRadius = 6.0;

struct GObjectDeleter {
  void operator()(void* object) const {
    if (object) g_object_unref(object);
  }
};
template <class T>
using GPtr = std::unique_ptr<T, GObjectDeleter>;

struct AttrListDeleter {
  void operator()(PangoAttrList* list) const { pango_attr_list_unref(list); }
};

std::string validUTF8(const std::string& text) {
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return text;
  gchar* made = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  std::string out(made);
  g_free(made);
  return out;
}

// The start of the character before `offset`.
std::size_t previousCharacter(const std::string& text, std::size_t offset) {
  if (offset == 0) return 0;
  std::size_t at = offset - 1;
  while (at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
  return at;
}

// `offset` moved back to a character boundary.
std::size_t characterBoundary(const std::string& text, std::size_t offset) {
  offset = std::min(offset, text.size());
  while (offset > 0 && offset < text.size() && (static_cast<unsigned char>(text[offset]) & 0xC0) == 0x80)
    --offset;
  return offset;
}

guint16 component(double value) {
  return static_cast<guint16>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0));
}

void insertColor(PangoAttrList* list, const Color& color, std::size_t start, std::size_t end) {
  PangoAttribute* fg =
      pango_attr_foreground_new(component(color.red), component(color.green), component(color.blue));
  fg->start_index = static_cast<guint>(start);
  fg->end_index = static_cast<guint>(end);
  pango_attr_list_insert(list, fg);
  // Pango reads an alpha of 0 as "unset": the transparent "#" gets the
  // smallest alpha instead, which draws nothing.
  guint16 alpha = std::max<guint16>(1, component(color.alpha));
  PangoAttribute* a = pango_attr_foreground_alpha_new(alpha);
  a->start_index = static_cast<guint>(start);
  a->end_index = static_cast<guint>(end);
  pango_attr_list_insert(list, a);
}

}  // namespace

// --- Tokens --------------------------------------------------------------------------

const TaggedTextTag* TaggedAttributedText::tagAt(std::size_t offset) const {
  auto it =
      std::upper_bound(tags.begin(), tags.end(), offset,
                       [](std::size_t value, const TaggedTextTag& tag) { return value < tag.location; });
  if (it == tags.begin()) return nullptr;
  --it;
  return offset < it->end() ? &*it : nullptr;
}

TaggedAttributedText attributeTaggedText(const std::string& raw, const Color& textColor) {
  TaggedAttributedText out;
  out.text = validUTF8(raw);
  out.textColor = textColor;
  Color transparent = textColor;
  transparent.alpha = 0;
  for (const TaggedToken& token : taggedTokensInText(out.text)) {
    out.runs.push_back({token.token.location, 1, transparent, kTaggedTextHashLetterSpacing});
    out.runs.push_back({token.name.location, token.name.length, kTaggedTextNameColor, 0});
    if (token.valueUnit)
      out.runs.push_back({token.valueUnit->location, token.valueUnit->length, kTaggedTextValueColor, 0});
    std::size_t last = previousCharacter(out.text, token.token.end());
    out.runs.push_back({last, token.token.end() - last, std::nullopt, kTaggedTextLastLetterSpacing});
    out.tags.push_back({token.token.location, token.token.length, token.tagName});
  }
  return out;
}

// --- Layout engine ---------------------------------------------------------------------

struct MoodTaggedTextView::Engine {
  GPtr<PangoContext> context;
  PangoFontDescription* font = nullptr;

  // With `cr`, a context for drawing into it; otherwise one for measuring.
  // Hinting is off in both, so the measures agree at every scale.
  explicit Engine(cairo_t* cr = nullptr) {
    context.reset(cr ? pango_cairo_create_context(cr)
                     : pango_font_map_create_context(pango_cairo_font_map_get_default()));
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(context.get(), options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context.get(), FALSE);
    font = pango_font_description_from_string("DejaVu Sans");
  }
  ~Engine() { pango_font_description_free(font); }

  // A layout of text[start, end) with its attributes, or of `replacement`
  // (same length, or the slice followed by an ellipsis) when given.
  GPtr<PangoLayout> layout(const TaggedAttributedText& t, std::size_t start, std::size_t end,
                           const std::string* replacement = nullptr) const {
    GPtr<PangoLayout> layout(pango_layout_new(context.get()));
    pango_font_description_set_absolute_size(font, t.fontSize * PANGO_SCALE);
    pango_layout_set_font_description(layout.get(), font);
    const std::string& text = replacement ? *replacement : t.text;
    std::size_t from = replacement ? 0 : start;
    std::size_t length = replacement ? replacement->size() : end - start;
    pango_layout_set_text(layout.get(), text.data() + from, static_cast<int>(length));
    std::unique_ptr<PangoAttrList, AttrListDeleter> list(pango_attr_list_new());
    insertColor(list.get(), t.textColor, 0, length);
    std::size_t sliceLength = end - start;
    // Runs are in text order and lie within their tokens: start a little
    // before the slice and stop after it, so a slice costs its own runs.
    auto first = std::lower_bound(t.runs.begin(), t.runs.end(), start,
                                  [](const TaggedTextRun& run, std::size_t at) { return run.location < at; });
    while (first != t.runs.begin() && std::prev(first)->location + std::prev(first)->length > start) --first;
    for (auto it = first; it != t.runs.end() && it->location < end; ++it) {
      const TaggedTextRun& run = *it;
      if (run.location + run.length <= start) continue;
      std::size_t a = std::max(run.location, start) - start;
      std::size_t b = std::min(run.location + run.length, end) - start;
      if (run.color) insertColor(list.get(), *run.color, a, b);
      if (run.letterSpacing > 0) {
        double points = run.letterSpacing;
        if (!run.color) {
          // Space after a token's last character. Pango puts half of a
          // character's spacing before it and half after, which would
          // open a gap inside the word; twice the spacing on the next
          // character puts the same room after the token instead.
          std::size_t nextEnd = b;
          if (b < sliceLength) nextEnd = b + 1;
          while (nextEnd < sliceLength && (static_cast<unsigned char>(text[from + nextEnd]) & 0xC0) == 0x80)
            ++nextEnd;
          if (nextEnd == b || text[from + b] == '#') continue;
          a = b;
          b = nextEnd;
          points *= 2;
        }
        PangoAttribute* spacing = pango_attr_letter_spacing_new(static_cast<int>(points * PANGO_SCALE));
        spacing->start_index = static_cast<guint>(a);
        spacing->end_index = static_cast<guint>(b);
        pango_attr_list_insert(list.get(), spacing);
      }
    }
    pango_layout_set_attributes(layout.get(), list.get());
    return layout;
  }
};

namespace {

double toPoints(int pangoUnits) {
  return static_cast<double>(pangoUnits) / PANGO_SCALE;
}

// The x of the byte `index` of a one-line layout (its end for the length).
double xOfIndex(PangoLayout* layout, int index) {
  PangoRectangle pos;
  pango_layout_index_to_pos(layout, index, &pos);
  return toPoints(pos.x);
}

double layoutWidth(PangoLayout* layout) {
  PangoRectangle logical;
  pango_layout_get_extents(layout, nullptr, &logical);
  return toPoints(logical.width);
}

}  // namespace

// --- The view ------------------------------------------------------------------------------

MoodTaggedTextView::MoodTaggedTextView() = default;
MoodTaggedTextView::~MoodTaggedTextView() = default;

void MoodTaggedTextView::setTaggedText(const std::string& text) {
  attributed_ = attributeTaggedText(text, attributed_.textColor);
  layoutSubviews();
}

void MoodTaggedTextView::setMaxLinesCount(long count) {
  maxLinesCount_ = count;
  layoutSubviews();
}

void MoodTaggedTextView::setShortLinesCount(long count) {
  shortLinesCount_ = count;
  layoutSubviews();
}

void MoodTaggedTextView::setShortLinesIndent(double indent) {
  shortLinesIndent_ = indent;
  layoutSubviews();
}

void MoodTaggedTextView::setTextColor(const Color& color) {
  attributed_ = attributeTaggedText(attributed_.text, color);
  layoutSubviews();
}

void MoodTaggedTextView::setBounds(Size bounds) {
  bounds_ = bounds;
  layoutSubviews();
}

void MoodTaggedTextView::removeVisibleTags() {
  for (auto& button : visibleButtons_) {
    button.index = -1;
    button.highlighted = false;
    reusableButtons_.push_back(button);
  }
  visibleButtons_.clear();
  visibleTags_.clear();
}

void MoodTaggedTextView::addButtonForTag(const std::string& name, const Rect& frame) {
  TaggedTextButton button;
  if (!reusableButtons_.empty()) {
    button = reusableButtons_.back();
    reusableButtons_.pop_back();
  }
  button.frame = frame;
  button.index = static_cast<long>(visibleButtons_.size());
  visibleButtons_.push_back(button);
  visibleTags_.push_back(name);
}

void MoodTaggedTextView::layoutSubviews() {
  removeVisibleTags();
  lines_.clear();
  textHeight_ = 0;
  const std::string& text = attributed_.text;
  if (text.empty() || bounds_.width <= 0 || maxLinesCount_ <= 0) return;
  Engine engine;
  std::size_t position = 0;
  double y = 0;
  for (long index = 0; position < text.size() && index < maxLinesCount_; ++index) {
    double width = bounds_.width - (index < shortLinesCount_ ? shortLinesIndent_ : 0);
    width = std::max(width, 1.0);
    // No line holds more characters than points of width, and none is
    // more than 4 bytes: the slice is enough to find the break.
    std::size_t slice = std::max<std::size_t>(1024, static_cast<std::size_t>(width) * 4 + 16);
    std::size_t sliceEnd = characterBoundary(text, std::min(text.size(), position + slice));
    if (sliceEnd <= position) sliceEnd = std::min(text.size(), position + 4);
    bool lastAllowed = index == maxLinesCount_ - 1;

    TaggedTextLine line;
    line.location = position;
    line.availableWidth = width;
    line.y = y;
    std::size_t next = 0;
    GPtr<PangoLayout> drawn;
    std::optional<TaggedTextTag> cutTag;
    if (!lastAllowed) {
      GPtr<PangoLayout> probe = engine.layout(attributed_, position, sliceEnd);
      pango_layout_set_width(probe.get(), static_cast<int>(width * PANGO_SCALE));
      pango_layout_set_wrap(probe.get(), PANGO_WRAP_WORD_CHAR);
      PangoLayoutLine* first = pango_layout_get_line_readonly(probe.get(), 0);
      std::size_t length = first ? static_cast<std::size_t>(first->length) : sliceEnd - position;
      PangoLayoutLine* second = pango_layout_get_line_readonly(probe.get(), 1);
      next = second ? position + static_cast<std::size_t>(second->start_index) : sliceEnd;
      if (length == 0 && next == position) {
        length = characterBoundary(text, std::min(text.size(), position + 1)) - position;
        if (length == 0) length = 1;
        next = position + length;
      }
      // A tag cut by the break moves whole to the next line, unless it
      // starts the line (it is longer than a line) or the break is its "#".
      if (next < text.size() && next == position + length) {
        const TaggedTextTag* tag = attributed_.tagAt(next);
        if (tag && tag->location != next && tag->location > position) {
          length = tag->location - position;
          next = tag->location;
        }
      }
      line.length = length;
      drawn = engine.layout(attributed_, position, position + length);
    } else {
      // The last allowed line holds the rest, cut at the end with "...".
      std::string rest = text.substr(position, sliceEnd - position);
      for (char& c : rest) {
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
      }
      GPtr<PangoLayout> whole = engine.layout(attributed_, position, sliceEnd, &rest);
      bool fits = sliceEnd == text.size() && layoutWidth(whole.get()) <= width;
      if (fits) {
        line.length = sliceEnd - position;
        drawn = std::move(whole);
      } else {
        GPtr<PangoLayout> dots = engine.layout(attributed_, 0, 0, nullptr);
        pango_layout_set_text(dots.get(), kEllipsis, -1);
        pango_layout_set_attributes(dots.get(), nullptr);
        double room = std::max(0.0, width - layoutWidth(dots.get()));
        int cut = 0, trailing = 0;
        pango_layout_xy_to_index(whole.get(), static_cast<int>(room * PANGO_SCALE), 0, &cut, &trailing);
        std::size_t keep = characterBoundary(rest, static_cast<std::size_t>(cut));
        while (keep > 0 && xOfIndex(whole.get(), static_cast<int>(keep)) > room)
          keep = previousCharacter(rest, keep);
        line.length = keep;
        line.truncated = true;
        std::string shown = rest.substr(0, keep) + kEllipsis;
        drawn = engine.layout(attributed_, position, position + keep, &shown);
        if (const TaggedTextTag* tag = attributed_.tagAt(position + keep);
            tag && tag->location < position + keep) {
          cutTag = *tag;
        }
      }
      next = text.size();
    }

    PangoRectangle logical;
    pango_layout_get_extents(drawn.get(), nullptr, &logical);
    line.height = toPoints(logical.height);
    line.width = toPoints(logical.width);
    // Buttons over the line's tokens that have room for their ends.
    std::size_t lineEnd = line.location + line.length;
    auto it = std::lower_bound(attributed_.tags.begin(), attributed_.tags.end(), line.location,
                               [](const TaggedTextTag& tag, std::size_t at) { return tag.end() <= at; });
    for (; it != attributed_.tags.end() && it->location < lineEnd; ++it) {
      if (cutTag && it->location == cutTag->location) break;
      std::size_t a = std::max(it->location, line.location) - line.location;
      std::size_t b = std::min(it->end(), lineEnd) - line.location;
      double startX = xOfIndex(drawn.get(), static_cast<int>(a));
      double endX =
          b >= line.length && !line.truncated ? line.width : xOfIndex(drawn.get(), static_cast<int>(b));
      if (endX - startX <= kTaggedTextButtonEnds) continue;
      // The lozenge takes in the room after the token's last character.
      if (it->end() <= lineEnd) endX = std::min(endX + kTaggedTextLastLetterSpacing, line.availableWidth);
      addButtonForTag(it->name, Rect{startX, y, endX - startX, line.height});
    }
    if (cutTag) {
      double startX =
          xOfIndex(drawn.get(), static_cast<int>(std::max(cutTag->location, line.location) - line.location));
      addButtonForTag(cutTag->name, Rect{startX, y, bounds_.width - startX, line.height});
    }
    lines_.push_back(line);
    y += line.height;
    position = next;
  }
  textHeight_ = y;
}

void MoodTaggedTextView::tagButtonPressed(long index) {
  if (index < 0 || index >= static_cast<long>(visibleTags_.size())) return;
  if (didSelectTag_) didSelectTag_(visibleTags_[index]);
}

std::optional<std::string> MoodTaggedTextView::tagAtPoint(Point point) {
  for (const auto& button : visibleButtons_) {
    const Rect& f = button.frame;
    if (point.x >= f.x && point.x < f.x + f.width && point.y >= f.y && point.y < f.y + f.height) {
      tagButtonPressed(button.index);
      return visibleTags_[button.index];
    }
  }
  return std::nullopt;
}

void MoodTaggedTextView::drawInCanvas(Canvas& canvas, Point origin) const {
  cairo_t* cr = canvas.cairoContext();
  if (!cr) return;
  cairo_save(cr);
  cairo_translate(cr, origin.x, origin.y);
  // The lozenges lie under the text, so the tag reads on top of them.
  for (const auto& button : visibleButtons_) {
    const Rect& f = button.frame;
    double r = std::min(kButtonRadius, f.height / 2);
    double x = f.x - 1, yTop = f.y + 1, w = f.width + 2, h = f.height - 2;
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, yTop + r, r, -M_PI / 2, 0);
    cairo_arc(cr, x + w - r, yTop + h - r, r, 0, M_PI / 2);
    cairo_arc(cr, x + r, yTop + h - r, r, M_PI / 2, M_PI);
    cairo_arc(cr, x + r, yTop + r, r, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
    if (button.highlighted) {
      cairo_set_source_rgba(cr, 170 / 255.0, 48 / 255.0, 0, 0.35);
    } else {
      cairo_set_source_rgba(cr, 1.0, 112 / 255.0, 2 / 255.0, 0.16);
    }
    cairo_fill_preserve(cr);
    cairo_set_source_rgba(cr, 170 / 255.0, 48 / 255.0, 0, 0.45);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
  }
  Engine engine(cr);
  for (const auto& line : lines_) {
    GPtr<PangoLayout> layout;
    if (line.truncated) {
      std::string shown = attributed_.text.substr(line.location, line.length);
      for (char& c : shown) {
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
      }
      shown += kEllipsis;
      layout = engine.layout(attributed_, line.location, line.location + line.length, &shown);
    } else {
      layout = engine.layout(attributed_, line.location, line.location + line.length);
    }
    PangoLayoutLine* first = pango_layout_get_line_readonly(layout.get(), 0);
    if (!first) continue;
    PangoRectangle logical;
    pango_layout_line_get_extents(first, nullptr, &logical);
    cairo_move_to(cr, 0, line.y + toPoints(-logical.y));
    pango_cairo_show_layout_line(cr, first);
  }
  cairo_restore(cr);
}

Canvas MoodTaggedTextView::renderImage(double scale) const {
  scale = scale > 0 ? scale : 1;
  int width = static_cast<int>(std::ceil(bounds_.width * scale));
  int height = static_cast<int>(std::ceil(std::max(textHeight_, 1.0) * scale));
  Canvas canvas(width, height);
  canvas.scale(scale, scale);
  drawInCanvas(canvas);
  return canvas;
}

}  // namespace lumeo
