// The WebDAV file system beyond what every cloud does: reading listings,
// addresses and credentials, and the faults of servers and networks, each
// made by a real server or by the fault server speaking WebDAV.
#include "sync/sync_webdav.h"

#include <gtest/gtest.h>

#include <chrono>

#include "sync/sync_cloud_file_system_test_support.h"
#include "sync/sync_error.h"
#include "sync/sync_webdav_test_servers.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::CloudCalls;
using testing::FaultDavServer;
using testing::isCloudError;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

TEST(WebDavMultistatus, ReadsEntriesWhateverPrefixAndFormTheServerUses) {
  const std::string body = R"(<?xml version="1.0" encoding="utf-8"?>
<multistatus xmlns="DAV:" xmlns:x="urn:other">
  <response>
    <href>https://cloud.example/remote.php/dav/files/ana/Lumeo/</href>
    <propstat><prop><resourcetype><collection/></resourcetype></prop><status>HTTP/1.1 200 OK</status></propstat>
    <propstat><prop><getcontentlength/></prop><status>HTTP/1.1 404 Not Found</status></propstat>
  </response>
  <response>
    <href>/remote.php/dav/files/ana/Lumeo/%E6%97%A5%E8%A8%98%20%231.syncevent</href>
    <propstat><prop><resourcetype/><getcontentlength> 1234 </getcontentlength><x:collection/></prop>
      <status>HTTP/1.1 200 OK</status></propstat>
  </response>
  <response><href>/remote.php/dav/files/ana/Lumeo/gone</href><status>HTTP/1.1 404 Not Found</status></response>
  <response><href>/remote.php/dav/files/ana/Lumeo/bad%2Fname</href>
    <propstat><prop><resourcetype/></prop><status>HTTP/1.1 200 OK</status></propstat></response>
</multistatus>)";
  auto entries = syncWebDavParseMultistatus(body);
  ASSERT_TRUE(entries);
  ASSERT_EQ(entries->size(), 2u);
  EXPECT_EQ((*entries)[0].href, "/remote.php/dav/files/ana/Lumeo/");
  EXPECT_TRUE((*entries)[0].isCollection);
  EXPECT_EQ((*entries)[1].href, "/remote.php/dav/files/ana/Lumeo/\u65e5\u8a18 #1.syncevent");
  EXPECT_FALSE((*entries)[1].isCollection) << "a collection of another namespace is not DAV's";
  EXPECT_EQ((*entries)[1].size, 1234u);

  // Another prefix for DAV:, and the same answer.
  auto prefixed = syncWebDavParseMultistatus(
      R"(<a:multistatus xmlns:a="DAV:"><a:response><a:href>/x/</a:href><a:propstat><a:prop><a:resourcetype>)"
      R"(<a:collection/></a:resourcetype></a:prop><a:status>HTTP/1.1 200 OK</a:status></a:propstat>)"
      R"(</a:response></a:multistatus>)");
  ASSERT_TRUE(prefixed);
  ASSERT_EQ(prefixed->size(), 1u);
  EXPECT_TRUE((*prefixed)[0].isCollection);
}

TEST(WebDavMultistatus, AnythingButAMultistatusIsRefusedWithAReason) {
  for (const std::string body :
       {"", "<html><head><title>Login</title></head></html>", "<multistatus>no namespace</multistatus>",
        "<d:multistatus xmlns:d=\"DAV:\"><d:response>", "not xml at all",
        "<!DOCTYPE d [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><d:multistatus xmlns:d=\"DAV:\">&e;"
        "</d:multistatus>"}) {
    std::string why;
    auto entries = syncWebDavParseMultistatus(body, &why);
    EXPECT_FALSE(entries && !entries->empty()) << body;
    if (!entries) {
      EXPECT_FALSE(why.empty());
    }
  }
}

TEST(WebDavPaths, SegmentsAreEncodedAndDecodedWithoutLoss) {
  EXPECT_EQ(syncWebDavEncodeSegment("a b+c&d%e#f?g"), "a%20b%2Bc%26d%25e%23f%3Fg");
  EXPECT_EQ(syncWebDavEncodeSegment("\u00e9t\u00e9"), "%C3%A9t%C3%A9");
  EXPECT_EQ(syncWebDavEncodeSegment("1_A-b.~x"), "1_A-b.~x");
  for (const std::string name : {"a b+c&d%e#f?g", "\u65e5\u8a18", "plain", "%41"}) {
    EXPECT_EQ(syncWebDavDecodePath("/dir/" + syncWebDavEncodeSegment(name)), "/dir/" + name);
  }
  EXPECT_EQ(syncWebDavDecodePath("/a%2Fb"), std::nullopt);
  EXPECT_EQ(syncWebDavDecodePath("/a%00b"), std::nullopt);
  EXPECT_EQ(syncWebDavDecodePath("/a%zz"), std::nullopt);
  EXPECT_EQ(syncWebDavDecodePath("/a%4"), std::nullopt);
}

TEST(WebDavAddress, OnlyUsableAddressesAreAccepted) {
  EXPECT_EQ(syncWebDavNormalizedURL("https://Cloud.Example:443/remote.php/dav/files/ana/Lumeo/"),
            "https://cloud.example/remote.php/dav/files/ana/Lumeo");
  EXPECT_EQ(syncWebDavNormalizedURL("https://cloud.example:8443"), "https://cloud.example:8443");
  EXPECT_EQ(syncWebDavNormalizedURL("http://127.0.0.1:8080/dav"), "http://127.0.0.1:8080/dav");
  EXPECT_EQ(syncWebDavNormalizedURL("http://localhost/dav"), "http://localhost/dav");
  for (const std::string bad :
       {"http://cloud.example/dav", "ftp://cloud.example/", "https://ana:pw@cloud.example/",
        "https://cloud.example/?x=1", "cloud.example/dav", "", "https://"}) {
    std::string why;
    EXPECT_FALSE(syncWebDavNormalizedURL(bad, &why)) << bad;
    EXPECT_FALSE(why.empty()) << bad;
  }
}

class WebDavFaultTest : public ::testing::Test {
 protected:
  std::unique_ptr<SyncWebDavFileSystem> open(const std::string& url,
                                             SyncWebDavFileSystem::Options options = {},
                                             const std::string& user = {}) {
    return std::make_unique<SyncWebDavFileSystem>(url, user, options, secrets_);
  }
  std::filesystem::path local(const std::string& contents) {
    auto path = dir_ / ("local" + std::to_string(next_++));
    writeFile(path, contents);
    return path;
  }
  // Fast retries, so that the tests of retries take a second, not minutes.
  static SyncWebDavFileSystem::Options quick() {
    SyncWebDavFileSystem::Options options;
    options.retryDelay = 0.05;
    return options;
  }

  std::shared_ptr<InMemorySecretStore> secrets_ = std::make_shared<InMemorySecretStore>();
  TempDir dir_;
  int next_ = 0;
};

#define SKIP_UNLESS_RUNNING(server) \
  if (!(server).unavailableReason().empty()) GTEST_SKIP() << (server).unavailableReason()

TEST_F(WebDavFaultTest, AServerThatAnswers503ThenRecoversIsRetriedAfterItsRetryAfter) {
  FaultDavServer server({"busy", "2"});
  SKIP_UNLESS_RUNNING(server);
  auto cloud = open(server.url(), quick());
  CloudCalls calls(*cloud);
  auto started = std::chrono::steady_clock::now();
  ASSERT_FALSE(calls.connect());
  // Two 503 answers, each asking for one second.
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(1900));
  ASSERT_FALSE(calls.upload(local("after the storm"), "/event"));
  auto copy = dir_ / "copy";
  ASSERT_FALSE(calls.download("/event", copy));
  EXPECT_EQ(readFile(copy), "after the storm");
}

TEST_F(WebDavFaultTest, RetriesAreBoundedAndEndWithTheServersStatus) {
  FaultDavServer server({"too-many", "1000"});
  SKIP_UNLESS_RUNNING(server);
  auto options = quick();
  options.maxRetries = 2;
  auto cloud = open(server.url(), options);
  CloudCalls calls(*cloud);
  auto error = calls.connect();
  ASSERT_TRUE(isCloudError(error, kSyncErrorCodeServerError));
  EXPECT_EQ(error->userInfo["status"].toInt(), 429);
  EXPECT_FALSE(cloud->isConnected());

  // A Retry-After beyond what Lumeo waits ends the call at once.
  options.maxRetryDelay = 0.5;
  auto impatient = open(server.url(), options);
  CloudCalls impatientCalls(*impatient);
  auto started = std::chrono::steady_clock::now();
  EXPECT_TRUE(isCloudError(impatientCalls.connect(), kSyncErrorCodeServerError));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
}

TEST_F(WebDavFaultTest, AServerThatStopsAnsweringEndsTheCallWithinItsTimeout) {
  FaultDavServer server({"hang"});
  SKIP_UNLESS_RUNNING(server);
  auto options = quick();
  options.stallTimeout = 1;
  auto cloud = open(server.url(), options);
  CloudCalls calls(*cloud);
  auto started = std::chrono::steady_clock::now();
  EXPECT_TRUE(isCloudError(calls.connect(), kSyncErrorCodeFileCoordinatorTimedOut));
  // One second of silence, and no retry of a timeout; generous for a loaded machine.
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
}

TEST_F(WebDavFaultTest, AnHtmlPageInsteadOfAListingIsAClearError) {
  FaultDavServer server({"html"});
  SKIP_UNLESS_RUNNING(server);
  auto cloud = open(server.url());
  CloudCalls calls(*cloud);
  auto error = calls.connect();
  ASSERT_TRUE(isCloudError(error, kSyncErrorCodeServerError));
  EXPECT_NE(error->description.find("Sign in - Hotel WiFi"), std::string::npos) << error->description;
}

TEST_F(WebDavFaultTest, ARedirectToAnotherHostIsRefusedAndThePasswordStaysHome) {
  // The other host is a server that would accept anything: it must not see
  // a single request.
  FaultDavServer elsewhere({"normal"});
  SKIP_UNLESS_RUNNING(elsewhere);
  std::string other = "http://localhost:" + std::to_string(elsewhere.port()) + "/";
  FaultDavServer server({"redirect", other});
  SKIP_UNLESS_RUNNING(server);
  (void)secrets_->add(syncWebDavCredentialKey(server.url(), "ana"), "test", "secret");
  auto cloud = open(server.url(), {}, "ana");
  CloudCalls calls(*cloud);
  auto error = calls.connect();
  ASSERT_TRUE(isCloudError(error, kSyncErrorCodeServerError));
  EXPECT_NE(error->description.find("another host"), std::string::npos) << error->description;
}

TEST_F(WebDavFaultTest, AnAnswerShorterOrLongerThanItsLengthLeavesTheLocalFileAlone) {
  for (const char* mode : {"short-body", "long-body"}) {
    SCOPED_TRACE(mode);
    FaultDavServer server({mode});
    SKIP_UNLESS_RUNNING(server);
    auto options = quick();
    options.maxRetries = 1;
    auto cloud = open(server.url(), options);
    CloudCalls calls(*cloud);
    ASSERT_FALSE(calls.connect());
    ASSERT_FALSE(calls.upload(local("twelve bytes"), "/event"));
    auto target = local("kept");
    EXPECT_TRUE(isCloudError(calls.download("/event", target), kSyncErrorCodeServerError));
    EXPECT_EQ(readFile(target), "kept");
    // Also when the size comes from a listing rather than a look of its own.
    EXPECT_EQ(calls.names("/"), std::vector<std::string>{"event"});
    EXPECT_TRUE(isCloudError(calls.download("/event", target), kSyncErrorCodeServerError));
    EXPECT_EQ(readFile(target), "kept");
  }
}

// A download right after a listing trusts the listing's size; what another
// device did in between (a file replaced by a longer one, removed, or a
// directory in its place) must still come out as without the listing.
TEST_F(WebDavFaultTest, ADownloadAfterAListingGetsTheFileAsItIsNow) {
  FaultDavServer server({"normal"});
  SKIP_UNLESS_RUNNING(server);
  auto reader = open(server.url());
  auto writer = open(server.url());
  CloudCalls here(*reader);
  CloudCalls there(*writer);
  ASSERT_FALSE(here.connect());
  ASSERT_FALSE(there.connect());
  ASSERT_FALSE(there.upload(local("short"), "/registration"));
  ASSERT_FALSE(there.upload(local("event"), "/event"));
  ASSERT_FALSE(there.upload(local("file"), "/thing"));
  ASSERT_EQ(here.names("/").size(), 3u);

  ASSERT_FALSE(there.upload(local("a registration, longer now"), "/registration"));
  ASSERT_FALSE(there.remove("/event"));
  ASSERT_FALSE(there.remove("/thing"));
  ASSERT_FALSE(there.mkdir("/thing"));

  auto target = local("kept");
  ASSERT_FALSE(here.download("/registration", target));
  EXPECT_EQ(readFile(target), "a registration, longer now");
  writeFile(target, "kept");
  EXPECT_TRUE(isCloudError(here.download("/event", target), kSyncErrorCodeFileAccessFailed, ENOENT));
  EXPECT_TRUE(isCloudError(here.download("/thing", target), kSyncErrorCodeFileAccessFailed, EISDIR));
  EXPECT_EQ(readFile(target), "kept");
}

TEST_F(WebDavFaultTest, AnUploadCutOffHalfWayLeavesNoPartialFile) {
  testing::ApacheDavServer apache;
  SKIP_UNLESS_RUNNING(apache);
  // The proxy cuts every connection after 1 MB from the client.
  FaultDavServer proxy({"cut-proxy", std::to_string(apache.port()), std::to_string(1 << 20)});
  SKIP_UNLESS_RUNNING(proxy);
  auto options = quick();
  options.maxRetries = 1;
  auto direct = open(apache.url());
  CloudCalls directCalls(*direct);
  ASSERT_FALSE(directCalls.connect());
  ASSERT_FALSE(directCalls.mkdir("/MainStore"));
  ASSERT_FALSE(directCalls.upload(local("the old one"), "/MainStore/replaced"));

  auto cut = open(proxy.url(), options);
  CloudCalls cutCalls(*cut);
  ASSERT_FALSE(cutCalls.connect());
  std::string big(3 << 20, 'x');
  auto error = cutCalls.upload(local(big), "/MainStore/new");
  EXPECT_TRUE(error);
  EXPECT_TRUE(cutCalls.upload(local(big), "/MainStore/replaced"));

  EXPECT_EQ(directCalls.names("/MainStore"), std::vector<std::string>{"replaced"});
  EXPECT_FALSE(directCalls.exists("/MainStore/new").exists);
  auto copy = dir_ / "copy";
  ASSERT_FALSE(directCalls.download("/MainStore/replaced", copy));
  EXPECT_EQ(readFile(copy), "the old one");
}

TEST_F(WebDavFaultTest, CertificatesAreVerifiedAndAnOwnAuthorityCanBeTrusted) {
  testing::ApacheDavServer server(true);
  SKIP_UNLESS_RUNNING(server);
  {
    auto cloud = open(server.url());
    CloudCalls calls(*cloud);
    auto error = calls.connect();
    ASSERT_TRUE(isCloudError(error, kSyncErrorCodeServerError));
    EXPECT_NE(error->description.find("certificate"), std::string::npos) << error->description;
  }
  SyncWebDavFileSystem::Options trusting;
  trusting.caFile = server.certificateFile().string();
  {
    // The authority is trusted, but the certificate is not for this name.
    auto cloud = open("https://localhost:" + std::to_string(server.port()), trusting);
    CloudCalls calls(*cloud);
    auto error = calls.connect();
    ASSERT_TRUE(isCloudError(error, kSyncErrorCodeServerError));
    EXPECT_NE(error->description.find("certificate"), std::string::npos) << error->description;
  }
  auto cloud = open(server.url(), trusting);
  CloudCalls calls(*cloud);
  ASSERT_FALSE(calls.connect());
  ASSERT_FALSE(calls.upload(local("over tls"), "/event"));
  auto copy = dir_ / "copy";
  ASSERT_FALSE(calls.download("/event", copy));
  EXPECT_EQ(readFile(copy), "over tls");
}

TEST_F(WebDavFaultTest, CredentialsComeFromTheSecretStoreAndAreChecked) {
  testing::RcloneDavServer rclone;
  SKIP_UNLESS_RUNNING(rclone);
  auto key = syncWebDavCredentialKey(rclone.url(), rclone.user());
  {
    auto cloud = open(rclone.url(), {}, rclone.user());
    CloudCalls calls(*cloud);
    auto error = calls.connect();
    ASSERT_TRUE(isCloudError(error, kSyncErrorCodeCloudAuthenticationFailed));
    EXPECT_NE(error->description.find("no password"), std::string::npos) << error->description;
  }
  ASSERT_TRUE(secrets_->add(key, "test", "wrong").ok());
  {
    auto cloud = open(rclone.url(), {}, rclone.user());
    CloudCalls calls(*cloud);
    EXPECT_TRUE(isCloudError(calls.connect(), kSyncErrorCodeCloudAuthenticationFailed));
    EXPECT_FALSE(cloud->isConnected());
    EXPECT_TRUE(isCloudError(calls.mkdir("/x"), kSyncErrorCodeCloudNotConnected));
  }
  secrets_->setLocked(true);
  {
    auto cloud = open(rclone.url(), {}, rclone.user());
    CloudCalls calls(*cloud);
    EXPECT_TRUE(isCloudError(calls.connect(), kSyncErrorCodeCloudAuthenticationFailed));
  }
  secrets_->setLocked(false);
  ASSERT_TRUE(secrets_->update(key, rclone.password()).ok());
  auto cloud = open(rclone.url(), {}, rclone.user());
  CloudCalls calls(*cloud);
  ASSERT_FALSE(calls.connect());
  EXPECT_EQ(cloud->identityToken(), "webdav:" + rclone.user() + "@" + rclone.url());
}

TEST_F(WebDavFaultTest, AFolderThatIsNotThereOrAServerThatIsNotThereFailsToConnect) {
  testing::ApacheDavServer apache;
  SKIP_UNLESS_RUNNING(apache);
  auto missing = open(apache.url() + "/no-such-folder");
  CloudCalls missingCalls(*missing);
  auto error = missingCalls.connect();
  ASSERT_TRUE(isCloudError(error, kSyncErrorCodeServerError));
  EXPECT_NE(error->description.find("does not exist"), std::string::npos) << error->description;

  auto nobody = open("http://127.0.0.1:" + std::to_string(testing::freePort()));
  CloudCalls nobodyCalls(*nobody);
  EXPECT_TRUE(isCloudError(nobodyCalls.connect(), kSyncErrorCodeServerError));
}

}  // namespace
}  // namespace lumeo
