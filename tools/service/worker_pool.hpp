// SPDX-License-Identifier: Apache-2.0
// A few threads that do one job after the other, in the order in which the jobs were added.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <queue>
#include <thread>
#include <vector>

namespace zotconf {

class worker_pool {
 public:
  using job = std::function<void()>;

  explicit worker_pool(size_t threads);
  worker_pool(const worker_pool &) = delete;
  worker_pool &operator=(const worker_pool &) = delete;
  ~worker_pool() { close(); }

  // False after close(): the job is not done then.
  [[nodiscard]] bool add(job what);
  // Takes no more jobs and returns when all that were added are done.
  void close();

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable changed_;
  bool closed_ = false;
  std::queue<job> jobs_;
  std::vector<std::thread> threads_;
};

}  // namespace zotconf
