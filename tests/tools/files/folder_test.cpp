// SPDX-License-Identifier: Apache-2.0
#include "tools/files/folder.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <system_error>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

class Folder : public testing::Test {
 protected:
  Folder() {
    write_bytes(dir_ / "here/file", "bytes");
    write_bytes(dir_ / "here/below/file", "deeper");
    write_bytes(dir_ / "outside/file", "outside");
    fs::create_directory_symlink(dir_ / "outside", dir_ / "here/link");
    fs::create_symlink(dir_ / "outside/file", dir_ / "here/file link");
    ::mkfifo((dir_ / "here/fifo").c_str(), 0644);
  }
  [[nodiscard]] std::string text(const std::string &name) const {
    const zot::descriptor file = here_.open(name);
    return file.is_open() ? zotconf::read_file_at(file.get(), name) : "(not open)";
  }

  temp_dir dir_;
  fs::path path_ = (fs::create_directories(dir_ / "here"), dir_ / "here");
  zotconf::folder here_{path_};
};

TEST_F(Folder, FailsIfItDoesNotExist) {
  EXPECT_THROW(zotconf::folder(dir_ / "nowhere"), std::system_error);
  EXPECT_THROW(zotconf::folder(dir_ / "here/file"), std::system_error);
}

TEST_F(Folder, FindsFoldersAndNoLinks) {
  EXPECT_EQ(here_.find("below")->path(), dir_ / "here/below");
  for (const std::string name : {"file", "link", "fifo", "nothing"}) {
    EXPECT_FALSE(here_.find(name)) << name;
  }
}

TEST_F(Folder, KnowsWhatIsNoFile) {
  for (const std::string name : {"below", "link", "file link", "fifo"}) {
    EXPECT_TRUE(here_.is_other_than_file(name)) << name;
  }
  EXPECT_FALSE(here_.is_other_than_file("file"));
  EXPECT_FALSE(here_.is_other_than_file("nothing"));
}

TEST_F(Folder, CreatesAFolderOnce) {
  here_.make("new").write("file", "one");
  EXPECT_EQ(zotconf::read_file_at(here_.make("new").open("file").get(), "file"), "one");
  EXPECT_THROW((void)here_.make("file"), std::system_error);
  EXPECT_THROW((void)here_.make("link"), std::system_error);
}

TEST_F(Folder, NamesWhatItHas) {
  std::vector<std::string> names = here_.names();
  std::ranges::sort(names);
  EXPECT_EQ(names, (std::vector<std::string>{"below", "fifo", "file", "file link", "link"}));
  EXPECT_EQ(here_.names().size(), 5U) << "a second time";
}

TEST_F(Folder, OpensRegularFilesOnly) {
  EXPECT_EQ(text("file"), "bytes");
  for (const std::string name : {"below", "link", "file link", "fifo", "nothing"}) {
    EXPECT_FALSE(here_.open(name).is_open()) << name;
    EXPECT_FALSE(here_.size_of(name)) << name;
  }
  EXPECT_EQ(here_.size_of("file"), 5U);
}

TEST_F(Folder, SaysWhenItHasNoDescriptorLeft) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{.rlim_cur = 3, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_THROW((void)here_.open("file"), std::system_error);
  EXPECT_THROW((void)here_.find("below"), std::system_error);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(Folder, WritesInPlaceOfWhatHasTheName) {
  for (const std::string name : {"file", "file link", "fifo", "link", "new"}) {
    here_.write(name, "written");
    EXPECT_EQ(text(name), "written") << name;
  }
  EXPECT_EQ(read_bytes(dir_ / "outside/file"), "outside");
  EXPECT_THROW(here_.write("below", "written"), std::system_error);
}

TEST_F(Folder, LinksInPlaceOfWhatHasTheName) {
  here_.link("file", "some/where");
  here_.link("file", "else/where");
  EXPECT_EQ(here_.target_of("file"), "else/where");
  EXPECT_FALSE(here_.target_of("below"));
  EXPECT_FALSE(here_.target_of("nothing"));
}

TEST_F(Folder, RenamesOverWhatHasTheNewName) {
  const zotconf::folder below = *here_.find("below");
  here_.rename("file", below, "file");
  EXPECT_EQ(read_bytes(dir_ / "here/below/file"), "bytes");
  EXPECT_FALSE(here_.open("file").is_open());
  EXPECT_THROW(here_.rename("nothing", below, "file"), std::system_error);
}

TEST_F(Folder, RemovesFilesLinksAndEmptyFolders) {
  for (const std::string name : {"file", "file link", "link", "fifo", "below", "nothing"}) {
    here_.remove(name);
  }
  EXPECT_EQ(here_.names(), std::vector<std::string>{"below"}) << "it is not empty";
  here_.find("below")->remove("file");
  here_.remove("below");
  EXPECT_TRUE(here_.names().empty());
  EXPECT_EQ(read_bytes(dir_ / "outside/file"), "outside");
}

TEST_F(Folder, SetsTheTimeOfAFile) {
  here_.stamp("file", 1'000'000);
  struct stat info {};
  ASSERT_EQ(::stat((dir_ / "here/file").c_str(), &info), 0);
  EXPECT_EQ(info.st_mtime, 1'000'000);
}

TEST_F(Folder, StaysTheSameWhenItIsRenamed) {
  fs::rename(dir_ / "here", dir_ / "there");
  EXPECT_EQ(text("file"), "bytes");
  here_.flush();
  here_.flush_file_system();
}

}  // namespace
}  // namespace zot::test
