// SPDX-License-Identifier: Apache-2.0
#include "tests/support/log_capture.hpp"

#include <algorithm>

namespace zot::test {

zot_log_ctl log_capture::ctl(std::uint32_t level, std::uint32_t facility, std::uint32_t option) {
  zot_log_ctl settings{};
  settings.facility = facility;
  settings.option = option;
  settings.level = level;
  settings.dst = ZOT_LOG_DST_CB_FUNC;
  settings.cb = &log_capture::receive;
  settings.cb_arg = this;
  return settings;
}

std::size_t log_capture::count(std::string_view text) const {
  const auto matches =
      std::ranges::count_if(lines_, [&](const log_record &line) { return line.text == text; });
  return static_cast<std::size_t>(matches);
}

const log_record *log_capture::find(std::string_view text) const {
  const auto found = std::ranges::find(lines_, text, &log_record::text);
  return found != lines_.end() ? &*found : nullptr;
}

std::optional<std::size_t> log_capture::index_of(std::string_view text) const {
  const log_record *found = find(text);
  if (found == nullptr) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - lines_.data());
}

bool log_capture::contains_part(std::string_view part) const {
  return find_part(part) != nullptr;
}

const log_record *log_capture::find_part(std::string_view part) const {
  const auto found = std::ranges::find_if(
      lines_, [&](const log_record &line) { return line.text.find(part) != std::string::npos; });
  return found != lines_.end() ? &*found : nullptr;
}

std::string log_capture::dump() const {
  std::string all;
  for (const log_record &line : lines_) {
    all += std::to_string(line.level) + " " + std::to_string(line.mask) + " " + line.func + ": " +
           line.text;
    if (!all.ends_with('\n')) {
      all += '\n';
    }
  }
  return all;
}

int log_capture::receive(zot_log_ctx *log_ctx, void *self, const char *line) {
  const zot_log_site site = zot_util_log_cb_func_get_conf_stat(log_ctx);
  const char *func = site.func != nullptr ? site.func : "";
  auto *const capture = static_cast<log_capture *>(self);
  capture->lines_.push_back({site.level, site.mask, site.line, func, line});
  if (capture->action_ && capture->awaited_ == line) {
    std::exchange(capture->action_, nullptr)();
  }
  return 0;
}

}  // namespace zot::test
