// SPDX-License-Identifier: Apache-2.0
#include "tools/service/worker_pool.hpp"

#include <utility>

namespace zotconf {

worker_pool::worker_pool(size_t threads) {
  for (size_t i = 0; i < threads; ++i) {
    threads_.emplace_back([this] { work(); });
  }
}

bool worker_pool::add(job what) {
  {
    const std::scoped_lock guard(mutex_);
    if (closed_) {
      return false;
    }
    jobs_.push(std::move(what));
  }
  changed_.notify_one();
  return true;
}

void worker_pool::close() {
  {
    const std::scoped_lock guard(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
  for (std::thread &each : threads_) {
    each.join();
  }
  threads_.clear();
}

void worker_pool::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return closed_ || !jobs_.empty(); });
    if (jobs_.empty()) {
      return;
    }
    const job next = std::move(jobs_.front());
    jobs_.pop();
    lock.unlock();
    next();
    lock.lock();
  }
}

}  // namespace zotconf
