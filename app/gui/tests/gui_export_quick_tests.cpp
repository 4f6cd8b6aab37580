// The Quick Test binary of the export and backup screens: every tst_*.qml in
// export_quick/ drives the real QML on a real sample journal (offscreen,
// software renderer). `ExportFixture` reads back what the screens wrote with
// the tools a user has (pdfinfo), runs the `lumeo` command line against the
// same journal, and stands in for the desktop's mail program and default
// application (scripts on PATH that note how they were called).
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QQmlEngine>
#include <QTemporaryDir>
#include <memory>

#include "gui_runtime.h"
#include "gui_session.h"
#include "gui_test_support.h"
#include "platform/image.h"
#include "shell/mood_app_delegate.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

namespace {

class ExportFixture : public QObject {
  Q_OBJECT
 public:
  explicit ExportFixture(lumeo::gui::GuiSession& session) : session_(session) {
    // The desktop helpers: each notes its arguments in a file of its name.
    const QString bin = scratch_.path() + QStringLiteral("/bin");
    QDir().mkpath(bin);
    for (const char* name : {"xdg-email", "xdg-open"}) {
      QFile script(bin + QLatin1Char('/') + QLatin1String(name));
      if (script.open(QIODevice::WriteOnly)) {
        script.write(QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1/%2.args'\n")
                         .arg(scratch_.path(), QLatin1String(name))
                         .toUtf8());
        script.close();
        script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
      }
    }
    qputenv("PATH", (bin + QLatin1Char(':') + qEnvironmentVariable("PATH")).toLocal8Bit());
    // The default application of a file is found through xdg-open.
    qputenv("XDG_CURRENT_DESKTOP", "X-Generic");
  }

  Q_INVOKABLE QString scratch() const { return scratch_.path(); }
  Q_INVOKABLE QString home() const {
    return QString::fromStdString(session_.directories().library.parent_path().string());
  }
  Q_INVOKABLE QString documents() const {
    return QString::fromStdString(session_.directories().documents.string());
  }
  Q_INVOKABLE bool exists(const QString& path) const { return QFileInfo::exists(path); }
  Q_INVOKABLE qint64 size(const QString& path) const { return QFileInfo(path).size(); }
  Q_INVOKABLE QStringList files(const QString& dir) const {
    return QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name);
  }
  Q_INVOKABLE QString read(const QString& path) const {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
  }
  Q_INVOKABLE bool remove(const QString& path) const { return QFile::remove(path); }
  Q_INVOKABLE bool write(const QString& path, const QString& text) const {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0;
  }
  // The page count pdfinfo reads from a PDF, or -1 when it cannot read one.
  Q_INVOKABLE int pdfPages(const QString& path) const {
    QProcess pdfinfo;
    pdfinfo.start(QStringLiteral("pdfinfo"), {path});
    if (!pdfinfo.waitForFinished(30000) || pdfinfo.exitCode() != 0) return -1;
    for (const QString& line : QString::fromUtf8(pdfinfo.readAllStandardOutput()).split(QLatin1Char('\n'))) {
      if (line.startsWith(QLatin1String("Pages:"))) return line.mid(6).trimmed().toInt();
    }
    return -1;
  }
  // Runs `lumeo ARGS` (the command line of this build) and returns its exit
  // status; its output goes to lastOutput.
  Q_INVOKABLE int lumeo(const QStringList& arguments) {
    QProcess cli;
    cli.start(qEnvironmentVariable("LUMEO_CLI"), arguments);
    if (!cli.waitForFinished(60000)) return -1;
    lastOutput_ = QString::fromUtf8(cli.readAllStandardOutput() + cli.readAllStandardError());
    return cli.exitCode();
  }
  Q_INVOKABLE QString lastOutput() const { return lastOutput_; }
  // Gives the `count` newest records a photo (once the journal is open).
  Q_INVOKABLE int addPhotos(int count) {
    using namespace lumeo;
    auto images = ImageStore::shared();
    auto records = session_.app().store().allRecords();
    std::sort(records.begin(), records.end(),
              [](const auto& a, const auto& b) { return a->date() > b->date(); });
    int done = 0;
    for (const auto& record : records) {
      if (done >= count) break;
      auto description = record->moodDescription();
      if (!description || !images) continue;
      const Color color = Color::fromRGB255(40 + 30 * done, 120, 200 - 20 * done);
      auto photo = images->writeNewImage(Image::filled(96, 64, color));
      auto thumb = images->writeNewImage(Image::filled(32, 32, color));
      if (!std::holds_alternative<std::string>(photo) || !std::holds_alternative<std::string>(thumb))
        continue;
      description->setPhotoName(std::get<std::string>(photo));
      description->setThumbName(std::get<std::string>(thumb));
      ++done;
    }
    session_.app().saveContext();
    return done;
  }

 private:
  lumeo::gui::GuiSession& session_;
  QTemporaryDir scratch_;
  QString lastOutput_;
};

}  // namespace

class Setup : public QObject {
  Q_OBJECT
 public Q_SLOTS:
  void applicationAvailable() {
    fixture_ = std::make_unique<lumeo::gui::testing::GuiFixture>();
    fixture_->runtime().addSingleton("ExportFixture", new ExportFixture(fixture_->session()));
  }
  void qmlEngineAvailable(QQmlEngine* engine) { fixture_->attach(*engine); }
  void cleanupTestCase() { fixture_.reset(); }

 private:
  std::unique_ptr<lumeo::gui::testing::GuiFixture> fixture_;
};

QUICK_TEST_MAIN_WITH_SETUP(gui_export_quick, Setup)

#include "gui_export_quick_tests.moc"
