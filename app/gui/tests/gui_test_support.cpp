#include "gui_test_support.h"

#include <QQmlContext>
#include <QQmlEngine>

#include "gui_runtime.h"
#include "gui_session.h"
#include "lock/mood_passcode_storage.h"
#include "platform/biometric_authenticator.h"
#include "platform/dispatch_queue.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "sample_journal.h"
#include "shell/mood_app_delegate.h"
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

}  // namespace lumeo::gui::testing
