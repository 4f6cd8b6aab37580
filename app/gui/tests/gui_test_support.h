// A launched desktop application for tests: a temporary home with a fixed
// sample journal, a passcode gate the test controls, the runtime and its
// adapters; `Fixture` (a QML singleton of Lumeo.Core) lets QML tests look
// into the store and set the passcode.
#pragma once

#include <QObject>
#include <QTemporaryDir>
#include <QVariantList>
#include <memory>
#include <optional>

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

 private:
  QTemporaryDir home_;
  std::unique_ptr<GuiSession> session_;
  std::unique_ptr<GuiRuntime> runtime_;
};

}  // namespace lumeo::gui::testing
