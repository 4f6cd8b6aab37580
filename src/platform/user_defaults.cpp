// The two-domain settings store with write-through to its storage, and the
// in-memory storage used by tests and by a process that has not installed a
// persistent one.
#include "platform/user_defaults.h"

#include <cctype>
#include <charconv>
#include <cstdlib>

#include "platform/log.h"

namespace lumeo {

namespace {

std::mutex& standardMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<UserDefaults>& standardSlot() {
  static std::shared_ptr<UserDefaults> slot;
  return slot;
}

// A stored value may be null only at the top, where null means "remove";
// property lists have no null to hold inside a container.
bool holdsNestedNull(const Value& value) {
  if (const Value::Array* a = value.asArray()) {
    for (const Value& v : *a) {
      if (v.isNull() || holdsNestedNull(v)) return true;
    }
  } else if (const Value::Dictionary* d = value.asDictionary()) {
    for (const auto& [k, v] : *d) {
      if (v.isNull() || holdsNestedNull(v)) return true;
    }
  }
  return false;
}

std::string lowered(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// Leading number of a string, as number objects read text: "42abc" is 42,
// "abc" is 0.
double leadingNumber(const std::string& s) {
  return std::strtod(s.c_str(), nullptr);
}

}  // namespace

// ---------------------------------------------------------------------------
// InMemoryUserDefaultsStorage

Value::Dictionary InMemoryUserDefaultsStorage::load() {
  std::lock_guard lock(mutex_);
  return contents_;
}

UserDefaultsStorage::ApplyResult InMemoryUserDefaultsStorage::apply(const UserDefaultsChanges& changes) {
  std::lock_guard lock(mutex_);
  if (failWrites_) {
    return {Error(kUserDefaultsErrorDomain, kUserDefaultsWriteFailed, "the settings could not be written"),
            {}};
  }
  for (const auto& [key, value] : changes) {
    if (value) {
      contents_[key] = *value;
    } else {
      contents_.erase(key);
    }
  }
  ++writeCount_;
  return {std::nullopt, contents_};
}

void InMemoryUserDefaultsStorage::failWrites(bool fail) {
  std::lock_guard lock(mutex_);
  failWrites_ = fail;
}

int InMemoryUserDefaultsStorage::writeCount() const {
  std::lock_guard lock(mutex_);
  return writeCount_;
}

// ---------------------------------------------------------------------------
// UserDefaults

UserDefaults::UserDefaults(std::shared_ptr<UserDefaultsStorage> storage) : storage_(std::move(storage)) {
  if (!storage_) storage_ = std::make_shared<InMemoryUserDefaultsStorage>();
  persistent_ = storage_->load();
}

std::shared_ptr<UserDefaults> UserDefaults::standard() {
  std::lock_guard lock(standardMutex());
  auto& slot = standardSlot();
  if (!slot) slot = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  return slot;
}

void UserDefaults::setStandard(std::shared_ptr<UserDefaults> defaults) {
  std::lock_guard lock(standardMutex());
  standardSlot() = std::move(defaults);
}

const Value* UserDefaults::findLocked(const std::string& key) const {
  if (auto it = persistent_.find(key); it != persistent_.end()) return &it->second;
  if (auto it = registration_.find(key); it != registration_.end()) return &it->second;
  return nullptr;
}

Value UserDefaults::objectForKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  const Value* v = findLocked(key);
  return v ? *v : Value();
}

OptionalError UserDefaults::setObject(const std::string& key, const Value& value) {
  if (!value.isNull()) {
    if (holdsNestedNull(value)) {
      return Error(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue,
                   "the value for \"" + key + "\" holds an empty element, which settings cannot keep");
    }
    if (OptionalError e = storage_->validate(Value::Dictionary{{key, value}})) return e;
  }
  std::lock_guard lock(mutex_);
  UserDefaultsChanges changes;
  if (value.isNull()) {
    changes[key] = std::nullopt;
  } else {
    changes[key] = value;
  }
  return applyLocked(std::move(changes));
}

OptionalError UserDefaults::removeObjectForKey(const std::string& key) {
  return setObject(key, Value());
}

OptionalError UserDefaults::applyLocked(UserDefaultsChanges changes) {
  // Earlier changes whose write failed go along, the newer value winning.
  for (auto& [k, v] : pending_) changes.emplace(k, v);
  for (const auto& [k, v] : changes) {
    if (v) {
      persistent_[k] = *v;
    } else {
      persistent_.erase(k);
    }
  }
  UserDefaultsStorage::ApplyResult result = storage_->apply(changes);
  if (result.error) {
    // Kept in memory and retried by the next change or synchronize(); callers
    // that drop the error still leave a trace.
    LUMEO_LOG_WARNING("settings not written, will retry: %@", result.error->toString());
    pending_ = std::move(changes);
    lastError_ = result.error;
    return result.error;
  }
  pending_.clear();
  lastError_.reset();
  persistent_ = std::move(result.contents);
  return std::nullopt;
}

bool UserDefaults::synchronize() {
  std::lock_guard lock(mutex_);
  if (!pending_.empty()) {
    UserDefaultsChanges changes;
    changes.swap(pending_);
    return !applyLocked(std::move(changes));
  }
  persistent_ = storage_->load();
  return true;
}

OptionalError UserDefaults::lastError() const {
  std::lock_guard lock(mutex_);
  return lastError_;
}

bool UserDefaults::boolForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const std::string* s = v.asString()) {
    std::string l = lowered(*s);
    if (l == "yes" || l == "true") return true;
    return leadingNumber(*s) != 0;
  }
  return v.toBool(false);
}

std::int64_t UserDefaults::integerForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const std::string* s = v.asString()) return static_cast<std::int64_t>(leadingNumber(*s));
  return v.toInt(0);
}

double UserDefaults::doubleForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const std::string* s = v.asString()) return leadingNumber(*s);
  return v.toDouble(0);
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
  Value v = objectForKey(key);
  switch (v.type()) {
    case Value::Type::kString:
      return *v.asString();
    case Value::Type::kBool:
    case Value::Type::kInteger:
      return std::to_string(v.toInt());
    case Value::Type::kReal: {
      char buf[64];
      auto r = std::to_chars(buf, buf + sizeof buf, v.toDouble());
      return std::string(buf, r.ptr);
    }
    default:
      return std::nullopt;
  }
}

std::optional<Date> UserDefaults::dateForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const Date* d = v.asDate()) return *d;
  return std::nullopt;
}

std::optional<Value::Array> UserDefaults::arrayForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const Value::Array* a = v.asArray()) return *a;
  return std::nullopt;
}

std::optional<Value::Dictionary> UserDefaults::dictionaryForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const Value::Dictionary* d = v.asDictionary()) return *d;
  return std::nullopt;
}

std::optional<Value::Data> UserDefaults::dataForKey(const std::string& key) const {
  Value v = objectForKey(key);
  if (const Value::Data* d = v.asData()) return *d;
  return std::nullopt;
}

OptionalError UserDefaults::setBool(const std::string& key, bool value) {
  return setObject(key, Value(value));
}
OptionalError UserDefaults::setInteger(const std::string& key, std::int64_t value) {
  return setObject(key, Value(static_cast<long long>(value)));
}
OptionalError UserDefaults::setDouble(const std::string& key, double value) {
  return setObject(key, Value(value));
}
OptionalError UserDefaults::setString(const std::string& key, const std::string& value) {
  return setObject(key, Value(value));
}
OptionalError UserDefaults::setDate(const std::string& key, Date value) {
  return setObject(key, Value(value));
}
OptionalError UserDefaults::setData(const std::string& key, const Value::Data& value) {
  return setObject(key, Value(value));
}

void UserDefaults::registerDefaults(const Value::Dictionary& defaults) {
  std::lock_guard lock(mutex_);
  for (const auto& [k, v] : defaults) registration_[k] = v;
}

Value::Dictionary UserDefaults::dictionaryRepresentation() const {
  std::lock_guard lock(mutex_);
  Value::Dictionary merged = registration_;
  for (const auto& [k, v] : persistent_) merged[k] = v;
  return merged;
}

Value::Dictionary UserDefaults::persistentDomain() const {
  std::lock_guard lock(mutex_);
  return persistent_;
}

}  // namespace lumeo
