// SPDX-License-Identifier: Apache-2.0
// The watch over the scratch directory.
#include "zot_priv/storage/scratch.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/storage/scratch_records.hpp"

namespace {

using namespace zot::test;
namespace fs = std::filesystem;

struct watched {
  bool begin() { return watch.begin(*at.tested.handle()); }
  bool end() { return watch.end(*at.tested.handle()); }

  scratch at;
  zot::scratch_watch watch;
};

void make_socket(const std::string &path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  static_cast<void>(std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str()));
  const int result = ::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(sockaddr_un));
  ::close(fd);
  if (result != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

std::string deep_directory(const std::string &start, int levels) {
  std::string path = start;
  for (int level = 0; level < levels; ++level) {
    path += "/d";
  }
  return path;
}

TEST(ScratchWatch, QuietScratchDirectoryIsClean) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  EXPECT_TRUE(watched.end());
}

void *watch_it(void *argument) {
  watched &watched = *static_cast<struct watched *>(argument);
  return watched.begin() && watched.end() ? argument : nullptr;
}

// The stack size that the C library of an access point gives a thread; instrumented code needs
// more.
#ifdef __SANITIZE_ADDRESS__
constexpr size_t thread_stack = 1024 * 1024;
#else
constexpr size_t thread_stack = 128 * 1024;
#endif

TEST(ScratchWatch, DeepTreeNeedsLittleStack) {
  watched watched;
  fs::create_directories(deep_directory(watched.at / "config", 200));
  pthread_attr_t attributes;
  ASSERT_EQ(::pthread_attr_init(&attributes), 0);
  ASSERT_EQ(::pthread_attr_setstacksize(&attributes, thread_stack), 0);
  pthread_t thread{};
  ASSERT_EQ(::pthread_create(&thread, &attributes, watch_it, &watched), 0);
  void *result = nullptr;
  ASSERT_EQ(::pthread_join(thread, &result), 0);
  EXPECT_EQ(::pthread_attr_destroy(&attributes), 0);
  EXPECT_NE(result, nullptr);
}

// Such dates come from an archive, or from a wrong clock when a file was written.
TEST(ScratchWatch, FilesDatedAfter2038AreNoHindrance) {
  watched watched;
  const std::string file = watched.at / "config/Wlan/office/5";
  write_bytes(file, "bytes");
  ASSERT_EQ(std::system(("touch -d '2100-01-01 00:00:00' " + file).c_str()), 0);
  ASSERT_TRUE(watched.begin());
  EXPECT_TRUE(watched.end());
  EXPECT_EQ(read_bytes(file), "bytes");
}

TEST(ScratchWatch, FileThatGotAnotherModeIsNotCleanAndGoes) {
  watched watched;
  write_bytes(watched.at / "gpb.tgz", "archive");
  ASSERT_EQ(::chmod((watched.at / "gpb.tgz").c_str(), 0644), 0);
  ASSERT_TRUE(watched.begin());
  ASSERT_EQ(::chmod((watched.at / "gpb.tgz").c_str(), 0755), 0);
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "gpb.tgz"));
}

TEST(ScratchWatch, DirectoryAboveThatGotAnotherModeIsReportedAndGetsItBack) {
  watched watched;
  const std::string above = fs::path(watched.at.root).parent_path().string();
  ASSERT_EQ(::chmod(above.c_str(), 01777), 0);
  ASSERT_TRUE(watched.begin());
  ASSERT_EQ(::chmod(above.c_str(), 0777), 0);
  EXPECT_FALSE(watched.end());
  EXPECT_EQ(mode_of(above), 01777U);
}

TEST(ScratchWatch, ScratchDirectoryThatGotAnotherModeGetsItBack) {
  watched watched;
  ASSERT_EQ(::chmod(watched.at.root.c_str(), 0750), 0);
  ASSERT_TRUE(watched.begin());
  ASSERT_EQ(::chmod(watched.at.root.c_str(), 0), 0);
  EXPECT_TRUE(watched.end());
  EXPECT_EQ(mode_of(watched.at.root), 0750U);
}

TEST(ScratchWatch, FilesAndDirectoriesFromBeforeStay) {
  watched watched;
  write_bytes(watched.at / "gpb.tgz", "archive");
  write_bytes(watched.at / "other/file", "other");
  ASSERT_TRUE(watched.begin());
  EXPECT_TRUE(watched.end());
  EXPECT_EQ(read_bytes(watched.at / "gpb.tgz"), "archive");
  EXPECT_EQ(read_bytes(watched.at / "other/file"), "other");
}

TEST(ScratchWatch, MissingScratchDirectoryCannotBeWatched) {
  watched watched;
  fs::remove_all(watched.at.root);
  EXPECT_FALSE(watched.begin());
  EXPECT_EQ(errno, ENOENT);
}

TEST(ScratchWatch, FilesBelowTheGpbDirectoryAreWelcome) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "config/Wlan/office/5", "bytes");
  EXPECT_TRUE(watched.end());
  EXPECT_EQ(read_bytes(watched.at / "config/Wlan/office/5"), "bytes");
}

TEST(ScratchWatch, NewFileElsewhereIsRemovedAndReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "planted", "planted");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "planted"));
}

TEST(ScratchWatch, NewDirectoryElsewhereIsRemovedAndReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "other/deeper/planted", "planted");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "other"));
}

TEST(ScratchWatch, LinksFromBeforeAreRemovedWithoutComplaint) {
  watched watched;
  fs::create_directories(watched.at / "config");
  fs::create_symlink(watched.at.sentinel, watched.at / "link");
  fs::create_symlink(watched.at.sentinel, watched.at / "config/link");
  ASSERT_TRUE(watched.begin());
  EXPECT_FALSE(exists(watched.at / "link"));
  EXPECT_FALSE(exists(watched.at / "config/link"));
  EXPECT_TRUE(watched.end());
}

TEST(ScratchWatch, GpbDirectoryThatIsALinkIsRemoved) {
  watched watched;
  fs::remove_all(watched.at / "config");
  fs::create_symlink(watched.at.sentinel, watched.at / "config");
  ASSERT_TRUE(watched.begin());
  EXPECT_FALSE(exists(watched.at / "config"));
  EXPECT_EQ(read_bytes(watched.at.sentinel + "/kept"), "kept");
}

TEST(ScratchWatch, FifoNamedAsKFromBeforeIsRemovedWithoutWaiting) {
  watched watched;
  fs::remove(watched.at / "subsys.k");
  ASSERT_EQ(::mkfifo((watched.at / "subsys.k").c_str(), 0600), 0);
  ASSERT_TRUE(watched.begin());
  EXPECT_FALSE(exists(watched.at / "subsys.k"));
}

TEST(ScratchWatch, FolderNamedAsKIsAnErrorWhateverFailedBefore) {
  for (const int before : {0, ENOENT}) {
    watched watched;
    fs::remove(watched.at / "subsys.k");
    fs::create_directory(watched.at / "subsys.k");
    errno = before;
    EXPECT_FALSE(watched.begin());
    EXPECT_EQ(errno, EISDIR);
  }
}

TEST(ScratchWatch, NewLinkIsRemovedAndReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  fs::create_directories(watched.at / "config/Wlan");
  fs::create_symlink(watched.at.sentinel, watched.at / "config/Wlan/link");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "config/Wlan/link"));
}

TEST(ScratchWatch, NewLinkInAnotherDirectoryIsRemovedAndReported) {
  watched watched;
  fs::create_directories(watched.at / "other");
  ASSERT_TRUE(watched.begin());
  fs::create_symlink(watched.at.sentinel, watched.at / "other/link");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "other/link"));
}

TEST(ScratchWatch, NewFifoIsRemovedAndReported) {
  watched watched;
  fs::create_directories(watched.at / "config");
  ASSERT_TRUE(watched.begin());
  ASSERT_EQ(::mkfifo((watched.at / "config/fifo").c_str(), 0600), 0);
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "config/fifo"));
}

TEST(ScratchWatch, NewSocketIsRemovedAndReported) {
  watched watched;
  fs::create_directories(watched.at / "config");
  ASSERT_TRUE(watched.begin());
  make_socket(watched.at / "config/socket");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "config/socket"));
}

TEST(ScratchWatch, NewHardLinkIsRemovedAndTheFileItNamesStays) {
  watched watched;
  fs::create_directories(watched.at / "config");
  ASSERT_TRUE(watched.begin());
  fs::create_hard_link(watched.at.sentinel + "/kept", watched.at / "config/linked");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "config/linked"));
  EXPECT_EQ(read_bytes(watched.at.sentinel + "/kept"), "kept");
}

TEST(ScratchWatch, SetUserIdBitIsTakenAwayAndReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "config/tool", "bytes");
  ASSERT_EQ(::chmod((watched.at / "config/tool").c_str(), 04755), 0);
  EXPECT_FALSE(watched.end());
  EXPECT_EQ(mode_of(watched.at / "config/tool"), 0755U);
}

TEST(ScratchWatch, SetGroupIdBitIsTakenAwayAndReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "config/tool", "bytes");
  ASSERT_EQ(::chmod((watched.at / "config/tool").c_str(), 02755), 0);
  EXPECT_FALSE(watched.end());
  EXPECT_EQ(mode_of(watched.at / "config/tool"), 0755U);
}

TEST(ScratchWatch, SetUserIdBitFromBeforeIsTakenAwayWithoutComplaint) {
  watched watched;
  write_bytes(watched.at / "config/tool", "bytes");
  ASSERT_EQ(::chmod((watched.at / "config/tool").c_str(), 04755), 0);
  ASSERT_TRUE(watched.begin());
  EXPECT_EQ(mode_of(watched.at / "config/tool"), 0755U);
  EXPECT_TRUE(watched.end());
}

TEST(ScratchWatch, KnownFileThatGotASetUserIdBitIsReported) {
  watched watched;
  write_bytes(watched.at / "gpb.tgz", "archive");
  ASSERT_TRUE(watched.begin());
  ASSERT_EQ(::chmod((watched.at / "gpb.tgz").c_str(), 04755), 0);
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "gpb.tgz"));
}

TEST(ScratchWatch, DirectoriesThatTheirOwnerCannotEnterAreOpened) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  fs::create_directories(watched.at / "config/Wlan/office");
  ASSERT_EQ(::chmod((watched.at / "config/Wlan/office").c_str(), 0), 0);
  ASSERT_EQ(::chmod((watched.at / "config/Wlan").c_str(), 0555), 0);
  EXPECT_TRUE(watched.end());
  EXPECT_EQ(mode_of(watched.at / "config/Wlan"), 0755U);
  EXPECT_EQ(mode_of(watched.at / "config/Wlan/office"), 0700U);
}

TEST(ScratchWatch, FileThatBecameADirectoryIsRemovedAndReported) {
  watched watched;
  write_bytes(watched.at / "gpb.tgz", "archive");
  ASSERT_TRUE(watched.begin());
  fs::remove(watched.at / "gpb.tgz");
  fs::create_directories(watched.at / "gpb.tgz");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "gpb.tgz"));
}

TEST(ScratchWatch, DirectoryThatBecameAFileIsRemovedAndReported) {
  watched watched;
  fs::create_directories(watched.at / "config");
  ASSERT_TRUE(watched.begin());
  fs::remove(watched.at / "config");
  write_bytes(watched.at / "config", "a file");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "config"));
}

TEST(ScratchWatch, ChangedKIsReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "subsys.k", "other bytes");
  EXPECT_FALSE(watched.end());
}

TEST(ScratchWatch, ChangedChecksumIsReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "subsys.checksum", std::string(64, 'a'));
  EXPECT_FALSE(watched.end());
}

TEST(ScratchWatch, RemovedKIsReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  fs::remove(watched.at / "subsys.k");
  EXPECT_FALSE(watched.end());
}

TEST(ScratchWatch, KWrittenAnewWithTheSameBytesIsClean) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(watched.at / "subsys.k", watched.at.published.k_text());
  EXPECT_TRUE(watched.end());
}

TEST(ScratchWatch, NewTreeOfAnyDepthIsRemovedAndReported) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  write_bytes(deep_directory(watched.at / "other", 200) + "/file", "deep");
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "other"));
}

TEST(ScratchWatch, TreeOfAnyDepthFromBeforeIsCutWithoutComplaint) {
  watched watched;
  write_bytes(deep_directory(watched.at / "config", 200) + "/file", "deep");
  ASSERT_TRUE(watched.begin());
  EXPECT_EQ(tree(watched.at / "config"), std::vector<std::string>{});
  EXPECT_TRUE(watched.end());
}

TEST(ScratchWatch, RemovedTreeMayHoldNumberedNames) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  for (const char *const path : {"other/0", "other/1/0/1/2/3", "other/2/0/0/file", "other/3/1/x"}) {
    write_bytes(watched.at / path, "bytes");
  }
  EXPECT_FALSE(watched.end());
  EXPECT_FALSE(exists(watched.at / "other"));
}

TEST(ScratchWatch, LinkInARemovedTreeIsNotFollowed) {
  watched watched;
  ASSERT_TRUE(watched.begin());
  fs::create_directories(watched.at / "other/deeper");
  fs::create_symlink(watched.at.sentinel, watched.at / "other/link");
  fs::create_symlink(watched.at.sentinel, watched.at / "other/deeper/link");
  EXPECT_FALSE(watched.end());
  EXPECT_EQ(read_bytes(watched.at.sentinel + "/kept"), "kept");
  EXPECT_TRUE(exists(watched.at.sentinel + "/folder"));
}

// Counts what the GPB directory holds when the watch ends.
struct counted : watched {
  zot::gpb_directory_census count() {
    if (!begin() || !end()) {
      throw std::runtime_error("the scratch directory is not clean");
    }
    return watch.found();
  }
};

TEST(GpbDirectoryCensus, MissingDirectoryHoldsNothing) {
  counted counted;
  fs::remove_all(counted.at / "config");
  const zot::gpb_directory_census found = counted.count();
  EXPECT_EQ(found.files, 0U);
  EXPECT_FALSE(found.has_empty_directory);
}

TEST(GpbDirectoryCensus, FilesAtAnyDepthAreCounted) {
  counted counted;
  for (const char *const path : {"config/stray", "config/Wlan/stray", "config/Wlan/office/5",
                                 "config/Wlan/office/6", "config/Zone/hq/1/deeper/still"}) {
    write_bytes(counted.at / path, "bytes");
  }
  EXPECT_EQ(counted.count().files, 5U);
}

TEST(GpbDirectoryCensus, DirectoriesWithFilesAreNotEmpty) {
  counted counted;
  write_bytes(counted.at / "config/Wlan/office/5", "bytes");
  write_bytes(counted.at / "config/Zone/hq/1", "bytes");
  EXPECT_FALSE(counted.count().has_empty_directory);
}

TEST(GpbDirectoryCensus, FilesThatCameMeanwhileAreCounted) {
  counted counted;
  write_bytes(counted.at / "config/Wlan/office/5", "bytes");
  ASSERT_TRUE(counted.begin());
  write_bytes(counted.at / "config/Wlan/office/6", "bytes");
  fs::create_directories(counted.at / "config/Zone");
  ASSERT_TRUE(counted.end());
  EXPECT_EQ(counted.watch.found().files, 2U);
  EXPECT_TRUE(counted.watch.found().has_empty_directory);
}

TEST(GpbDirectoryCensus, EmptyDirectoryIsToldOf) {
  for (const char *const path : {"config", "config/Vlan", "config/Wlan/office/empty"}) {
    counted counted;
    if (std::strcmp(path, "config") != 0) {
      write_bytes(counted.at / "config/Wlan/office/5", "bytes");
    }
    fs::create_directories(counted.at / path);
    EXPECT_TRUE(counted.count().has_empty_directory) << path;
  }
}

TEST(GpbDirectoryCensus, OtherFoldersDoNotCount) {
  counted counted;
  write_bytes(counted.at / "config/Wlan/office/5", "bytes");
  write_bytes(counted.at / "other/file", "bytes");
  write_bytes(counted.at / "other/config/file", "bytes");
  fs::create_directories(counted.at / "empty");
  const zot::gpb_directory_census found = counted.count();
  EXPECT_EQ(found.files, 1U);
  EXPECT_FALSE(found.has_empty_directory);
}

TEST(GpbDirectoryCensus, WhatIsRemovedDoesNotCount) {
  counted counted;
  write_bytes(counted.at / "config/Wlan/office/5", "bytes");
  ASSERT_TRUE(counted.begin());
  fs::create_symlink(counted.at.sentinel, counted.at / "config/Wlan/link");
  ASSERT_FALSE(counted.end());
  EXPECT_EQ(counted.watch.found().files, 1U);
}

// The files that no archive may change.
class GuardedFile : public testing::TestWithParam<const char *> {
 protected:
  void begin_with(const std::string &bytes) {
    write_bytes(file_, bytes);
    ASSERT_TRUE(watched_.begin());
  }
  void expect_removed() {
    EXPECT_FALSE(watched_.end());
    EXPECT_FALSE(exists(file_));
  }
  // Writes in place: the type and the mode behind the name stay the same.
  void overwrite(const std::string &bytes) {
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << bytes;
  }

  watched watched_;
  std::string file_ = watched_.at / GetParam();
};

TEST_P(GuardedFile, StaysUnchanged) {
  begin_with("the bytes");
  EXPECT_TRUE(watched_.end());
  EXPECT_EQ(read_bytes(file_), "the bytes");
}

TEST_P(GuardedFile, GoesWithAChangedByte) {
  begin_with("the bytes");
  overwrite("the Bytes");
  expect_removed();
}

TEST_P(GuardedFile, GoesWhenItIsLonger) {
  begin_with("the bytes");
  overwrite("the bytes!");
  expect_removed();
}

TEST_P(GuardedFile, GoesWhenItIsShorter) {
  begin_with("the bytes");
  overwrite("the byte");
  expect_removed();
}

TEST_P(GuardedFile, GoesWhenItIsEmptied) {
  begin_with("the bytes");
  overwrite("");
  expect_removed();
}

TEST_P(GuardedFile, GoesWhenItWasEmptyAndIsNot) {
  begin_with("");
  overwrite("b");
  expect_removed();
}

TEST_P(GuardedFile, StaysEmpty) {
  begin_with("");
  EXPECT_TRUE(watched_.end());
  EXPECT_TRUE(exists(file_));
}

TEST_P(GuardedFile, LongOneStaysUnchanged) {
  for (const size_t size : {4095U, 4096U, 4097U, 20000U}) {
    watched watched;
    const std::string file = watched.at / GetParam();
    write_bytes(file, noise(size));
    ASSERT_TRUE(watched.begin());
    EXPECT_TRUE(watched.end()) << size;
    EXPECT_TRUE(exists(file)) << size;
  }
}

TEST_P(GuardedFile, LongOneGoesWithAChangedLastByte) {
  std::string bytes = noise(20000);
  begin_with(bytes);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  overwrite(bytes);
  expect_removed();
}

TEST_P(GuardedFile, RemovedOneIsReported) {
  begin_with("the bytes");
  fs::remove(file_);
  expect_removed();
}

TEST_P(GuardedFile, NewOneGoes) {
  fs::remove(file_);
  ASSERT_TRUE(watched_.begin());
  write_bytes(file_, "planted");
  expect_removed();
}

TEST_P(GuardedFile, MissingOneMayStayMissing) {
  fs::remove(file_);
  ASSERT_TRUE(watched_.begin());
  EXPECT_TRUE(watched_.end());
}

TEST_P(GuardedFile, OnlyTheChangedOneGoes) {
  begin_with("the bytes");
  overwrite("THE BYTES");
  expect_removed();
  const std::string other =
      std::strcmp(GetParam(), "subsys.k") == 0 ? "subsys.checksum" : "subsys.k";
  EXPECT_TRUE(exists(watched_.at / other));
}

INSTANTIATE_TEST_SUITE_P(Names, GuardedFile, testing::Values("subsys.k", "subsys.checksum"),
                         [](const auto &tested) {
                           return std::strcmp(tested.param, "subsys.k") == 0 ? "K" : "Checksum";
                         });

}  // namespace
