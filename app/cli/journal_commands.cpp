// lumeo add, list, show and delete, and the journal session: the CLI runs
// the application's launch sequence before the first journal command and
// its termination step after the command, as the GUI does around its run.
//
// Records are named on the command line by their row number in the store
// (the number in the record's object URI), which stays the same for the
// record's life.
#include "journal_commands.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <regex>
#include <set>

#include "browse_commands.h"
#include "capture/mood_levels_presentation.h"
#include "capture/tag_extraction.h"
#include "capture_commands.h"
#include "cli_app.h"
#include "map_commands.h"
#include "objectgraph/managed_object_context.h"
#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/plist_user_defaults.h"
#include "platform/linux/secret_service_store.h"
#include "platform/log.h"
#include "platform/user_date_parser.h"
#include "record_json.h"
#include "shell/mood_app_delegate.h"
#include "shell/resources_location.h"
#include "store/journal_lock.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/settings_keys.h"

namespace lumeo::cli {

namespace {

std::unique_ptr<MoodAppDelegate>& sessionSlot() {
  static std::unique_ptr<MoodAppDelegate> app;
  return app;
}

// The journal's writer lock. A command that changes the journal holds it
// from before the launch reads anything (the settings, the store) until it
// has saved and terminated; a command that only reads takes none.
std::optional<JournalLock>& sessionLock() {
  static std::optional<JournalLock> lock;
  return lock;
}

// The command as typed, without its options: "list", "backup create".
std::string commandPath(CliApp& app) {
  std::string path;
  const CLI::App* level = &app.root();
  for (;;) {
    const auto used = level->get_subcommands();
    if (used.empty()) return path;
    level = used.front();
    path += (path.empty() ? "" : " ") + level->get_name();
  }
}

// Commands that only read the journal. They may run for long (a report, a
// backup of many photos) and take no writer lock, so that the GUI and other
// commands write meanwhile; SQLite keeps each of their reads whole. Every
// other command writes and holds the lock for its whole run, so that its
// reads and writes see nobody else's in between; it takes milliseconds.
bool commandOnlyReads(CliApp& app) {
  static const std::set<std::string> kReaders = {"list",
                                                 "show",
                                                 "history",
                                                 "calendar",
                                                 "photos",
                                                 "tags",
                                                 "values",
                                                 "summary",
                                                 "graph",
                                                 "complete",
                                                 "map",
                                                 "template show",
                                                 "levels show",
                                                 "export csv",
                                                 "export pdf",
                                                 "export photos",
                                                 "backup create",
                                                 "backup verify",
                                                 "reminders sounds",
                                                 "lock status",
                                                 "sync status",
                                                 "place search",
                                                 "place reverse"};
  return kReaders.count(commandPath(app)) > 0;
}

void takeSessionLock(const DataDirectories& dirs) {
  if (sessionLock()) return;
  auto lock = JournalLock::acquire(dirs.library);
  if (auto* error = std::get_if<Error>(&lock)) throw CommandError(error->description);
  sessionLock() = std::move(std::get<JournalLock>(lock));
}

void launch(CliApp& app) {
  DataDirectories dirs = DataDirectories::current();
  if (!dirs.create())
    throw CommandError("cannot make Lumeo's folders under " + dirs.library.parent_path().string());
  // A writing command reads the journal and the settings only once every
  // other writer has written them.
  const bool writes = !commandOnlyReads(app);
  if (writes) takeSessionLock(dirs);
  PlistUserDefaults::installStandard();
  // The first start of a journal resets its passcode and cloud links; a
  // reading command's launch does that under the lock too, so that it
  // never undoes what a writer sets up at the same moment. Other launches
  // write only settings keys that are missing, each on its own.
  if (UserDefaults::standard()->objectForKey(kMoodFirstStart).isNull()) takeSessionLock(dirs);
  // The level words of the share text come from the user's level table.
  MoodLevelTableFiles::setCurrent({dirs.library, resourcesDirectory() / "mood.plist"});
  MoodAppDelegate::setLevelTextProvider([](long level) {
    auto presentation = MoodLevelsPresentation().presentationForMoodLevel(level);
    return presentation ? presentation->text : std::to_string(level);
  });
  // The launch copies the feeling words from the resources folder, as the
  // GUI's does.
  ApplicationDirectories appDirs{dirs.library, dirs.documents, resourcesDirectory()};
  auto delegate = std::make_unique<MoodAppDelegate>(appDirs, ShellServices{});
  // The image store is cleaned before commands that change the journal, as
  // the desktop application cleans it at every launch; a command that only
  // reads skips the scan of every description (and, holding no lock, could
  // take a photo that another command is adding for an orphan).
  LaunchOptions options;
  options.cleanImageStore = writes;
  delegate->applicationDidFinishLaunchingWithOptions(options);
  // No splash animation on a terminal: the completion runs at once.
  delegate->splash()->viewDidAppear(false);
  delegate->applicationDidBecomeActive();
  // The launch itself refuses to take a store it cannot open for a new
  // journal; the command stops here and says why.
  if (auto error = delegate->store().storeOpenError()) {
    if (error->domain == kJournalStoreErrorDomain) throw CommandError(error->description);
    throw CommandError("cannot open the journal store " + delegate->storeURL().string() + ": " +
                       error->description);
  }
  sessionSlot() = std::move(delegate);
  app.runOpenHooks();
  if (!writes) sessionLock().reset();
}

void terminate(CliApp& cli) {
  // The lock goes last, also when a step before it failed.
  struct ReleaseLockLast {
    ~ReleaseLockLast() { sessionLock().reset(); }
  } releaseLockLast;
  auto& app = sessionSlot();
  if (!app) return;
  // A reading command saves nothing; should its context hold changes all
  // the same, they are saved under the lock like any other write.
  auto context = app->managedObjectContext();
  if (!sessionLock() && context && context->hasChanges()) {
    try {
      takeSessionLock(DataDirectories::current());
    } catch (const CommandError& error) {
      LUMEO_LOG_ERROR("Changes left unsaved: %@", std::string(error.what()));
      context->rollback();
    }
  }
  app->applicationWillTerminate();
  app.reset();
  // Then what the session keeps beside the journal (the sync event log of
  // its saves) is written and closed, still under the lock: a writer that
  // starts once the lock is free finds all of it on disk, and nothing of
  // ours comes after.
  cli.runCloseHooks();
}

// --- Dates ----------------------------------------------------------------

struct ParsedDate {
  Date date;
  bool hasTime = false;
};

std::optional<ParsedDate> readUserDate(const std::string& raw) {
  std::string text = raw;
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.erase(0, 1);
  if (text.empty()) return std::nullopt;
  Calendar calendar = Calendar::current();
  if (text == "now") return ParsedDate{Date::now(), true};
  if (text == "today") return ParsedDate{calendar.startOfDay(Date::now()), false};
  if (text == "yesterday") {
    auto d = calendar.dateByAddingUnit(CalendarUnit::kDay, -1, calendar.startOfDay(Date::now()));
    if (d) return ParsedDate{*d, false};
  }
  // ISO 8601 or the user's locale; a text without a time names a day.
  auto date = parseUserDate(text, calendar);
  if (!date) return std::nullopt;
  return ParsedDate{*date, text.find(':') != std::string::npos};
}

Date requireDate(const std::string& text, const std::string& what, bool endOfDay) {
  auto parsed = readUserDate(text);
  if (!parsed) {
    std::string example = DateFormatter::localizedStringFromDate(Date::now(), DateFormatter::Style::kShort,
                                                                 DateFormatter::Style::kShort);
    throw CommandError("cannot read the " + what + " \"" + text +
                           "\": write it as 2026-11-22, 2026-11-22T14:30 or as your locale writes it (" +
                           example + ")",
                       2);
  }
  if (endOfDay && !parsed->hasTime) {
    // "--to 2026-11-22" means the whole of that day.
    Calendar calendar = Calendar::current();
    if (auto next = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, parsed->date)) {
      return next->dateByAddingTimeInterval(-0.001);
    }
  }
  return parsed->date;
}

std::string shortText(Date date) {
  DateFormatter formatter("yyyy-MM-dd HH:mm");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

// --- Records --------------------------------------------------------------

long parseLevel(const std::string& text) {
  long level = 0;
  try {
    level = parseInteger(text, "LEVEL");
  } catch (const CommandError&) {
    throw CommandError(
        "the mood level must be a whole number from 1 (worst) to 10 (best), not \"" + text + "\"", 2);
  }
  if (level < 1 || level > 10) {
    throw CommandError("the mood level must be a whole number from 1 (worst) to 10 (best), not " + text, 2);
  }
  return level;
}

// Links the record to the tags named in its comment, making tags that do
// not exist yet; a tag is found by its name up to case and accents.
void applyCommentTags(JournalStore& store, const std::shared_ptr<MoodRecord>& record,
                      const std::string& comment) {
  auto context = store.managedObjectContext();
  for (const ExtractedTag& extracted : extractTagsForRecord(comment)) {
    auto matches = store.tagsNamedLike(extracted.tagName);
    std::shared_ptr<MoodTag> tag = matches.empty() ? nullptr : matches.front();
    if (!tag) {
      tag = context->insertNewObject<MoodTag>(kMoodTagEntity);
      tag->setTagName(extracted.tagName);
    } else if (tag->tagName() != extracted.tagName) {
      tag->setTagName(extracted.tagName);  // the latest spelling wins
    }
    tag->setTagUnit(unitAfterApply(tag->tagUnit(), extracted));
    record->addMoodTagsObject(tag);
  }
}

std::shared_ptr<MoodRecord> requireRecord(JournalStore& store, const std::string& text) {
  std::int64_t id = 0;
  try {
    id = parseInteger(text, "ID");
  } catch (const CommandError&) {
    throw CommandError("a record ID is the number that `lumeo list` shows, not \"" + text + "\"", 2);
  }
  auto record = id > 0 ? store.recordWithRowNumber(id) : nullptr;
  if (!record) throw CommandError("no record with ID " + text + " (see `lumeo list`)");
  return record;
}

void saveOrFail(MoodAppDelegate& app, const std::string& what) {
  app.saveContext();
  if (auto error = app.store().lastSaveError()) {
    app.managedObjectContext()->rollback();
    throw CommandError("could not " + what + ": " + error->description + " (nothing was changed)");
  }
}

void printRecordLine(CliApp& app, const MoodRecord& record) {
  auto description = record.moodDescription();
  std::string comment = description ? description->comment().value_or("") : "";
  char head[64];
  std::snprintf(head, sizeof head, "%6lld  %s  %2ld  ", static_cast<long long>(recordID(record)),
                record.date() ? shortText(*record.date()).c_str() : "                ", record.moodLevel());
  app.out() << head << oneLine(comment, 60) << "\n";
}

// --- Commands ---------------------------------------------------------------

struct AddOptions {
  std::string level;
  std::optional<std::string> comment;
  std::optional<std::string> commentFile;
  std::optional<std::string> at;
  std::optional<std::string> photo;
  std::optional<std::string> place;
  bool here = false;
};

void runAdd(CliApp& cli, const AddOptions& options) {
  long level = parseLevel(options.level);
  Date when = options.at ? requireDate(*options.at, "date", false) : Date::now();
  // As in the editor, whose date picker stops at now.
  if (when > Date::now()) {
    throw CommandError("a record cannot lie in the future (\"" + *options.at + "\")", kUsageError);
  }
  std::optional<std::string> comment = options.comment;
  if (comment) requireUtf8(*comment, "the comment");
  if (options.commentFile) comment = readCommentFile(*options.commentFile);
  // Photo and place are read before the journal opens, so bad input
  // changes nothing. The editor's apply makes the tag links and stores the
  // pictures.
  CaptureInput input;
  input.level = level;
  input.date = when;
  input.comment = comment;
  if (options.photo) input.photo = readPickedPhoto(*options.photo);
  if (options.place) input.place = parsePlace(*options.place);
  if (options.here) input.place = currentPlace();
  MoodAppDelegate& app = journalSession(cli);
  auto record = captureRecord(app, input);
  if (cli.json()) {
    cli.printJson(recordJson(*record));
  } else {
    cli.out() << "Added record " << recordID(*record) << ": level " << level << " on " << shortText(when)
              << "\n";
  }
}

struct ListOptions {
  std::optional<std::string> from;
  std::optional<std::string> to;
  long limit = 100;
};

void runList(CliApp& cli, const ListOptions& options) {
  Date from = options.from ? requireDate(*options.from, "start date", false) : Date::distantPast();
  Date to = options.to ? requireDate(*options.to, "end date", true) : Date::distantFuture();
  if (options.limit < 0) throw CommandError("--limit must be 0 (all) or more", 2);
  if (to < from) throw CommandError("the end date lies before the start date", 2);
  MoodAppDelegate& app = journalSession(cli);
  auto records = app.store().newestRecordsFrom(from, to, static_cast<std::size_t>(options.limit));
  if (cli.json()) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& record : records) list.push_back(recordJson(*record));
    cli.printJson(list);
    return;
  }
  if (records.empty()) {
    cli.out() << "No records" << (options.from || options.to ? " in that period" : " yet") << ".\n";
    return;
  }
  cli.out() << "    ID  DATE              LV  COMMENT\n";
  for (const auto& record : records) printRecordLine(cli, *record);
}

void runShow(CliApp& cli, const std::string& id, bool share) {
  MoodAppDelegate& app = journalSession(cli);
  auto record = requireRecord(app.store(), id);
  if (share) {
    std::string text = MoodAppDelegate::shareTextForRecord(*record);
    if (cli.json()) {
      cli.printJson({{"id", recordID(*record)}, {"text", text}});
    } else {
      cli.out() << text << "\n";
    }
    return;
  }
  if (cli.json()) {
    cli.printJson(recordJson(*record));
    return;
  }
  auto description = record->moodDescription();
  cli.out() << "Record " << recordID(*record) << "\n"
            << "  date     " << (record->date() ? shortText(*record->date()) : std::string("-")) << "\n"
            << "  level    " << record->moodLevel() << "\n";
  if (description && description->comment()) cli.out() << "  comment  " << *description->comment() << "\n";
  auto tags = record->moodTags();
  if (!tags.empty()) {
    cli.out() << "  tags    ";
    for (const auto& tag : tags) cli.out() << " #" << tag->tagName();
    cli.out() << "\n";
  }
  if (description && description->hasPosition()) {
    cli.out() << "  place    " << description->latitude() << ", " << description->longitude() << "\n";
  }
  cli.out() << "  identity " << record->uniqueIdentifier().value_or("-") << "\n";
}

void runDelete(CliApp& cli, const std::string& id, bool yes) {
  MoodAppDelegate& app = journalSession(cli);
  auto record = requireRecord(app.store(), id);
  if (!yes) {
    if (!cli.interactive()) {
      throw CommandError("deleting needs --yes when not run on a terminal", 2);
    }
    cli.out()
        << "Wait a moment!\n"
        << "Deleting your genuine mood records may compromise statistics and cannot be undone. You will only "
           "benifit from being honest to yourself about both pleasant & unpleasant memories. Do you really "
           "want to delete selected record?\n";
    printRecordLine(cli, *record);
    cli.out() << "Yes or No? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes" && answer != "Yes") {
      cli.out() << "Kept record " << id << ".\n";
      return;
    }
  }
  std::int64_t row = recordID(*record);
  if (auto error = app.store().deleteRecord(record))
    throw CommandError("could not delete the record: " + error->description + " (nothing was changed)");
  saveOrFail(app, "delete the record");
  if (cli.json()) {
    cli.printJson({{"deleted", row}});
  } else {
    cli.out() << "Deleted record " << row << ".\n";
  }
}

void registerCommands(CliApp& cli) {
  cli.addStartHook(launch);
  cli.addStopHook(terminate);

  auto add = std::make_shared<AddOptions>();
  CLI::App* addCmd =
      cli.root().add_subcommand("add", "Record how you feel: a level from 1 (worst) to 10 (best)");
  addCmd->add_option("LEVEL", add->level, "Mood level, 1 to 10")->required();
  auto* commentOpt = addCmd
                         ->add_option("-c,--comment", add->comment,
                                      "Text of the record; #tags in it become tags (default: the template)")
                         ->type_name("TEXT");
  addCmd->add_option("--comment-file", add->commentFile, "Read the text from FILE (- for standard input)")
      ->type_name("FILE")
      ->excludes(commentOpt);
  addCmd
      ->add_option("--at", add->at, "When (default now): 2026-11-22T14:30, 2026-11-22 or your locale's form")
      ->type_name("WHEN");
  addCmd->add_option("--photo", add->photo, "A picture file (JPEG or PNG) to attach")->type_name("FILE");
  CLI::Option* placeOpt =
      addCmd->add_option("--place", add->place, "Where, as LAT,LON in degrees")->type_name("LAT,LON");
  addCmd->add_flag("--here", add->here, "Where you are now, from the desktop's location service (GeoClue)")
      ->excludes(placeOpt);
  addCmd->callback([&cli, add] { runAdd(cli, *add); });

  auto list = std::make_shared<ListOptions>();
  CLI::App* listCmd = cli.root().add_subcommand("list", "List records, newest first");
  listCmd->add_option("--from", list->from, "First day or moment to list")->type_name("DATE");
  listCmd->add_option("--to", list->to, "Last day or moment to list (a day counts whole)")->type_name("DATE");
  listCmd->add_option("-n,--limit", list->limit, "At most this many records (0: all)")
      ->capture_default_str()
      ->type_name("N");
  listCmd->callback([&cli, list] { runList(cli, *list); });

  auto showId = std::make_shared<std::string>();
  auto share = std::make_shared<bool>(false);
  CLI::App* showCmd = cli.root().add_subcommand("show", "Show one record");
  showCmd->add_option("ID", *showId, "Record ID as `lumeo list` shows it")->required();
  showCmd->add_flag("--share", *share, "Print the text the share sheet offers");
  auto png = std::make_shared<std::string>();
  auto pngWidth = std::make_shared<long>(320);
  showCmd->add_option("--png", *png, "Draw the comment as tagged text into a PNG file")->type_name("FILE");
  showCmd->add_option("--width", *pngWidth, "Width of that picture in points")->capture_default_str();
  showCmd->callback([&cli, showId, share, png, pngWidth] {
    if (png->empty()) return runShow(cli, *showId, *share);
    MoodAppDelegate& app = journalSession(cli);
    writeCommentPicture(cli, *requireRecord(app.store(), *showId), *png, *pngWidth);
  });

  auto deleteId = std::make_shared<std::string>();
  auto yes = std::make_shared<bool>(false);
  CLI::App* deleteCmd = cli.root().add_subcommand("delete", "Delete one record (asks first on a terminal)");
  deleteCmd->add_option("ID", *deleteId, "Record ID as `lumeo list` shows it")->required();
  deleteCmd->add_flag("-y,--yes", *yes, "Delete without asking");
  deleteCmd->callback([&cli, deleteId, yes] { runDelete(cli, *deleteId, *yes); });
}

const CommandRegistration kJournalCommands(10, registerCommands);

const DemoStep kJournalDemo(10, "Journal: four weeks of records", [](CliApp& cli) {
  MoodAppDelegate& app = journalSession(cli);
  std::size_t made = fillDemoJournal(app.store());
  cli.out() << "Made " << made << " sample records. The newest five:\n";
  ListOptions options;
  options.limit = 5;
  bool json = cli.json();
  if (json) {
    auto records = app.store().newestRecordsFrom(Date::distantPast(), Date::distantFuture(), 5);
    nlohmann::json list = nlohmann::json::array();
    for (const auto& record : records) list.push_back(recordJson(*record));
    cli.printJson(list);
  } else {
    runList(cli, options);
  }
});

}  // namespace

std::string isoText(Date date) {
  DateFormatter formatter("yyyy-MM-dd'T'HH:mm:ssXXX");
  formatter.setLocale("en_US_POSIX");
  return formatter.stringFromDate(date);
}

std::int64_t recordID(const MoodRecord& record) {
  return record.objectID().primaryKey();
}

std::string oneLine(std::string text, std::size_t width) {
  for (char& c : text) {
    if (c == '\n' || c == '\t' || c == '\r') c = ' ';
  }
  // Cut on a character boundary of UTF-8.
  if (text.size() > width) {
    std::size_t cut = width;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    text = text.substr(0, cut) + "...";
  }
  return text;
}

MoodAppDelegate& journalSession(CliApp& app) {
  // After closeJournalSession the start hooks (the passcode gate among
  // them) have run already; only the journal opens again.
  if (!sessionSlot()) app.startHooksRan() ? launch(app) : app.runStartHooks();
  if (!sessionSlot()) throw CommandError("the journal could not be opened");
  return *sessionSlot();
}

void closeJournalSession(CliApp& app) {
  terminate(app);
}

void holdJournalLock() {
  takeSessionLock(DataDirectories::current());
}

std::size_t fillDemoJournal(JournalStore& store, int days, std::uint32_t seed) {
  static const char* kComments[] = {
      "Slept well #sleep:8h and a long walk #walk",
      "Busy day at #work, too much coffee #coffee:3",
      "Dinner with friends #friends",
      "Tired #sleep:5h",
      "Quiet evening reading #reading",
      "Ran in the park #running:5km",
      "Headache all afternoon #work",
      "Cooked something new #cooking #friends",
  };
  std::mt19937 random(seed);
  Calendar calendar = Calendar::current();
  Date today = calendar.startOfDay(Date::now());
  std::size_t made = 0;
  for (int d = days - 1; d >= 0; --d) {
    auto day = calendar.dateByAddingUnit(CalendarUnit::kDay, -d, today);
    if (!day) continue;
    int perDay = 2 + static_cast<int>(random() % 2);
    for (int i = 0; i < perDay; ++i) {
      double hour = 8 + i * 5 + static_cast<double>(random() % 180) / 60.0;
      Date when = day->dateByAddingTimeInterval(hour * 3600);
      if (when > Date::now()) continue;
      // A weekly rhythm with some noise, better on weekends.
      int weekday = static_cast<int>(calendar.component(CalendarUnit::kWeekday, when));
      long level = 5 + (weekday == 1 || weekday == 7 ? 2 : 0) + static_cast<long>(random() % 4) - 1;
      level = std::clamp(level, 1L, 10L);
      auto record = store.insertRecordWithDescription();
      if (!record) return made;
      record->setMoodLevel(level);
      record->setDate(when);
      std::string comment = kComments[random() % std::size(kComments)];
      record->moodDescription()->setComment(comment);
      applyCommentTags(store, record, comment);
      ++made;
    }
  }
  store.saveContext();
  return made;
}

std::shared_ptr<SecretStore> journalKeyring() {
  if (!std::dynamic_pointer_cast<UnavailableSecretStore>(SecretStore::shared())) return SecretStore::shared();
  std::error_code ec;
  auto journal = std::filesystem::weakly_canonical(DataDirectories::current().library, ec);
  SecretStore::setShared(std::make_shared<SecretServiceStore>(journal.string()));
  return SecretStore::shared();
}

}  // namespace lumeo::cli
