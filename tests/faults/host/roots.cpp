// SPDX-License-Identifier: Apache-2.0
// Processes with another root directory, in which files are missing.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/faults/host/host.hpp"
#include "tests/faults/host/privileges.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

using names = std::vector<std::string>;

void mount_or_throw(const std::string &from, const std::string &to, const char *type,
                    unsigned long flags) {
  require(::mount(from.c_str(), to.c_str(), type, flags, nullptr) == 0, "cannot mount " + to);
}

// Read-only, so that nothing that goes wrong here can harm what it shows.
void show(const std::string &from, const std::string &to) {
  if (fs::is_directory(from)) {
    fs::create_directories(to);
  } else {
    fs::create_directories(fs::path(to).parent_path());
    std::ofstream create(to);
  }
  mount_or_throw(from, to, nullptr, MS_BIND);
  mount_or_throw(from, to, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY);
}

void show_libraries(const std::string &jail) {
  for (const std::string folder : {"/usr/lib", "/usr/lib64", "/lib", "/lib64"}) {
    if (fs::is_symlink(folder)) {
      fs::create_directory_symlink(fs::read_symlink(folder), jail + folder);
    } else if (fs::is_directory(folder)) {
      show(folder, jail + folder);
    }
  }
}

// Mounts of its own, and in there a root with nothing but the commands and their libraries. What is
// left out is missing.
void enter_root(const std::string &jail, const names &left_out) {
  require(::unshare(CLONE_NEWNS) == 0, "no mounts of its own");
  mount_or_throw("none", "/", nullptr, MS_REC | MS_PRIVATE);
  fs::create_directories(jail);
  mount_or_throw("tmpfs", jail, "tmpfs", 0);
  show_libraries(jail);
  show("/proc", jail + "/proc");
  const auto is_left_out = [&](const std::string &name) {
    return std::ranges::find(left_out, name) != left_out.end();
  };
  for (const std::string name : {"sh", "tar", "gzip", "cp", "rm"}) {
    if (!is_left_out(name)) {
      show(fs::canonical("/bin/" + name), jail + "/bin/" + name);
    }
  }
  if (!is_left_out("null")) {
    fs::create_directories(jail + "/dev");
    std::ofstream create(jail + "/dev/null");
    create.close();
    mount_or_throw("/dev/null", jail + "/dev/null", nullptr, MS_BIND);
  }
  require(::chroot(jail.c_str()) == 0 && ::chdir("/") == 0, "no other root");
  ::setenv("PATH", "/bin", 1);
}

void has_default_folders(host &h, const char *prefix) {
  enter_root(h.root() + "/jail", {});
  require(!fs::exists("/tmp"), "a root with /tmp");
  for (const char *const name : {"ZOT_PREFIX_CONF_ROOT", "ZOT_PREFIX_TMP_ROOT"}) {
    if (prefix != nullptr) {
      ::setenv(name, prefix, 1);
    } else {
      ::unsetenv(name);
    }
  }
  require(h.start(), "no handle: " + h.log().dump());
  h.get_whole('a');
  require(zot_conf_commit(h.handle()) == ZOT_OK, "no commit");
  require(read_bytes("/writable/zot/knowledge/subsys.k") == configuration('a').k_text(),
          "another K");
  require(fs::exists("/tmp/zot/config"), "no scratch folder");
}

void has_a_root_with_everything(host &h) {
  enter_root(h.root() + "/jail", {});
  h.move_to("/element");
  h.whole_cycle();
}

void has_a_root_without(host &h, const names &left_out, const std::string &text) {
  enter_root(h.root() + "/jail", left_out);
  h.move_to("/element");
  const std::string failure = h.attempt();
  require(failure.find(text) != std::string::npos, "it says: " + failure);
}

void cannot_make_its_folders(host &h) {
  enter_root(h.root() + "/jail", {});
  h.move_to("/element");
  fs::create_directories("/element/conf/writable/zot/knowledge");
  mount_or_throw("tmpfs", "/", nullptr, MS_REMOUNT | MS_RDONLY);
  const std::string failure = h.attempt();
  require(failure.find("fail to create dir for tmp root = /element/scratch/tmp/zot: Read-only") !=
              std::string::npos,
          "it says: " + failure);
}

}  // namespace

bool can_mount() {
  try {
    return is_root() &&
           in_own_process([] {
             require(::unshare(CLONE_NEWNS) == 0 &&
                         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
                     "not allowed");
           }) == 0;
  } catch (const std::exception &) {
    return false;
  }
}

std::vector<situation> root_situations() {
  const auto without = [](names left_out, std::string text) {
    return [left_out, text](host &h) { has_a_root_without(h, left_out, text); };
  };
  return {
      {"another root", has_a_root_with_everything, false, can_mount},
      {"a root without /tmp, folders as they are by default",
       [](host &h) { has_default_folders(h, nullptr); }, false, can_mount},
      {"a root without /tmp, prefixes empty", [](host &h) { has_default_folders(h, ""); }, false,
       can_mount},
      {"a root that is read-only", cannot_make_its_folders, false, can_mount},
      {"a root without a shell", without({"sh"}, "fail to run \"tar zxvf"), true, can_mount},
      {"a root without tar", without({"tar"}, "fail to run \"tar zxvf"), true, can_mount},
      {"a root without gzip", without({"gzip"}, "fail to run \"tar zxvf"), true, can_mount},
      {"a root without cp", without({"cp"}, "fail to copy from"), true, can_mount},
      {"a root without a null device", without({"null"}, "fail to run \"tar zxvf"), true,
       can_mount},
  };
}

}  // namespace zot::test
