// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/cache.hpp"

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

// A K record and its list of files.
class k_record {
 public:
  explicit k_record(judge &by) : by_(by) { zot_list_init(&files_); }
  k_record(const k_record &) = delete;
  k_record &operator=(const k_record &) = delete;
  ~k_record() {
    zot_priv_free_gpb_list(by_.handle(), &files_);
    // The library leaves a record without bytes as it is.
    if (k_.data_len == 0) {
      std::free(k_.data);
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

// A FIFO in the place of a file would make the library wait for a writer.
std::optional<library_status> refused_kind(const fs::path &path) {
  std::error_code failed;
  if (!fs::is_other(path, failed) || failed) {
    return std::nullopt;
  }
  return library_status{.code = ZOT_ERR_CORRUPTED, .text = path.string() + " is no regular file"};
}

std::string bytes_of(const fs::path &path) {
  std::error_code failed;
  if (!fs::is_regular_file(path, failed)) {
    return "";
  }
  try {
    return read_file_text(path);
  } catch (const std::system_error &) {
    // The library tells what it makes of it.
    return "";
  }
}

std::string first_line(const fs::path &path) {
  const std::string text = bytes_of(path);
  return text.substr(0, text.find('\n'));
}

void judge_k(stored_k &from) {
  judge by;
  k_record record(by);
  int status = load(by, record, from);
  from.is_loadable = status == ZOT_OK;
  if (status == ZOT_OK) {
    status = zot_priv_get_gpb_list_via_k_json(by.handle(), record.k(), record.files());
  }
  if (status != ZOT_OK) {
    from.wrong = by.recorded(status);
    return;
  }
  take_content(from, record);
}

stored_k read_k(stored_k from) {
  const bool has_checksum_file = !from.checksum_file.empty() && is_there(from.checksum_file);
  from.is_present = is_there(from.k) || has_checksum_file;
  if (!from.is_present) {
    return from;
  }
  from.written = time_of(from.k);
  from.bytes = bytes_of(from.k);
  // The library takes no checksum of a text that begins with a zero.
  from.checksum = from.bytes.empty() || from.bytes.front() == '\0' ? "" : sha256_text(from.bytes);
  from.announced = has_checksum_file ? first_line(from.checksum_file) : "";
  from.wrong = refused_kind(from.k);
  if (!from.wrong && has_checksum_file) {
    from.wrong = refused_kind(from.checksum_file);
  }
  if (!from.wrong) {
    judge_k(from);
  }
  return from;
}

// Where the next start finds a K file of the cache: the undo folder has the one to put back, or the
// mark that there was none. Without either the file has not been changed, or is back in its place.
fs::path standing_k_file(const cache_paths &paths, const std::string &name) {
  const fs::path undo = undo_folder(paths);
  const bool is_kept = is_there(undo / name) || is_there(undo / (name + ".absent"));
  return is_kept && !paths.dev_mode ? undo / name : paths.conf_root / "knowledge" / name;
}

fs::path standing_files(const cache_paths &paths) {
  return has_undo_of_files(paths) ? undo_folder(paths) : paths.conf_root;
}

}  // namespace

bool is_there(const fs::path &path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

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

fs::path undo_folder(const cache_paths &paths) {
  return paths.conf_root / "undo";
}

bool has_undo_of_files(const cache_paths &paths) {
  const fs::path undo = undo_folder(paths);
  return !paths.dev_mode && (is_there(undo / "config") || is_there(undo / "config.absent"));
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
  const std::string name = names.at(static_cast<size_t>(slot));
  if (slot == k_slot::scratch) {
    return read_k_file(paths.tmp_root / (name + ".k"), paths.tmp_root / (name + ".checksum"),
                       paths.tmp_root);
  }
  return read_k_file(standing_k_file(paths, name + ".k"),
                     standing_k_file(paths, name + ".checksum"),
                     slot == k_slot::corrupted ? fs::path() : standing_files(paths));
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
      std::error_code unreadable;
      if (fs::exists(index.path() / "latest" / (who.index + ".k"), unreadable)) {
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

fs::path path_of(const listed_file &file, const fs::path &root) {
  // As K states it, the path begins with a slash and would replace what stands before it.
  return (root / "config" / fs::path(file.path).relative_path()).lexically_normal();
}

std::optional<library_status> check_file(const listed_file &file, const fs::path &root) {
  if (auto refused = refused_kind(path_of(file, root))) {
    return refused;
  }
  judge by;
  std::string path = file.path;
  zot_gpb gpb{};
  gpb.path = path.data();
  gpb.size = static_cast<uint32_t>(file.size);
  file.checksum.copy(gpb.checksum, ZOT_CHECKSUM_LEN);
  const int status = zot_priv_chk_vail_gpb(by.handle(), &gpb, root.c_str());
  if (status == ZOT_OK) {
    return std::nullopt;
  }
  return by.recorded(status);
}

}  // namespace zotconf
