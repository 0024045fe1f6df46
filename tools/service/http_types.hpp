// SPDX-License-Identifier: Apache-2.0
// HTTP requests and responses as plain values. The code that makes responses does not depend on an
// HTTP library.
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
  std::string query;  // not decoded, without the "?"
  std::vector<http_header> headers;
  std::string body;
  std::string client;  // address
};

// An open file that is sent from its first byte.
struct http_file {
  zot::descriptor file{-1};
  uint64_t size = 0;
};

// Content-Length is the size of the body, or of the file that is sent instead of it.
struct http_answer {
  int status = 200;
  std::string type;  // Content-Type
  std::string body;
  std::vector<http_header> headers;  // additional headers
  std::optional<http_file> file;
  std::string result;  // outcome of the request, for the log

  [[nodiscard]] uint64_t size() const { return file ? file->size : body.size(); }
};

// A response with a short text.
http_answer text_answer(std::string body, const char *type, std::string result);
// An error as a JSON object: "error", and "file" if one is given.
http_answer refused(int status, const std::string &error, const std::string &file = "");

// Sets path and query from the target of a request line (the text between method and version).
void set_target(http_request &request, const std::string &target);

}  // namespace zotconf
