// SPDX-License-Identifier: Apache-2.0
#include "tools/output/unsaid.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zotconf {
namespace {

constexpr std::string_view before_file = "http return code = 0";
constexpr std::string_view after_answer = "http return code = 200";

// Whether the file is another user's and has to stay: in a folder with the sticky bit only the
// owner of a file replaces it.
bool stays(const std::filesystem::path &folder, const char *name) {
  const uid_t user = ::geteuid();
  struct stat at {};
  if (::stat(folder.c_str(), &at) != 0 || (at.st_mode & S_ISVTX) == 0 || at.st_uid == user) {
    return false;
  }
  return ::lstat((folder / name).c_str(), &at) == 0 && at.st_uid != user;
}

// What keeps a file out of a folder now; empty when nothing does.
std::string obstacle_to(const std::filesystem::path &folder, const char *name) {
  if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    return std::strerror(errno);
  }
  struct statvfs found {};
  if (::statvfs(folder.c_str(), &found) != 0) {
    return std::strerror(errno);
  }
  if (found.f_bavail == 0) {
    return "its file system is full";
  }
  if (found.f_files != 0 && found.f_favail == 0) {
    return "its file system has no inode left";
  }
  return stays(folder, name) ? std::string(name) + " there belongs to another user" : "";
}

}  // namespace

std::string unsaid_of(std::string_view text, const std::filesystem::path &folder) {
  const bool is_answered = text.ends_with(after_answer);
  if (!is_answered && !text.ends_with(before_file)) {
    return "";
  }
  const std::string begin = is_answered
                                ? "the service answered, but its answer could not be stored in "
                                : "the service was not asked: its answer could not be stored in ";
  const bool is_checksum = text.find(" K.checksum from ") != std::string_view::npos;
  const std::string obstacle = obstacle_to(folder, is_checksum ? "subsys.checksum" : "subsys.k");
  if (!obstacle.empty()) {
    return begin + folder.string() + ": " + obstacle;
  }
  return begin + folder.string() +
         (is_answered ? ": it was empty, or another program removed files there meanwhile"
                      : ", which is in order now");
}

}  // namespace zotconf
