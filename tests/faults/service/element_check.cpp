// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/service/element_check.hpp"

#include <curl/curl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <system_error>

#include "tests/faults/service/configurations.hpp"
#include "tests/faults/service/phase.hpp"
#include "tests/support/element.hpp"
#include "tests/support/files.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using clock = std::chrono::steady_clock;

constexpr std::size_t page_of_getrusage = 1024;
constexpr double archive_patience = 1.5;  // seconds until the caller cancels an archive
constexpr double slack = 5;               // seconds beyond the limits, for a busy machine
constexpr unsigned longest_trial = 180;   // seconds until a hanging process is killed

phase_report turn_to(phase next, int control) {
  phase_report report{};
  if (::send(control, &next, sizeof next, MSG_NOSIGNAL) != sizeof next ||
      ::recv(control, &report, sizeof report, 0) != sizeof report) {
    throw std::system_error(errno, std::generic_category(), "no service");
  }
  return report;
}

std::size_t peak_memory() {
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  return static_cast<std::size_t>(used.ru_maxrss) * page_of_getrusage;
}

std::size_t bytes_below(const std::string &directory) {
  std::size_t sum = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator at(directory, error), end; !error && at != end;
       at.increment(error)) {
    std::error_code gone;
    if (at->is_regular_file(gone)) {
      const auto size = at->file_size(gone);
      sum += gone ? 0 : size;
    }
  }
  return sum;
}

// What the caller of a get observes during the transfers, and how it cancels one.
struct watch {
  std::string scratch;
  bool has_patience_limit;
  clock::time_point begin = clock::now();
  std::size_t most_on_disk = 0;
  std::size_t calls = 0;

  [[nodiscard]] double seconds() const {
    return std::chrono::duration<double>(clock::now() - begin).count();
  }

  static int look(void *self, std::uint64_t /*received*/) {
    auto &seen = *static_cast<watch *>(self);
    ++seen.calls;
    seen.most_on_disk = std::max(seen.most_on_disk, bytes_below(seen.scratch));
    return seen.has_patience_limit && seen.seconds() > archive_patience ? 1 : 0;
  }
};

// Every file below a directory with its bytes, except those in one folder.
std::map<std::string, std::string> contents(const std::string &directory,
                                            const std::string &except) {
  std::map<std::string, std::string> found;
  for (const std::string &name : tree(directory)) {
    if (except.empty() || !(directory + "/" + name).starts_with(except)) {
      found.emplace(name, read_bytes(directory + "/" + name));
    }
  }
  return found;
}

int ignore(zot_log_ctx * /*log_ctx*/, void * /*arg*/, const char * /*line*/) {
  return 0;
}

// No log capture, because it would count as memory of the library.
handle_owner make_handle(unsigned timeout) {
  zot_parm_all parm{};
  zot_util_init_conf_parm(&parm);
  parm.timeout = timeout;
  parm.log_ctl.level = ZOT_LOG_ERROR;
  zot_util_set_log_ctl_dst_cb_func(&parm.log_ctl, ignore, nullptr);
  const std::string index = "aabbccddeeff";
  handle_owner handle(zot_conf_init_args("AP", index.c_str(), index.size(), parm));
  if (handle == nullptr) {
    throw std::runtime_error("no handle");
  }
  return handle;
}

class checked_element {
 public:
  checked_element(const misdeed &what, request_kind at, int control)
      : what_(what),
        at_(at),
        control_(control),
        port_(turn_to(phase::first, control).port),
        tested_(element_options{.port = port_, .start = false}),
        handle_(make_handle(what.timeout)) {}

  std::string run(bool is_verbose) {
    expect(get(handle_.get(), every_change).status == ZOT_OK &&
               zot_conf_commit(handle_.get()) == ZOT_OK,
           std::string("the first cycle: ") + zot_util_get_err_str(handle_.get()));
    const auto before = contents(tested_.dir().path(), scratch());
    const zot_slot in_force = handle_->slot[ZOT_SLOT_CURRENT];
    const std::size_t memory = peak_memory();
    turn_to(phase::bad, control_);

    watch seen{.scratch = scratch(), .has_patience_limit = at_ == request_kind::archive};
    zot_util_watch_transfers(watch::look, &seen);
    const returned_list got = get(handle_.get(), every_change);
    zot_util_watch_transfers(nullptr, nullptr);
    const double seconds = seen.seconds();

    check_outcome(got);
    check_bounds(seen, seconds, peak_memory() - memory);
    check_in_force(before, in_force);
    check_next_cycle();
    if (is_verbose) {
      std::printf("  %d \"%s\", %.2f s, %zu looks, %zu bytes of disk, %zu KiB of memory\n",
                  got.status, got.error_text.c_str(), seconds, seen.calls, seen.most_on_disk,
                  (peak_memory() - memory) / page_of_getrusage);
      std::fflush(stdout);
    }
    return troubles_;
  }

 private:
  void expect(bool holds, const std::string &text) {
    if (!holds) {
      troubles_ += "  " + text + "\n";
    }
  }

  [[nodiscard]] std::string scratch() const { return handle_->tmp_root; }

  // The beginning of the error text of a failed transfer.
  [[nodiscard]] std::string named() const {
    if (at_ == request_kind::archive) {
      return "[ap_download_gpb]: curl error:";
    }
    return "curl error get " + label() + " from \"" + url() + "\": ";
  }
  [[nodiscard]] std::string label() const {
    return at_ == request_kind::checksum ? "K.checksum" : "K";
  }
  [[nodiscard]] std::string url() const {
    return "http://127.0.0.1:" + std::to_string(port_) +
           "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF." +
           (at_ == request_kind::checksum ? "checksum" : "k");
  }

  // Status and the beginning of the error text.
  using told_status = std::pair<int, std::string>;
  [[nodiscard]] told_status told(const outcome &wanted) const {
    const bool is_archive = at_ == request_kind::archive;
    switch (wanted.what) {
      case outcome::kind::fine:
        return {ZOT_OK, ""};
      case outcome::kind::broken:
        return {ZOT_ERR_REMOTE_UNAVAIL, named()};
      case outcome::kind::exceeded:
        return {ZOT_ERR_REMOTE_UNAVAIL, named() + curl_easy_strerror(CURLE_FILESIZE_EXCEEDED)};
      case outcome::kind::slow:
        if (is_archive) {
          return {ZOT_ERR_REMOTE_UNAVAIL, named() + curl_easy_strerror(CURLE_ABORTED_BY_CALLBACK)};
        }
        return {ZOT_ERR_TIMEOUT, named() + "timeout(" + std::to_string(what_.timeout) + ")"};
      case outcome::kind::http:
        if (is_archive) {
          return {ZOT_ERR_REMOTE_UNAVAIL, "Unable to get remote files\n"};
        }
        return {wanted.code == 404 ? ZOT_ERR_NOT_FOUND : ZOT_ERR_GENERIC,
                "unable to get " + label() + " from \"" + url() +
                    "\", http return code = " + std::to_string(wanted.code)};
      case outcome::kind::told:
        return {wanted.code, wanted.text};
    }
    return {};
  }

  void check_outcome(const returned_list &got) {
    const outcome wanted = what_.expected(at_);
    told_status want = told(wanted);
    if (wanted.or_broken && got.error_text.starts_with(named())) {
      want = told({.what = outcome::kind::broken});
    }
    const auto &[status, text] = want;
    expects_later_requests_ =
        wanted.what == outcome::kind::fine || wanted.what == outcome::kind::told;
    is_harmless_ = status == ZOT_OK;
    expect(got.status == status, "status " + std::to_string(got.status) + " (" + got.error_text +
                                     ") instead of " + std::to_string(status));
    expect(got.error_text.starts_with(text) && (is_harmless_ || got.error_text.size() > 4),
           "text \"" + got.error_text + "\" instead of \"" + text + "\"");
    expect(got.has_list == is_harmless_, "a list and no success, or the other way round");
  }

  void check_bounds(const watch &seen, double seconds, std::size_t memory) {
    const std::size_t disk = std::max(seen.most_on_disk, bytes_below(scratch()));
    expect(seconds < what_.timeout + archive_patience + slack,
           "it took " + std::to_string(seconds) + " s");
    expect(disk <= what_.disk, "scratch took " + std::to_string(disk) + " bytes");
    expect(memory <= what_.memory, "the process grew by " + std::to_string(memory) + " bytes");
  }

  void check_in_force(const std::map<std::string, std::string> &before, const zot_slot &in_force) {
    expect(contents(tested_.dir().path(), scratch()) == before, "a file outside scratch changed");
    const zot_slot &now = handle_->slot[ZOT_SLOT_CURRENT];
    expect(now.k == in_force.k && now.gpbs == in_force.gpbs, "the slot in force changed");
    expect(std::string(now.k->data, now.k->data_len) == first_configuration().k_text(),
           "the K in force changed");
    for (const auto &name : fs::recursive_directory_iterator(scratch())) {
      expect(name.is_regular_file() || name.is_directory(), name.path().string() + " is no file");
    }
    if (!is_harmless_) {
      expect(zot_conf_commit(handle_.get()) == ZOT_ERR_NOT_READY, "there is something to commit");
      expect(get(handle_.get(), ZOT_STAT_CACHED).entries.size() == 3,
             "the cached entries are lost");
    }
  }

  void check_next_cycle() {
    const phase_report bad = turn_to(phase::third, control_);
    const unsigned at = static_cast<unsigned>(at_);
    const bool is_refused = what_.before == before_request::refused;
    const unsigned most = expects_later_requests_ ? request_count : (is_refused ? at : at + 1);
    expect(bad.connections <= most, "it connected " + std::to_string(bad.connections) + " times");
    expect(!bad.is_visited_elsewhere, "it went elsewhere");

    const returned_list got = get(handle_.get(), every_change);
    expect(got.status == ZOT_OK, "the next get: " + got.error_text);
    const returned_entry *const guest = got.find(ZOT_CAT_WLAN, "guest");
    expect(guest != nullptr && guest->bytes == "guest three", "the next get brought other bytes");
    expect(zot_conf_commit(handle_.get()) == ZOT_OK,
           std::string("the next commit: ") + zot_util_get_err_str(handle_.get()));
    const publication third = third_configuration();
    expect(read_bytes(tested_.conf_root() + "knowledge/subsys.k") == third.k_text(),
           "another K is in force on disk");
    for (const auto &[path, bytes] : third.files()) {
      expect(read_bytes(tested_.conf_root() + "config" + path) == bytes, path + " is another file");
    }
  }

  const misdeed &what_;
  request_kind at_;
  int control_;
  std::uint16_t port_;
  element tested_;
  handle_owner handle_;
  bool is_harmless_ = false;
  bool expects_later_requests_ = false;
  std::string troubles_;
};

}  // namespace

std::string check_element(const misdeed &what, request_kind at, int control, bool is_verbose) {
  ::alarm(longest_trial);
  return checked_element(what, at, control).run(is_verbose);
}

}  // namespace zot::test
