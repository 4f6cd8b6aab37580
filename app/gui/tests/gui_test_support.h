// A launched desktop application for tests: a temporary home with a fixed
// sample journal, a passcode gate the test controls, the runtime and its
// adapters; `Fixture` (a QML singleton of Lumeo.Core) lets QML tests look
// into the store, set the passcode and run the `lumeo` command line on the
// same journal. Every Quick Test binary starts the same way
// (quick_test_main.cpp with QuickTestSetup) and adds its own singletons
// with a FixtureSingleton.
#pragma once

#include <QObject>
#include <QTemporaryDir>
#include <QVariantList>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/clock.h"
#include "shell/shell_services.h"

class QQmlEngine;

namespace lumeo::gui {
class GuiSession;
class GuiRuntime;
}  // namespace lumeo::gui

namespace lumeo::gui::testing {

// A passcode gate without a keyring: a code in memory. It asks through the
// real entry screen of the lock when a code is set.
class MemoryPasscodeGate;

class GuiFixture : public QObject {
  Q_OBJECT
 public:
  // `sampleRecords`: fill the journal with the fixed sample records.
  explicit GuiFixture(bool sampleRecords = true);
  ~GuiFixture() override;

  void attach(QQmlEngine& engine);
  GuiSession& session() { return *session_; }
  GuiRuntime& runtime() { return *runtime_; }

  // For QML tests.
  // Records whose comment contains `text`: [{level, comment, tags: [...]}].
  Q_INVOKABLE QVariantList recordsWithComment(const QString& text) const;
  Q_INVOKABLE int recordCount() const;
  // Tag names in the store, most used first.
  Q_INVOKABLE QStringList tagNames() const;
  // Opens the editor on the first record whose comment contains `text`, as
  // the share sheet's Edit does. False when there is none.
  Q_INVOKABLE bool editRecordWithComment(const QString& text);
  // Sets the passcode ("" removes it) and locks the journal again.
  Q_INVOKABLE void setPasscode(const QString& code);
  // Runs the core's main queue until it is empty.
  Q_INVOKABLE void drain() const;
  // Gives the `count` newest records a photo and a thumbnail (once the
  // journal is open); returns how many got one.
  Q_INVOKABLE int addPhotos(int count);

  // The journal's home folder, as `lumeo --home` takes it.
  Q_INVOKABLE QString home() const;
  // Runs the command line of this build (LUMEO_CLI) with these arguments
  // as another process: its exit status (-1 when it did not end within a
  // minute); what it printed is in lastOutput().
  Q_INVOKABLE int lumeo(const QStringList& arguments);
  Q_INVOKABLE QString lastOutput() const { return lastOutput_; }
  // `lumeo --home HOME ARGUMENTS... --json` on this journal: its answer
  // parsed, or {"error": why} when it failed.
  Q_INVOKABLE QVariant lumeoJson(const QStringList& arguments);
  // Where tests keep pictures of the screens they drove (LUMEO_ARTEFACTS,
  // made if missing), or "" to keep none.
  Q_INVOKABLE QString artefactDir() const;

 private:
  QString lastOutput_;
  QTemporaryDir home_;
  std::unique_ptr<GuiSession> session_;
  std::unique_ptr<GuiRuntime> runtime_;
};

// A QML singleton one Quick Test binary adds beside `Fixture`, as a static
// object of its own source file: made once the application exists,
// deleted before the fixture.
struct FixtureSingleton {
  using Make = std::function<QObject*(GuiFixture&)>;
  FixtureSingleton(const char* name, Make make);
};

// The setup of every Quick Test binary: the fixture, the binary's
// FixtureSingletons, the QML engine attached to the runtime.
class QuickTestSetup : public QObject {
  Q_OBJECT
 public Q_SLOTS:
  void applicationAvailable();
  void qmlEngineAvailable(QQmlEngine* engine);
  void cleanupTestCase();

 private:
  std::unique_ptr<GuiFixture> fixture_;
  std::vector<QObject*> singletons_;
};

}  // namespace lumeo::gui::testing
