// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/archive_requests.hpp"

#include <cjson/cJSON.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

#include "tools/probe/archive_check.hpp"

namespace zotconf {
namespace {

constexpr const char *archive_path = "/tgz";
constexpr size_t blanks_of_large_body = size_t{2} << 20;

// Requests an archive in a new folder.
class archive_request {
 public:
  explicit archive_request(const subject &on) : on_(on), folder_(on.folder) {
    fs::create_directory(unpacked());
  }

  [[nodiscard]] reply send(const service_client::post_request &request) const {
    return on_.service.post(archive_path, request, archive());
  }

  // Throws unless the answer is an archive with these files.
  void expect(service_client::post_request request, std::span<const listed_file> files) const {
    request.limit = largest_archive(files);
    if (const reply came = send(request); !came.wrong.empty()) {
      throw std::runtime_error("POST /tgz: " + came.wrong);
    }
    expect_archive(archive(), files, unpacked());
  }

 private:
  [[nodiscard]] fs::path archive() const { return folder_.path() / "gpb.tgz"; }
  [[nodiscard]] fs::path unpacked() const { return folder_.path() / "unpacked"; }

  const subject &on_;
  temporary_folder folder_;
};

std::span<const listed_file> first_of(const subject &on) {
  return std::span(on.k.value().files).first(1);
}

std::span<const listed_file> last_of(const subject &on) {
  return std::span(on.k.value().files).last(1);
}

std::string body_of_names(const std::vector<std::string> &names) {
  const zot::json_tree root(cJSON_CreateObject());
  cJSON *const files = cJSON_AddArrayToObject(root.get(), "files");
  for (const std::string &name : names) {
    if (!cJSON_AddItemToArray(files, cJSON_CreateString(name.c_str()))) {
      throw std::bad_alloc();
    }
  }
  const zot::c_text text(cJSON_Print(root.get()));
  if (text == nullptr) {
    throw std::bad_alloc();
  }
  return text.get();
}

std::string name_with_two_slashes(const listed_file &file) {
  return "/config/" + file.path;
}

// What happens to a request that is the same but for the slashes.
std::string with_one_slash(const subject &on, std::span<const listed_file> file) {
  try {
    archive_request(on).expect({.body = body_of_names({"/config" + file.front().path})}, file);
    return "; with one slash the file came";
  } catch (const std::runtime_error &) {
    return "; nor did the file come with one slash";
  }
}

}  // namespace

std::string request_body(std::span<const listed_file> files) {
  std::vector<std::string> names;
  std::ranges::transform(files, std::back_inserter(names), name_with_two_slashes);
  return body_of_names(names);
}

void check_all_files(subject &on) {
  const std::vector<listed_file> &files = on.k.value().files;
  // As the library does it.
  const std::string body = files.empty() ? "" : request_body(files);
  archive_request(on).expect({.body = body}, files);
}

void check_one_file(subject &on) {
  const std::span<const listed_file> file = first_of(on);
  archive_request(on).expect({.body = request_body(file)}, file);
}

void check_double_slashes(subject &on) {
  const std::span<const listed_file> file = last_of(on);
  try {
    archive_request(on).expect({.body = request_body(file)}, file);
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(name_with_two_slashes(file.front()) + ": " + error.what() +
                             with_one_slash(on, file));
  }
}

void check_no_files(subject &on) {
  archive_request(on).expect({.body = R"({"files": []})"}, {});
}

void check_empty_body(subject &on) {
  archive_request(on).expect({}, {});
}

void check_expect_continue(subject &on) {
  const std::span<const listed_file> file = first_of(on);
  archive_request(on).expect({.body = request_body(file), .expects_continue = true}, file);
}

void check_large_body(subject &on) {
  const std::span<const listed_file> file = first_of(on);
  std::string body = request_body(file);
  body.insert(1, blanks_of_large_body, ' ');
  archive_request(on).expect({.body = std::move(body)}, file);
}

void check_missing_file(subject &on) {
  constexpr long accepted = 200;
  const auto &files = on.k.value().files;
  std::vector<std::string> names;
  if (!files.empty()) {
    names.push_back(name_with_two_slashes(files.front()));
  }
  names.emplace_back("/config//Wlan/zotconf-probe-missing/1");
  const reply came =
      archive_request(on).send({.body = body_of_names(names), .limit = largest_archive(files)});
  if (came.status == 0) {
    throw std::runtime_error("POST /tgz: " + came.wrong);
  }
  if (came.status == accepted) {
    throw std::runtime_error("POST /tgz: status 200");
  }
}

}  // namespace zotconf
