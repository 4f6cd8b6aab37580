// lumeo sync: where this device syncs to. `sync folder PATH` chooses a
// folder that the user's own sync client keeps in step, `sync webdav URL`
// a WebDAV server (its password goes to the Secret Service, never to a
// file), and `sync status` shows the choice and, with --check, whether the
// destination answers. A new destination is checked before it is saved: a
// folder that cannot be prepared or a server that refuses leaves the
// settings and the keyring as they were.
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>

#include "cli_app.h"
#include "journal_commands.h"
#include "lock_gate.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/data_directories.h"
#include "platform/linux/plist_user_defaults.h"
#include "platform/linux/secret_service_store.h"
#include "sync/sync_cloud_file_system_settings.h"
#include "sync/sync_shared_folder.h"
#include "sync/sync_webdav.h"

namespace lumeo::cli {

namespace {

// The settings, without opening the journal.
std::shared_ptr<UserDefaults> syncSettings(CliApp& cli) {
  if (cli.home()) DataDirectories::setHomeOverride(*cli.home());
  if (!DataDirectories::current().create()) throw CommandError("cannot make Lumeo's folders");
  return PlistUserDefaults::installStandard();
}

// Runs one asynchronous call of a file system to its end on the main loop.
OptionalError await(const std::function<void(SyncCloudCompletion)>& start) {
  OptionalError result;
  bool done = false;
  start([&](OptionalError error) {
    result = std::move(error);
    done = true;
  });
  // The file systems end every call within their own timeouts; this is a
  // last guard.
  if (!MainLoop::shared().runUntil([&] { return done; }, 600))
    return Error("SyncErrorDomain", 106, "the destination did not answer");
  return result;
}

std::string readPasswordFromFd(int fd) {
  std::string all;
  char buffer[256];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0)
      throw CommandError("cannot read the password from file descriptor " + std::to_string(fd), kUsageError);
    if (n == 0) break;
    all.append(buffer, static_cast<std::size_t>(n));
    if (all.size() > 64 * 1024) throw CommandError("the password is too long", kUsageError);
  }
  // One line: what follows the first line break is not part of it.
  all = all.substr(0, all.find('\n'));
  if (!all.empty() && all.back() == '\r') all.pop_back();
  return all;
}

std::string readPasswordFromTerminal(CliApp& cli, const std::string& prompt) {
  termios old{};
  bool restore = tcgetattr(STDIN_FILENO, &old) == 0;
  if (restore) {
    termios quiet = old;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  }
  cli.err() << prompt << std::flush;
  std::string line;
  std::getline(std::cin, line);
  if (restore) tcsetattr(STDIN_FILENO, TCSANOW, &old);
  cli.err() << "\n";
  return line;
}

std::string describe(const Error& error) {
  return error.description.empty() ? error.toString() : error.description;
}

// --- sync folder ---------------------------------------------------------------

void runFolder(CliApp& cli, const std::string& given) {
  if (given.empty()) throw CommandError("give the folder to sync through", kUsageError);
  requireUtf8(given, "the folder");
  auto settings = syncSettings(cli);
  requireUnlocked(cli);
  std::error_code ec;
  std::filesystem::path folder = std::filesystem::absolute(given, ec).lexically_normal();
  if (ec) throw CommandError("cannot use the folder " + given + ": " + ec.message());
  if (folder.has_filename() == false && folder.has_parent_path()) folder = folder.parent_path();
  auto data = DataDirectories::current();
  for (const auto& own : {data.library, data.documents, data.applicationSupport}) {
    auto canonicalOwn = std::filesystem::weakly_canonical(own, ec);
    auto canonicalFolder = std::filesystem::weakly_canonical(folder, ec);
    auto [a, b] = std::mismatch(canonicalOwn.begin(), canonicalOwn.end(), canonicalFolder.begin(),
                                canonicalFolder.end());
    if (a == canonicalOwn.end() || b == canonicalFolder.end())
      throw CommandError("the sync folder cannot be inside Lumeo's own data folders, nor hold them",
                         kUsageError);
  }
  bool made = false;
  if (!std::filesystem::exists(folder, ec)) {
    std::filesystem::create_directories(folder, ec);
    if (ec) throw CommandError("cannot make the folder " + folder.string() + ": " + ec.message());
    made = true;
  }
  SyncSharedFolderFileSystem fs(folder);
  if (auto error = await([&](SyncCloudCompletion done) { fs.performInitialPreparation(done); }))
    throw CommandError("cannot sync through " + folder.string() + ": " + describe(*error));
  auto previous = syncCloudDestination(*settings);
  SyncCloudDestination destination;
  destination.service = kSyncServiceSharedFolder;
  destination.folder = folder.string();
  destination.folderIdentity = SyncSharedFolderFileSystem::readIdentity(folder);
  if (auto error = setSyncCloudDestination(*settings, destination))
    throw CommandError("cannot save the setting: " + describe(*error));
  bool changed =
      previous && (previous->service != destination.service || previous->folder != destination.folder);
  if (cli.json()) {
    cli.printJson({{"service", destination.service},
                   {"folder", destination.folder},
                   {"identity", fs.identityToken().value_or("")},
                   {"created", made},
                   {"changed", changed}});
    return;
  }
  cli.out() << "Lumeo syncs through the folder " << folder.string() << (made ? " (made now)" : "") << ".\n"
            << "Have your sync client (Nextcloud, Syncthing, Dropbox, ...) keep this folder in step on every "
               "device,\n"
            << "and choose it there with `lumeo sync folder`.\n";
  if (changed)
    cli.out() << "The previous destination is no longer used; the journal starts over with this one.\n";
}

// --- sync webdav ---------------------------------------------------------------

struct WebDavOptions {
  std::string url;
  std::string user;
  std::optional<int> passwordFd;
  std::optional<std::string> caFile;
};

void runWebDav(CliApp& cli, const WebDavOptions& options) {
  requireUtf8(options.url, "the URL");
  requireUtf8(options.user, "the user name");
  std::string why;
  auto url = syncWebDavNormalizedURL(options.url, &why);
  if (!url) throw CommandError("cannot use " + options.url + ": " + why, kUsageError);
  if (options.user.empty()) throw CommandError("give the account with --user NAME", kUsageError);
  std::string caFile;
  if (options.caFile) {
    std::error_code ec;
    caFile = std::filesystem::absolute(*options.caFile, ec).string();
    if (!std::filesystem::is_regular_file(caFile, ec))
      throw CommandError("no certificate file " + *options.caFile, kUsageError);
  }
  auto settings = syncSettings(cli);
  requireUnlocked(cli);

  std::string password;
  if (options.passwordFd) {
    password = readPasswordFromFd(*options.passwordFd);
  } else if (cli.interactive()) {
    password = readPasswordFromTerminal(cli, "Password for " + options.user + " at " + *url + ": ");
  } else {
    throw CommandError("type the password on a terminal, or give it to a script with --password-fd N",
                       kUsageError);
  }
  if (password.empty()) throw CommandError("the password is empty", kUsageError);

  // Try the new password before anything is kept.
  auto trial = std::make_shared<InMemorySecretStore>();
  auto key = syncWebDavCredentialKey(*url, options.user);
  (void)trial->add(key, "", password);
  SyncWebDavFileSystem::Options fsOptions;
  fsOptions.caFile = caFile;
  {
    SyncWebDavFileSystem fs(*url, options.user, fsOptions, trial);
    if (auto error = await([&](SyncCloudCompletion done) { fs.connect(done); }))
      throw CommandError("cannot sync through " + *url + ": " + describe(*error));
  }

  auto secrets = journalKeyring();
  auto status = secrets->add(key, "Lumeo sync: " + options.user + " at " + *url, password);
  if (status.code == kSecretDuplicateItem) status = secrets->update(key, password);
  std::fill(password.begin(), password.end(), '\0');
  if (!status.ok())
    throw CommandError("cannot keep the password in the Secret Service (" + status.message +
                       "); Lumeo keeps passwords nowhere else");
  auto previous = syncCloudDestination(*settings);
  SyncCloudDestination destination;
  destination.service = kSyncServiceWebDAV;
  destination.url = *url;
  destination.user = options.user;
  destination.caFile = caFile;
  if (auto error = setSyncCloudDestination(*settings, destination))
    throw CommandError("cannot save the setting: " + describe(*error));
  bool changed = previous && (previous->service != destination.service || previous->url != destination.url ||
                              previous->user != destination.user);
  if (cli.json()) {
    cli.printJson(
        {{"service", destination.service}, {"url", *url}, {"user", options.user}, {"changed", changed}});
    return;
  }
  cli.out() << "Lumeo syncs through the WebDAV folder " << *url << " as " << options.user << ".\n"
            << "The password is in the Secret Service.\n";
  if (changed)
    cli.out() << "The previous destination is no longer used; the journal starts over with this one.\n";
}

// --- sync status -----------------------------------------------------------------

void runStatus(CliApp& cli, bool check) {
  auto settings = syncSettings(cli);
  auto destination = syncCloudDestination(*settings);
  nlohmann::json out = {{"service", nullptr}};
  if (!destination) {
    if (cli.json()) return cli.printJson(out);
    cli.out() << "Sync is not set up. Choose a destination with `lumeo sync folder PATH` or "
                 "`lumeo sync webdav URL --user NAME`.\n";
    return;
  }
  auto secrets = destination->service == kSyncServiceWebDAV ? journalKeyring() : nullptr;
  auto fs = makeSyncCloudFileSystem(*destination, secrets);
  out["service"] = destination->service;
  out["identity"] = fs->identityToken() ? nlohmann::json(*fs->identityToken()) : nlohmann::json(nullptr);
  if (destination->service == kSyncServiceSharedFolder) {
    out["folder"] = destination->folder;
  } else {
    out["url"] = destination->url;
    out["user"] = destination->user;
    if (!destination->caFile.empty()) out["caFile"] = destination->caFile;
    auto status =
        secrets->copyMatchingAttributes(syncWebDavCredentialKey(destination->url, destination->user));
    out["passwordStored"] = status.ok();
  }
  OptionalError checkError;
  if (check) {
    checkError = await([&](SyncCloudCompletion done) { fs->connect(done); });
    out["reachable"] = !checkError;
    if (checkError)
      out["error"] = {
          {"domain", checkError->domain}, {"code", checkError->code}, {"message", describe(*checkError)}};
  }
  if (cli.json()) {
    cli.printJson(out);
  } else if (destination->service == kSyncServiceSharedFolder) {
    cli.out() << "Syncing through the shared folder " << destination->folder << "\n";
  } else {
    cli.out() << "Syncing through WebDAV: " << destination->url << " as " << destination->user << "\n"
              << "Password in the Secret Service: " << (out["passwordStored"].get<bool>() ? "yes" : "no")
              << "\n";
  }
  if (checkError) throw CommandError("the sync destination does not answer: " + describe(*checkError));
  if (!cli.json() && check) cli.out() << "Reachable.\n";
}

// --- sync reset --------------------------------------------------------------------

void runReset(CliApp& cli) {
  auto settings = syncSettings(cli);
  requireUnlocked(cli);
  auto destination = syncCloudDestination(*settings);
  bool forgotPassword = false;
  if (destination && destination->service == kSyncServiceWebDAV) {
    auto status = journalKeyring()->remove(syncWebDavCredentialKey(destination->url, destination->user));
    forgotPassword = status.ok();
    if (!status.ok() && status.code != kSecretItemNotFound)
      throw CommandError("cannot remove the password from the Secret Service: " + status.message);
  }
  if (auto error = clearSyncCloudDestination(*settings))
    throw CommandError("cannot save the setting: " + describe(*error));
  if (cli.json()) return cli.printJson({{"service", nullptr}, {"passwordRemoved", forgotPassword}});
  cli.out() << (destination ? "Sync destination forgotten" : "Sync was not set up")
            << (forgotPassword ? "; its password is gone from the Secret Service" : "")
            << ". The journal and the files in the cloud stay as they are.\n";
}

void registerCommands(CliApp& cli) {
  CLI::App& sync = cli.noun("sync", "Where this device syncs its journal to");

  auto folder = std::make_shared<std::string>();
  CLI::App* f =
      sync.add_subcommand("folder", "Sync through a folder that your own sync client keeps in step");
  f->add_option("PATH", *folder, "The folder (made if missing)")->required();
  f->callback([&cli, folder] { runFolder(cli, *folder); });

  auto webdav = std::make_shared<WebDavOptions>();
  CLI::App* w =
      sync.add_subcommand("webdav", "Sync through a folder on a WebDAV server (Nextcloud, ownCloud, ...)");
  w->add_option("URL", webdav->url, "The folder's address, https://...")->required();
  w->add_option("--user", webdav->user, "The account on the server")->required()->type_name("NAME");
  w->add_option("--password-fd", webdav->passwordFd, "Read the password from this file descriptor")
      ->type_name("N");
  w->add_option("--ca-file", webdav->caFile, "Trust this certificate authority too (a self-hosted server)")
      ->type_name("FILE");
  w->callback([&cli, webdav] { runWebDav(cli, *webdav); });

  auto check = std::make_shared<bool>(false);
  CLI::App* s = sync.add_subcommand("status", "Show the sync destination");
  s->add_flag("--check", *check, "Also check that the destination answers");
  s->callback([&cli, check] { runStatus(cli, *check); });

  CLI::App* r = sync.add_subcommand("reset", "Forget the sync destination and its password");
  r->callback([&cli] { runReset(cli); });
}

const CommandRegistration kSyncCommands(70, registerCommands);

}  // namespace

}  // namespace lumeo::cli
