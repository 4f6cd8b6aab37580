// The editor of one reminder and its sound picker for QML (singleton
// `ReminderEditor`): a fixed time, or a window (from, to) with a count and
// the random switch; the reminder's own text and template; its sound; and
// Lumeo's "only if nothing was recorded" switch. The time picker edits the
// date the core's remindType names; the count's range is the core's.
// Saving and cancelling are MoodReminderViewController's.
#pragma once

#include <QObject>
#include <QVariantList>

namespace lumeo::gui {

class GuiRuntime;
class ReminderEditorScreen;
class ReminderSoundScreen;

class ReminderEditorAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool attached READ attached NOTIFY changed)
  Q_PROPERTY(bool isNew READ isNew NOTIFY changed)
  Q_PROPERTY(bool periodic READ periodic NOTIFY changed)
  Q_PROPERTY(bool random READ random NOTIFY changed)
  Q_PROPERTY(int count READ count NOTIFY changed)
  Q_PROPERTY(int minimumCount READ minimumCount CONSTANT)
  Q_PROPERTY(int maximumCount READ maximumCount CONSTANT)
  // 0 the fixed time, 1 the window's start, 2 its end.
  Q_PROPERTY(int remindType READ remindType NOTIFY changed)
  Q_PROPERTY(bool pickerVisible READ pickerVisible NOTIFY changed)
  Q_PROPERTY(int pickerHour READ pickerHour NOTIFY changed)
  Q_PROPERTY(int pickerMinute READ pickerMinute NOTIFY changed)
  Q_PROPERTY(QString fromText READ fromText NOTIFY changed)
  Q_PROPERTY(QString toText READ toText NOTIFY changed)
  Q_PROPERTY(QString reminderText READ reminderText NOTIFY changed)
  Q_PROPERTY(QString templateText READ templateText NOTIFY changed)
  Q_PROPERTY(QString soundName READ soundName NOTIFY changed)
  Q_PROPERTY(bool onlyIfNothingRecorded READ onlyIfNothingRecorded NOTIFY changed)
  // The sound picker: [{title, checked}], the catalogue's order.
  Q_PROPERTY(QVariantList sounds READ sounds NOTIFY changed)

 public:
  ReminderEditorAdapter(GuiRuntime& runtime, QObject* parent = nullptr);

  bool attached() const { return editor() != nullptr; }
  bool isNew() const;
  bool periodic() const;
  bool random() const;
  int count() const;
  int minimumCount() const;
  int maximumCount() const;
  int remindType() const;
  bool pickerVisible() const;
  int pickerHour() const;
  int pickerMinute() const;
  QString fromText() const;
  QString toText() const;
  QString reminderText() const;
  QString templateText() const;
  QString soundName() const;
  bool onlyIfNothingRecorded() const;
  QVariantList sounds() const;

  // The editor screen appeared: its controls are loaded (once per editor).
  Q_INVOKABLE void appear();
  Q_INVOKABLE void setPeriodic(bool periodic);
  Q_INVOKABLE void setRandom(bool random);
  Q_INVOKABLE void editFrom();
  Q_INVOKABLE void editTo();
  // The picker's time today, seconds zero, into the date being edited.
  Q_INVOKABLE void setTime(int hour, int minute);
  // Clamped by the editor into its range.
  Q_INVOKABLE void setCount(int count);
  Q_INVOKABLE void setReminderText(const QString& text);
  Q_INVOKABLE void setTemplateText(const QString& text);
  Q_INVOKABLE void setOnlyIfNothingRecorded(bool on);
  Q_INVOKABLE void openSounds();
  Q_INVOKABLE void selectSound(int row);
  Q_INVOKABLE void closeSounds();
  Q_INVOKABLE void save();
  Q_INVOKABLE void cancel();

 Q_SIGNALS:
  void changed();

 private:
  ReminderEditorScreen* editor() const;
  ReminderSoundScreen* soundScreen() const;
  void leaveEditor();

  GuiRuntime& runtime_;
  const ReminderEditorScreen* loaded_ = nullptr;
};

}  // namespace lumeo::gui
