// The cloud as the sync engine sees it: a small file system of files and
// directories reached by absolute paths ("/" is the root, an implementation
// joins paths to its own root), used asynchronously, with an identity that
// tells whose cloud it is. The engine moves event files, baselines and data
// files through it and never touches the cloud any other way.
//
// Contract of every implementation (the conformance suite in
// sync_cloud_file_system_conformance_test.cpp checks it for each one):
// - Every completion runs on the main queue (DispatchQueue::main()), exactly
//   once, after the call has returned; never on the calling stack.
// - Errors are in "SyncErrorDomain": 1002 when the system is not connected,
//   106 when the cloud did not answer in time, 107 when a file or directory
//   could not be read, written, listed or removed (the reason's errno, when
//   there is one, in userInfo "errno": ENOENT for a missing path or parent,
//   EEXIST for a directory that exists, ENOTDIR, EACCES ...), 1001 when the
//   service itself failed (an HTTP status in userInfo "status"), 1003 when it
//   refused who we are.
// - A failed operation changes nothing that the caller can see: an upload
//   cut off half way leaves the old file or none, never a partial one.
// - Operations of one file system run one at a time, in the order of the
//   calls.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

// A file in a listing. `size` is in bytes.
struct SyncCloudFile {
  std::string path;
  std::string name;
  std::uint64_t size = 0;
  friend bool operator==(const SyncCloudFile&, const SyncCloudFile&) = default;
};

struct SyncCloudItem;

// A directory in a listing. A listing goes one level deep, so `contents` is
// empty there; it is for callers that build trees of their own.
struct SyncCloudDirectory {
  std::string path;
  std::string name;
  std::vector<SyncCloudItem> contents;
};

// One entry of a listing: a file or a directory.
struct SyncCloudItem : std::variant<SyncCloudFile, SyncCloudDirectory> {
  using std::variant<SyncCloudFile, SyncCloudDirectory>::variant;

  bool isDirectory() const { return index() == 1; }
  const std::string& name() const;
  const std::string& path() const;
  // The file, or nullptr for a directory.
  const SyncCloudFile* file() const { return std::get_if<SyncCloudFile>(this); }
  const SyncCloudDirectory* directory() const { return std::get_if<SyncCloudDirectory>(this); }
};

using SyncCloudCompletion = std::function<void(OptionalError error)>;
using SyncCloudExistsCompletion = std::function<void(bool exists, bool isDirectory, OptionalError error)>;
using SyncCloudListingCompletion =
    std::function<void(std::vector<SyncCloudItem> contents, OptionalError error)>;

// Whose cloud this is. Tokens are compared for equality and kept (archived)
// by the event store; nothing means "nobody is signed in" or "no cloud".
using SyncCloudIdentityToken = std::optional<std::string>;

class SyncCloudFileSystem {
 public:
  virtual ~SyncCloudFileSystem() = default;

  // Makes the system ready for use: checks that the cloud is there and who
  // the user is. isConnected() is true after a successful connect.
  virtual void connect(SyncCloudCompletion completion) = 0;

  // Whether something is at `path` and whether it is a directory. A missing
  // path is no error: exists is false.
  virtual void fileExistsAtPath(const std::string& path, SyncCloudExistsCompletion completion) = 0;
  // Makes one directory; the parent must exist (ENOENT otherwise) and no
  // intermediate directories are made. A directory that exists is EEXIST.
  virtual void createDirectoryAtPath(const std::string& path, SyncCloudCompletion completion) = 0;
  // The entries of one directory, in no particular order, without their
  // contents; names beginning with "." are left out, and so is whatever the
  // system knows to be debris of another program (see each system).
  virtual void contentsOfDirectoryAtPath(const std::string& path, SyncCloudListingCompletion completion) = 0;
  // Removes a file, or a directory with everything in it. ENOENT when
  // nothing is there.
  virtual void removeItemAtPath(const std::string& path, SyncCloudCompletion completion) = 0;
  // Copies a local file to a cloud path whose parent exists. Whether an
  // existing file at that path is replaced is the system's choice
  // (replacesOnUpload()).
  virtual void uploadLocalFile(const std::string& localPath, const std::string& toPath,
                               SyncCloudCompletion completion) = 0;
  // Copies a cloud file to a local path, replacing what is there. On failure
  // the local path keeps what it had. The copy is renamed into place, so no
  // reader sees half of it, but need not be flushed to disk: the engine
  // downloads into its transit cache only.
  virtual void downloadFromPath(const std::string& path, const std::string& toLocalFile,
                                SyncCloudCompletion completion) = 0;

  virtual bool isConnected() const = 0;
  virtual SyncCloudIdentityToken identityToken() const = 0;

  // Optional: called once when a device joins the ensemble (leech). The
  // default does nothing and succeeds.
  virtual void performInitialPreparation(SyncCloudCompletion completion);
  // Optional: called at the start of every merge with the ensemble's
  // directory ("/MainStore"), to put right what sync clients did to it
  // (duplicated directories). The default does nothing and succeeds.
  virtual void repairEnsembleDirectory(const std::string& path, SyncCloudCompletion completion);

  // Whether an upload onto an existing file replaces it (true) or fails
  // with EEXIST (false).
  virtual bool replacesOnUpload() const { return true; }

  // Observing identityToken(): `observer` runs on the main queue after each
  // change. Returns a number for removeIdentityTokenObserver.
  int addIdentityTokenObserver(std::function<void()> observer);
  void removeIdentityTokenObserver(int id);

 protected:
  // Runs the observers on the main queue; any thread.
  void identityTokenDidChange();
  // Calls `completion` with `error` on the main queue.
  static void completeOnMainQueue(const SyncCloudCompletion& completion, OptionalError error);

 private:
  std::mutex observersMutex_;
  std::map<int, std::function<void()>> observers_;
  int nextObserver_ = 1;
};

// In the class of a file system, declares its own versions of the six file
// operations above (fileExistsAtPath to downloadFromPath), which every
// system implements with the same signatures.
#define LUMEO_SYNC_CLOUD_FILE_OPERATIONS_OVERRIDE                                                          \
  void fileExistsAtPath(const std::string& path, SyncCloudExistsCompletion completion) override;           \
  void createDirectoryAtPath(const std::string& path, SyncCloudCompletion completion) override;            \
  void contentsOfDirectoryAtPath(const std::string& path, SyncCloudListingCompletion completion) override; \
  void removeItemAtPath(const std::string& path, SyncCloudCompletion completion) override;                 \
  void uploadLocalFile(const std::string& localPath, const std::string& toPath,                            \
                       SyncCloudCompletion completion) override;                                           \
  void downloadFromPath(const std::string& path, const std::string& toLocalFile,                           \
                        SyncCloudCompletion completion) override;

// The normalised form of a cloud path: absolute, no empty, "." or ".."
// segments, no trailing slash ("/" for the root). Nothing when the path is
// not absolute or climbs above the root: such a path is a programming error
// or hostile input, and no operation may reach outside its root with it.
std::optional<std::string> syncNormalizedCloudPath(const std::string& path);
// The last segment ("" for the root) and the parent ("/" for a top-level
// entry) of a normalised path.
std::string syncCloudPathName(const std::string& normalizedPath);
std::string syncCloudPathParent(const std::string& normalizedPath);
// `parent` + "/" + `name`, for a normalised parent.
std::string syncCloudPathAppending(const std::string& parent, const std::string& name);

// Errors of the file systems, all in "SyncErrorDomain".
Error syncCloudNotConnectedError();
Error syncCloudInvalidPathError(const std::string& path);
// Code 107 for a failed file operation, with the errno in userInfo "errno".
Error syncCloudFileError(int err, const std::string& description);
// The errno of a 107 error, or 0.
int syncCloudErrno(const Error& error);

}  // namespace lumeo
