// SPDX-License-Identifier: Apache-2.0
// Collects the messages of a handle through its log callback.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zot_conf.h"

namespace zot::test {

struct log_record {
  std::uint32_t level = 0;
  std::uint32_t mask = 0;
  long line = 0;
  std::string func;
  std::string text;  // with its newline, and with the prefix if the options request one
};

class log_capture {
 public:
  static constexpr std::uint32_t every_topic = 0xff;

  log_capture() = default;
  log_capture(const log_capture &) = delete;
  log_capture &operator=(const log_capture &) = delete;

  // Log settings that deliver here. They refer to this object, which must outlive the handle.
  [[nodiscard]] zot_log_ctl ctl(std::uint32_t level = ZOT_LOG_DEBUG,
                                std::uint32_t facility = every_topic, std::uint32_t option = 0);

  [[nodiscard]] const std::vector<log_record> &lines() const { return lines_; }
  void clear() { lines_.clear(); }
  // Runs an action once, when a message arrives, that is, in the middle of a call.
  void when(std::string text, std::function<void()> action) {
    awaited_ = std::move(text);
    action_ = std::move(action);
  }

  // Complete messages, including the newline.
  [[nodiscard]] bool contains(std::string_view text) const { return find(text) != nullptr; }
  [[nodiscard]] std::size_t count(std::string_view text) const;
  // The first such message or null, valid until the next message arrives.
  [[nodiscard]] const log_record *find(std::string_view text) const;
  // The position of the first such message, for tests of the order.
  [[nodiscard]] std::optional<std::size_t> index_of(std::string_view text) const;

  // Messages that contain a text anywhere.
  [[nodiscard]] bool contains_part(std::string_view part) const;
  [[nodiscard]] const log_record *find_part(std::string_view part) const;

  // All collected messages in order, to explain a failure.
  [[nodiscard]] std::string dump() const;

 private:
  static int receive(zot_log_ctx *log_ctx, void *self, const char *line);

  std::vector<log_record> lines_;
  std::string awaited_;
  std::function<void()> action_;
};

}  // namespace zot::test
