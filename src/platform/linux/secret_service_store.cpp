// libsecret behind the secret-store seam. libsecret speaks GDBus to the
// Secret Service on the session bus; its errors are turned into the store's
// status codes here, so that the keychain layer above never sees GLib.
#include "platform/linux/secret_service_store.h"

#include <libsecret/secret.h>

#include <cstring>
#include <memory>
#include <variant>

namespace lumeo {

namespace {

const SecretSchema* journalSchema() {
  static const SecretSchema schema = [] {
    SecretSchema s;
    std::memset(&s, 0, sizeof s);
    s.name = "org.lumeo.Journal";
    s.flags = SECRET_SCHEMA_NONE;
    s.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
    s.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    s.attributes[2] = {"journal", SECRET_SCHEMA_ATTRIBUTE_STRING};
    return s;
  }();
  return &schema;
}

struct HashTableFree {
  void operator()(GHashTable* t) const { g_hash_table_unref(t); }
};
struct ErrorFree {
  void operator()(GError* e) const { g_error_free(e); }
};
struct ItemListFree {
  void operator()(GList* l) const { g_list_free_full(l, g_object_unref); }
};
struct ValueFree {
  void operator()(SecretValue* v) const { secret_value_unref(v); }
};
using Attributes = std::unique_ptr<GHashTable, HashTableFree>;
using ItemList = std::unique_ptr<GList, ItemListFree>;

// The strings stay owned by the caller for the table's life.
Attributes attributesFor(const SecretItemKey& key, const std::string& journal) {
  Attributes table(g_hash_table_new(g_str_hash, g_str_equal));
  g_hash_table_insert(table.get(), const_cast<char*>("service"), const_cast<char*>(key.service.c_str()));
  g_hash_table_insert(table.get(), const_cast<char*>("account"), const_cast<char*>(key.account.c_str()));
  g_hash_table_insert(table.get(), const_cast<char*>("journal"), const_cast<char*>(journal.c_str()));
  return table;
}

// One GError as a status. Bus and activation failures mean the service is
// not there; a locked collection or a dismissed prompt are the user's
// refusal; the rest is the service refusing the request.
SecretStatus statusFromError(GError* raw, const char* doing) {
  std::unique_ptr<GError, ErrorFree> error(raw);
  std::string what = std::string(doing) + ": " + (error->message ? error->message : "unknown error");
  if (error->domain == G_IO_ERROR && error->code == G_IO_ERROR_CANCELLED) {
    return {kSecretUserCanceled, std::string(doing) + ": the keyring was not unlocked"};
  }
  if (error->domain == SECRET_ERROR && error->code == SECRET_ERROR_IS_LOCKED) {
    return {kSecretInteractionNotAllowed, std::string(doing) + ": the keyring is locked"};
  }
  if (error->domain == SECRET_ERROR && error->code == SECRET_ERROR_NO_SUCH_OBJECT) {
    return {kSecretItemNotFound, what};
  }
  if (error->domain == G_DBUS_ERROR || error->domain == G_IO_ERROR) {
    // The service went away (or never was): drop libsecret's connection to
    // it, so that a service started later is found afresh.
    secret_service_disconnect();
    return {kSecretNotAvailable,
            std::string(doing) + ": no Secret Service (such as GNOME Keyring) answers on the session bus (" +
                (error->message ? error->message : "") + ")"};
  }
  return {kSecretAuthFailed, what};
}

// The items that match, at most one in practice. With `unlock` a locked
// keyring is unlocked first, which may show the desktop's unlock prompt.
std::variant<ItemList, SecretStatus> search(const SecretItemKey& key, const std::string& journal, bool unlock,
                                            const char* doing) {
  Attributes attributes = attributesFor(key, journal);
  GError* error = nullptr;
  int flags = SECRET_SEARCH_ALL;
  if (unlock) flags |= SECRET_SEARCH_UNLOCK | SECRET_SEARCH_LOAD_SECRETS;
  GList* items = secret_service_search_sync(nullptr, journalSchema(), attributes.get(),
                                            static_cast<SecretSearchFlags>(flags), nullptr, &error);
  if (error) return statusFromError(error, doing);
  return ItemList(items);
}

SecretStatus checkKey(const SecretItemKey& key) {
  if (key.service.empty() || key.account.empty())
    return {kSecretParam, "a secret needs a service and an account"};
  return SecretStatus::success();
}

SecretStatus lockedStatus(const char* doing) {
  return {kSecretInteractionNotAllowed, std::string(doing) + ": the keyring is locked and was not unlocked"};
}

}  // namespace

SecretServiceStore::SecretServiceStore(std::string journal) : journal_(std::move(journal)) {}

SecretStatus SecretServiceStore::copyMatchingAttributes(const SecretItemKey& key) {
  if (auto status = checkKey(key); !status.ok()) return status;
  std::lock_guard lock(mutex_);
  return retried([&] { return copyMatchingAttributesOnce(key); });
}

SecretStatus SecretServiceStore::copyMatchingAttributesOnce(const SecretItemKey& key) {
  auto found = search(key, journal_, false, "cannot look up the secret");
  if (auto* status = std::get_if<SecretStatus>(&found)) return *status;
  if (!std::get<ItemList>(found)) return {kSecretItemNotFound, "no such secret"};
  return SecretStatus::success();
}

SecretStatus SecretServiceStore::copyMatchingData(const SecretItemKey& key, std::string& data) {
  if (auto status = checkKey(key); !status.ok()) return status;
  std::lock_guard lock(mutex_);
  return retried([&] { return copyMatchingDataOnce(key, data); });
}

SecretStatus SecretServiceStore::copyMatchingDataOnce(const SecretItemKey& key, std::string& data) {
  const char* doing = "cannot read the secret";
  auto found = search(key, journal_, true, doing);
  if (auto* status = std::get_if<SecretStatus>(&found)) return *status;
  GList* items = std::get<ItemList>(found).get();
  if (!items) return {kSecretItemNotFound, "no such secret"};
  auto* item = SECRET_ITEM(items->data);
  if (secret_item_get_locked(item)) return lockedStatus(doing);
  std::unique_ptr<SecretValue, ValueFree> value(secret_item_get_secret(item));
  // A secret that could not be loaded means the item stayed locked (its
  // cached "Locked" property may lag); only a loaded, empty secret is an
  // item without data.
  if (!value) return lockedStatus(doing);
  gsize length = 0;
  const gchar* bytes = secret_value_get(value.get(), &length);
  data.assign(bytes ? bytes : "", bytes ? length : 0);
  return SecretStatus::success();
}

SecretStatus SecretServiceStore::add(const SecretItemKey& key, const std::string& label,
                                     const std::string& data) {
  if (auto status = checkKey(key); !status.ok()) return status;
  std::lock_guard lock(mutex_);
  return retried([&] { return addOnce(key, label, data); });
}

SecretStatus SecretServiceStore::addOnce(const SecretItemKey& key, const std::string& label,
                                         const std::string& data) {
  const char* doing = "cannot store the secret";
  auto found = search(key, journal_, false, doing);
  if (auto* status = std::get_if<SecretStatus>(&found)) return *status;
  if (std::get<ItemList>(found)) return {kSecretDuplicateItem, "the secret exists already"};
  Attributes attributes = attributesFor(key, journal_);
  GError* error = nullptr;
  gboolean stored = secret_password_storev_sync(journalSchema(), attributes.get(), SECRET_COLLECTION_DEFAULT,
                                                label.c_str(), data.c_str(), nullptr, &error);
  if (error) return statusFromError(error, doing);
  if (!stored) return lockedStatus(doing);
  return SecretStatus::success();
}

SecretStatus SecretServiceStore::update(const SecretItemKey& key, const std::string& data) {
  if (auto status = checkKey(key); !status.ok()) return status;
  std::lock_guard lock(mutex_);
  return retried([&] { return updateOnce(key, data); });
}

SecretStatus SecretServiceStore::updateOnce(const SecretItemKey& key, const std::string& data) {
  const char* doing = "cannot change the secret";
  auto found = search(key, journal_, true, doing);
  if (auto* status = std::get_if<SecretStatus>(&found)) return *status;
  GList* items = std::get<ItemList>(found).get();
  if (!items) return {kSecretItemNotFound, "no such secret"};
  auto* item = SECRET_ITEM(items->data);
  if (secret_item_get_locked(item)) return lockedStatus(doing);
  std::unique_ptr<SecretValue, ValueFree> value(secret_value_new(data.c_str(), -1, "text/plain"));
  GError* error = nullptr;
  if (!secret_item_set_secret_sync(item, value.get(), nullptr, &error)) {
    if (error) return statusFromError(error, doing);
    return lockedStatus(doing);
  }
  return SecretStatus::success();
}

SecretStatus SecretServiceStore::remove(const SecretItemKey& key) {
  if (auto status = checkKey(key); !status.ok()) return status;
  std::lock_guard lock(mutex_);
  return retried([&] { return removeOnce(key); });
}

SecretStatus SecretServiceStore::removeOnce(const SecretItemKey& key) {
  const char* doing = "cannot delete the secret";
  auto found = search(key, journal_, true, doing);
  if (auto* status = std::get_if<SecretStatus>(&found)) return *status;
  GList* items = std::get<ItemList>(found).get();
  if (!items) return {kSecretItemNotFound, "no such secret"};
  for (GList* l = items; l; l = l->next) {
    auto* item = SECRET_ITEM(l->data);
    if (secret_item_get_locked(item)) return lockedStatus(doing);
    GError* error = nullptr;
    if (!secret_item_delete_sync(item, nullptr, &error)) {
      if (error) return statusFromError(error, doing);
      return lockedStatus(doing);
    }
  }
  return SecretStatus::success();
}

}  // namespace lumeo
