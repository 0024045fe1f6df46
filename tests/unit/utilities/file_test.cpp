// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/support/media.hpp"
#include "utilities/owner.hpp"
#include "utilities/shell_word.hpp"
#include "zot_conf.h"

namespace {

namespace fs = std::filesystem;
using zot::test::env_guard;
using zot::test::exists;
using zot::test::read_bytes;
using zot::test::temp_dir;
using zot::test::write_bytes;

class umask_guard {
 public:
  explicit umask_guard(mode_t mask) : before_(::umask(mask)) {}
  umask_guard(const umask_guard &) = delete;
  umask_guard &operator=(const umask_guard &) = delete;
  ~umask_guard() { ::umask(before_); }

 private:
  mode_t before_;
};

class working_directory {
 public:
  explicit working_directory(const std::string &path) : before_(fs::current_path()) {
    fs::current_path(path);
  }
  working_directory(const working_directory &) = delete;
  working_directory &operator=(const working_directory &) = delete;
  ~working_directory() { fs::current_path(before_); }

 private:
  fs::path before_;
};

// Comes before the real rm on PATH. It writes a note instead of removing, and fails.
class fake_rm {
 public:
  fake_rm() : path_("PATH", (dir_ / "bin") + ":" + std::getenv("PATH")) {
    write_bytes(dir_ / "bin/rm", "#!/bin/sh\necho \"$@\" > " + (dir_ / "note") + "\nexit 7\n");
    fs::permissions(dir_ / "bin/rm", fs::perms::owner_all);
  }
  [[nodiscard]] bool was_run() const { return exists(dir_ / "note"); }
  [[nodiscard]] std::string arguments() const { return read_bytes(dir_ / "note"); }

 private:
  temp_dir dir_;
  env_guard path_;
};

mode_t mode_of(const std::string &path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

void set_mode(const std::string &path, mode_t mode) {
  ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

// The same file under a name of exactly `length` characters.
std::string stretched(const std::string &dir, const std::string &name, size_t length) {
  std::string path = dir;
  while (path.size() + 2 + 1 + name.size() < length) {
    path += "/.";
  }
  path.append(length - path.size() - name.size(), '/');
  return path + name;
}

std::string sparse_file(const std::string &path, off_t size) {
  write_bytes(path, "");
  EXPECT_EQ(::truncate(path.c_str(), size), 0) << path;
  return path;
}

constexpr off_t two_gib = off_t{1} << 31;
constexpr off_t four_gib = off_t{1} << 32;
constexpr time_t year_2100 = 4102444800;

// Later than 32 bits of seconds can express.
std::string dated_far_ahead(const std::string &path) {
  const std::array<timespec, 2> times = {timespec{year_2100, 0}, timespec{year_2100, 0}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0) << path;
  return path;
}

TEST(GetFileType, TellsTheSizeOfAFileOverFourGibibytes) {
  const temp_dir dir;
  const std::string path = sparse_file(dir / "file", four_gib + 5);
  struct stat st {};
  EXPECT_EQ(get_file_type(path.c_str(), &st, -1), 1);
  EXPECT_EQ(st.st_size, four_gib + 5);
}

TEST(GetFileType, TellsADateFarAhead) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  struct stat st {};
  EXPECT_EQ(get_file_type(dated_far_ahead(dir / "file").c_str(), &st, -1), 1);
  EXPECT_EQ(st.st_mtime, year_2100);
}

TEST(RmRf, RemovesWhatIsDatedFarAhead) {
  const temp_dir dir;
  write_bytes(dir / "victim/file", "x");
  dated_far_ahead(dir / "victim/file");
  EXPECT_EQ(rm_rf(dated_far_ahead(dir / "victim").c_str()), 0);
  EXPECT_FALSE(exists(dir / "victim"));
}

TEST(ChkAndMkdir, TakesADirectoryDatedFarAhead) {
  const temp_dir dir;
  fs::create_directory(dir / "sub");
  EXPECT_EQ(chk_and_mkdir(dated_far_ahead(dir / "sub").c_str()), 0);
}

TEST(PlainShellWord, AcceptsWhatAShellTakesAsItStands) {
  for (const char *text : {"/a/b", "a", "/writable/zot//knowledge", "a-b", "a~", "a#b", "k=v", "%s",
                           "@:,.+_", "/caf\xc3\xa9", "a]"}) {
    EXPECT_TRUE(zot::is_plain_shell_word(text)) << text;
  }
}

TEST(PlainShellWord, RefusesWhatAShellWouldInterpretAnywhere) {
  for (const char c : std::string(" \t\n\r\x01\x1f\x7f'\"`$;&|<>*?[(){}\\")) {
    for (const std::string &text : {std::string(1, c), std::string("/a") + c, c + std::string("/a"),
                                    std::string("/a") + c + "b"}) {
      EXPECT_FALSE(zot::is_plain_shell_word(text.c_str())) << static_cast<int>(c) << " " << text;
    }
  }
}

TEST(PlainShellWord, RefusesALeadingOptionHomeOrComment) {
  for (const char *text : {"-rf", "~", "~/a", "#a"}) {
    EXPECT_FALSE(zot::is_plain_shell_word(text)) << text;
  }
}

TEST(PlainShellWord, NothingIsNoWord) {
  EXPECT_FALSE(zot::is_plain_shell_word(""));
  EXPECT_FALSE(zot::is_plain_shell_word(nullptr));
}

TEST(RmRf, RemovesADirectoryWithItsContent) {
  const temp_dir dir;
  write_bytes(dir / "victim/a/b", "x");
  write_bytes(dir / "victim/.hidden", "x");
  EXPECT_EQ(rm_rf((dir / "victim").c_str()), 0);
  EXPECT_FALSE(exists(dir / "victim"));
}

TEST(RmRf, RemovesALinkAndKeepsItsTarget) {
  const temp_dir dir;
  write_bytes(dir / "target/file", "x");
  fs::create_directory_symlink(dir / "target", dir / "link");
  EXPECT_EQ(rm_rf((dir / "link").c_str()), 0);
  EXPECT_FALSE(exists(dir / "link"));
  EXPECT_TRUE(exists(dir / "target/file"));
}

TEST(RmRf, AbsentPathSucceedsWithoutACommand) {
  const temp_dir dir;
  const fake_rm rm;
  EXPECT_EQ(rm_rf((dir / "absent").c_str()), 0);
  EXPECT_FALSE(rm.was_run());
}

TEST(RmRf, RefusesAMissingOrEmptyPath) {
  const fake_rm rm;
  EXPECT_EQ(rm_rf(nullptr), -1);
  EXPECT_EQ(rm_rf(""), -1);
  EXPECT_FALSE(rm.was_run());
}

TEST(RmRf, RefusesTheRootDirectoryUnderEveryName) {
  const fake_rm rm;
  for (const char *name : {"/", "/.", "//", "/..", "/./", "/proc/self/root/.", "/tmp/.."}) {
    EXPECT_EQ(rm_rf(name), -1) << name;
  }
  EXPECT_FALSE(rm.was_run());
}

TEST(RmRf, RefusesAPathThatAShellWouldInterpret) {
  const temp_dir dir;
  const fake_rm rm;
  for (const std::string name : {"a b", "a;b", "a*", "$HOME", "a'b", "`a`", "a&b"}) {
    write_bytes(dir / name, "x");
    errno = 0;
    EXPECT_EQ(rm_rf((dir / name).c_str()), -1) << name;
    EXPECT_EQ(errno, EINVAL) << name;
    EXPECT_TRUE(exists(dir / name)) << name;
  }
  EXPECT_FALSE(rm.was_run());
}

TEST(RmRf, RefusesAPathThatDoesNotFitTheCommand) {
  const temp_dir dir;
  const fake_rm rm;
  write_bytes(dir / "victim", "x");
  const std::string path = stretched(dir.path(), "victim", ZOT_PATH_SIZE - 8);
  ASSERT_TRUE(exists(path));
  errno = 0;
  EXPECT_EQ(rm_rf(path.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_FALSE(rm.was_run());
}

TEST(RmRf, TakesTheLongestPathThatFitsTheCommand) {
  const temp_dir dir;
  write_bytes(dir / "victim", "x");
  const std::string path = stretched(dir.path(), "victim", ZOT_PATH_SIZE - 9);
  ASSERT_TRUE(exists(path));
  EXPECT_EQ(rm_rf(path.c_str()), 0);
  EXPECT_FALSE(exists(dir / "victim"));
}

TEST(RmRf, PathThatCannotBeLookedUpFails) {
  const temp_dir dir;
  const fake_rm rm;
  write_bytes(dir / "file", "x");
  EXPECT_EQ(rm_rf((dir / "file/below").c_str()), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(rm.was_run());
}

TEST(RmRf, HandsOnTheRawStatusOfTheCommand) {
  const temp_dir dir;
  const fake_rm rm;
  write_bytes(dir / "victim", "x");
  EXPECT_EQ(rm_rf((dir / "victim").c_str()), 7 << 8);
  EXPECT_EQ(rm.arguments(), "-rf " + (dir / "victim") + "\n");
}

TEST(GetFileType, TellsFilesDirectoriesAndOthersApart) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  fs::create_symlink(dir / "file", dir / "link");
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(get_file_type((dir / "file").c_str(), nullptr, -1), 1);
  EXPECT_EQ(get_file_type(dir.path().c_str(), nullptr, -1), 2);
  EXPECT_EQ(get_file_type((dir / "link").c_str(), nullptr, -1), 3);
  EXPECT_EQ(get_file_type((dir / "fifo").c_str(), nullptr, -1), 3);
}

TEST(GetFileType, NothingToLookAtIsMinusOne) {
  EXPECT_EQ(get_file_type(nullptr, nullptr, -1), -1);
}

TEST(GetFileType, EmptyOrAbsentPathIsMinusThree) {
  const temp_dir dir;
  EXPECT_EQ(get_file_type("", nullptr, -1), -3);
  EXPECT_EQ(get_file_type((dir / "absent").c_str(), nullptr, -1), -3);
}

TEST(GetFileType, AnyOtherFailureIsMinusFour) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  EXPECT_EQ(get_file_type((dir / "file/below").c_str(), nullptr, -1), -4);
}

TEST(GetFileType, ClosedDescriptorIsMinusFour) {
  const int fd = ::open("/", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ::close(fd);
  EXPECT_EQ(get_file_type("/", nullptr, fd), -4);
}

TEST(GetFileType, DescriptorCountsBeforeThePath) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  const zot::descriptor fd(::open((dir / "file").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(get_file_type("/", nullptr, fd.get()), 1);
  EXPECT_EQ(get_file_type(nullptr, nullptr, fd.get()), 1);
}

TEST(GetFileType, FillsTheStatBuffer) {
  const temp_dir dir;
  write_bytes(dir / "file", "12345");
  struct stat st {};
  get_file_type((dir / "file").c_str(), &st, -1);
  EXPECT_EQ(st.st_size, 5);
}

TEST(Fcopy, CopiesTheBytes) {
  const temp_dir dir;
  const std::string bytes("a\0b\nc", 5);
  write_bytes(dir / "src", bytes);
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), 0);
  EXPECT_EQ(read_bytes(dir / "dst"), bytes);
}

TEST(Fcopy, CountersEqualTheFileSize) {
  const temp_dir dir;
  for (const size_t size : {0U, 1U, 4095U, 4096U, 4097U, 100000U}) {
    const std::string bytes(size, 'x');
    write_bytes(dir / "src", bytes);
    uint64_t rd = 99;
    uint64_t wr = 99;
    EXPECT_EQ(fcopy_stat((dir / "src").c_str(), (dir / "dst").c_str(), &rd, &wr), 0) << size;
    EXPECT_EQ(rd, size);
    EXPECT_EQ(wr, size);
    EXPECT_EQ(read_bytes(dir / "dst"), bytes) << size;
  }
}

TEST(Fcopy, OntoItselfFailsAndWritesNothing) {
  const temp_dir dir;
  write_bytes(dir / "file", "bytes");
  EXPECT_EQ(fcopy((dir / "file").c_str(), (dir / "file").c_str()), -1);
  EXPECT_EQ(read_bytes(dir / "file"), "bytes");
}

TEST(Fcopy, OntoAHardLinkOfTheSourceFails) {
  const temp_dir dir;
  write_bytes(dir / "file", "bytes");
  fs::create_hard_link(dir / "file", dir / "other");
  EXPECT_EQ(fcopy((dir / "file").c_str(), (dir / "other").c_str()), -1);
  EXPECT_EQ(fs::hard_link_count(dir / "file"), 2U);
}

TEST(Fcopy, ReplacesAnExistingFileByANewOneWithTheSourcesMode) {
  const temp_dir dir;
  const umask_guard mask(0);
  write_bytes(dir / "src", "new");
  write_bytes(dir / "dst", "much older bytes");
  set_mode(dir / "src", 0651);
  set_mode(dir / "dst", 0600);
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), 0);
  EXPECT_EQ(read_bytes(dir / "dst"), "new");
  EXPECT_EQ(mode_of(dir / "dst"), 0651U);
}

TEST(Fcopy, LeavesTheOtherNamesOfAReplacedFileAlone) {
  const temp_dir dir;
  write_bytes(dir / "src", "new");
  write_bytes(dir / "dst", "old");
  fs::create_hard_link(dir / "dst", dir / "other");
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), 0);
  EXPECT_EQ(read_bytes(dir / "other"), "old");
}

TEST(Fcopy, UmaskAppliesToTheNewFile) {
  const temp_dir dir;
  write_bytes(dir / "src", "x");
  set_mode(dir / "src", 0666);
  const umask_guard mask(027);
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), 0);
  EXPECT_EQ(mode_of(dir / "dst"), 0640U);
}

TEST(Fcopy, ReplacesASymbolicLinkAndKeepsItsTarget) {
  const temp_dir dir;
  write_bytes(dir / "src", "new");
  write_bytes(dir / "target", "old");
  fs::create_symlink(dir / "target", dir / "dst");
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), 0);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(dir / "dst")));
  EXPECT_EQ(read_bytes(dir / "dst"), "new");
  EXPECT_EQ(read_bytes(dir / "target"), "old");
}

TEST(Fcopy, AbsentSourceFailsAndLeavesTheDestination) {
  const temp_dir dir;
  write_bytes(dir / "dst", "old");
  EXPECT_EQ(fcopy((dir / "absent").c_str(), (dir / "dst").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(read_bytes(dir / "dst"), "old");
}

TEST(Fcopy, CountersStayWhenNothingWasOpened) {
  const temp_dir dir;
  uint64_t rd = 99;
  uint64_t wr = 98;
  EXPECT_EQ(fcopy_stat((dir / "absent").c_str(), (dir / "dst").c_str(), &rd, &wr), -1);
  EXPECT_EQ(rd, 99U);
  EXPECT_EQ(wr, 98U);
}

TEST(Fcopy, DirectoryAsDestinationFails) {
  const temp_dir dir;
  write_bytes(dir / "src", "x");
  fs::create_directory(dir / "dst");
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), -1);
  EXPECT_TRUE(fs::is_directory(dir / "dst"));
}

TEST(Fcopy, DestinationThatCannotBeLookedUpFails) {
  const temp_dir dir;
  write_bytes(dir / "src", "x");
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "src/below").c_str()), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

// A FIFO that nobody ever writes to.
std::string silent_fifo(const temp_dir &dir) {
  std::string path = dir / "fifo";
  EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
  return path;
}

TEST(Fcopy, RefusesAFifoWithoutWaitingForAWriter) {
  const temp_dir dir;
  EXPECT_EQ(fcopy(silent_fifo(dir).c_str(), (dir / "to").c_str()), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(exists(dir / "to"));
}

TEST(Fcopy, RefusesAFifoThatHasAWriter) {
  const temp_dir dir;
  const std::string path = silent_fifo(dir);
  const zot::descriptor writer(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::write(writer.get(), "x", 1), 1);
  EXPECT_EQ(fcopy(path.c_str(), (dir / "to").c_str()), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(exists(dir / "to"));
}

TEST(Fcopy, RefusesASocket) {
  const temp_dir dir;
  const zot::descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, (dir / "socket").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address),
            0);
  EXPECT_EQ(fcopy((dir / "socket").c_str(), (dir / "to").c_str()), -1);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_FALSE(exists(dir / "to"));
}

TEST(Fcopy, ReplacesAFifo) {
  const temp_dir dir;
  write_bytes(dir / "from", "abc");
  const std::string path = silent_fifo(dir);
  EXPECT_EQ(fcopy((dir / "from").c_str(), path.c_str()), 0);
  EXPECT_EQ(read_bytes(path), "abc");
}

TEST(Fcopy, FailingReadFailsTheCopy) {
  const temp_dir dir;
  fs::create_directory(dir / "src");
  EXPECT_EQ(fcopy((dir / "src").c_str(), (dir / "dst").c_str()), -1);
  EXPECT_EQ(errno, EISDIR);
}

TEST(Fcopy, MissingArgumentsFail) {
  const temp_dir dir;
  write_bytes(dir / "src", "x");
  EXPECT_EQ(fcopy(nullptr, (dir / "dst").c_str()), -1);
  EXPECT_EQ(fcopy((dir / "src").c_str(), nullptr), -1);
}

// The limit applies to the child alone. Its exit code is the result of the copy: 0 if all is as
// expected.
[[noreturn]] void copy_beyond_the_size_limit(const std::string &src, const std::string &dst) {
  const rlimit limit{5000, 5000};
  ::setrlimit(RLIMIT_FSIZE, &limit);
  ::signal(SIGXFSZ, SIG_IGN);
  uint64_t rd = 0;
  uint64_t wr = 0;
  const int result = fcopy_stat(src.c_str(), dst.c_str(), &rd, &wr);
  const bool is_expected = result == -1 && errno == EFBIG && wr == 5000;
  std::_Exit(is_expected ? 0 : 1);
}

TEST(Fcopy, SourceOverTwoGibibytesIsOpened) {
  const temp_dir dir;
  const std::string src = sparse_file(dir / "src", 3 * (two_gib / 2));
  EXPECT_EXIT(copy_beyond_the_size_limit(src, dir / "dst"), testing::ExitedWithCode(0), "");
  EXPECT_EQ(read_bytes(dir / "dst"), std::string(5000, '\0'));
}

TEST(Fcopy, FilesDatedFarAheadAreCopiedAndReplaced) {
  const temp_dir dir;
  write_bytes(dir / "src", "new");
  write_bytes(dir / "dst", "old");
  EXPECT_EQ(fcopy(dated_far_ahead(dir / "src").c_str(), dated_far_ahead(dir / "dst").c_str()), 0);
  EXPECT_EQ(read_bytes(dir / "dst"), "new");
}

TEST(Fcopy, FailingWriteFailsTheCopyAndLeavesWhatWasWritten) {
  const temp_dir dir;
  write_bytes(dir / "src", std::string(10000, 'x'));
  EXPECT_EXIT(copy_beyond_the_size_limit(dir / "src", dir / "dst"), testing::ExitedWithCode(0), "");
  EXPECT_EQ(read_bytes(dir / "dst"), std::string(5000, 'x'));
}

TEST(MkdirR, CreatesEachDirectoryOfARelativePath) {
  const temp_dir dir;
  const working_directory there(dir.path());
  EXPECT_EQ(mkdir_r("a//b///c"), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
}

TEST(MkdirR, CreatesEachDirectoryOfAnAbsolutePath) {
  const temp_dir dir;
  EXPECT_EQ(mkdir_r((dir / "a/b/c/").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
}

TEST(MkdirR, CurrentDirectoryIsThere) {
  EXPECT_EQ(mkdir_r("."), 0);
}

TEST(MkdirR, RootDirectoryIsThere) {
  EXPECT_EQ(mkdir_r("/"), 0);
}

TEST(MkdirR, ExistingDirectoriesAreNoError) {
  const temp_dir dir;
  write_bytes(dir / "a/b/file", "x");
  EXPECT_EQ(mkdir_r((dir / "a/b/c").c_str()), 0);
  EXPECT_EQ(mkdir_r((dir / "a/b/c").c_str()), 0);
  EXPECT_TRUE(exists(dir / "a/b/file"));
}

TEST(MkdirR, FileInTheChainFails) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  EXPECT_EQ(mkdir_r((dir / "file/b/c").c_str()), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(MkdirR, UmaskAppliesToTheNewDirectories) {
  const temp_dir dir;
  const umask_guard mask(022);
  EXPECT_EQ(mkdir_r((dir / "a/b").c_str()), 0);
  EXPECT_EQ(mode_of(dir / "a"), 0755U);
  EXPECT_EQ(mode_of(dir / "a/b"), 0755U);
}

TEST(MkdirR, MissingOrEmptyPathIsInvalid) {
  for (const char *path : {static_cast<const char *>(nullptr), ""}) {
    errno = 0;
    EXPECT_EQ(mkdir_r(path), -1);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(MkdirR, CutsAPathThatIsTooLong) {
  const temp_dir dir;
  const std::string longest = stretched(dir.path(), "created", ZOT_PATH_SIZE - 1);
  EXPECT_EQ(mkdir_r((longest + "beyond").c_str()), 0);
  EXPECT_TRUE(exists(dir / "created"));
  EXPECT_FALSE(exists(dir / "createdbeyond"));
}

TEST(ChkAndMkdir, CreatesAnAbsentDirectoryWithItsParents) {
  const temp_dir dir;
  EXPECT_EQ(chk_and_mkdir((dir / "a/b").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a/b"));
}

TEST(ChkAndMkdir, LeavesADirectoryAsItIs) {
  const temp_dir dir;
  write_bytes(dir / "a/file", "x");
  EXPECT_EQ(chk_and_mkdir((dir / "a").c_str()), 0);
  EXPECT_TRUE(exists(dir / "a/file"));
}

TEST(ChkAndMkdir, LeavesALinkToADirectoryAsItIs) {
  const temp_dir dir;
  write_bytes(dir / "a/file", "x");
  fs::create_directory_symlink(dir / "a", dir / "link");
  EXPECT_EQ(chk_and_mkdir((dir / "link").c_str()), 0);
  EXPECT_TRUE(fs::is_symlink(dir / "link"));
  EXPECT_TRUE(exists(dir / "a/file"));
}

TEST(ChkAndMkdir, ReplacesARegularFile) {
  const temp_dir dir;
  write_bytes(dir / "a", "x");
  EXPECT_EQ(chk_and_mkdir((dir / "a").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a"));
}

TEST(ChkAndMkdir, ReplacesALinkToAFileAndKeepsTheFile) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  fs::create_symlink(dir / "file", dir / "a");
  EXPECT_EQ(chk_and_mkdir((dir / "a").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(fs::symlink_status(dir / "a")));
  EXPECT_EQ(read_bytes(dir / "file"), "x");
}

TEST(ChkAndMkdir, ReplacesAFifoWithoutWaitingForAWriter) {
  const temp_dir dir;
  ASSERT_EQ(::mkfifo((dir / "a").c_str(), 0600), 0);
  EXPECT_EQ(chk_and_mkdir((dir / "a").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a"));
}

TEST(ChkAndMkdir, RefusesNoPathAndTheRootDirectory) {
  EXPECT_EQ(chk_and_mkdir(nullptr), -1);
  EXPECT_EQ(chk_and_mkdir(""), -1);
  EXPECT_EQ(chk_and_mkdir("/"), -1);
}

TEST(ChkAndMkdir, FileAmongTheParentsFails) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  EXPECT_EQ(chk_and_mkdir((dir / "file/a").c_str()), -1);
  EXPECT_EQ(read_bytes(dir / "file"), "x");
}

struct line_case {
  std::string content;
  std::string line;
};

TEST(ReadLine, TakesTheFirstLineWithoutOneNewline) {
  const temp_dir dir;
  const std::vector<line_case> cases = {
      {"abc\n", "abc"},
      {"abc", "abc"},
      {"abc\n\n", "abc"},
      {"abc\ndef\n", "abc"},
      {"\n", ""},
      {"abc\r\n", "abc\r"},
      {std::string(511, 'x'), std::string(511, 'x')},
      {std::string(510, 'x') + "\n", std::string(510, 'x')},
      {std::string(511, 'x') + "\n", std::string(511, 'x')},
      {std::string(600, 'x') + "\n", std::string(511, 'x')},
      {std::string("ab\0cd\n", 6), "ab"},
      {std::string("\0\n", 2), ""},
  };
  for (const line_case &one : cases) {
    write_bytes(dir / "file", one.content);
    std::array<char, 1024> buf{};
    EXPECT_EQ(read_line((dir / "file").c_str(), buf.data(), buf.size()), buf.data());
    EXPECT_EQ(std::string(buf.data()), one.line) << one.content;
  }
}

TEST(ReadLine, LongerLineFillsTheBufferWithoutATerminator) {
  const temp_dir dir;
  write_bytes(dir / "file", "abcdef\n");
  std::array<char, 5> buf{'#', '#', '#', '#', '#'};
  EXPECT_EQ(read_line((dir / "file").c_str(), buf.data(), 4), buf.data());
  EXPECT_EQ(std::string(buf.data(), buf.size()), "abcd#");
}

TEST(ReadLine, EmptyFileHasNoLine) {
  const temp_dir dir;
  write_bytes(dir / "file", "");
  char buf[8] = "before";
  EXPECT_EQ(read_line((dir / "file").c_str(), buf, sizeof buf), nullptr);
  EXPECT_STREQ(buf, "before");
}

TEST(ReadLine, AbsentFileHasNoLine) {
  const temp_dir dir;
  char buf[8];
  EXPECT_EQ(read_line((dir / "absent").c_str(), buf, sizeof buf), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST(ReadLine, FailingReadKeepsTheSystemError) {
  const temp_dir dir;
  char buf[8];
  EXPECT_EQ(read_line(dir.path().c_str(), buf, sizeof buf), nullptr);
  EXPECT_EQ(errno, EISDIR);
}

TEST(ReadLine, FifoWithoutAWriterHasNoLine) {
  const temp_dir dir;
  char buf[8] = "before";
  EXPECT_EQ(read_line(silent_fifo(dir).c_str(), buf, sizeof buf), nullptr);
  EXPECT_STREQ(buf, "before");
}

TEST(ReadLine, FifoWhoseWriterIsSilentHasNoLine) {
  const temp_dir dir;
  const std::string path = silent_fifo(dir);
  const zot::descriptor writer(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  char buf[8] = "before";
  EXPECT_EQ(read_line(path.c_str(), buf, sizeof buf), nullptr);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_STREQ(buf, "before");
}

TEST(ReadLine, MissingArgumentsHaveNoLine) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  char buf[8];
  EXPECT_EQ(read_line(nullptr, buf, sizeof buf), nullptr);
  EXPECT_EQ(read_line((dir / "file").c_str(), nullptr, sizeof buf), nullptr);
}

TEST(ReadFile, GivesTheBytesTerminated) {
  const temp_dir dir;
  write_bytes(dir / "file", "abc");
  uint32_t size = 0;
  const zot::c_text text(read_file((dir / "file").c_str(), &size));
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(size, 3U);
  EXPECT_EQ(std::memcmp(text.get(), "abc", 4), 0);
}

TEST(ReadFile, TakesZeroBytesAndLongFiles) {
  const temp_dir dir;
  std::string bytes(300000, 'x');
  bytes[0] = '\0';
  bytes[5000] = '\0';
  write_bytes(dir / "file", bytes);
  uint32_t size = 0;
  const zot::c_text text(read_file((dir / "file").c_str(), &size));
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::string(text.get(), size), bytes);
}

TEST(ReadFile, EmptyFileGivesNothing) {
  const temp_dir dir;
  write_bytes(dir / "file", "");
  uint32_t size = 99;
  EXPECT_EQ(read_file((dir / "file").c_str(), &size), nullptr);
  EXPECT_EQ(size, 0U);
}

TEST(ReadFile, AbsentFileGivesNothingAndLeavesTheSize) {
  const temp_dir dir;
  uint32_t size = 99;
  EXPECT_EQ(read_file((dir / "absent").c_str(), &size), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(size, 99U);
}

TEST(ReadFile, MissingOrEmptyPathGivesNothing) {
  uint32_t size = 99;
  EXPECT_EQ(read_file(nullptr, &size), nullptr);
  EXPECT_EQ(read_file("", &size), nullptr);
}

TEST(ReadFile, DirectoryGivesNothing) {
  const temp_dir dir;
  write_bytes(dir / "sub/file", "x");
  uint32_t size = 0;
  EXPECT_EQ(read_file((dir / "sub").c_str(), &size), nullptr);
}

TEST(ReadFile, WithoutAPositionGivesNothingAndLeavesTheSize) {
  const temp_dir dir;
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  const zot::descriptor writer(::open((dir / "fifo").c_str(), O_RDWR | O_CLOEXEC));
  uint32_t size = 99;
  EXPECT_EQ(read_file((dir / "fifo").c_str(), &size), nullptr);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(size, 99U);
}

TEST(ReadFile, FifoWithoutAWriterGivesNothing) {
  const temp_dir dir;
  uint32_t size = 99;
  EXPECT_EQ(read_file(silent_fifo(dir).c_str(), &size), nullptr);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(size, 99U);
}

TEST(ReadFile, SizeThatDoesNotFitIsTooBig) {
  const temp_dir dir;
  const std::string path = sparse_file(dir / "file", static_cast<off_t>(UINT32_MAX));
  uint32_t size = 99;
  errno = 0;
  EXPECT_EQ(read_file(path.c_str(), &size), nullptr);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(size, 99U);
}

TEST(ReadFile, SizeOverFourGibibytesIsNotTakenForWhatItWrapsTo) {
  const temp_dir dir;
  const std::string path = sparse_file(dir / "file", four_gib + 5);
  uint32_t size = 99;
  errno = 0;
  EXPECT_EQ(read_file(path.c_str(), &size), nullptr);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(size, 99U);
}

TEST(ReadLine, FileOverTwoGibibytesGivesItsFirstLine) {
  const temp_dir dir;
  write_bytes(dir / "file", "first\nsecond\n");
  ASSERT_EQ(::truncate((dir / "file").c_str(), two_gib + 1), 0);
  char line[16] = {};
  EXPECT_STREQ(read_line((dir / "file").c_str(), line, sizeof line), "first");
}

TEST(ReadFileMmap, SizeOverFourGibibytesIsNotTakenForWhatItWrapsTo) {
  const temp_dir dir;
  const std::string path = sparse_file(dir / "file", four_gib + 5);
  uint32_t len = 99;
  errno = 0;
  EXPECT_EQ(read_file_mmap(path.c_str(), &len), nullptr);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(len, 0U);
}

TEST(ReadFileMmap, MapsTheBytes) {
  const temp_dir dir;
  const std::string bytes(5000, 'm');
  write_bytes(dir / "file", bytes);
  uint32_t len = 0;
  char *const mapped = read_file_mmap((dir / "file").c_str(), &len);
  ASSERT_NE(mapped, nullptr);
  EXPECT_EQ(std::string(mapped, len), bytes);
  EXPECT_EQ(free_file_mmap(mapped, len), 0);
}

TEST(ReadFileMmap, FailureLeavesLengthZero) {
  const temp_dir dir;
  write_bytes(dir / "empty", "");
  const std::string too_big = sparse_file(dir / "big", static_cast<off_t>(UINT32_MAX) + 1);
  for (const std::string &path : {dir / "empty", dir / "absent", too_big, std::string()}) {
    uint32_t len = 99;
    EXPECT_EQ(read_file_mmap(path.c_str(), &len), nullptr) << path;
    EXPECT_EQ(len, 0U) << path;
  }
}

TEST(ReadFileMmap, FifoWithoutAWriterGivesNothing) {
  const temp_dir dir;
  uint32_t len = 99;
  EXPECT_EQ(read_file_mmap(silent_fifo(dir).c_str(), &len), nullptr);
  EXPECT_EQ(len, 0U);
}

TEST(ReadFileMmap, MissingArgumentsGiveNothing) {
  uint32_t len = 99;
  EXPECT_EQ(read_file_mmap(nullptr, &len), nullptr);
  EXPECT_EQ(len, 0U);
  EXPECT_EQ(read_file_mmap("/etc/passwd", nullptr), nullptr);
}

TEST(FreeFileMmap, RefusesNoAddressAndNoLength) {
  char byte = 0;
  EXPECT_EQ(free_file_mmap(nullptr, 1), -1);
  EXPECT_EQ(free_file_mmap(&byte, 0), -1);
}

TEST(FreeFileMmap, ReleasesAFileOfOneByte) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  uint32_t length = 0;
  char *const bytes = read_file_mmap((dir / "file").c_str(), &length);
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(length, 1U);
  EXPECT_EQ(free_file_mmap(bytes, length), 0);
}

TEST(FreeFileMmap, AddressThatIsNoPageFails) {
  alignas(16) char bytes[16] = {};
  EXPECT_EQ(free_file_mmap(bytes + 1, 1), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(WriteFile, CreatesAFile) {
  const temp_dir dir;
  EXPECT_EQ(write_file((dir / "file").c_str(), "a\0b", 3), 0);
  EXPECT_EQ(read_bytes(dir / "file"), std::string("a\0b", 3));
}

TEST(WriteFile, TruncatesAnExistingFile) {
  const temp_dir dir;
  write_bytes(dir / "file", "much longer before");
  EXPECT_EQ(write_file((dir / "file").c_str(), "new", 3), 0);
  EXPECT_EQ(read_bytes(dir / "file"), "new");
}

TEST(WriteFile, ReplacesAFileOfAnyLength) {
  const temp_dir dir;
  for (const std::string before : {"", "o", "old", "older", "much longer before"}) {
    write_bytes(dir / "file", before);
    EXPECT_EQ(write_file((dir / "file").c_str(), "new", 3), 0) << before;
    EXPECT_EQ(read_bytes(dir / "file"), "new") << before;
  }
}

// Earlier content there would look like the end of the new content.
TEST(WriteFile, FailureLeavesNothingBeyondWhatWasWritten) {
  const temp_dir dir;
  zot::test::write_bytes(dir / "file", std::string(20000, 'a'));
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit low { 8192, before.rlim_max };
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
  const std::string content(15000, 'b');
  const int status = write_file((dir / "file").c_str(), content.data(), content.size());
  const int error = errno;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(status, -1);
  EXPECT_EQ(error, EFBIG);
  EXPECT_EQ(read_bytes(dir / "file"), content.substr(0, 8192));
}

TEST(WriteFile, GoesOnAfterASignal) {
  const temp_dir dir;
  zot::test::media().interruptions = 2;
  const int result = write_file((dir / "file").c_str(), "new", 3);
  EXPECT_EQ(zot::test::media().interruptions.exchange(0), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(read_bytes(dir / "file"), "new");
}

TEST(WriteFile, WritesWhatHasNoLength) {
  EXPECT_EQ(write_file("/dev/null", "new", 3), 0);
}

TEST(WriteFile, FileThatMayNotBecomeShorterFails) {
  const zot::descriptor sealed(::memfd_create("file", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  ASSERT_EQ(::ftruncate(sealed.get(), 4), 0);
  ASSERT_EQ(::fcntl(sealed.get(), F_ADD_SEALS, F_SEAL_SHRINK), 0);
  const std::string path = "/proc/self/fd/" + std::to_string(sealed.get());
  EXPECT_EQ(write_file(path.c_str(), "new", 3), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST(WriteFile, FifoWithoutAReaderFails) {
  const temp_dir dir;
  const std::string path = silent_fifo(dir);
  EXPECT_EQ(write_file(path.c_str(), "new", 3), -1);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_EQ(write_file(path.c_str(), "new", 0), -1);
}

TEST(WriteFile, FifoWhoseReaderIsSlowFails) {
  const temp_dir dir;
  const std::string path = silent_fifo(dir);
  const zot::descriptor reader(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  const std::string more_than_it_holds(std::size_t{1} << 20, 'x');
  EXPECT_EQ(write_file(path.c_str(), more_than_it_holds.data(), more_than_it_holds.size()), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(WriteFile, SizeZeroFailsAndLeavesAnEmptyFile) {
  const temp_dir dir;
  write_bytes(dir / "file", "before");
  EXPECT_EQ(write_file((dir / "file").c_str(), "x", 0), -1);
  EXPECT_EQ(read_bytes(dir / "file"), "");
}

TEST(WriteFile, MissingArgumentsFailAndCreateNothing) {
  const temp_dir dir;
  EXPECT_EQ(write_file(nullptr, "x", 1), -1);
  EXPECT_EQ(write_file((dir / "file").c_str(), nullptr, 1), -1);
  EXPECT_FALSE(exists(dir / "file"));
}

TEST(WriteFile, AbsentDirectoryFails) {
  const temp_dir dir;
  EXPECT_EQ(write_file((dir / "absent/file").c_str(), "x", 1), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(WriteFile, FullDeviceFailsWithTheSystemError) {
  EXPECT_EQ(write_file("/dev/full", "x", 1), -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(Str2upper, ChangesLettersInPlace) {
  char text[] = "aBz09:-_";
  EXPECT_EQ(str2upper(text), text);
  EXPECT_STREQ(text, "ABZ09:-_");
}

TEST(Str2upper, NothingStaysNothing) {
  EXPECT_EQ(str2upper(nullptr), nullptr);
}

}  // namespace
