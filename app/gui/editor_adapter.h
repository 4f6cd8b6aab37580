// The record editor for QML (singleton `Editor`): the open editor's text and
// caret, the tag offers as you type, the unit buttons after ":", the photo,
// the place, the date picker, the tag panel, and done and cancel. It is the
// controller's view (MoodRecordEditView): what the controller shows, the
// adapter turns into properties and signals; what the user does, it hands
// to the controller. Text positions are UTF-16 in QML and bytes in the core;
// the adapter converts.
#pragma once

#include <QColor>
#include <QDateTime>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <memory>
#include <optional>
#include <string>

#include "platform/date.h"

namespace lumeo {
class MoodDescription;
class MoodRecord;
class MoodRecordEditViewController;
}  // namespace lumeo

namespace lumeo::gui {

class GuiRuntime;
class EditorView;

class EditorAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool active READ active NOTIFY changed)
  // A new record (Cancel removes it) or an existing one (Cancel restores).
  Q_PROPERTY(bool isNew READ isNew NOTIFY changed)
  Q_PROPERTY(int level READ level NOTIFY changed)
  Q_PROPERTY(QString text READ text NOTIFY textReplaced)
  Q_PROPERTY(QString dateText READ dateText NOTIFY changed)
  Q_PROPERTY(QVariantList completions READ completions NOTIFY completionsChanged)
  Q_PROPERTY(bool completionVisible READ completionVisible NOTIFY completionsChanged)
  Q_PROPERTY(bool hasPhoto READ hasPhoto NOTIFY changed)
  // image://lumeo/editor-thumb/<revision>
  Q_PROPERTY(QString thumbUrl READ thumbUrl NOTIFY changed)
  Q_PROPERTY(bool hasPlace READ hasPlace NOTIFY changed)
  Q_PROPERTY(QString placeText READ placeText NOTIFY changed)
  // Tags of the journal named in the text: the chips that open the panel.
  Q_PROPERTY(QStringList textTags READ textTags NOTIFY changed)
  Q_PROPERTY(bool tagPanelVisible READ tagPanelVisible NOTIFY tagPanelChanged)
  Q_PROPERTY(QString tagPanelName READ tagPanelName NOTIFY tagPanelChanged)
  Q_PROPERTY(QString tagPanelUnit READ tagPanelUnit NOTIFY tagPanelChanged)
  Q_PROPERTY(QStringList tagUnitButtons READ tagUnitButtons NOTIFY tagPanelChanged)
  Q_PROPERTY(bool timePickerVisible READ timePickerVisible NOTIFY timePickerChanged)
  Q_PROPERTY(QDateTime pickerDate READ pickerDate NOTIFY timePickerChanged)
  Q_PROPERTY(QDateTime pickerMaximum READ pickerMaximum NOTIFY timePickerChanged)
  // The record under the open editor was deleted in another window or
  // program: the editor keeps what the user wrote in a new record that Save
  // keeps and Cancel drops, and says so in `deletedNotice`.
  Q_PROPERTY(bool recordDeletedElsewhere READ recordDeletedElsewhere NOTIFY changed)
  Q_PROPERTY(QString deletedNotice READ deletedNotice NOTIFY changed)

 public:
  EditorAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~EditorAdapter() override;

  bool active() const;
  bool isNew() const;
  int level() const;
  QString text() const;
  QString dateText() const;
  QVariantList completions() const;
  bool completionVisible() const { return completionVisible_; }
  bool hasPhoto() const;
  QString thumbUrl() const;
  bool hasPlace() const;
  QString placeText() const;
  QStringList textTags() const;
  bool tagPanelVisible() const { return tagPanelVisible_; }
  QString tagPanelName() const { return tagPanelName_; }
  QString tagPanelUnit() const { return tagPanelUnit_; }
  QStringList tagUnitButtons() const { return tagUnitButtons_; }
  bool timePickerVisible() const { return timePickerVisible_; }
  QDateTime pickerDate() const { return pickerDate_; }
  QDateTime pickerMaximum() const { return pickerMaximum_; }
  bool recordDeletedElsewhere() const { return recordDeletedElsewhere_; }
  QString deletedNotice() const;

  // The caret position (UTF-16) the controller last set.
  Q_INVOKABLE int controllerCursor() const;

  // --- The user's actions ---------------------------------------------------
  // The text area changed; `cursor` is the caret after the change.
  Q_INVOKABLE void textEdited(const QString& text, int cursor);
  Q_INVOKABLE void selectionChanged(int start, int end);
  Q_INVOKABLE void chooseCompletion(int row);
  Q_INVOKABLE void done();
  Q_INVOKABLE void cancel();
  // The photo button: the controller's sheet (choose, delete).
  Q_INVOKABLE void photoButton();
  // A file from the file chooser. A file that is not a picture is refused
  // with a message; the record keeps its photo.
  Q_INVOKABLE bool photoChosen(const QString& fileUrl);
  Q_INVOKABLE void placeButton();
  // The place chooser's answer in degrees; false for values out of range.
  Q_INVOKABLE bool placeChosen(double latitude, double longitude);
  Q_INVOKABLE void dateButton();
  Q_INVOKABLE void pickerChanged(const QDateTime& date);
  Q_INVOKABLE void pickerDone(const QDateTime& date);
  Q_INVOKABLE void pickerCancel();
  Q_INVOKABLE void openTag(const QString& name);
  Q_INVOKABLE void tagPanelDone(const QString& name, const QString& unit);
  Q_INVOKABLE void tagPanelCancel();
  Q_INVOKABLE void tagUnitButton(int index);
  Q_INVOKABLE void tagPanelDelete();

  // Follows the editor the capture tab or the application opened.
  void attach(std::shared_ptr<MoodRecordEditViewController> editor);
  std::shared_ptr<MoodRecordEditViewController> editor() const { return editor_.lock(); }

 Q_SIGNALS:
  void changed();
  // The controller set the text (template, unit, completion); the text area
  // takes it and puts the caret at `cursor`.
  void textReplaced(const QString& text, int cursor);
  void completionsChanged();
  void tagPanelChanged();
  void timePickerChanged();
  void imagePickerRequested();
  void placeChooserRequested(double latitude, double longitude);
  void tagUnitFieldSet(const QString& unit);

 private:
  friend class EditorView;
  void refresh();
  // What the journal said of the open record when it was last read whole:
  // the date and place live in the record itself, not in the editor's
  // working copy, and cannot be read once another program deleted it.
  struct RecordNote {
    std::shared_ptr<MoodRecord> record;
    std::shared_ptr<MoodDescription> description;
    std::optional<std::string> uniqueIdentifier;
    std::optional<Date> date;
    double latitude = -1;
    double longitude = -1;
  };
  void noteRecord(bool mayRead);
  // After the journal was read again: if the open record is gone from the
  // file, a new record with the note's date and place takes its place.
  void journalReread();
  bool recordStillInJournal(MoodRecord& record) const;

  GuiRuntime& runtime_;
  std::shared_ptr<EditorView> view_;
  std::weak_ptr<MoodRecordEditViewController> editor_;
  int thumbRevision_ = 0;
  bool completionVisible_ = false;
  bool tagPanelVisible_ = false;
  QString tagPanelName_;
  QString tagPanelUnit_;
  QStringList tagUnitButtons_;
  bool timePickerVisible_ = false;
  QDateTime pickerDate_;
  QDateTime pickerMaximum_;
  QString lastText_;
  RecordNote note_;
  bool recordDeletedElsewhere_ = false;
};

}  // namespace lumeo::gui
