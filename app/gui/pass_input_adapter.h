// The passcode entry screen for QML (singleton `PassInput`): the stages
// (current code, new code, new code again) with their labels, how many
// digits each holds, the shake of a wrong code, the keypad, and cancel.
// The screen that shows it attaches to the entry controller on top of the
// core's screen chain; all rules stay in MoodPassInputViewController.
#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <functional>
#include <memory>

namespace lumeo {
class MoodPassInputViewController;
}

namespace lumeo::gui {

class GuiRuntime;
class PassInputView;

class PassInputAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool attached READ attached NOTIFY changed)
  Q_PROPERTY(QString title READ title NOTIFY changed)
  Q_PROPERTY(int stage READ stage NOTIFY changed)
  Q_PROPERTY(QStringList stageLabels READ stageLabels NOTIFY changed)
  // Digits typed in each stage's field (0..4).
  Q_PROPERTY(QVariantList digitCounts READ digitCounts NOTIFY changed)
  Q_PROPERTY(bool keypadVisible READ keypadVisible NOTIFY changed)
  // Whether the screen may be left without the code (not when it covers
  // the whole window).
  Q_PROPERTY(bool cancellable READ cancellable NOTIFY changed)

 public:
  PassInputAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~PassInputAdapter() override;

  bool attached() const;
  QString title() const;
  int stage() const;
  QStringList stageLabels() const;
  QVariantList digitCounts() const;
  bool keypadVisible() const { return keypadVisible_; }
  bool cancellable() const;

  // Takes the entry screen on top of the chain; the QML screen calls it
  // when it appears.
  Q_INVOKABLE void attach();
  Q_INVOKABLE void digit(const QString& digit);
  Q_INVOKABLE void back();
  Q_INVOKABLE void cancel();
  // The shake's step ended (QML finished moving the field).
  Q_INVOKABLE void translateFinished();

 Q_SIGNALS:
  void changed();
  // Move the current field to `x` (points) over `seconds`, then call
  // translateFinished().
  void translateRequested(double x, double seconds);

 private:
  friend class PassInputView;
  std::shared_ptr<MoodPassInputViewController> controller() const;

  GuiRuntime& runtime_;
  std::shared_ptr<PassInputView> view_;
  std::weak_ptr<MoodPassInputViewController> controller_;
  std::function<void()> pendingTranslate_;
  bool keypadVisible_ = true;
  int standInRetries_ = 0;
};

}  // namespace lumeo::gui
