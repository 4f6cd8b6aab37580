#include "pass_input_adapter.h"

#include <QTimer>

#include "gui_runtime.h"
#include "gui_session.h"
#include "lock/mood_pass_input_view_controller.h"
#include "main_queue_pump.h"
#include "shell/mood_app_delegate.h"
#include "shell_adapter.h"

namespace lumeo::gui {

class PassInputView : public MoodPassInputScreenView {
 public:
  explicit PassInputView(PassInputAdapter& adapter) : adapter_(adapter) {}
  void slideToStage(int, bool) override { Q_EMIT adapter_.changed(); }
  void translateInput(double x, double seconds, std::function<void()> done) override {
    adapter_.pendingTranslate_ = std::move(done);
    Q_EMIT adapter_.translateRequested(x, seconds);
  }
  void stageLabelChanged(int, const std::string&) override { Q_EMIT adapter_.changed(); }
  void showPreparing() override {
    adapter_.keypadVisible_ = false;
    Q_EMIT adapter_.changed();
  }
  void showKeypad(bool) override {
    adapter_.keypadVisible_ = true;
    Q_EMIT adapter_.changed();
  }

 private:
  PassInputAdapter& adapter_;
};

PassInputAdapter::PassInputAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime), view_(std::make_shared<PassInputView>(*this)) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &PassInputAdapter::changed);
}

PassInputAdapter::~PassInputAdapter() = default;

std::shared_ptr<MoodPassInputViewController> PassInputAdapter::controller() const {
  return controller_.lock();
}

void PassInputAdapter::attach() {
  auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell")));
  Screen* screen = shell ? shell->findScreen(QStringLiteral("MoodPassInputViewController")) : nullptr;
  if (!screen) return;
  // The whole-window lock puts a stand-in of that class at the root for a
  // moment before the lock's own screen replaces it; only the real one is
  // taken.
  auto entry = std::dynamic_pointer_cast<MoodPassInputViewController>(screen->shared_from_this());
  if (!entry) {
    if (standInRetries_++ < 5) QTimer::singleShot(0, this, &PassInputAdapter::attach);
    return;
  }
  standInRetries_ = 0;
  if (entry == controller_.lock()) return;
  controller_ = entry;
  pendingTranslate_ = nullptr;
  keypadVisible_ = !entry->isPreparing();
  entry->setScreenView(view_);
  Q_EMIT changed();
}

bool PassInputAdapter::attached() const {
  return controller() != nullptr;
}

QString PassInputAdapter::title() const {
  auto entry = controller();
  return entry ? QString::fromStdString(entry->title()) : QString();
}

int PassInputAdapter::stage() const {
  auto entry = controller();
  return entry ? entry->changeCodeStage() : 0;
}

QStringList PassInputAdapter::stageLabels() const {
  QStringList out;
  auto entry = controller();
  for (int i = 0; i < 3; ++i) out.append(entry ? QString::fromStdString(entry->stageLabel(i)) : QString());
  return out;
}

QVariantList PassInputAdapter::digitCounts() const {
  auto entry = controller();
  if (!entry) return {0, 0, 0};
  return {static_cast<int>(entry->oldPassInputView().passCode().size()),
          static_cast<int>(entry->anewPassInputView().passCode().size()),
          static_cast<int>(entry->againPassInputView().passCode().size())};
}

bool PassInputAdapter::cancellable() const {
  auto entry = controller();
  if (!entry || !runtime_.session().launched()) return false;
  return !runtime_.session().app().isPasscodeScreenRoot();
}

void PassInputAdapter::digit(const QString& digit) {
  auto entry = controller();
  if (!entry || digit.size() != 1 || !digit[0].isDigit() || pendingTranslate_) return;
  entry->number(digit.toStdString());
  Q_EMIT changed();
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell"))))
    shell->refresh();
}

void PassInputAdapter::back() {
  if (auto entry = controller()) entry->back();
  Q_EMIT changed();
}

void PassInputAdapter::cancel() {
  auto entry = controller();
  if (!entry || !cancellable()) return;
  entry->cancel();
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell"))))
    shell->refresh();
}

void PassInputAdapter::translateFinished() {
  auto done = std::move(pendingTranslate_);
  pendingTranslate_ = nullptr;
  if (done) done();
  Q_EMIT changed();
}

static const GuiRegistration kPassInput(0, [](GuiRuntime& runtime) {
  runtime.addSingleton("PassInput", new PassInputAdapter(runtime, &runtime));
  runtime.addScreen(QStringLiteral("MoodPassInputViewController"), QStringLiteral("PassInputScreen.qml"));
});

}  // namespace lumeo::gui
