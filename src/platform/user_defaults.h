// The settings store: small values kept under string keys, persistent across
// launches, with a registration domain of fallbacks that is never written. The
// persistent domain lives behind UserDefaultsStorage, so the Linux build keeps
// it in a property-list file and tests keep it in memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

// Error domain of the settings store.
inline constexpr char kUserDefaultsErrorDomain[] = "LumeoUserDefaultsErrorDomain";
enum UserDefaultsErrorCode : long {
  kUserDefaultsInvalidValue = 1,  // the value cannot be stored (nested null, bad text, date out of range)
  kUserDefaultsWriteFailed = 2,   // the storage could not be written; the old contents stand
  kUserDefaultsUnreadable = 3,    // an existing store is not readable and could not be kept aside
};

// A batch of changes: a value to store, or nullopt to remove the key.
using UserDefaultsChanges = std::map<std::string, std::optional<Value>>;

// Where the persistent domain is kept. Implementations must make apply() all
// or nothing and must not lose keys that other writers (other processes) put
// there in the meantime: apply() reads the current contents, changes only the
// given keys and writes the result. Calls come from one thread at a time (the
// owning UserDefaults serialises them).
class UserDefaultsStorage {
 public:
  virtual ~UserDefaultsStorage() = default;

  // The stored keys. A store that is missing, empty or unreadable reads as no
  // keys; loading never changes what is stored.
  virtual Value::Dictionary load() = 0;

  // Applies `changes` on top of the current contents. On success returns the
  // whole domain as it now stands (the other writers' keys included, the
  // changed keys exactly as given). On failure returns the error and the
  // stored contents are as they were.
  struct ApplyResult {
    OptionalError error;
    Value::Dictionary contents;
  };
  virtual ApplyResult apply(const UserDefaultsChanges& changes) = 0;

  // Whether `value` can be kept by this storage; an error of code
  // kUserDefaultsInvalidValue otherwise. The default accepts everything.
  virtual OptionalError validate(const Value& value) const {
    (void)value;
    return std::nullopt;
  }
};

// Keeps the domain in memory. Several UserDefaults may share one, which is how
// tests play two processes on one store. failWrites() makes apply() fail, as a
// full disk would.
class InMemoryUserDefaultsStorage : public UserDefaultsStorage {
 public:
  InMemoryUserDefaultsStorage() = default;
  explicit InMemoryUserDefaultsStorage(Value::Dictionary initial) : contents_(std::move(initial)) {}

  Value::Dictionary load() override;
  ApplyResult apply(const UserDefaultsChanges& changes) override;

  void failWrites(bool fail);
  // Number of successful apply() calls so far.
  int writeCount() const;

 private:
  mutable std::mutex mutex_;
  Value::Dictionary contents_;
  bool failWrites_ = false;
  int writeCount_ = 0;
};

// The store itself. Reads look in the persistent domain first and then in the
// registration domain. Every change is written through to the storage at once;
// if that write fails, the change still shows in this process and is retried
// by the next change or by synchronize(). All members are thread-safe.
//
// Setters take the key first: setBool(kGraphIncreaseWidth, true).
class UserDefaults {
 public:
  explicit UserDefaults(std::shared_ptr<UserDefaultsStorage> storage);
  virtual ~UserDefaults() = default;
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  // The process-wide store. Until a front end or a test installs one with
  // setStandard(), this is an in-memory store that keeps nothing across runs.
  static std::shared_ptr<UserDefaults> standard();
  // Installs the process-wide store; nullptr goes back to a fresh in-memory one.
  static void setStandard(std::shared_ptr<UserDefaults> defaults);

  // The value under `key`, or a null Value when neither domain has it.
  Value objectForKey(const std::string& key) const;
  // Stores `value`; a null Value removes the key, as removeObjectForKey does.
  // Returns an error of kUserDefaultsInvalidValue (and changes nothing) when
  // the value holds a null inside an array or dictionary or is refused by the
  // storage; an error of kUserDefaultsWriteFailed when the write failed (the
  // value is then kept in memory and retried).
  OptionalError setObject(const std::string& key, const Value& value);
  OptionalError removeObjectForKey(const std::string& key);

  // Typed readers. Absent keys read as false, 0, 0.0 or nothing. Numbers of
  // any kind convert into each other; a string reads as a number or a boolean
  // when it spells one ("YES", "true", "42"), and a number reads as a string.
  bool boolForKey(const std::string& key) const;
  std::int64_t integerForKey(const std::string& key) const;
  double doubleForKey(const std::string& key) const;
  std::optional<std::string> stringForKey(const std::string& key) const;
  std::optional<Date> dateForKey(const std::string& key) const;
  std::optional<Value::Array> arrayForKey(const std::string& key) const;
  std::optional<Value::Dictionary> dictionaryForKey(const std::string& key) const;
  std::optional<Value::Data> dataForKey(const std::string& key) const;

  // Typed setters; the same results as setObject.
  OptionalError setBool(const std::string& key, bool value);
  OptionalError setInteger(const std::string& key, std::int64_t value);
  OptionalError setDouble(const std::string& key, double value);
  OptionalError setString(const std::string& key, const std::string& value);
  OptionalError setDate(const std::string& key, Date value);
  OptionalError setData(const std::string& key, const Value::Data& value);

  // Adds `defaults` to the registration domain (a key registered twice takes
  // the later value). Registered values answer reads of keys that the
  // persistent domain lacks and are never written to the storage.
  void registerDefaults(const Value::Dictionary& defaults);

  // Writes the changes whose write failed, then reloads the persistent domain
  // so that changes of other processes show. False when a write still fails;
  // lastError() then tells why.
  bool synchronize();
  OptionalError lastError() const;

  // Both domains merged, the persistent one winning.
  Value::Dictionary dictionaryRepresentation() const;
  // Only what is stored (no registered values).
  Value::Dictionary persistentDomain() const;

 private:
  OptionalError applyLocked(UserDefaultsChanges changes);
  const Value* findLocked(const std::string& key) const;

  mutable std::mutex mutex_;
  std::shared_ptr<UserDefaultsStorage> storage_;
  Value::Dictionary persistent_;
  Value::Dictionary registration_;
  UserDefaultsChanges pending_;  // written in memory, not yet in the storage
  OptionalError lastError_;
};

}  // namespace lumeo
