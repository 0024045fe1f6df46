// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/target.hpp"

#include <curl/curl.h>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>

#include "tools/files/archive.hpp"
#include "tools/output/figures.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr const char *shell = "/bin/sh";

std::string system_text() {
  utsname name{};
  ::uname(&name);
  return std::string(name.sysname) + " " + name.release + " " + name.machine;
}

std::string exit_text(int raw_status) {
  if (raw_status == -1) {
    return std::strerror(errno);
  }
  return WIFSIGNALED(raw_status) ? "ended by signal " + std::to_string(WTERMSIG(raw_status))
                                 : "exit status " + std::to_string(WEXITSTATUS(raw_status));
}

// Uses the shell to find the command: a shell with built-in commands needs none on PATH.
std::optional<std::string> find_command(const std::string &name) {
  const std::unique_ptr<std::FILE, zot::releaser<::pclose>> answer(
      ::popen(("command -v " + name + " 2> /dev/null").c_str(), "r"));
  std::array<char, ZOT_PATH_SIZE> line{};
  if (answer == nullptr || std::fgets(line.data(), line.size(), answer.get()) == nullptr) {
    return std::nullopt;
  }
  const std::string_view found = line.data();
  return std::string(found.substr(0, found.find('\n')));
}

void find_room(target &found, const fs::path &folder) {
  struct statvfs room {};
  if (::statvfs(folder.c_str(), &room) != 0) {
    return;
  }
  if (room.f_blocks != 0) {
    found.free_bytes = static_cast<uint64_t>(room.f_bavail) * room.f_frsize;
  }
  // File systems that allocate inodes on demand report a count of 0.
  if (room.f_files != 0) {
    found.free_files = room.f_favail;
  }
}

std::optional<bool> has_hard_links(const fs::path &folder) {
  const fs::path one = folder / "one";
  const fs::path other = folder / "other";
  const zot::file_stream file(std::fopen(one.c_str(), "we"));
  if (file == nullptr) {
    return std::nullopt;
  }
  const bool is_linked = ::link(one.c_str(), other.c_str()) == 0;
  fs::remove(one);
  fs::remove(other);
  return is_linked;
}

void expect(bool holds, const std::string &call) {
  if (!holds) {
    throw_errno(call);
  }
}

zot::descriptor open_to_read(const fs::path &path) {
  zot::descriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  expect(opened.is_open(), "open");
  return opened;
}

void check_files(const fs::path &folder) {
  const fs::path file = folder / "file";
  replace_file(file, "old", durability::flushed);
  replace_file(file, "new", durability::flushed);
  if (read_file_text(file) != "new") {
    throw std::runtime_error("rename: the file of that name was not replaced");
  }
  const zot::descriptor directory = open_to_read(folder);
  expect(::fsync(directory.get()) == 0, "fsync of a directory");
  expect(::syncfs(directory.get()) == 0, "syncfs");
  fs::create_directories(folder / "from/deep");
  fs::rename(folder / "from", folder / "to");
  if (!fs::is_directory(folder / "to/deep")) {
    throw std::runtime_error("rename: a directory lost what was in it");
  }
}

void check_lock(const fs::path &folder) {
  const zot::descriptor held = open_to_read(folder);
  const zot::descriptor other = open_to_read(folder);
  expect(::flock(held.get(), LOCK_EX | LOCK_NB) == 0, "flock of a directory");
  if (::flock(other.get(), LOCK_EX | LOCK_NB) == 0) {
    throw std::runtime_error("flock: two descriptors have the lock");
  }
}

void run_command(const std::string &name, const std::string &command) {
  if (const int raw_status = cmd_helper_system(command.c_str()); raw_status != 0) {
    throw std::runtime_error(name + ": " + exit_text(raw_status));
  }
}

void expect_content(const std::string &name, const fs::path &file, const std::string &bytes) {
  if (!is_there(file) || read_file_text(file) != bytes) {
    throw std::runtime_error(name + ": " + file.string() + " is not what it should be");
  }
}

void make_archive(const fs::path &archive, const fs::path &file, const std::string &name) {
  gzip_tar packed;
  packed.add(open_to_read(file).get(), name);
  const gzip_tar::finished whole = packed.finish();
  ::lseek(whole.file.get(), 0, SEEK_SET);
  replace_file(archive, read_file_at(whole.file.get(), archive.string()), durability::buffered);
}

void try_commands(const fs::path &folder) {
  const std::string bytes = "bytes\n";
  const std::string at = folder.string();
  fs::create_directories(folder / "from/deep");
  fs::create_directories(folder / "unpacked");
  replace_file(folder / "from/deep/file", bytes, durability::buffered);
  run_command("cp -r", "exec cp -r \"" + at + "/from\" \"" + at + "/copy\"");
  expect_content("cp -r", folder / "copy/deep/file", bytes);
  run_command("rm -rf", "exec rm -rf  " + at + "/copy");
  if (is_there(folder / "copy")) {
    throw std::runtime_error("rm -rf: the folder is still there");
  }
  make_archive(folder / "gpb.tgz", folder / "from/deep/file", "deep/file");
  run_command("tar zxvf", "ulimit -c 0 2> /dev/null; exec tar zxvf " + at + "/gpb.tgz -C " + at +
                              "/unpacked > /dev/null 2>&1");
  expect_content("tar zxvf", folder / "unpacked/deep/file", bytes);
}

}  // namespace

target look_at_target(const std::optional<fs::path> &folder, std::string_view release_date) {
  target found{.system = system_text(),
               .libcurl = ::curl_version_info(CURLVERSION_NOW)->version,
               .libcrypto = ::OpenSSL_version(OPENSSL_VERSION),
               .sh = ::access(shell, X_OK) == 0 ? std::optional(shell) : std::nullopt,
               .cp = find_command("cp"),
               .rm = find_command("rm"),
               .tar = find_command("tar"),
               .time = iso_time(std::time(nullptr))};
  // Both are ISO dates, so a comparison as text is a comparison by time.
  found.is_clock_set = found.time >= release_date;
  if (folder) {
    find_room(found, *folder);
    found.hard_links = has_hard_links(*folder);
  }
  return found;
}

std::string check_file_system(trial &on) {
  const fs::path folder = on.folder() / "files";
  return on.run([&] {
    fs::create_directories(folder);
    check_files(folder);
    check_lock(folder);
    fs::remove_all(folder);
    return "fsync, syncfs, rename and flock work";
  });
}

std::string check_commands(trial &on) {
  const fs::path folder = on.folder() / "commands";
  return on.run([&] {
    if (::access(shell, X_OK) != 0) {
      throw_errno(shell);
    }
    try_commands(folder);
    fs::remove_all(folder);
    return "cp -r, rm -rf and tar zxvf work in " + std::string(shell);
  });
}

}  // namespace zotconf
