// SPDX-License-Identifier: Apache-2.0
// Reads files of a folder when the process has hardly any descriptors left.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/unit/zot_priv/model/model_records.hpp"
#include "zot_priv/storage/gpb_verify.hpp"

namespace {

using namespace zot::test::model;

// While this lives, the process may open only this number of files.
class descriptors_left {
 public:
  explicit descriptors_left(int count) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const zot::descriptor next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const auto limit = static_cast<rlim_t>(next.get() + count);
    const struct rlimit few { limit, before_.rlim_max };
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  }
  descriptors_left(const descriptors_left &) = delete;
  descriptors_left &operator=(const descriptors_left &) = delete;
  ~descriptors_left() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  struct rlimit before_ {};
};

class GpbFolderAtTheLimit : public testing::Test {
 protected:
  void SetUp() override {
    for (const std::string key : {"a", "b", "c"}) {
      zot::test::write_bytes(root_ + "/config/Wlan/" + key + "/1", "bytes of " + key);
    }
  }
  int load(std::size_t index) {
    return zot::load_content(handle_.get(), &entry_at(gpbs_.get(), index), folder_, nullptr);
  }

  model_handle handle_;
  zot::test::temp_dir dir_;
  std::string root_ = dir_ / "root";
  zot::gpb_list_owner gpbs_ = list_of(handle_.get(), {{ZOT_CAT_WLAN, "a", 1, 0, "bytes of a"},
                                                      {ZOT_CAT_WLAN, "b", 1, 0, "bytes of b"},
                                                      {ZOT_CAT_WLAN, "c", 1, 0, "bytes of c"}});
  zot::gpb_folder folder_{root_.c_str()};
};

TEST_F(GpbFolderAtTheLimit, ReadsFilesWithTheLastDescriptor) {
  const descriptors_left one(1);
  EXPECT_EQ(load(0), ZOT_OK);
  EXPECT_EQ(load(1), ZOT_OK);
  EXPECT_EQ(load(2), ZOT_OK);
}

TEST_F(GpbFolderAtTheLimit, GivesItsDescriptorBackWhenOthersTakeTheRest) {
  EXPECT_EQ(load(0), ZOT_OK);
  const descriptors_left none(0);
  EXPECT_EQ(load(1), ZOT_OK);
  EXPECT_EQ(load(2), ZOT_OK);
}

TEST_F(GpbFolderAtTheLimit, ReadsNothingWithoutADescriptor) {
  const descriptors_left none(0);
  EXPECT_EQ(load(0), ZOT_ERR_CORRUPTED);
}

TEST_F(GpbFolderAtTheLimit, KeepsItsDescriptorWhenAFileIsAbsent) {
  std::filesystem::remove_all(root_ + "/config/Wlan/a");
  EXPECT_EQ(load(0), ZOT_ERR_CORRUPTED);
  std::filesystem::rename(root_, dir_ / "moved");
  EXPECT_EQ(load(1), ZOT_OK);
}

}  // namespace
