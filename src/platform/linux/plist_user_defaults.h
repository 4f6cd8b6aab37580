// The settings store on Linux: the persistent domain is an XML property list
// (by default DataDirectories::current().defaultsFile). Writes are atomic and
// serialised between processes by a lock file, and an unreadable file is kept
// aside, never silently overwritten.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/user_defaults.h"

namespace lumeo {

// Storage of the persistent domain in one property-list file.
//
// Reading: a missing or empty file, a file that is not an XML property list
// (binary lists included), or one whose top level is not a dictionary reads
// as no keys, and reading never touches the file. Entries of kinds Value cannot hold (UIDs) are skipped on
// reading but stay in the file when other keys are written.
//
// Writing (apply): takes an exclusive flock on "<file>.lock" beside the file,
// reads the file again, changes only the given keys, writes the whole list to
// a temporary file in the same folder, fsyncs it and renames it over the file
// (unless the changes leave the file as it is; then nothing is written).
// Another process's keys therefore survive, and for a key that both write the
// later write wins. A file that was not readable is first renamed to
// "<file>.unreadable" ("<file>.unreadable-2", ... if that exists). On any
// failure the old file stands unchanged and no temporary file is left.
//
// The XML property-list date form has whole seconds, so a date read back
// from the file has its fraction cut off (towards the past). The storage
// remembers the exact dates it wrote and gives them back for as long as the
// file still holds them, so only another process sees the cut.
class PlistUserDefaultsStorage : public UserDefaultsStorage {
 public:
  explicit PlistUserDefaultsStorage(std::filesystem::path file);

  Value::Dictionary load() override;
  ApplyResult apply(const UserDefaultsChanges& changes) override;
  // Refuses what the file cannot hold faithfully: text that is not UTF-8 or
  // holds control characters other than tab, line feed and carriage return
  // (in keys as well), reals that are not finite, dates before 13 December 1932 or
  // after 19 January 2069 (the range of the file's date form).
  OptionalError validate(const Value& value) const override;

  const std::filesystem::path& file() const { return file_; }

  // Test hook: called before each step of a write ("lock", "read", "temp",
  // "write", "fsync", "rename"); returning true makes that step fail as if the
  // system had refused it.
  void setFaultInjection(std::function<bool(const std::string& step)> fault) { fault_ = std::move(fault); }

 private:
  bool failsAt(const std::string& step) const { return fault_ && fault_(step); }
  // Puts back the exact values this storage wrote where the file still holds
  // them in its coarser form.
  void restoreExactValues(Value::Dictionary& contents) const;
  void rememberExactValues(const UserDefaultsChanges& changes);

  std::filesystem::path file_;
  // Values holding dates that this storage wrote, by key.
  std::map<std::string, Value> exact_;
  std::function<bool(const std::string&)> fault_;
};

// UserDefaults kept in a property-list file.
class PlistUserDefaults : public UserDefaults {
 public:
  explicit PlistUserDefaults(std::filesystem::path file);

  // Opens the defaults file of DataDirectories::current() and makes it the
  // process-wide UserDefaults::standard(). The front ends call this at start,
  // after any --home option has been applied.
  static std::shared_ptr<PlistUserDefaults> installStandard();

  PlistUserDefaultsStorage& storage() { return *storage_; }

 private:
  explicit PlistUserDefaults(std::shared_ptr<PlistUserDefaultsStorage> storage);
  std::shared_ptr<PlistUserDefaultsStorage> storage_;
};

}  // namespace lumeo
