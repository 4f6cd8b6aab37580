// The adapters without QML: the level tiles as a list model (checked by
// QAbstractItemModelTester), and the session's termination in the middle
// of a new record, which must keep what was typed and open the editor on
// it again at the next start, on a real journal file.
#include <QAbstractItemModelTester>
#include <QTemporaryDir>
#include <QtTest>

#include "capture/mood_capture_view_controller.h"
#include "capture/mood_record_edit_view_controller.h"
#include "gui_session.h"
#include "level_tile_model.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/settings_keys.h"

using namespace lumeo;
using namespace lumeo::gui;

class AdapterTests : public QObject {
  Q_OBJECT
 private Q_SLOTS:
  void initTestCase() { SecretStore::setShared(std::make_shared<InMemorySecretStore>()); }

  void levelTilesFollowTheController() {
    QTemporaryDir home;
    auto session = launched(home.path());
    LevelTileModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    session->capture()->viewWillAppear();
    model.setTiles(session->capture()->tiles());
    QCOMPARE(model.rowCount(), 10);
    const QModelIndex top = model.index(0, 0);
    QCOMPARE(model.data(top, LevelTileModel::kLevelRole).toInt(), 10);
    QCOMPARE(model.data(top, LevelTileModel::kShortcutRole).toString(), QStringLiteral("0"));
    QCOMPARE(model.data(model.index(9, 0), LevelTileModel::kShortcutRole).toString(), QStringLiteral("1"));
    QVERIFY(!model.data(top, LevelTileModel::kTextRole).toString().isEmpty());
    // The same tiles again change nothing; a renamed level resets the model.
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    model.setTiles(session->capture()->tiles());
    QCOMPARE(resets.count(), 0);
    auto tiles = session->capture()->tiles();
    tiles[3].text = "Quite fine";
    model.setTiles(tiles);
    QCOMPARE(resets.count(), 1);
    QCOMPARE(model.data(model.index(3, 0), LevelTileModel::kTextRole).toString(),
             QStringLiteral("Quite fine"));
  }

  void closingMidEditResumesTheRecord() {
    QTemporaryDir home;
    {
      auto session = launched(home.path());
      session->capture()->selectMenu(6);  // level 4
      auto editor = session->capture()->editor();
      QVERIFY(editor);
      editor->viewDidLoad();
      editor->textViewDidChange("half written #draft", 19);
      // The window closes: the session ends without done or cancel.
    }
    auto session = launched(home.path());
    auto editor = session->capture()->editor();
    QVERIFY2(editor, "the editor opens again on the unfinished record");
    editor->viewDidLoad();
    QCOMPARE(QString::fromStdString(editor->text()), QStringLiteral("half written #draft"));
    QCOMPARE(editor->recordInEdit()->moodLevel(), 4);
    editor->done();
    int found = 0;
    for (const auto& record : session->app().store().allRecords())
      if (record->moodDescription()->comment().value_or("") == "half written #draft") ++found;
    QCOMPARE(found, 1);
  }

 private:
  static std::unique_ptr<GuiSession> launched(const QString& home) {
    SessionOptions options;
    options.home = home.toStdString();
    options.desktopServices = false;
    auto session = std::make_unique<GuiSession>(options);
    if (!session->launch()) qFatal("launch: %s", session->launchError().c_str());
    (void)session->defaults()->setBool(kTutorialCompleted, true);
    (void)session->defaults()->setBool(kTutorialSyncCompleted, true);
    session->splashFinished();
    return session;
  }
};

QTEST_GUILESS_MAIN(AdapterTests)
#include "gui_adapter_tests.moc"
