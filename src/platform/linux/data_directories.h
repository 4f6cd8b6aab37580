// Where Lumeo keeps its files on Linux. Every folder follows the XDG base
// directories unless LUMEO_HOME (or the front ends' --home) puts all of them
// under one folder, so that several devices can run side by side on one
// machine. The folders are made on first use, private to the user.
#pragma once

#include <filesystem>
#include <optional>

namespace lumeo {

struct DataDirectories {
  std::filesystem::path library;             // the journal store, images, level table
  std::filesystem::path documents;           // exports a user may look at
  std::filesystem::path applicationSupport;  // the sync engine's own files
  std::filesystem::path temporary;           // scratch files, safe to lose
  std::filesystem::path defaultsFile;        // the user defaults property list

  // The folders for this process: the --home override if one was set, else
  // LUMEO_HOME, else the XDG locations.
  static DataDirectories current();
  // All folders under one home folder.
  static DataDirectories underHome(const std::filesystem::path& home);
  // Sets or clears the process-wide home override (the --home option).
  static void setHomeOverride(std::optional<std::filesystem::path> home);

  // Makes every folder that does not exist yet, 0700 whatever the umask
  // (missing parents too, as the XDG base directories ask), and takes other
  // users' access away from what an earlier version left open: the four
  // folders become 0700, and what is directly in the library and the
  // application support folder (the journal store and SQLite's -wal, -shm
  // and -journal files beside it, the level table, the feeling words, the
  // "imageStore" folder) 0600 or 0700, as does the settings file. Pictures
  // are not visited one by one: their folder keeps them from other users.
  // False if a folder cannot be made or made private.
  bool create() const;
};

}  // namespace lumeo
