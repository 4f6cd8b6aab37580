#include "gallery_model.h"

#include <QQmlEngine>
#include <QUrl>
#include <filesystem>

#include "browse/mood_gallery_view_controller.h"
#include "store/image_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "tagged_text_layout.h"

namespace lumeo::gui {

GalleryModel::GalleryModel(std::shared_ptr<MoodGalleryViewController> gallery, QObject* parent)
    : QAbstractListModel(parent), gallery_(std::move(gallery)) {
  // QML must not collect it: its page closes it.
  QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
  comment_ = new TaggedTextLayout(this);
  comment_->setDark(true);  // the panel lies over the photo, dark
  gallery_->setRecordsChangeHandlers([this] { beginResetModel(); },
                                     [this] {
                                       endResetModel();
                                       shownIndex_ = -1;
                                       refresh();
                                       Q_EMIT recordsChanged();
                                     });
  gallery_->scrollToCurrentRecord();
  refresh();
}

GalleryModel::~GalleryModel() {
  gallery_->setRecordsChangeHandlers({}, {});
}

int GalleryModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(gallery_->moodRecords().size());
}

QVariant GalleryModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const auto& record = gallery_->moodRecords()[static_cast<std::size_t>(index.row())];
  auto description = record->moodDescription();
  std::optional<std::filesystem::path> file;
  if (auto images = ImageStore::shared(); images && description)
    file = images->imageURLForName(description->photoName());
  std::error_code ec;
  const bool ready = file && std::filesystem::exists(*file, ec);
  switch (role) {
    case PhotoRole:
      return ready ? QUrl::fromLocalFile(QString::fromStdString(file->string())) : QUrl();
    case ReadyRole:
      return ready;
    case AliveRole:
      return gallery_->pageViewForIndex(index.row()) != nullptr;
    default:
      return {};
  }
}

QHash<int, QByteArray> GalleryModel::roleNames() const {
  return {{PhotoRole, "photo"}, {ReadyRole, "ready"}, {AliveRole, "alive"}};
}

int GalleryModel::count() const {
  return static_cast<int>(gallery_->moodRecords().size());
}
int GalleryModel::currentIndex() const {
  return static_cast<int>(gallery_->currentRecord());
}
double GalleryModel::contentOffset() const {
  return gallery_->contentOffset();
}
QString GalleryModel::title() const {
  return QString::fromStdString(gallery_->panel().title);
}
QString GalleryModel::backTitle() const {
  return QString::fromStdString(gallery_->panel().backTitle);
}
QString GalleryModel::dateText() const {
  return QString::fromStdString(gallery_->panel().dateText);
}
bool GalleryModel::edited() const {
  return gallery_->panel().editedLabelVisible;
}
QObject* GalleryModel::comment() const {
  return comment_;
}
bool GalleryModel::panelHidden() const {
  return gallery_->isBottomViewHidden();
}
bool GalleryModel::scrollEnabled() const {
  return gallery_->isScrollEnabled();
}

void GalleryModel::setPageWidth(double width) {
  if (width <= 0) return;
  gallery_->setPageWidth(width);
  gallery_->scrollToCurrentRecord();
  refresh();
}

void GalleryModel::scrolled(double offset) {
  gallery_->scrollViewDidScroll(offset);
  refresh();
}

void GalleryModel::scrollEnded() {
  gallery_->scrollViewDidEndScrolling();
  refresh();
}

void GalleryModel::togglePanel() {
  gallery_->toggleBottomViewHidden();
  Q_EMIT panelChanged();
}

void GalleryModel::share() {
  gallery_->chooseAction();
}

void GalleryModel::refresh() {
  const long now = gallery_->currentRecord();
  if (now == shownIndex_) return;
  shownIndex_ = now;
  gallery_->updateViews();
  comment_->setMaxLines(static_cast<int>(gallery_->panel().maxLinesCount));
  comment_->setText(QString::fromStdString(gallery_->panel().comment));
  if (count() > 0) Q_EMIT dataChanged(index(0), index(count() - 1), {AliveRole});
  Q_EMIT currentChanged();
}

}  // namespace lumeo::gui
