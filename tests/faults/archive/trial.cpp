// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/archive/trial.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <system_error>

#include "tests/faults/archive/watched_element.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

// Seconds. A normal sequence of gets takes tenths of a second, a large one a few seconds.
constexpr unsigned patience = 240;
constexpr std::uint64_t mib = 1U << 20U;
// Memory that a get needs in addition to the files' content, in a process that has already done
// one.
constexpr std::uint64_t memory_beside = 8 * mib;

class row_failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void check(bool held, const std::string &what) {
  if (!held) {
    throw row_failure(what);
  }
}

template <class T>
std::string listed(const std::vector<T> &names) {
  std::string text;
  for (const auto &name : names) {
    text += " " + name;
  }
  return text.substr(0, 400);
}

// The changes between two states of the same place.
std::string difference(const surroundings &before, const surroundings &after) {
  std::vector<std::string> changed;
  for (const auto &[path, told] : before) {
    const auto now = after.find(path);
    if (now == after.end() || now->second != told) {
      changed.push_back((now == after.end() ? "gone: " : "changed: ") + path);
    }
  }
  for (const auto &[path, told] : after) {
    if (!before.contains(path)) {
      changed.push_back("new: " + path);
    }
  }
  return listed(changed);
}

// The published configuration. For a row with an announced file, K lists one file more.
publication spoiled_for(const archive_row &row) {
  publication published = conf_spoiled();
  if (row.announced != 0) {
    published.put("Wlan", "announced", 1, "x");
    std::string k = published.k_text();
    const std::string key = R"("path":"/Wlan/announced/1","size":)";
    const std::size_t at = k.find(key + "1,");
    check(at != std::string::npos, "the K has another form than expected");
    published.set_k_text(k.replace(at + key.size(), 1, std::to_string(row.announced)));
  }
  return published;
}

bool holds_files_of(const returned_list &got, const publication &published) {
  std::size_t present = 0;
  for (const returned_entry &entry : got.entries) {
    present += entry.stat != ZOT_STAT_DELETED ? 1U : 0U;
  }
  const auto files = published.files();
  bool all = present == files.size();
  for (const auto &[path, bytes] : files) {
    const auto &expected = bytes;
    all = all && std::ranges::any_of(got.entries, [&](const returned_entry &entry) {
            return entry.has_data && entry.bytes == expected;
          });
  }
  return all;
}

class trial {
 public:
  trial(const archive_row &row, const trial_place &place)
      : row_(row), place_(place), on_(place.work, place.as_other_user) {}

  void run() {
    on_.remote.publish(conf_in_force());
    check(get_and_commit(conf_in_force()), "the first get: " + on_.tested.error_text());
    before_ = on_.around();
    rights_before_ = rights_of(on_.tested.tmp_root());
    bool done = false;
    for (const archive_step &step : row_.steps) {
      on_.tested.log().clear();
      done = take(step);
    }
    if (done) {
      check(zot_conf_commit(on_.tested.handle()) == ZOT_OK, "the commit");
      check(committed() == paths_of(conf_spoiled()), "committed:" + listed(committed()));
    } else {
      check_in_force();
    }
    on_.remote.clear_overrides();
    on_.remote.publish(conf_after());
    check(get_and_commit(conf_after()), "the next get: " + on_.tested.error_text());
    check(committed() == paths_of(conf_after()), "committed at last:" + listed(committed()));
  }

  [[nodiscard]] std::string log() { return on_.tested.log().dump(); }

 private:
  bool get_and_commit(const publication &published) {
    const returned_list got = on_.tested.get();
    return got.status == ZOT_OK && holds_files_of(got, published) &&
           zot_conf_commit(on_.tested.handle()) == ZOT_OK;
  }

  // Sends one archive. Returns whether the get succeeded.
  bool take(const archive_step &step) {
    const publication published = spoiled_for(row_);
    on_.remote.publish(published);
    on_.remote.clear_overrides();
    on_.remote.answer("/tgz", 200, step.bytes);
    reset_most_memory();
    const std::uint64_t memory_before = most_memory();
    const room_watch room(on_.scratch());
    const returned_list got = on_.tested.get();
    check_room(room, most_memory() - memory_before, step);
    const char answer = step.answers[step.answers.size() == 1 ? 0 : place_.column];
    const bool done = got.status == ZOT_OK;
    check(done                              ? answer == 'O' || answer == '?'
          : got.status == ZOT_ERR_CORRUPTED ? answer == 'C' || answer == '?'
                                            : got.status == ZOT_ERR_REMOTE_UNAVAIL && answer == 'U',
          std::string("expected ") + answer + ", not " + std::to_string(got.status) + " \"" +
              on_.tested.error_text() + "\"");
    check(done == got.has_list, "a list with a failure, or none without");
    check(!done || holds_files_of(got, published), "the files of the list");
    const surroundings after = on_.around();
    check(after == before_, "outside:" + difference(before_, after));
    check(rights_of(on_.tested.tmp_root()) == rights_before_, "rights of the scratch directory");
    const auto foreign = foreign_below(on_.tested.tmp_root());
    check(foreign.empty(), "foreign:" + listed(foreign));
    check_left(done, published);
    return done;
  }

  void check_room(const room_watch &room, std::uint64_t memory, const archive_step &step) const {
    if (place_.with_sizes) {
      std::printf(
          "archive:   %s: %zu bytes packed, at most %llu bytes in %llu files on disk, %llu "
          "bytes of memory\n",
          row_.name.c_str(), step.bytes.size(), static_cast<unsigned long long>(room.most_bytes()),
          static_cast<unsigned long long>(room.most_files()),
          static_cast<unsigned long long>(memory));
      std::fflush(stdout);
    }
    // The service runs in this process too: it holds the archive, a copy and the bytes it sends. A
    // file of the announced size needs memory twice: while it is read, and in the list.
    check(memory <= memory_beside + 8 * step.bytes.size() + 2 * row_.announced,
          "took " + std::to_string(memory) + " bytes of memory");
    check(row_.most_room == 0 || room.most_bytes() <= row_.most_room,
          "took " + std::to_string(room.most_bytes()) + " bytes on disk");
  }

  // Checks what a get leaves in the scratch area: the archive and the files that K names. After a
  // failure, the files of the configuration in force may be there too.
  void check_left(bool done, const publication &published) {
    const std::string root = on_.tested.tmp_root();
    std::set<std::string> allowed = {"gpb.tgz", "subsys.checksum", "subsys.k"};
    for (const std::string &path : paths_of(published)) {
      allowed.insert("config/" + path);
    }
    for (const std::string &path : paths_of(conf_in_force())) {
      if (!done) {
        allowed.insert("config/" + path);
      }
    }
    const std::vector<std::string> left = files_below(root);
    check(std::ranges::includes(allowed, left), "left:" + listed(left));
    for (const auto &[name, bytes] : {std::pair{root + "/subsys.k", published.k_text()},
                                      {root + "/subsys.checksum", published.checksum_text()}}) {
      check(exists(name) ? read_bytes(name) == bytes : row_.spoils_k && !done, name);
    }
  }

  // After a failed get, the configuration in force must be complete: from the cache, and when it is
  // published again.
  void check_in_force() {
    const returned_list cached = on_.tested.get(ZOT_STAT_CACHED | every_change);
    check(cached.status == ZOT_OK && holds_files_of(cached, conf_in_force()),
          "the cached get: " + cached.error_text);
    check(zot_conf_commit(on_.tested.handle()) != ZOT_OK, "a commit of what failed");
    on_.remote.clear_overrides();
    on_.remote.publish(conf_in_force());
    const returned_list again = on_.tested.get();
    check(again.status == ZOT_OK && holds_files_of(again, conf_in_force()),
          "the configuration in force, published again: " + again.error_text);
    check(committed() == paths_of(conf_in_force()), "in the cache:" + listed(committed()));
  }

  [[nodiscard]] std::vector<std::string> committed() const {
    return tree(on_.tested.conf_root() + "/config");
  }

  static std::vector<std::string> paths_of(const publication &published) {
    std::vector<std::string> paths;
    for (const auto &[path, bytes] : published.files()) {
      paths.push_back(path.substr(1));
    }
    std::ranges::sort(paths);
    return paths;
  }

  const archive_row &row_;
  const trial_place &place_;
  watched_element on_;
  surroundings before_;
  std::string rights_before_;
};

// Runs a trial in the child process and never returns.
[[noreturn]] void run_alone(const archive_row &row, const trial_place &place, int answer) {
  std::string failure;
  try {
    ::setpgid(0, 0);
    // Discards log messages from before the capture starts.
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(patience);
    ::setenv("PATH", place.path.c_str(), 1);
    ::setenv("TMPDIR", (place.work + "/tmp").c_str(), 1);
    trial one(row, place);
    ::prctl(PR_SET_DUMPABLE, 1);
    try {
      one.run();
    } catch (const row_failure &problem) {
      failure = problem.what();
      if (place.with_log) {
        failure += "\n" + one.log();
      }
    }
  } catch (const std::exception &problem) {
    failure = problem.what();
  }
  const bool told =
      ::write(answer, failure.data(), failure.size()) == static_cast<ssize_t>(failure.size());
  ::_exit(failure.empty() && told ? 0 : 1);
}

std::string read_all(int fd) {
  std::string all;
  char chunk[4096];
  for (ssize_t got = 0; (got = ::read(fd, chunk, sizeof chunk)) > 0;) {
    all.append(chunk, static_cast<std::size_t>(got));
  }
  return all;
}

}  // namespace

row_setting setting_at(const std::string &work, unsigned percent) {
  // The scratch directory is work/tmp/ELEMENT/scratch/tmp/zot.
  return {work + "/sentinel", "../../../../../sentinel", percent};
}

std::string try_row(const archive_row &row, const trial_place &place) {
  namespace fs = std::filesystem;
  fs::remove_all(place.work);
  fs::create_directories(place.work + "/tmp");
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  const descriptor from_child(ends[0]);
  descriptor to_parent(ends[1]);
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    run_alone(row, place, to_parent.get());
  }
  to_parent.close();
  std::string failure = read_all(from_child.get());
  int status = 0;
  if (::waitpid(child, &status, 0) != child) {
    throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  // Kills an unpacker that is still running.
  ::kill(-child, SIGKILL);
  if (failure.empty() && status != 0) {
    failure = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "it hung" : "it ended early";
  }
  return failure;
}

}  // namespace zot::test
