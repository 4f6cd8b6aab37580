#include "qt_presenter.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QUrl>
#include <QUrlQuery>
#include <algorithm>

#include "platform/localization.h"
#include "qt_convert.h"

namespace lumeo::gui {

namespace {

QString styleName(AlertActionStyle style) {
  switch (style) {
    case AlertActionStyle::kCancel:
      return QStringLiteral("cancel");
    case AlertActionStyle::kDestructive:
      return QStringLiteral("destructive");
    case AlertActionStyle::kDefault:
      break;
  }
  return QStringLiteral("default");
}

}  // namespace

QtPresenter::QtPresenter(QObject* parent) : QObject(parent) {}

void QtPresenter::presentAlert(Screen&, const AlertRequest& request, std::function<void(int)> handler) {
  Pending pending;
  QVariantList actions;
  for (const auto& action : request.actions) {
    actions.append(QVariantMap{
        {"title", q(action.title)}, {"result", action.result}, {"style", styleName(action.style)}});
  }
  pending.view = QVariantMap{{"kind", request.actionSheet ? "sheet" : "alert"},
                             {"title", q(request.title)},
                             {"message", q(request.message)},
                             {"actions", actions}};
  pending.alertHandler = std::move(handler);
  push(std::move(pending));
}

void QtPresenter::presentShareSheet(Screen&, const ShareSheetRequest& request,
                                    std::function<void(const std::string&)> completion) {
  Pending pending;
  QVariantList actions;
  auto offer = [&](const char* type, const char* title) {
    const auto& excluded = request.excludedActivityTypes;
    if (std::find(excluded.begin(), excluded.end(), type) != excluded.end()) return;
    actions.append(QVariantMap{{"title", q(localized(title))}, {"type", QString::fromLatin1(type)}});
  };
  offer(kShareActivityCopy, "Copy");
  offer(kShareActivityEmail, "E-mail");
  if (request.photoPath) {
    offer(kShareActivitySave, "Save Photo");
    offer(kShareActivityOpenWith, "Open Photo");
  }
  for (const auto& activity : request.applicationActivities)
    actions.append(QVariantMap{{"title", q(activity.title)}, {"type", q(activity.type)}});
  pending.view = QVariantMap{{"kind", "share"},
                             {"title", q(localized("Share"))},
                             {"message", q(request.text)},
                             {"text", q(request.text)},
                             {"photo", request.photoPath ? q(*request.photoPath) : QString()},
                             {"actions", actions}};
  pending.share = request;
  pending.shareHandler = std::move(completion);
  push(std::move(pending));
}

void QtPresenter::presentTextFieldAlert(Screen&, const TextFieldAlertRequest& request,
                                        std::function<void(int, const std::string&)> handler) {
  Pending pending;
  QVariantList actions;
  for (const auto& action : request.actions) {
    actions.append(QVariantMap{
        {"title", q(action.title)}, {"result", action.result}, {"style", styleName(action.style)}});
  }
  QVariantList needsText;
  for (int result : request.resultsNeedingText) needsText.append(result);
  pending.view = QVariantMap{{"kind", "textfield"},
                             {"title", q(request.title)},
                             {"message", q(request.message)},
                             {"placeholder", q(request.placeholder)},
                             {"actions", actions},
                             {"needsText", needsText}};
  pending.textHandler = std::move(handler);
  push(std::move(pending));
}

void QtPresenter::answerText(int id, int result, const QString& text) {
  auto pending = takeCurrent(id);
  if (pending && pending->textHandler) pending->textHandler(result, text.toStdString());
}

void QtPresenter::endEditing() {
  Q_EMIT editingEnded();
}

void QtPresenter::push(Pending pending) {
  pending.id = nextId_++;
  pending.view.insert("id", pending.id);
  queue_.push_back(std::move(pending));
  if (queue_.size() == 1) Q_EMIT currentChanged();
}

QVariantMap QtPresenter::current() const {
  return queue_.empty() ? QVariantMap{} : queue_.front().view;
}

std::optional<QtPresenter::Pending> QtPresenter::takeCurrent(int id) {
  // A late answer to a request already answered (a double click) is dropped.
  if (queue_.empty() || queue_.front().id != id) return std::nullopt;
  Pending pending = std::move(queue_.front());
  queue_.pop_front();
  Q_EMIT currentChanged();
  return pending;
}

void QtPresenter::answer(int id, int result) {
  auto pending = takeCurrent(id);
  if (pending && pending->alertHandler) pending->alertHandler(result);
}

void QtPresenter::answerShare(int id, const QString& activityType) {
  auto pending = takeCurrent(id);
  if (pending && pending->shareHandler) pending->shareHandler(activityType.toStdString());
}

QString QtPresenter::performShareActivity(const QString& activityType, const QString& target) {
  if (queue_.empty()) return {};
  const ShareSheetRequest& share = queue_.front().share;
  std::string text = share.text;
  if (share.itemForActivityType) text += share.itemForActivityType(activityType.toStdString());
  const QString photo = share.photoPath ? q(*share.photoPath) : QString();
  if (activityType == QLatin1String(kShareActivityCopy)) {
    QGuiApplication::clipboard()->setText(q(text));
    return {};
  }
  if (activityType == QLatin1String(kShareActivitySave)) {
    if (photo.isEmpty()) return q(localized("This record has no photo."));
    QString path = QUrl(target).isLocalFile() ? QUrl(target).toLocalFile() : target;
    QFile::remove(path + QStringLiteral(".part"));
    if (!QFile::copy(photo, path + QStringLiteral(".part")) ||
        !QFile::rename(path + QStringLiteral(".part"), path)) {
      // QFile::rename does not replace: an existing file goes first.
      if (QFile::exists(path + QStringLiteral(".part")) && QFile::remove(path) &&
          QFile::rename(path + QStringLiteral(".part"), path))
        return {};
      QFile::remove(path + QStringLiteral(".part"));
      return q(localized("The photo could not be saved there."));
    }
    return {};
  }
  if (activityType == QLatin1String(kShareActivityOpenWith)) {
    if (photo.isEmpty() || !QDesktopServices::openUrl(QUrl::fromLocalFile(photo)))
      return q(localized("No application opens this photo."));
    return {};
  }
  if (activityType == QLatin1String(kShareActivityEmail)) {
    // xdg-email carries the attachment; a plain mailto: link cannot.
    QStringList arguments{QStringLiteral("--body"), q(text)};
    if (!photo.isEmpty()) arguments << QStringLiteral("--attach") << photo;
    if (QProcess::startDetached(QStringLiteral("xdg-email"), arguments)) return {};
    QUrl mail(QStringLiteral("mailto:"));
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("body"), q(text));
    mail.setQuery(query);
    if (!QDesktopServices::openUrl(mail)) return q(localized("No e-mail program is set up."));
    return {};
  }
  return {};
}

}  // namespace lumeo::gui
