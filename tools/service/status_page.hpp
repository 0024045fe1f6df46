// SPDX-License-Identifier: Apache-2.0
// The page at `/` that shows a service at work, and `/status.json` that it asks every two seconds.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"
#include "tools/output/json.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/service/http_types.hpp"
#include "tools/service/request_log.hpp"

namespace zotconf {

extern const std::string_view status_html;

// What a published K holds, in figures.
struct publication_summary {
  struct total {
    uint64_t entries = 0;
    uint64_t bytes = 0;
  };

  element who;
  std::optional<std::string> damage;  // why clients cannot use it
  std::string cluster;
  std::string config_id;
  std::string firmware;
  std::string checksum;
  std::optional<std::time_t> written;
  total all;
  std::map<std::string, total> categories;  // by name
};

// What a publication folder holds. Looks at most once a second, and reads a K again only when its
// files are others than before, so a page that is left open costs a service next to nothing.
class publication_view {
 public:
  publication_view(fs::path folder, const publication_store &store)
      : folder_(std::move(folder)), store_(store) {}

  // Adds "publications" and "problem".
  void describe(json_node into);

 private:
  using clock = std::chrono::steady_clock;
  using name = std::pair<std::string, std::string>;  // sub-system and index
  // Which file it is, how long, and when it changed.
  using file_stamp = std::array<int64_t, 5>;

  struct known_publication {
    std::array<file_stamp, 2> stamps{};
    publication_summary summary;
  };

  void refresh();
  void look();
  [[nodiscard]] known_publication read(const element &who) const;
  [[nodiscard]] std::array<file_stamp, 2> stamps_of(const element &who) const;

  fs::path folder_;
  const publication_store &store_;
  std::mutex mutex_;
  std::optional<clock::time_point> looked_;
  std::optional<std::string> problem_;
  std::map<name, known_publication> known_;
};

class status_page {
 public:
  status_page(const fs::path &folder, const publication_store &store, const request_log &log)
      : folder_(folder), view_(folder, store), log_(log) {}

  // Nothing when the request is none of the page's own. May be called by several threads at once,
  // and may take as long as reading all that is published.
  [[nodiscard]] std::optional<http_answer> answer(const http_request &request);
  // True for a request of the page itself, which is no work of the service and is not logged.
  [[nodiscard]] static bool is_asked(const http_request &request);

  // Where the service listens. Called before the first request comes.
  void set_address(const std::string &host, int port);

 private:
  [[nodiscard]] std::string status_json();

  fs::path folder_;
  publication_view view_;
  const request_log &log_;
  std::string host_;
  int port_ = 0;
  std::time_t started_ = std::time(nullptr);
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace zotconf
