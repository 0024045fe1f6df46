// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/privileges.hpp"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "tests/support/files.hpp"
#include "tools/output/error_text.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

using zotconf::give_up_root;

// What another process returns from this function. It may give up its rights.
std::string in_child(const std::function<std::string()> &work) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    throw std::runtime_error("no pipe");
  }
  zot::descriptor read_end(ends[0]);
  zot::descriptor write_end(ends[1]);
  const pid_t pid = ::fork();
  if (pid == 0) {
    const std::string text = work();
    const bool is_written =
        ::write(write_end.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::_exit(is_written ? 0 : 1);
  }
  write_end = zot::descriptor(-1);
  std::string text;
  std::array<char, 4096> bytes{};
  for (ssize_t size = 1; size > 0;) {
    size = ::read(read_end.get(), bytes.data(), bytes.size());
    text.append(bytes.data(), size > 0 ? static_cast<size_t>(size) : 0);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : "the process failed";
}

bool is_root() {
  return ::geteuid() == 0;
}

std::string own_name() {
  const passwd *const account = ::getpwuid(::geteuid());
  return account == nullptr ? "" : account->pw_name;
}

// An ordinary user that does not run the test.
std::string other_name() {
  return own_name() == "nobody" ? "daemon" : "nobody";
}

const passwd &other() {
  const passwd *const account = ::getpwnam(other_name().c_str());
  if (account == nullptr) {
    throw std::runtime_error("this system has no user " + other_name());
  }
  return *account;
}

// In ascending order.
std::string groups_of_this_process() {
  std::vector<gid_t> groups(static_cast<size_t>(::getgroups(0, nullptr)));
  ::getgroups(static_cast<int>(groups.size()), groups.data());
  std::ranges::sort(groups);
  std::string text;
  for (const gid_t group : groups) {
    text += " " + std::to_string(group);
  }
  return text;
}

std::string identity() {
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
  ::getresuid(&real, &effective, &saved);
  gid_t real_group = 0;
  gid_t effective_group = 0;
  gid_t saved_group = 0;
  ::getresgid(&real_group, &effective_group, &saved_group);
  std::string text;
  for (const auto id : {real, effective, saved, real_group, effective_group, saved_group}) {
    text += std::to_string(id) + " ";
  }
  return text;
}

class Privileges : public testing::Test {
 protected:
  Privileges() { ::chmod(dir_.path().c_str(), 0755); }

  // Why a process of this user does not start as `user`, and the command that helps.
  [[nodiscard]] std::string why_not(const std::string &user) const {
    return in_child([&] { return error_of(user); });
  }
  // The same for a process of an ordinary user.
  [[nodiscard]] std::string why_not_ordinary(const std::string &user) const {
    return in_child([&] {
      if (is_root() && ::setuid(other().pw_uid) != 0) {
        return std::string("setuid failed");
      }
      return error_of(user);
    });
  }
  [[nodiscard]] std::string error_of(const std::string &user) const {
    try {
      give_up_root(user, store_);
    } catch (const zotconf::advised_error &error) {
      return std::string(error.what()) + " | " + error.command();
    } catch (const std::exception &error) {
      return error.what();
    }
    return "";
  }
  // What a process finds after it has become the other user. Only root can become it.
  [[nodiscard]] std::string as_other(const std::function<std::string()> &work) const {
    return in_child([&] {
      const std::string error = error_of(other_name());
      return error.empty() ? work() : error;
    });
  }
  // What as_other() returns: `text` if root runs the test.
  [[nodiscard]] static std::string if_root(const std::string &text) {
    return is_root() ? text : "only root can run it as another user, " + other_name();
  }

  temp_dir dir_;
  std::string store_ = dir_ / "lib/relay";
};

TEST_F(Privileges, RootBecomesTheUser) {
  const std::string uid = std::to_string(other().pw_uid) + " ";
  const std::string gid = std::to_string(other().pw_gid) + " ";
  EXPECT_EQ(as_other(identity), if_root(uid + uid + uid + gid + gid + gid));
}

TEST_F(Privileges, RootTakesTheGroupsOfTheUserAndKeepsNoneOfItsOwn) {
  std::vector<gid_t> expected(64);
  int count = static_cast<int>(expected.size());
  ASSERT_GE(::getgrouplist(other_name().c_str(), other().pw_gid, expected.data(), &count), 0);
  expected.resize(static_cast<size_t>(count));
  std::ranges::sort(expected);
  std::string text;
  for (const gid_t group : expected) {
    text += " " + std::to_string(group);
  }
  const std::string found = in_child([&] {
    const std::array<gid_t, 2> others = {0, 4};
    if (is_root() && ::setgroups(others.size(), others.data()) != 0) {
      return std::string("setgroups failed");
    }
    const std::string error = error_of(other_name());
    return error.empty() ? groups_of_this_process() : error;
  });
  EXPECT_EQ(found, if_root(text));
}

TEST_F(Privileges, TheProcessCannotBecomeRootAgain) {
  const std::string found = as_other([] {
    const bool has_failed = ::setuid(0) != 0 && ::seteuid(0) != 0 && ::setgid(0) != 0;
    const bool gains_none = ::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1;
    return std::string(has_failed ? "stays" : "is root") + (gains_none ? ", gains none" : "");
  });
  EXPECT_EQ(found, if_root("stays, gains none"));
}

TEST_F(Privileges, RootCreatesTheMissingStoreForTheUser) {
  const std::string found = as_other([&] {
    write_bytes(store_ + "/file", "written");
    return read_bytes(store_ + "/file");
  });
  EXPECT_EQ(found, if_root("written"));
  EXPECT_EQ(exists(store_), is_root());
}

TEST_F(Privileges, RootCreatesAStoreWhoseNameEndsWithASlash) {
  store_ += "/";
  const std::string found = as_other([&] {
    write_bytes(store_ + "file", "written");
    return read_bytes(store_ + "file");
  });
  EXPECT_EQ(found, if_root("written"));
}

TEST_F(Privileges, AStoreThatIsThereKeepsItsOwner) {
  std::filesystem::create_directories(store_);
  EXPECT_EQ(why_not(other_name()), if_root(""));
  struct stat info {};
  ASSERT_EQ(::stat(store_.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, ::geteuid());
}

TEST_F(Privileges, AStoreThatCannotBeCreatedIsNamed) {
  write_bytes(dir_ / "lib", "a file");
  const std::string error = why_not(other_name());
  const std::string expected =
      is_root() ? "cannot create " + store_ + ": Not a directory" : "only root";
  EXPECT_EQ(error.substr(0, expected.size()), expected);
}

TEST_F(Privileges, AnUnknownUserIsAnError) {
  EXPECT_EQ(why_not("no-such-user"), "no-such-user: no such user");
  EXPECT_EQ(why_not_ordinary("no-such-user"), "no-such-user: no such user");
  EXPECT_FALSE(exists(store_));
}

TEST_F(Privileges, RootIsNoUserOfItsOwn) {
  const std::string error = "does not run as root: root is root | zotconf relay --user NAME";
  EXPECT_EQ(why_not("root"), error);
  EXPECT_EQ(why_not_ordinary("root"), error);
}

TEST_F(Privileges, RootIsToldToNameAUser) {
  EXPECT_EQ(why_not(""), is_root() ? "does not run as root: give it a user of its own | "
                                     "zotconf relay --user NAME"
                                   : "");
  EXPECT_FALSE(exists(store_));
}

TEST_F(Privileges, AnOrdinaryUserNeedsNoName) {
  EXPECT_EQ(why_not_ordinary(""), "");
  EXPECT_FALSE(exists(store_));
}

TEST_F(Privileges, AnOrdinaryUserMayNameItself) {
  EXPECT_EQ(why_not_ordinary(is_root() ? other_name() : own_name()), "");
}

TEST_F(Privileges, AnOrdinaryUserCannotBecomeAnother) {
  const std::string another = is_root() ? "daemon" : other_name();
  EXPECT_EQ(why_not_ordinary(another), "only root can run it as another user, " + another);
}

}  // namespace
}  // namespace zot::test
