// SPDX-License-Identifier: Apache-2.0
#include "stage.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <system_error>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/support/service.hpp"

namespace zot::faults {
namespace fs = std::filesystem;
namespace {

constexpr std::uint32_t full = ZOT_STAT_FULL;

// Longer than a log message can be without an allocation.
std::string long_text(const std::string &k_text) {
  constexpr std::size_t padding = 5000;
  return k_text + std::string(padding, ' ') + "\n";
}

std::string name_of(std::int32_t category, const std::string &key) {
  const char *const name = zot_util_cat2str(category);
  return std::string(name != nullptr ? name : "?") + "/" + key;
}

std::string describe(const std::vector<test::returned_entry> &entries) {
  std::string text;
  for (const test::returned_entry &entry : entries) {
    text += name_of(entry.category, entry.key) + " " + std::to_string(entry.stat) + " " +
            std::to_string(entry.size) + (entry.has_data ? " '" + entry.bytes + "'\n" : " -\n");
  }
  return text;
}

// The published bytes by "Category/key".
bytes_by_name published_objects(const test::publication &from) {
  bytes_by_name objects;
  for (const auto &[path, bytes] : from.files()) {
    objects.emplace(path.substr(1, path.rfind('/') - 1), bytes);
  }
  return objects;
}

bytes_by_name objects_of(const test::returned_list &list) {
  bytes_by_name objects;
  for (const test::returned_entry &entry : list.entries) {
    if (entry.has_data) {
      objects.emplace(name_of(entry.category, entry.key), entry.bytes);
    }
  }
  return objects;
}

std::string found(const test::returned_list &list) {
  return ": status " + std::to_string(list.status) + ", " + list.error_text + "\n" +
         describe(list.entries);
}

void hold_services(int report, int life_line) {
  std::array<std::unique_ptr<test::service>, published_count> running;
  ports at{};
  for (int which = first; which < published_count; ++which) {
    running.at(which) = std::make_unique<test::service>();
    running.at(which)->publish(configuration(static_cast<published>(which)));
    at.at(which) = running.at(which)->port();
  }
  if (::write(report, at.data(), sizeof at) == static_cast<ssize_t>(sizeof at)) {
    // Waits until the process that started this one has ended.
    char none = 0;
    while (::read(life_line, &none, 1) < 0 && errno == EINTR) {
    }
  }
}

// Starts without a service and returns what is in force below a folder. Makes the checks that every
// cache must pass.
std::string ask_anew(const std::string &dir, const zot_parm_all &parm) {
  constexpr const char *sub_idx = "aabbccddeeff";
  ::setenv("ZOT_PREFIX_CONF_ROOT", (dir + "/conf").c_str(), 1);
  ::setenv("ZOT_PREFIX_TMP_ROOT", (dir + "/scratch").c_str(), 1);
  ::setenv("ZOT_REMOTE_PORT", std::to_string(test::closed_port()).c_str(), 1);
  const test::handle_owner handle(zot_conf_init_args("AP", sub_idx, std::strlen(sub_idx), parm));
  expect(handle != nullptr, "a new process gets no handle");
  test::returned_list cached = test::get(handle.get(), ZOT_STAT_CACHED);
  expect(cached.status == ZOT_OK || cached.status == ZOT_ERR_NO_CACHE,
         "a new process" + found(cached));
  const bool is_in_force = handle->slot[ZOT_SLOT_CURRENT].k != nullptr;
  expect(is_in_force == (cached.status == ZOT_OK),
         "a new process, with something in force or nothing" + found(cached));
  for (const char *const unfinished : {"undo", "undo.new", "undo.old"}) {
    expect(!test::exists(std::string(handle->conf_root) + unfinished),
           std::string(unfinished) + " is still there for a new process");
  }
  std::erase_if(cached.entries, [](const test::returned_entry &entry) {
    return (entry.stat & ZOT_STAT_DELETED) != 0;
  });
  for (test::returned_entry &entry : cached.entries) {
    entry.stat = ZOT_STAT_FULL;
  }
  return describe(cached.entries);
}

// Runs `ask` in a child process and returns its text, after "+" for success or "-" for an
// exception.
std::string in_own_process(const std::function<std::string()> &ask) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  const pid_t process = ::fork();
  if (process == 0) {
    std::string told;
    try {
      told = "+" + ask();
    } catch (const std::exception &problem) {
      told = std::string("-") + problem.what();
    }
    static_cast<void>(::write(ends[1], told.data(), told.size()));
    ::_exit(0);
  }
  ::close(ends[1]);
  std::string told;
  std::array<char, 4096> part{};
  for (ssize_t size = 0; (size = ::read(ends[0], part.data(), part.size())) > 0;) {
    told.append(part.data(), static_cast<std::size_t>(size));
  }
  ::close(ends[0]);
  ::waitpid(process, nullptr, 0);
  return told;
}

}  // namespace

void expect(bool holds, const std::string &what) {
  if (!holds) {
    throw broken_promise(what);
  }
}

test::publication configuration(published which) {
  test::publication made;
  made.put("Wlan", "guest", static_cast<std::uint64_t>(which) + 1,
           "guest of " + std::to_string(which));
  made.put("Radio", "r5", 3, "radio");
  if (which == first) {
    made.put("Zone", "hq", 1, "hq one");
  } else {
    made.put("Wlan", "staff", 1, "staff one");
  }
  made.config_id("00000000-0000-0000-0000-00000000000" + std::to_string(which));
  made.set_k_text(long_text(made.k_text()));
  return made;
}

std::string described(const bytes_by_name &files) {
  constexpr std::size_t shown = 8;
  std::string names;
  for (const auto &[name, bytes] : files) {
    names += name + " (" + test::sha256_hex(bytes).substr(0, shown) + ") ";
  }
  return names;
}

std::string in_memory(const zot_list *gpbs) {
  std::string text;
  if (gpbs != nullptr) {
    for (const zot_list *node = gpbs->next; node != gpbs; node = node->next) {
      const auto *const gpb = reinterpret_cast<const zot_gpb *>(
          reinterpret_cast<const char *>(node) - offsetof(zot_gpb, node));
      text += std::string(gpb->path) + " " + std::to_string(gpb->stat) + " '" +
              (gpb->content != nullptr ? std::string(gpb->content, gpb->size) : "") + "'\n";
    }
  }
  return text;
}

std::string in_memory(const zot_slot &slot) {
  std::string text;
  if (slot.k != nullptr) {
    text += std::string(slot.k->data, slot.k->data_len);
    text += slot.k->root != nullptr ? std::string(" in ") + slot.k->root : "";
  }
  return text + "\n" + in_memory(slot.gpbs);
}

services::services() {
  std::array<int, 2> report{};
  std::array<int, 2> life{};
  if (::pipe2(report.data(), O_CLOEXEC) != 0 || ::pipe2(life.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  pid_ = ::fork();
  if (pid_ == 0) {
    ::close(report[0]);
    ::close(life[1]);
    hold_services(report[1], life[0]);
    ::_exit(0);
  }
  ::close(report[1]);
  ::close(life[0]);
  life_line_ = life[1];
  const bool has_ports =
      ::read(report[0], ports_.data(), sizeof ports_) == static_cast<ssize_t>(sizeof ports_);
  ::close(report[0]);
  if (!has_ports) {
    throw std::runtime_error("no services");
  }
}

services::~services() {
  ::close(life_line_);
  ::waitpid(pid_, nullptr, 0);
}

stage::stage(const ports &at)
    : ports_(at), element_(test::element_options{.port = at.at(first), .start = false}) {}

std::uint32_t stage::tried_loads() const {
  return handle()->load_flags & every_load;
}

std::uint32_t stage::lost_loads() const {
  const zot_slot(&slot)[ZOT_SLOT_COUNT] = handle()->slot;
  std::uint32_t absent = 0;
  const auto add = [&absent](bool is_absent, std::uint32_t load) {
    absent |= is_absent ? load : 0;
  };
  add(slot[ZOT_SLOT_CURRENT].k == nullptr, ZOT_LOADED_CONF);
  add(slot[ZOT_SLOT_LAST].k == nullptr, ZOT_LOADED_PREV_K);
  add(slot[ZOT_SLOT_CORRUPTED].k == nullptr, ZOT_LOADED_FAIL_K);
  add(handle()->ret.list == nullptr, ZOT_LOADED_RET_LIST);
  return tried_loads() & absent;
}

void stage::lose(std::uint32_t loads) const {
  handle()->load_flags |= loads;
  if ((loads & ZOT_LOADED_CONF) != 0) {
    handle()->load_flags |= ZOT_LOADED_CONF_GPB;
  }
}

outcome stage::get(const fault &fault, std::uint32_t mask) {
  const zot_catset catset = test::every_category();
  // The call must set the list to null when it returns none, so it starts with another value.
  zot_list elsewhere{};
  zot_list *list = &elsewhere;
  const int status = under(fault, [&] { return zot_conf_get(handle(), catset, mask, &list); });
  const bool gives_list = status == ZOT_OK || status == ZOT_ERR_SAME_AS_CORRUPTED;
  expect(list != &elsewhere && (list != nullptr) == gives_list,
         "wrong list with status " + std::to_string(status));
  expect(zot_util_get_err(handle()) == status,
         "the handle keeps another status than " + std::to_string(status));
  outcome result{status, "status " + std::to_string(status)};
  if (list != nullptr) {
    result.text +=
        ", state " + std::to_string(handle()->stat.state) + "\n" + describe(test::entries_of(list));
    expect(zot_conf_free_ret_data(handle(), &list) == ZOT_OK && list == nullptr,
           "the list was not taken back");
  }
  return result;
}

void stage::bring_to(published which) {
  publish(which);
  const test::returned_list got = element_.get();
  if (got.status != ZOT_OK || zot_conf_commit(handle()) != ZOT_OK) {
    throw std::runtime_error("no configuration" + found(got));
  }
}

bytes_by_name stage::cache() const {
  bytes_by_name files;
  for (const std::string &name : test::tree(element_.conf_root())) {
    files.emplace(name, test::read_bytes(element_.conf_root() + name));
  }
  return files;
}

void stage::note(const std::string &remark) {
  notes_ += notes_.find(remark) == std::string::npos ? ", " + remark : "";
}

// When there is no memory to read the scratch directory, files of an earlier configuration stay
// there, and a commit copies them to the cache. Nobody reads them, and the next update removes
// them. This function leaves them out.
bytes_by_name stage::listed_in_cache() {
  bytes_by_name files = cache();
  const std::string k = files["knowledge/subsys.k"];
  for (int other = first; other < published_count; ++other) {
    for (const auto &[path, bytes] : configuration(static_cast<published>(other)).files()) {
      const auto found = files.find("config" + path);
      if (found != files.end() && found->second == bytes &&
          k.find('"' + path + '"') == std::string::npos) {
        files.erase(found);
        note("earlier files kept");
      }
    }
  }
  return files;
}

void stage::expect_in_force_on_disk(published which) {
  const test::publication wanted = configuration(which);
  bytes_by_name files = {{"knowledge/subsys.k", wanted.k_text()},
                         {"knowledge/subsys.checksum", wanted.checksum_text()}};
  for (const auto &[path, bytes] : wanted.files()) {
    files.emplace("config" + path, bytes);
  }
  bytes_by_name in_cache = listed_in_cache();
  std::erase_if(in_cache, [](const auto &file) {
    return file.first.starts_with("knowledge/prev_") ||
           file.first.starts_with("knowledge/corrupted");
  });
  expect(in_cache == files, "the cache does not hold what is in force: " + described(in_cache));
}

void stage::expect_whole_cycle(published next) {
  const test::publication wanted = configuration(next);
  publish(next);
  const test::returned_list got = element_.get(full);
  expect(got.status == ZOT_OK && objects_of(got) == published_objects(wanted),
         "the next configuration does not come" + found(got));
  const int verdict = zot_conf_commit(handle());
  expect(verdict == ZOT_OK, "the next configuration is not committed: " + std::to_string(verdict));
  expect_in_force_on_disk(next);
  expect(cache() == listed_in_cache(), "earlier files stay in the cache");

  const test::returned_list again = element_.get();
  expect(again.status == ZOT_OK && (handle()->stat.state & ZOT_CYCLE_SAME_K) != 0,
         "the committed configuration is not found unchanged" + found(again));

  expect(element_.start(), "no handle after a restart");
  const test::returned_list cached = element_.get(ZOT_STAT_CACHED);
  expect(cached.status == ZOT_OK && objects_of(cached) == published_objects(wanted),
         "the committed configuration is not in the cache" + found(cached));
}

std::string stage::found_anew() {
  const std::string copy = beside_ / "all";
  fs::remove_all(copy);
  fs::copy(element_.dir().path(), copy, fs::copy_options::recursive);
  const std::string told = in_own_process([&] { return ask_anew(copy, element_.parm()); });
  expect(told.starts_with('+'), told.empty() ? "a new process crashed" : told.substr(1));
  return told.substr(1);
}

void stage::save_files() {
  fs::remove_all(saved_ / "all");
  fs::copy(element_.dir().path(), saved_ / "all", fs::copy_options::recursive);
}

void stage::restore_files() const {
  for (const fs::directory_entry &entry : fs::directory_iterator(element_.dir().path())) {
    fs::remove_all(entry.path());
  }
  fs::copy(saved_ / "all", element_.dir().path(), fs::copy_options::recursive);
}

}  // namespace zot::faults
