// What serves work on many files: looking whether one has changed.
#include "fixture.h"

namespace {

using BatchTest = FilesTest;

// Whether a file has changed can be told once its last change lies some seconds back.
TEST_F(BatchTest, AFileThatIsStillWhatItWas) {
  fs::create_symlink("/bin/sh", "Catalogo.REL");
  files::ContentWatch watch("D:\\CATALOGO.REL");
  EXPECT_TRUE(watch.HasChanged());
  EXPECT_FALSE(watch.HasChanged());
  fs::remove("Catalogo.REL");
  EXPECT_TRUE(watch.HasChanged());
  fs::create_symlink("/bin/ls", "CATALOGO.rel");
  EXPECT_TRUE(watch.HasChanged());
  EXPECT_FALSE(watch.HasChanged());
  fs::remove("CATALOGO.rel");
  WriteFile("Catalogo.REL", "written a moment ago");
  EXPECT_TRUE(watch.HasChanged());
  EXPECT_TRUE(watch.HasChanged()) << "may be written to once more within the same step of time";
}

}  // namespace
