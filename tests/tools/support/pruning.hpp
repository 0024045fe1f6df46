// SPDX-License-Identifier: Apache-2.0
// A publication folder for tests of `zotconf prune`.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/publishing.hpp"

namespace zot::test {

namespace fs = std::filesystem;

class Pruning : public Publishing {
 protected:
  void publish_bytes(const std::string &name, const std::string &bytes) const {
    put(name, bytes);
    const finished done = run();
    ASSERT_EQ(done.status, 0) << done.err;
  }
  // Publishes two versions of Wlan/a; K names the second.
  void publish_twice() const {
    publish_bytes("Wlan/a", "one");
    publish_bytes("Wlan/a", "second");
  }
  [[nodiscard]] finished prune(const std::vector<std::string> &more = {"--grace", "0"}) const {
    std::vector<std::string> args = {"prune", publication_};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args);
  }
  [[nodiscard]] std::string lock_file() const { return publication_ + "/.lock"; }
  void set_age(const std::string &name, std::chrono::seconds age) const {
    fs::last_write_time(publication_ + "/" + name, fs::file_time_type::clock::now() - age);
  }
  [[nodiscard]] std::vector<std::string> files() const { return tree(publication_ + "/config"); }
  // Expects that prune is refused, that the message contains `name`, and that nothing is removed.
  void expect_refusal(const std::string &name) const {
    const auto before = snapshot(publication_);
    const finished done = prune();
    EXPECT_EQ(done.status, 6);
    EXPECT_EQ(done.out, "");
    EXPECT_NE(done.err.find(name), std::string::npos) << done.err;
    EXPECT_EQ(snapshot(publication_), before);
  }
};

}  // namespace zot::test
