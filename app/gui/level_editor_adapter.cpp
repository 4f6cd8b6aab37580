#include "level_editor_adapter.h"

#include "capture/mood_capture_edit_view_controller.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "platform/notification_center.h"
#include "qt_convert.h"
#include "shell/mood_app_delegate.h"
#include "shell/mood_view_controller.h"
#include "shell/shell_services.h"
#include "shell_adapter.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"

namespace lumeo::gui {

namespace {

constexpr const char* kScreenClass = "MoodCaptureEditViewController";
// The colour panel's two ends: 0 open, 1 closed.
constexpr double kPanelOpen = 0;
constexpr double kPanelClosed = 1;

}  // namespace

class LevelEditorView : public MoodCaptureEditViewDelegate {
 public:
  explicit LevelEditorView(LevelEditorAdapter& adapter) : adapter_(adapter) {}

  void reloadRows() override {
    if (auto* controller = adapter_.controller()) adapter_.rows_.setRows(controller->rows());
  }
  void rowColorChanged(int levelIndex) override {
    auto* controller = adapter_.controller();
    if (!controller || levelIndex < 0 || levelIndex >= static_cast<int>(controller->rows().size())) return;
    adapter_.rows_.setRowColor(levelIndex,
                               controller->rows()[static_cast<std::size_t>(levelIndex)].levelColor);
  }
  void scrollRowIntoView(int levelIndex) override { Q_EMIT adapter_.rowRevealRequested(levelIndex); }
  void focusRow(int levelIndex) override { Q_EMIT adapter_.focusRowRequested(levelIndex); }
  void updateSegmentButtons(bool previousEnabled, bool nextEnabled) override {
    adapter_.previousEnabled_ = previousEnabled;
    adapter_.nextEnabled_ = nextEnabled;
    Q_EMIT adapter_.changed();
  }
  void colorButtonsChanged(int selectedTag, const std::array<Color, 3>& colors) override {
    adapter_.selectedButton_ = selectedTag;
    adapter_.buttonColors_.clear();
    for (const Color& color : colors) adapter_.buttonColors_.append(toQColor(color));
    Q_EMIT adapter_.changed();
  }
  void showPickerColor(const Color& color) override {
    adapter_.pickerColor_ = toQColor(color);
    Q_EMIT adapter_.pickerColorChanged();
  }
  void moveColorPanel(double position, double) override {
    adapter_.panelOpen_ = position == kPanelOpen;
    Q_EMIT adapter_.changed();
  }
  void showActionSheet(const std::string& title, const std::vector<SheetItem>& items,
                       std::function<void(int)> handler) override {
    // Through the screen the settings pushed, so that an answer after the
    // screen has gone is dropped.
    auto* shell = qobject_cast<ShellAdapter*>(adapter_.runtime_.singleton(QStringLiteral("Shell")));
    auto* screen =
        shell ? dynamic_cast<MoodViewController*>(shell->findScreen(QString::fromLatin1(kScreenClass)))
              : nullptr;
    if (!screen) return;
    std::vector<MoodActionItem> sheet;
    for (const auto& item : items) sheet.push_back({item.title, item.result});
    screen->showActionSheet(title, "", sheet, [&adapter = adapter_, handler](int result) {
      handler(result);
      if (result == MoodCaptureEditViewController::kResetResult) adapter.tableWritten();
    });
  }
  // Only done closes the screen from the controller, after writing the table.
  void close() override {
    adapter_.tableWritten();
    adapter_.closeScreen();
  }

 private:
  LevelEditorAdapter& adapter_;
};

LevelEditorAdapter::LevelEditorAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime), view_(std::make_shared<LevelEditorView>(*this)) {}

LevelEditorAdapter::~LevelEditorAdapter() = default;

void LevelEditorAdapter::open() {
  if (!runtime_.session().launched()) return;
  // A screen that went without Done or Back (the window was hidden) left
  // its controller: it goes before the settings it reads.
  retired_.reset();
  controller_.reset();
  defaults_ = std::make_unique<MoodUserDefaultsOperator>(runtime_.session().defaults());
  auto watch = runtime_.session().app().services().watch;
  controller_ =
      std::make_unique<MoodCaptureEditViewController>(MoodLevelTableFiles::current(), *defaults_, [watch] {
        if (watch) watch->saveData();
      });
  controller_->setDelegate(view_);
  controller_->setColorPanelRange(kPanelOpen, kPanelClosed);
  panelOpen_ = false;
  controller_->viewDidLoad();
  controller_->viewDidAppear();
  Q_EMIT changed();
}

int LevelEditorAdapter::currentEdit() const {
  return controller_ ? controller_->currentEdit() : MoodCaptureEditViewController::kNoEdit;
}

bool LevelEditorAdapter::gradientMode() const {
  return controller_ && controller_->gradientMode();
}

void LevelEditorAdapter::startEdit(int row) {
  if (!controller_) return;
  controller_->moodCaptureStartEditView(row);
  Q_EMIT changed();
}

void LevelEditorAdapter::editRow(int row, const QString& text) {
  if (!controller_) return;
  controller_->setRowText(row, text.toStdString());
  rows_.setRowText(row, text);
}

void LevelEditorAdapter::endEdit(int row) {
  if (!controller_) return;
  controller_->moodCaptureEndEditView(row);
  Q_EMIT changed();
}

void LevelEditorAdapter::previousRow() {
  if (controller_) controller_->previousRow();
  Q_EMIT changed();
}

void LevelEditorAdapter::nextRow() {
  if (controller_) controller_->nextRow();
  Q_EMIT changed();
}

void LevelEditorAdapter::chooseColorButton(int button) {
  if (!controller_) return;
  controller_->selectColor(button);
  Q_EMIT changed();
}

void LevelEditorAdapter::pickColor(const QColor& color) {
  if (!controller_ || !color.isValid()) return;
  const Color picked = fromQColor(color);
  if (toQColor(picked) == pickerColor_ && gradientMode()) return;
  pickerColor_ = toQColor(picked);
  controller_->colorPickerDidChangeSelection(picked);
  Q_EMIT changed();
}

void LevelEditorAdapter::setGradientMode(bool enabled) {
  if (!controller_ || enabled == gradientMode()) return;
  controller_->setGradientMode(enabled);
  Q_EMIT changed();
}

void LevelEditorAdapter::togglePanel() {
  if (!controller_) return;
  // A drag from the handle all the way to the other end.
  controller_->panBegan(0);
  controller_->panMoved(controller_->isColorPanelOpen() ? kPanelClosed - kPanelOpen
                                                        : kPanelOpen - kPanelClosed);
  controller_->panEnded();
}

void LevelEditorAdapter::reset() {
  if (controller_) controller_->reset();
}

void LevelEditorAdapter::done() {
  if (!controller_) return;
  controller_->done();
}

void LevelEditorAdapter::back() {
  closeScreen();
}

void LevelEditorAdapter::tableWritten() {
  // The controller tells the others before it writes the file (done posts
  // MoodModelHasChangedNotification, then saves); the tabs on the desktop
  // stay on screen, so they are told again once the new table is there:
  // the tiles, the editor's band, the History list and the Summary's
  // charts take the new texts and colours at once.
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification, this);
  if (QObject* capture = runtime_.singleton(QStringLiteral("Capture")))
    QMetaObject::invokeMethod(capture, "appear");
  Q_EMIT changed();
}

void LevelEditorAdapter::closeScreen() {
  // Leaving ends the controller; the table was written by done or not at all.
  auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell")));
  // Done closes the screen from inside the controller's call: the
  // controller goes at the next open or with the adapter, not now.
  retired_ = std::move(controller_);
  Q_EMIT changed();
  if (shell) shell->closeScreen(QString::fromLatin1(kScreenClass));
}

static const GuiRegistration kLevelEditor(30, [](GuiRuntime& runtime) {
  runtime.addSingleton("LevelEditor", new LevelEditorAdapter(runtime, &runtime));
  runtime.addScreen(QString::fromLatin1(kScreenClass), QStringLiteral("LevelEditorScreen.qml"));
});

}  // namespace lumeo::gui
