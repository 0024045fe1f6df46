// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/share/client_process.hpp"

#include <chrono>
#include <string>
#include <thread>

namespace zot::test {
namespace {

using steady = std::chrono::steady_clock;

// Makes a call and records the longest duration of all calls.
template <class Call>
auto timed(board &told, Call call) {
  using std::chrono::milliseconds;
  const steady::time_point begin = steady::now();
  auto result = call();
  const auto taken = std::chrono::duration_cast<milliseconds>(steady::now() - begin);
  const auto length = static_cast<unsigned>(taken.count());
  unsigned longest = told.longest_call;
  while (longest < length && !told.longest_call.compare_exchange_weak(longest, length)) {
  }
  return result;
}

class client_process {
 public:
  client_process(session &client, const client_wishes &wished, board &told)
      : client_(client), wished_(wished), told_(told), dice_(wished.seed) {}

  void run() {
    begin();
    std::atomic<unsigned> &done = told_.cycles.at(wished_.number);
    while (done < wished_.cycles && !told_.is_ending) {
      go_through_one();
      ++done;
    }
  }

 private:
  [[nodiscard]] bool happens(unsigned percent) { return dice_() % 100 < percent; }

  void begin() {
    require(timed(told_, [&] { return client_.start(); }), "no handle");
  }

  void go_through_one() {
    constexpr unsigned to_begin_anew = 3;
    constexpr unsigned to_publish = 50;
    constexpr unsigned to_ask_for_all = 50;
    if (happens(to_begin_anew)) {
      begin();
    }
    if (happens(to_publish)) {
      ++told_.publications;
    }
    const std::uint32_t mask =
        happens(to_ask_for_all) ? std::uint32_t{ZOT_STAT_FULL} : every_change;
    const returned_list got = timed(told_, [&] { return client_.get_from(wished_.port, mask); });
    if (is_hindered("get", got.status)) {
      return;
    }
    const char letter = letter_of_entries(got);
    if (got.status == ZOT_ERR_SAME_AS_CORRUPTED) {
      ++told_.refused_still;
      require(letter == client_.in_force(), "beside the refused one comes another than in force");
      return;
    }
    require_status("get", got.status, got.status == ZOT_OK && letter != none);
    ask_again(letter);
    apply();
    if (waits_for_verdict()) {
      decide(letter);
    }
  }

  [[nodiscard]] bool waits_for_verdict() const {
    return (client_.handle()->stat.state & ZOT_CYCLE_NEW_CONF) != 0;
  }

  // A client needs time to apply a configuration; other clients continue meanwhile.
  void apply() {
    constexpr unsigned to_apply = 50;
    constexpr unsigned longest = 60;
    if (happens(to_apply)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(dice_() % longest));
    }
  }

  // A cached get between the get and the commit or rollback. When there is no new configuration,
  // another client may have committed since.
  void ask_again(char got) {
    constexpr unsigned to_ask_again = 20;
    if (!happens(to_ask_again)) {
      return;
    }
    const returned_list cached = timed(told_, [&] { return client_.get_cached(); });
    if (!is_hindered("cached get", cached.status)) {
      require_status("cached get", cached.status, cached.status == ZOT_OK);
      require(letter_of_entries(cached) == (waits_for_verdict() ? got : client_.in_force()),
              "a cached get returned another configuration");
    }
  }

  void decide(char got) {
    constexpr unsigned to_commit = 60;
    constexpr unsigned to_roll_back = 20;
    const auto thrown = static_cast<unsigned>(dice_() % 100);
    if (thrown < to_commit) {
      commit(got);
    } else if (thrown < to_commit + to_roll_back) {
      roll_back();
    } else {
      ++told_.without_verdict;
    }
  }

  void commit(char got) {
    const int status = timed(told_, [&] { return client_.commit(); });
    if (is_hindered("commit", status)) {
      return;
    }
    require_status("commit", status, status == ZOT_OK || status == ZOT_NO_UPDATE);
    require(client_.in_force() == got, "a commit brought another configuration into force");
    told_.has_committed = true;
    told_.commits += status == ZOT_OK ? 1 : 0;
  }

  void roll_back() {
    const int status = timed(told_, [&] { return client_.roll_back(); });
    if (!is_hindered("roll-back", status)) {
      require_status("roll-back", status, status == ZOT_OK || status == ZOT_NO_UPDATE);
      told_.roll_backs += status == ZOT_OK ? 1 : 0;
    }
  }

  // Whether another process, or a service that switches during a get, has made the call fail.
  bool is_hindered(const char *call, int status) {
    if (status == ZOT_ERR_CORRUPTED) {
      check_refusal(client_, status);
      ++told_.interferences;
    }
    told_.timeouts += status == ZOT_ERR_TIMEOUT ? 1 : 0;
    require_status(call, status, status != ZOT_ERR_TIMEOUT);
    return status == ZOT_ERR_CORRUPTED;
  }

  void require_status(const char *call, int status, bool holds) const {
    require(holds, std::string(call) + ": " + std::to_string(status) + ": " + client_.error_text());
  }

  session &client_;
  const client_wishes wished_;
  board &told_;
  std::mt19937_64 dice_;
};

}  // namespace

void go_through_cycles(session &client, const client_wishes &wished, board &told) {
  client_process(client, wished, told).run();
}

void observe(session &client, board &told) {
  const bool has_committed = told.has_committed;
  require(timed(told, [&] { return client.start(); }), "no handle");
  const returned_list cached = timed(told, [&] { return client.get_cached(); });
  require(cached.status == ZOT_OK || (cached.status == ZOT_ERR_NO_CACHE && !has_committed),
          "a new process: " + std::to_string(cached.status) + ": " + cached.error_text);
  const char letter = letter_of_entries(cached);
  require((letter == none) == (cached.status == ZOT_ERR_NO_CACHE) && letter == client.in_force(),
          std::string("a new process got ") + letter + " with " + client.in_force() + " in force");
  ++told.observations;
}

}  // namespace zot::test
