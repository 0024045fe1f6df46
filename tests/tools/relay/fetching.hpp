// SPDX-License-Identifier: Apache-2.0
// A folder to fetch into, and an upstream's client, for tests.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/tools/relay/scripted_server.hpp"
#include "tools/relay/upstream.hpp"

namespace zot::test {

inline bool never() {
  return false;
}

// Ends a get or a fetch after some time.
class stop_after {
 public:
  explicit stop_after(std::chrono::milliseconds time)
      : end_(std::chrono::steady_clock::now() + time) {}
  bool operator()() const { return std::chrono::steady_clock::now() >= end_; }

 private:
  std::chrono::steady_clock::time_point end_;
};

inline zotconf::upstream_options options_for(const std::string &url) {
  zotconf::upstream_options options;
  options.url = url;
  options.silence = std::chrono::milliseconds(20000);
  return options;
}

inline std::string range_header(const std::string &head) {
  const size_t at = head.find("Range: ");
  return at == std::string::npos ? "" : head.substr(at, head.find("\r\n", at) - at);
}

class fetching {
 public:
  // The result of a fetch, and the files for which `arrived` was called.
  struct result {
    zotconf::fetch_end end;
    std::vector<size_t> arrived;
  };

  [[nodiscard]] zotconf::wanted_file wanted(const std::string &name, uint64_t size) const {
    return {.path = "config/Wlan/" + name + "/1", .to = dir_ / name, .size = size};
  }
  [[nodiscard]] static result fetch(zotconf::upstream &from,
                                    const std::vector<zotconf::wanted_file> &files) {
    result all;
    all.end = from.fetch(files, [&all](size_t index) { all.arrived.push_back(index); });
    return all;
  }
  [[nodiscard]] static result fetch(const scripted_server &server,
                                    const std::vector<zotconf::wanted_file> &files) {
    zotconf::upstream from(options_for(server.url()), never);
    return fetch(from, files);
  }
  // Fetches one file of this size and returns why it failed.
  [[nodiscard]] std::string failure(const scripted_server &server, uint64_t size) const {
    const result all = fetch(server, {wanted("a", size)});
    return all.arrived.empty() ? all.end.wrong : "it arrived";
  }
  [[nodiscard]] std::string file(const std::string &name) const { return dir_ / name; }

 private:
  temp_dir dir_;
};

}  // namespace zot::test
