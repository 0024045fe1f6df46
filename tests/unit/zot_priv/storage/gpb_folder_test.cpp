// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/gpb_folder.hpp"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files.hpp"

namespace {

// A file below a root directory.
struct stored_file {
  stored_file() { zot::test::write_bytes(root + "/config/Wlan/a/1", "the bytes of a file"); }

  zot::test::temp_dir dir;
  std::string root = dir / "root";
};

// The full name of a file is the root, "//config/" and the path, in 4,096 bytes with the
// terminator.
TEST(GpbFolder, HasRoomForNamesUpToTheirLimit) {
  zot::gpb_folder folder("/root");
  EXPECT_TRUE(folder.fits_in_path(std::string(4095 - 5 - 9, 'p').c_str()));
  EXPECT_FALSE(folder.fits_in_path(std::string(4096 - 5 - 9, 'p').c_str()));
}

TEST(GpbFolder, OpensAPathWhateverSlashesItBeginsWith) {
  const stored_file test;
  zot::gpb_folder folder(test.root.c_str());
  for (const char *const path : {"Wlan/a/1", "/Wlan/a/1", "//Wlan/a/1"}) {
    EXPECT_TRUE(folder.open(path).is_open()) << path;
  }
}

TEST(GpbFolder, OpensNothingThatIsAbsent) {
  const stored_file test;
  zot::gpb_folder folder(test.root.c_str());
  for (const char *const path : {"/Wlan/a/2", "/", "", "/config/Wlan/a/1"}) {
    EXPECT_FALSE(folder.open(path).is_open()) << path;
  }
}

TEST(GpbFolder, OfAnAbsentRootOpensNothing) {
  const stored_file test;
  const std::string absent = test.dir / "absent";
  EXPECT_FALSE(zot::gpb_folder(absent.c_str()).open("/Wlan/a/1").is_open());
}

}  // namespace
