// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/archive/watched_element.hpp"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace zot::test {
namespace {

namespace fs = std::filesystem;

constexpr uid_t other_user = 65534;
constexpr const char *volume_options = "size=24m,nr_inodes=30000";

void must(bool succeeded, const std::string &what) {
  if (!succeeded) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

struct stat stat_of(const std::string &path) {
  struct stat st {};
  must(::lstat(path.c_str(), &st) == 0, path);
  return st;
}

std::string time_of(const struct timespec &time) {
  return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

std::string told_of(const std::string &path, bool with_times) {
  const struct stat st = stat_of(path);
  std::string told;
  for (const std::uint64_t each :
       {std::uint64_t{st.st_ino}, std::uint64_t{st.st_mode}, std::uint64_t{st.st_uid},
        std::uint64_t{st.st_gid}, std::uint64_t{st.st_nlink}, std::uint64_t(st.st_size)}) {
    told += std::to_string(each) + " ";
  }
  if (with_times) {
    told += time_of(st.st_mtim) + " " + time_of(st.st_ctim) + " ";
  }
  if (S_ISREG(st.st_mode)) {
    told += read_bytes(path);
  } else if (S_ISLNK(st.st_mode)) {
    told += fs::read_symlink(path).string();
  }
  return told;
}

void give_to(uid_t user, const std::string &root) {
  must(::lchown(root.c_str(), user, user) == 0, "chown");
  for (const auto &entry : fs::recursive_directory_iterator(root)) {
    must(::lchown(entry.path().c_str(), user, user) == 0, "chown");
  }
}

void become(uid_t user) {
  must(::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0, "setuid");
}

}  // namespace

surroundings surroundings_of(const std::string &root, const std::string &left_out) {
  surroundings all;
  fs::recursive_directory_iterator at(root);
  for (const fs::recursive_directory_iterator end; at != end; ++at) {
    const std::string path = at->path().string();
    if (path == left_out) {
      at.disable_recursion_pending();
    } else {
      // Archives name the parent directories of the scratch area too. The library restores their
      // mode and owner, which changes their time, so their time is not compared.
      all[path] = told_of(path, !left_out.starts_with(path + "/"));
    }
  }
  return all;
}

std::string rights_of(const std::string &path) {
  const struct stat st = stat_of(path);
  return std::to_string(st.st_mode) + " " + std::to_string(st.st_uid) + " " +
         std::to_string(st.st_gid);
}

std::vector<std::string> foreign_below(const std::string &root) {
  std::vector<std::string> found;
  for (const auto &entry : fs::recursive_directory_iterator(root)) {
    const struct stat st = stat_of(entry.path().string());
    const bool is_plain = S_ISREG(st.st_mode) && st.st_nlink == 1 && (st.st_mode & 06000U) == 0;
    if (!S_ISDIR(st.st_mode) && !is_plain) {
      found.push_back(entry.path().string());
    }
  }
  return found;
}

std::vector<std::string> files_below(const std::string &root) {
  std::vector<std::string> found;
  for (const auto &entry : fs::recursive_directory_iterator(root)) {
    if (!S_ISDIR(stat_of(entry.path().string()).st_mode)) {
      found.push_back(entry.path().lexically_relative(root).string());
    }
  }
  std::ranges::sort(found);
  return found;
}

room_watch::room_watch(std::string path) : path_(std::move(path)), looking_([this] { look(); }) {}

room_watch::~room_watch() {
  over_ = true;
  looking_.join();
}

void room_watch::look() {
  while (!over_) {
    struct statvfs now {};
    if (::statvfs(path_.c_str(), &now) == 0) {
      bytes_ = std::max<std::uint64_t>(bytes_, (now.f_blocks - now.f_bfree) * now.f_frsize);
      files_ = std::max<std::uint64_t>(files_, now.f_files - now.f_ffree);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void reset_most_memory() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

std::uint64_t most_memory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmHWM:") {
      std::uint64_t kib = 0;
      status >> kib;
      return kib * 1024;
    }
  }
  throw std::runtime_error("/proc/self/status tells no peak");
}

watched_element::watched_element(const std::string &place, bool as_other_user)
    : tested({.port = remote.port(), .start = false}), place_(place) {
  write_bytes(place + "/sentinel/kept", "kept");
  write_bytes(place + "/sentinel/folder/file", "file");
  must(::chmod((place + "/sentinel/kept").c_str(), 0640) == 0 &&
           ::chdir((place + "/sentinel").c_str()) == 0,
       "sentinel");
  fs::create_directories(scratch());
  if (::geteuid() == 0) {
    must(::unshare(CLONE_NEWNS) == 0, "unshare");
    must(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount /");
    must(::mount("tmpfs", scratch().c_str(), "tmpfs", 0, volume_options) == 0, "mount tmpfs");
    if (as_other_user) {
      give_to(other_user, place);
      become(other_user);
    }
  }
  tested.restart();
}

surroundings watched_element::around() const {
  return surroundings_of(place_, tested.tmp_root());
}

}  // namespace zot::test
