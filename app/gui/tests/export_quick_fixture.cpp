// What the Quick Tests of the export and backup screens (export_quick/) add
// to `Fixture`: `ExportFixture` reads back what the screens wrote with the
// tools a user has (pdfinfo), looks at files, and stands in for the
// desktop's mail program and default application (scripts on PATH that
// note how they were called).
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include "gui_session.h"
#include "gui_test_support.h"

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

 private:
  lumeo::gui::GuiSession& session_;
  QTemporaryDir scratch_;
};

const lumeo::gui::testing::FixtureSingleton kExportFixture("ExportFixture",
                                                           [](lumeo::gui::testing::GuiFixture& fixture) {
                                                             return new ExportFixture(fixture.session());
                                                           });

}  // namespace

#include "export_quick_fixture.moc"
