// SPDX-License-Identifier: Apache-2.0
// The store of a relay, filled as its synchronisation fills it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tools/relay/relay_store.hpp"

namespace zot::test {

// The bytes of the files of a configuration, under "Category/key/version".
using contents = std::map<std::string, std::string>;

class stored : public testing::Test {
 protected:
  static inline const zotconf::element ap{.subsys = "AP", .index = "001122334455"};

  [[nodiscard]] static zotconf::manifest manifest_of(const contents &files, uint64_t sequence) {
    zotconf::manifest content{.cluster = "c",
                              .config_id = "",
                              .firmware = "",
                              .who = sequence == 0 ? zotconf::element{} : ap,
                              .sequence = sequence,
                              .files = {}};
    for (const auto &[name, bytes] : files) {
      const std::filesystem::path path = name;
      zotconf::published_file file;
      file.category_name = path.parent_path().parent_path().string();
      file.key = path.parent_path().filename().string();
      file.version = std::stoull(path.filename().string());
      file.size = bytes.size();
      file.checksum = sha256_hex(bytes);
      content.files.push_back(file);
    }
    return content;
  }
  [[nodiscard]] static std::string k_of(const contents &files, uint64_t sequence) {
    return zotconf::render_manifest(manifest_of(files, sequence));
  }

  [[nodiscard]] zotconf::relay_store &store() {
    if (!store_) {
      store_ = std::make_unique<zotconf::relay_store>(root_, ap);
    }
    return *store_;
  }
  // As after the end of the process and a new start.
  zotconf::relay_store &restarted() {
    store_.reset();
    return store();
  }
  void take(const contents &files) {
    for (const auto &file : manifest_of(files, 0).files) {
      const std::string name =
          file.category_name + "/" + file.key + "/" + std::to_string(file.version);
      write_bytes(store().partial(file), files.at(name));
      ASSERT_TRUE(store().take(file)) << name;
    }
  }
  // Returns the SHA-256 of K.
  std::string put(const contents &files, uint64_t sequence,
                  const std::optional<std::string> &signature = std::nullopt) {
    take(files);
    const std::string k = k_of(files, sequence);
    store().put_into_service(k, signature, manifest_of(files, sequence));
    return sha256_hex(k);
  }

  [[nodiscard]] std::string object(const std::string &bytes) const {
    const std::string digest = sha256_hex(bytes);
    return root_ + "/objects/" + digest.substr(0, 2) + "/" + digest.substr(2);
  }
  [[nodiscard]] std::string publication(const std::string &digest) const {
    return root_ + "/publications/" + digest;
  }
  [[nodiscard]] static std::string text_of(const zot::descriptor &file) {
    return file.is_open() ? zotconf::read_file_at(file.get(), "a member") : "(not open)";
  }
  [[nodiscard]] static std::vector<std::string> latest(const std::string &suffix) {
    return {"file", "knowledge", "AP", "001122334455", "latest", "001122334455" + suffix};
  }
  [[nodiscard]] std::string opened(const std::vector<std::string> &parts) {
    return text_of(store().open_member(parts));
  }
  [[nodiscard]] std::string digest_in_service() {
    const auto current = store().current();
    return current != nullptr ? current->digest : "";
  }

  temp_dir dir_;
  std::string root_ = dir_ / "store";
  std::unique_ptr<zotconf::relay_store> store_;
};

}  // namespace zot::test
