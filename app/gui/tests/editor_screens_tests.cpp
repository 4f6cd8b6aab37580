// The level editor's and the template screen's adapters on a launched
// application with a real journal in a temporary folder (the level rows
// under QAbstractItemModelTester), and saves from the GUI's long-lived
// session after the real `lumeo` command line wrote to the same journal in
// between: nothing is lost and no save is refused; records that program
// deletes or adds leave or join every view without a save of the window;
// and a restore from the Backup screen holds the journal's writer lock.
#include <sys/stat.h>

#include <QAbstractItemModelTester>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "backup_adapter.h"
#include "capture/mood_capture_edit_view_controller.h"
#include "capture/mood_capture_view_controller.h"
#include "capture/mood_levels_presentation.h"
#include "capture/mood_record_edit_view_controller.h"
#include "capture/mood_template_view_controller.h"
#include "capture_adapter.h"
#include "editor_adapter.h"
#include "gallery_model.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "gui_test_support.h"
#include "history_controller.h"
#include "history_model.h"
#include "level_editor_adapter.h"
#include "level_tile_model.h"
#include "map_tab.h"
#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "shell_adapter.h"
#include "store/image_store.h"
#include "store/journal_lock.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "store/settings_keys.h"
#include "summary_controller.h"
#include "tagged_text_layout.h"
#include "template_adapter.h"

using namespace lumeo;
using namespace lumeo::gui;

namespace {

QString levelTextOfTile(GuiRuntime& runtime, int level) {
  auto* capture = qobject_cast<CaptureAdapter*>(runtime.singleton(QStringLiteral("Capture")));
  QAbstractListModel* tiles = capture->tiles();
  for (int row = 0; row < tiles->rowCount(); ++row) {
    const QModelIndex at = tiles->index(row, 0);
    if (tiles->data(at, LevelTileModel::kLevelRole).toInt() == level)
      return tiles->data(at, LevelTileModel::kTextRole).toString();
  }
  return {};
}

QColor colorOfTile(GuiRuntime& runtime, int level) {
  auto* capture = qobject_cast<CaptureAdapter*>(runtime.singleton(QStringLiteral("Capture")));
  QAbstractListModel* tiles = capture->tiles();
  for (int row = 0; row < tiles->rowCount(); ++row) {
    const QModelIndex at = tiles->index(row, 0);
    if (tiles->data(at, LevelTileModel::kLevelRole).toInt() == level)
      return tiles->data(at, LevelTileModel::kColorRole).value<QColor>();
  }
  return {};
}

// The inode of the journal file: a restore puts another file in its place.
ino_t journalInode(const GuiSession& session) {
  struct stat st {};
  return ::stat(session.storePath().c_str(), &st) == 0 ? st.st_ino : 0;
}

}  // namespace

class EditorScreensTests : public QObject {
  Q_OBJECT
 private Q_SLOTS:
  void init() {
    fixture_ = std::make_unique<testing::GuiFixture>();
    fixture_->session().splashFinished();
    QVERIFY(fixture_->session().journalError().empty());
  }
  void cleanup() { fixture_.reset(); }

  void levelRowsFollowTheControllerAndDoneReachesTheTiles() {
    // The History tab is open underneath, as it stays on the desktop.
    HistoryController history(fixture_->session().app().store());
    history.appear();
    auto* historyRows = qobject_cast<QAbstractItemModel*>(history.model());
    QVERIFY(historyRows->rowCount() > 0);
    auto historyColorOfLevel = [historyRows](int level) {
      for (int row = 0; row < historyRows->rowCount(); ++row) {
        const QModelIndex at = historyRows->index(row, 0);
        if (historyRows->data(at, HistoryModel::LevelRole).toInt() == level)
          return historyRows->data(at, HistoryModel::ColorRole).value<QColor>();
      }
      return QColor();
    };
    QVERIFY(historyColorOfLevel(5).isValid());

    auto* editor = adapter<LevelEditorAdapter>("LevelEditor");
    QAbstractItemModelTester tester(editor->rows(), QAbstractItemModelTester::FailureReportingMode::QtTest);
    editor->open();
    QVERIFY(editor->active());
    QAbstractItemModel* rows = editor->rows();
    QCOMPARE(rows->rowCount(), 10);
    QCOMPARE(rows->data(rows->index(0, 0), LevelEditorRowModel::kLevelRole).toInt(), 10);
    QCOMPARE(rows->data(rows->index(9, 0), LevelEditorRowModel::kLevelRole).toInt(), 1);
    QVERIFY(!editor->gradientMode());
    QCOMPARE(editor->buttonColors().size(), 3);

    // Typing renames level 7 (position 3) in the rows at once.
    editor->startEdit(3);
    editor->editRow(3, QStringLiteral("Bright enough"));
    QCOMPARE(rows->data(rows->index(3, 0), LevelEditorRowModel::kTextRole).toString(),
             QStringLiteral("Bright enough"));
    QCOMPARE(editor->currentEdit(), 3);
    QVERIFY(editor->previousEnabled() && editor->nextEnabled());
    QSignalSpy focus(editor, &LevelEditorAdapter::focusRowRequested);
    editor->nextRow();
    QCOMPARE(focus.count(), 1);
    QCOMPARE(focus.first().first().toInt(), 4);

    // A colour on the middle button recolours the rows in place: no reset.
    QSignalSpy resets(rows, &QAbstractItemModel::modelReset);
    QSignalSpy recoloured(rows, &QAbstractItemModel::dataChanged);
    const QColor before = rows->data(rows->index(5, 0), LevelEditorRowModel::kColorRole).value<QColor>();
    editor->chooseColorButton(1);
    editor->pickColor(QColor(20, 60, 220));
    QVERIFY(editor->gradientMode());
    QCOMPARE(resets.count(), 0);
    QVERIFY(recoloured.count() >= 1);
    const QColor after = rows->data(rows->index(5, 0), LevelEditorRowModel::kColorRole).value<QColor>();
    QVERIFY(after != before);
    QVERIFY(after.blue() > after.red());

    // Done writes the table, closes, and the capture tiles follow at once.
    editor->done();
    QVERIFY(!editor->active());
    QCOMPARE(levelTextOfTile(fixture_->runtime(), 7), QStringLiteral("Bright enough"));
    const QColor tile = colorOfTile(fixture_->runtime(), 5);
    QVERIFY2(std::abs(tile.red() - after.red()) <= 1 && std::abs(tile.blue() - after.blue()) <= 1,
             qPrintable(tile.name() + " against " + after.name()));
    QCOMPARE(QString::fromStdString(MoodLevelsPresentation().presentationForMoodLevel(7)->text),
             QStringLiteral("Bright enough"));
    // The History rows take the new colour without being opened again.
    const QColor inHistory = historyColorOfLevel(5);
    QVERIFY2(std::abs(inHistory.red() - after.red()) <= 1 && std::abs(inHistory.blue() - after.blue()) <= 1,
             qPrintable(inHistory.name() + " against " + after.name()));

    // The mode is still on at the next open; switched off it stays off.
    editor->open();
    QVERIFY(editor->gradientMode());
    editor->setGradientMode(false);
    editor->done();
    editor->open();
    QVERIFY(!editor->gradientMode());
    editor->back();
  }

  void leavingWithoutDoneKeepsTheOldTable() {
    auto* editor = adapter<LevelEditorAdapter>("LevelEditor");
    const std::string shipped = MoodLevelsPresentation().presentationForMoodLevel(2)->text;
    editor->open();
    editor->startEdit(8);
    editor->editRow(8, QStringLiteral("Not kept"));
    editor->back();
    QVERIFY(!editor->active());
    QCOMPARE(MoodLevelsPresentation().presentationForMoodLevel(2)->text, shipped);
    QCOMPARE(levelTextOfTile(fixture_->runtime(), 2), QString::fromStdString(shipped));
  }

  void templateOffersSuggestionsAndUnitsAndIsKeptOnBack() {
    auto* screen = adapter<TemplateAdapter>("TemplateEditor");
    screen->open();
    QVERIFY(screen->active());
    QCOMPARE(screen->placeholder(), QStringLiteral("Enter your template for moods"));

    // A feeling word that no record used yet is offered, marked as such;
    // a real tag is offered as a tag.
    QSignalSpy replaced(screen, &TemplateAdapter::textReplaced);
    screen->textEdited(QStringLiteral("#gra"), 4);
    QVariantList offers = screen->completions();
    QVERIFY(!offers.isEmpty());
    QCOMPARE(offers.first().toMap().value("name").toString(), QStringLiteral("grateful"));
    QVERIFY(offers.first().toMap().value("suggestion").toBool());
    screen->chooseCompletion(0);
    QCOMPARE(screen->text(), QStringLiteral("#grateful"));
    QCOMPARE(replaced.count(), 1);
    QCOMPARE(replaced.last().at(1).toInt(), 9);
    QVERIFY(screen->completions().isEmpty());

    screen->textEdited(QStringLiteral("#grateful #wa"), 13);
    offers = screen->completions();
    QVERIFY(!offers.isEmpty());
    QCOMPARE(offers.first().toMap().value("name").toString(), QStringLiteral("walk"));
    QVERIFY(!offers.first().toMap().value("suggestion").toBool());

    // "#sleep:" gets the tag's unit behind the caret.
    screen->textEdited(QStringLiteral("#grateful #sleep:"), 17);
    QCOMPARE(screen->text(), QStringLiteral("#grateful #sleep:h"));
    QCOMPARE(replaced.last().at(1).toInt(), 17);
    screen->textEdited(QStringLiteral("#grateful #sleep:8h"), 18);

    // Back keeps it, and the next new record starts from it.
    screen->back();
    QVERIFY(!screen->active());
    QCOMPARE(QString::fromStdString(
                 MoodUserDefaultsOperator(fixture_->session().defaults()).templateText().value_or("")),
             QStringLiteral("#grateful #sleep:8h"));
    fixture_->session().capture()->selectMenu(2);
    auto editor = fixture_->session().capture()->editor();
    QVERIFY(editor);
    editor->viewDidLoad();
    QCOMPARE(QString::fromStdString(editor->text()), QStringLiteral("#grateful #sleep:8h"));
    editor->done();
    // The suggested word became a real tag with that first record.
    QVERIFY(fixture_->session().app().store().tagNamed("grateful") != nullptr);
  }

  // The GUI keeps its session open for hours; `lumeo add` and `lumeo edit`
  // write the same journal between two of its saves.
  void aSaveAfterAnotherProcessWroteIsNeitherRefusedNorLost() {
    GuiSession& session = fixture_->session();
    JournalStore& store = session.app().store();
    auto sleep = store.tagNamed("sleep");
    QVERIFY(sleep);
    const long sleepBefore = sleep->frequency();

    session.capture()->selectMenu(3);  // level 7, saved at once
    auto editor = session.capture()->editor();
    QVERIFY(editor);
    editor->viewDidLoad();
    editor->viewWillAppear();
    // Typing "#sle" reads the tag into the GUI's context as an offer.
    editor->textViewDidChange("Good night #sle", 15);
    QVERIFY(!editor->completionOptions().empty());
    QCOMPARE(editor->completionOptions().front()->tagName(), std::string("sleep"));
    fixture_->drain();  // the capture's save lets go of the writer lock

    // Meanwhile, from a terminal: another record with the same tag, and
    // the record open in the editor changed under it.
    QVERIFY(lumeo({"add", "4", "--comment", "Short night #sleep:5h #late"}));
    const auto rowOfEdited = editor->recordInEdit()->objectID().primaryKey();
    QVERIFY(lumeo({"edit", QString::number(rowOfEdited), "--level", "2", "--comment", "from the terminal"}));

    // The editor's text goes on and is saved.
    editor->textViewDidChange("Good night #sleep:9h", 20);
    QVERIFY(session.prepareToWrite());
    editor->done();
    QVERIFY2(!store.lastSaveError(), store.lastSaveError() ? store.lastSaveError()->toString().c_str() : "");
    fixture_->drain();

    // What a fresh reader of the file sees: both records, the GUI's edit
    // on its own record, and the tag counted for each.
    JournalStore fresh({session.directories().library, session.directories().documents}, session.defaults());
    auto freshSleep = fresh.tagNamed("sleep");
    QVERIFY(freshSleep);
    QCOMPARE(freshSleep->frequency(), sleepBefore + 2);
    QCOMPARE(static_cast<long>(fresh.recordsWithTag(freshSleep).size()), sleepBefore + 2);
    QVERIFY(fresh.tagNamed("late"));
    auto mine = fresh.recordWithRowNumber(rowOfEdited);
    QVERIFY(mine);
    QCOMPARE(mine->moodDescription()->comment().value_or(""), std::string("Good night #sleep:9h"));
    // The editor's save came last and writes its whole working copy.
    QCOMPARE(mine->moodLevel(), 7);
  }

  // `lumeo delete` and `lumeo add` from a terminal while the window shows
  // the journal, and the window writes nothing: the record deleted there
  // leaves the History list, the Summary and the map, and the one added
  // there joins them.
  void recordsAnotherProcessDeletesOrAddsLeaveOrJoinEveryView() {
    GuiSession& session = fixture_->session();
    JournalStore& store = session.app().store();
    HistoryController history(store);
    history.appear();
    auto* rows = qobject_cast<QAbstractItemModel*>(history.model());
    QAbstractItemModelTester tester(rows, QAbstractItemModelTester::FailureReportingMode::QtTest);
    SummaryController summary(store, session.defaults());
    summary.choosePeriod(0);  // the whole journal
    summary.appear();
    auto* map = adapter<MapTabAdapter>("MapTab");
    QVERIFY(map->open());
    QTRY_VERIFY_WITH_TIMEOUT(map->settled(), 60000);
    const int listed = rows->rowCount();
    const int counted = summary.recordCount();
    const int pinned = map->locatedCount();
    QVERIFY(listed > 0 && counted == listed && pinned > 0);

    // The newest record with a place, chosen in the list as a user would.
    auto records = store.allRecords();
    std::sort(records.begin(), records.end(),
              [](const auto& a, const auto& b) { return a->date() > b->date(); });
    auto located = std::find_if(records.begin(), records.end(), [](const auto& record) {
      auto description = record->moodDescription();
      return description && description->hasPosition();
    });
    QVERIFY(located != records.end());
    const auto row = (*located)->objectID().primaryKey();
    const int level = static_cast<int>((*located)->moodLevel());
    history.setSelectedIndex(listed - 1 - static_cast<int>(located - records.begin()));
    QCOMPARE(history.detailLevel(), level);
    records.clear();
    located = records.end();

    QVERIFY(lumeo({"delete", QString::number(row), "--yes"}));
    QTRY_COMPARE_WITH_TIMEOUT(rows->rowCount(), listed - 1, 20000);
    // No row is left of it, not even an emptied one (level 0).
    for (int i = 0; i < rows->rowCount(); ++i)
      QVERIFY(rows->data(rows->index(i, 0), HistoryModel::LevelRole).toInt() > 0);
    QCOMPARE(history.detailLevel(), 0);
    summary.appear();  // the tab shows again
    QCOMPARE(summary.recordCount(), counted - 1);
    QTRY_VERIFY_WITH_TIMEOUT(map->settled() && map->locatedCount() == pinned - 1, 60000);

    QVERIFY(lumeo({"add", "6", "--comment", "Added from a terminal"}));
    QTRY_COMPARE_WITH_TIMEOUT(rows->rowCount(), listed, 20000);
    QCOMPARE(rows->data(rows->index(listed - 1, 0), HistoryModel::CommentRole).toString(),
             QStringLiteral("Added from a terminal"));
    summary.appear();
    QCOMPARE(summary.recordCount(), counted);
    QVERIFY(!store.lastSaveError());
  }

  // The gallery opened from History keeps its own list of photos: a photo
  // `lumeo delete` took away leaves it (the neighbour shows, no emptied
  // page stays), one `lumeo add --photo` brought joins it.
  void anOpenGalleryFollowsRecordsAnotherProcessDeletesOrAdds() {
    GuiSession& session = fixture_->session();
    JournalStore& store = session.app().store();
    QCOMPARE(fixture_->addPhotos(3), 3);
    fixture_->drain();  // the save lets go of the writer lock
    HistoryController history(store);
    history.appear();
    const int listed = history.count();
    history.select(listed - 2);  // the second newest, with a photo
    auto* gallery = qobject_cast<GalleryModel*>(history.openGallery());
    QVERIFY(gallery);
    QAbstractItemModelTester tester(gallery, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QCOMPARE(gallery->count(), 3);
    QCOMPARE(gallery->currentIndex(), 1);
    gallery->setPageWidth(400);
    auto* comment = qobject_cast<TaggedTextLayout*>(gallery->comment());
    const auto photos = gallery->core().moodRecords();
    const auto shownRow = photos[1]->objectID().primaryKey();
    const QString newest = QString::fromStdString(photos[2]->moodDescription()->comment().value_or(""));
    QSignalSpy rebuilt(gallery, &GalleryModel::recordsChanged);

    QVERIFY(lumeo({"delete", QString::number(shownRow), "--yes"}));
    QTRY_COMPARE_WITH_TIMEOUT(gallery->count(), 2, 20000);
    QVERIFY(rebuilt.count() >= 1);
    QCOMPARE(gallery->currentIndex(), 1);
    QCOMPARE(gallery->contentOffset(), 400.0);
    QCOMPARE(comment->text(), newest);
    for (int i = 0; i < gallery->count(); ++i)
      QVERIFY(gallery->data(gallery->index(i), GalleryModel::ReadyRole).toBool());

    const QString picture = QDir(fixture_->home()).filePath(QStringLiteral("terminal.png"));
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QVERIFY(image.save(picture));
    QVERIFY(lumeo({"add", "8", "--comment", "A photo from a terminal", "--photo", picture}));
    QTRY_COMPARE_WITH_TIMEOUT(gallery->count(), 3, 20000);
    QCOMPARE(gallery->currentIndex(), 1);  // still on the same photo
    QCOMPARE(comment->text(), newest);
    QVERIFY(gallery->data(gallery->index(2), GalleryModel::ReadyRole).toBool());
    gallery->scrolled(800);
    QCOMPARE(comment->text(), QStringLiteral("A photo from a terminal"));

    // Every photo gone: the empty gallery, nothing to page to.
    for (const auto& record : gallery->core().moodRecords())
      QVERIFY(lumeo({"delete", QString::number(record->objectID().primaryKey()), "--yes"}));
    QTRY_COMPARE_WITH_TIMEOUT(gallery->count(), 0, 20000);
    QVERIFY(!gallery->scrollEnabled());
    QCOMPARE(comment->text(), QString());
    QVERIFY(!store.lastSaveError());
    gallery->close();
  }

  // `lumeo delete` takes away the record under the open editor. The
  // editor says so, and Save keeps the text, level, tags, photo and place
  // as a new record; nothing is saved onto the emptied object.
  void anEditorWhoseRecordIsDeletedElsewhereSavesANewRecord() {
    GuiSession& session = fixture_->session();
    auto* editor = adapter<EditorAdapter>("Editor");
    const std::size_t before = session.app().store().allRecords().size();
    session.capture()->selectMenu(3);  // level 7, saved at once
    QVERIFY(editor->active());
    QVERIFY(editor->isNew());
    const QString text = QStringLiteral("Walk by the river #riverwalk");
    editor->textEdited(text, static_cast<int>(text.size()));
    QVERIFY(editor->placeChosen(48.8566, 2.3522));
    const QString picture = QDir(fixture_->home()).filePath(QStringLiteral("river.png"));
    QImage image(320, 200, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    QVERIFY(image.save(picture));
    QVERIFY(editor->photoChosen(QUrl::fromLocalFile(picture).toString()));  // saves at once
    fixture_->drain();
    const auto row = editor->editor()->recordInEdit()->objectID().primaryKey();
    QVERIFY(!editor->recordDeletedElsewhere());

    QVERIFY(lumeo({"delete", QString::number(row), "--yes"}));
    QTRY_VERIFY_WITH_TIMEOUT(editor->recordDeletedElsewhere(), 20000);
    QVERIFY(editor->deletedNotice().startsWith(
        QStringLiteral("This record was deleted in another window or program.")));
    QVERIFY(editor->active());
    QCOMPARE(editor->level(), 7);
    QVERIFY(editor->hasPlace());
    QVERIFY(editor->hasPhoto());
    QCOMPARE(editor->text(), text);

    // Typing goes on, then Save.
    const QString more = text + QStringLiteral(" #calm");
    editor->textEdited(more, static_cast<int>(more.size()));
    editor->done();
    QVERIFY(!editor->active());
    JournalStore& store = session.app().store();
    QVERIFY2(!store.lastSaveError(), store.lastSaveError() ? store.lastSaveError()->toString().c_str() : "");
    fixture_->drain();

    JournalStore fresh({session.directories().library, session.directories().documents}, session.defaults());
    QVERIFY(!fresh.recordWithRowNumber(row));
    QCOMPARE(fresh.allRecords().size(), before + 1);
    std::shared_ptr<MoodRecord> kept;
    for (const auto& record : fresh.allRecords()) {
      if (record->moodDescription()->comment() == more.toStdString()) kept = record;
    }
    QVERIFY(kept);
    QCOMPARE(kept->moodLevel(), 7);
    auto description = kept->moodDescription();
    QCOMPARE(description->latitude(), 48.8566);
    QCOMPARE(description->longitude(), 2.3522);
    QVERIFY(!description->photoName().value_or("").empty());
    QVERIFY(!description->thumbName().value_or("").empty());
    auto file = ImageStore::shared()->imageURLForName(description->photoName());
    QVERIFY(file && std::filesystem::exists(*file));
    auto walk = fresh.tagNamed("riverwalk");
    auto calm = fresh.tagNamed("calm");
    QVERIFY(walk && calm);
    QCOMPARE(walk->frequency(), 1L);
    QCOMPARE(calm->frequency(), 1L);
    QVERIFY(!session.defaults()->stringForKey(kMoodRecordInCreation));
  }

  // The same on an older record opened with Edit, then Cancel: the new
  // record is dropped, and the journal keeps what the other program left.
  void anEditorWhoseRecordIsDeletedElsewhereDropsItOnCancel() {
    GuiSession& session = fixture_->session();
    auto* editor = adapter<EditorAdapter>("Editor");
    JournalStore& store = session.app().store();
    auto records = store.allRecords();
    QVERIFY(!records.empty());
    const std::string comment = records.front()->moodDescription()->comment().value_or("");
    QVERIFY(!comment.empty());
    QVERIFY(fixture_->editRecordWithComment(QString::fromStdString(comment)));
    QVERIFY(editor->active());
    QVERIFY(!editor->isNew());
    const auto row = editor->editor()->recordInEdit()->objectID().primaryKey();
    const std::size_t before = records.size();
    records.clear();
    editor->textEdited(QStringLiteral("Rewritten"), 9);
    fixture_->drain();

    QVERIFY(lumeo({"delete", QString::number(row), "--yes"}));
    QTRY_VERIFY_WITH_TIMEOUT(editor->recordDeletedElsewhere(), 20000);
    QVERIFY(editor->isNew());  // Cancel now drops it
    QVERIFY(session.prepareToWrite());
    editor->editor()->confirmCancel();
    QVERIFY(!editor->active());
    QVERIFY(!store.lastSaveError());
    fixture_->drain();
    JournalStore fresh({session.directories().library, session.directories().documents}, session.defaults());
    QCOMPARE(fresh.allRecords().size(), before - 1);
    QVERIFY(!fresh.recordWithRowNumber(row));
  }

  // A restore from the Backup screen runs under the journal's writer lock,
  // as every other write of the window and the command line does.
  void aRestoreHoldsTheWriterLockAndSaysWhenTheJournalIsBusy() {
    GuiSession& session = fixture_->session();
    auto* backup = adapter<BackupAdapter>("Backup");
    QTemporaryDir scratch;
    const QUrl archive = QUrl::fromLocalFile(scratch.filePath(QStringLiteral("journal.backup")));
    QCOMPARE(backup->backUpTo(archive), QString());
    const ino_t before = journalInode(session);
    const QString backedUp = backup->result();
    const auto lockFile = JournalLock::lockFileFor(session.directories().library);

    // Another program holds the lock past the restore's wait: the restore
    // says so and leaves the journal as it was.
    QProcess holder;
    // flock(1) without a child of its own: killing it lets go of the lock.
    holder.start(QStringLiteral("flock"),
                 {QStringLiteral("--no-fork"), QString::fromStdString(lockFile.string()),
                  QStringLiteral("-c"), QStringLiteral("echo held; exec sleep 60")});
    QVERIFY(holder.waitForReadyRead(20000));
    QCOMPARE(holder.readAllStandardOutput().trimmed(), QByteArray("held"));
    backup->setLockWaitSeconds(0.5);
    const QString busy = backup->restoreNow(archive);
    QVERIFY2(busy.contains(QStringLiteral("busy")), qPrintable(busy));
    QCOMPARE(journalInode(session), before);
    QCOMPARE(backup->result(), backedUp);
    holder.kill();
    QVERIFY(holder.waitForFinished(20000));

    // Free again: the restore runs and keeps the lock to the end of its
    // turn of the main queue, so no command starts on a half-swapped journal.
    QCOMPARE(backup->restoreNow(archive), QString());
    QVERIFY(journalInode(session) != before);
    QVERIFY(std::holds_alternative<Error>(JournalLock::acquire(session.directories().library, 0)));
    fixture_->drain();
    QVERIFY(std::holds_alternative<JournalLock>(JournalLock::acquire(session.directories().library, 0)));
    QVERIFY(session.app().store().storeOpenError() == std::nullopt);
  }

  // On a device that syncs, what the window adds, edits and deletes becomes
  // sync events: `lumeo sync now` sends them, and a second device (another
  // home, the same shared folder) gets the journal as the window left it.
  void theWindowsSavesReachAnotherDeviceThroughSyncNow() {
    GuiSession& session = fixture_->session();
    JournalStore& store = session.app().store();
    QTemporaryDir shared;
    QTemporaryDir otherDevice;
    QVERIFY(shared.isValid() && otherDevice.isValid());
    QVERIFY(lumeo({"sync", "folder", shared.path()}));
    QVERIFY(lumeo({"sync", "now"}));  // joins with the journal as it stands, the window open

    // A new record from the capture tab (level 7, saved at once), then its
    // comment from the editor.
    session.capture()->selectMenu(3);
    auto editor = session.capture()->editor();
    QVERIFY(editor);
    editor->viewDidLoad();
    editor->viewWillAppear();
    editor->textViewDidChange("Made in the window #synced", 26);
    editor->done();
    fixture_->drain();
    // An older record edited and another deleted, each in a turn of its own.
    auto records = store.allRecords();
    std::sort(records.begin(), records.end(),
              [](const auto& a, const auto& b) { return a->date() < b->date(); });
    QVERIFY(records.size() > 3);
    const QString editedId = QString::fromStdString(records[0]->uniqueIdentifier().value_or(""));
    const QString deletedId = QString::fromStdString(records[1]->uniqueIdentifier().value_or(""));
    QVERIFY(!editedId.isEmpty() && !deletedId.isEmpty());
    QVERIFY(session.prepareToWrite());
    records[0]->setMoodLevel(2);
    records[0]->moodDescription()->setComment("Edited in the window");
    store.saveContext();
    fixture_->drain();
    QVERIFY(session.prepareToWrite());
    QVERIFY(!store.deleteRecord(records[1]));
    store.saveContext();
    QVERIFY(!store.lastSaveError());
    fixture_->drain();
    const int kept = static_cast<int>(store.allRecords().size());
    records.clear();

    QVERIFY(lumeo({"sync", "now"}));
    const QStringList there{QStringLiteral("--home"), otherDevice.path()};
    QVERIFY(other(there + QStringList{"sync", "folder", shared.path()}));
    QVERIFY(other(there + QStringList{"sync", "now"}));
    QCOMPARE(fixture_->lumeo(there + QStringList{"list", "--limit", "0", "--json"}), 0);
    const QJsonArray list = QJsonDocument::fromJson(fixture_->lastOutput().toUtf8()).array();
    QCOMPARE(list.size(), kept);
    int made = 0;
    int edited = 0;
    for (const QJsonValue& value : list) {
      const QJsonObject record = value.toObject();
      const QString comment = record.value(QStringLiteral("comment")).toString();
      const QString id = record.value(QStringLiteral("uniqueIdentifier")).toString();
      QVERIFY(id != deletedId);
      if (comment == QStringLiteral("Made in the window #synced")) {
        ++made;
        QCOMPARE(record.value(QStringLiteral("level")).toInt(), 7);
      }
      if (id == editedId) {
        ++edited;
        QCOMPARE(comment, QStringLiteral("Edited in the window"));
        QCOMPARE(record.value(QStringLiteral("level")).toInt(), 2);
      }
    }
    QCOMPARE(made, 1);
    QCOMPARE(edited, 1);
  }

 private:
  // Runs the command line on the fixture's journal, as another process;
  // false (and what it said) when it fails.
  bool lumeo(const QStringList& arguments) {
    if (fixture_->lumeo(QStringList{QStringLiteral("--home"), fixture_->home()} + arguments) == 0)
      return true;
    qWarning("lumeo %s: %s", qPrintable(arguments.join(' ')), qPrintable(fixture_->lastOutput()));
    return false;
  }

  // The command line as another device: `arguments` name its own home.
  bool other(const QStringList& arguments) {
    if (fixture_->lumeo(arguments) == 0) return true;
    qWarning("lumeo %s: %s", qPrintable(arguments.join(' ')), qPrintable(fixture_->lastOutput()));
    return false;
  }

  template <class T>
  T* adapter(const char* name) {
    auto* object = qobject_cast<T*>(fixture_->runtime().singleton(QString::fromLatin1(name)));
    if (!object) qFatal("no %s", name);
    return object;
  }

  std::unique_ptr<testing::GuiFixture> fixture_;
};

QTEST_MAIN(EditorScreensTests)
#include "editor_screens_tests.moc"
