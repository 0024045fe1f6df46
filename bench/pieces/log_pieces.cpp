// SPDX-License-Identifier: Apache-2.0
// Logging at a disabled level, and with a callback.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "bench/pieces/measure.hpp"
#include "bench/pieces/records.hpp"
#include "zot_conf.h"
#include "zot_log.hpp"

namespace zot::bench {

namespace {

constexpr const char *path = "/Wlan/7d0b6a52-41c5-4b0e-9d7e-000000000001/1700000000000";

// Receives the lines and keeps only the first.
struct swallowed {
  std::string first;
  std::uint64_t lines = 0;
};

int swallow(zot_log_ctx * /*log_ctx*/, void *arg, const char *line) {
  auto *const taken = static_cast<swallowed *>(arg);
  if (taken->lines++ == 0) {
    taken->first = line;
  }
  return 0;
}

class message {
 public:
  explicit message(std::uint32_t level) {
    handle_.log().level = level;
    zot_util_set_log_ctl_dst_cb_func(&handle_.log(), swallow, &taken_);
  }

 protected:
  // Logs like every operation of the library.
  bool log_as_the_library() {
    ++calls_;
    zot_ctx *handle = handle_.get();
    benchmark::DoNotOptimize(handle);
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GPB, "%sTake over: %s\n", path);
    return true;
  }
  // Logs without the test of the level before the call.
  bool log_by_the_call() {
    ++calls_;
    return zot_log(&handle_.get()->log_ctx, ZOT_LOG_INFO, ZOT_TOPIC_GPB, __LINE__, __func__,
                   "%sTake over: %s\n", "", path) == 0;
  }
  [[nodiscard]] bool is_each_delivered() const {
    return taken_.lines == calls_ &&
           taken_.first == "[log_as_the_library] Take over: " + std::string(path) + "\n";
  }
  [[nodiscard]] bool is_none_delivered() const { return calls_ > 0 && taken_.lines == 0; }

 private:
  bare_handle handle_;
  swallowed taken_;
  std::uint64_t calls_ = 0;
};

class log_disabled : message {
 public:
  log_disabled() : message(ZOT_LOG_WARN) {}
  bool run() { return log_as_the_library(); }
  [[nodiscard]] bool is_right() const { return is_none_delivered(); }
};

class log_disabled_call : message {
 public:
  log_disabled_call() : message(ZOT_LOG_WARN) {}
  bool run() { return log_by_the_call(); }
  [[nodiscard]] bool is_right() const { return is_none_delivered(); }
};

class log_enabled : message {
 public:
  log_enabled() : message(ZOT_LOG_INFO) {}
  bool run() { return log_as_the_library(); }
  [[nodiscard]] bool is_right() const { return is_each_delivered(); }
};

BENCHMARK(measure_call<log_disabled>)->Name("log_disabled");
BENCHMARK(measure_call<log_disabled_call>)->Name("log_disabled_call");
BENCHMARK(measure_call<log_enabled>)->Name("log_enabled");

}  // namespace

}  // namespace zot::bench
