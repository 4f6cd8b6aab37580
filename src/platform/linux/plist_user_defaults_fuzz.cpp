// Feeds arbitrary bytes to the settings store as its file: loading must not
// crash or hang, must never change the file, and must give only values that
// a settings store can hold (no nulls inside containers).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/linux/plist_user_defaults.h"

namespace {

bool holdsNull(const lumeo::Value& v) {
  if (v.isNull()) return true;
  if (const auto* a = v.asArray()) {
    for (const auto& e : *a) {
      if (holdsNull(e)) return true;
    }
  }
  if (const auto* d = v.asDictionary()) {
    for (const auto& [k, e] : *d) {
      if (holdsNull(e)) return true;
    }
  }
  return false;
}

const std::filesystem::path& settingsFile() {
  static const std::filesystem::path file = [] {
    // Memory-backed when the system has it: the target writes one file per input.
    std::error_code ec;
    std::filesystem::path base =
        std::filesystem::is_directory("/dev/shm", ec) ? "/dev/shm" : std::filesystem::temp_directory_path();
    std::string pattern = (base / "lumeo-settings-fuzz-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    // The folder's name outlives every static object, so the exit handler
    // can still use it after they are destroyed.
    static char folder[4096];
    std::snprintf(folder, sizeof folder, "%s", pattern.c_str());
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
    });
    return std::filesystem::path(pattern) / "defaults.plist";
  }();
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  {
    std::ofstream out(settingsFile(), std::ios::binary | std::ios::trunc);
    out << bytes;
  }
  lumeo::PlistUserDefaultsStorage storage(settingsFile());
  for (const auto& [key, value] : storage.load()) {
    if (holdsNull(value)) std::abort();
  }
  std::ifstream in(settingsFile(), std::ios::binary);
  std::string after{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (after != bytes) std::abort();
  return 0;
}
