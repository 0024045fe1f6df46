// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/repair.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <span>
#include <stdexcept>

#include "tools/cache/cache_owner.hpp"
#include "tools/cache/workshop.hpp"
#include "tools/files/archive_reader.hpp"
#include "tools/publication/publication_store.hpp"
#include "zot_conf.hpp"

namespace zotconf {
namespace {

constexpr size_t batch_size = 256;

std::string host_of(const cache_paths &paths) {
  return "127.0.0.1:" + std::to_string(paths.port);
}

// The K and the checksum file that the service offers, checked by the library.
class published_k {
 public:
  published_k(const cache_paths &paths, const element &who, const fs::path &folder) {
    const std::string index = upper_case(who.index);
    zot_ctx *const handle = by_.handle();
    who.subsys.copy(handle->subsys_id, ZOT_SUBSYS_ID_LEN);
    index.copy(handle->sub_data.name, ZOT_SUB_NAME_LEN);
    const std::string to = folder.string();
    if (to.size() >= sizeof handle->tmp_root) {
      throw std::runtime_error("path too long: " + to);
    }
    to.copy(handle->tmp_root, to.size());
    // The same order as in the library: the checksum first.
    if (fetch(host_of(paths), 1) && fetch(host_of(paths), 0)) {
      k_ = read_k_file(folder / "subsys.k", folder / "subsys.checksum", "");
    }
  }

  [[nodiscard]] const std::optional<library_status> &error() const { return error_; }
  [[nodiscard]] const stored_k &k() const { return k_; }

 private:
  bool fetch(const std::string &host, int kind) {
    zot_file_mem bytes{};
    const int status = zot_priv_get_k_into_mem(by_.handle(), host.c_str(), &bytes, kind);
    const zot::c_text owner(bytes.data);
    if (status != ZOT_OK) {
      error_ = by_.recorded(status);
    }
    return status == ZOT_OK;
  }

  judge by_;
  std::optional<library_status> error_;
  stored_k k_;
};

// A configuration that was rolled back while it was damaged is not in force, and a repair must not
// bring it back.
constexpr const char *of_refused = "this configuration was rolled back";

// Compares both files of each K: when one is damaged, the other still identifies the K.
bool is_refused(const findings &found) {
  const stored_k &current = found.slot(k_slot::current);
  const stored_k &refused = found.slot(k_slot::refused);
  const auto is_of_current = [&](const std::string &checksum) {
    return !checksum.empty() && (checksum == current.checksum || checksum == current.announced);
  };
  return is_of_current(refused.checksum) || is_of_current(refused.announced);
}

bool is_of_cached_k(const damage &bad) {
  return bad.slot != k_slot::scratch && !bad.file;
}

// Restores K if its checksum file matches the service's, or the checksum file if K matches. One of
// the two must prove that the service offers the K of this slot. Returns an empty text on success,
// else the reason.
std::string restore_k(k_slot slot, const stored_k &stored, const stored_k &offered,
                      workshop &shop) {
  if (!offered.is_good()) {
    return "the service's K is damaged: " + described(*offered.wrong);
  }
  if (stored.announced == offered.announced) {
    shop.place_copy(offered.k, stored.k);
  } else if (stored.checksum == offered.announced) {
    shop.place_copy(offered.checksum_file, stored.checksum_file);
  } else {
    return slot == k_slot::current
               ? "the service does not offer the K in force; the next get takes what it offers as "
                 "wholly new"
               : "the service does not offer the K of this slot";
  }
  shop.flush();
  return "";
}

// One attempt to fetch the bad files of the configuration in force.
class file_repair {
 public:
  file_repair(const cache_paths &paths, const findings &found, const console &where, size_t total)
      : paths_(paths), shop_(paths, found), work_(where, "fetched", total) {}

  repair_report run(std::span<const listed_file> files) {
    while (!files.empty() && !report_.service_error) {
      const size_t count = std::min(files.size(), batch_size);
      fetch(files.first(count));
      files = files.subspan(count);
    }
    shop_.flush();
    return std::move(report_);
  }

 private:
  void add(const listed_file &file, const char *result, std::string text) {
    report_.outcomes.push_back(
        {.path = path_of(file, paths_.conf_root), .result = result, .text = std::move(text)});
    work_.advance(file.size);
  }

  // The service answers a request as a whole, so a refused request is split in half and repeated.
  void fetch(std::span<const listed_file> files) {
    const int result = download(files);
    if (result > 0) {
      report_.service_error = transfer_error(result);
      return;
    }
    if (result == 0) {
      return bring_in(files);
    }
    if (files.size() == 1) {
      return add(files.front(), "not_available", "Unable to get remote files");
    }
    fetch(files.first(files.size() / 2));
    if (!report_.service_error) {
      fetch(files.subspan(files.size() / 2));
    }
  }

  [[nodiscard]] std::string url() const { return "http://" + host_of(paths_) + "/tgz"; }
  [[nodiscard]] fs::path archive() const { return shop_.folder() / "files.tgz"; }

  int download(std::span<const listed_file> files) const {
    std::vector<remote_file_name> entries(files.size());
    zot_list names{};
    zot_list_init(&names);
    for (size_t i = 0; i < files.size(); ++i) {
      ("/" + member_of(files[i])).copy(entries[i].name, sizeof entries[i].name - 1);
      list_add_tail(&names, &entries[i].node);
    }
    return get_remote_file_set_stat(url().c_str(), archive().c_str(), &names, 0, nullptr);
  }

  [[nodiscard]] library_status transfer_error(int result) const {
    judge by;
    return by.recorded(
        zot_priv_fmt_get_k_curl_error(by.handle(), result, {}, url().c_str(), "GPB files", 0));
  }

  // The name of a file in the archive: config/Category/key/version.
  static std::string member_of(const listed_file &file) { return path_of(file, "").string(); }

  void bring_in(std::span<const listed_file> files) {
    std::map<std::string, wanted_member> wanted;
    for (const listed_file &file : files) {
      const fs::path to = path_of(file, shop_.folder());
      std::error_code impossible;  // K may hold a name that is not valid as a file name
      fs::create_directories(to.parent_path(), impossible);
      if (impossible) {
        continue;
      }
      wanted[member_of(file)] = {.to = to, .longest = file.size};
    }
    std::string archive_error;
    try {
      unpack(archive(), wanted);
    } catch (const std::runtime_error &error) {
      archive_error = error.what();
    }
    shop_.flush();
    for (const listed_file &file : files) {
      settle(file, archive_error);
    }
  }

  // Moves a fetched file to its place if it matches K.
  void settle(const listed_file &file, const std::string &archive_error) {
    const fs::path fetched = path_of(file, shop_.folder());
    if (!is_there(fetched)) {
      return add(file, "not_available",
                 archive_error.empty() ? "the archive does not hold it" : archive_error);
    }
    if (const auto wrong = check_file(file, shop_.folder())) {
      return add(file, "still_bad", "fetched: " + described(*wrong));
    }
    const fs::path to = path_of(file, paths_.conf_root);
    const fs::path key = to.parent_path();
    const fs::path category = key.parent_path();
    for (const fs::path &folder : {category.parent_path(), category, key}) {
      if (!shop_.make_directory(folder)) {
        return add(file, "still_bad", "a symbolic link stands at " + folder.string());
      }
    }
    shop_.place(fetched, to);
    add(file, "repaired", "");
  }

  const cache_paths &paths_;
  workshop shop_;
  progress work_;
  repair_report report_;
};

}  // namespace

repair_outcome undo_commit(const cache_paths &paths, const element &who) {
  options settings{.subsystem = who.subsys, .index = who.index, .timeout = 0, .timeout_gpb = 0};
  // Not logged: the outcome reports the errors.
  settings.log.function = [](const log_line & /*line*/) {};
  std::string reason;
  const std::vector<fs::path> missing = missing_of_start(paths);
  const auto undone_by = handle::create(std::move(settings), &reason);
  const cache_owner owner(paths.conf_root);
  for (const fs::path &made : missing) {
    owner.take(made);
  }
  const fs::path undo = undo_folder(paths);
  if (!is_there(undo)) {
    return {.path = undo, .result = "repaired", .text = ""};
  }
  return {.path = undo,
          .result = "not_restorable",
          .text = undone_by ? "the library could not put back what it keeps" : reason};
}

repair_report repair_k(const cache_paths &paths, const element &who, const findings &found) {
  repair_report report;
  for (const damage &bad : found.damaged) {
    if (bad.slot == k_slot::scratch && !bad.is_harmless) {
      report.outcomes.push_back({.path = bad.path,
                                 .result = "not_restorable",
                                 .text = "the scratch area is not repaired; a new configuration "
                                         "overwrites it"});
    }
  }
  if (std::ranges::none_of(found.damaged, is_of_cached_k)) {
    return report;
  }
  workshop shop(paths, found);
  const published_k offered(paths, who, shop.folder());
  const bool is_in_force = std::ranges::any_of(found.damaged, [](const damage &bad) {
    return is_of_cached_k(bad) && bad.slot == k_slot::current;
  });
  // When only other slots are damaged, a service error does not stop the repair of the files.
  if (offered.error() && is_in_force) {
    report.service_error = offered.error();
    return report;
  }
  for (const k_slot slot : {k_slot::current, k_slot::last, k_slot::refused}) {
    const auto is_here = [slot](const damage &bad) {
      return is_of_cached_k(bad) && bad.slot == slot;
    };
    if (std::ranges::none_of(found.damaged, is_here)) {
      continue;
    }
    const std::string reason = slot == k_slot::current && is_refused(found) ? of_refused
                               : offered.error()
                                   ? described(*offered.error())
                                   : restore_k(slot, found.slot(slot), offered.k(), shop);
    for (const damage &bad : found.damaged) {
      if (is_here(bad)) {
        report.outcomes.push_back({.path = bad.path,
                                   .result = reason.empty() ? "repaired" : "not_restorable",
                                   .text = reason});
      }
    }
  }
  return report;
}

repair_report repair_files(const cache_paths &paths, const findings &found, const console &where) {
  repair_report refused;
  std::vector<listed_file> files;
  const bool was_rolled_back = is_refused(found);
  for (const damage &bad : found.damaged) {
    if (bad.slot != k_slot::current || !bad.file) {
      continue;
    }
    if (was_rolled_back) {
      refused.outcomes.push_back(
          {.path = bad.path, .result = "not_restorable", .text = of_refused});
    } else if (split_member_name("/config/" + bad.file->path)) {
      files.push_back(*bad.file);
    } else {
      refused.outcomes.push_back({.path = bad.path,
                                  .result = "not_available",
                                  .text = "K gives it a path outside of its place"});
    }
  }
  if (files.empty()) {
    return refused;
  }
  repair_report report = file_repair(paths, found, where, files.size()).run(files);
  std::ranges::move(refused.outcomes, std::back_inserter(report.outcomes));
  return report;
}

}  // namespace zotconf
