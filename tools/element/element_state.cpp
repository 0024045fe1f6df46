// SPDX-License-Identifier: Apache-2.0
#include "tools/element/element_state.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "tools/files/digest.hpp"

namespace zotconf {
namespace {

constexpr int state_format = 1;
constexpr size_t most_text_bytes = 1024;

void describe_name(json_node into, const configuration_name &which) {
  into.set("digest", which.digest).set("config_id", stated(which.config_id));
}

[[noreturn]] void refuse_member(const char *name) {
  throw std::runtime_error(std::string("the member \"") + name + "\" is wrong");
}

// Null stands for a member that is null. One that is missing, or no object, is wrong.
const cJSON *object_or_null(const cJSON *from, const char *name) {
  const cJSON *const item = cJSON_GetObjectItemCaseSensitive(from, name);
  if (cJSON_IsNull(item) != 0) {
    return nullptr;
  }
  if (cJSON_IsObject(item) == 0) {
    refuse_member(name);
  }
  return item;
}

// Empty stands for null.
std::string text_or_null(const cJSON *from, const char *name) {
  const cJSON *const item = cJSON_GetObjectItemCaseSensitive(from, name);
  if (cJSON_IsNull(item) != 0) {
    return "";
  }
  const char *const text = cJSON_GetStringValue(item);
  if (text == nullptr) {
    refuse_member(name);
  }
  return short_text(text);
}

std::string required_text(const cJSON *from, const char *name) {
  std::string text = text_or_null(from, name);
  if (text.empty()) {
    refuse_member(name);
  }
  return text;
}

std::string digest_or_null(const cJSON *from) {
  std::string digest = text_or_null(from, "digest");
  if (!digest.empty() && !is_digest(digest)) {
    refuse_member("digest");
  }
  return digest;
}

// Empty stands for null.
std::string time_or_null(const cJSON *from, const char *name) {
  constexpr size_t length = std::string_view("2026-11-23T11:00:00Z").size();
  std::string text = text_or_null(from, name);
  std::tm parts{};
  const char *const end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  const bool is_time = end != nullptr && *end == '\0' && text.size() == length;
  if (!text.empty() && !is_time) {
    refuse_member(name);
  }
  return text;
}

configuration_name parse_name(const cJSON *from) {
  configuration_name which{.digest = digest_or_null(from),
                           .config_id = text_or_null(from, "config_id")};
  if (which.digest.empty()) {
    refuse_member("digest");
  }
  return which;
}

void parse_members(const cJSON *root, element_state &state) {
  if (const cJSON *const item = object_or_null(root, "in_force")) {
    state.in_force = parse_name(item);
  }
  if (const cJSON *const item = object_or_null(root, "refused")) {
    state.refused = {.which = parse_name(item),
                     .reason = text_or_null(item, "reason"),
                     .time = time_or_null(item, "time")};
  }
  if (const cJSON *const item = object_or_null(root, "undo")) {
    state.undo = {.digest = digest_or_null(item), .time = time_or_null(item, "time")};
  }
  if (const cJSON *const item = object_or_null(root, "problem")) {
    state.problem = {.text = required_text(item, "text"), .since = time_or_null(item, "since")};
  }
}

}  // namespace

std::string short_text(std::string_view text) {
  return printable(text.substr(0, most_text_bytes));
}

void describe_configurations(json_node into, const std::optional<element_state> &state) {
  if (state && state->in_force) {
    describe_name(into.object("in_force"), *state->in_force);
  }
  if (state && state->refused) {
    json_node refused = into.object("refused");
    describe_name(refused, state->refused->which);
    refused.set("reason", stated(state->refused->reason)).set("time", stated(state->refused->time));
  }
  if (state && state->undo) {
    into.object("undo")
        .set("digest", stated(state->undo->digest))
        .set("time", stated(state->undo->time));
  }
  if (state && state->problem) {
    into.object("problem")
        .set("text", state->problem->text)
        .set("since", stated(state->problem->since));
  }
  into.set_missing({"in_force", "refused", "undo", "problem"});
}

std::string element_state_text(const element_state &state, const std::string &time) {
  json_document document;
  document.root()
      .set("format", state_format)
      .set("time", time)
      .set("version", state.version)
      .set("subsys", state.who.subsys)
      .set("index", state.who.index);
  describe_configurations(document.root(), state);
  return document.text();
}

element_state parse_element_state(const std::string &text) {
  const zot::json_tree tree = parse_json_object(text);
  if (tree == nullptr) {
    throw std::runtime_error("not a JSON object");
  }
  const cJSON *const format = cJSON_GetObjectItemCaseSensitive(tree.get(), "format");
  if (cJSON_IsNumber(format) == 0 || format->valuedouble != state_format) {
    refuse_member("format");
  }
  element_state state{.version = required_text(tree.get(), "version"),
                      .who = {.subsys = required_text(tree.get(), "subsys"),
                              .index = required_text(tree.get(), "index")},
                      .in_force = {},
                      .refused = {},
                      .undo = {},
                      .problem = {}};
  parse_members(tree.get(), state);
  return state;
}

element_state read_element_state(const fs::path &path) {
  // O_NONBLOCK: a FIFO at the path must not block the open.
  const zot::descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info {};
  if (!file.is_open() || ::fstat(file.get(), &info) != 0) {
    throw_errno("cannot open " + path.string());
  }
  if (!S_ISREG(info.st_mode)) {
    throw std::runtime_error(path.string() + ": not a regular file");
  }
  const std::string text = read_beginning_at(file.get(), most_state_bytes + 1, path.string());
  if (text.size() > most_state_bytes) {
    throw std::runtime_error(path.string() + ": more than " + std::to_string(most_state_bytes) +
                             " bytes");
  }
  try {
    return parse_element_state(text);
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(path.string() + ": " + error.what());
  }
}

void write_element_state(const fs::path &path, std::string_view text) {
  constexpr mode_t for_everybody = 0644;
  check_replaceable(path);
  replacement next(path);
  const fs::path temporary = temporary_beside(path);
  zot::descriptor file(::open(
      temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, for_everybody));
  if (!file.is_open()) {
    throw_errno("cannot create " + temporary.string());
  }
  write_all(file.get(), text, temporary.string());
  const bool is_ready = ::fchmod(file.get(), for_everybody) == 0 && ::fsync(file.get()) == 0;
  if (!is_ready || file.close() != 0) {
    throw_errno("cannot write " + temporary.string());
  }
  next.finish();
}

}  // namespace zotconf
