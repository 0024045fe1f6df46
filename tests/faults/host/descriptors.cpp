// SPDX-License-Identifier: Apache-2.0
// Which descriptors the library opens, and which processes inherit them.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/faults/host/command_spy.hpp"
#include "tests/faults/host/descriptor_watch.hpp"
#include "tests/faults/host/host.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

std::string joined(const std::set<std::string> &all) {
  std::string text;
  for (const std::string &one : all) {
    text += one + "; ";
  }
  return text;
}

void log_to_a_file(host &h) {
  static std::string path;
  path = h.root() + "/log";
  zot_log_ctl ctl{};
  zot_util_init_log_ctl(&ctl);
  ctl.level = ZOT_LOG_DEBUG;
  ctl.dst = ZOT_LOG_DST_PATH;
  ctl.path = path.c_str();
  h.log_to(ctl);
}

// A folder of the library, which it holds locked; its commands hold it too.
bool is_lock(const std::string &target) {
  return target.ends_with("/writable/zot") || target.ends_with("/tmp/zot");
}

void nothing_is_inheritable(host &h) {
  log_to_a_file(h);
  // Nothing but the library opens a file in there.
  const watched_descriptors seen = watch_descriptors([&] {
    const std::string failure = h.attempt();
    h.stop();
    require(failure.empty(), failure);
  });
  require(seen.looks > 500 && seen.all.size() > 8, "too few descriptors were seen");
  require(seen.all.contains("connection"), "no connection was seen");
  // Some versions of libcurl let programs inherit the pair, and nobody can tell them otherwise. It
  // carries nothing, and is gone with the transfer.
  std::set<std::string> inheritable = seen.inheritable;
  inheritable.erase(watched_descriptors::socket_pair);
  std::erase_if(inheritable, is_lock);
  require(inheritable.empty(), "inheritable: " + joined(inheritable));
}

void nothing_is_standard(host &h) {
  log_to_a_file(h);
  const watched_descriptors seen = watch_descriptors([&] {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
      ::close(fd);
    }
    const std::string failure = h.attempt();
    h.stop();
    require(failure.empty(), failure);
  });
  require(seen.looks > 500 && seen.all.size() > 8, "too few descriptors were seen");
  require(seen.standard.empty(), "standard: " + joined(seen.standard));
}

void commands_get(host &h, const std::set<int> &wanted) {
  const temp_dir spied;
  spy_on_commands(spied.path());
  h.whole_cycle();
  const std::vector<spied_command> commands = spied_commands(spied.path());
  std::set<std::string> names;
  for (const spied_command &one : commands) {
    names.insert(one.name);
    std::set<int> given;
    std::string text;
    for (const auto &[fd, target] : one.descriptors) {
      if (is_lock(target)) {
        continue;
      }
      given.insert(fd);
      text += std::to_string(fd) + " " + target + "; ";
    }
    require(given == wanted, one.name + " was given " + text);
  }
  // No commit replaced a file in this cycle, so rm has nothing to remove.
  require(names.contains("tar") && names.contains("cp"), "commands that were not seen");
}

void commands_get_the_standard_ones(host &h) {
  log_to_a_file(h);
  const descriptor own(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  commands_get(h, {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO});
}

void commands_get_what_the_host_lets_them(host &h) {
  const descriptor own(::open("/dev/null", O_RDONLY));
  commands_get(h, {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, own.get()});
}

void rm_gets_the_standard_ones(host &h) {
  h.whole_cycle();
  const temp_dir spied;
  spy_on_commands(spied.path());
  h.whole_cycle('c', 'd');
  std::size_t removals = 0;
  for (const spied_command &one : spied_commands(spied.path())) {
    removals += one.name == "rm" ? 1 : 0;
    const auto others = std::ranges::count_if(one.descriptors, [](const auto &given) {
      return given.first > STDERR_FILENO && !is_lock(given.second);
    });
    require(one.descriptors.size() >= 3 && others == 0,
            one.name + " was given more than the standard streams and the locks");
  }
  require(removals > 0, "no rm was seen");
}

}  // namespace

std::vector<situation> descriptor_situations() {
  return {
      {"another thread starts a program at any moment", nothing_is_inheritable, true},
      {"standard streams closed, each descriptor looked at", nothing_is_standard},
      {"what tar and cp are given", commands_get_the_standard_ones, true},
      {"what rm is given", rm_gets_the_standard_ones},
      {"what commands are given of the host's", commands_get_what_the_host_lets_them},
  };
}

}  // namespace zot::test
