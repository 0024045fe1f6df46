// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/report_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

constexpr size_t longest_report_text = 300;

report_reading bad_report(std::string why) {
  return {.report = std::nullopt, .wrong = std::move(why)};
}

report_reading bad_report(const std::string &what, int error) {
  return bad_report(what + ": " + std::generic_category().message(error));
}

// Cuts between two characters.
std::string limited_text(std::string text) {
  if (text.size() <= longest_report_text) {
    return text;
  }
  size_t end = longest_report_text;
  while ((static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
    --end;
  }
  text.resize(end);
  return text + "...";
}

const cJSON *report_member(const cJSON *object, const char *name) {
  return cJSON_GetObjectItemCaseSensitive(object, name);
}

std::optional<std::string> stated_text(const cJSON *object, const char *name) {
  const char *const text = cJSON_GetStringValue(report_member(object, name));
  return text == nullptr ? std::nullopt : std::optional(limited_text(printable(text)));
}

std::string text_or_empty(const cJSON *object, const char *name) {
  return stated_text(object, name).value_or("");
}

element_report report_of(const cJSON *root) {
  const cJSON *const relay = report_member(root, "relay");
  const cJSON *const refused = report_member(root, "refused");
  return {.received = 0,
          .time = text_or_empty(root, "time"),
          .subsys = text_or_empty(root, "subsys"),
          .index = text_or_empty(root, "index"),
          .in_force = text_or_empty(report_member(root, "in_force"), "digest"),
          .refused = text_or_empty(refused, "digest"),
          .offered = text_or_empty(report_member(root, "offered"), "digest"),
          .relay_refused = text_or_empty(relay, "refused_digest"),
          .refusal = text_or_empty(refused, "reason"),
          .problem = stated_text(report_member(root, "problem"), "text"),
          .relay_problem = stated_text(relay, "problem"),
          .has_undo = cJSON_IsObject(report_member(root, "undo")) != 0};
}

}  // namespace

report_reading parse_report(const std::string &text) {
  if (text.size() > most_report_bytes) {
    return bad_report("it is larger than 64 KiB");
  }
  const zot::json_tree root = parse_json_object(text);
  if (root == nullptr) {
    return bad_report(text.empty() ? "it is empty" : "it is not a JSON object");
  }
  const cJSON *const format = report_member(root.get(), "format");
  if (cJSON_IsNumber(format) == 0 || format->valuedouble != 1) {
    return bad_report("its format is not 1");
  }
  return {.report = report_of(root.get()), .wrong = ""};
}

// O_NONBLOCK: a FIFO of this name must not block the open.
report_reading read_report(const folder &in, const std::string &name) {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const zot::descriptor file(::openat(in.get(), name.c_str(), flags));
  if (!file.is_open()) {
    const int error = errno;
    if (is_exhausted(error)) {
      throw_errno("cannot open " + (in.path() / name).string());
    }
    if (error == ENOENT) {
      return {};
    }
    return error == ELOOP ? bad_report("it is a symbolic link")
                          : bad_report("it cannot be opened", error);
  }
  struct stat info {};
  if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return bad_report("it is not a regular file");
  }
  try {
    report_reading reading =
        parse_report(read_beginning_at(file.get(), most_report_bytes + 1, name));
    if (reading.report) {
      reading.report->received = info.st_mtim.tv_sec;
    }
    return reading;
  } catch (const std::system_error &error) {
    return bad_report("it cannot be read", error.code().value());
  }
}

}  // namespace zotconf
