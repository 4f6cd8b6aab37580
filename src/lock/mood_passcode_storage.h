// The application's two secrets and its unlock state: the passcode
// (keychain username "LumeoJournal") and the recovery key ("SecretKey"),
// both of service "LumeoJournal", and `passCodeUnlocked`, which the
// application object keeps in memory.
//
// Lumeo also notes in the settings, under "MoodPassCodeSet", that a
// passcode was stored (never the passcode itself). Only when that mark is
// set is the keychain asked at all: a journal that never had a lock opens
// without touching the Secret Service, and a journal that has one refuses
// to open when the keychain cannot be read, instead of counting the lock as
// off. A keyring item left behind by an earlier journal in the same folder
// is therefore ignored until a new passcode replaces it.
#pragma once

#include <optional>
#include <string>

#include "platform/error.h"

namespace lumeo {

class UserDefaults;

inline constexpr char kMoodPassCodeUsername[] = "LumeoJournal";
inline constexpr char kMoodSecretKeyUsername[] = "SecretKey";
inline constexpr char kMoodPassCodeSetKey[] = "MoodPassCodeSet";

class MoodPasscodeStorage {
 public:
  // The stored passcode; nothing when no lock is set. With a lock set and
  // an unreadable keychain, nothing with the reason in `error`.
  static std::optional<std::string> passCode(OptionalError* error = nullptr);
  // Stores the passcode (replacing one), or with an empty text deletes it.
  // On failure the former state stands and the error says why.
  [[nodiscard]] static OptionalError setPassCode(const std::string& code);
  // Like passCode(), for the recovery key.
  static std::optional<std::string> secretKey(OptionalError* error = nullptr);
  // Stores the recovery key, or with nothing or an empty text deletes it.
  [[nodiscard]] static OptionalError setSecretKey(const std::optional<std::string>& key);

  // True when a passcode is stored. An unreadable keychain with the lock's
  // mark set counts as locked (true), so that an error never opens the lock.
  static bool passcodeEnabled(OptionalError* error = nullptr);

  // The user passed the lock since the application last went to the
  // background: the application object's flag, or a process-wide one when
  // there is no application object.
  static bool passCodeUnlocked();
  static void setPassCodeUnlocked(bool unlocked);

  // The settings the mark lives in: the application object's, else the
  // process's standard defaults.
  static UserDefaults& defaults();
};

}  // namespace lumeo
