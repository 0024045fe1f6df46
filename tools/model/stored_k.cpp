// SPDX-License-Identifier: Apache-2.0
#include "tools/model/stored_k.hpp"

#include <sys/stat.h>

#include <cstring>
#include <numeric>

#include "zot_conf.h"

namespace zotconf {
namespace {

// Owns a K record and its list of files.
class k_record {
 public:
  explicit k_record(judge &by) : by_(by) { zot_list_init(&files_); }
  k_record(const k_record &) = delete;
  k_record &operator=(const k_record &) = delete;
  ~k_record() {
    zot_priv_free_gpb_list(by_.handle(), &files_);
    // The library does not free a record without bytes.
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

std::optional<std::time_t> time_of(const fs::path &path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return std::nullopt;
  }
  return info.st_mtime;
}

// Puts a text into a record that has no checksum file.
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

// If a path is a FIFO, the library would block until somebody writes to it.
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
    // The library reports the error.
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
  // The library does not compute a checksum of a text that begins with a zero byte.
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

}  // namespace

uint64_t stored_k::size_of_files() const {
  return std::accumulate(files.begin(), files.end(), uint64_t{0},
                         [](uint64_t sum, const listed_file &file) { return sum + file.size; });
}

stored_k read_k_file(const fs::path &k, const fs::path &checksum_file, const fs::path &root) {
  stored_k from;
  from.k = k;
  from.checksum_file = checksum_file;
  from.root = root;
  return read_k(std::move(from));
}

fs::path path_of(const listed_file &file, const fs::path &root) {
  // The path in K begins with a slash, so operator/ would discard `root`.
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
