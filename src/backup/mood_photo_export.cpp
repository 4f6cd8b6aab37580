// The photo list of a range and its comparison with a destination.
#include "backup/mood_photo_export.h"

#include <glib.h>

#include <algorithm>
#include <set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "platform/date_formatter.h"
#include "platform/file_system.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace lumeo {

std::string photoNameKey(const std::string& name) {
  gchar* lower = g_utf8_strdown(name.data(), static_cast<gssize>(name.size()));
  std::string out(lower);
  g_free(lower);
  return out;
}

std::map<std::string, std::filesystem::path> MoodPhotoExport::createPhotoURLFrom(JournalStore& store,
                                                                                 Date from, Date to) {
  std::map<std::string, std::filesystem::path> photos;
  if (!store.hasStore()) return photos;
  auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kMainQueue);
  context->setPersistentStoreCoordinator(store.persistentStoreCoordinator());
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("date >= %@ AND date <= %@", from, to));
  request.setSortDescriptors({SortDescriptor("date", true)});
  DateFormatter formatter;
  formatter.setDateStyle(DateFormatter::Style::kLong);
  formatter.setTimeStyle(DateFormatter::Style::kMedium);
  auto images = ImageStore::shared();
  for (const auto& object : context->executeFetchRequest(request)) {
    auto record = std::dynamic_pointer_cast<MoodRecord>(object);
    if (!record || !record->date()) continue;
    auto description = record->moodDescription();
    if (!description || !description->photoName() || description->photoName()->empty()) continue;
    std::optional<std::filesystem::path> file =
        images ? images->imageURLForName(description->photoName()) : std::optional<std::filesystem::path>();
    if (!file) continue;
    std::string name = formatter.stringFromDate(*record->date()) + ".jpg";
    std::replace(name.begin(), name.end(), '/', '-');
    photos[name] = *file;  // records come in date order: the later one stays
  }
  return photos;
}

PhotoComparison MoodPhotoExport::comparePhotos(
    const std::vector<PhotoEntry>& remote, const std::map<std::string, std::filesystem::path>& local,
    const std::function<std::optional<std::uintmax_t>(const std::filesystem::path&)>& localSize) {
  PhotoComparison result;
  std::map<std::string, std::pair<std::string, std::filesystem::path>> pending;  // lower-case name → local
  std::map<std::string, std::optional<std::uintmax_t>> sizes;
  for (const auto& [name, file] : local) {
    pending[photoNameKey(name)] = {name, file};
    sizes[photoNameKey(name)] = localSize(file);
  }
  std::set<std::string> deleted;
  for (const PhotoEntry& entry : remote) {
    const std::string key = photoNameKey(entry.name);
    auto it = pending.find(key);
    if (it == pending.end()) continue;
    const std::optional<std::uintmax_t>& size = sizes[key];
    if (!size) continue;
    if (*size == entry.size) {
      result.unchanged.push_back(it->second.first);
      pending.erase(it);
    } else if (deleted.insert(entry.name).second) {
      result.toDelete.push_back(entry.name);
    }
  }
  for (auto& [key, value] : pending) {
    if (sizes[key]) result.toSend.push_back(std::move(value));
  }
  std::sort(result.toSend.begin(), result.toSend.end());
  std::sort(result.unchanged.begin(), result.unchanged.end());
  return result;
}

std::variant<std::vector<PhotoEntry>, Error> MoodPhotoExport::listFolder(
    const std::filesystem::path& folder) {
  auto fs = FileSystem::current();
  auto listing = fs->listFolder(folder);
  if (auto* error = std::get_if<Error>(&listing)) return *error;
  std::vector<PhotoEntry> entries;
  for (const FolderEntry& entry : std::get<std::vector<FolderEntry>>(listing)) {
    if (entry.isFolder || entry.name.size() < 4) continue;
    if (photoNameKey(entry.name.substr(entry.name.size() - 4)) != ".jpg") continue;
    auto status = fs->status(folder / entry.name);
    if (auto* st = std::get_if<FileStatus>(&status)) entries.push_back({entry.name, st->size});
  }
  return entries;
}

}  // namespace lumeo
