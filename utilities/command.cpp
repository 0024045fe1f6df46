// SPDX-License-Identifier: Apache-2.0
// Runs shell commands inside a host process.
#include "utilities/command.hpp"

#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

#include "utilities/own_names.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace {

// If the host ignores SIGCHLD or reaps children, system() cannot get the status of its child.
class default_sigchld {
 public:
  default_sigchld() {
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    // Setting the default again could discard the signal of another child.
    is_set_ = ::sigaction(SIGCHLD, nullptr, &before_) == 0 && loses_children(before_) &&
              ::sigaction(SIGCHLD, &defaults, nullptr) == 0;
  }
  default_sigchld(const default_sigchld &) = delete;
  default_sigchld &operator=(const default_sigchld &) = delete;
  ~default_sigchld() {
    const zot::errno_keeper keep_errno;
    if (is_set_) {
      ::sigaction(SIGCHLD, &before_, nullptr);
    }
  }

 private:
  static bool loses_children(const struct sigaction &action) {
    return action.sa_handler != SIG_DFL || (action.sa_flags & SA_NOCLDWAIT) != 0;
  }

  struct sigaction before_ {};
  bool is_set_;
};

std::atomic<int> out_of_sight = 0;

}  // namespace

int zot::count_commands_out_of_sight() {
  return out_of_sight;
}

int cmd_helper_system(const char *cmd) {
  const default_sigchld guard;
  const int raw_status = std::system(cmd);
  if (cmd != nullptr && (raw_status == -1 || WIFSIGNALED(raw_status))) {
    ++out_of_sight;
  }
  return raw_status;
}

ZOT_PLAIN_NAME(cmd_helper_system);
