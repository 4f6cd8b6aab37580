// The Qt Quick Test binary: every tst_*.qml in quick/ runs against the real
// QML module and the real adapters, on a journal in a temporary folder that
// holds a fixed set of sample records. Test files run in name order and
// share the journal, as one user would.
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <QQmlContext>
#include <QQmlEngine>
#include <QTemporaryDir>
#include <memory>

#include "gui_runtime.h"
#include "gui_session.h"
#include "gui_test_support.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

class Setup : public QObject {
  Q_OBJECT
 public Q_SLOTS:
  void applicationAvailable() { fixture_ = std::make_unique<lumeo::gui::testing::GuiFixture>(); }
  void qmlEngineAvailable(QQmlEngine* engine) { fixture_->attach(*engine); }
  void cleanupTestCase() { fixture_.reset(); }

 private:
  std::unique_ptr<lumeo::gui::testing::GuiFixture> fixture_;
};

QUICK_TEST_MAIN_WITH_SETUP(gui_quick, Setup)

#include "gui_quick_tests.moc"
