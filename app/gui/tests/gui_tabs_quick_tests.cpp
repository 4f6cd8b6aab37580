// The Quick Test binary of the Summary and History tabs: every tst_*.qml
// in tabs_quick/ drives the real QML on a real sample journal (offscreen,
// software renderer). `TabsFixture` adds what the sample journal lacks for
// these screens: photos on some records.
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <QDir>
#include <QQmlEngine>
#include <memory>

#include "gui_runtime.h"
#include "gui_session.h"
#include "gui_test_support.h"
#include "platform/color.h"
#include "platform/image.h"
#include "shell/mood_app_delegate.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

namespace {

class TabsFixture : public QObject {
  Q_OBJECT
 public:
  explicit TabsFixture(lumeo::gui::GuiSession& session) : session_(session) {}

  // Gives the `count` newest records a photo and a thumbnail (once the
  // journal is open); returns how many have one now.
  Q_INVOKABLE int addPhotos(int count) {
    using namespace lumeo;
    if (!session_.splashDone()) return 0;
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

  // Where the tests keep pictures of the screens they drove (the folder of
  // LUMEO_TABS_ARTEFACTS, made if missing), or "" to keep none.
  Q_INVOKABLE QString artefactDir() const {
    const QString dir = qEnvironmentVariable("LUMEO_TABS_ARTEFACTS");
    if (!dir.isEmpty()) QDir().mkpath(dir);
    return dir;
  }

 private:
  lumeo::gui::GuiSession& session_;
};

}  // namespace

class Setup : public QObject {
  Q_OBJECT
 public Q_SLOTS:
  void applicationAvailable() {
    fixture_ = std::make_unique<lumeo::gui::testing::GuiFixture>();
    fixture_->runtime().addSingleton("TabsFixture", new TabsFixture(fixture_->session()));
  }
  void qmlEngineAvailable(QQmlEngine* engine) { fixture_->attach(*engine); }
  void cleanupTestCase() { fixture_.reset(); }

 private:
  std::unique_ptr<lumeo::gui::testing::GuiFixture> fixture_;
};

QUICK_TEST_MAIN_WITH_SETUP(gui_tabs_quick, Setup)

#include "gui_tabs_quick_tests.moc"
