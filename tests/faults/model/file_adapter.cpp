// SPDX-License-Identifier: Apache-2.0
#include "file_adapter.hpp"

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>

#include "tests/support/files.hpp"

namespace zot::faults {
namespace {
namespace fs = std::filesystem;

std::set<std::string> paths_of(const zot_list *list) {
  std::set<std::string> paths;
  for (const zot_list *node = list->next; node != list; node = node->next) {
    const auto *bytes = reinterpret_cast<const char *>(node) - offsetof(zot_gpb, node);
    paths.insert(reinterpret_cast<const zot_gpb *>(bytes)->path);
  }
  return paths;
}

int download_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  ++file_adapter_requests();
  const offer &offered = file_adapter_offer();
  if (offered.archive.how != answer::kind::body) {
    return zot_priv_err_set_errno(handle, ZOT_ERR_REMOTE_UNAVAIL);
  }
  if (!offered.is_archive) {
    return zot_priv_err_set_errno(handle, ZOT_ERR_CORRUPTED);
  }
  const std::set<std::string> named = paths_of(gpbs);
  const std::string root = handle->tmp_gpb_root;
  for (const std::string &path : named) {
    if (const auto sent = offered.archived.find(path); sent != offered.archived.end()) {
      test::write_bytes(root + path, sent->second);
    }
  }
  if (const int status = zot_priv_read_gpb(handle, k, gpbs, handle->tmp_root); status != ZOT_OK) {
    return status;
  }
  for (const std::string &name : test::tree(root)) {
    if (!named.contains("/" + name)) {
      fs::remove(root + "/" + name);
    }
  }
  return ZOT_OK;
}

int commit_gpb(zot_ctx *handle, const char *tmp_gpb_root, zot_list *) {
  const std::string to = std::string(handle->conf_root) + "/config";
  std::error_code failed;
  fs::remove_all(to, failed);
  if (!failed) {
    fs::copy(tmp_gpb_root, to, fs::copy_options::recursive, failed);
  }
  return zot_priv_err_set_errno(handle, failed ? ZOT_ERR_GENERIC : ZOT_OK);
}

}  // namespace

void install_file_adapter(zot_ctx &handle) {
  handle.fns.download_gpb = download_gpb;
  handle.fns.commit_gpb = commit_gpb;
}

offer &file_adapter_offer() {
  static offer offered;
  return offered;
}

unsigned &file_adapter_requests() {
  static unsigned count = 0;
  return count;
}

}  // namespace zot::faults
