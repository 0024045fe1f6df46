// SPDX-License-Identifier: Apache-2.0
// Working directories and users of a process, and the modes of the files that it creates.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "tests/faults/host/host.hpp"
#include "tests/faults/host/privileges.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

constexpr unsigned nobody = 65534;

void go_to(const std::string &folder) {
  require(::chdir(folder.c_str()) == 0, "no folder " + folder);
}

void changes_its_directory(host &h) {
  const std::string folder = h.root() + "/elsewhere";
  fs::create_directories(folder);
  require(h.start(), "no handle");
  go_to(folder);
  h.get_whole('a');
  go_to("/");
  h.commit_whole('a');
  go_to(h.root());
  h.get_whole('b');
  go_to("/proc/self");
  h.roll_back_whole('a', 'b');
  h.whole_cycle('c', 'd');
}

void stands_in_a_removed_directory(host &h) {
  const std::string folder = h.root() + "/gone";
  fs::create_directories(folder);
  go_to(folder);
  fs::remove(folder);
  h.whole_cycle();
}

void stands_in_a_closed_directory(host &h) {
  const std::string folder = h.root() + "-closed";
  fs::create_directories(folder);
  go_to(folder);
  fs::permissions(folder, fs::perms::none);
  become_nobody(h.root());
  h.whole_cycle();
}

void name_relative_folders(const host &h) {
  go_to(h.root());
  ::setenv("ZOT_PREFIX_CONF_ROOT", "conf", 1);
  ::setenv("ZOT_PREFIX_TMP_ROOT", "scratch", 1);
}

void has_relative_folders(host &h) {
  name_relative_folders(h);
  h.whole_cycle();
}

// Relative folders are where the process stands. A commit from elsewhere finds nothing to keep,
// says so, and goes on when the process is back.
void leaves_relative_folders(host &h) {
  name_relative_folders(h);
  require(h.start(), "no handle");
  h.get_whole('a');
  go_to("/proc/self");
  require(zot_conf_commit(h.handle()) == ZOT_ERR_GENERIC, "a commit from elsewhere");
  const std::string text = zot_util_get_err_str(h.handle());
  require(text.find("fail to keep the files") != std::string::npos, "it says " + text);
  go_to(h.root());
  h.commit_whole('a');
  h.recover();
}

using modes = std::map<std::string, unsigned>;

std::string octal(unsigned mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%04o", mode);
  return text;
}

modes modes_below(const std::string &root) {
  modes found;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
    found[entry.path().lexically_relative(root)] =
        static_cast<unsigned>(entry.status().permissions());
  }
  return found;
}

// After the configuration a was committed and b was rolled back. A file of the archive comes with
// the mode that the archive gives it; only root's tar leaves the umask out.
modes wanted_modes(unsigned umask, bool is_owner_root) {
  const unsigned folder = 0777 & ~umask;
  const unsigned download = 0666 & ~umask;
  const unsigned unpacked = is_owner_root ? 0644 : 0644 & ~umask;
  const unsigned copied = unpacked & ~umask;
  modes wanted;
  for (const char *const name :
       {"conf", "conf/writable", "conf/writable/zot", "conf/writable/zot/knowledge",
        "conf/writable/zot/config", "conf/writable/zot/config/Ap",
        "conf/writable/zot/config/Ap/constant", "conf/writable/zot/config/Wlan",
        "conf/writable/zot/config/Wlan/guest", "conf/writable/zot/config/Wlan/only-a", "scratch",
        "scratch/tmp", "scratch/tmp/zot", "scratch/tmp/zot/config", "scratch/tmp/zot/config/Ap",
        "scratch/tmp/zot/config/Ap/constant", "scratch/tmp/zot/config/Wlan",
        "scratch/tmp/zot/config/Wlan/guest", "scratch/tmp/zot/config/Wlan/only-b"}) {
    wanted[name] = folder;
  }
  for (const char *const name :
       {"conf/writable/zot/knowledge/subsys.k", "conf/writable/zot/knowledge/subsys.checksum",
        "conf/writable/zot/knowledge/corrupted.k", "conf/writable/zot/knowledge/corrupted.checksum",
        "scratch/tmp/zot/subsys.k", "scratch/tmp/zot/subsys.checksum", "scratch/tmp/zot/gpb.tgz"}) {
    wanted[name] = download;
  }
  for (const char *const name :
       {"scratch/tmp/zot/config/Ap/constant/1", "scratch/tmp/zot/config/Wlan/guest/2",
        "scratch/tmp/zot/config/Wlan/only-b/1"}) {
    wanted[name] = unpacked;
  }
  for (const char *const name :
       {"conf/writable/zot/config/Ap/constant/1", "conf/writable/zot/config/Wlan/guest/1",
        "conf/writable/zot/config/Wlan/only-a/1"}) {
    wanted[name] = copied;
  }
  return wanted;
}

void has_umask(host &h, unsigned umask) {
  ::umask(umask);
  h.whole_cycle();
  const modes found = modes_below(h.root());
  const modes wanted = wanted_modes(umask, is_root());
  for (const auto &[name, mode] : wanted) {
    const auto at = found.find(name);
    require(at != found.end(), name + " is missing");
    require(at->second == mode,
            name + " has the mode " + octal(at->second) + " instead of " + octal(mode));
  }
  require(found.size() == wanted.size(), "files that nobody expects");
}

void has_umask_as_nobody(host &h, unsigned umask) {
  become_nobody(h.root());
  has_umask(h, umask);
}

void may_not_write_its_cache(host &h) {
  become_nobody(h.root());
  fs::create_directories(h.root() + "/conf");
  const auto set = [&](fs::perms mode) { fs::permissions(h.root() + "/conf", mode); };
  const std::string failure =
      h.attempt_within([&] { set(fs::perms::owner_read); }, [&] { set(fs::perms::owner_all); });
  require(failure.find("fail to create dir for conf root") != std::string::npos, failure);
}

// As a set-user-ID program begins: shells give the other user up, so the commands may not do what
// the process may. It has to become that user whole.
void is_another_user_in_effect(host &h) {
  const std::string failure =
      h.attempt_within([] { require(::setresuid(nobody, 0, 0) == 0, "no other user"); },
                       [] { require(::setresuid(0, 0, 0) == 0, "no way back"); });
  require(failure.empty() || failure.find("tar") != std::string::npos, failure);
}

}  // namespace

bool is_root() {
  return ::geteuid() == 0;
}

void become_nobody(const std::string &folder) {
  if (!is_root()) {
    return;
  }
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
    require(::lchown(entry.path().c_str(), nobody, nobody) == 0, "no owner");
  }
  const std::string above = fs::path(folder).parent_path();
  require(::chown(folder.c_str(), nobody, nobody) == 0 && ::chmod(above.c_str(), 0711) == 0 &&
              ::setgroups(0, nullptr) == 0 && ::setresgid(nobody, nobody, nobody) == 0 &&
              ::setresuid(nobody, nobody, nobody) == 0,
          "nobody cannot be had");
}

std::vector<situation> place_situations() {
  std::vector<situation> all = {
      {"the directory changed between calls", changes_its_directory},
      {"in a directory that was removed", stands_in_a_removed_directory, true},
      {"in a directory that may not be entered", stands_in_a_closed_directory, true},
      {"relative folders", has_relative_folders},
      {"relative folders, left before the commit", leaves_relative_folders},
      {"a cache that may not be written", may_not_write_its_cache},
  };
  for (const unsigned umask : {0U, 022U, 027U, 077U}) {
    all.push_back({"umask " + octal(umask), [umask](host &h) { has_umask(h, umask); }});
    all.push_back({"umask " + octal(umask) + ", not root",
                   [umask](host &h) { has_umask_as_nobody(h, umask); }});
  }
  all.push_back({"root in effect, nobody in fact", is_another_user_in_effect, true, is_root});
  return all;
}

}  // namespace zot::test
