// SPDX-License-Identifier: Apache-2.0
// Threads that run jobs in the order in which they were added.
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

  // Returns false after close(); the job does not run then.
  [[nodiscard]] bool add(job what);
  // Accepts no more jobs, and returns when all added jobs are done.
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
