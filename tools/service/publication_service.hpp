// SPDX-License-Identifier: Apache-2.0
// What is answered for a publication folder: the latest K of an element, its checksum, and archives
// of the files that a client names.
#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "tools/publication/publication_store.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/http_types.hpp"

namespace zotconf {

class publication_service {
 public:
  publication_service(const publication_store &store, element_log &elements)
      : store_(store), elements_(elements) {}

  // True for a request whose answer is an archive, which takes its time.
  [[nodiscard]] static bool is_for_archive(const http_request &request);

  // May be called by several threads at once. Throws when the answer cannot be made, or a stop is
  // asked for meanwhile.
  [[nodiscard]] http_answer answer(const http_request &request, const std::stop_token &stop) const;

 private:
  [[nodiscard]] http_answer latest(const http_request &request) const;
  [[nodiscard]] http_answer archive(const std::string &body, const std::stop_token &stop) const;
  void keep(const http_request &request, const element &who, bool is_k, int file) const;
  [[nodiscard]] zot::descriptor open(const std::vector<std::string> &parts) const;

  const publication_store &store_;
  element_log &elements_;
};

// The names of a request body {"files": [...]}. An empty body names nothing: that is what a client
// sends whose configuration has no files. Nothing for any other text.
std::optional<std::vector<std::string>> parse_file_request(const std::string &body);

}  // namespace zotconf
