// The reminder list and the notification message for QML (singleton
// `Reminders`): the global text, one row per reminder in the list's order
// (switch, time, how often), add, edit, delete and done; and the text
// screen, which stores each change at once and reschedules on Return. The
// rules (order, when to store, when to reschedule) are the core's
// MoodRemindersViewController and MoodNotificationTextEditViewController.
#pragma once

#include <QObject>
#include <QVariantList>

namespace lumeo::gui {

class GuiRuntime;
class RemindersScreen;
class NotificationTextScreen;

class ReminderListAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString message READ message NOTIFY changed)
  // [{timeText, detail, on, dimmed}], in the list's order.
  Q_PROPERTY(QVariantList rows READ rows NOTIFY changed)
  Q_PROPERTY(bool empty READ empty NOTIFY changed)
  // The text screen's text.
  Q_PROPERTY(QString text READ text NOTIFY changed)

 public:
  ReminderListAdapter(GuiRuntime& runtime, QObject* parent = nullptr);

  QString message() const;
  QVariantList rows() const;
  bool empty() const;
  QString text() const;

  // The list appeared: a sorted copy of the stored reminders.
  Q_INVOKABLE void appear();
  Q_INVOKABLE void setEnabled(int row, bool on);
  Q_INVOKABLE void add();
  Q_INVOKABLE void edit(int row);
  // Removes the row; stored with done().
  Q_INVOKABLE void remove(int row);
  // Stores the list, reschedules and leaves (also what Back does).
  Q_INVOKABLE void done();
  Q_INVOKABLE void openText();

  // The text screen: each change is stored; Return reschedules and leaves,
  // Back only leaves.
  Q_INVOKABLE void setText(const QString& text);
  Q_INVOKABLE void textReturn();
  Q_INVOKABLE void textBack();

 Q_SIGNALS:
  void changed();

 private:
  RemindersScreen* list() const;
  NotificationTextScreen* textScreen() const;
  void refreshShell();

  GuiRuntime& runtime_;
};

}  // namespace lumeo::gui
