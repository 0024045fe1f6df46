// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_service.hpp"

#include <cjson/cJSON.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/files/archive.hpp"
#include "tools/files/digest.hpp"
#include "tools/files/file_io.hpp"
#include "tools/publication/publication_store.hpp"

namespace zotconf {
namespace {

// The files of an element that the service sends.
struct latest_kind {
  const char *suffix;
  const char *type;
  const char *result;
  latest_file_kind kind;
};

constexpr std::array<latest_kind, 3> latest_kinds = {{
    {".k", "application/json", "sent K", latest_file_kind::k},
    {".checksum", "text/plain", "sent the checksum", latest_file_kind::checksum},
    {".k.p7s", "application/pkcs7-signature", "sent the signature", latest_file_kind::signature},
}};

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

// A member of an archive does not exist.
class file_missing : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string sent_text(size_t files) {
  return "sent " + std::to_string(files) + (files == 1 ? " file" : " files");
}

// Equal for the same files in the same order.
std::string key_of(const std::vector<archive_name> &members) {
  sha256_stream digest;
  for (const archive_name &member : members) {
    digest.add(member_name(member.parts) + '\0');
  }
  return digest.text();
}

std::vector<std::string> split(const std::string &path) {
  std::vector<std::string> parts;
  std::istringstream text(path);
  for (std::string part; std::getline(text, part, '/');) {
    parts.push_back(part);
  }
  return parts;
}

// Parses /file/knowledge/SUBSYS/INDEX/latest/…; nullopt for any other path.
std::optional<element> element_of(const std::string &path) {
  constexpr size_t subsys = 3;
  constexpr size_t index = 4;
  const std::vector<std::string> parts = split(path);
  if (parts.size() <= index || !check_subsys(parts[subsys]).empty() ||
      !check_index(parts[index]).empty()) {
    return std::nullopt;
  }
  return element{.subsys = parts[subsys], .index = parts[index]};
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

// A lack of descriptors or memory must not be reported as a missing file.
zot::descriptor publication_service::open(const std::vector<std::string> &parts) const {
  errno = 0;
  zot::descriptor file = files_.open_member(parts);
  if (!file.is_open() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
    throw_errno("cannot open " + member_name(parts));
  }
  return file;
}

// HEAD does not count, because it sends no file. A signature does not count, because it does not
// show which K the element has. A failure here must not fail the response.
void publication_service::keep(const http_request &request, const element &who,
                               latest_file_kind kind, int file) const {
  if (request.method != "GET" || kind == latest_file_kind::signature) {
    return;
  }
  try {
    if (file < 0) {
      elements_.add_refused(who, request.client);
    } else if (kind == latest_file_kind::k) {
      elements_.add_k(who, request.client, file, files_.read_checksum(who));
    } else {
      elements_.add_checksum(who, request.client);
    }
  } catch (const std::exception &) {
    return;
  }
}

http_answer publication_service::latest(const http_request &request) const {
  const auto who = element_of(request.path);
  if (!who) {
    return refused(404, "not found");
  }
  for (const latest_kind &kind : latest_kinds) {
    const auto parts = latest_parts(*who, kind.suffix);
    if (request.path != "/" + member_name(parts)) {
      continue;
    }
    zot::descriptor file = open(parts);
    keep(request, *who, kind.kind, file.get());
    struct stat info {};
    if (!file.is_open() || ::fstat(file.get(), &info) != 0) {
      http_answer missing = refused(404, "not published", request.path);
      missing.result = "not published";
      return missing;
    }
    return file_answer({.file = std::move(file), .size = static_cast<uint64_t>(info.st_size)},
                       kind.type, kind.result);
  }
  return refused(404, "not found");
}

http_file publication_service::packed(const std::vector<archive_name> &members,
                                      const std::stop_token &stop) const {
  gzip_tar archive(stop,
                   archives_ != nullptr ? archives_->compression() : gzip_tar::default_compression);
  for (const archive_name &member : members) {
    const zot::descriptor file = open(member.parts);
    if (!file.is_open()) {
      throw file_missing(member.asked);
    }
    archive.add(file.get(), member_name(member.parts));
  }
  gzip_tar::finished made = archive.finish();
  return {.file = std::move(made.file), .size = made.size};
}

http_answer publication_service::archive(const std::string &body,
                                         const std::stop_token &stop) const {
  const auto names = parse_file_request(body);
  if (!names) {
    return refused(400, R"(the body must be {"files": ["/config/...", ...]})");
  }
  std::vector<archive_name> members;
  std::set<std::vector<std::string>> seen;
  for (const std::string &name : *names) {
    const auto parts = split_member_name(name);
    if (!parts) {
      return refused(400, "not a name of the form /config/category/key/version", name);
    }
    if (seen.insert(*parts).second) {
      members.push_back({.asked = name, .parts = *parts});
    }
  }
  const auto make = [&] { return packed(members, stop); };
  try {
    return file_answer(archives_ != nullptr ? archives_->get(key_of(members), make) : make(),
                       "application/gzip", sent_text(members.size()));
  } catch (const file_missing &missing) {
    return refused(404, "no such file", missing.what());
  }
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
