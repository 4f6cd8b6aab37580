// lumeo watch and lumeo watch-client: the watch link on a desktop. `watch
// serve` runs the phone side on the Unix socket until it is stopped;
// `watch steps` shows and sets the two switches of the watch's settings
// screen; `watch-client` is the reference companion that talks to a
// running server (docs/watch-protocol.md).
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli_app.h"
#include "journal_commands.h"
#include "platform/dispatch_queue.h"
#include "platform/linux/unix_watch_client.h"
#include "platform/linux/unix_watch_session.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_store.h"
#include "watch/mood_watch_helper.h"
#include "watch/mood_watch_view_controller.h"

namespace lumeo::cli {

namespace {

volatile std::sig_atomic_t gStopRequested = 0;

void requestStop(int) {
  gStopRequested = 1;
}

std::filesystem::path socketPath(const std::optional<std::string>& option) {
  return option ? std::filesystem::path(*option) : UnixWatchSession::defaultSocketPath();
}

nlohmann::json jsonOf(const Value::Dictionary& message) {
  const std::string line = watch_wire::encodeLine({std::nullopt, std::nullopt, message});
  return nlohmann::json::parse(line)["message"];
}

void runServe(CliApp& cli, const std::optional<std::string>& socketOption) {
  // Opened once to pass the passcode gate and check the journal, then only
  // while a message needs it: other commands write between messages.
  journalSession(cli);
  closeJournalSession(cli);
  auto session = std::make_shared<UnixWatchSession>(socketPath(socketOption));
  if (auto error = session->listen()) throw CommandError(error->description);
  MoodWatchHelper& helper = MoodWatchHelper::sharedHelper();
  helper.setJournalAccess([&cli](const std::function<void(JournalStore&)>& work) {
    try {
      MoodAppDelegate& app = journalSession(cli);
      work(app.store());
      closeJournalSession(cli);
    } catch (const CommandError& error) {
      closeJournalSession(cli);
      cli.err() << "lumeo watch serve: " << error.what() << "\n";
    }
  });
  helper.setSession(session);
  if (cli.json()) {
    cli.printJson({{"listening", session->socketPath().string()}});
  } else {
    cli.out() << "Listening for a watch companion on " << session->socketPath().string()
              << " (Ctrl-C stops)\n";
  }
  cli.out().flush();

  gStopRequested = 0;
  struct sigaction action {};
  action.sa_handler = requestStop;
  sigemptyset(&action.sa_mask);
  struct sigaction oldInt {
  }, oldTerm{};
  sigaction(SIGINT, &action, &oldInt);
  sigaction(SIGTERM, &action, &oldTerm);
  // The main loop sleeps until its next timer; a timer a few times a second
  // lets it notice a stop request.
  std::function<void()> tick;
  tick = [&tick] {
    if (!gStopRequested) DispatchQueue::main().after(0.2, tick);
  };
  tick();
  MainLoop::shared().runUntil([] { return gStopRequested != 0; }, 1e9);
  sigaction(SIGINT, &oldInt, nullptr);
  sigaction(SIGTERM, &oldTerm, nullptr);

  helper.setSession(nullptr);
  session->stop();
  MainLoop::shared().runUntilIdle();  // records still on their way to the store
  helper.setJournalAccess(nullptr);
  if (!cli.json()) cli.out() << "Stopped.\n";
}

bool parseSwitch(const std::string& text, const std::string& what) {
  if (text == "on" || text == "yes" || text == "true") return true;
  if (text == "off" || text == "no" || text == "false") return false;
  throw CommandError(what + " is on or off, not \"" + text + "\"", kUsageError);
}

void runSteps(CliApp& cli, const std::optional<std::string>& dictation,
              const std::optional<std::string>& hashtags) {
  std::optional<bool> skipDictation, skipHashtags;
  if (dictation) skipDictation = parseSwitch(*dictation, "--skip-dictation");
  if (hashtags) skipHashtags = parseSwitch(*hashtags, "--skip-hashtags");
  journalSession(cli);
  MoodWatchViewController screen;
  if (skipDictation) screen.switchChanged(MoodWatchViewController::kSkipDictationRow, *skipDictation);
  if (skipHashtags) screen.switchChanged(MoodWatchViewController::kSkipHashtagsRow, *skipHashtags);
  const bool d = screen.isRowOn(MoodWatchViewController::kSkipDictationRow);
  const bool h = screen.isRowOn(MoodWatchViewController::kSkipHashtagsRow);
  if (cli.json()) {
    cli.printJson({{"skipDictation", d}, {"skipHashtags", h}});
    return;
  }
  const auto titles = MoodWatchViewController::rowTitles();
  cli.out() << titles[0] << ": " << (d ? "on" : "off") << "\n"
            << titles[1] << ": " << (h ? "on" : "off") << "\n";
  if (skipDictation || skipHashtags) {
    cli.out()
        << "A running `lumeo watch serve` sends the new steps to companions that connect from now on.\n";
  }
}

struct ClientOptions {
  std::string verb;
  std::optional<std::string> level;
  std::vector<std::string> tags;
  std::optional<std::string> text;
  std::optional<std::string> socket;
  double timeout = 5;
};

void runClient(CliApp& cli, const ClientOptions& options) {
  Value::Dictionary message;
  if (options.verb == "request") {
    if (options.level || !options.tags.empty() || options.text) {
      throw CommandError("request takes no LEVEL, --tag or --text", kUsageError);
    }
    message = {{watch_keys::kCommand, watch_keys::kRequest}};
  } else if (options.verb == "save") {
    if (!options.level) throw CommandError("save needs a LEVEL from 1 to 10", kUsageError);
    const long level = parseInteger(*options.level, "LEVEL");
    if (level < 1 || level > 10)
      throw CommandError("LEVEL goes from 1 to 10, not " + *options.level, kUsageError);
    Value::Array tags;
    for (const auto& raw : options.tags) {
      requireUtf8(raw, "a tag");
      tags.emplace_back(!raw.empty() && raw[0] == '#' ? raw.substr(1) : raw);
    }
    message = {{watch_keys::kCommand, watch_keys::kSaveMood},
               {watch_keys::kLevel, level},
               {watch_keys::kTags, std::move(tags)}};
    if (options.text) {
      requireUtf8(*options.text, "the text");
      message[watch_keys::kText] = *options.text;
    }
  } else {
    throw CommandError("watch-client does request or save, not \"" + options.verb + "\"", kUsageError);
  }
  if (!(options.timeout > 0 && options.timeout <= 600)) {
    throw CommandError("--timeout is a number of seconds from 0 to 600", kUsageError);
  }

  UnixWatchClient client;
  if (auto error = client.connect(socketPath(options.socket))) throw CommandError(error->description);
  if (auto error = client.send({1, std::nullopt, message})) throw CommandError(error->description);
  auto reply = client.readReply(1, options.timeout);
  if (!reply) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", options.timeout);
    throw CommandError(std::string("no answer from the phone side within ") + seconds + " seconds" +
                       (client.isConnected() ? "" : " (it closed the connection)"));
  }
  if (cli.json()) {
    cli.printJson(jsonOf(*reply));
    return;
  }
  if (options.verb == "save") {
    cli.out() << (*reply)[watch_keys::kResult].toString("(no result)") << "\n";
    return;
  }
  const Value& moods = (*reply)[watch_keys::kMoods];
  const Value& tags = (*reply)[watch_keys::kTags];
  cli.out() << "Levels:";
  if (moods.asArray()) {
    for (const auto& caption : *moods.asArray()) cli.out() << " \"" << caption.toString() << "\"";
  }
  cli.out() << "\nTags:";
  if (tags.asArray()) {
    for (const auto& tag : *tags.asArray()) cli.out() << " #" << tag.toString();
  }
  cli.out() << "\nSkip dictation: " << ((*reply)[watch_keys::kSkipDictation].toBool() ? "on" : "off")
            << "\nSkip hashtags:  " << ((*reply)[watch_keys::kSkipHashtags].toBool() ? "on" : "off") << "\n";
}

void registerCommands(CliApp& cli) {
  CLI::App& watch = cli.noun("watch", "The link to a watch companion");
  auto serveSocket = std::make_shared<std::optional<std::string>>();
  CLI::App* serve = watch.add_subcommand("serve", "Run the phone side on the watch socket until stopped");
  serve->add_option("--socket", *serveSocket, "The socket (default: watch.sock in Lumeo's runtime folder)")
      ->type_name("PATH");
  serve->callback([&cli, serveSocket] { runServe(cli, *serveSocket); });

  auto dictation = std::make_shared<std::optional<std::string>>();
  auto hashtags = std::make_shared<std::optional<std::string>>();
  CLI::App* steps = watch.add_subcommand("steps", "Show or set which steps the watch skips");
  steps->add_option("--skip-dictation", *dictation, "Skip the dictation step: on or off")
      ->type_name("on|off");
  steps->add_option("--skip-hashtags", *hashtags, "Skip the hashtags step: on or off")->type_name("on|off");
  steps->callback([&cli, dictation, hashtags] { runSteps(cli, *dictation, *hashtags); });

  auto client = std::make_shared<ClientOptions>();
  CLI::App* c =
      cli.root().add_subcommand("watch-client", "Talk to a running `lumeo watch serve` as a watch would");
  c->add_option("VERB", client->verb, "request (the phone's data) or save (a mood)")->required();
  c->add_option("LEVEL", client->level, "The mood to save, 1 to 10");
  c->add_option("--tag", client->tags, "A tag of the mood (repeatable); unknown tags are left out")
      ->type_name("NAME");
  c->add_option("--text", client->text, "The mood's text")->type_name("TEXT");
  c->add_option("--socket", client->socket, "The socket (default: watch.sock in Lumeo's runtime folder)")
      ->type_name("PATH");
  c->add_option("--timeout", client->timeout, "Seconds to wait for the answer (default 5)")->type_name("S");
  c->callback([&cli, client] { runClient(cli, *client); });
}

const CommandRegistration kWatchCommands(50, registerCommands);

}  // namespace

}  // namespace lumeo::cli
