// SPDX-License-Identifier: Apache-2.0
// HTTP requests and their answers as plain values. What answers a request knows no HTTP library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "utilities/owner.hpp"

namespace zotconf {

struct http_header {
  std::string name;
  std::string value;
};

struct http_request {
  std::string method;
  std::string path;   // percent-decoded, without the query
  std::string query;  // as it was sent, after the "?"
  std::vector<http_header> headers;
  std::string body;
  std::string client;  // address
};

// An open file that is sent from its first byte on.
struct http_file {
  zot::descriptor file{-1};
  uint64_t size = 0;
};

// Content-Length comes from the body, or from the file that is sent in its place.
struct http_answer {
  int status = 200;
  std::string type;  // Content-Type
  std::string body;
  std::vector<http_header> headers;  // any further ones
  std::optional<http_file> file;
  std::string result;  // what became of the request, for the log

  [[nodiscard]] uint64_t size() const { return file ? file->size : body.size(); }
};

// A short text.
http_answer text_answer(std::string body, const char *type, std::string result);
// An error as a JSON object: "error", and "file" when one is given.
http_answer refused(int status, const std::string &error, const std::string &file = "");

// Sets path and query of what stands in a request line between the method and the version.
void set_target(http_request &request, const std::string &target);

}  // namespace zotconf
