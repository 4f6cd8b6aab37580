// The export screen for QML (singleton `Export`): the range with the core's
// defaults and clamping, the three exports (the PDF report, the CSV table,
// the photos to a folder) with their progress, cancel and busy state, and
// the three things a Linux desktop does with a finished file: save it
// where the user says, open it with the default application, attach it to
// a new e-mail. The logic is MoodExportViewController's; this adapter only
// shows it.
#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <memory>

namespace lumeo {
class MoodExportViewController;
}

namespace lumeo::gui {

class GuiRuntime;

class ExportAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool ready READ ready NOTIFY changed)
  Q_PROPERTY(QDateTime from READ from NOTIFY changed)
  Q_PROPERTY(QDateTime to READ to NOTIFY changed)
  Q_PROPERTY(QString fromText READ fromText NOTIFY changed)
  Q_PROPERTY(QString toText READ toText NOTIFY changed)
  // The rows' titles by the controller's index: From, To, "", the three exports.
  Q_PROPERTY(QStringList rows READ rows CONSTANT)
  Q_PROPERTY(bool busy READ busy NOTIFY changed)
  // The busy indicator's text ("Create...", "Exporting...", ...) and
  // whether it has a cancel button; "" when hidden.
  Q_PROPERTY(QString indicator READ indicator NOTIFY changed)
  Q_PROPERTY(bool cancellable READ cancellable NOTIFY changed)
  Q_PROPERTY(double progress READ progress NOTIFY changed)
  // "ok" or "failed" for a moment after an export ends ("Completed"), else "".
  Q_PROPERTY(QString outcome READ outcome NOTIFY changed)
  // The finished report or table, for the share actions; "" when none.
  Q_PROPERTY(QString file READ file NOTIFY changed)
  Q_PROPERTY(QString fileName READ fileName NOTIFY changed)
  // What the last photo export did, in a sentence.
  Q_PROPERTY(QString photoSummary READ photoSummary NOTIFY changed)

 public:
  explicit ExportAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~ExportAdapter() override;

  bool ready() const { return controller_ != nullptr; }
  QDateTime from() const;
  QDateTime to() const;
  QString fromText() const;
  QString toText() const;
  QStringList rows() const;
  bool busy() const;
  QString indicator() const { return indicator_; }
  bool cancellable() const { return cancellable_; }
  double progress() const { return progress_; }
  QString outcome() const { return outcome_; }
  QString file() const { return file_; }
  QString fileName() const;
  QString photoSummary() const { return photoSummary_; }

  // The screen appeared: the controller is made (once a session, so that
  // an unchanged range reuses its report) and the range gets its defaults.
  Q_INVOKABLE void appear();
  // A day picked for From or To, clamped as the core clamps it.
  Q_INVOKABLE void setFrom(const QDateTime& date);
  Q_INVOKABLE void setTo(const QDateTime& date);
  Q_INVOKABLE void exportPdf();
  Q_INVOKABLE void exportCsv();
  Q_INVOKABLE void exportPhotos(const QUrl& folder);
  Q_INVOKABLE void cancel();
  // The share actions on `file`; each returns "" or a message to show.
  Q_INVOKABLE QString saveTo(const QUrl& target);
  Q_INVOKABLE QString openFile();
  Q_INVOKABLE QString emailFile();

  // For the delegate.
  void showIndicator(const QString& text, bool cancellable);
  void setProgress(double fraction);
  void hideIndicator(std::optional<bool> result);
  void share(const QString& path);

 Q_SIGNALS:
  void changed();

 private:
  class Delegate;
  GuiRuntime& runtime_;
  std::shared_ptr<MoodExportViewController> controller_;
  std::shared_ptr<Delegate> delegate_;
  QString indicator_;
  bool cancellable_ = false;
  double progress_ = 0;
  QString outcome_;
  QString file_;
  QString photoSummary_;
  qint64 lastEventPass_ = 0;
};

}  // namespace lumeo::gui
