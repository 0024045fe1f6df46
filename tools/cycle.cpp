// SPDX-License-Identifier: Apache-2.0
#include "cycle.hpp"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iomanip>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include "exit_status.hpp"
#include "names.hpp"

namespace zotconf {
namespace {

struct change_name {
  uint32_t bit;
  std::string_view name;
};

constexpr std::array<change_name, 6> change_names = {{{ZOT_STAT_ADDED, "added"},
                                                      {ZOT_STAT_MODIFIED, "modified"},
                                                      {ZOT_STAT_DELETED, "deleted"},
                                                      {ZOT_STAT_UNCHANGED, "unchanged"},
                                                      {ZOT_STAT_FULL, "full"},
                                                      {ZOT_STAT_CACHED, "cached"}}};

std::string_view name_of_change(uint32_t bit) {
  const auto *const found = std::ranges::find(change_names, bit, &change_name::bit);
  return found != change_names.end() ? found->name : "unknown";
}

// What the library logs: shown as far as asked for. The last error is kept, because the reason of
// a failed creation is told nowhere else.
struct log_sink {
  std::ostream &err;
  std::optional<uint32_t> level;
  std::string last_error;
};

int take_log_line(zot_log_ctx *log_ctx, void *arg, const char *line) {
  auto &sink = *static_cast<log_sink *>(arg);
  const zot_log_site site = zot_util_log_cb_func_get_conf_stat(log_ctx);
  if (site.level == ZOT_LOG_ERROR) {
    sink.last_error = line;
  }
  if (sink.level && site.level <= *sink.level) {
    sink.err << line;
  }
  return 0;
}

struct handle_freer {
  void operator()(zot_ctx *handle) const { zot_conf_free(handle); }
};
using handle_owner = std::unique_ptr<zot_ctx, handle_freer>;

// The returned list of one get.
class returned_list {
 public:
  explicit returned_list(zot_ctx *handle) : handle_(handle) {}
  returned_list(const returned_list &) = delete;
  returned_list &operator=(const returned_list &) = delete;
  ~returned_list() {
    if (head_ != nullptr) {
      zot_conf_free_ret_data(handle_, &head_);
    }
  }

  int get(const cycle_options &options) {
    const int status = zot_conf_get(handle_, options.categories, options.want, &head_);
    if (zot_util_is_err(status) && status != ZOT_ERR_SAME_AS_CORRUPTED) {
      head_ = nullptr;
    }
    return status;
  }

  [[nodiscard]] std::vector<const zot_ret_data *> entries() const {
    std::vector<const zot_ret_data *> result;
    for (const zot_list *node = head_ != nullptr ? head_->next : nullptr;
         node != nullptr && node != head_; node = node->next) {
      result.push_back(reinterpret_cast<const zot_ret_data *>(node));
    }
    return result;
  }

 private:
  zot_ctx *handle_;
  zot_list *head_ = nullptr;
};

handle_owner create_handle(const cycle_options &options, log_sink &sink) {
  zot_parm_all parm{};
  zot_util_init_conf_parm(&parm);
  parm.timeout = options.timeout;
  parm.timeout_gpb = options.timeout_gpb;
  parm.log_ctl.level = options.log_level.value_or(ZOT_LOG_ERROR);
  parm.log_ctl.dst = ZOT_LOG_DST_CB_FUNC;
  zot_util_set_log_ctl_dst_cb_func(&parm.log_ctl, take_log_line, &sink);
  return handle_owner(zot_conf_init_args(options.subsys.c_str(), options.index.c_str(),
                                         options.index.size(), parm));
}

int report_failure(std::ostream &err, const char *what, int status, const zot_ctx *handle) {
  std::string text = zot_util_get_err_str(handle);
  while (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  err << "zotconf: " << what << ": " << text << " (" << status << ")\n";
  return exit_failure;
}

std::string category_name(const zot_ret_data &entry) {
  const char *const name = zot_util_cat2str(entry.category);
  if (name == nullptr) {
    throw std::runtime_error("category " + std::to_string(entry.category) + " has no name");
  }
  return name;
}

void print_table(std::ostream &out, const std::vector<const zot_ret_data *> &entries) {
  size_t category_width = std::string_view("CATEGORY").size();
  size_t key_width = std::string_view("KEY").size();
  for (const zot_ret_data *entry : entries) {
    category_width = std::max(category_width, category_name(*entry).size());
    key_width = std::max(key_width, std::string_view(entry->key).size());
  }
  const auto row = [&](std::string_view category, std::string_view key, std::string_view status,
                       std::string_view size) {
    out << std::left << std::setw(static_cast<int>(category_width)) << category << "  "
        << std::setw(static_cast<int>(key_width)) << key << "  " << std::setw(9) << status << "  "
        << std::right << std::setw(10) << size << '\n';
  };
  row("CATEGORY", "KEY", "STATUS", "SIZE");
  for (const zot_ret_data *entry : entries) {
    row(category_name(*entry), entry->key, name_of_change(entry->stat),
        std::to_string(entry->size));
  }
}

void print_summary(std::ostream &out, std::string_view what,
                   const std::vector<const zot_ret_data *> &entries) {
  uint64_t bytes = 0;
  for (const zot_ret_data *entry : entries) {
    bytes += entry->size;
  }
  out << what << ": " << entries.size() << " entries";
  for (const change_name &change : change_names) {
    const auto count = std::ranges::count(entries, change.bit, &zot_ret_data::stat);
    if (count > 0) {
      out << ", " << count << ' ' << change.name;
    }
  }
  out << ", " << bytes << " bytes\n";
}

void write_entries(const fs::path &folder, const std::vector<const zot_ret_data *> &entries) {
  fs::create_directories(folder);
  for (const zot_ret_data *entry : entries) {
    if (entry->stat == ZOT_STAT_DELETED) {
      continue;
    }
    const std::string key = entry->key;
    if (key.empty() || key == "." || key == ".." || key.find('/') != std::string::npos) {
      throw std::runtime_error("key \"" + key + "\" cannot be a file name");
    }
    const fs::path path = folder / category_name(*entry) / key;
    fs::create_directories(path.parent_path());
    replace_file(path, {static_cast<const char *>(entry->data), entry->size}, durability::buffered);
  }
}

// Whether the command accepted what lies in `folder`.
bool run_command(const std::string &command, const fs::path &folder, std::ostream &out) {
  if (::setenv("ZOTCONF_DIR", fs::absolute(folder).c_str(), 1) != 0) {
    throw_errno("cannot set ZOTCONF_DIR");
  }
  out << std::flush;
  const int status = std::system(command.c_str());
  if (status == -1) {
    throw_errno("cannot run " + command);
  }
  if (WIFEXITED(status)) {
    out << "apply: exit status " << WEXITSTATUS(status) << '\n';
  } else {
    out << "apply: ended by signal " << WTERMSIG(status) << '\n';
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

verdict decide(const cycle_options &options, const fs::path &folder, std::ostream &out) {
  if (options.decide != verdict::by_command) {
    return options.decide;
  }
  return run_command(options.command, folder, out) ? verdict::commit : verdict::roll_back;
}

int answer(zot_ctx *handle, verdict decided, std::ostream &out, std::ostream &err) {
  if (decided == verdict::none) {
    return exit_success;
  }
  const bool accepted = decided == verdict::commit;
  const int status = accepted ? zot_conf_commit(handle) : zot_conf_roll_back(handle);
  if (status != ZOT_OK) {
    return report_failure(err, accepted ? "commit" : "roll-back", status, handle);
  }
  out << (accepted ? "committed\n" : "rolled back\n");
  return accepted ? exit_success : exit_rolled_back;
}

struct outcome {
  std::string_view name;
  int exit;
};

outcome outcome_of(int status, const zot_ctx *handle, const cycle_options &options) {
  if (status == ZOT_ERR_SAME_AS_CORRUPTED) {
    return {"same as the configuration that was rolled back", exit_same_as_corrupted};
  }
  if (options.want == ZOT_STAT_CACHED) {
    return {"cached configuration", exit_success};
  }
  if ((handle->stat.state & ZOT_CYCLE_NEW_CONF) != 0) {
    return {"new configuration", exit_success};
  }
  return {"no update", exit_no_update};
}

}  // namespace

std::optional<zot_catset> parse_categories(const std::vector<std::string> &names,
                                           std::string &wrong) {
  zot_catset result{};
  if (names.size() == 1 && names.front() == "all") {
    zot_catset_set_all(&result);
    return result;
  }
  for (const std::string &name : names) {
    int32_t category = 0;
    while (category < ZOT_CAT_COUNT && zot_util_cat2str(category) != name) {
      ++category;
    }
    if (zot_catset_add(&result, category) != ZOT_OK) {
      wrong = name;
      return std::nullopt;
    }
  }
  return result;
}

std::optional<uint32_t> parse_want(const std::vector<std::string> &names, std::string &wrong) {
  uint32_t result = 0;
  for (const std::string &name : names) {
    const auto *const found = std::ranges::find(change_names, name, &change_name::name);
    const bool alone = name == "full" || name == "cached";
    if (found == change_names.end() || (alone && names.size() > 1)) {
      wrong = name;
      return std::nullopt;
    }
    result |= found->bit;
  }
  return result;
}

int run_cycle(const cycle_options &options, std::ostream &out, std::ostream &err) {
  log_sink sink{.err = err, .level = options.log_level, .last_error = ""};
  const handle_owner handle = create_handle(options, sink);
  if (handle == nullptr) {
    err << "zotconf: no handle: "
        << (sink.last_error.empty() ? "the directories cannot be prepared\n" : sink.last_error);
    return exit_failure;
  }
  returned_list list(handle.get());
  const int status = list.get(options);
  if (zot_util_is_err(status) && status != ZOT_ERR_SAME_AS_CORRUPTED) {
    return report_failure(err, "get", status, handle.get());
  }
  const outcome found = outcome_of(status, handle.get(), options);
  if (found.exit == exit_same_as_corrupted) {
    report_failure(err, "get", status, handle.get());
  }
  const auto entries = list.entries();
  print_table(out, entries);
  print_summary(out, found.name, entries);

  const bool is_new = found.name == "new configuration";
  std::optional<temporary_folder> scratch;
  fs::path folder = options.out.value_or("");
  if (folder.empty() && is_new && options.decide == verdict::by_command) {
    folder = scratch.emplace().path();
  }
  if (!folder.empty()) {
    write_entries(folder, entries);
  }
  if (!is_new) {
    return found.exit;
  }
  return answer(handle.get(), decide(options, folder, out), out, err);
}

}  // namespace zotconf
