// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/steps.hpp"

#include <array>
#include <sstream>
#include <stdexcept>

#include "tools/cache/verify.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/selftest/target.hpp"
#include "utilities/shell_word.hpp"

namespace zotconf {
namespace {

// Far more than the messages of one commit.
constexpr unsigned most_kills = 500;

std::string publish_files(trial &on) {
  configuration with_empty_file = on.published.first;
  with_empty_file["Wlan/empty"] = "";
  bool is_refused = false;
  try {
    on.publish(with_empty_file);
  } catch (const interrupted &) {
    throw;
  } catch (const std::runtime_error &refusal) {
    is_refused = std::string_view(refusal.what()).ends_with("Wlan/empty: is empty");
    if (!is_refused) {
      throw;
    }
  }
  if (!is_refused) {
    throw std::runtime_error("an empty file was published");
  }
  on.publish(on.published.first);
  uint64_t bytes = 0;
  for (const auto &[name, content] : on.published.first) {
    bytes += content.size();
  }
  return counted(on.published.first.size(), "file", "files") + ", " + human_bytes(bytes) +
         "; an empty one was refused";
}

std::string serve_publication(trial &on) {
  return "listens on 127.0.0.1:" + std::to_string(on.start_service());
}

// One process gets, compares and commits; a second one must then find that configuration in force.
void get_and_commit(trial &on, const configuration &before, const configuration &after) {
  on.run([&] {
    client element = on.start_client();
    {
      const entries list = element.get(change::any, ZOT_OK);
      expect_changes(list, before, after);
    }
    if (!element.is_new()) {
      throw std::runtime_error("the get reports no new configuration");
    }
    element.commit();
    return "";
  });
  on.expect_in_force(after, "after the commit");
}

std::string commit_first(trial &on) {
  get_and_commit(on, {}, on.published.first);
  return counted(on.published.first.size(), "entry", "entries") + " added";
}

std::string commit_update(trial &on) {
  on.publish(on.published.second);
  get_and_commit(on, on.published.first, on.published.second);
  return "an added, a modified and a deleted entry, the others unchanged";
}

std::string refuse_twice(trial &on) {
  const configuration &in_force = on.published.second;
  on.publish(on.published.refused);
  on.run([&] {
    client element = on.start_client();
    expect_changes(element.get(change::any, ZOT_OK), in_force, on.published.refused);
    element.roll_back();
    return "";
  });
  on.expect_in_force(in_force, "after the roll-back");
  on.run([&] {
    client element = on.start_client();
    if (!is_in_force(element.get(change::any, ZOT_ERR_SAME_AS_CORRUPTED), in_force)) {
      throw std::runtime_error("a get of what was rolled back returns another configuration");
    }
    return "";
  });
  return "the configuration before stays, and the same one is refused";
}

// The configuration that a process finds when it starts after a kill.
enum class found_in_force { before, after };

found_in_force look_after_kill(trial &on, unsigned message) {
  const std::string found = on.run([&]() -> std::string {
    client element = on.start_client();
    const entries list = element.get(change::cached, ZOT_OK);
    if (is_in_force(list, on.published.second)) {
      return "before";
    }
    if (is_in_force(list, on.published.last)) {
      return "after";
    }
    throw std::runtime_error(
        "neither the configuration before nor the one after is in force, "
        "killed at message " +
        std::to_string(message));
  });
  return found == "before" ? found_in_force::before : found_in_force::after;
}

// Kills one commit after another, each one message later, until a commit completes.
std::string kill_commits(trial &on) {
  on.publish(on.published.last);
  unsigned undone = 0;
  for (unsigned message = 1; message <= most_kills; ++message) {
    const bool is_killed = !on.run_to_kill([&] {
      client element = on.start_client(message);
      expect_changes(element.get(change::any, ZOT_OK), on.published.second, on.published.last);
      element.commit();
      return "";
    });
    const found_in_force found = look_after_kill(on, message);
    if (found == found_in_force::before && is_killed) {
      ++undone;
      continue;
    }
    if (found == found_in_force::before || undone == 0) {
      throw std::runtime_error(is_killed ? "a commit that had just begun is in force"
                                         : "a commit that came to its end is not in force");
    }
    return counted(undone + (is_killed ? 1 : 0), "kill", "kills") +
           ", and each start had the configuration before or after, whole";
  }
  throw std::runtime_error("the commit has no end");
}

// Simulates a restart of the device: no service, an empty scratch area.
std::string start_without_service(trial &on) {
  on.stop_service();
  fs::remove_all(on.scratch());
  on.expect_in_force(on.published.last, "without a service");
  on.run([&] {
    on.start_client().get(change::any, ZOT_ERR_REMOTE_UNAVAIL);
    return "";
  });
  on.expect_in_force(on.published.last, "after a get without a service");
  return "the configuration is in force with an empty scratch area and no service";
}

void expect_verified(trial &on, int expected, const std::string &named) {
  on.run([&] {
    std::ostringstream out;
    const int exit = run_verify({}, console(out, out));
    if (exit != expected) {
      throw std::runtime_error("verify ends with " + std::to_string(exit) + " instead of " +
                               std::to_string(expected));
    }
    if (out.str().find(named) == std::string::npos) {
      throw std::runtime_error("verify does not name " + named);
    }
    return "";
  });
}

std::string find_damage(trial &on) {
  expect_verified(on, exit_success, "clean");
  const fs::path file = on.cache() / "config/Wlan/guest/1";
  std::string bytes = read_file_text(file);
  bytes.front() = static_cast<char>(bytes.front() ^ 1);
  replace_file(file, bytes, durability::buffered);
  expect_verified(on, exit_damaged, file.string());
  on.run([&] {
    on.start_client().get(change::cached, ZOT_ERR_NO_CACHE);
    return "";
  });
  return "verify names the file, and no byte of it is handed out";
}

std::string make_files(trial &on) {
  if (!on.has_folder()) {
    on.make_folder();
  }
  // The library inserts this path into shell commands without quotes.
  if (!zot::is_plain_shell_word(on.folder().c_str())) {
    throw std::runtime_error(on.folder().string() + " has a character that a shell interprets");
  }
  return check_file_system(on);
}

constexpr std::array<step, 10> steps = {{
    {"file_system", make_files},
    {"commands", check_commands},
    {"publication", publish_files},
    {"service", serve_publication},
    {"first_commit", commit_first},
    {"update", commit_update},
    {"rollback", refuse_twice},
    {"killed_commit", kill_commits},
    {"restart", start_without_service},
    {"damage", find_damage},
}};

}  // namespace

std::span<const step> steps_of_selftest() {
  return steps;
}

}  // namespace zotconf
