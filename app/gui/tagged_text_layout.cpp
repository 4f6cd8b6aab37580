#include "tagged_text_layout.h"

#include <QVariantMap>
#include <algorithm>
#include <cmath>

#include "capture/mood_tagged_text_view.h"
#include "summary_pictures.h"

namespace lumeo::gui {

namespace {
// The text colours of the two themes; tags keep their own colours.
constexpr Color kLightText(0.13, 0.13, 0.15);
constexpr Color kDarkText(0.92, 0.92, 0.94);
}  // namespace

TaggedTextLayout::TaggedTextLayout(QObject* parent)
    : QObject(parent),
      key_(TabPictures::newKey(QStringLiteral("text"))),
      view_(std::make_unique<MoodTaggedTextView>()) {
  TabPictures::registerRenderer(key_, [this](const QSize& requested) -> std::optional<Image> {
    if (text_.isEmpty() || width_ <= 0) return std::nullopt;
    // Two pixels a point unless the item asks for a sharper picture.
    double scale = 2.0;
    if (requested.width() > 0) scale = std::clamp(requested.width() / width_, 1.0, 4.0);
    return view_->renderImage(scale).image();
  });
  relayout();
}

TaggedTextLayout::~TaggedTextLayout() {
  TabPictures::unregisterRenderer(key_);
}

void TaggedTextLayout::setText(const QString& text) {
  if (text == text_) return;
  text_ = text;
  relayout();
}

void TaggedTextLayout::setWidth(double width) {
  // Narrower than a few letters cannot be laid out; keep the last width.
  if (width < 40 || std::abs(width - width_) < 0.5) return;
  width_ = width;
  relayout();
}

void TaggedTextLayout::setMaxLines(int lines) {
  if (lines == maxLines_ || lines < 1) return;
  maxLines_ = lines;
  relayout();
}

void TaggedTextLayout::setShortLines(int lines) {
  if (lines == shortLines_ || lines < 0) return;
  shortLines_ = lines;
  relayout();
}

void TaggedTextLayout::setShortIndent(double indent) {
  if (indent == shortIndent_ || indent < 0) return;
  shortIndent_ = indent;
  relayout();
}

void TaggedTextLayout::setDark(bool dark) {
  if (dark == dark_) return;
  dark_ = dark;
  relayout();
}

void TaggedTextLayout::relayout() {
  view_->setTextColor(dark_ ? kDarkText : kLightText);
  view_->setMaxLinesCount(maxLines_);
  view_->setShortLinesCount(shortLines_);
  view_->setShortLinesIndent(shortIndent_);
  view_->setTaggedText(text_.toStdString());
  view_->setBounds(Size{width_, 100000});
  view_->layoutSubviews();
  ++revision_;
  Q_EMIT layoutChanged();
}

double TaggedTextLayout::height() const {
  return text_.isEmpty() ? 0 : std::ceil(view_->textHeight());
}

QString TaggedTextLayout::source() const {
  if (text_.isEmpty()) return {};
  return TabPictures::source(key_, revision_);
}

QVariantList TaggedTextLayout::tags() const {
  QVariantList list;
  const auto& buttons = view_->visibleButtons();
  const auto& names = view_->visibleTags();
  for (std::size_t i = 0; i < buttons.size() && i < names.size(); ++i) {
    const Rect& f = buttons[i].frame;
    list.append(QVariantMap{{QStringLiteral("x"), f.x},
                            {QStringLiteral("y"), f.y},
                            {QStringLiteral("width"), f.width},
                            {QStringLiteral("height"), f.height},
                            {QStringLiteral("name"), QString::fromStdString(names[i])}});
  }
  return list;
}

QString TaggedTextLayout::tagAt(double x, double y) {
  auto name = view_->tagAtPoint(Point{x, y});
  return name ? QString::fromStdString(*name) : QString();
}

}  // namespace lumeo::gui
