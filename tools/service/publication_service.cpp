// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_service.hpp"

#include <cjson/cJSON.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <regex>
#include <set>
#include <string_view>
#include <utility>

#include "tools/files/archive.hpp"
#include "tools/files/file_io.hpp"

namespace zotconf {
namespace {

constexpr const char *latest_path =
    R"(/file/knowledge/(AP|CP|DP)/([0-9A-Za-z:._-]{1,17})/latest/([0-9A-Za-z:._-]{1,17})\.(k|checksum))";

bool is_known_method(std::string_view method) {
  static constexpr std::array<std::string_view, 7> known = {"GET",    "HEAD",    "POST", "PUT",
                                                            "DELETE", "OPTIONS", "PATCH"};
  return std::ranges::find(known, method) != known.end();
}

http_answer file_answer(http_file file, const char *type, std::string result) {
  http_answer answer = text_answer("", type, std::move(result));
  answer.file = std::move(file);
  return answer;
}

std::string joined(const std::vector<std::string> &parts) {
  std::string name;
  for (const std::string &part : parts) {
    name += (name.empty() ? "" : "/") + part;
  }
  return name;
}

}  // namespace

std::optional<std::vector<std::string>> parse_file_request(const std::string &body) {
  std::vector<std::string> names;
  if (body.empty()) {
    return names;
  }
  const zot::json_tree root(cJSON_ParseWithLengthOpts(body.c_str(), body.size() + 1, nullptr, 1));
  const cJSON *const files = cJSON_GetObjectItem(root.get(), "files");
  if (!cJSON_IsArray(files)) {
    return std::nullopt;
  }
  for (const cJSON *item = files->child; item != nullptr; item = item->next) {
    if (!cJSON_IsString(item)) {
      return std::nullopt;
    }
    names.emplace_back(item->valuestring);
  }
  return names;
}

// A file that cannot be opened for lack of resources is not missing.
zot::descriptor publication_service::open(const std::vector<std::string> &parts) const {
  errno = 0;
  zot::descriptor file = store_.open_member(parts);
  if (!file.is_open() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
    throw_errno("cannot open " + joined(parts));
  }
  return file;
}

// A HEAD brings an element nothing. No answer fails because this does.
void publication_service::keep(const http_request &request, const element &who, bool is_k,
                               int file) const {
  if (request.method != "GET") {
    return;
  }
  try {
    if (file < 0) {
      elements_.add_refused(who, request.client);
    } else if (is_k) {
      elements_.add_k(who, request.client, file, store_.read_checksum(who));
    } else {
      elements_.add_checksum(who, request.client);
    }
  } catch (const std::exception &) {
    return;
  }
}

http_answer publication_service::latest(const http_request &request) const {
  static const std::regex form(latest_path);
  std::smatch match;
  if (!std::regex_match(request.path, match, form)) {
    return refused(404, "not found");
  }
  const element who{.subsys = match[1], .index = match[2]};
  if (match[3] != who.index || !check_index(who.index).empty()) {
    return refused(404, "not found");
  }
  const bool is_k = match[4] == "k";
  zot::descriptor file = open(latest_parts(who, is_k ? ".k" : ".checksum"));
  keep(request, who, is_k, file.get());
  struct stat info {};
  if (!file.is_open() || ::fstat(file.get(), &info) != 0) {
    http_answer missing = refused(404, "not published", request.path);
    missing.result = "not published";
    return missing;
  }
  return file_answer({.file = std::move(file), .size = static_cast<uint64_t>(info.st_size)},
                     is_k ? "application/json" : "text/plain",
                     is_k ? "sent K" : "sent the checksum");
}

http_answer publication_service::archive(const std::string &body,
                                         const std::stop_token &stop) const {
  const auto names = parse_file_request(body);
  if (!names) {
    return refused(400, R"(the body must be {"files": ["/config/...", ...]})");
  }
  gzip_tar packed(stop);
  std::set<std::vector<std::string>> seen;
  for (const std::string &name : *names) {
    const auto parts = split_member_name(name);
    if (!parts) {
      return refused(400, "not a name of the form /config/category/key/version", name);
    }
    if (!seen.insert(*parts).second) {
      continue;
    }
    const zot::descriptor file = open(*parts);
    if (!file.is_open()) {
      return refused(404, "no such file", name);
    }
    packed.add(file.get(), joined(*parts));
  }
  gzip_tar::finished made = packed.finish();
  return file_answer(
      {.file = std::move(made.file), .size = made.size}, "application/gzip",
      "sent " + std::to_string(seen.size()) + (seen.size() == 1 ? " file" : " files"));
}

bool publication_service::is_for_archive(const http_request &request) {
  return request.method == "POST" && request.path == "/tgz";
}

http_answer publication_service::answer(const http_request &request,
                                        const std::stop_token &stop) const {
  if (is_for_archive(request)) {
    return archive(request.body, stop);
  }
  if (!is_known_method(request.method)) {
    return refused(400, "request refused");
  }
  if (request.method == "GET" || request.method == "HEAD") {
    return latest(request);
  }
  return refused(404, "not found");
}

}  // namespace zotconf
