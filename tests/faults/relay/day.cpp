// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/day.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/faults/relay/polled_relay.hpp"
#include "tests/faults/relay/rounds.hpp"
#include "tests/faults/relay/server_process.hpp"
#include "tests/support/files.hpp"
#include "tools/relay/schedule.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::chrono::seconds every = 30s;
constexpr std::chrono::hours length = 24h;
constexpr unsigned warm_up = 300;  // rounds before the first measurement
constexpr unsigned rounds_per_update = 100;
constexpr unsigned rounds_per_fault = 37;
constexpr unsigned rounds_of_fault = 3;
constexpr std::size_t memory_growth = std::size_t{512} << 10;

enum class weather : unsigned { fine, refusing, unavailable, cut, other_bytes, unsigned_k };
constexpr unsigned weathers = 6;

// One number says which generation is offered, and how.
std::uint64_t number_of(std::uint64_t generation, weather how) {
  return generation * weathers + static_cast<unsigned>(how);
}

script bad_answer(weather how, const answer &good) {
  if (how == weather::unavailable) {
    return send("HTTP/1.1 503 Service Unavailable\r\nRetry-After: 60\r\nContent-Length: 0\r\n\r\n");
  }
  const std::string body = how == weather::cut ? good.body.substr(0, good.body.size() / 2)
                                               : std::string(good.body.size(), '7');
  return send(good.head + body);
}

behaviour behaviour_of(std::uint64_t number, const identity &publisher) {
  behaviour made{.content = generation(number / weathers, publisher)};
  const auto how = static_cast<weather>(number % weathers);
  if (how == weather::fine) {
    return made;
  }
  if (how == weather::unsigned_k) {
    made.content.files.erase(signature_path);
    return made;
  }
  made.is_up = how != weather::refusing;
  made.act = [how](const asked_file &asked, const answer &good) -> std::optional<script> {
    const bool is_meant = how == weather::unavailable || asked.path.starts_with("config/");
    return is_meant ? std::optional(bad_answer(how, good)) : std::nullopt;
  };
  return made;
}

struct figures {
  std::size_t memory = 0;  // resident bytes
  std::size_t descriptors = 0;
  std::size_t files = 0;  // in the store
};

std::size_t resident_bytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) {
      return std::stoul(line.substr(6)) * 1024;
    }
  }
  throw std::runtime_error("no VmRSS in /proc/self/status");
}

std::size_t entries_of(const fs::path &folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

std::size_t files_below(const fs::path &folder) {
  std::size_t files = 0;
  for (const auto &entry : fs::recursive_directory_iterator(folder)) {
    files += entry.is_symlink() || !entry.is_directory() ? 1 : 0;
  }
  return files;
}

bool has_empty_folder(const fs::path &folder) {
  const auto is_empty = [](const fs::directory_entry &entry) {
    return entry.is_directory() && !entry.is_symlink() && fs::is_empty(entry.path());
  };
  return std::any_of(fs::recursive_directory_iterator(folder), fs::recursive_directory_iterator(),
                     is_empty);
}

figures measure(const std::string &store) {
  return {.memory = resident_bytes(),
          .descriptors = entries_of("/proc/self/fd"),
          .files = files_below(store)};
}

// A clock that jumps over the pauses, and changes the server between the rounds.
class day_clock : public zotconf::relay_clock {
 public:
  day_clock(server_process &server, const std::string &store) : server_(server), store_(store) {}

  [[nodiscard]] clock::time_point now() const override { return now_; }
  [[nodiscard]] bool is_stopped() const override { return now_ - begin_ >= length; }
  void wait_until(clock::time_point when) override {
    now_ = when;
    ++rounds_;
    if (rounds_ == warm_up) {
      first_ = measure(store_);
    }
    change_server();
  }

  [[nodiscard]] unsigned rounds() const { return rounds_; }
  [[nodiscard]] unsigned faults() const { return faults_; }
  [[nodiscard]] std::uint64_t generation() const { return generation_; }
  [[nodiscard]] const figures &first() const { return first_; }

 private:
  void change_server() {
    if (rounds_ % rounds_per_update == 0) {
      ++generation_;
      server_.behave(number_of(generation_, how_));
    }
    if (rounds_ % rounds_per_fault == 0) {
      how_ = static_cast<weather>(1 + faults_++ % (weathers - 1));
      // What is damaged counts only if it is fetched.
      server_.behave(number_of(++generation_, how_));
    }
    if (rounds_ % rounds_per_fault == rounds_of_fault && how_ != weather::fine) {
      how_ = weather::fine;
      server_.behave(number_of(generation_, how_));
    }
  }

  server_process &server_;
  const std::string &store_;
  const clock::time_point begin_{};
  clock::time_point now_{};
  unsigned rounds_ = 0;
  unsigned faults_ = 0;
  std::uint64_t generation_ = 1;
  weather how_ = weather::fine;
  figures first_;
};

void compare(const figures &first, const figures &last) {
  require(last.memory <= first.memory + memory_growth, "the memory has grown from " +
                                                           std::to_string(first.memory) + " to " +
                                                           std::to_string(last.memory));
  require(last.descriptors <= first.descriptors, "the descriptors have grown from " +
                                                     std::to_string(first.descriptors) + " to " +
                                                     std::to_string(last.descriptors));
  require(last.files <= first.files, "the files have grown from " + std::to_string(first.files) +
                                         " to " + std::to_string(last.files));
}

void run_day(const sweep_options &options) {
  const cast all;
  server_process server([&](std::uint64_t number) { return behaviour_of(number, all.publisher); });
  server.behave(number_of(1, weather::fine));
  const std::string store = options.work + "/store";
  write_bytes(options.work + "/keyring", all.keyring());
  polled_relay relay({.store = store, .url = server.url(), .keyring = options.work + "/keyring"});
  day_clock time(server, store);
  zotconf::schedule when(every, 1);
  relay.run(when, time);
  server.behave(number_of(time.generation(), weather::fine));
  require(relay.poll().wrong.empty(), "the last round fails");
  const std::string told = relay.told();
  const figures last = measure(store);
  const zotconf::relay_state state = relay.state();
  std::printf("%u rounds in 24 hours, %u faults, %llu updates, %llu failed rounds\n", time.rounds(),
              time.faults(), static_cast<unsigned long long>(state.updates),
              static_cast<unsigned long long>(state.failures));
  require(state.sequence == time.generation(), "the last generation is not in service");
  require(state.failures >= time.faults(), "faults were not noticed");
  compare(time.first(), last);
  require(!has_empty_folder(store + "/objects"), "an empty folder stays");
  std::printf(
      "relayday: %u rounds, %u faults: memory %zu KiB after %u rounds, %zu KiB in the end; "
      "descriptors %zu and %zu; files in the store %zu and %zu\n",
      time.rounds(), time.faults(), time.first().memory / 1024, warm_up, last.memory / 1024,
      time.first().descriptors, last.descriptors, time.first().files, last.files);
}

}  // namespace

bool simulate_day(const sweep_options &options) {
  try {
    run_day(options);
    return true;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "day: %s\n", problem.what());
    return false;
  }
}

}  // namespace zot::test
