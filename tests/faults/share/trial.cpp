// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/share/trial.hpp"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <numeric>
#include <random>
#include <stdexcept>
#include <thread>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/operation.hpp"
#include "tests/faults/share/board.hpp"
#include "tests/faults/share/client_process.hpp"
#include "tests/faults/share/switching_service.hpp"

namespace zot::test {
namespace {

using steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned most_failures = 10;
constexpr unsigned most_milliseconds = session::timeout * 1000;
// If no cycle is completed for this time, the clients are blocking each other.
constexpr std::chrono::seconds standstill{2 * session::timeout};

class trial {
 public:
  explicit trial(const share_options &options)
      : options_(options),
        root_(options.work + "/element"),
        switching_(*board_),
        dice_(options.seed) {
    write_tree(root_, {});
  }

  bool run() {
    for (unsigned number = 0; number < client_count; ++number) {
      start_client(number);
    }
    observer_ = start_observer();
    const steady::time_point end = steady::now() + std::chrono::seconds(options_.seconds);
    while (is_going_on()) {
      board_->is_ending = board_->is_ending || (options_.seconds != 0 && steady::now() > end);
      disturb();
    }
    board_->is_ending = true;
    end_clients();
    wait_for(observer_);
    if (failures_ == 0) {
      check_end();
    }
    return print();
  }

 private:
  void start_client(unsigned number) {
    const client_wishes wished{number, options_.cycles, switching_.port(), dice_()};
    clients_.at(number) = start(*pages_.at(number), [this, wished](session &client) {
      go_through_cycles(client, wished, *board_);
    });
  }

  // Starts a process in the group of this one. After a kill, the commands of a client continue to
  // run.
  pid_t start(gate_page &page, const std::function<void(session &)> &steps) {
    page.text[0] = '\0';
    std::fflush(nullptr);
    const pid_t process = ::fork();
    if (process < 0) {
      throw std::runtime_error("no process");
    }
    if (process == 0) {
      end_with_parent();
      ::_exit(report(page, root_, offered_, steps));
    }
    return process;
  }

  pid_t start_observer() {
    std::fflush(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
      end_with_parent();
      adopt_orphans();
      ::_exit(observe_all_the_while());
    }
    return process;
  }

  int observe_all_the_while() {
    gate_page &told = *pages_.at(client_count);
    const shared_page page;
    while (!board_->is_ending) {
      const int status = run_process(*page, [&] {
        return report(*page, root_, offered_,
                      [this](session &client) { observe(client, *board_); });
      });
      if (status != 0) {
        std::snprintf(told.text, sizeof told.text, "%s", page->text);
        return 1;
      }
    }
    return 0;
  }

  [[nodiscard]] bool is_going_on() {
    const unsigned cycles = all_cycles();
    if (cycles != cycles_seen_) {
      cycles_seen_ = cycles;
      seen_at_ = steady::now();
    } else if (steady::now() - seen_at_ > standstill) {
      fail("no client goes on", "");
    }
    bool is_running = false;
    for (const pid_t client : clients_) {
      is_running = is_running || client > 0;
    }
    return is_running && failures_ < most_failures && steady::now() - seen_at_ <= standstill;
  }

  // Kills a client at a random moment, handles all processes that have ended, and restarts the
  // killed ones.
  void disturb() {
    constexpr unsigned longest_pause = 120;
    std::this_thread::sleep_for(milliseconds(dice_() % longest_pause));
    const auto chosen = static_cast<unsigned>(dice_() % client_count);
    if (clients_.at(chosen) > 0 && !board_->is_ending) {
      ::kill(clients_.at(chosen), SIGKILL);
    }
    int status = 0;
    for (pid_t ended = 0; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;) {
      take_end(ended, status);
    }
  }

  void take_end(pid_t ended, int status) {
    if (ended == observer_) {
      observer_ = -1;
      if (status != 0) {
        fail("observer", pages_.at(client_count)->text);
        observer_ = start_observer();
      }
      return;
    }
    for (unsigned number = 0; number < client_count; ++number) {
      if (clients_.at(number) == ended) {
        take_end_of_client(number, status);
      }
    }
  }

  void take_end_of_client(unsigned number, int status) {
    clients_.at(number) = -1;
    const bool is_killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    kills_ += is_killed ? 1 : 0;
    if (status != 0 && !is_killed) {
      const std::string name = "client " + std::to_string(number);
      fail(WIFSIGNALED(status) ? name + ", signal " + std::to_string(WTERMSIG(status)) : name,
           pages_.at(number)->text);
    }
    if (status != 0 && !board_->is_ending) {
      start_client(number);
    }
  }

  void fail(const std::string &who, const std::string &text) {
    ++failures_;
    const std::string shown = options_.with_log ? text : text.substr(0, text.find('\n'));
    std::fprintf(stderr, "share: %s: %s\n", who.c_str(), shown.c_str());
  }

  void end_clients() {
    for (pid_t &client : clients_) {
      if (client > 0) {
        ::kill(client, SIGKILL);
        wait_for(client);
      }
    }
  }

  void wait_for(pid_t process) {
    int status = 0;
    while (process > 0 && ::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (process > 0 && process == observer_ && status != 0) {
      fail("observer", pages_.at(client_count)->text);
    }
  }

  // At the end, one configuration must be in force and the next one must be reachable, whatever was
  // interrupted.
  void check_end() {
    const shared_page page;
    const char published = published_letter(board_->publications);
    try {
      const char found = restart(*page, root_, offered_, std::string(letters));
      run_undisturbed(*page, root_, offered_, [&](session &client) {
        require(client.start(), "no handle");
        const returned_list got = client.get(published);
        if (got.status == ZOT_ERR_SAME_AS_CORRUPTED) {
          require(letter_of_entries(got) == found, "beside the refused one comes another");
          return;
        }
        require(got.status == ZOT_OK && letter_of_entries(got) == published, got.error_text);
        commit_whole(client, published);
        check_settled(client.disk(), published);
      });
    } catch (const std::exception &problem) {
      fail("at the end", problem.what());
    }
  }

  [[nodiscard]] unsigned all_cycles() const {
    return std::accumulate(board_->cycles.begin(), board_->cycles.end(), 0U);
  }

  bool print() {
    const board &told = *board_;
    if (told.longest_call > most_milliseconds) {
      fail("a call took longer than its time-out", "");
    }
    std::printf(
        "%u publications; %u gets without a verdict; %u gets of what was rolled back; "
        "%u calls noticed an interference; %u time-outs\n",
        told.publications.load(), told.without_verdict.load(), told.refused_still.load(),
        told.interferences.load(), told.timeouts.load());
    const bool did_all =
        told.commits != 0 && told.roll_backs != 0 && kills_ != 0 && told.observations != 0;
    const std::string verdict = failures_ != 0 ? std::to_string(failures_) + " failures"
                                : did_all      ? "all held"
                                               : "something never happened";
    std::printf(
        "share: %u processes, %u cycles, %u commits, %u roll-backs, %u kills, %u observations, "
        "longest wait %u ms: %s\n",
        client_count, all_cycles(), told.commits.load(), told.roll_backs.load(), kills_,
        told.observations.load(), told.longest_call.load(), verdict.c_str());
    return failures_ == 0 && did_all;
  }

  const share_options &options_;
  const std::string root_;
  const shared_board board_;
  const services offered_;
  const switching_service switching_;
  std::mt19937_64 dice_;
  std::array<shared_page, client_count + 1> pages_;  // the last one is the observer's
  std::array<pid_t, client_count> clients_{};
  pid_t observer_ = -1;
  unsigned kills_ = 0;
  unsigned failures_ = 0;
  unsigned cycles_seen_ = 0;
  steady::time_point seen_at_ = steady::now();
};

}  // namespace

bool share_a_cache(const share_options &options) {
  return trial(options).run();
}

}  // namespace zot::test
