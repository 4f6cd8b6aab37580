#include "editor_adapter.h"

#include <QLocale>
#include <QUrl>

#include "capture/mood_capture_view_controller.h"
#include "capture/mood_record_edit_view_controller.h"
#include "capture/tag_extraction.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "main_queue_pump.h"
#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/predicate.h"
#include "picture_provider.h"
#include "platform/localization.h"
#include "qt_convert.h"
#include "shell/mood_app_delegate.h"
#include "shell_adapter.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "text_positions.h"

namespace lumeo::gui {

namespace {

QDateTime toQDateTime(Date date) {
  return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(date.timeIntervalSince1970() * 1000.0));
}

Date fromQDateTime(const QDateTime& date) {
  return Date::fromTimeIntervalSince1970(static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0);
}

}  // namespace

// The controller's view: forwards what the controller shows to the adapter.
class EditorView : public MoodRecordEditView {
 public:
  explicit EditorView(EditorAdapter& adapter) : adapter_(adapter) {}

  void showText(const std::string& text, std::size_t cursor) override {
    adapter_.lastText_ = q(text);
    Q_EMIT adapter_.textReplaced(adapter_.lastText_, utf16Position(text, cursor));
  }
  void reloadCompletionList() override { Q_EMIT adapter_.completionsChanged(); }
  void showCompletionList(bool visible) override {
    adapter_.completionVisible_ = visible;
    Q_EMIT adapter_.completionsChanged();
  }
  void showThumb(const std::optional<Image>&) override {
    ++adapter_.thumbRevision_;
    Q_EMIT adapter_.changed();
  }
  void showTimePicker(Date date, Date maximum) override {
    adapter_.timePickerVisible_ = true;
    adapter_.pickerDate_ = toQDateTime(date);
    adapter_.pickerMaximum_ = toQDateTime(maximum);
    Q_EMIT adapter_.timePickerChanged();
  }
  void hideTimePicker() override {
    adapter_.timePickerVisible_ = false;
    Q_EMIT adapter_.timePickerChanged();
  }
  void showDate(Date) override { Q_EMIT adapter_.changed(); }
  void showTagPanel(const std::string& name, const std::string& unit) override {
    adapter_.tagPanelVisible_ = true;
    adapter_.tagPanelName_ = q(name);
    adapter_.tagPanelUnit_ = q(unit);
    Q_EMIT adapter_.tagPanelChanged();
  }
  void hideTagPanel() override {
    adapter_.tagPanelVisible_ = false;
    Q_EMIT adapter_.tagPanelChanged();
  }
  void showTagUnitButtons(const std::vector<std::string>& units) override {
    adapter_.tagUnitButtons_.clear();
    for (const auto& unit : units) adapter_.tagUnitButtons_.append(q(unit));
    Q_EMIT adapter_.tagPanelChanged();
  }
  void setTagUnitField(const std::string& unit) override {
    adapter_.tagPanelUnit_ = q(unit);
    Q_EMIT adapter_.tagUnitFieldSet(adapter_.tagPanelUnit_);
    Q_EMIT adapter_.tagPanelChanged();
  }
  void showMapPreview(double, double, double) override { Q_EMIT adapter_.changed(); }
  void hideMapPreview() override { Q_EMIT adapter_.changed(); }
  void showLocationChooser(double latitude, double longitude) override {
    Q_EMIT adapter_.placeChooserRequested(latitude, longitude);
  }
  // The desktop has no camera path: both sources open the file chooser.
  void showImagePicker(PickerSource) override { Q_EMIT adapter_.imagePickerRequested(); }

 private:
  EditorAdapter& adapter_;
};

namespace {

void refreshShell(GuiRuntime& runtime) {
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")))) shell->refresh();
}

// Actions that write the journal first take its writer lock and read again
// what another process changed since the editor opened (see GuiSession).
void prepareToWrite(GuiRuntime& runtime) {
  (void)runtime.session().prepareToWrite();
}

// Opens an editor the core made: it gets its view and runs its appearance
// steps in the order a screen appears.
void openEditor(EditorAdapter& adapter, MoodRecordEditViewController& editor) {
  auto shared = std::static_pointer_cast<MoodRecordEditViewController>(editor.shared_from_this());
  adapter.attach(shared);
}

}  // namespace

EditorAdapter::EditorAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime), view_(std::make_shared<EditorView>(*this)) {
  if (auto capture = runtime.session().capture())
    capture->setEditorOpenedHandler(
        [this](MoodRecordEditViewController& editor) { openEditor(*this, editor); });
  connect(&runtime.pump(), &MainQueuePump::drained, this, &EditorAdapter::refresh);
  runtime.session().setRereadObservers([this] { noteRecord(false); }, [this] { journalReread(); });
  registerPictureSource(QStringLiteral("editor-thumb"),
                        [this](const QString&, QSize) -> std::optional<Image> {
                          auto editor = editor_.lock();
                          if (!editor || !editor->currentState() || !editor->currentState()->thumb)
                            return std::nullopt;
                          return *editor->currentState()->thumb;
                        });
}

EditorAdapter::~EditorAdapter() {
  runtime_.session().setRereadObservers({}, {});
}

void EditorAdapter::attach(std::shared_ptr<MoodRecordEditViewController> editor) {
  editor_ = editor;
  completionVisible_ = false;
  tagPanelVisible_ = false;
  timePickerVisible_ = false;
  editor->setView(view_);
  if (runtime_.session().launched()) editor->setPasscodeGate(runtime_.session().app().services().passcode);
  lastText_.clear();
  editor->viewDidLoad();
  lastText_ = q(editor->text());
  editor->viewWillAppear();
  editor->viewDidAppear();
  recordDeletedElsewhere_ = false;
  note_ = {};
  noteRecord(true);
  ++thumbRevision_;
  Q_EMIT changed();
  Q_EMIT textReplaced(lastText_, utf16Position(editor->text(), editor->cursor()));
  Q_EMIT completionsChanged();
  Q_EMIT tagPanelChanged();
  Q_EMIT timePickerChanged();
}

void EditorAdapter::refresh() {
  noteRecord(true);
  Q_EMIT changed();
}

void EditorAdapter::noteRecord(bool mayRead) {
  auto editor = editor_.lock();
  auto record = editor ? editor->recordInEdit() : nullptr;
  ManagedObjectContext* context = record ? record->managedObjectContext() : nullptr;
  if (!context) return;
  // A fault reads the file. Just before reading again after another
  // program's write the row may be gone already, so then only values in
  // memory count; otherwise a read that finds no row changes nothing.
  if (record->isFault() && (!mayRead || !context->existingObjectWithID(record->objectID()))) return;
  auto description = record->moodDescription();
  if (description && description->isFault() &&
      (!mayRead || !context->existingObjectWithID(description->objectID())))
    return;
  note_.record = record;
  note_.description = description;
  note_.uniqueIdentifier = record->uniqueIdentifier();
  note_.date = record->date();
  note_.latitude = description ? description->latitude() : MoodDescription::kNoCoordinate;
  note_.longitude = description ? description->longitude() : MoodDescription::kNoCoordinate;
}

bool EditorAdapter::recordStillInJournal(MoodRecord& record) const {
  auto context = runtime_.session().app().store().managedObjectContext();
  if (!context) return true;
  if (note_.record.get() == &record && note_.uniqueIdentifier && !note_.uniqueIdentifier->empty()) {
    // Asked of the file: a record holding unsaved changes stays in memory
    // after its row went.
    FetchRequest request(kMoodRecordEntity);
    request.setPredicate(Predicate::predicateWithFormat("uniqueIdentifier == %@", *note_.uniqueIdentifier));
    request.setIncludesPendingChanges(false);
    return context->countForFetchRequest(request) > 0;
  }
  return context->existingObjectWithID(record.objectID()) != nullptr;
}

void EditorAdapter::journalReread() {
  auto editor = editor_.lock();
  if (!editor || !active() || !runtime_.session().journalOpen()) return;
  auto record = editor->recordInEdit();
  // A replacement not saved yet has no row to lose.
  if (record->isInserted() || recordStillInJournal(*record)) return;
  JournalStore& store = runtime_.session().app().store();
  auto context = store.managedObjectContext();
  // Whatever the gone record held unsaved (a date, a place) must not be
  // saved onto a row that is not there: it is dropped here and goes into
  // the new record instead.
  context->refreshObject(record, false);
  if (note_.record == record && note_.description) context->refreshObject(note_.description, false);
  auto replacement = store.insertRecordWithDescription();
  if (!replacement) return;
  if (editor->currentState()) replacement->setMoodLevel(editor->currentState()->moodLevel);
  const bool noted = note_.record == record;
  Date date = Date::now();
  if (noted && note_.date) {
    date = *note_.date;
  } else if (editor->currentState() && editor->currentState()->date) {
    date = *editor->currentState()->date;
  }
  replacement->setDate(date);
  if (noted && (note_.latitude != MoodDescription::kNoCoordinate ||
                note_.longitude != MoodDescription::kNoCoordinate)) {
    replacement->moodDescription()->setLatitude(note_.latitude);
    replacement->moodDescription()->setLongitude(note_.longitude);
  }
  editor->adoptReplacementRecord(replacement);
  recordDeletedElsewhere_ = true;
  note_ = {};
  noteRecord(true);
  Q_EMIT changed();
}

QString EditorAdapter::deletedNotice() const {
  if (!recordDeletedElsewhere_) return {};
  return q(localized("This record was deleted in another window or program.")) + QLatin1Char(' ') +
         q(localized("Save keeps what you wrote as a new record; Cancel drops it."));
}

bool EditorAdapter::active() const {
  auto editor = editor_.lock();
  return editor && editor->presentingViewController() != nullptr && editor->recordInEdit() != nullptr;
}

bool EditorAdapter::isNew() const {
  auto editor = editor_.lock();
  return editor && !editor->editing();
}

int EditorAdapter::level() const {
  auto editor = editor_.lock();
  if (!editor || !editor->recordInEdit()) return 0;
  return static_cast<int>(editor->recordInEdit()->moodLevel());
}

QString EditorAdapter::text() const {
  return lastText_;
}

int EditorAdapter::controllerCursor() const {
  auto editor = editor_.lock();
  return editor ? utf16Position(editor->text(), editor->cursor()) : 0;
}

QString EditorAdapter::dateText() const {
  auto editor = editor_.lock();
  if (!editor || !editor->recordInEdit()) return {};
  auto date = editor->recordInEdit()->date();
  if (!date) return {};
  return QLocale().toString(toQDateTime(*date).toLocalTime(), QStringLiteral("ddd d MMM yyyy, HH:mm"));
}

QVariantList EditorAdapter::completions() const {
  QVariantList out;
  auto editor = editor_.lock();
  if (!editor || !completionVisible_) return out;
  const auto& options = editor->completionOptions();
  for (std::size_t row = 0; row < options.size(); ++row) {
    out.append(QVariantMap{{"name", q(options[row]->tagName())},
                           {"used", editor->isCompletionRowUsed(row)},
                           {"frequency", static_cast<qlonglong>(options[row]->frequency())}});
  }
  return out;
}

bool EditorAdapter::hasPhoto() const {
  auto editor = editor_.lock();
  return editor && editor->currentState() && editor->currentState()->thumb.has_value();
}

QString EditorAdapter::thumbUrl() const {
  return hasPhoto() ? QStringLiteral("image://lumeo/editor-thumb/%1").arg(thumbRevision_) : QString();
}

bool EditorAdapter::hasPlace() const {
  auto editor = editor_.lock();
  if (!editor || !editor->recordInEdit()) return false;
  auto description = editor->recordInEdit()->moodDescription();
  return description && description->hasPosition();
}

QString EditorAdapter::placeText() const {
  if (!hasPlace()) return {};
  auto description = editor_.lock()->recordInEdit()->moodDescription();
  return QStringLiteral("%1, %2").arg(QLocale().toString(description->latitude(), 'f', 4),
                                      QLocale().toString(description->longitude(), 'f', 4));
}

QStringList EditorAdapter::textTags() const {
  QStringList out;
  auto editor = editor_.lock();
  if (!editor || !runtime_.session().launched()) return out;
  for (const auto& tag : extractTagsForRecord(editor->text())) {
    if (auto stored = runtime_.session().app().store().tagNamed(tag.tagName))
      out.append(q(stored->tagName()));
  }
  out.removeDuplicates();
  return out;
}

void EditorAdapter::textEdited(const QString& text, int cursor) {
  auto editor = editor_.lock();
  if (!editor) return;
  if (text == lastText_) {
    selectionChanged(cursor, cursor);
    return;
  }
  // The change as one replaced range, for the controller's deletion rule.
  const std::string before = editor->text();
  const std::string after = text.toStdString();
  std::size_t prefix = 0;
  while (prefix < before.size() && prefix < after.size() && before[prefix] == after[prefix]) ++prefix;
  std::size_t suffix = 0;
  while (suffix < before.size() - prefix && suffix < after.size() - prefix &&
         before[before.size() - 1 - suffix] == after[after.size() - 1 - suffix])
    ++suffix;
  // Keep the range on character boundaries: back up over continuation bytes.
  while (prefix > 0 && (static_cast<unsigned char>(before[prefix]) & 0xC0) == 0x80) --prefix;
  const TextRange range{prefix, before.size() - suffix - prefix};
  const std::string replacement = after.substr(prefix, after.size() - suffix - prefix);
  (void)editor->shouldChangeTextInRange(range, replacement);
  lastText_ = text;
  editor->textViewDidChange(after, utf8Offset(text, cursor));
  Q_EMIT changed();
}

void EditorAdapter::selectionChanged(int start, int end) {
  auto editor = editor_.lock();
  if (!editor) return;
  const std::size_t from = utf8Offset(lastText_, std::min(start, end));
  const std::size_t to = utf8Offset(lastText_, std::max(start, end));
  editor->setSelection(from, to - from);
}

void EditorAdapter::chooseCompletion(int row) {
  auto editor = editor_.lock();
  if (!editor || row < 0 || static_cast<std::size_t>(row) >= editor->completionOptions().size()) return;
  editor->didSelectCompletionRow(static_cast<std::size_t>(row));
  Q_EMIT changed();
}

void EditorAdapter::done() {
  auto editor = editor_.lock();
  if (!editor) return;
  prepareToWrite(runtime_);
  editor->done();
  if (!active()) editor->viewDidDisappear();
  Q_EMIT changed();
  refreshShell(runtime_);
}

void EditorAdapter::cancel() {
  auto editor = editor_.lock();
  if (!editor) return;
  prepareToWrite(runtime_);
  editor->cancel();
  Q_EMIT changed();
  refreshShell(runtime_);
}

void EditorAdapter::photoButton() {
  if (auto editor = editor_.lock()) editor->actionButtonClicked();
}

bool EditorAdapter::photoChosen(const QString& fileUrl) {
  auto editor = editor_.lock();
  if (!editor) return false;
  const QUrl url(fileUrl);
  const QString path = url.isLocalFile() ? url.toLocalFile() : fileUrl;
  auto image = Image::readFile(path.toStdString());
  if (auto* error = std::get_if<Error>(&image)) {
    editor->showAlert(
        localized("Not a picture"),
        localizedStringWithFormat("%@ is not a JPEG or PNG picture, so it cannot be the record's photo.",
                                  QUrl::fromLocalFile(path).fileName().toStdString()),
        localized("OK"));
    (void)error;
    return false;
  }
  prepareToWrite(runtime_);
  editor->imagePicked(std::get<Image>(image));
  noteRecord(true);
  ++thumbRevision_;
  Q_EMIT changed();
  return true;
}

void EditorAdapter::placeButton() {
  if (auto editor = editor_.lock()) editor->locationButtonClicked();
  Q_EMIT changed();
}

bool EditorAdapter::placeChosen(double latitude, double longitude) {
  auto editor = editor_.lock();
  if (!editor || !(latitude >= -90 && latitude <= 90) || !(longitude >= -180 && longitude <= 180))
    return false;
  prepareToWrite(runtime_);
  editor->didMoodLocationViewControllerLocationChanged(latitude, longitude);
  noteRecord(true);
  Q_EMIT changed();
  return true;
}

void EditorAdapter::dateButton() {
  if (auto editor = editor_.lock()) editor->dateButtonClick();
}

void EditorAdapter::pickerChanged(const QDateTime& date) {
  if (auto editor = editor_.lock()) editor->timePickerValueChanged(fromQDateTime(date));
}

void EditorAdapter::pickerDone(const QDateTime& date) {
  prepareToWrite(runtime_);
  if (auto editor = editor_.lock()) editor->timePickerDone(fromQDateTime(date));
  noteRecord(true);
  Q_EMIT changed();
}

void EditorAdapter::pickerCancel() {
  if (auto editor = editor_.lock()) editor->timePickerCancel();
}

void EditorAdapter::openTag(const QString& name) {
  auto editor = editor_.lock();
  if (!editor || !runtime_.session().launched()) return;
  if (auto tag = runtime_.session().app().store().tagNamed(name.toStdString())) editor->tagEdit(tag);
}

void EditorAdapter::tagPanelDone(const QString& name, const QString& unit) {
  prepareToWrite(runtime_);
  if (auto editor = editor_.lock()) editor->tagEditDone(name.toStdString(), unit.toStdString());
  Q_EMIT changed();
}

void EditorAdapter::tagPanelCancel() {
  if (auto editor = editor_.lock()) editor->tagEditCancel();
}

void EditorAdapter::tagUnitButton(int index) {
  auto editor = editor_.lock();
  if (!editor || index < 0) return;
  editor->tagButtonClicked(static_cast<std::size_t>(index));
}

void EditorAdapter::tagPanelDelete() {
  auto editor = editor_.lock();
  if (!editor || !runtime_.session().launched()) return;
  prepareToWrite(runtime_);
  if (auto tag = runtime_.session().app().store().tagNamed(tagPanelName_.toStdString()))
    editor->tagDelete(tag);
}

static const GuiRegistration kEditor(0, [](GuiRuntime& runtime) {
  runtime.addSingleton("Editor", new EditorAdapter(runtime, &runtime));
  runtime.addScreen(QStringLiteral("MoodRecordEditViewController"), QStringLiteral("EditorScreen.qml"));
});

}  // namespace lumeo::gui
