#include <gtest/gtest.h>

#include <string>

#include "ZatTestObjects.h"
#include "zat/Dir.h"

namespace ZatTest {
namespace {

using Zat::Ptr;

// Records "<attribute>:<name>" for every entity change of a directory.
class DirWatcher : public Zat::NotifieeOf<Zat::Dir> {
 public:
  static Ptr<DirWatcher> DirWatcherIs(const Ptr<const Zat::Dir>& dir, Log* log) {
    Ptr<DirWatcher> w(new DirWatcher(dir, log));
    w->hasNotificationActiveIs(true);
    return w;
  }
  void onAttribute(Zat::AttributeId attr, const void* key) override {
    if (attr != Zat::Dir::kEntity || key == nullptr) return;
    const auto& name = *static_cast<const Zat::Name*>(key);
    log_->push_back(std::string(attr) + ":" + name.stringValue() + ":" +
                    (notifier()->entityPtr(name) ? "present" : "absent"));
  }

 private:
  DirWatcher(const Ptr<const Zat::Dir>& dir, Log* log)
      : Zat::NotifieeOf<Zat::Dir>(dir), log_(log) {}
  Log* log_;
};

TEST(Dir, EntityChangesNotifyWatchersWithTheName) {
  Log log;
  auto dir = Zat::Dir::DirIs("sliceStatus");
  auto w = DirWatcher::DirWatcherIs(dir, &log);
  Ptr<Zat::PtrInterface> first(new Counted());
  Ptr<Zat::PtrInterface> second(new Counted());

  dir->entityIs("FixedSystem", first);
  EXPECT_EQ(dir->entityPtr("FixedSystem"), first);
  dir->entityIs("FixedSystem", second);
  EXPECT_EQ(dir->entityPtr("FixedSystem"), second);
  dir->entityDel("FixedSystem");
  EXPECT_EQ(dir->entityPtr("FixedSystem").ptr(), nullptr);

  EXPECT_EQ(log, (Log{"entity:FixedSystem:present", "entity:FixedSystem:present",
                      "entity:FixedSystem:absent"}));
}

TEST(Dir, SameEntityAgainOrDeletingAnAbsentNameIsSilent) {
  Log log;
  auto dir = Zat::Dir::DirIs("sliceStatus");
  Ptr<Zat::PtrInterface> e(new Counted());
  dir->entityIs("a", e);
  auto w = DirWatcher::DirWatcherIs(dir, &log);
  dir->entityIs("a", e);
  dir->entityDel("b");
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(dir->entity().size(), 1u);
}

TEST(Dir, HoldsItsEntitiesUntilDeleted) {
  bool freed = false;
  auto dir = Zat::Dir::DirIs("d");
  dir->entityIs("a", Ptr<Zat::PtrInterface>(new Counted(&freed)));
  EXPECT_FALSE(freed);
  dir->entityDel("a");
  EXPECT_TRUE(freed);
}

// Emptying a directory one entity at a time passes the directory's own copy of the
// name; the watcher must still hear that name.
TEST(Dir, EntityDelWithANameHeldByTheDirectoryNotifiesThatName) {
  Log log;
  auto dir = Zat::Dir::DirIs("sliceStatus");
  dir->entityIs("a-name-long-enough-to-live-on-the-heap", Ptr<Zat::PtrInterface>(new Counted()));
  auto w = DirWatcher::DirWatcherIs(dir, &log);
  while (!dir->entity().empty()) dir->entityDel(dir->entity().begin()->first);
  EXPECT_EQ(log, (Log{"entity:a-name-long-enough-to-live-on-the-heap:absent"}));
}

TEST(Dir, KnowsItsNameAndType) {
  auto dir = Zat::Dir::DirIs("sliceStatus");
  EXPECT_EQ(dir->name(), Zat::Name("sliceStatus"));
  EXPECT_STREQ(dir->fwkType(), "Zat::Dir");
}

}  // namespace
}  // namespace ZatTest
