// The log line format, the level gate, printf-style messages with "%@", and
// whole lines when several threads log at once.
#include "platform/log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

// Logs from a member function and a lambda, as engine code does.
class SyncEnsembleProbe {
 public:
  int merge(int attempt) {
    LUMEO_LOG_ERROR("Merge failed: %@ (attempt %d)", std::string("no baseline"), attempt);
    return __LINE__ - 1;
  }
  int mergeLater() {
    int line = 0;
    auto later = [&] {
      LUMEO_LOG_WARNING("Retrying");
      line = __LINE__ - 1;
    };
    later();
    return line;
  }
};

namespace {

TEST(Log, LineNamesFunctionAndLine) {
  ScopedLogCapture log(kLogLevelVerbose);
  SyncEnsembleProbe probe;
  int line = probe.merge(2);
  int lambdaLine = probe.mergeLater();
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0], "SyncEnsembleProbe::merge line " + std::to_string(line) +
                                ": Merge failed: no baseline (attempt 2)");
  EXPECT_EQ(log.lines()[1].rfind("SyncEnsembleProbe::mergeLater", 0), 0u) << log.lines()[1];
  EXPECT_NE(log.lines()[1].find(" line " + std::to_string(lambdaLine) + ": Retrying"), std::string::npos);
}

TEST(Log, LevelDecidesWhatIsWritten) {
  ScopedLogCapture log(kLogLevelWarning);
  LUMEO_LOG_ERROR("error");
  LUMEO_LOG_WARNING("warning");
  LUMEO_LOG_VERBOSE("verbose");
  LUMEO_LOG_DEBUG("dropped failure");
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(log.contains("warning"));
  EXPECT_FALSE(log.contains("verbose"));

  setLogLevel(kLogLevelDebug);
  LUMEO_LOG_DEBUG("dropped failure");
  EXPECT_TRUE(log.contains("dropped failure"));

  setLogLevel(kLogLevelOff);
  LUMEO_LOG_ERROR("silent");
  EXPECT_FALSE(log.contains("silent"));

  setLogLevel(99);
  EXPECT_EQ(logLevel(), kLogLevelDebug);
  setLogLevel(-5);
  EXPECT_EQ(logLevel(), kLogLevelOff);
}

TEST(Log, ArgumentsAreNotFormattedWhenTheLevelIsOff) {
  ScopedLogCapture log(kLogLevelError);
  int evaluated = 0;
  auto costly = [&] {
    ++evaluated;
    return 1;
  };
  LUMEO_LOG_VERBOSE("value %d", costly());
  EXPECT_EQ(evaluated, 0);
}

TEST(Log, MessagesWithoutArgumentsAreWrittenAsTheyStand) {
  ScopedLogCapture log(kLogLevelError);
  LUMEO_LOG_ERROR("100% of 5%d");
  LUMEO_LOG_ERROR("%d%% done, %@", 50, "ok");
  LUMEO_LOG_ERROR("count %d", "not a number");  // lenient, never throws
  ASSERT_EQ(log.lines().size(), 3u);
  EXPECT_NE(log.lines()[0].find(": 100% of 5%d"), std::string::npos);
  EXPECT_NE(log.lines()[1].find(": 50% done, ok"), std::string::npos);
}

TEST(Log, OurValuesPrintAsText) {
  ScopedLogCapture log(kLogLevelError);
  Error error("SyncErrorDomain", 106, "Coordination timed out");
  enum class Stage { kIdle, kMerging };
  LUMEO_LOG_ERROR("%@ | %@ | %@ | %d | %@", error, std::filesystem::path("/data/Model.sqlite"),
                  Date::fromTimeIntervalSince1970(86400.25), Stage::kMerging, Value("text"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_NE(log.lines()[0].find(": SyncErrorDomain 106: Coordination timed out | /data/Model.sqlite | "
                                "1970-01-02T00:00:00.250Z | 1 | text"),
            std::string::npos)
      << log.lines()[0];
}

TEST(Log, BadFormatsStillProduceALine) {
  ScopedLogCapture log(kLogLevelError);
  LUMEO_LOG_ERROR("%d and %d", 1);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_NE(log.lines()[0].find("%d and %d"), std::string::npos);
}

TEST(Log, ConcurrentLinesStayWhole) {
  ScopedLogCapture log(kLogLevelVerbose);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 250; ++i) LUMEO_LOG_VERBOSE("thread %d message %d end", t, i);
    });
  }
  for (auto& th : threads) th.join();
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1000u);
  for (const auto& l : lines) {
    EXPECT_EQ(l.find("thread"), l.rfind("thread")) << l;
    EXPECT_TRUE(l.ends_with(" end")) << l;
  }
}

TEST(Log, DefaultLevelYieldsToTheEnvironment) {
  ScopedLogCapture log;
  setenv("LUMEO_LOG_LEVEL", "4", 1);
  setLogLevel(kLogLevelError);
  setDefaultLogLevel(kLogLevelVerbose);
  EXPECT_EQ(logLevel(), kLogLevelError);
  setenv("LUMEO_LOG_LEVEL", "loud", 1);  // not a level: ignored
  setDefaultLogLevel(kLogLevelVerbose);
  EXPECT_EQ(logLevel(), kLogLevelVerbose);
  unsetenv("LUMEO_LOG_LEVEL");
}

TEST(Log, ShortFunctionNames) {
  EXPECT_EQ(shortFunctionName("void lumeo::SyncEnsemble::merge(std::function<void()>)"),
            "SyncEnsemble::merge");
  EXPECT_EQ(shortFunctionName("std::map<int, std::string> lumeo::Foo::bar() const"), "Foo::bar");
  EXPECT_EQ(shortFunctionName("int main(int, char**)"), "main");
  EXPECT_EQ(shortFunctionName("bool lumeo::Foo::operator()(int) const"), "Foo::operator()");
  EXPECT_EQ(shortFunctionName("lumeo::Foo::Foo(int)"), "Foo::Foo");
  EXPECT_EQ(shortFunctionName("const char* lumeo::name()"), "name");
  EXPECT_EQ(shortFunctionName("plain"), "plain");
}

}  // namespace
}  // namespace lumeo
