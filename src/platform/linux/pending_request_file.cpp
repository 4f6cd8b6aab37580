// Reading and writing the pending-request file.
#include "platform/linux/pending_request_file.h"

#include <nlohmann/json.hpp>

#include "platform/atomic_file.h"
#include "platform/log.h"

namespace lumeo {

namespace {

using nlohmann::json;

Error corrupt(const std::string& why) {
  return Error(kPendingRequestErrorDomain, kPendingRequestFileCorrupt,
               "the pending-request file is corrupt: " + why);
}

json userInfoJson(const Value::Dictionary& userInfo) {
  json j = json::object();
  for (const auto& [key, value] : userInfo) {
    if (const std::string* s = value.asString()) {
      j[key] = *s;
    } else if (value.type() == Value::Type::kBool) {
      j[key] = value.toBool();
    } else if (value.isNumber()) {
      j[key] = value.toDouble();
    }
  }
  return j;
}

const json& field(const json& object, const char* key, json::value_t type, std::size_t index) {
  auto it = object.find(key);
  bool ok = it != object.end() &&
            (it->type() == type || (type == json::value_t::number_integer && it->is_number_integer()));
  if (!ok) throw corrupt("request " + std::to_string(index) + " lacks a valid \"" + key + "\"");
  return *it;
}

}  // namespace

std::string encodePendingRequests(const std::vector<NotificationRequest>& requests) {
  json list = json::array();
  for (const auto& r : requests) {
    list.push_back({
        {"identifier", r.identifier},
        {"hour", r.trigger.hour},
        {"minute", r.trigger.minute},
        {"timeZone", r.trigger.timeZone},
        {"repeats", r.trigger.repeats},
        {"badge", r.content.badge},
        {"body", r.content.body},
        {"sound", r.content.sound},
        {"thread", r.content.threadIdentifier},
        {"userInfo", userInfoJson(r.content.userInfo)},
        {"onlyIfNothingRecorded", r.onlyIfNothingRecorded},
    });
  }
  json document = {{"version", kPendingRequestFileVersion}, {"requests", list}};
  return document.dump(1) + "\n";
}

std::variant<std::vector<NotificationRequest>, Error> decodePendingRequests(const std::string& text) {
  json document = json::parse(text, nullptr, false);
  if (document.is_discarded()) return corrupt("not JSON");
  if (!document.is_object()) return corrupt("not a JSON object");
  auto version = document.find("version");
  if (version == document.end() || !version->is_number_integer()) return corrupt("no version");
  if (version->get<int>() > kPendingRequestFileVersion) {
    return corrupt("written by a newer Lumeo (version " + std::to_string(version->get<int>()) + ")");
  }
  auto list = document.find("requests");
  if (list == document.end() || !list->is_array()) return corrupt("no list of requests");
  std::vector<NotificationRequest> requests;
  try {
    std::size_t index = 0;
    for (const json& item : *list) {
      if (!item.is_object()) throw corrupt("request " + std::to_string(index) + " is not an object");
      NotificationRequest r;
      r.identifier = field(item, "identifier", json::value_t::string, index).get<std::string>();
      r.trigger.hour = field(item, "hour", json::value_t::number_integer, index).get<int>();
      r.trigger.minute = field(item, "minute", json::value_t::number_integer, index).get<int>();
      if (r.trigger.hour < 0 || r.trigger.hour > 23 || r.trigger.minute < 0 || r.trigger.minute > 59) {
        throw corrupt("request " + std::to_string(index) + " has no valid time of day");
      }
      r.trigger.timeZone = item.value("timeZone", std::string());
      r.trigger.repeats = item.value("repeats", true);
      r.content.badge = item.value("badge", 1L);
      r.content.body = field(item, "body", json::value_t::string, index).get<std::string>();
      r.content.sound = item.value("sound", std::string());
      r.content.threadIdentifier = item.value("thread", std::string());
      r.onlyIfNothingRecorded = item.value("onlyIfNothingRecorded", false);
      if (auto info = item.find("userInfo"); info != item.end() && info->is_object()) {
        for (const auto& [key, value] : info->items()) {
          if (value.is_string()) {
            r.content.userInfo[key] = Value(value.get<std::string>());
          } else if (value.is_boolean()) {
            r.content.userInfo[key] = Value(value.get<bool>());
          } else if (value.is_number()) {
            r.content.userInfo[key] = Value(value.get<double>());
          }
        }
      }
      requests.push_back(std::move(r));
      ++index;
    }
  } catch (const Error& error) {
    return error;
  } catch (const json::exception& e) {
    return corrupt(e.what());
  }
  return requests;
}

std::variant<std::vector<NotificationRequest>, Error> readPendingRequestFile(
    const std::filesystem::path& file) {
  auto bytes = readFileBytes(file);
  if (auto* error = std::get_if<Error>(&bytes)) {
    if (error->code == kFileNotFound) {
      return Error(kPendingRequestErrorDomain, kPendingRequestFileMissing,
                   "no pending-request file at " + file.string());
    }
    return Error(kPendingRequestErrorDomain, kPendingRequestFileUnreadable,
                 "cannot read " + file.string() + ": " + error->description);
  }
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  return decodePendingRequests(std::string(data.begin(), data.end()));
}

// --- The centre ---------------------------------------------------------------

FileNotificationCenterService::FileNotificationCenterService(std::filesystem::path file)
    : file_(std::move(file)) {
  auto read = readPendingRequestFile(file_);
  if (auto* requests = std::get_if<std::vector<NotificationRequest>>(&read)) requests_ = std::move(*requests);
}

void FileNotificationCenterService::addNotificationRequest(const NotificationRequest& request) {
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
}

void FileNotificationCenterService::removeAllPendingNotificationRequests() {
  std::lock_guard lock(mutex_);
  requests_.clear();
}

void FileNotificationCenterService::didFinishUpdatingPendingRequests() {
  std::lock_guard lock(mutex_);
  lastWriteError_ = writeFileAtomically(file_, encodePendingRequests(requests_));
  if (lastWriteError_) LUMEO_LOG_ERROR("Could not write the pending reminders: %@", *lastWriteError_);
}

std::vector<NotificationRequest> FileNotificationCenterService::pendingNotificationRequests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

OptionalError FileNotificationCenterService::lastWriteError() const {
  std::lock_guard lock(mutex_);
  return lastWriteError_;
}

}  // namespace lumeo
