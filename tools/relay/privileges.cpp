// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/privileges.hpp"

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tools/output/error_text.hpp"

namespace zotconf {
namespace {

constexpr const char *how_to_give_up = "zotconf relay --user NAME";

const passwd &account_of(const std::string &user) {
  errno = 0;
  const passwd *const account = ::getpwnam(user.c_str());
  if (account == nullptr) {
    throw std::runtime_error(user + ": no such user");
  }
  return *account;
}

void create_for(const fs::path &store, const passwd &account) {
  std::error_code error;
  const bool is_new = fs::create_directories(store, error);
  if (error) {
    throw std::system_error(error, "cannot create " + store.string());
  }
  if (is_new && ::lchown(store.c_str(), account.pw_uid, account.pw_gid) != 0) {
    throw_errno("cannot change the owner of " + store.string());
  }
}

}  // namespace

void give_up_root(const std::string &user, const fs::path &store) {
  const bool is_root = ::geteuid() == 0;
  if (user.empty()) {
    if (is_root) {
      throw advised_error("does not run as root: give it a user of its own", how_to_give_up);
    }
    return;
  }
  const passwd &account = account_of(user);
  if (account.pw_uid == 0) {
    throw advised_error("does not run as root: " + user + " is root", how_to_give_up);
  }
  if (!is_root) {
    if (account.pw_uid == ::geteuid()) {
      return;
    }
    throw std::runtime_error("only root can run it as another user, " + user);
  }
  create_for(store, account);
  if (::initgroups(user.c_str(), account.pw_gid) != 0 || ::setgid(account.pw_gid) != 0 ||
      ::setuid(account.pw_uid) != 0 || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    throw_errno("cannot become the user " + user);
  }
}

}  // namespace zotconf
