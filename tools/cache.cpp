// SPDX-License-Identifier: Apache-2.0
#include "cache.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <tuple>

#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr std::array<std::string_view, 4> slot_names = {"current", "last", "corrupted", "scratch"};

int drop_line(zot_log_ctx * /*log_ctx*/, void * /*arg*/, const char * /*line*/) {
  return 0;
}

// A handle for the operations that judge records: it creates no directory and logs nowhere.
class judge {
 public:
  judge() {
    zot_util_init_conf_parm(&parm_.all);
    parm_.handle = &handle_;
    parm_.all.log_ctl.dst = ZOT_LOG_DST_CB_FUNC;
    parm_.all.log_ctl.level = ZOT_LOG_ERROR;
    zot_util_set_log_ctl_dst_cb_func(&parm_.all.log_ctl, drop_line, nullptr);
    handle_.parm = &parm_;
    handle_.log_ctx.ctl = &parm_.all.log_ctl;
  }
  judge(const judge &) = delete;
  judge &operator=(const judge &) = delete;

  zot_ctx *handle() { return &handle_; }

  // The recorded status of a call that failed.
  [[nodiscard]] library_status status(int code) const {
    std::string text = zot_util_get_err_str(&handle_);
    while (!text.empty() && text.back() == '\n') {
      text.pop_back();
    }
    if (text.empty()) {
      const char *const known = zot_priv_err_get_map_str(code);
      text = known != nullptr ? known : "Generic Error";
    }
    return {.code = code, .text = text};
  }

 private:
  zot_ctx handle_{};
  zot_parm parm_{};
};

// A K record and its list of files.
class k_record {
 public:
  explicit k_record(judge &by) : by_(by) { zot_list_init(&files_); }
  k_record(const k_record &) = delete;
  k_record &operator=(const k_record &) = delete;
  ~k_record() {
    zot_priv_free_gpb_list(by_.handle(), &files_);
    if (k_.data_len == 0) {
      std::free(k_.path);
      std::free(k_.root);
    }
    zot_priv_free_k(by_.handle(), &k_);
  }

  zot_k *k() { return &k_; }
  zot_list *files() { return &files_; }

 private:
  judge &by_;
  zot_k k_{};
  zot_list files_{};
};

listed_file listed(const zot_gpb &gpb) {
  listed_file file;
  file.category = gpb.category;
  file.category_name = zot_util_cat2str(gpb.category);
  file.key = gpb.key;
  file.version = gpb.version;
  file.size = gpb.size;
  file.checksum = gpb.checksum;
  file.path = gpb.path;
  return file;
}

const zot_gpb &gpb_of(const zot_list *node) {
  return *reinterpret_cast<const zot_gpb *>(reinterpret_cast<const char *>(node) -
                                            offsetof(zot_gpb, node));
}

std::optional<std::time_t> time_of(const fs::path &path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return std::nullopt;
  }
  return info.st_mtime;
}

// Takes a text over into a record that is not held against a checksum file.
int take_text(judge &by, zot_k *k, const std::string &bytes) {
  k->data = ::strndup(bytes.data(), bytes.size());
  k->data_len = static_cast<uint32_t>(bytes.size());
  return zot_priv_chk_vail_k_cont(by.handle(), k);
}

int load(judge &by, k_record &record, const stored_k &from) {
  if (!from.checksum_file.empty()) {
    return zot_priv_verify_k_file(by.handle(), record.k(), from.k.c_str(),
                                  from.checksum_file.c_str(), 0);
  }
  return take_text(by, record.k(), from.bytes);
}

void take_content(stored_k &into, k_record &record) {
  const zot_k_meta &meta = record.k()->meta;
  into.cluster = meta.cluster_id;
  into.config_id = meta.config_id;
  into.firmware = meta.firmware_version;
  for (const zot_list *node = record.files()->next; node != record.files(); node = node->next) {
    into.files.push_back(listed(gpb_of(node)));
  }
}

stored_k read_k(stored_k from) {
  std::error_code ignored;
  from.is_present =
      fs::exists(fs::symlink_status(from.k, ignored)) ||
      (!from.checksum_file.empty() && fs::exists(fs::symlink_status(from.checksum_file, ignored)));
  if (!from.is_present) {
    return from;
  }
  from.written = time_of(from.k);
  if (fs::is_regular_file(from.k, ignored)) {
    from.bytes = read_file_text(from.k);
    from.checksum = from.bytes.empty() ? "" : sha256_text(from.bytes);
  }
  judge by;
  k_record record(by);
  int status = load(by, record, from);
  if (status == ZOT_OK) {
    status = zot_priv_get_gpb_list_via_k_json(by.handle(), record.k(), record.files());
  }
  if (status != ZOT_OK) {
    from.wrong = by.status(status);
    return from;
  }
  take_content(from, record);
  return from;
}

}  // namespace

cache_paths find_cache() {
  zot_ctx handle{};
  std::array<char, ZOT_PATH_SIZE> path{};
  cache_paths found;
  found.conf_root = zot_sub_get_conf_root(&handle, path.data(), path.size());
  found.dev_mode = handle.dev_mode != 0;
  found.tmp_root = zot_sub_get_tmp_root(&handle, path.data(), path.size());
  found.port = zot_sub_get_remote_port();
  return found;
}

std::string_view name_of(k_slot slot) {
  return slot_names.at(static_cast<size_t>(slot));
}

std::optional<k_slot> slot_of(std::string_view name) {
  const auto *const found = std::ranges::find(slot_names, name);
  if (found == slot_names.end()) {
    return std::nullopt;
  }
  return static_cast<k_slot>(found - slot_names.begin());
}

uint64_t stored_k::size_of_files() const {
  return std::accumulate(files.begin(), files.end(), uint64_t{0},
                         [](uint64_t sum, const listed_file &file) { return sum + file.size; });
}

stored_k read_slot(const cache_paths &paths, k_slot slot) {
  static constexpr std::array<const char *, 4> names = {"subsys", "prev_subsys", "corrupted",
                                                        "subsys"};
  const bool is_scratch = slot == k_slot::scratch;
  const fs::path folder = is_scratch ? paths.tmp_root : paths.conf_root / "knowledge";
  const std::string name = names.at(static_cast<size_t>(slot));
  const fs::path conf_files = slot == k_slot::corrupted ? fs::path() : paths.conf_root;
  return read_k_file(folder / (name + ".k"), folder / (name + ".checksum"),
                     is_scratch ? paths.tmp_root : conf_files);
}

stored_k read_k_file(const fs::path &k, const fs::path &checksum_file, const fs::path &root) {
  stored_k from;
  from.k = k;
  from.checksum_file = checksum_file;
  from.root = root;
  return read_k(std::move(from));
}

stored_k read_published(const fs::path &publication, const element &who) {
  const fs::path folder = publication / "file" / "knowledge" / who.subsys / who.index / "latest";
  return read_k_file(folder / (who.index + ".k"), folder / (who.index + ".checksum"), publication);
}

std::vector<element> published_elements(const fs::path &publication) {
  std::vector<element> found;
  std::error_code absent;
  for (const auto &subsys : fs::directory_iterator(publication / "file" / "knowledge", absent)) {
    std::error_code no_folder;
    for (const auto &index : fs::directory_iterator(subsys.path(), no_folder)) {
      const element who{.subsys = subsys.path().filename().string(),
                        .index = index.path().filename().string()};
      if (fs::exists(index.path() / "latest" / (who.index + ".k"))) {
        found.push_back(who);
      }
    }
  }
  std::ranges::sort(found, {}, [](const element &who) { return std::tie(who.subsys, who.index); });
  return found;
}

stored_k read_source(const std::string &name, const element &who) {
  if (const auto slot = slot_of(name)) {
    return read_slot(find_cache(), *slot);
  }
  const fs::path path(name);
  if (fs::is_regular_file(path)) {
    const fs::path checksum = fs::path(path).replace_extension(".checksum");
    return read_k_file(path, fs::exists(checksum) && checksum != path ? checksum : fs::path(), "");
  }
  if (!fs::is_directory(path)) {
    throw std::runtime_error(name + " is no slot, no publication folder and no K file");
  }
  if (!who.index.empty()) {
    return read_published(path, {.subsys = who.subsys, .index = upper_case(who.index)});
  }
  const auto elements = published_elements(path);
  if (elements.size() != 1) {
    throw std::runtime_error(name + (elements.empty() ? " holds no publication"
                                                      : " holds several elements; name one with "
                                                        "--index"));
  }
  return read_published(path, elements.front());
}

std::optional<library_status> check_file(const listed_file &file, const fs::path &root) {
  judge by;
  const std::string path = (root / "config").string() + file.path;
  const int status = zot_priv_verify_gpb(by.handle(), path.c_str(), static_cast<int32_t>(file.size),
                                         file.checksum.c_str(), nullptr);
  if (status == ZOT_OK) {
    return std::nullopt;
  }
  return by.status(status);
}

}  // namespace zotconf
