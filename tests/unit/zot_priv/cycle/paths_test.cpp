// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

#include "tests/unit/zot_priv/cycle/paths_fixture.hpp"

namespace {

using zot::test::log_record;
using zot::test::Paths;
using zot::test::read_bytes;
using zot::test::temp_dir;
using zot::test::write_bytes;

bool is_directory(const std::string &path) {
  return std::filesystem::is_directory(path);
}

// Runs in a process with an empty root directory, so that the default paths touch nothing else.
[[noreturn]] void create_below(const std::string &root) {
  if (::geteuid() != 0 && ::unshare(CLONE_NEWUSER) != 0) {
    ::_exit(2);
  }
  if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) {
    ::_exit(3);
  }
  const zot_ctx *const handle = zot_conf_init("aabb", 4);
  if (handle == nullptr) {
    ::_exit(4);
  }
  FILE *const report = std::fopen("/report", "we");
  if (report == nullptr) {
    ::_exit(5);
  }
  std::fprintf(report, "%s\n%s\n%s\n%s\n", handle->conf_root, handle->conf_k_root, handle->tmp_root,
               handle->tmp_gpb_root);
  std::fclose(report);
  ::_exit(0);
}

TEST_F(Paths, WithoutAnEnvironmentAreTheDefaults) {
  conf_prefix_.set(std::nullopt);
  tmp_prefix_.set(std::nullopt);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    create_below(dir_.path());
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(read_bytes(dir_ / "report"),
            "/writable/zot/\n/writable/zot///knowledge\n/tmp/zot\n/tmp/zot//config\n");
  EXPECT_TRUE(is_directory(dir_ / "writable/zot/knowledge"));
  EXPECT_TRUE(is_directory(dir_ / "tmp/zot/config"));
}

TEST_F(Paths, DevPathGetsItsKnowledgeDirectory) {
  dev_path_.set(dir_ / "dev");
  EXPECT_EQ(reload(), 0);
  EXPECT_EQ(handle_->conf_root, dir_ / "dev");
  EXPECT_TRUE(is_directory(dir_ / "dev/knowledge"));
}

TEST_F(Paths, DevModeStaysOn) {
  dev_path_.set(dir_ / "dev");
  ASSERT_EQ(reload(), 0);
  dev_path_.set(std::nullopt);
  ASSERT_EQ(reload(), 0);
  EXPECT_EQ(handle_->dev_mode, 1U);
  EXPECT_EQ(handle_->conf_root, dir_ / "conf/writable/zot/");
}

TEST_F(Paths, AreComputedAndCreated) {
  EXPECT_EQ(reload(), 0);
  EXPECT_EQ(handle_->conf_root, dir_ / "conf/writable/zot/");
  EXPECT_EQ(handle_->conf_k_root, dir_ / "conf/writable/zot///knowledge");
  EXPECT_EQ(handle_->tmp_root, dir_ / "scratch/tmp/zot");
  EXPECT_EQ(handle_->tmp_gpb_root, dir_ / "scratch/tmp/zot//config");
  EXPECT_TRUE(is_directory(handle_->conf_k_root));
  EXPECT_TRUE(is_directory(handle_->tmp_gpb_root));
}

TEST_F(Paths, FollowAChangedEnvironmentAtTheNextReload) {
  ASSERT_EQ(reload(), 0);
  conf_prefix_.set(dir_ / "other");
  EXPECT_EQ(reload(), 0);
  EXPECT_EQ(handle_->conf_root, dir_ / "other/writable/zot/");
  EXPECT_TRUE(is_directory(dir_ / "other/writable/zot/knowledge"));
}

TEST_F(Paths, AreLoggedWithTheirTopics) {
  reload();
  const char *const func = "zot_priv_reload_sys_paths";
  expect_line("conf path = \"" + std::string(handle_->conf_root) + "\"\n", ZOT_LOG_INFO, 0x1a,
              func);
  expect_line("conf K path = \"" + std::string(handle_->conf_k_root) + "\"\n", ZOT_LOG_INFO, 0x0a,
              func);
  expect_line("tmp path = \"" + std::string(handle_->tmp_root) + "\"\n", ZOT_LOG_INFO, 0x1a, func);
  expect_line("tmp GPB path = \"" + std::string(handle_->tmp_gpb_root) + "\"\n", ZOT_LOG_INFO, 0x12,
              func);
}

TEST_F(Paths, ArePreparedInOrder) {
  reload();
  std::string labels;
  for (const log_record &line : handle_.log().lines()) {
    const std::string start = "Prepare directory for ";
    if (line.text.starts_with(start)) {
      labels += line.text.substr(start.size(), line.text.find(':') - start.size()) + ",";
    }
  }
  EXPECT_EQ(labels, "conf root,conf K root,tmp root,tmp GPB root,");
}

TEST_F(Paths, NeedAHandle) {
  EXPECT_EQ(zot_priv_reload_sys_paths(nullptr), -9);
}

char *no_root(zot_ctx *, char *, size_t) {
  return nullptr;
}

char *empty_root(zot_ctx *, char *buf, size_t) {
  *buf = '\0';
  return buf;
}

using root_getter = char *(*)(zot_ctx *, char *, size_t);

class MissingRoot : public Paths, public testing::WithParamInterface<root_getter> {};

TEST_P(MissingRoot, OfTheConfigurationFails) {
  handle_->fns.get_conf_root = GetParam();
  EXPECT_EQ(reload(), -1);
  EXPECT_STREQ(handle_->err_str, "[zot_priv_reload_sys_paths]: unable to get conf root");
  EXPECT_FALSE(handle_.log().contains_part("conf path = "));
}

TEST_P(MissingRoot, OfTheScratchFilesFails) {
  handle_->fns.get_tmp_root = GetParam();
  EXPECT_EQ(reload(), -1);
  EXPECT_STREQ(handle_->err_str, "[zot_priv_reload_sys_paths]: unable to get conf root");
  EXPECT_TRUE(handle_.log().contains_part("conf K path = "));
  EXPECT_FALSE(zot::test::exists(dir_ / "conf"));
}

INSTANTIATE_TEST_SUITE_P(EveryKind, MissingRoot, testing::Values(no_root, empty_root, nullptr));

class RootForAShell : public Paths, public testing::WithParamInterface<const char *> {};

TEST_P(RootForAShell, IsRefusedAsConfRoot) {
  conf_prefix_.set(dir_ / GetParam());
  EXPECT_EQ(reload(), -5);
  EXPECT_EQ(handle_->err, -5);
  EXPECT_NE(std::string(handle_->err_str).find(handle_->conf_root), std::string::npos)
      << handle_->err_str;
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

TEST_P(RootForAShell, IsRefusedAsTmpRoot) {
  tmp_prefix_.set(dir_ / GetParam());
  EXPECT_EQ(reload(), -5);
  EXPECT_EQ(handle_->err, -5);
  EXPECT_NE(std::string(handle_->err_str).find(handle_->tmp_root), std::string::npos)
      << handle_->err_str;
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

TEST_P(RootForAShell, IsRefusedAsTmpRootWithTheDevPathBesideIt) {
  dev_path_.set(dir_ / "dev");
  tmp_prefix_.set(dir_ / GetParam());
  EXPECT_EQ(reload(), -5);
  EXPECT_EQ(handle_->dev_mode, 0U);
}

TEST_P(RootForAShell, IsTakenAsDevPath) {
  dev_path_.set(dir_ / GetParam());
  EXPECT_EQ(reload(), 0);
  EXPECT_TRUE(is_directory((dir_ / GetParam()) + "/knowledge"));
}

INSTANTIATE_TEST_SUITE_P(Characters, RootForAShell,
                         testing::Values("a b", "a;b", "a$b", "a`b", "a'b", "a\"b", "a&b", "a|b",
                                         "a<b", "a>b", "a*b", "a?b", "a[b", "a(b", "a\\b", "a\tb",
                                         "a\nb"));

TEST_F(Paths, ReturnTheFirstDirectoryThatFails) {
  write_bytes(dir_ / "file", "no directory");
  tmp_prefix_.set(dir_ / "file");
  EXPECT_EQ(reload(), -1);
  EXPECT_EQ(std::string(handle_->err_str).find("fail to create dir for tmp root = "), 0U)
      << handle_->err_str;
  EXPECT_TRUE(is_directory(dir_ / "conf/writable/zot/knowledge"));
}

class Directory : public Paths {
 protected:
  int check(const char *path) { return zot_priv_chk_n_mkdir(handle_.get(), path, "some root"); }
};

// A folder with a path of this length below another one. Its parents have names that a file system
// accepts.
std::string folder_of_length(std::string folder, std::size_t length) {
  constexpr std::size_t longest_name = 200;
  while (folder.size() < length) {
    const std::size_t left = length - folder.size() - 1;
    // The rest of the length must suffice for a slash and a name.
    folder += "/" + std::string(left > longest_name + 1 ? longest_name : left, 'x');
  }
  return folder;
}

TEST_F(Paths, KRootThatDoesNotFitIsNoOtherDirectory) {
  const std::string below = "/writable/zot/";
  conf_prefix_.set(folder_of_length(dir_.path(), ZOT_PATH_SIZE - 6 - below.size()));
  EXPECT_EQ(reload(), ZOT_ERR_GENERIC);
  const std::string conf_root = handle_.get()->conf_root;
  EXPECT_EQ(handle_.get()->conf_k_root, conf_root + "//kno");
  EXPECT_FALSE(is_directory(conf_root + "/kno"));
  EXPECT_TRUE(
      std::string(handle_.get()->err_str).starts_with("fail to create dir for conf K root = "));
}

TEST_F(Paths, KRootWithoutRoomForTheNamesOfItsFilesIsRefused) {
  const std::string below = "/writable/zot/";
  const std::size_t longest = ZOT_PATH_SIZE - 1 - std::strlen("//knowledge") - below.size() -
                              std::strlen("/prev_subsys.checksum.absent");
  conf_prefix_.set(folder_of_length(dir_.path(), longest));
  EXPECT_EQ(reload(), ZOT_ERR_GENERIC);
  EXPECT_TRUE(
      std::string(handle_.get()->err_str).starts_with("fail to create dir for conf K root = "));
  EXPECT_FALSE(is_directory(handle_.get()->conf_k_root));
  conf_prefix_.set(folder_of_length(dir_.path(), longest - 1));
  EXPECT_EQ(reload(), ZOT_OK) << handle_.get()->err_str;
}

TEST_F(Paths, GpbRootThatDoesNotFitIsNoOtherDirectory) {
  const std::string below = "/tmp/zot";
  tmp_prefix_.set(folder_of_length(dir_.path(), ZOT_PATH_SIZE - 6 - below.size()));
  EXPECT_EQ(reload(), ZOT_ERR_GENERIC);
  const std::string tmp_root = handle_.get()->tmp_root;
  EXPECT_EQ(handle_.get()->tmp_gpb_root, tmp_root + "//con");
  EXPECT_FALSE(is_directory(tmp_root + "/con"));
  EXPECT_TRUE(
      std::string(handle_.get()->err_str).starts_with("fail to create dir for tmp GPB root = "));
}

TEST_F(Directory, IsCreated) {
  const std::string path = dir_ / "a/b";
  EXPECT_EQ(check(path.c_str()), 0);
  EXPECT_TRUE(is_directory(path));
}

TEST_F(Directory, CreationIsLogged) {
  const std::string path = dir_ / "a/b";
  check(path.c_str());
  const char *const func = "zot_priv_chk_n_mkdir";
  expect_line(std::string("Prepare directory for some root: ") + std::strerror(0) + "\n",
              ZOT_LOG_INFO, 0x02, func);
  expect_line("Run CMD: mkdir " + path + "\n", ZOT_LOG_DEBUG, 0x02, func);
}

TEST_F(Directory, MayExist) {
  EXPECT_EQ(check(dir_.path().c_str()), 0);
  expect_line(std::string("Prepare directory for some root: ") + std::strerror(0) + "\n",
              ZOT_LOG_INFO, 0x02, "zot_priv_chk_n_mkdir");
}

TEST_F(Directory, NeedsAPath) {
  EXPECT_EQ(check(nullptr), -5);
  EXPECT_STREQ(handle_->err_str, "NULL or empty some root path = (null)");
}

TEST_F(Directory, NeedsAPathThatIsNotEmpty) {
  EXPECT_EQ(check(""), -5);
  EXPECT_STREQ(handle_->err_str, "NULL or empty some root path = ");
}

TEST_F(Directory, BelowAFileFails) {
  write_bytes(dir_ / "file", "no directory");
  const std::string path = dir_ / "file/a";
  EXPECT_EQ(check(path.c_str()), -1);
  EXPECT_EQ(handle_->err_str, "fail to create dir for some root = " + path + ": Not a directory");
}

TEST_F(Directory, NeedsAHandle) {
  EXPECT_EQ(zot_priv_chk_n_mkdir(nullptr, dir_.path().c_str(), "some root"), -9);
}

}  // namespace
