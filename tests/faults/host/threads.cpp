// SPDX-License-Identifier: Apache-2.0
// usage: faults_threads [cycles=N]
// Runs N cycles in each of sixteen threads, each with handles of its own. Prints what held; built
// with the thread sanitizer, also prints the number of races. Exits with 0 when everything held.
//
// It meets the duties of a client: each handle has folders of its own, and one lock guards
// transfers and the calls that run commands.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/faults/calls/stage.hpp"
#include "tests/support/archive.hpp"
#include "tests/support/service.hpp"

namespace {
using namespace zot::test;

constexpr std::size_t thread_count = 16;
constexpr std::uint32_t timeout = 60;

std::atomic<std::size_t> races = 0;
std::atomic<std::size_t> whole_cycles = 0;

// Transfers and shell commands of a process run one at a time.
std::mutex one_at_a_time;
std::string work_folder;

struct offer {
  const services *published;
  char letter;
};
thread_local offer offered{};

void require(bool holds, const std::string &text) {
  if (!holds) {
    throw std::runtime_error(text);
  }
}

// The environment is one for all: a handle gets folders of its own by getters of its own.
std::string folder_of(const zot_ctx *handle) {
  return work_folder + "/" + handle->sub_idx;
}

char *conf_root_of(zot_ctx *handle, char *buf, size_t size) {
  std::snprintf(buf, size, "%s/%s", folder_of(handle).c_str(), conf_folder);
  return buf;
}

char *tmp_root_of(zot_ctx *handle, char *buf, size_t size) {
  std::snprintf(buf, size, "%s/scratch/tmp/zot", folder_of(handle).c_str());
  return buf;
}

int download_k(zot_ctx *handle, zot_k *k) {
  const std::lock_guard lock(one_at_a_time);
  const std::string host = "127.0.0.1:" + std::to_string(offered.published->port(offered.letter));
  return zot_priv_get_new_k_by_host(handle, k, host.c_str());
}

int download_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  const std::lock_guard lock(one_at_a_time);
  return ap_download_gpb(handle, k, gpbs);
}

struct counted_lines {
  std::size_t lines = 0;
  std::size_t foreign = 0;
  std::thread::id owner = std::this_thread::get_id();
};

int count_line(zot_log_ctx *, void *given, const char *line) {
  auto *const counted = static_cast<counted_lines *>(given);
  counted->lines += 1;
  counted->foreign += std::this_thread::get_id() == counted->owner && *line != '\0' ? 0 : 1;
  return 0;
}

handle_owner make_handle(const std::string &index, counted_lines &counted) {
  zot_parm_all parm{};
  zot_util_init_conf_parm(&parm);
  parm.timeout = timeout;
  parm.log_ctl.dst = ZOT_LOG_DST_CB_FUNC;
  parm.log_ctl.level = ZOT_LOG_INFO;
  parm.log_ctl.cb = count_line;
  parm.log_ctl.cb_arg = &counted;
  handle_owner handle(zot_conf_init_args("AP", index.c_str(), index.size(), parm));
  require(handle != nullptr, "no handle");
  handle->fns.get_conf_root = conf_root_of;
  handle->fns.get_tmp_root = tmp_root_of;
  handle->fns.download_k = download_k;
  handle->fns.download_gpb = download_gpb;
  return handle;
}

int locked(zot_ctx *handle, int (*verdict)(zot_ctx *)) {
  const std::lock_guard lock(one_at_a_time);
  return verdict(handle);
}

void get_whole(zot_ctx *handle, char letter) {
  offered.letter = letter;
  const returned_list got = get(handle, every_change);
  require(got.status == ZOT_OK, "get: " + std::to_string(got.status) + ": " + got.error_text);
  require(letter_of_entries(got) == letter, "a get returned another configuration");
}

// Calls that neither transfer nor run a command need no lock.
void look_at(zot_ctx *handle, char in_force) {
  zot_k_meta meta{};
  require(
      zot_util_get_k_meta(handle, &meta, ZOT_K_CURRENT) == ZOT_OK && meta.config_id[35] == in_force,
      "other metadata");
  std::uint32_t level = ZOT_LOG_INFO;
  require(zot_parm_set(handle, ZOT_PARM_LOG_LEVEL, &level, sizeof level) == ZOT_OK, "no level");
  require(get(handle, every_change | ZOT_STAT_CACHED).status == ZOT_OK, "nothing cached");
  // A failure of its own, with a text of its own.
  const std::string absent = folder_of(handle) + "/absent";
  require(
      zot_priv_fcopy(handle, absent.c_str(), "/dev/null", __func__, __LINE__) == ZOT_ERR_GENERIC &&
          std::string(zot_util_get_err_str(handle)).find(absent) != std::string::npos,
      "the text of another handle");
}

void run_cycle(const std::string &index, std::size_t round) {
  const bool is_even = round % 2 == 0;
  const char first = is_even ? 'a' : 'c';
  const char second = is_even ? 'b' : 'd';
  counted_lines counted;
  handle_owner handle = make_handle(index, counted);
  get_whole(handle.get(), first);
  require(locked(handle.get(), zot_conf_commit) == ZOT_OK, "no commit");
  look_at(handle.get(), first);
  get_whole(handle.get(), second);
  require(locked(handle.get(), zot_conf_roll_back) == ZOT_OK, "no roll-back");
  const std::string folder = folder_of(handle.get());
  // One connection for all.
  const std::uint32_t to_syslog = ZOT_LOG_DST_SYSLOG;
  zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION, &to_syslog, sizeof to_syslog);
  zot_priv_fcopy(handle.get(), "/nowhere/x", "/dev/null", __func__, __LINE__);
  handle.reset();
  require(letter_on_disk(read_tree(folder)) == first, "another configuration on the medium");
  require(counted.lines > 100 && counted.foreign == 0, "lines of another thread");
  ++whole_cycles;
}

void run_thread(std::size_t number, std::size_t cycles, const services &published,
                std::string &problem) {
  offered.published = &published;
  try {
    for (std::size_t round = 0; round < cycles; ++round) {
      run_cycle("thread-" + std::to_string(number), round);
    }
  } catch (const std::exception &found) {
    problem = found.what();
  }
}

// Sends every file of all configurations, whatever it is asked for; in a process of its own, so
// that what races here is the client.
std::uint16_t start_archive_service() {
  std::array<int, 2> ports{};
  require(::pipe(ports.data()) == 0, "no pipe");
  if (::fork() == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::vector<member> members;
    for (const char letter : letters) {
      for (const auto &[path, bytes] : configuration(letter).files()) {
        members.push_back({.path = "config" + path, .bytes = bytes});
      }
    }
    service all;
    all.answer("/tgz", 200, make_tar_gz(members));
    const std::uint16_t port = all.port();
    static_cast<void>(::write(ports[1], &port, sizeof port));
    for (;;) {
      ::pause();
    }
  }
  std::uint16_t port = 0;
  require(::read(ports[0], &port, sizeof port) == sizeof port, "no service");
  ::close(ports[0]);
  ::close(ports[1]);
  return port;
}

bool run(std::size_t cycles) {
  // First, so that it doesn't hold what the other services end with.
  const std::uint16_t port = start_archive_service();
  const services published;
  const temp_dir work;
  work_folder = work.path();
  // Creation still asks the environment, which nobody changes from here on.
  ::setenv("ZOT_PREFIX_CONF_ROOT", (work / "created").c_str(), 1);
  ::setenv("ZOT_PREFIX_TMP_ROOT", (work / "created").c_str(), 1);
  ::setenv("ZOT_REMOTE_PORT", std::to_string(port).c_str(), 1);
  ::unsetenv("ZOT_DEV_PATH");
  std::array<std::string, thread_count> problems;
  {
    std::vector<std::jthread> threads;
    for (std::size_t number = 0; number < thread_count; ++number) {
      threads.emplace_back(run_thread, number, cycles, std::cref(published),
                           std::ref(problems[number]));
    }
  }
  bool held = true;
  for (const std::string &problem : problems) {
    held = held && problem.empty();
    if (!problem.empty()) {
      std::printf("thread: %s\n", problem.c_str());
    }
  }
#ifdef __SANITIZE_THREAD__
  std::printf("threads: %zu threads, %zu cycles, %zu races\n", thread_count, whole_cycles.load(),
              races.load());
#else
  std::printf("threads: %zu threads, %zu cycles held, races not looked for\n", thread_count,
              whole_cycles.load());
#endif
  return held && races == 0 && whole_cycles == thread_count * cycles;
}

}  // namespace

#ifdef __SANITIZE_THREAD__
extern "C" {
// The sanitizer calls it for each report.
void __tsan_on_report(void *) {
  ++races;
}
// Two threads that work on files have agreed on nothing.
const char *__tsan_default_options() {
  return "io_sync=0";
}
// The services' own, in another process.
const char *__tsan_default_suppressions() {
  return "race:libcpp-httplib\n";
}
}
#endif

int main(int argc, char **argv) {
  std::size_t cycles = 20;
  try {
    for (int at = 1; at < argc; ++at) {
      const std::string word = argv[at];
      require(word.starts_with("cycles="), "unknown: " + word);
      cycles = std::stoul(word.substr(word.find('=') + 1));
    }
    ::signal(SIGPIPE, SIG_IGN);
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
    return run(cycles) ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
