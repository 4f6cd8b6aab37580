#include "gui_test_support.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QQmlContext>
#include <QQmlEngine>
#include <algorithm>
#include <variant>

#include "gui_runtime.h"
#include "gui_session.h"
#include "lock/mood_passcode_storage.h"
#include "platform/biometric_authenticator.h"
#include "platform/color.h"
#include "platform/dispatch_queue.h"
#include "platform/image.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "sample_journal.h"
#include "shell/mood_app_delegate.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/settings_keys.h"

namespace lumeo::gui::testing {

GuiFixture::GuiFixture(bool sampleRecords) {
  // The lock's keychain in memory: the Secret Service itself is tested with
  // the lock; here the screens in front of it are.
  SecretStore::setShared(std::make_shared<InMemorySecretStore>());
  SessionOptions options;
  options.home = home_.path().toStdString();
  options.sampleJournal = sampleRecords;
  options.desktopServices = false;
  session_ = std::make_unique<GuiSession>(options);
  if (!session_->launch())
    qFatal("the test journal could not be launched: %s", session_->launchError().c_str());
  // A user who has seen the introduction.
  (void)session_->defaults()->setBool(kTutorialCompleted, true);
  (void)session_->defaults()->setBool(kTutorialSyncCompleted, true);
  runtime_ = std::make_unique<GuiRuntime>(*session_);
  runtime_->addSingleton("Fixture", this);
}

GuiFixture::~GuiFixture() {
  setParent(nullptr);  // the runtime took this object as a child with the singleton
  runtime_.reset();
  session_.reset();
}

void GuiFixture::attach(QQmlEngine& engine) {
  runtime_->attach(engine);
  engine.rootContext()->setContextProperty(QStringLiteral("appScreenshotMode"), true);
  engine.rootContext()->setContextProperty(QStringLiteral("appSampleJournal"), false);
}

QVariantList GuiFixture::recordsWithComment(const QString& text) const {
  QVariantList out;
  if (!session_->splashDone()) return out;
  for (const auto& record : session_->app().store().allRecords()) {
    auto description = record->moodDescription();
    const std::string comment = description ? description->comment().value_or("") : "";
    if (comment.find(text.toStdString()) == std::string::npos) continue;
    QStringList tags;
    for (const auto& tag : record->moodTags()) tags.append(QString::fromStdString(tag->tagName()));
    tags.sort();
    out.append(QVariantMap{{"level", static_cast<int>(record->moodLevel())},
                           {"comment", QString::fromStdString(comment)},
                           {"tags", tags}});
  }
  return out;
}

int GuiFixture::recordCount() const {
  return session_->splashDone() ? static_cast<int>(session_->app().store().allRecords().size()) : 0;
}

QStringList GuiFixture::tagNames() const {
  QStringList out;
  if (!session_->splashDone()) return out;
  for (const auto& tag : session_->app().store().tagsByFrequency())
    out.append(QString::fromStdString(tag->tagName()));
  return out;
}

bool GuiFixture::editRecordWithComment(const QString& text) {
  if (!session_->splashDone()) return false;
  for (const auto& record : session_->app().store().allRecords()) {
    auto description = record->moodDescription();
    if (!description || description->comment().value_or("").find(text.toStdString()) == std::string::npos)
      continue;
    session_->app().moodEditActivityFinished(record);
    return true;
  }
  return false;
}

void GuiFixture::setPasscode(const QString& code) {
  if (code.isEmpty()) {
    session_->app().services().passcode->deletePasscode();
  } else if (auto error = MoodPasscodeStorage::setPassCode(code.toStdString())) {
    qFatal("the test passcode could not be stored: %s", error->description.c_str());
  }
  MoodPasscodeStorage::setPassCodeUnlocked(false);
  session_->app().passCodeUnlocked = false;
}

void GuiFixture::drain() const {
  MainLoop::shared().runOnce();
}

int GuiFixture::addPhotos(int count) {
  if (!session_->splashDone()) return 0;
  auto images = ImageStore::shared();
  auto records = session_->app().store().allRecords();
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
    if (!std::holds_alternative<std::string>(photo) || !std::holds_alternative<std::string>(thumb)) continue;
    description->setPhotoName(std::get<std::string>(photo));
    description->setThumbName(std::get<std::string>(thumb));
    ++done;
  }
  session_->app().saveContext();
  return done;
}

QString GuiFixture::home() const {
  return QString::fromStdString(session_->directories().library.parent_path().string());
}

int GuiFixture::lumeo(const QStringList& arguments) {
  QProcess cli;
  cli.setProcessChannelMode(QProcess::MergedChannels);
  cli.start(qEnvironmentVariable("LUMEO_CLI"), arguments);
  const bool finished = cli.waitForFinished(60000);
  lastOutput_ = QString::fromUtf8(cli.readAll());
  if (!finished) {
    cli.kill();
    cli.waitForFinished(5000);
    return -1;
  }
  return cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1;
}

QVariant GuiFixture::lumeoJson(const QStringList& arguments) {
  QProcess cli;
  cli.start(qEnvironmentVariable("LUMEO_CLI"),
            QStringList{"--home", home()} + arguments + QStringList{"--json"});
  if (!cli.waitForFinished(60000) || cli.exitStatus() != QProcess::NormalExit || cli.exitCode() != 0) {
    const QString why = QString::fromUtf8(cli.readAllStandardError());
    qWarning("lumeo %s failed: %s", qPrintable(arguments.join(' ')), qPrintable(why));
    return QVariantMap{{"error", why}};
  }
  return QJsonDocument::fromJson(cli.readAllStandardOutput()).toVariant();
}

QString GuiFixture::artefactDir() const {
  const QString dir = qEnvironmentVariable("LUMEO_ARTEFACTS");
  if (!dir.isEmpty()) QDir().mkpath(dir);
  return dir;
}

namespace {
std::vector<std::pair<const char*, FixtureSingleton::Make>>& fixtureSingletons() {
  static std::vector<std::pair<const char*, FixtureSingleton::Make>> singletons;
  return singletons;
}
}  // namespace

FixtureSingleton::FixtureSingleton(const char* name, Make make) {
  fixtureSingletons().emplace_back(name, std::move(make));
}

void QuickTestSetup::applicationAvailable() {
  fixture_ = std::make_unique<GuiFixture>();
  for (const auto& [name, make] : fixtureSingletons()) {
    QObject* singleton = make(*fixture_);
    fixture_->runtime().addSingleton(name, singleton);
    singletons_.push_back(singleton);
  }
}

void QuickTestSetup::qmlEngineAvailable(QQmlEngine* engine) {
  fixture_->attach(*engine);
}

void QuickTestSetup::cleanupTestCase() {
  // The binary's own singletons may hold on to the session: they go first.
  for (auto it = singletons_.rbegin(); it != singletons_.rend(); ++it) {
    (*it)->setParent(nullptr);
    delete *it;
  }
  singletons_.clear();
  fixture_.reset();
}

}  // namespace lumeo::gui::testing
