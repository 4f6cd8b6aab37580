// The settings store on Linux: the persistent domain is an XML property list
// (by default DataDirectories::current().defaultsFile). Writes are atomic and
// serialised between processes by a lock file, and an unreadable file is kept
// aside, never silently overwritten.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/user_defaults.h"

namespace lumeo {

// Storage of the persistent domain in one property-list file, read and
// written by Lumeo's property-list codec (platform/property_list.h) through
// the file-system seam.
//
// Reading: a missing or empty file, a file that is not an XML property list
// (binary lists included), or one whose top level is not a dictionary reads
// as no keys, and reading never touches the file.
//
// Writing (apply): takes an exclusive flock on "<file>.lock" beside the file,
// reads the file again, changes only the given keys and writes the whole
// list atomically (unless the changes leave every key as it is; then nothing
// is written). Another process's keys therefore survive, and for a key that
// both write the later write wins. A file that was not readable is first
// renamed to "<file>.unreadable" ("<file>.unreadable-2", ... if that exists).
// On any failure the old file stands unchanged and no temporary file is
// left. The folders are made private (0700) and the file is 0600.
//
// Dates are kept in every year from 0000 to 9999. The file's date form has
// whole seconds, so a date read back from the file has its fraction cut off
// (towards the past). The storage remembers the exact dates it wrote and
// gives them back for as long as the file still holds them, so only another
// process sees the cut.
class PlistUserDefaultsStorage : public UserDefaultsStorage {
 public:
  explicit PlistUserDefaultsStorage(std::filesystem::path file);

  Value::Dictionary load() override;
  ApplyResult apply(const UserDefaultsChanges& changes) override;
  // Refuses what the file cannot hold faithfully (checkPropertyListValue):
  // nulls, text that is not UTF-8 or holds control characters other than
  // tab, line feed and carriage return (in keys as well), reals that are not
  // finite, dates outside the years 0000 to 9999.
  OptionalError validate(const Value& value) const override;

  const std::filesystem::path& file() const { return file_; }

 private:
  // Puts back the exact values this storage wrote where the file still holds
  // them in its coarser form.
  void restoreExactValues(Value::Dictionary& contents) const;
  void rememberExactValues(const UserDefaultsChanges& changes);

  std::filesystem::path file_;
  // Values holding dates that this storage wrote, by key.
  std::map<std::string, Value> exact_;
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
