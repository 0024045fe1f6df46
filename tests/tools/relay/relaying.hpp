// SPDX-License-Identifier: Apache-2.0
// A publication folder, a web server that serves it, and a store that follows it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

#include "tests/tools/relay/static_site.hpp"
#include "tests/tools/support/publishing.hpp"
#include "tests/tools/support/signing.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/relay/synchroniser.hpp"

namespace zot::test {

class Relaying : public Publishing {
 protected:
  using sync_round = zotconf::sync_round;
  using round_result = zotconf::round_result;

  Relaying() {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    publish_source();
    start();
  }

  void publish_source(const std::vector<std::string> &more = {}) const {
    const finished done = run(more);
    ASSERT_EQ(done.status, 0) << done.err;
  }
  // Opens the store, as a relay does that starts.
  void start(const zotconf::keyring *trusted = nullptr) {
    syncing_.reset();
    server_.reset();
    store_.reset();
    store_.emplace(store_path_, who_);
    server_ = std::make_unique<zotconf::upstream>(zotconf::upstream_options{.url = site_.url()},
                                                  [this] { return is_stopped_.load(); });
    syncing_ = std::make_unique<zotconf::synchroniser>(
        zotconf::acceptance{.who = who_, .trusted = trusted}, 2, *server_, *store_);
  }
  [[nodiscard]] sync_round round() {
    site_.forget_requests();
    return syncing_->run();
  }
  void expect_round(round_result result, const std::string &wrong = "") {
    const sync_round found = round();
    EXPECT_EQ(found.result, result) << found.wrong;
    EXPECT_EQ(found.wrong, wrong);
  }

  // The site answers with 404 for a file, after another one with these bytes has arrived.
  void break_after(const std::string &arriving, const std::string &category,
                   const std::string &key) {
    const std::string missing =
        "/config/" + category + "/" + key + "/" + std::to_string(version(category, key));
    const std::string arrived = object(arriving);
    site_.deviate([missing, arrived](const std::string &path, httplib::Response &reply) {
      if (path != missing) {
        return false;
      }
      wait_until([&] { return exists(arrived); }, arrived);
      reply.status = 404;
      return true;
    });
  }

  // The bytes that a client gets for a file of the publication in service; empty: none.
  [[nodiscard]] std::string served(const std::string &category, const std::string &key) const {
    const auto current = store_->current();
    for (const auto &file : current->content.files) {
      if (file.category_name == category && file.key == key) {
        return bytes_of({"config", category, key, std::to_string(file.version)});
      }
    }
    return "";
  }
  [[nodiscard]] std::string served_k() const { return bytes_of(zotconf::latest_parts(who_, ".k")); }
  [[nodiscard]] std::string served_signature() const {
    return bytes_of(zotconf::latest_parts(who_, ".k.p7s"));
  }
  [[nodiscard]] std::string object(const std::string &bytes) const {
    const std::string digest = sha256_hex(bytes);
    return store_path_ + "/objects/" + digest.substr(0, 2) + "/" + digest.substr(2);
  }
  [[nodiscard]] size_t objects() const { return tree(store_path_ + "/objects").size(); }
  [[nodiscard]] size_t partials() const { return tree(store_path_ + "/partial").size(); }
  [[nodiscard]] size_t kept() const {
    const auto all = std::filesystem::directory_iterator(store_path_ + "/publications");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
  }

  const zotconf::element who_{"AP", "001122334455"};
  std::string store_path_ = dir_ / "store";
  static_site site_{publication_};
  std::atomic<bool> is_stopped_ = false;
  std::optional<zotconf::relay_store> store_;
  std::unique_ptr<zotconf::upstream> server_;
  std::unique_ptr<zotconf::synchroniser> syncing_;

 private:
  [[nodiscard]] std::string bytes_of(const std::vector<std::string> &parts) const {
    const zot::descriptor file = store_->open_member(parts);
    return file.is_open() ? zotconf::read_file_at(file.get(), "served file") : "";
  }
};

}  // namespace zot::test
