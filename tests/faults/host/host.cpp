// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/host/host.hpp"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace zot::test {
namespace {

constexpr const char *sub_idx = "aabbccddeeff";
// Long enough that a busy machine does not make an undisturbed step fail.
constexpr std::uint32_t timeout = 30;

}  // namespace

void require(bool holds, const std::string &text) {
  if (!holds) {
    throw std::runtime_error(text);
  }
}

host::host(std::string root, const services &offered)
    : offered_(offered), log_ctl_(log_.ctl(ZOT_LOG_WARN)) {
  ::unsetenv("ZOT_DEV_PATH");
  move_to(root);
  offer('a');
}

void host::move_to(const std::string &root) {
  root_ = root;
  std::filesystem::create_directories(root);
  ::setenv("ZOT_PREFIX_CONF_ROOT", (root_ + "/conf").c_str(), 1);
  ::setenv("ZOT_PREFIX_TMP_ROOT", (root_ + "/scratch").c_str(), 1);
}

void host::offer(char letter) const {
  ::setenv("ZOT_REMOTE_PORT", std::to_string(offered_.port(letter)).c_str(), 1);
}

bool host::start() {
  handle_.reset();
  log_.clear();
  zot_parm_all parm{};
  parm.timeout = timeout;
  parm.timeout_gpb = timeout;
  parm.log_ctl = log_ctl_;
  handle_.reset(zot_conf_init_args("AP", sub_idx, std::strlen(sub_idx), parm));
  return handle_ != nullptr;
}

returned_list host::get(char letter, std::uint32_t mask) const {
  offer(letter);
  return test::get(handle(), mask);
}

std::string host::with_text(const std::string &what, int status) const {
  return what + ": " + std::to_string(status) + ": " + zot_util_get_err_str(handle());
}

void host::get_whole(char letter) const {
  const returned_list got = get(letter);
  require(got.status == ZOT_OK,
          std::string("get ") + letter + ": " + std::to_string(got.status) + ": " + got.error_text);
  require(letter_of_entries(got) == letter, "a get returned another configuration");
}

void host::commit_whole(char letter) const {
  const int status = zot_conf_commit(handle());
  require(status == ZOT_OK, with_text("commit", status));
  require(letter_of_k(handle()->slot[ZOT_SLOT_CURRENT].k) == letter,
          "a commit left another configuration in force in memory");
  require(letter_on_disk(read_tree(root_)) == letter,
          "a commit left another configuration in force on the medium");
}

void host::roll_back_whole(char in_force, char refused) const {
  const int status = zot_conf_roll_back(handle());
  require(status == ZOT_OK, with_text("roll-back", status));
  const file_tree tree = read_tree(root_);
  require(letter_on_disk(tree) == in_force, "a roll-back changed the configuration in force");
  const auto kept = tree.find(std::string(conf_folder) + "knowledge/corrupted.k");
  require(kept != tree.end() && kept->second == configuration(refused).k_text(),
          "a roll-back kept another K");
  require(get(refused).status == ZOT_ERR_SAME_AS_CORRUPTED, "what was rolled back is news again");
}

void host::require_unchanged(const std::string &when) const {
  const std::string text = difference(before_, state_of_process());
  require(text.empty(), when + ": " + text);
}

void host::whole_cycle(char first, char second) {
  remember();
  require(start(), "no handle: " + log_.dump());
  get_whole(first);
  commit_whole(first);
  get_whole(second);
  roll_back_whole(first, second);
  stop();
  require_unchanged("after the release");
}

void host::require_refusal(int status, const std::string &what) const {
  const std::string text = zot_util_get_err_str(handle());
  require(status < 0, what + " neither succeeds nor fails: " + std::to_string(status));
  require(!text.empty() && text != "Success",
          with_text(what + " doesn't say why it failed", status));
  require(zot_util_get_err(handle()) == status, "the handle has another status");
}

void host::require_one_configuration() const {
  const returned_list cached = test::get(handle(), every_change | ZOT_STAT_CACHED);
  // Throw when the entries belong to several configurations, or K to none.
  static_cast<void>(letter_of_entries(cached));
  static_cast<void>(letter_of_k(handle()->slot[ZOT_SLOT_CURRENT].k));
}

std::string host::attempt(char first, char second) {
  if (!start()) {
    require(!log_.lines().empty(), "no handle, and nothing says why");
    return "no handle: " + log_.lines().back().text;
  }
  const auto failed = [&](const std::string &what, int status) {
    const std::string text = with_text(what, status);
    require_refusal(status, what);
    require_one_configuration();
    return text;
  };
  returned_list got = get(first);
  if (got.status != ZOT_OK) {
    return failed("get", got.status);
  }
  require(letter_of_entries(got) == first, "a get returned another configuration");
  if (const int status = zot_conf_commit(handle()); status != ZOT_OK) {
    return failed("commit", status);
  }
  got = get(second);
  if (got.status != ZOT_OK) {
    return failed("second get", got.status);
  }
  require(letter_of_entries(got) == second, "a get returned another configuration");
  if (const int status = zot_conf_roll_back(handle()); status != ZOT_OK) {
    return failed("roll-back", status);
  }
  return {};
}

void host::recover() {
  if (handle_ == nullptr) {
    require(start(), "still no handle: " + log_.dump());
  }
  get_whole('c');
  commit_whole('c');
  get_whole('d');
  roll_back_whole('c', 'd');
}

std::string host::attempt_within(const std::function<void()> &enter,
                                 const std::function<void()> &leave) {
  remember();
  enter();
  const std::string failure = attempt();
  leave();
  recover();
  stop();
  require_unchanged("after the release");
  return failure;
}

int in_own_process(const std::function<void()> &work) {
  constexpr std::size_t text_size = 4096;
  void *const memory =
      ::mmap(nullptr, text_size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  require(memory != MAP_FAILED, "no shared memory");
  auto *const text = static_cast<char *>(memory);
  std::fflush(nullptr);
  const pid_t process = ::fork();
  if (process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      work();
    } catch (const std::exception &problem) {
      std::snprintf(text, text_size, "%s", problem.what());
    }
    ::_exit(0);
  }
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  const std::string problem = text;
  ::munmap(memory, text_size);
  require(problem.empty(), problem);
  return status;
}

}  // namespace zot::test
