// lumeo edit, tags, tag rename/delete, values, complete, template and
// levels: each runs the editor's own logic on the journal. Every change is
// checked before anything is written; a failed save is rolled back, so bad
// input leaves the journal as it was.
#include "capture_commands.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <variant>

#include "capture/emotions_list.h"
#include "capture/hashtag_grammar.h"
#include "capture/mood_capture_edit_view_controller.h"
#include "capture/mood_levels_presentation.h"
#include "capture/mood_record_edit_view_controller.h"
#include "capture/mood_record_state.h"
#include "capture/mood_tag_editing.h"
#include "capture/mood_third_value.h"
#include "capture/record_capture.h"
#include "capture/suggested_tags.h"
#include "cli_app.h"
#include "journal_commands.h"
#include "objectgraph/managed_object_context.h"
#include "platform/canvas.h"
#include "platform/color.h"
#include "platform/date_formatter.h"
#include "platform/user_date_parser.h"
#include "platform/user_defaults.h"
#include "record_json.h"
#include "shell/mood_app_delegate.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"

namespace lumeo::cli {

PickedPhoto pickedPhotoFromImage(const Image& image) {
  auto [w, h] = photoSizeForImageSize(image.orientedWidth(), image.orientedHeight());
  return {imageByScalingToSize(image, w, h), imageByScalingToSize(image, kThumbnailSize, kThumbnailSize)};
}

PickedPhoto readPickedPhoto(const std::filesystem::path& file) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(file, ec)) {
    throw CommandError("no photo file " + file.string() + " (nothing was changed)");
  }
  auto photo = photoFromFile(file);
  if (auto* error = std::get_if<Error>(&photo)) {
    throw CommandError("cannot use " + file.string() + " as a photo: " + error->description +
                       " (nothing was changed)");
  }
  auto thumb = thumbnailFromFile(file);
  if (auto* error = std::get_if<Error>(&thumb)) {
    throw CommandError("cannot use " + file.string() + " as a photo: " + error->description +
                       " (nothing was changed)");
  }
  return {std::get<Image>(std::move(photo)), std::get<Image>(std::move(thumb))};
}

std::pair<double, double> parsePlace(const std::string& text) {
  double latitude = 0, longitude = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), " %lf , %lf %c", &latitude, &longitude, &rest) != 2 ||
      !std::isfinite(latitude) || !std::isfinite(longitude) || latitude < -90 || latitude > 90 ||
      longitude < -180 || longitude > 180) {
    throw CommandError(
        "a place is LAT,LON in degrees, latitude -90..90 and longitude -180..180, not \"" + text + "\"",
        kUsageError);
  }
  return {latitude, longitude};
}

namespace {

std::int64_t recordID(const MoodRecord& record) {
  return record.objectID().primaryKey();
}

long parseLevelOption(const std::string& text) {
  long level = 0;
  try {
    level = parseInteger(text, "LEVEL");
  } catch (const CommandError&) {
    level = 0;
  }
  if (level < 1 || level > 10) {
    throw CommandError(
        "the mood level must be a whole number from 1 (worst) to 10 (best), not \"" + text + "\"",
        kUsageError);
  }
  return level;
}

Date parseWhen(const std::string& text) {
  if (text == "now") return Date::now();
  auto date = parseUserDate(text);
  if (!date) {
    throw CommandError(
        "cannot read the date \"" + text + "\": write it as 2026-11-22T14:30 or as your locale does",
        kUsageError);
  }
  // The editor's date picker stops at now.
  if (*date > Date::now())
    throw CommandError("a record cannot lie in the future (\"" + text + "\")", kUsageError);
  return *date;
}

std::shared_ptr<MoodRecord> requireRecord(JournalStore& store, const std::string& text) {
  std::int64_t id = 0;
  try {
    id = parseInteger(text, "ID");
  } catch (const CommandError&) {
    throw CommandError("a record ID is the number that `lumeo list` shows, not \"" + text + "\"",
                       kUsageError);
  }
  auto record = id > 0 ? store.recordWithRowNumber(id) : nullptr;
  if (!record) throw CommandError("no record with ID " + text + " (see `lumeo list`)");
  return record;
}

void printRecord(CliApp& cli, const std::string& verb, const MoodRecord& record) {
  if (cli.json()) {
    cli.printJson(recordJson(record));
    return;
  }
  cli.out() << verb << " record " << recordID(record) << ": level " << record.moodLevel();
  auto tags = record.moodTags();
  if (!tags.empty()) {
    cli.out() << ", tags";
    for (const auto& tag : tags) cli.out() << " #" << tag->tagName();
  }
  auto description = record.moodDescription();
  if (description && description->photoName()) cli.out() << ", with photo";
  cli.out() << "\n";
}

// --- edit ---------------------------------------------------------------------

struct EditOptions {
  std::string id;
  std::optional<std::string> level;
  std::optional<std::string> comment;
  std::optional<std::string> commentFile;
  std::optional<std::string> photo;
  bool noPhoto = false;
  std::optional<std::string> at;
  std::optional<std::string> place;
  bool noPlace = false;
};

void runEdit(CliApp& cli, const EditOptions& options) {
  // Everything the user typed is checked before the journal is touched.
  std::optional<long> level;
  if (options.level) level = parseLevelOption(*options.level);
  std::optional<Date> when;
  if (options.at) when = parseWhen(*options.at);
  std::optional<PickedPhoto> photo;
  if (options.photo) photo = readPickedPhoto(*options.photo);
  std::optional<std::pair<double, double>> place;
  if (options.place) place = parsePlace(*options.place);
  std::optional<std::string> comment = options.comment;
  if (comment) requireUtf8(*comment, "the comment");
  if (options.commentFile) comment = readCommentFile(*options.commentFile);

  MoodAppDelegate& app = journalSession(cli);
  auto record = requireRecord(app.store(), options.id);
  // The editor as the share sheet's Edit opens it: both states from the
  // record. Its text view and pickers are replaced by the options.
  auto editor = MoodRecordEditViewController::forExistingRecord(
      record, RecordStateServices::fromSharedDelegate(), app.directories().library);
  MoodRecordState& state = *editor->mutableCurrentState();
  bool changed = false;
  if (level) state.moodLevel = *level, changed = true;
  if (comment) state.comment = *comment, changed = true;
  if (photo) {
    state.photo = photo->photo;
    state.thumb = photo->thumb;
    changed = true;
  }
  if (options.noPhoto) state.removePhotoAndThumb(), changed = true;
  // Any change marks an older record edited, which keeps it out of the
  // backup reminder's count of new records.
  if (changed) state.wasEdited = true;
  // Date and place go to the record directly, as the editor's picker and
  // map do (so they are not part of what Cancel restores); the save below
  // stores them with the rest.
  if (when) {
    editor->dateButtonClick();
    editor->timePickerDone(*when);
  }
  if (place) editor->didMoodLocationViewControllerLocationChanged(place->first, place->second);
  if (options.noPlace) editor->deleteLocation();
  auto error = editor->saveChanges();
  if (!error) error = app.store().lastSaveError();
  if (error) {
    app.managedObjectContext()->rollback();
    throw CommandError("could not save the record: " + error->description + " (nothing was changed)");
  }
  printRecord(cli, "Edited", *record);
}

// --- tags ---------------------------------------------------------------------

std::shared_ptr<MoodTag> requireTag(JournalStore& store, const std::string& name) {
  auto tag = store.tagWithExactName(name);
  if (!tag) tag = store.tagNamed(name);
  if (!tag) throw CommandError("no tag named \"" + name + "\" (see `lumeo tags`)");
  return tag;
}

std::string stripHash(std::string name) {
  if (!name.empty() && name.front() == '#') name.erase(0, 1);
  return name;
}

void runTags(CliApp& cli) {
  MoodAppDelegate& app = journalSession(cli);
  auto tags = app.store().tagsByFrequency(0);
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& tag : tags) {
      list.push_back({{"name", tag->tagName()},
                      {"unit", tag->tagUnit() ? nlohmann::json(*tag->tagUnit()) : nullptr},
                      {"frequency", tag->frequency()},
                      {"average", tag->averageMoodLevel()}});
    }
    cli.printJson(list);
    return;
  }
  if (tags.empty()) {
    cli.out() << "No tags yet. Write #words into a comment to make them.\n";
    return;
  }
  cli.out() << "TAG                   UNIT     USED  AVERAGE\n";
  for (const auto& tag : tags) {
    char line[160];
    std::snprintf(line, sizeof line, "%-21s %-8s %4ld  %7.2f\n", ("#" + tag->tagName()).c_str(),
                  tag->tagUnit().value_or("").c_str(), tag->frequency(), tag->averageMoodLevel());
    cli.out() << line;
  }
}

void runTagRename(CliApp& cli, const std::string& oldText, const std::string& newText,
                  const std::optional<std::string>& unit) {
  std::string oldName = stripHash(oldText), newName = stripHash(newText);
  requireUtf8(newName, "the new tag name");
  if (unit) requireUtf8(*unit, "the unit");
  if (!isTagName(newName)) {
    throw CommandError("\"" + newText + "\" cannot be a tag name: use letters, digits, -, ' and _ only",
                       kUsageError);
  }
  if (unit && !unit->empty() && !isTagName(*unit)) {
    throw CommandError("\"" + *unit + "\" cannot be a unit: use letters, digits, -, ' and _ only",
                       kUsageError);
  }
  MoodAppDelegate& app = journalSession(cli);
  auto tag = requireTag(app.store(), oldName);
  // The rename finds the row by its exact spelling.
  std::string stored = tag->tagName();
  auto renamed = updateMoodTag(app.store(), stored, newName, unit ? unit : tag->tagUnit());
  if (auto error = app.store().lastSaveError()) {
    app.managedObjectContext()->rollback();
    throw CommandError("could not rename the tag: " + error->description + " (nothing was changed)");
  }
  if (cli.json()) {
    cli.printJson({{"renamed", stored},
                   {"name", renamed->tagName()},
                   {"unit", renamed->tagUnit() ? nlohmann::json(*renamed->tagUnit()) : nullptr},
                   {"records", renamed->moodRecords().size()}});
  } else {
    cli.out() << "Renamed #" << stored << " to #" << renamed->tagName() << " in "
              << renamed->moodRecords().size() << " records.\n";
  }
}

void runTagDelete(CliApp& cli, const std::string& text) {
  std::string name = stripHash(text);
  MoodAppDelegate& app = journalSession(cli);
  auto tag = app.store().tagWithExactName(name);
  if (!tag) tag = app.store().tagNamed(name);
  bool inList = false;
  for (const auto& word : readEmotionsList(app.directories().library)) inList = inList || word == name;
  if (!tag && !inList) throw CommandError("no tag named \"" + name + "\" (see `lumeo tags`)");
  std::string stored = tag ? tag->tagName() : name;
  std::size_t records = tag ? tag->moodRecords().size() : 0;
  removeMoodTag(app.store(), tag, stored, app.directories().library);
  if (auto error = app.store().lastSaveError()) {
    app.managedObjectContext()->rollback();
    throw CommandError("could not delete the tag: " + error->description);
  }
  if (cli.json()) {
    cli.printJson({{"deleted", stored}, {"records", records}});
  } else {
    cli.out() << "Deleted #" << stored << " from " << records << " records.\n";
  }
}

// --- values and completion -----------------------------------------------------

void runValues(CliApp& cli) {
  MoodAppDelegate& app = journalSession(cli);
  MoodThirdValueTable table;
  for (const auto& description : app.store().allDescriptions()) {
    if (description->comment()) table.addComment(*description->comment());
  }
  auto keys = table.orderedKeys();
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& key : keys) {
      const MoodThirdValue& v = table.values().at(key);
      list.push_back({{"key", key},
                      {"tag", v.tagName},
                      {"unit", v.unitValue},
                      {"min", v.minValue},
                      {"max", v.maxValue},
                      {"count", v.count}});
    }
    cli.printJson(list);
    return;
  }
  if (keys.empty()) {
    cli.out() << "No tag values yet. Write them as #sleep:8h.\n";
    return;
  }
  cli.out() << "TAG                   UNIT          MIN        MAX  COUNT\n";
  for (const auto& key : keys) {
    const MoodThirdValue& v = table.values().at(key);
    char line[200];
    std::snprintf(line, sizeof line, "%-21s %-8s %10g %10g  %5ld\n", ("#" + v.tagName).c_str(),
                  v.unitValue.c_str(), v.minValue, v.maxValue, v.count);
    cli.out() << line;
  }
}

void runComplete(CliApp& cli, const std::string& text) {
  std::string typed = stripHash(text);
  if (!typed.empty() && !isTagName(typed)) {
    throw CommandError("\"" + text + "\" is not the start of a tag: use letters, digits, -, ' and _ only",
                       kUsageError);
  }
  MoodAppDelegate& app = journalSession(cli);
  SuggestedTags suggestions(app.store(), app.directories().library, CompletionSort::kFrequencyThenName);
  auto options = suggestions.completionOptionsForString(typed);
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& tag : options) {
      list.push_back(
          {{"name", tag->tagName()}, {"frequency", tag->frequency()}, {"suggestion", tag->isInserted()}});
    }
    cli.printJson(list);
    return;
  }
  for (const auto& tag : options) {
    cli.out() << "#" << tag->tagName();
    if (tag->isInserted()) {
      cli.out() << "  (suggestion)";
    } else {
      cli.out() << "  " << tag->frequency();
    }
    cli.out() << "\n";
  }
}

// --- template ---------------------------------------------------------------------

void runTemplateShow(CliApp& cli) {
  journalSession(cli);
  auto text = MoodUserDefaultsOperator::sharedOperator().templateText();
  if (cli.json()) {
    cli.printJson({{"template", text ? nlohmann::json(*text) : nullptr}});
  } else if (!text || text->empty()) {
    cli.out() << "No template: new records start empty.\n";
  } else {
    cli.out() << *text << "\n";
  }
}

void runTemplateSet(CliApp& cli, const std::string& text) {
  requireUtf8(text, "the template");
  MoodAppDelegate& app = journalSession(cli);
  if (auto error = MoodUserDefaultsOperator::sharedOperator().setTemplateText(text)) {
    throw CommandError("could not store the template: " + error->description);
  }
  if (!app.defaults().synchronize()) throw CommandError("could not write the settings file");
  if (cli.json()) {
    cli.printJson({{"template", text}});
  } else {
    cli.out() << (text.empty() ? "Template cleared.\n" : "Template set.\n");
  }
}

// --- levels -----------------------------------------------------------------------

void printLevels(CliApp& cli) {
  MoodLevelsPresentation levels(MoodLevelTableFiles::current());
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (long level = 10; level >= 1; --level) {
      auto p = levels.presentationForMoodLevel(level);
      if (p) list.push_back({{"level", level}, {"text", p->text}, {"color", p->baseColor.toHex()}});
    }
    cli.printJson(list);
    return;
  }
  for (long level = 10; level >= 1; --level) {
    auto p = levels.presentationForMoodLevel(level);
    if (!p) continue;
    char line[160];
    std::snprintf(line, sizeof line, "%3ld  %s  %s\n", level, p->baseColor.toHex().c_str(), p->text.c_str());
    cli.out() << line;
  }
  MoodUserDefaultsOperator defaults(UserDefaults::standard());
  if (defaults.gradientColorEnabled()) {
    cli.out() << "Gradient on: " << defaults.fromColor().toHex() << " " << defaults.middleColor().toHex()
              << " " << defaults.toColor().toHex() << "\n";
  }
}

void runLevelsSet(CliApp& cli, const std::string& levelText, const std::optional<std::string>& text,
                  const std::optional<std::string>& colorText) {
  long level = parseLevelOption(levelText);
  std::optional<Color> color;
  if (colorText) {
    color = Color::fromHex(*colorText);
    if (!color) throw CommandError("a colour is written #RRGGBB, not \"" + *colorText + "\"", kUsageError);
  }
  if (text && text->empty()) throw CommandError("a level's text cannot be empty", kUsageError);
  if (text) requireUtf8(*text, "the level's text");
  if (!text && !color) throw CommandError("give the level's new --text or --color", kUsageError);
  journalSession(cli);
  MoodLevelTableFiles files = MoodLevelTableFiles::current();
  Value::Array table = moodLevelTable(files);
  std::size_t index = static_cast<std::size_t>(10 - level);
  if (index >= table.size()) throw CommandError("the level table holds no level " + levelText);
  MoodLevelPresentation current = presentationFromTableEntry(table[index]);
  table[index] = tableEntryFromPresentation(text.value_or(current.text), color.value_or(current.baseColor));
  if (auto error = writeMoodLevelTable(files, table)) {
    throw CommandError("could not write the level table: " + error->description);
  }
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
  printLevels(cli);
}

void runLevelsReset(CliApp& cli) {
  journalSession(cli);
  // The level editor's reset: the user's table goes, and so does the
  // gradient mode.
  MoodUserDefaultsOperator defaults(UserDefaults::standard());
  MoodCaptureEditViewController editor(MoodLevelTableFiles::current(), defaults);
  editor.viewDidLoad();
  editor.resetToShippedLevels();
  if (std::filesystem::exists(MoodLevelTableFiles::current().applicationNewCaptionURL()))
    throw CommandError("could not remove the level table");
  printLevels(cli);
}

// The level editor's gradient: the three colours (level 10, the middle,
// level 1) colour all ten levels, as choosing them on the screen does.
struct GradientOptions {
  std::optional<std::string> from, middle, to;
  bool off = false;
};

void runLevelsGradient(CliApp& cli, const GradientOptions& options) {
  const std::array<const std::optional<std::string>*, 3> given = {&options.from, &options.middle,
                                                                  &options.to};
  std::array<std::optional<Color>, 3> colors;
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (!*given[i]) continue;
    colors[i] = Color::fromHex(**given[i]);
    if (!colors[i])
      throw CommandError("a colour is written #RRGGBB, not \"" + **given[i] + "\"", kUsageError);
  }
  journalSession(cli);
  MoodUserDefaultsOperator defaults(UserDefaults::standard());
  MoodCaptureEditViewController editor(MoodLevelTableFiles::current(), defaults);
  editor.viewDidLoad();
  if (options.off) {
    editor.setGradientMode(false);
  } else {
    bool chosen = false;
    for (int tag = 0; tag < 3; ++tag) {
      if (!colors[static_cast<std::size_t>(tag)]) continue;
      editor.selectColor(tag);
      editor.colorPickerDidChangeSelection(*colors[static_cast<std::size_t>(tag)]);
      chosen = true;
    }
    if (!chosen) editor.setGradientMode(true);
  }
  editor.done();
  if (!std::filesystem::exists(MoodLevelTableFiles::current().applicationNewCaptionURL()))
    throw CommandError("could not write the level table");
  if (!cli.json() && !defaults.gradientColorEnabled()) cli.out() << "Gradient off\n";
  printLevels(cli);
}

// --- registration ---------------------------------------------------------------

void registerCommands(CliApp& cli) {
  auto edit = std::make_shared<EditOptions>();
  CLI::App* editCmd = cli.root().add_subcommand("edit", "Change a record as the editor does");
  editCmd->add_option("ID", edit->id, "Record ID as `lumeo list` shows it")->required();
  editCmd->add_option("-l,--level", edit->level, "New mood level, 1 to 10")->type_name("N");
  auto* editComment =
      editCmd->add_option("-c,--comment", edit->comment, "New text; #tags in it become the record's tags")
          ->type_name("TEXT");
  editCmd
      ->add_option("--comment-file", edit->commentFile, "Read the new text from FILE (- for standard input)")
      ->type_name("FILE")
      ->excludes(editComment);
  auto* photoOpt = editCmd->add_option("--photo", edit->photo, "A picture file (JPEG or PNG) to attach")
                       ->type_name("FILE");
  auto* noPhotoOpt = editCmd->add_flag("--no-photo", edit->noPhoto, "Remove the record's photo");
  photoOpt->excludes(noPhotoOpt);
  editCmd->add_option("--at", edit->at, "New date and time (not in the future)")->type_name("WHEN");
  auto* placeOpt = editCmd->add_option("--place", edit->place, "Put the record at this position, in degrees")
                       ->type_name("LAT,LON");
  auto* noPlaceOpt = editCmd->add_flag("--no-place", edit->noPlace, "Remove the record's position");
  placeOpt->excludes(noPlaceOpt);
  editCmd->callback([&cli, edit] { runEdit(cli, *edit); });

  CLI::App* tagsCmd = cli.root().add_subcommand("tags", "List tags with unit, use count and average level");
  tagsCmd->callback([&cli] { runTags(cli); });

  CLI::App& tag = cli.noun("tag", "Rename or delete a tag in every record");
  auto renameOld = std::make_shared<std::string>();
  auto renameNew = std::make_shared<std::string>();
  auto renameUnit = std::make_shared<std::optional<std::string>>();
  CLI::App* renameCmd = tag.add_subcommand("rename", "Rename a tag and rewrite the comments that hold it");
  renameCmd->add_option("OLD", *renameOld, "Current name")->required();
  renameCmd->add_option("NEW", *renameNew, "New name")->required();
  renameCmd->add_option("--unit", *renameUnit, "The tag's unit (kept when not given)")->type_name("U");
  renameCmd->callback(
      [&cli, renameOld, renameNew, renameUnit] { runTagRename(cli, *renameOld, *renameNew, *renameUnit); });
  auto deleteName = std::make_shared<std::string>();
  CLI::App* deleteCmd = tag.add_subcommand("delete", "Delete a tag and remove it from the comments");
  deleteCmd->add_option("NAME", *deleteName, "Tag name")->required();
  deleteCmd->callback([&cli, deleteName] { runTagDelete(cli, *deleteName); });

  CLI::App* valuesCmd = cli.root().add_subcommand("values", "Tag values (#sleep:8h) by tag and unit");
  valuesCmd->callback([&cli] { runValues(cli); });

  auto prefix = std::make_shared<std::string>();
  CLI::App* completeCmd = cli.root().add_subcommand("complete", "Tags the editor offers for a typed start");
  completeCmd->add_option("PREFIX", *prefix, "What was typed after #; empty for all")->required();
  completeCmd->callback([&cli, prefix] { runComplete(cli, *prefix); });

  CLI::App& templ = cli.noun("template", "The text every new record starts with");
  templ.add_subcommand("show", "Print the template")->callback([&cli] { runTemplateShow(cli); });
  auto templateText = std::make_shared<std::string>();
  CLI::App* setTemplate = templ.add_subcommand("set", "Set the template (\"\" clears it)");
  setTemplate->add_option("TEXT", *templateText, "Template text")->required();
  setTemplate->callback([&cli, templateText] { runTemplateSet(cli, *templateText); });

  CLI::App& levels = cli.noun("levels", "The texts and colours of the ten mood levels");
  levels.add_subcommand("show", "Print the level table")->callback([&cli] {
    journalSession(cli);
    printLevels(cli);
  });
  auto levelNumber = std::make_shared<std::string>();
  auto levelText = std::make_shared<std::optional<std::string>>();
  auto levelColor = std::make_shared<std::optional<std::string>>();
  CLI::App* setLevel = levels.add_subcommand("set", "Change one level's text or colour");
  setLevel->add_option("LEVEL", *levelNumber, "Level, 1 to 10")->required();
  setLevel->add_option("--text", *levelText, "The level's text")->type_name("TEXT");
  setLevel->add_option("--color", *levelColor, "The level's colour")->type_name("#RRGGBB");
  setLevel->callback([&cli, levelNumber, levelText, levelColor] {
    runLevelsSet(cli, *levelNumber, *levelText, *levelColor);
  });
  levels.add_subcommand("reset", "Go back to the shipped levels")->callback([&cli] { runLevelsReset(cli); });
  auto gradient = std::make_shared<GradientOptions>();
  CLI::App* gradientCmd = levels.add_subcommand(
      "gradient", "Colour the ten levels from three colours (level 10, middle, level 1)");
  auto* fromOpt =
      gradientCmd->add_option("--from", gradient->from, "Level 10's colour")->type_name("#RRGGBB");
  auto* middleOpt =
      gradientCmd->add_option("--middle", gradient->middle, "The middle colour")->type_name("#RRGGBB");
  auto* toOpt = gradientCmd->add_option("--to", gradient->to, "Level 1's colour")->type_name("#RRGGBB");
  auto* offOpt = gradientCmd->add_flag("--off", gradient->off,
                                       "End the gradient; the levels keep the colours they have");
  offOpt->excludes(fromOpt)->excludes(middleOpt)->excludes(toOpt);
  gradientCmd->callback([&cli, gradient] { runLevelsGradient(cli, *gradient); });
}

const CommandRegistration kCaptureCommands(20, registerCommands);

// A small photo drawn in code: a gradient in the level's colour.
Image demoPicture(long level) {
  Canvas canvas(480, 360);
  Color color =
      MoodLevelsPresentation().presentationForMoodLevel(level).value_or(MoodLevelPresentation{}).baseColor;
  canvas.fillLinearGradient({0, 0, 480, 360}, {0, 0}, {480, 360}, {color, Color(1, 1, 1)});
  return canvas.image();
}

const DemoStep kCaptureDemo(20, "Capture: tags with values and photos", [](CliApp& cli) {
  MoodAppDelegate& app = journalSession(cli);
  struct Sample {
    long level;
    double hoursAgo;
    const char* comment;
    bool photo;
  };
  static const Sample kSamples[] = {
      {8, 30, "Morning run #running:6.5km then #coffee:2 with #friends", true},
      {4, 26, "Short night #sleep:5h, long meeting #work", false},
      {7, 20, "Slept #sleep:7.5h, lunch outside #walk:3km", true},
      {9, 6, "Lake trip #walk:12km #friends #sleep:8h", true},
  };
  for (const Sample& s : kSamples) {
    CaptureInput input;
    input.level = s.level;
    input.date = Date::now().dateByAddingTimeInterval(-s.hoursAgo * 3600);
    input.comment = s.comment;
    if (s.photo) input.photo = pickedPhotoFromImage(demoPicture(s.level));
    captureRecord(app, input);
  }
  cli.out() << "Added " << std::size(kSamples) << " records, three with photos. Tag values:\n";
  runValues(cli);
  cli.out() << "Offers for \"#s\":\n";
  runComplete(cli, "s");
});

}  // namespace

std::shared_ptr<MoodRecord> captureRecord(MoodAppDelegate& app, const CaptureInput& input) {
  (void)app;
  NewRecordInput record;
  record.level = input.level;
  record.date = input.date;
  record.comment = input.comment;
  if (input.photo) {
    record.photo = input.photo->photo;
    record.thumb = input.photo->thumb;
  }
  record.place = input.place;
  auto made = captureNewRecord(RecordStateServices::fromSharedDelegate(),
                               MoodUserDefaultsOperator::sharedOperator(), record);
  if (auto* error = std::get_if<Error>(&made)) {
    throw CommandError("could not save the record: " + error->description + " (nothing was changed)");
  }
  return std::get<std::shared_ptr<MoodRecord>>(made);
}

}  // namespace lumeo::cli
