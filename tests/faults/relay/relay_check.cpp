// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/relay_check.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "tests/faults/relay/polled_relay.hpp"
#include "tests/faults/relay/server_process.hpp"
#include "tests/support/files.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using zotconf::round_result;

constexpr int polls = 3;

// The most memory that this process has taken since the last call of forget_peak(), in bytes.
std::size_t peak_memory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) {
      return std::stoul(line.substr(6)) * 1024;
    }
  }
  throw std::runtime_error("no VmHWM in /proc/self/status");
}

void forget_peak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

std::size_t bytes_below(const fs::path &folder) {
  std::size_t bytes = 0;
  for (const auto &entry : fs::recursive_directory_iterator(folder)) {
    bytes += entry.is_regular_file() && !entry.is_symlink() ? entry.file_size() : 0;
  }
  return bytes;
}

// Everything below a folder except the store, with the bytes of files and the targets of links.
std::map<std::string, std::string> surroundings(const fs::path &folder, const fs::path &store) {
  std::map<std::string, std::string> found;
  for (auto each = fs::recursive_directory_iterator(folder); each != fs::end(each); ++each) {
    if (each->path() == store) {
      each.disable_recursion_pending();
    }
    found[each->path()] = each->is_symlink()        ? fs::read_symlink(each->path()).string()
                          : each->is_regular_file() ? read_bytes(each->path())
                                                    : "";
  }
  return found;
}

round_result result_of(outcome expected) {
  switch (expected) {
    case outcome::failing:
      return round_result::failed;
    case outcome::refused:
      return round_result::refused;
    case outcome::silent:
      return round_result::unchanged;
    case outcome::taken:
      break;
  }
  return round_result::updated;
}

std::size_t count_lines(const std::string &text) {
  return static_cast<std::size_t>(std::ranges::count(text, '\n'));
}

// The second generation is offered as the misdeed says, the other ones as they should be.
behaviour behaviour_of(std::uint64_t number, const misdeed &tried, const cast &all) {
  behaviour made{.content = all.generations.at(number)};
  if (tried.setting.has_tls) {
    made.begins = greeting::tls;
    made.tls = make_tls(all.host, nullptr);
  }
  if (number == offered) {
    tried.apply(made, all);
  }
  return made;
}

class relay_check {
 public:
  relay_check(const misdeed &tried, const cast &all)
      : tried_(tried),
        all_(all),
        server_([&](std::uint64_t number) { return behaviour_of(number, tried, all); }) {
    write_bytes(work_ / "beside/mark", "mark");
    write_bytes(work_ / "keyring", all.keyring());
    write_bytes(work_ / "ca", all.host_authority.certificate_pem());
    if (tried.setting.client != nullptr) {
      const identity &client = all.*tried.setting.client;
      write_bytes(work_ / "client.crt", client.certificate_pem());
      write_bytes(work_ / "client.key", client.key_pem());
    }
  }

  std::string run(bool is_verbose) {
    server_.behave(in_service);
    polled_relay relay(folders());
    expect(relay.poll().result == round_result::updated, "the first generation is not taken");
    expect_served(relay.store(), all_.generations.at(in_service), "before");
    before_ = surroundings(work_.path(), store());
    static_cast<void>(relay.told());
    misbehave(relay);
    mend(relay);
    if (is_verbose) {
      std::printf("%s: %s\n", tried_.name.c_str(), told_.c_str());
    }
    return trouble_;
  }

 private:
  [[nodiscard]] std::string store() const { return work_ / "store"; }

  [[nodiscard]] relay_folders folders() const {
    relay_folders made{.store = store(),
                       .url = server_.url(tried_.setting.has_tls ? "https" : "http"),
                       .keyring = tried_.setting.is_signed ? work_ / "keyring" : "",
                       .silence = tried_.silence};
    if (tried_.setting.has_tls) {
      made.ca = work_ / "ca";
    }
    if (tried_.setting.client != nullptr) {
      made.certificate = work_ / "client.crt";
      made.key = work_ / "client.key";
    }
    return made;
  }

  void misbehave(polled_relay &relay) {
    server_.behave(offered);
    forget_peak();
    const std::size_t memory = peak_memory();
    for (int poll = 0; poll < polls; ++poll) {
      check_round(relay.poll(), poll);
    }
    check_growth(peak_memory() - std::min(peak_memory(), memory));
    told_ = relay.told();
    check_told();
    const offer expected = expected_meanwhile();
    expect_served(relay.store(), expected, "while the server misbehaves");
    expect(bytes_below(store()) <= tried_.disk,
           "the store has " + std::to_string(bytes_below(store())) + " bytes");
    expect(surroundings(work_.path(), store()) == before_, "files outside the store have changed");
    expect_after_a_restart(expected);
  }

  void check_round(const zotconf::sync_round &round, int poll) {
    const bool is_taken = tried_.expected == outcome::taken && poll > 0;
    const round_result expected = is_taken ? round_result::unchanged : result_of(tried_.expected);
    expect(round.result == expected, "round " + std::to_string(poll + 1) + " ended with " +
                                         std::to_string(static_cast<int>(round.result)) + ": " +
                                         round.wrong);
    expect(round.retry_after == tried_.retry_after, "Retry-After is not as sent");
  }

  void check_growth(std::size_t bytes) {
    expect(bytes <= tried_.memory, "the process has grown by " + std::to_string(bytes) + " bytes");
  }

  void check_told() {
    switch (tried_.expected) {
      case outcome::failing:
        return expect_line("update failing: ");
      case outcome::refused:
        return expect_line("publication refused: ");
      case outcome::taken:
        return expect(told_.find("new publication in service: sequence 6") != std::string::npos &&
                          told_.find("failing") == std::string::npos,
                      "told: " + told_);
      case outcome::silent:
        return expect(told_.find("failing") == std::string::npos &&
                          told_.find("refused") == std::string::npos,
                      "told: " + told_);
    }
  }

  void expect_line(const std::string &begin) {
    const bool is_told = count_lines(told_) == 1 && told_.find(begin) != std::string::npos;
    expect(is_told, "not told once: " + told_);
    expect(!tried_.reason.empty() && told_.find(tried_.reason) != std::string::npos,
           "another reason: " + told_);
    expect(told_.size() < 400, "a line of " + std::to_string(told_.size()) + " bytes");
  }

  [[nodiscard]] offer expected_meanwhile() const {
    if (tried_.expected != outcome::taken) {
      return all_.generations.at(in_service);
    }
    offer made = behaviour_of(offered, tried_, all_).content;
    // The server's process has signed it with other bytes.
    made.files.erase(signature_path);
    return made;
  }

  // A copy of the store, as a new process would find it.
  void expect_after_a_restart(const offer &expected) {
    const temp_dir copy;
    fs::copy(store(), copy / "store",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const zotconf::relay_store again(copy / "store", this_element);
    expect_served(again, expected, "after a restart");
  }

  void mend(polled_relay &relay) {
    server_.behave(mended);
    expect(!server_.is_visited_elsewhere(), "it has connected to another server");
    const zotconf::sync_round round = relay.poll();
    expect(round.result == round_result::updated, "mended, it is not taken: " + round.wrong);
    expect_served(relay.store(), all_.generations.at(mended), "mended");
    expect(relay.poll().result == round_result::unchanged, "mended, it is taken twice");
    expect(bytes_below(store()) <= tried_.disk, "mended, the store has grown");
  }

  void expect_served(const zotconf::served_files &files, const offer &expected,
                     const std::string &when) {
    const std::string wrong = compare_served(files, expected);
    expect(wrong.empty(), when + ": " + wrong);
  }

  void expect(bool holds, const std::string &text) {
    if (!holds) {
      trouble_ += "  " + text.substr(0, text.find_last_not_of('\n') + 1) + "\n";
    }
  }

  const misdeed &tried_;
  const cast &all_;
  server_process server_;
  const temp_dir work_;
  std::map<std::string, std::string> before_;
  std::string told_;
  std::string trouble_;
};

}  // namespace

std::string check_relay(const misdeed &tried, const cast &all, bool is_verbose) {
  return relay_check(tried, all).run(is_verbose);
}

}  // namespace zot::test
