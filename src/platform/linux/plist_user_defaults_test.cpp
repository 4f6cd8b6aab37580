// The settings file on disk: bad files are read as empty and kept, every
// value kind survives the file, writes are atomic even when a step fails, and
// two processes writing at once lose none of each other's keys.
#include "platform/linux/plist_user_defaults.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <set>

#include "platform/file_system.h"
#include "platform/linux/data_directories.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::readFile;
using testing::TempDir;
using testing::writeFile;

std::set<std::string> filesIn(const std::filesystem::path& dir) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.insert(entry.path().filename());
  return names;
}

// ---------------------------------------------------------------------------
// Files that are not a usable settings list

struct BadFile {
  const char* name;
  std::string contents;
};

std::string nestedArrays(int depth) {
  std::string s = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>";
  for (int i = 0; i < depth; ++i) s += "<array>";
  for (int i = 0; i < depth; ++i) s += "</array>";
  return s + "</dict></plist>";
}

class UnusableSettingsFileTest : public ::testing::TestWithParam<BadFile> {};

TEST_P(UnusableSettingsFileTest, ReadsAsNoKeysAndIsKeptUntilAndThroughAWrite) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  writeFile(file, GetParam().contents);
  {
    PlistUserDefaults defaults(file);
    EXPECT_TRUE(defaults.persistentDomain().empty());
    EXPECT_FALSE(defaults.boolForKey("MoodFirstStart"));
    defaults.registerDefaults({{"alarm", Value::Array{}}});
    EXPECT_TRUE(defaults.synchronize());
  }
  EXPECT_EQ(readFile(file), GetParam().contents) << "opening, reading and synchronizing never write";
  EXPECT_EQ(filesIn(dir.path()), std::set<std::string>{"defaults.plist"});

  PlistUserDefaults defaults(file);
  ASSERT_FALSE(defaults.setBool("MoodFirstStart", true));
  EXPECT_EQ(PlistUserDefaults(file).persistentDomain(), (Value::Dictionary{{"MoodFirstStart", true}}));
  if (GetParam().contents.empty()) {
    EXPECT_FALSE(std::filesystem::exists(dir / "defaults.plist.unreadable")) << "nothing to keep";
  } else {
    EXPECT_EQ(readFile(dir / "defaults.plist.unreadable"), GetParam().contents);
  }
}

INSTANTIATE_TEST_SUITE_P(
    BadFiles, UnusableSettingsFileTest,
    ::testing::Values(
        BadFile{"Empty", ""}, BadFile{"Text", "MoodFirstStart = YES\n"},
        BadFile{"TruncatedXml", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key><integer>1"},
        BadFile{"ArrayAtTop", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><true/></array></plist>"},
        BadFile{"Binary", std::string("\x00\x01\x02\xff\xfe", 5)},
        BadFile{"NestedAMillionDeep", nestedArrays(1000000)},
        // A binary list whose key holds a NUL: the library's binary reader
        // aborts on it, so binary lists are not read at all.
        BadFile{"BinaryListWithNulInKey",
                std::string("bplist00\xd1\x01\x02Sa\x00"
                            "bSc\x00"
                            "d\x08\x0b\x0f\x00\x00\x00\x00\x00"
                            "\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x03\x00\x00\x00\x00"
                            "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x13",
                            54)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PlistUserDefaultsTest, MissingFileReadsAsNoKeysAndIsNotCreatedByReading) {
  TempDir dir;
  const auto file = dir / "config" / "lumeo" / "defaults.plist";
  {
    PlistUserDefaults defaults(file);
    EXPECT_TRUE(defaults.persistentDomain().empty());
    EXPECT_TRUE(defaults.synchronize());
  }
  EXPECT_FALSE(std::filesystem::exists(file.parent_path()));
  PlistUserDefaults defaults(file);
  ASSERT_FALSE(defaults.setInteger("kMoodSummaryChartType", 3));
  EXPECT_EQ(PlistUserDefaults(file).integerForKey("kMoodSummaryChartType"), 3) << "folders are made on write";
}

TEST(PlistUserDefaultsTest, SecondUnreadableFileIsKeptUnderAnotherName) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  writeFile(file, "first damage");
  EXPECT_FALSE(PlistUserDefaults(file).setBool("a", true));
  writeFile(file, "second damage");
  EXPECT_FALSE(PlistUserDefaults(file).setBool("b", true));
  EXPECT_EQ(readFile(dir / "defaults.plist.unreadable"), "first damage");
  EXPECT_EQ(readFile(dir / "defaults.plist.unreadable-2"), "second damage");
  EXPECT_EQ(PlistUserDefaults(file).persistentDomain(), (Value::Dictionary{{"b", true}}));
}

TEST(PlistUserDefaultsTest, FileThatCannotBeReadIsNeverReplaced) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  std::filesystem::create_directory(file);  // reading a folder fails with EISDIR
  PlistUserDefaults defaults(file);
  OptionalError e = defaults.setBool("a", true);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code, kUserDefaultsWriteFailed);
  EXPECT_TRUE(std::filesystem::is_directory(file));
}

// ---------------------------------------------------------------------------
// Values through the file

Value::Dictionary everyKind() {
  return {
      {"yes", true},
      {"no", false},
      {"zero", 0},
      {"negative", -42},
      {"large", 9007199254740993LL},
      {"min", static_cast<long long>(INT64_MIN)},
      {"real", 0.1},
      {"tiny", -1.5e-300},
      {"empty text", ""},
      {"text", "Feeling <great> & \"calm\" — ünïcödé 😀\n\tline\r\n"},
      {"date", Date::fromTimeIntervalSince1970(1700000000)},
      {"old date", Date::fromTimeIntervalSince1970(-1000000)},
      {"data", Value::Data{0, 1, 2, 0xff, 0, 0x80}},
      {"empty data", Value::Data{}},
      {"alarm", Value::Array{Value::Dictionary{{"on", true},
                                               {"isPeriodic", 0},
                                               {"timeFrom", Date::fromTimeIntervalSinceReferenceDate(3600)},
                                               {"reminderText", "Time to check in"}},
                             Value::Dictionary{}}},
      {"nested",
       Value::Dictionary{{"list", Value::Array{Value(1), Value("two"), Value(3.5), Value::Array{}}}}},
  };
}

TEST(PlistUserDefaultsTest, EveryValueKindRoundTripsThroughTheFile) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  {
    PlistUserDefaults defaults(file);
    for (const auto& [key, value] : everyKind()) ASSERT_FALSE(defaults.setObject(key, value)) << key;
  }
  PlistUserDefaults reopened(file);
  Value::Dictionary back = reopened.persistentDomain();
  for (const auto& [key, value] : everyKind()) {
    ASSERT_TRUE(back.count(key)) << key;
    EXPECT_EQ(back.at(key).type(), value.type()) << key;
    EXPECT_EQ(back.at(key), value) << key;
  }
  EXPECT_EQ(back.size(), everyKind().size());

  // Each kind is stored as its own property-list type.
  std::string xml = readFile(file);
  EXPECT_NE(xml.find("<?xml"), std::string::npos);
  for (const char* tag : {"<true/>", "<false/>", "<integer>-42</integer>", "<real>",
                          "<date>2023-11-14T22:13:20Z</date>", "<data>", "<array>", "<dict>"}) {
    EXPECT_NE(xml.find(tag), std::string::npos) << tag;
  }
}

TEST(PlistUserDefaultsTest, FileIsReadableByAnotherPropertyListReader) {
  if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3 not installed";
  TempDir dir;
  const auto file = dir / "defaults.plist";
  {
    PlistUserDefaults defaults(file);
    for (const auto& [key, value] : everyKind()) EXPECT_FALSE(defaults.setObject(key, value));
  }
  const auto out = dir / "summary.txt";
  std::string cmd =
      "python3 -c 'import plistlib,sys,datetime\n"
      "d = plistlib.load(open(sys.argv[1], \"rb\"))\n"
      "print(d[\"negative\"], d[\"yes\"], d[\"data\"].hex(), d[\"date\"].isoformat(), "
      "d[\"alarm\"][0][\"reminderText\"], len(d))' '" +
      file.string() + "' > '" + out.string() + "'";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  EXPECT_EQ(readFile(out), "-42 True 000102ff0080 2023-11-14T22:13:20 Time to check in 16\n");
}

// The last-backup date and the reminder times must save in any year: the
// file's text form has four-digit years, unlike 32-bit seconds from 2001,
// which end in 1901 and 2038 (and, counted from 2001, in 1932 and 2069).
TEST(PlistUserDefaultsTest, DatesBefore1932AndAfter2069AreKept) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  const Date early = Date::fromTimeIntervalSince1970(-2208988800.0);  // 1900-01-01
  const Date late = Date::fromTimeIntervalSince1970(4102444800.0);    // 2100-01-01
  {
    PlistUserDefaults defaults(file);
    ASSERT_FALSE(defaults.setDate("kLastBackupDateKey", late));
    ASSERT_FALSE(defaults.setDate("ExportFrom", early));
  }
  EXPECT_NE(readFile(file).find("<date>2100-01-01T00:00:00Z</date>"), std::string::npos);
  EXPECT_NE(readFile(file).find("<date>1900-01-01T00:00:00Z</date>"), std::string::npos);
  PlistUserDefaults reopened(file);
  EXPECT_EQ(reopened.dateForKey("kLastBackupDateKey"), late);
  EXPECT_EQ(reopened.dateForKey("ExportFrom"), early);
}

TEST(PlistUserDefaultsTest, DatesKeepWholeSecondsInTheFileButExactValuesInThisProcess) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  PlistUserDefaults defaults(file);
  const Date precise = Date::fromTimeIntervalSinceReferenceDate(100.75);
  const Date beforeReference = Date::fromTimeIntervalSinceReferenceDate(-100.25);
  EXPECT_FALSE(defaults.setDate("IDMLastSyncing", precise));
  EXPECT_FALSE(defaults.setDate("ExportFrom", beforeReference));
  EXPECT_EQ(defaults.dateForKey("IDMLastSyncing"), precise);

  PlistUserDefaults reopened(file);
  EXPECT_EQ(reopened.dateForKey("IDMLastSyncing"), Date::fromTimeIntervalSinceReferenceDate(100));
  EXPECT_EQ(reopened.dateForKey("ExportFrom"), Date::fromTimeIntervalSinceReferenceDate(-101))
      << "cut towards the past";

  // A date that another writer changed is not shadowed by the remembered one.
  EXPECT_FALSE(reopened.setDate("IDMLastSyncing", Date::fromTimeIntervalSinceReferenceDate(500)));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(defaults.dateForKey("IDMLastSyncing"), Date::fromTimeIntervalSinceReferenceDate(500));
  EXPECT_EQ(defaults.dateForKey("ExportFrom"), beforeReference);
}

TEST(PlistUserDefaultsTest, ValuesTheFileCannotHoldAreRefusedAndChangeNothing) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  PlistUserDefaults defaults(file);
  EXPECT_FALSE(defaults.setString("kTemplateKey", "#sleep:"));
  const std::string before = readFile(file);

  const std::vector<std::pair<std::string, Value>> refused = {
      {"kTemplateKey", Value(std::string("bad \xff\xfe bytes"))},
      {"kTemplateKey", Value(std::string("bell \x07"))},
      {"kTemplateKey", Value::Dictionary{{std::string("key\x01"), 1}}},
      {"kTemplateKey", Value(std::numeric_limits<double>::infinity())},
      {"kTemplateKey", Value::Array{Value(std::numeric_limits<double>::quiet_NaN())}},
      {"kTemplateKey", Value(Date::fromTimeIntervalSince1970(253402300800.0))},  // year 10000
      {"kTemplateKey", Value(std::string("\xc0\xaf"))},                          // overlong encoding of "/"
      {std::string("bad\x01key"), Value(1)},
  };
  for (const auto& [key, value] : refused) {
    OptionalError e = defaults.setObject(key, value);
    ASSERT_TRUE(e);
    EXPECT_TRUE(e->is(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue)) << e->toString();
  }
  EXPECT_EQ(defaults.stringForKey("kTemplateKey"), "#sleep:");
  EXPECT_EQ(readFile(file), before);
}

// ---------------------------------------------------------------------------
// Atomic writes

TEST(PlistUserDefaultsTest, WritesLeaveNoTemporaryFiles) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  PlistUserDefaults defaults(file);
  for (int i = 0; i < 50; ++i) EXPECT_FALSE(defaults.setInteger("key" + std::to_string(i % 7), i));
  EXPECT_EQ(filesIn(dir.path()), (std::set<std::string>{"defaults.plist", "defaults.plist.lock"}));
  EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)
      << "settings are private to the user";
}

TEST(PlistUserDefaultsTest, ChangesThatLeaveTheFileAsItIsDoNotRewriteIt) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  PlistUserDefaults defaults(file);
  EXPECT_FALSE(defaults.setString("kReminderTemplateKey", ""));
  EXPECT_FALSE(defaults.setInteger("count", 1));
  auto inode = [&] {
    struct stat st {};
    ::stat(file.c_str(), &st);
    return st.st_ino;
  };
  const auto before = inode();
  EXPECT_FALSE(defaults.setString("kReminderTemplateKey", ""));
  EXPECT_FALSE(defaults.removeObjectForKey("never-set"));
  EXPECT_EQ(inode(), before) << "the file was replaced for nothing";

  // The same number of another kind is a change.
  EXPECT_FALSE(defaults.setBool("count", true));
  EXPECT_NE(inode(), before);
  EXPECT_EQ(PlistUserDefaults(file).objectForKey("count").type(), Value::Type::kBool);
}

// The fault sweep: fail the first, second, ... file operation of a settings
// write until it gets through. After each failure the file holds the old
// list or the new one, never a mixture, and nothing else is left beside it;
// the next write puts the change in.
TEST(PlistUserDefaultsTest, FailureAtAnyFileOperationKeepsTheOldFileOrTheNew) {
  TempDir dir;
  const auto file = dir / "config" / "defaults.plist";
  {
    PlistUserDefaults defaults(file);
    ASSERT_FALSE(defaults.setString("kRemindersTextKey", "How are you feeling right now?"));
  }
  const std::string before = readFile(file);
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  ScopedFileSystem installed(faults);
  int failures = 0;
  for (int n = 1;; ++n) {
    ASSERT_LT(n, 100);
    PlistUserDefaults defaults(file);
    faults->failAt(n, EIO);
    OptionalError e = defaults.setString("kRemindersTextKey", "Check in");
    if (!faults->faultFired()) {
      ASSERT_FALSE(e);
      break;
    }
    SCOPED_TRACE(faults->operations().back());
    EXPECT_EQ(filesIn(file.parent_path()), (std::set<std::string>{"defaults.plist", "defaults.plist.lock"}));
    if (e) {
      ++failures;
      EXPECT_EQ(e->code, kUserDefaultsWriteFailed);
      EXPECT_EQ(readFile(file), before);
      EXPECT_EQ(defaults.stringForKey("kRemindersTextKey"), "Check in") << "kept in memory";
      EXPECT_TRUE(defaults.synchronize()) << "written at the next try";
    }
    EXPECT_EQ(PlistUserDefaults(file).stringForKey("kRemindersTextKey"), "Check in");
    ASSERT_FALSE(defaults.setString("kRemindersTextKey", "How are you feeling right now?"));
    ASSERT_EQ(readFile(file), before);
  }
  EXPECT_GE(failures, 6) << "read, create, write, fsync, close, rename";
}

TEST(PlistUserDefaultsTest, RealWriteFailureOnAFullFileSystemKeepsTheOldFile) {
  // A file-size limit makes write() fail with EFBIG, even for root, the way a
  // full disk would. It runs in a child so the limit stays there.
  TempDir dir;
  const auto file = dir / "defaults.plist";
  EXPECT_FALSE(PlistUserDefaults(file).setString("kTemplateKey", "keep me"));
  const std::string before = readFile(file);

  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    PlistUserDefaults defaults(file);
    OptionalError e = defaults.setString("big", std::string(100000, 'x'));
    _exit(e && e->code == kUserDefaultsWriteFailed ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the child did not see the write fail";
  EXPECT_EQ(readFile(file), before);
  EXPECT_EQ(filesIn(dir.path()), (std::set<std::string>{"defaults.plist", "defaults.plist.lock"}));
}

TEST(PlistUserDefaultsTest, ReadOnlyFolderReportsFailureAndKeepsTheOldFile) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes into read-only folders";
  TempDir dir;
  const auto folder = dir / "config";
  const auto file = folder / "defaults.plist";
  EXPECT_FALSE(PlistUserDefaults(file).setBool("a", true));
  const std::string before = readFile(file);
  std::filesystem::permissions(folder,
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  OptionalError e = PlistUserDefaults(file).setBool("b", true);
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code, kUserDefaultsWriteFailed);
  EXPECT_EQ(readFile(file), before);
}

// ---------------------------------------------------------------------------
// Several writers

TEST(PlistUserDefaultsTest, WritersOnOneFileKeepOtherKeysAndTheLaterWriteWins) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  PlistUserDefaults first(file);
  PlistUserDefaults second(file);  // opened before the first one wrote
  EXPECT_FALSE(first.setBool("MoodSyncingEnabled", true));
  EXPECT_FALSE(second.setString("MoodSyncingService", "iCloud"));
  EXPECT_FALSE(first.setInteger("shared", 1));
  EXPECT_FALSE(second.setInteger("shared", 2));
  EXPECT_FALSE(second.removeObjectForKey("nothing-there"));

  PlistUserDefaults reader(file);
  EXPECT_TRUE(reader.boolForKey("MoodSyncingEnabled"));
  EXPECT_EQ(reader.stringForKey("MoodSyncingService"), "iCloud");
  EXPECT_EQ(reader.integerForKey("shared"), 2);
}

TEST(PlistUserDefaultsTest, TwoProcessesWritingAtOnceLoseNoKeys) {
  TempDir dir;
  const auto file = dir / "defaults.plist";
  EXPECT_FALSE(PlistUserDefaults(file).setString("existing", "before"));
  constexpr int kKeys = 60;

  std::vector<pid_t> children;
  for (const char* name : {"A", "B"}) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      PlistUserDefaults defaults(file);
      bool ok = true;
      for (int i = 0; i < kKeys; ++i) {
        ok = !defaults.setInteger(std::string(name) + std::to_string(i), i) && ok;
        ok = !defaults.setString("shared", std::string(name) + std::to_string(i)) && ok;
      }
      _exit(ok ? 0 : 1);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }

  Value::Dictionary all = PlistUserDefaults(file).persistentDomain();
  EXPECT_EQ(all.size(), 2u * kKeys + 2);
  for (const char* name : {"A", "B"}) {
    for (int i = 0; i < kKeys; ++i) EXPECT_EQ(all[std::string(name) + std::to_string(i)], Value(i));
  }
  EXPECT_EQ(all["existing"], Value("before"));
  std::string last = all["shared"].toString();
  EXPECT_TRUE(last == "A" + std::to_string(kKeys - 1) || last == "B" + std::to_string(kKeys - 1)) << last;
  EXPECT_EQ(filesIn(dir.path()), (std::set<std::string>{"defaults.plist", "defaults.plist.lock"}));
}

TEST(PlistUserDefaultsTest, StandardStoreLivesInTheDataDirectory) {
  TempDir dir;
  auto previous = UserDefaults::standard();
  DataDirectories::setHomeOverride(dir.path());
  auto installed = PlistUserDefaults::installStandard();
  DataDirectories::setHomeOverride(std::nullopt);
  EXPECT_EQ(UserDefaults::standard(), installed);
  EXPECT_FALSE(UserDefaults::standard()->setBool("MoodFirstStart", true));
  UserDefaults::setStandard(previous);
  EXPECT_TRUE(
      PlistUserDefaults(DataDirectories::underHome(dir.path()).defaultsFile).boolForKey("MoodFirstStart"));
}

}  // namespace
}  // namespace lumeo
