#include "export_adapter.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTimeZone>

#include "backup/mood_export_view_controller.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "main_queue_pump.h"
#include "platform/atomic_file.h"
#include "platform/date_formatter.h"
#include "platform/localization.h"
#include "qt_convert.h"
#include "shell/mood_app_delegate.h"

namespace lumeo::gui {

namespace {

Date toDate(const QDateTime& date) {
  return Date::fromTimeIntervalSince1970(static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0);
}

QDateTime toQDateTime(std::optional<Date> date) {
  if (!date) return {};
  return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(date->timeIntervalSince1970() * 1000.0));
}

QString mediumDate(std::optional<Date> date) {
  if (!date) return {};
  return q(DateFormatter::localizedStringFromDate(*date, DateFormatter::Style::kMedium,
                                                  DateFormatter::Style::kNone));
}

// The window stays alive while an export runs on the main thread: every
// few hundredths of a second the export lets Qt handle its events, so the
// progress shows and Cancel can be pressed.
constexpr qint64 kEventPassInterval = 30;

const GuiRegistration kExport(40, [](GuiRuntime& runtime) {
  runtime.addSingleton("Export", new ExportAdapter(runtime, &runtime));
  runtime.addScreen(QStringLiteral("MoodExportViewController"), QStringLiteral("ExportScreen.qml"));
});

}  // namespace

class ExportAdapter::Delegate : public MoodExportViewDelegate {
 public:
  explicit Delegate(ExportAdapter& adapter) : adapter_(adapter) {}
  void showIndicator(const std::string& text, bool cancellable) override {
    adapter_.showIndicator(q(text), cancellable);
  }
  void progress(double fraction) override { adapter_.setProgress(fraction); }
  void hideIndicator(std::optional<bool> result) override { adapter_.hideIndicator(result); }
  void share(const std::filesystem::path& url) override { adapter_.share(q(url.string())); }

 private:
  ExportAdapter& adapter_;
};

ExportAdapter::ExportAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime), delegate_(std::make_shared<Delegate>(*this)) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &ExportAdapter::changed);
}

ExportAdapter::~ExportAdapter() = default;

void ExportAdapter::appear() {
  if (!controller_ && runtime_.session().journalOpen()) {
    GuiSession& session = runtime_.session();
    controller_ = std::make_shared<MoodExportViewController>(
        session.app().store(), session.directories().documents, session.defaults());
    controller_->setDelegate(delegate_);
  }
  if (controller_) controller_->viewDidLoad();
  Q_EMIT changed();
}

QDateTime ExportAdapter::from() const {
  return controller_ ? toQDateTime(controller_->dateFrom()) : QDateTime();
}

QDateTime ExportAdapter::to() const {
  return controller_ ? toQDateTime(controller_->dateTo()) : QDateTime();
}

QString ExportAdapter::fromText() const {
  return controller_ ? mediumDate(controller_->dateFrom()) : QString();
}

QString ExportAdapter::toText() const {
  return controller_ ? mediumDate(controller_->dateTo()) : QString();
}

QStringList ExportAdapter::rows() const {
  QStringList out;
  for (const std::string& title : MoodExportViewController::rowTitles()) out.append(q(title));
  return out;
}

bool ExportAdapter::busy() const {
  return controller_ && controller_->isBusy();
}

QString ExportAdapter::fileName() const {
  return file_.isEmpty() ? QString() : QFileInfo(file_).fileName();
}

void ExportAdapter::setFrom(const QDateTime& date) {
  if (!controller_ || controller_->isBusy() || !date.isValid()) return;
  controller_->setDateFrom(toDate(date));
  Q_EMIT changed();
}

void ExportAdapter::setTo(const QDateTime& date) {
  if (!controller_ || controller_->isBusy() || !date.isValid()) return;
  controller_->setDateTo(toDate(date));
  Q_EMIT changed();
}

void ExportAdapter::exportPdf() {
  if (!controller_ || controller_->isBusy()) return;
  file_.clear();
  photoSummary_.clear();
  controller_->didSelectRowAtIndex(kMoodExportRowPDF);
  Q_EMIT changed();
}

void ExportAdapter::exportCsv() {
  if (!controller_ || controller_->isBusy()) return;
  file_.clear();
  photoSummary_.clear();
  controller_->didSelectRowAtIndex(kMoodExportRowCSV);
  Q_EMIT changed();
}

void ExportAdapter::exportPhotos(const QUrl& folder) {
  if (!controller_ || controller_->isBusy() || !folder.isLocalFile()) return;
  file_.clear();
  photoSummary_.clear();
  std::weak_ptr<MoodExportViewController> weak = controller_;
  controller_->doExportPhotos(
      folder.toLocalFile().toStdString(), [this, weak](const PhotoExportResult& result) {
        auto controller = weak.lock();
        if (!controller) return;
        if (result.error) {
          controller->showAlert(localized("The photos could not be exported"), result.error->description,
                                localized("OK"));
        }
        if (result.cancelled) {
          photoSummary_ = q(localized("Export cancelled"));
        } else if (!result.sent.empty() || !result.replaced.empty()) {
          photoSummary_ = q(localizedStringWithFormat(
              "%ld copied, %ld replaced, %ld already there", static_cast<long>(result.sent.size()),
              static_cast<long>(result.replaced.size()), static_cast<long>(result.skipped.size())));
        }
        indicator_.clear();
        Q_EMIT changed();
      });
  Q_EMIT changed();
}

void ExportAdapter::cancel() {
  if (controller_ && controller_->isBusy()) controller_->cancelClick();
}

void ExportAdapter::showIndicator(const QString& text, bool cancellable) {
  indicator_ = text;
  cancellable_ = cancellable;
  outcome_.clear();
  Q_EMIT changed();
}

void ExportAdapter::setProgress(double fraction) {
  progress_ = fraction;
  Q_EMIT changed();
  static QElapsedTimer clock;
  if (!clock.isValid()) clock.start();
  if (clock.elapsed() - lastEventPass_ >= kEventPassInterval) {
    lastEventPass_ = clock.elapsed();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  }
}

void ExportAdapter::hideIndicator(std::optional<bool> result) {
  indicator_.clear();
  cancellable_ = false;
  progress_ = 0;
  outcome_ = !result ? QString() : (*result ? QStringLiteral("ok") : QStringLiteral("failed"));
  if (result && !*result && controller_ && controller_->lastError()) {
    controller_->showAlert(localized("The export failed"), controller_->lastError()->description,
                           localized("OK"));
  }
  Q_EMIT changed();
}

void ExportAdapter::share(const QString& path) {
  file_ = path;
  Q_EMIT changed();
}

QString ExportAdapter::saveTo(const QUrl& target) {
  if (file_.isEmpty()) return q(localized("There is no file to save."));
  if (!target.isLocalFile()) return q(localized("Choose a file on this computer."));
  auto bytes = readFileBytes(file_.toStdString());
  if (auto* error = std::get_if<Error>(&bytes)) return q(error->description);
  // Written whole or not at all: an unwritable place gets a message and no file.
  if (auto error =
          writeFileAtomically(target.toLocalFile().toStdString(), std::get<std::vector<std::uint8_t>>(bytes),
                              FileAccess::kUserDefault)) {
    return q(localized("The file could not be saved there: ") + error->description);
  }
  return {};
}

QString ExportAdapter::openFile() {
  if (file_.isEmpty()) return q(localized("There is no file to open."));
  // Inside a Flatpak sandbox Qt asks the OpenURI portal; on a desktop
  // xdg-open finds the default application, whatever the desktop.
  if (QFileInfo::exists(QStringLiteral("/.flatpak-info"))) {
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(file_))) return {};
  } else if (QProcess::startDetached(QStringLiteral("xdg-open"), {file_})) {
    return {};
  }
  return q(localized("No application opens this file."));
}

QString ExportAdapter::emailFile() {
  if (file_.isEmpty()) return q(localized("There is no file to send."));
  const QStringList arguments{QStringLiteral("--subject"), q(localized("Mood report")),
                              QStringLiteral("--attach"), file_};
  if (!QProcess::startDetached(QStringLiteral("xdg-email"), arguments))
    return q(localized("No e-mail program is set up (xdg-email is missing)."));
  return {};
}

}  // namespace lumeo::gui
