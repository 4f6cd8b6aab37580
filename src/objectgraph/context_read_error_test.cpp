// Reads that fail are errors, not missing rows: a store file with a damaged
// page under a relationship's index must neither let a cascading delete walk
// an empty set (and leave the members behind) nor pass for a deleted row.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::sqlCount;

// Overwrites the root page of a table or index with junk, keeping the old
// bytes so that the file can be mended again. Each write also advances the
// file's change counter, as any writer does, so that a connection that is
// open on the file drops the pages it holds and reads what is there now.
class DamagedPage {
 public:
  DamagedPage(std::string path, const std::string& name) : path_(std::move(path)) {
    const long long root = sqlCount(path_, "SELECT rootpage FROM sqlite_master WHERE name = '" + name + "'");
    const long long pageSize = sqlCount(path_, "PRAGMA page_size");
    EXPECT_GT(root, 1);
    offset_ = (root - 1) * pageSize;
    original_.resize(static_cast<std::size_t>(pageSize));
    {
      std::ifstream in(path_, std::ios::binary);
      in.seekg(offset_);
      in.read(original_.data(), pageSize);
    }
    write(std::vector<char>(original_.size(), '\x5a'));
  }
  void mend() { write(original_); }

 private:
  void write(const std::vector<char>& bytes) {
    std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offset_);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    unsigned char counter[4];
    file.seekg(24);
    file.read(reinterpret_cast<char*>(counter), 4);
    for (int i = 3; i >= 0 && ++counter[i] == 0; --i) {
    }
    file.seekp(24);
    file.write(reinterpret_cast<const char*>(counter), 4);
  }
  std::string path_;
  std::streamoff offset_ = 0;
  std::vector<char> original_;
};

// An event with three object changes, which go with it (cascade).
void writeEventWithChanges(const std::string& path) {
  testing::TestStack stack(path);
  auto& c = *stack.context;
  auto event = c.insertNewObjectForEntityForName("SyncStoreModificationEvent");
  event->setValueForKey("uniqueIdentifier", "event");
  for (int i = 0; i < 3; ++i) {
    auto change = c.insertNewObjectForEntityForName("SyncObjectChange");
    change->setValueForKey("nameOfEntity", "MoodRecord");
    event->addObjectForKey("objectChanges", change);
  }
  ASSERT_FALSE(c.save());
}

long long orphanedChanges(const std::string& path) {
  return sqlCount(path,
                  "SELECT COUNT(*) FROM SyncObjectChange c WHERE NOT EXISTS (SELECT 1 FROM "
                  "SyncStoreModificationEvent e WHERE e._pk = c.storeModificationEvent)");
}

TEST(ContextReadErrorTest, ACascadeThatCannotReadItsMembersDeletesNothing) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  writeEventWithChanges(path);
  DamagedPage damage(path, "SyncObjectChange_storeModificationEvent");
  {
    testing::TestStack stack(path);
    auto& c = *stack.context;
    auto events = c.executeFetchRequest(FetchRequest("SyncStoreModificationEvent"));
    ASSERT_EQ(events.size(), 1u);
    OptionalError error = c.deleteObject(events[0]);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, kObjectGraphErrorDomain);
    EXPECT_EQ(error->code, kSQLiteError);
    EXPECT_FALSE(events[0]->isDeleted());
    EXPECT_FALSE(c.hasChanges());
    EXPECT_FALSE(c.save());
  }
  damage.mend();
  EXPECT_EQ(sqlCount(path, "SELECT COUNT(*) FROM SyncStoreModificationEvent"), 1);
  EXPECT_EQ(orphanedChanges(path), 0);

  // Once the file reads again, the same delete takes the members with it.
  testing::TestStack stack(path);
  auto& c = *stack.context;
  auto events = c.executeFetchRequest(FetchRequest("SyncStoreModificationEvent"));
  ASSERT_EQ(events.size(), 1u);
  ASSERT_FALSE(c.deleteObject(events[0]));
  ASSERT_FALSE(c.save());
  EXPECT_EQ(sqlCount(path, "SELECT COUNT(*) FROM SyncStoreModificationEvent"), 0);
  EXPECT_EQ(sqlCount(path, "SELECT COUNT(*) FROM SyncObjectChange"), 0);
}

TEST(ContextReadErrorTest, AnUnreadableRowIsAnErrorAndStaysAFault) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  std::string uri;  // an ID would outlive its model
  {
    testing::TestStack stack(path);
    auto tag = stack.context->insertNewObjectForEntityForName("MoodTag");
    tag->setValueForKey("tagName", "sleep");
    ASSERT_FALSE(stack.context->save());
    uri = tag->objectID().URIRepresentation();
  }
  testing::TestStack stack(path);
  auto& c = *stack.context;
  const ManagedObjectID reopened = *stack.coordinator->managedObjectIDForURIRepresentation(uri);
  DamagedPage damage(path, "MoodTag");
  OptionalError error;
  EXPECT_EQ(c.existingObjectWithID(reopened, error), nullptr);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kSQLiteError);  // not "no such object"

  // A change to a row that cannot be read cannot be saved, and rolling it
  // back lets the context save again.
  auto tag = c.objectWithID(reopened);
  tag->setValueForKey("tagName", "rest");
  EXPECT_TRUE(tag->isFault());
  error = c.save();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kSQLiteError);
  damage.mend();
  c.rollback();
  EXPECT_FALSE(c.save());
  EXPECT_EQ(tag->valueForKey("tagName").toString(), "sleep");
  EXPECT_FALSE(tag->isFault());
}

TEST(ContextReadErrorTest, AChildsDeleteOfAnUnreadableSetFailsAndLeavesTheParentAlone) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  writeEventWithChanges(path);
  testing::TestStack stack(path);
  auto child = std::make_shared<ManagedObjectContext>();
  child->setParentContext(stack.context);
  auto events = child->executeFetchRequest(FetchRequest("SyncStoreModificationEvent"));
  ASSERT_EQ(events.size(), 1u);
  DamagedPage damage(path, "SyncObjectChange_storeModificationEvent");
  EXPECT_TRUE(child->deleteObject(events[0]));
  EXPECT_FALSE(child->hasChanges());
  damage.mend();
  ASSERT_FALSE(child->deleteObject(events[0]));
  ASSERT_FALSE(child->save());
  ASSERT_FALSE(stack.context->save());
  EXPECT_EQ(sqlCount(path, "SELECT COUNT(*) FROM SyncObjectChange"), 0);
  EXPECT_EQ(orphanedChanges(path), 0);
}

}  // namespace
}  // namespace lumeo
