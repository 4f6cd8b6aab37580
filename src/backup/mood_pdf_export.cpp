// The report's pages and the rules that fill them.
#include "backup/mood_pdf_export.h"

#include <cairo-pdf.h>
#include <cairo.h>
#include <glib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

#include "backup/pdf_text.h"
#include "capture/mood_levels_presentation.h"
#include "insight/mood_draw_chart.h"
#include "insight/mood_summary_chart_view.h"
#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "platform/atomic_file.h"
#include "platform/date_formatter.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "platform/string_format.h"
#include "shell/resources_location.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

namespace {

using L = MoodPDFLayout;

struct SurfaceDeleter {
  void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};

bool looksLikeJPEG(const std::vector<std::uint8_t>& bytes) {
  return bytes.size() > 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

// A JPEG as a cairo surface of its size that carries the file's data: the
// PDF surface embeds the data as it is, so the pixels are never decoded.
// Null when the data is not a whole JPEG (no end marker: cut short).
cairo_surface_t* jpegSurface(const std::vector<std::uint8_t>& bytes, const ImageInfo& info) {
  const std::size_t n = bytes.size();
  if (!looksLikeJPEG(bytes) || n < 4 || bytes[n - 2] != 0xFF || bytes[n - 1] != 0xD9) return nullptr;
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, info.width, info.height);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  auto* copy = static_cast<unsigned char*>(std::malloc(n));
  if (!copy || cairo_surface_set_mime_data(surface, CAIRO_MIME_TYPE_JPEG, copy, n, std::free, copy) !=
                   CAIRO_STATUS_SUCCESS) {
    std::free(copy);
    cairo_surface_destroy(surface);
    return nullptr;
  }
  std::memcpy(copy, bytes.data(), n);
  return surface;
}

// "name@2x.jpg" (embedded as it is) or "name@2x.png".
MoodPDFImage loadImage(const std::filesystem::path& folder, const char* name) {
  MoodPDFImage image;
  cairo_surface_t* surface = nullptr;
  const std::filesystem::path jpeg = folder / (std::string(name) + "@2x.jpg");
  auto read = readFileBytes(jpeg);
  if (auto* bytes = std::get_if<std::vector<std::uint8_t>>(&read)) {
    auto info = Image::probe(*bytes);
    if (auto* i = std::get_if<ImageInfo>(&info)) surface = jpegSurface(*bytes, *i);
    if (!surface) LUMEO_LOG_DEBUG("pdf: unreadable image " + jpeg.string());
  } else {
    const std::filesystem::path png = folder / (std::string(name) + "@2x.png");
    surface = cairo_image_surface_create_from_png(png.c_str());
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
      LUMEO_LOG_DEBUG("pdf: no image " + png.string());
      cairo_surface_destroy(surface);
      surface = nullptr;
    }
  }
  if (!surface) return image;
  image.surface.reset(surface, SurfaceDeleter());
  image.size =
      Size{cairo_image_surface_get_width(surface) / 2.0, cairo_image_surface_get_height(surface) / 2.0};
  return image;
}

// An image's size in points, read from its header.
std::optional<Size> imageSize(const std::filesystem::path& file) {
  auto bytes = readFileBytes(file);
  auto* data = std::get_if<std::vector<std::uint8_t>>(&bytes);
  if (!data) return std::nullopt;
  auto info = Image::probe(*data);
  auto* i = std::get_if<ImageInfo>(&info);
  if (!i || i->width <= 0 || i->height <= 0) return std::nullopt;
  return Size{i->width / 2.0, i->height / 2.0};
}

void paintSurface(cairo_t* cr, cairo_surface_t* surface, const Rect& rect) {
  const int w = cairo_image_surface_get_width(surface);
  const int h = cairo_image_surface_get_height(surface);
  if (w <= 0 || h <= 0 || rect.width <= 0 || rect.height <= 0) return;
  cairo_save(cr);
  cairo_rectangle(cr, rect.x, rect.y, rect.width, rect.height);
  cairo_clip(cr);
  cairo_translate(cr, rect.x, rect.y);
  cairo_scale(cr, rect.width / w, rect.height / h);
  cairo_set_source_surface(cr, surface, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  cairo_paint(cr);
  cairo_restore(cr);
}

void drawImage(cairo_t* cr, const MoodPDFImage& image, const Rect& rect) {
  if (image.surface) paintSurface(cr, image.surface.get(), rect);
}

// An image at a height, its width following its aspect.
void drawImageAtHeight(cairo_t* cr, const MoodPDFImage& image, Point origin, double height) {
  if (!image.surface || image.size.height <= 0) return;
  drawImage(cr, image, Rect{origin.x, origin.y, height * image.size.width / image.size.height, height});
}

void roundedRect(cairo_t* cr, const Rect& r, double radius) {
  const double rr = std::min({radius, r.width / 2, r.height / 2});
  cairo_new_sub_path(cr);
  cairo_arc(cr, r.x + r.width - rr, r.y + rr, rr, -M_PI / 2, 0);
  cairo_arc(cr, r.x + r.width - rr, r.y + r.height - rr, rr, 0, M_PI / 2);
  cairo_arc(cr, r.x + rr, r.y + r.height - rr, rr, M_PI / 2, M_PI);
  cairo_arc(cr, r.x + rr, r.y + rr, rr, M_PI, 3 * M_PI / 2);
  cairo_close_path(cr);
}

// A record's thumbnail, ready to draw: a surface of the picture's size
// carrying the file's own JPEG data, which the PDF surface embeds as it is
// (or, for a picture stored sideways, the turned pixels).
struct Thumbnail {
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface;
};

std::optional<Thumbnail> loadThumbnail(const std::optional<std::string>& name) {
  if (!name || name->empty()) return std::nullopt;
  auto store = ImageStore::shared();
  if (!store) return std::nullopt;
  auto path = store->imageURLForName(name);
  if (!path) return std::nullopt;
  auto read = readFileBytes(*path);
  if (auto* error = std::get_if<Error>(&read)) {
    LUMEO_LOG_DEBUG("pdf: thumbnail " + path->string() + " left out: " + error->description);
    return std::nullopt;
  }
  auto& bytes = std::get<std::vector<std::uint8_t>>(read);
  if (!looksLikeJPEG(bytes)) {
    LUMEO_LOG_DEBUG("pdf: thumbnail " + path->string() + " left out: not a JPEG");
    return std::nullopt;
  }
  // The header gives the size and the orientation; an upright picture goes
  // in as its file, never decoded.
  auto probed = Image::probe(bytes);
  auto* info = std::get_if<ImageInfo>(&probed);
  if (!info || info->width <= 0 || info->height <= 0) {
    LUMEO_LOG_DEBUG("pdf: thumbnail " + path->string() + " left out: no JPEG header");
    return std::nullopt;
  }
  Thumbnail thumb;
  if (info->orientation == ImageOrientation::kUp) {
    thumb.surface.reset(jpegSurface(bytes, *info));
    if (!thumb.surface) {
      LUMEO_LOG_DEBUG("pdf: thumbnail " + path->string() + " left out: cut short");
      return std::nullopt;
    }
    return thumb;
  }
  // A picture stored sideways is decoded and turned; its file would show
  // it sideways.
  auto decoded = Image::decode(bytes);
  if (auto* error = std::get_if<Error>(&decoded)) {
    LUMEO_LOG_DEBUG("pdf: thumbnail " + path->string() + " left out: " + error->description);
    return std::nullopt;
  }
  Image image = imageByScalingToSize(std::get<Image>(decoded), std::get<Image>(decoded).orientedWidth(),
                                     std::get<Image>(decoded).orientedHeight());
  if (image.empty()) return std::nullopt;
  thumb.surface.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, image.width(), image.height()));
  if (cairo_surface_status(thumb.surface.get()) != CAIRO_STATUS_SUCCESS) return std::nullopt;
  cairo_surface_flush(thumb.surface.get());
  unsigned char* data = cairo_image_surface_get_data(thumb.surface.get());
  const int stride = cairo_image_surface_get_stride(thumb.surface.get());
  const std::uint8_t* src = image.pixels().data();
  for (int y = 0; y < image.height(); ++y) {
    auto* row = reinterpret_cast<std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
    for (int x = 0; x < image.width(); ++x, src += 4) {
      row[x] = 0xFF000000u | static_cast<std::uint32_t>(src[0]) << 16 |
               static_cast<std::uint32_t>(src[1]) << 8 | src[2];
    }
  }
  cairo_surface_mark_dirty(thumb.surface.get());
  return thumb;
}

// "#Name": the first letter of each word in upper case, the rest lower.
std::string capitalizedString(const std::string& text) {
  gchar* lower = g_utf8_strdown(text.data(), static_cast<gssize>(text.size()));
  std::string out;
  bool wordStart = true;
  for (const gchar* p = lower; p && *p; p = g_utf8_find_next_char(p, nullptr)) {
    gunichar c = g_utf8_get_char(p);
    const bool letter = g_unichar_isalnum(c);
    if (letter && wordStart) c = g_unichar_totitle(c);
    wordStart = !letter;
    char buffer[6];
    out.append(buffer, static_cast<std::size_t>(g_unichar_to_utf8(c, buffer)));
  }
  g_free(lower);
  return out;
}

}  // namespace

MoodPDFImages MoodPDFImages::load() {
  const std::filesystem::path folder = resourcesDirectory() / "pdf";
  MoodPDFImages images;
  images.title = loadImage(folder, "title7");
  images.titleRecords = loadImage(folder, "titleRecords7");
  images.titleSummary = loadImage(folder, "titleSummary7");
  images.icon = loadImage(folder, "icon7");
  // The gradient is drawn as one; its picture only gives the charts' size.
  images.summaryGradient.size = imageSize(folder / "moodSummaryGradient@2x.png").value_or(Size{312, 125});
  return images;
}

// One document being written: the PDF surface, the page cursor and the
// drawing of each element.
class MoodPDFExport::Writer {
 public:
  Writer(MoodPDFExport& owner, MoodPDFImages images) : owner_(owner), images_(std::move(images)) {}
  ~Writer() {
    canvas_.reset();
    if (surface_) cairo_surface_destroy(surface_);
  }

  bool open() {
    surface_ = cairo_pdf_surface_create_for_stream(appendData, &data_, L::kPageWidth, L::kPageHeight);
    if (cairo_surface_status(surface_) != CAIRO_STATUS_SUCCESS) return false;
    cairo_pdf_surface_set_metadata(surface_, CAIRO_PDF_METADATA_TITLE, localized("Mood Report").c_str());
    cairo_pdf_surface_set_metadata(surface_, CAIRO_PDF_METADATA_CREATOR, "Lumeo");
    canvas_.emplace(
        Canvas::onSurface(surface_, static_cast<int>(L::kPageWidth), static_cast<int>(L::kPageHeight)));
    return true;
  }

  // Ends the document; empty data if cairo failed anywhere.
  std::vector<std::uint8_t> finish() {
    canvas_.reset();
    cairo_surface_finish(surface_);
    const bool ok = cairo_surface_status(surface_) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface_);
    surface_ = nullptr;
    if (!ok) return {};
    return std::move(data_);
  }

  void drawTitlePage(const MoodRecord* first, const MoodRecord* last, std::size_t count) {
    beginPage();
    drawImage(cr(), images_.title, Rect{0, 315, 612, 113});
    drawImageAtHeight(cr(), images_.icon, Point{100, 339}, 65);
    const PdfFont font = PdfFont::titlePeriod();
    const Color grey(0.25, 0.25, 0.25, 1);
    if (first && first->date()) {
      type_.drawInRect(*canvas_, periodText(*first->date()), Rect{38, 500, 250, 40}, font, grey,
                       TextAlignment::kRight);
    }
    if (count != 0)
      type_.drawInRect(*canvas_, "\u2014", Rect{288, 500, 36, 40}, font, grey, TextAlignment::kCenter);
    if (last && last->date()) {
      type_.drawInRect(*canvas_, periodText(*last->date()), Rect{324, 500, 250, 40}, font, grey,
                       TextAlignment::kLeft);
    }
  }

  void beginRecordPage() {
    beginPage();
    drawImage(cr(), images_.titleRecords, Rect{0, 0, L::kPageWidth, L::kHeaderHeight});
    drawImageAtHeight(cr(), images_.icon, Point{50, 24}, 37);
    y_ = L::kContentTop;
    firstOnPage_ = true;
  }

  // One record, by the page-filling rules.
  void addRecord(const MoodRecord& record, const std::shared_ptr<MoodDescription>& description) {
    RecordHead head;
    head.dateText = record.date() ? recordDateText(*record.date()) : std::string();
    head.level = levels_.presentationForMoodLevel(record.moodLevel());
    head.levelNumber = record.moodLevel();
    const std::string comment = description ? description->comment().value_or("") : "";
    std::optional<Thumbnail> thumb;
    if (description && description->thumbName()) {
      thumb = loadThumbnail(description->thumbName());
      if (thumb) {
        ++owner_.embeddedPhotos_;
      } else {
        ++owner_.skippedPhotos_;
      }
    }
    const double thumbH = thumb ? L::kThumbSize : 0;
    const PdfTextBlock block =
        type_.layout(comment, PdfFont::comment(), L::kDescriptionWidth, TextAlignment::kLeft, true);
    const double textH = comment.empty() ? 0 : block.height();
    const double capped = std::min(textH, L::kMaxCommentHeight);
    const double height = std::max(capped + L::kRecordHeaderHeight, thumbH);
    const bool center = thumb && !comment.empty() && thumbH <= capped;
    const double free = L::kContentBottom - y_ - (firstOnPage_ ? 0 : L::kSeparatorBlock);

    if (height <= free && (comment.empty() || block.drawable())) {
      separateFromPrevious();
      drawRecord(head, y_, comment.empty() ? nullptr : &block, height, thumb ? &*thumb : nullptr, center);
      y_ += height;
      firstOnPage_ = false;
    } else if (height > thumbH) {
      // The comment dominates: it starts here when the header and a first
      // line fit, and goes on over the next pages.
      const double firstLine = block.lines().empty() ? 0 : block.lines().front().bottom;
      if (free < std::max(thumbH, L::kRecordHeaderHeight + firstLine)) {
        beginRecordPage();
      } else {
        separateFromPrevious();
      }
      drawRecordRecourseve(head, block, thumb ? &*thumb : nullptr);
    } else {
      // The thumbnail dominates: the record moves whole to a new page.
      beginRecordPage();
      drawRecord(head, y_, comment.empty() ? nullptr : &block, height, thumb ? &*thumb : nullptr, center);
      y_ += height;
      firstOnPage_ = false;
    }
  }

  // Returns false when cancelled.
  bool drawSummaryPage(const std::vector<ChartRecord>& records, const MoodRecord* first,
                       const std::vector<RankedTag>& positive, const std::vector<RankedTag>& negative) {
    if (owner_.checkCancel()) return false;
    beginPage();
    drawImage(cr(), images_.titleSummary, Rect{0, 0, L::kPageWidth, L::kHeaderHeight});
    drawImageAtHeight(cr(), images_.icon, Point{50, 24}, 37);

    const Size chart = images_.summaryGradient.size;
    const double chartX = L::kContentX + L::kContentWidth - chart.width;
    const double headingY[] = {125, 270, 420};
    const double explanationY[] = {160, 305, 455};
    const MoodSummaryChartKind kinds[] = {MoodSummaryChartKind::kTrend, MoodSummaryChartKind::kWeekly,
                                          MoodSummaryChartKind::kDaily};
    const ChartStyle style = ChartStyle::current();
    auto& op = MoodUserDefaultsOperator::sharedOperator();
    const std::vector<Color> gradient = {op.fromColor(), op.middleColor(), op.toColor()};
    const double textWidth = chartX - L::kContentX - 20;
    for (int i = 0; i < 3; ++i) {
      if (i > 0 && owner_.checkCancel()) return false;
      const Rect card{chartX, headingY[i] - 12, chart.width, chart.height};
      type_.drawInRect(*canvas_, MoodSummaryChartView::infoTitle(kinds[i]),
                       Rect{L::kContentX, headingY[i], textWidth, 20}, PdfFont::summaryHeading(),
                       Color(0, 0, 0, 1), TextAlignment::kLeft);
      std::string explanation = MoodSummaryChartView::infoText(kinds[i]);
      std::replace(explanation.begin(), explanation.end(), '\n', ' ');
      const PdfTextBlock text = type_.layout(explanation, PdfFont::explanation(), textWidth);
      type_.draw(*canvas_, text, Point{L::kContentX, explanationY[i]}, Color(0.2, 0.2, 0.2, 1));
      drawChartCard(static_cast<ChartKind>(i), records, card, gradient, style);
      if (i == 0 && first && first->date()) {
        const Color periodColor = Color::fromRGB255(188, 191, 150);
        const Rect line{card.x + 4, card.y + card.height + 2, card.width - 8, 12};
        type_.drawInRect(*canvas_, periodText(*first->date()), line, PdfFont::explanation(), periodColor,
                         TextAlignment::kLeft);
        type_.drawInRect(*canvas_, localized("Today"), line, PdfFont::explanation(), periodColor,
                         TextAlignment::kRight);
      }
    }
    if (owner_.checkCancel()) return false;
    canvas_->fillRect(Rect{100, 550, 412, 0.25}, Color(1, 1, 1, 1));
    drawTagTable(localized("Top positive"), positive, 100);
    drawTagTable(localized("Top negative"), negative, 330);
    return true;
  }

 private:
  struct RecordHead {
    std::string dateText;
    std::optional<MoodLevelPresentation> level;
    long levelNumber = 0;
  };

  static cairo_status_t appendData(void* closure, const unsigned char* data, unsigned int length) {
    auto* out = static_cast<std::vector<std::uint8_t>*>(closure);
    out->insert(out->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
  }

  cairo_t* cr() const { return canvas_->cairoContext(); }

  void beginPage() {
    if (pages_ > 0) cairo_show_page(cr());
    ++pages_;
  }

  void separateFromPrevious() {
    if (firstOnPage_) return;
    drawSeparatorWithRect(Rect{L::kContentX, y_ + L::kSeparatorOffset, L::kContentWidth, 0.25});
    y_ += L::kSeparatorBlock;
  }

  void drawSeparatorWithRect(const Rect& rect) { canvas_->fillRect(rect, Color(0.8, 0.8, 0.8, 1)); }

  // A comment over as many pages as it needs: the first piece fills what
  // is left of this page, each further one a fresh page; only the first
  // piece has the thumbnail, and each repeats the date and level block.
  void drawRecordRecourseve(const RecordHead& head, const PdfTextBlock& block, const Thumbnail* thumb) {
    const double firstHeight = L::kContentBottom - y_ - L::kRecordHeaderHeight;
    const double nextHeight = L::kContentBottom - L::kContentTop - L::kRecordHeaderHeight;
    const std::vector<std::size_t> pieces = pageSplits(block, firstHeight, nextHeight);
    std::size_t offset = 0;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      const bool whole = pieces.size() == 1 && block.drawable();
      std::string piece = block.text().substr(offset, pieces[i]);
      offset += pieces[i];
      // The line break that ends a piece would add an empty last line.
      if (!piece.empty() && piece.back() == '\n') piece.pop_back();
      if (!piece.empty() && piece.back() == '\r') piece.pop_back();
      std::optional<PdfTextBlock> pieceBlock;
      if (!whole && !piece.empty()) {
        pieceBlock =
            type_.layout(piece, PdfFont::comment(), L::kDescriptionWidth, TextAlignment::kLeft, true);
      }
      const PdfTextBlock* text = whole ? &block : (pieceBlock ? &*pieceBlock : nullptr);
      const double textH = text ? text->height() : 0;
      const Thumbnail* pieceThumb = i == 0 ? thumb : nullptr;
      const double thumbH = pieceThumb ? L::kThumbSize : 0;
      const double height = std::max(textH + L::kRecordHeaderHeight, thumbH);
      drawRecord(head, y_, text, height, pieceThumb, pieceThumb && text && thumbH <= textH);
      if (i + 1 < pieces.size()) {
        beginRecordPage();
        continue;
      }
      if (y_ + height >= L::kNewPageLimit) {
        beginRecordPage();
      } else {
        y_ += height;
        firstOnPage_ = false;
      }
    }
  }

  void drawRecord(const RecordHead& head, double y, const PdfTextBlock* comment, double height,
                  const Thumbnail* thumb, bool center) {
    type_.drawInRect(*canvas_, head.dateText, Rect{L::kDescriptionX, y, L::kDescriptionWidth, 28},
                     PdfFont::recordDate(), Color(0, 0, 0, 1), TextAlignment::kLeft);
    if (thumb) {
      const double ty = center ? y + (height - L::kThumbSize) / 2 : y + 3;
      drawThumbImage(*thumb, Rect{L::kContentX, ty, L::kThumbSize, L::kThumbSize});
    }
    const double blockHeight = L::kLevelNumberHeight + L::kLevelTextHeight;
    const double ly = center ? y + (height - blockHeight) / 2 : y;
    drawLevelNumberAndDescriptionWithRecord(head, Rect{L::kLevelX, ly, L::kLevelWidth, blockHeight});
    if (comment)
      type_.draw(*canvas_, *comment, Point{L::kDescriptionX, y + L::kRecordHeaderHeight}, Color(0, 0, 0, 1));
  }

  // The largest centred square of the picture, with rounded corners.
  void drawThumbImage(const Thumbnail& thumb, const Rect& rect) {
    cairo_surface_t* surface = thumb.surface.get();
    const double w = cairo_image_surface_get_width(surface);
    const double h = cairo_image_surface_get_height(surface);
    const double side = std::min(w, h);
    if (side <= 0) return;
    cairo_t* c = cr();
    cairo_save(c);
    roundedRect(c, rect, L::kThumbCornerRadius);
    cairo_clip(c);
    cairo_translate(c, rect.x, rect.y);
    cairo_scale(c, rect.width / side, rect.height / side);
    cairo_set_source_surface(c, surface, -(w - side) / 2, -(h - side) / 2);
    cairo_pattern_set_filter(cairo_get_source(c), CAIRO_FILTER_GOOD);
    cairo_paint(c);
    cairo_restore(c);
  }

  // The two lines of a level block, laid out once per level and drawn as
  // often as records have that level.
  struct LevelBlock {
    std::optional<PdfTextBlock> number;
    std::optional<PdfTextBlock> text;
  };

  void drawLevelNumberAndDescriptionWithRecord(const RecordHead& head, const Rect& rect) {
    const Color color = head.level ? head.level->baseColor : Color(0, 0, 0, 1);
    LevelBlock& block = levelBlocks_[head.levelNumber];
    if (!block.number) {
      block.number =
          type_.layout(stringWithFormat("%ld", head.levelNumber), PdfFont::levelNumber(), rect.width,
                       TextAlignment::kCenter, false, PdfWrap::kSingleLineTruncatingTail);
      if (head.level && !head.level->text.empty()) {
        // From 14 points down in steps of 0.1 until the label fits its box.
        PdfFont font = PdfFont::levelText();
        while (font.size > 1 && type_.measure(head.level->text, font).width > rect.width) {
          font = font.withSize(font.size - 0.1);
        }
        block.text = type_.layout(head.level->text, font, rect.width, TextAlignment::kCenter, false,
                                  PdfWrap::kSingleLineTruncatingTail);
      }
    }
    type_.draw(*canvas_, *block.number,
               Point{rect.x, rect.y + (L::kLevelNumberHeight - block.number->height()) / 2}, color);
    if (block.text) {
      type_.draw(
          *canvas_, *block.text,
          Point{rect.x, rect.y + L::kLevelNumberHeight + (L::kLevelTextHeight - block.text->height()) / 2},
          color);
    }
  }

  void drawChartCard(ChartKind kind, const std::vector<ChartRecord>& records, const Rect& card,
                     const std::vector<Color>& gradient, const ChartStyle& style) {
    cairo_t* c = cr();
    cairo_save(c);
    roundedRect(c, card, MoodSummaryChartView::kCornerRadius);
    cairo_clip(c);
    canvas_->fillLinearGradient(card, Point{card.x, card.y}, Point{card.x, card.y + card.height}, gradient);
    if (!records.empty()) {
      // Drawn into a group first: a fit too thin to mean anything is
      // replaced by the card's "Not enough data" instead of a made-up curve.
      cairo_push_group(c);
      canvas_->saveState();
      canvas_->translate(card.x, card.y);
      const Size size{card.width, card.height};
      long kept = 0;
      switch (kind) {
        case ChartKind::kTrend:
          kept = MoodDrawChart::drawAlltimeChart(*canvas_, records, size, style);
          break;
        case ChartKind::kWeekly:
          kept = MoodDrawChart::drawWeeklyChart(*canvas_, records, size, true, style);
          break;
        case ChartKind::kDaily:
          kept = MoodDrawChart::drawDailyChart(*canvas_, records, size, true, style);
          break;
      }
      canvas_->restoreState();
      cairo_pattern_t* chart = cairo_pop_group(c);
      if (kept >= 4) {
        cairo_set_source(c, chart);
        cairo_paint(c);
      } else {
        type_.drawInRect(*canvas_, localized("Not enough data"), card, PdfFont::summaryHeading(),
                         Color(1, 1, 1, 1), TextAlignment::kCenter);
      }
      cairo_pattern_destroy(chart);
    }
    cairo_restore(c);
  }

  void drawTagTable(const std::string& title, const std::vector<RankedTag>& tags, double x) {
    const double width = 170;
    type_.drawInRect(*canvas_, title, Rect{x, 565, width, 24}, PdfFont::summaryHeading(), Color(0, 0, 0, 1),
                     TextAlignment::kLeft);
    for (std::size_t i = 0; i < tags.size() && i < 5; ++i) {
      const RankedTag& tag = tags[i];
      const Rect row{x, 600 + 28.0 * static_cast<double>(i), width, 27};
      canvas_->fillRect(
          row, levels_.interpolatedColorForMoodLevel(tag.average()).value_or(Color(0.5, 0.5, 0.5, 1)));
      const Rect inner{row.x + 6, row.y, row.width - 12, row.height};
      const std::string average = stringWithFormat("%2.1f", tag.average());
      const double averageWidth = type_.measure(average, PdfFont::tagRow()).width;
      type_.drawInRect(*canvas_, "#" + capitalizedString(tag.tagName),
                       Rect{inner.x, inner.y, inner.width - averageWidth - 6, inner.height},
                       PdfFont::tagRow(), Color(1, 1, 1, 1), TextAlignment::kLeft);
      type_.drawInRect(*canvas_, average, inner, PdfFont::tagRow(), Color(1, 1, 1, 1), TextAlignment::kRight);
    }
  }

  std::string recordDateText(Date date) {
    if (!recordFormatter_) {
      recordFormatter_.emplace();
      recordFormatter_->setDateStyle(DateFormatter::Style::kLong);
      recordFormatter_->setTimeStyle(DateFormatter::Style::kShort);
    }
    return recordFormatter_->stringFromDate(date);
  }

  std::string periodText(Date date) {
    if (!periodFormatter_) {
      periodFormatter_.emplace();
      periodFormatter_->setDateStyle(DateFormatter::Style::kLong);
      periodFormatter_->setTimeStyle(DateFormatter::Style::kNone);
    }
    return periodFormatter_->stringFromDate(date);
  }

  MoodPDFExport& owner_;
  MoodPDFImages images_;
  MoodLevelsPresentation levels_ = MoodLevelsPresentation::defaultMoodLevels();
  PdfTypesetter type_;
  std::optional<DateFormatter> recordFormatter_;
  std::optional<DateFormatter> periodFormatter_;
  std::map<long, LevelBlock> levelBlocks_;
  std::vector<std::uint8_t> data_;
  cairo_surface_t* surface_ = nullptr;
  std::optional<Canvas> canvas_;
  int pages_ = 0;
  double y_ = L::kContentTop;
  bool firstOnPage_ = true;
};

MoodPDFExport::MoodPDFExport(JournalStore& store) : store_(store) {}
MoodPDFExport::~MoodPDFExport() = default;

void MoodPDFExport::cancel() {
  std::lock_guard<std::mutex> guard(lock_);
  cancelled_ = true;
}

bool MoodPDFExport::shouldCancel() {
  std::lock_guard<std::mutex> guard(lock_);
  const bool cancelled = cancelled_;
  cancelled_ = false;
  return cancelled;
}

bool MoodPDFExport::checkCancel() {
  ++cancelChecks_;
  if (cancelCheckObserver_) cancelCheckObserver_(cancelChecks_);
  return shouldCancel();
}

std::shared_ptr<ManagedObjectContext> MoodPDFExport::moc() {
  if (!store_.hasStore()) return nullptr;
  auto coordinator = store_.persistentStoreCoordinator();
  if (!coordinator) return nullptr;
  auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kMainQueue);
  context->setPersistentStoreCoordinator(coordinator);
  context->setName("MoodPDFExport");
  return context;
}

std::vector<std::uint8_t> MoodPDFExport::pdf(const std::vector<RankedTag>& positive,
                                             const std::vector<RankedTag>& negative, Date from, Date to) {
  cancelChecks_ = 0;
  embeddedPhotos_ = skippedPhotos_ = 0;
  auto context = moc();
  if (!context) return {};
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("date >= %@ AND date <= %@", from, to));
  request.setSortDescriptors({SortDescriptor("date", true)});
  std::vector<std::shared_ptr<MoodRecord>> records;
  for (const auto& object : context->executeFetchRequest(request)) {
    if (auto record = std::dynamic_pointer_cast<MoodRecord>(object)) records.push_back(std::move(record));
  }
  if (checkCancel()) return {};
  Writer writer(*this, MoodPDFImages::load());
  if (!writer.open()) return {};
  if (checkCancel()) return {};

  const MoodRecord* first = records.empty() ? nullptr : records.front().get();
  const MoodRecord* last = records.empty() ? nullptr : records.back().get();
  writer.drawTitlePage(first, last, records.size());
  writer.beginRecordPage();
  for (std::size_t i = 0; i < records.size(); ++i) {
    const auto& record = records[i];
    if (progressHandler_) progressHandler_(i, records.size());
    if (checkCancel()) return {};
    auto description = record->moodDescription();
    writer.addRecord(*record, description);
    // Pictures and comments are not kept for the whole journal.
    if (description) context->refreshObject(description, false);
  }
  if (progressHandler_) progressHandler_(records.size(), records.size());
  const std::vector<ChartRecord> chartRecords = chartRecordsFrom(records);
  if (!writer.drawSummaryPage(chartRecords, first, positive, negative)) return {};
  return writer.finish();
}

std::vector<RankedTag> MoodPDFExport::filterTagsByAverage(const std::vector<RankedTag>& tags,
                                                          bool negativeFilter) {
  std::vector<RankedTag> out;
  for (const RankedTag& tag : tags) {
    if (isNegativeTag(tag.sum, tag.frequency) == negativeFilter) out.push_back(tag);
  }
  return out;
}

std::vector<RankedTag> MoodPDFExport::tagArray(bool negative, JournalStore& store, Date from, Date to) {
  std::vector<RankedTag> figures;
  for (const auto& tag : store.usedTagsFrom(from, to)) {
    if (!tag) continue;
    // The sum is over all of the tag's records, recomputed now.
    tag->setCachedLevelSum(std::nullopt);
    RankedTag ranked;
    ranked.tag = tag;
    ranked.tagName = tag->tagName();
    ranked.sum = tag->cachedLevelSum();
    ranked.frequency = tag->frequency();
    figures.push_back(std::move(ranked));
  }
  return rankTopTagsForPDF(filterTagsByAverage(figures, negative), negative);
}

std::vector<std::size_t> MoodPDFExport::findPagesSplits(const std::string& text, Size size,
                                                        const PdfFont& font) {
  PdfTypesetter type;
  const PdfTextBlock block = type.layout(text, font, size.width, TextAlignment::kLeft, true);
  return pageSplits(block, size.height, size.height);
}

}  // namespace lumeo
