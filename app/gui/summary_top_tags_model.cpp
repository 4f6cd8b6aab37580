#include "summary_top_tags_model.h"

#include <QUrl>

#include "capture/mood_levels_presentation.h"
#include "insight/mood_top_tags_view_controller.h"
#include "platform/string_format.h"
#include "store/image_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "summary_pictures.h"

namespace lumeo::gui {

SummaryTopTagsModel::SummaryTopTagsModel(MoodTopTagsViewController& controller, QObject* parent)
    : ListModel({{NameRole, "name"},
                 {LabelRole, "label"},
                 {LabelMarkupRole, "labelMarkup"},
                 {AverageRole, "average"},
                 {AverageTextRole, "averageText"},
                 {FrequencyRole, "frequency"},
                 {ColorRole, "tagColor"}},
                parent),
      controller_(controller) {
  reset();
}

QVariant SummaryTopTagsModel::data(const QModelIndex& index, int role) const {
  const auto at = rowOf(index);
  const auto& rows = controller_.rows();
  if (!at || *at >= rows.size()) return {};
  const TopTagRow& row = rows[*at];
  switch (role) {
    case NameRole:
      return QString::fromStdString(row.tagName);
    case Qt::DisplayRole:
    case LabelRole:
      return QString::fromStdString(row.label.string());
    case LabelMarkupRole: {
      // The label's runs as styled text: the name in bold.
      QString markup;
      for (const TextRun& run : row.label.runs) {
        const QString text = QString::fromStdString(run.text).toHtmlEscaped();
        markup +=
            run.weight == FontWeight::kBold ? QStringLiteral("<b>") + text + QStringLiteral("</b>") : text;
      }
      return markup;
    }
    case AverageRole:
      return row.average;
    case AverageTextRole:
      return QString::fromStdString(stringWithFormat("%.1lf", row.average));
    case FrequencyRole:
      return static_cast<int>(row.frequency);
    case ColorRole:
      return toQColor(row.color);
    default:
      return {};
  }
}

void SummaryTopTagsModel::reset() {
  resetRows([this] { return static_cast<int>(controller_.rows().size()); });
}

SummaryPhotosModel::SummaryPhotosModel(MoodTopTagsViewController& controller, QObject* parent)
    : ListModel({{ThumbRole, "thumb"}, {LevelRole, "level"}, {ColorRole, "levelColor"}}, parent),
      controller_(controller) {
  reset();
}

QVariant SummaryPhotosModel::data(const QModelIndex& index, int role) const {
  const auto at = rowOf(index);
  const auto& records = controller_.recordsWithPhotos();
  if (!at || *at >= records.size()) return {};
  const auto& record = records[*at];
  switch (role) {
    case ThumbRole: {
      auto description = record->moodDescription();
      auto images = ImageStore::shared();
      if (!description || !images) return QUrl();
      auto file = images->imageURLForName(description->thumbName());
      std::error_code ec;
      return file && std::filesystem::exists(*file, ec)
                 ? QUrl::fromLocalFile(QString::fromStdString(file->string()))
                 : QUrl();
    }
    case Qt::DisplayRole:
    case LevelRole:
      return static_cast<int>(record->moodLevel());
    case ColorRole: {
      auto color =
          MoodLevelsPresentation().interpolatedColorForMoodLevel(static_cast<double>(record->moodLevel()));
      return color ? toQColor(*color) : QColor(Qt::gray);
    }
    default:
      return {};
  }
}

void SummaryPhotosModel::reset() {
  resetRows([this] { return static_cast<int>(controller_.recordsWithPhotos().size()); });
}

}  // namespace lumeo::gui
