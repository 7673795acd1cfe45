// Reasons, as seen in its mount, why several machines cannot share a volume.
#include "volume.h"

#include <gmock/gmock.h>

#include "support/support.h"

namespace {

using kestorctl::SharingHazards;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(SharingHazards, FollowFromTypeAndOptionsOfTheMount) {
  EXPECT_THAT(SharingHazards({"nfs4", "server:/reports", {"rw", "hard", "local_lock=none"}}, "/"), IsEmpty());
  EXPECT_THAT(SharingHazards({"nfs", "server:/reports", {"local_lock=posix", "nocto"}}, "/"),
              ElementsAre(HasSubstr("without local_lock=posix"), HasSubstr("without nocto")));
  EXPECT_THAT(SharingHazards({"cifs", "//server/reports", {"cache=strict"}}, "/"), IsEmpty());
  EXPECT_THAT(SharingHazards({"smb3", "//server/reports", {"nobrl"}}, "/"), ElementsAre(HasSubstr("without nobrl")));
  EXPECT_THAT(SharingHazards({"fuse.other", "reports", {}}, "/"), ElementsAre(HasSubstr("fuse.other")));
}

TEST(SharingHazards, FollowFromWhatTheMountShowsOfItself) {
  const support::TempFolder top;
  const kestorctl::Mount gluster = {"fuse.glusterfs", "server:reports", {}};
  EXPECT_THAT(SharingHazards(gluster, top.Path()), ElementsAre(HasSubstr("mounted as a whole")));
  const std::filesystem::path parts = top.Path() / ".meta/graphs/active";
  create_directories(parts / "reports-dht");
  EXPECT_THAT(SharingHazards(gluster, top.Path()), IsEmpty());
  create_directory(parts / "reports-write-behind");
  create_directory(parts / "reports-md-cache");
  EXPECT_THAT(SharingHazards(gluster, top.Path()),
              ElementsAre(HasSubstr("performance.write-behind, performance.stat-prefetch to off")));

  const kestorctl::Mount moose = {"fuse", "mfs\\043server:9421", {}};
  EXPECT_THAT(SharingHazards(moose, top.Path()), IsEmpty());
  support::WriteFile(top.Path() / ".params", "mfsnoposixlocks: (defined)\nworking_keep_cache_mode: YES\n");
  EXPECT_THAT(SharingHazards(moose, top.Path()),
              ElementsAre(HasSubstr("without mfsnoposixlocks"), HasSubstr("without mfscachemode=YES")));
  support::WriteFile(top.Path() / ".params", "mfsnoposixlocks: (not defined)\nworking_keep_cache_mode: AUTO\n");
  EXPECT_THAT(SharingHazards(moose, top.Path()), IsEmpty());
}

}  // namespace
