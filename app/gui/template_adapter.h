// The template screen for QML (singleton `TemplateEditor`): the text every
// new record starts with, the tag offers as you type (the journal's tags,
// most used first, then the feeling words that are no tag yet), the unit
// after ":", and going back, which stores the template. The controller
// (MoodTemplateViewController) holds the rules and lives while the screen
// is open. Text positions are UTF-16 in QML and bytes in the core.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <memory>

namespace lumeo {
class MoodTemplateViewController;
class MoodUserDefaultsOperator;
}  // namespace lumeo

namespace lumeo::gui {

class GuiRuntime;

class TemplateAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool active READ active NOTIFY changed)
  Q_PROPERTY(QString text READ text NOTIFY textReplaced)
  Q_PROPERTY(QString placeholder READ placeholder NOTIFY changed)
  // [{name, frequency, suggestion}] for the tag being typed; suggestion is
  // true for a feeling word that no record has used yet.
  Q_PROPERTY(QVariantList completions READ completions NOTIFY completionsChanged)

 public:
  TemplateAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~TemplateAdapter() override;

  bool active() const { return controller_ != nullptr; }
  QString text() const { return lastText_; }
  QString placeholder() const;
  QVariantList completions() const;

  // The caret position (UTF-16) the controller last set.
  Q_INVOKABLE int controllerCursor() const;

  // The screen appeared: the stored template, caret at its end.
  Q_INVOKABLE void open();
  Q_INVOKABLE void textEdited(const QString& text, int cursor);
  Q_INVOKABLE void selectionChanged(int start, int end);
  Q_INVOKABLE void chooseCompletion(int row);
  // A line break at the end of the text.
  Q_INVOKABLE void returnButton();
  // Stores the text as the template and leaves.
  Q_INVOKABLE void back();

  MoodTemplateViewController* controller() const { return controller_.get(); }

 Q_SIGNALS:
  void changed();
  // The controller changed the text (a unit, a completion): the text area
  // takes it and puts the caret at `cursor`.
  void textReplaced(const QString& text, int cursor);
  void completionsChanged();

 private:
  // Hands the controller's text to QML when it differs from what QML has.
  void syncText();

  GuiRuntime& runtime_;
  std::unique_ptr<MoodUserDefaultsOperator> defaults_;
  std::shared_ptr<MoodTemplateViewController> controller_;
  QString lastText_;
};

}  // namespace lumeo::gui
