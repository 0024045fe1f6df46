// SPDX-License-Identifier: Apache-2.0
// Contents of a publication folder. A separate thread reads them, so that a request for the status
// page never waits for files.
#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/publication/listing.hpp"
#include "tools/service/publication_summary.hpp"

namespace zotconf {

// How often the folder is scanned while a client reads the view.
struct look_rhythm {
  std::chrono::milliseconds between_looks{1000};    // of the names, and of K files that changed
  std::chrono::milliseconds between_checks{60000};  // of a publication whose K has not changed
  std::chrono::milliseconds between_checks_of_problems{5000};
  std::chrono::milliseconds check_time{100};  // limit per scan for these checks
  std::chrono::milliseconds read_time{1000};  // limit per scan for K files that changed
  std::chrono::milliseconds rest_after{
      60000};  // scanning pauses if the view is not read for this time
};

class publication_view {
 public:
  using row = std::shared_ptr<const publication_summary>;

  struct snapshot {
    std::vector<row> rows;               // sorted by sub-system and index
    size_t read = 0;                     // how many rows are read
    std::optional<std::string> problem;  // why the folder cannot be read
    std::optional<std::time_t> looked;  // when the names were listed; nullopt before the first scan
  };

  // Starts to read at once and reads everything; after that, scans only while a client reads the
  // view.
  publication_view(fs::path folder, const publication_store &store, look_rhythm rhythm = {});
  publication_view(const publication_view &) = delete;
  publication_view &operator=(const publication_view &) = delete;
  ~publication_view();

  // Returns what is known now. Safe to call from several threads.
  [[nodiscard]] std::shared_ptr<const snapshot> latest();

 private:
  using clock = std::chrono::steady_clock;
  using name = std::pair<std::string, std::string>;  // sub-system and index

  struct known_publication {
    k_listing listed;
    std::optional<clock::time_point> checked;  // nullopt: K has changed since, or was never read
    row summary;
  };

  void run(const std::stop_token &stop);
  [[nodiscard]] clock::duration look(const std::stop_token &stop);
  [[nodiscard]] std::vector<k_listing> names_here();
  void list();
  [[nodiscard]] bool read_changed(const std::stop_token &stop);
  void check_oldest(const std::stop_token &stop);
  void read(known_publication &known) const;
  [[nodiscard]] bool is_due(const known_publication &known, clock::time_point now) const;
  void publish();
  void rest(const std::stop_token &stop, clock::duration pause);

  fs::path folder_;
  const publication_store &store_;
  look_rhythm rhythm_;
  std::map<name, known_publication> known_;  // used only by the thread, like problem_
  std::optional<std::string> problem_;
  std::mutex mutex_;
  std::condition_variable_any asked_;
  clock::time_point last_asked_ = clock::now();
  std::shared_ptr<const snapshot> latest_ = std::make_shared<snapshot>();
  std::jthread thread_;
};

}  // namespace zotconf
