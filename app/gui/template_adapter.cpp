#include "template_adapter.h"

#include "capture/mood_template_view_controller.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "shell/mood_app_delegate.h"
#include "shell_adapter.h"
#include "store/journal_store.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "text_positions.h"

namespace lumeo::gui {

namespace {
constexpr const char* kScreenClass = "MoodTemplateViewController";
}

TemplateAdapter::TemplateAdapter(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {}

TemplateAdapter::~TemplateAdapter() = default;

void TemplateAdapter::open() {
  GuiSession& session = runtime_.session();
  if (!session.launched() || !session.splashDone()) return;
  defaults_ = std::make_unique<MoodUserDefaultsOperator>(session.defaults());
  controller_ = std::make_shared<MoodTemplateViewController>(session.app().store(),
                                                             session.directories().library, *defaults_);
  controller_->viewDidLoad();
  controller_->viewWillAppear();
  lastText_ = QString::fromStdString(controller_->text());
  Q_EMIT changed();
  Q_EMIT textReplaced(lastText_, controllerCursor());
  Q_EMIT completionsChanged();
}

QString TemplateAdapter::placeholder() const {
  return controller_ ? QString::fromStdString(controller_->placeholder()) : QString();
}

QVariantList TemplateAdapter::completions() const {
  QVariantList out;
  if (!controller_) return out;
  for (const auto& tag : controller_->completionOptions()) {
    out.append(QVariantMap{{"name", QString::fromStdString(tag->tagName())},
                           {"frequency", static_cast<qlonglong>(tag->frequency())},
                           {"suggestion", tag->isInserted()}});
  }
  return out;
}

int TemplateAdapter::controllerCursor() const {
  return controller_ ? utf16Position(controller_->text(), controller_->cursor()) : 0;
}

void TemplateAdapter::syncText() {
  const QString now = QString::fromStdString(controller_->text());
  if (now != lastText_) {
    lastText_ = now;
    Q_EMIT textReplaced(lastText_, controllerCursor());
  }
}

void TemplateAdapter::textEdited(const QString& text, int cursor) {
  if (!controller_) return;
  if (text == lastText_) {
    selectionChanged(cursor, cursor);
    return;
  }
  lastText_ = text;
  controller_->textViewDidChange(text.toStdString(), utf8Offset(text, cursor));
  syncText();
  Q_EMIT completionsChanged();
}

void TemplateAdapter::selectionChanged(int start, int end) {
  if (!controller_) return;
  const std::size_t from = utf8Offset(lastText_, std::min(start, end));
  const std::size_t to = utf8Offset(lastText_, std::max(start, end));
  controller_->setSelection(from, to - from);
}

void TemplateAdapter::chooseCompletion(int row) {
  if (!controller_ || row < 0) return;
  controller_->didSelectCompletionRow(static_cast<std::size_t>(row));
  syncText();
  Q_EMIT completionsChanged();
}

void TemplateAdapter::returnButton() {
  if (!controller_) return;
  controller_->returnButtonClicked();
  syncText();
}

void TemplateAdapter::back() {
  if (controller_) controller_->backButtonClicked();
  controller_.reset();
  Q_EMIT changed();
  Q_EMIT completionsChanged();
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell"))))
    shell->closeScreen(QString::fromLatin1(kScreenClass));
}

static const GuiRegistration kTemplate(30, [](GuiRuntime& runtime) {
  runtime.addSingleton("TemplateEditor", new TemplateAdapter(runtime, &runtime));
  runtime.addScreen(QString::fromLatin1(kScreenClass), QStringLiteral("TemplateScreen.qml"));
});

}  // namespace lumeo::gui
