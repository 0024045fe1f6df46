// SPDX-License-Identifier: Apache-2.0
// usage: faults_archive [every=N] [percent=N] [only=TEXT] [log] [sizes]
// Gives an element one archive after the other that no service should send. Each is unpacked by GNU
// tar and by busybox's tar, as root and as another user. Prints what held; exits with 0 when
// everything did.
//
//   every=N    run only every Nth archive
//   percent=N  scale large archives to N percent of their size
//   only=TEXT  run only archives whose name contains TEXT
//   log        print the library's log with each failure
//   sizes      print how much space each archive took
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/archive/rows.hpp"
#include "tests/faults/archive/trial.hpp"
#include "tests/support/files.hpp"

namespace {

using namespace zot::test;
namespace fs = std::filesystem;

struct wishes {
  unsigned every = 1;
  unsigned percent = 100;
  std::string only;
  bool with_log = false;
  bool with_sizes = false;
};

struct unpacker {
  std::string name;
  std::string path;
  std::size_t column;
};

wishes parse(int argc, char **argv) {
  wishes all;
  for (int at = 1; at < argc; ++at) {
    const std::string_view word = argv[at];
    const std::string value(word.substr(word.find('=') + 1));
    if (word.starts_with("every=")) {
      all.every = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("percent=")) {
      all.percent = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("only=")) {
      all.only = value;
    } else if (word == "log") {
      all.with_log = true;
    } else if (word == "sizes") {
      all.with_sizes = true;
    } else {
      throw std::invalid_argument("unknown: " + std::string(word));
    }
  }
  return all;
}

archive_rows wanted_rows(const row_setting &setting, const wishes &all) {
  archive_rows rows;
  std::size_t at = 0;
  for (const auto make :
       {link_rows, member_rows, name_rows, header_rows, packing_rows, large_rows}) {
    for (archive_row &row : make(setting)) {
      if (row.name.find(all.only) != std::string::npos && at++ % all.every == 0) {
        rows.push_back(std::move(row));
      }
    }
  }
  return rows;
}

// The machine's own tar, and busybox where it is installed, in front of everything else on PATH.
std::vector<unpacker> unpackers(const std::string &work) {
  const std::string usual = "/usr/local/bin:/usr/bin:/bin";
  std::vector<unpacker> all = {{"tar", usual, 0}};
  for (const char *const busybox : {"/usr/bin/busybox", "/bin/busybox"}) {
    if (::access(busybox, X_OK) == 0) {
      const std::string applets = work + "/applets";
      fs::create_directories(applets);
      fs::create_symlink(busybox, applets + "/tar");
      all.push_back({"busybox tar", applets + ":" + usual, 2});
      break;
    }
  }
  return all;
}

// Root gives each trial a small volume, in a namespace of its own.
bool can_mount(const std::string &work) {
  const pid_t child = ::fork();
  if (child == 0) {
    const bool done = ::unshare(CLONE_NEWNS) == 0 &&
                      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      ::mount("tmpfs", work.c_str(), "tmpfs", 0, nullptr) == 0;
    ::_exit(done ? 0 : 1);
  }
  int status = 1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

// Whether a row held for both kinds of users, or for the one that runs this.
bool holds(const archive_row &row, const unpacker &by, const std::string &work, const wishes &all) {
  const bool is_root = ::geteuid() == 0;
  bool held = true;
  for (const bool as_other_user : {false, true}) {
    if (as_other_user && !is_root) {
      continue;
    }
    const bool has_rights = is_root && !as_other_user;
    const std::string failure = try_row(row, {.work = work + "/place",
                                              .path = by.path,
                                              .as_other_user = as_other_user,
                                              .column = by.column + (has_rights ? 0U : 1U),
                                              .with_log = all.with_log,
                                              .with_sizes = all.with_sizes});
    if (!failure.empty()) {
      std::printf("archive:   \"%s\", %s, %s: %s\n", row.name.c_str(), by.name.c_str(),
                  has_rights ? "root" : "not root", failure.c_str());
      held = false;
    }
  }
  return held;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    const wishes all = parse(argc, argv);
    std::signal(SIGPIPE, SIG_IGN);
    // What a trial writes it writes hundreds of times; memory is meant for that.
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
    const temp_dir work;
    ::chmod(work.path().c_str(), 0711);
    if (::geteuid() == 0 && !can_mount(work.path())) {
      std::printf("left out: archive: this user may mount nothing\n");
      return 0;
    }
    const archive_rows rows = wanted_rows(setting_at(work / "place", all.percent), all);
    const std::vector<unpacker> tars = unpackers(work.path());
    std::size_t held = 0;
    for (const archive_row &row : rows) {
      for (const unpacker &by : tars) {
        held += holds(row, by, work.path(), all) ? 1U : 0U;
      }
    }
    const std::size_t tried = rows.size() * tars.size();
    std::printf("archive: %zu archives, with %s: %zu held\n", rows.size(),
                tars.size() == 2 ? "two tars" : "one tar", held);
    return held == tried && tried != 0 ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
