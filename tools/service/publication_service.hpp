// SPDX-License-Identifier: Apache-2.0
// Serves publications: the latest K of an element, its checksum and its signature, and archives of
// the files that a client names.
#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "tools/publication/served_files.hpp"
#include "tools/service/archive_cache.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/http_types.hpp"

namespace zotconf {

enum class latest_file_kind { k, checksum, signature };

// A file that a client requests: as it wrote the name, and the parts of the path.
struct archive_name {
  std::string asked;
  std::vector<std::string> parts;
};

class publication_service {
 public:
  // Makes each archive when it is requested.
  publication_service(const served_files &files, element_log &elements)
      : files_(files), elements_(elements) {}
  // Sends an archive from the cache, which has to be one of these files.
  publication_service(const served_files &files, element_log &elements, archive_cache &archives)
      : files_(files), elements_(elements), archives_(&archives) {}

  // True for a request of an archive, which takes time.
  [[nodiscard]] static bool is_for_archive(const http_request &request);

  // Safe to call from several threads. Throws if the response cannot be made, or if a stop is
  // requested before it is complete.
  [[nodiscard]] http_answer answer(const http_request &request, const std::stop_token &stop) const;

 private:
  [[nodiscard]] http_answer latest(const http_request &request) const;
  [[nodiscard]] http_answer archive(const std::string &body, const std::stop_token &stop) const;
  [[nodiscard]] http_file packed(const std::vector<archive_name> &members,
                                 const std::stop_token &stop) const;
  void keep(const http_request &request, const element &who, latest_file_kind kind, int file) const;
  [[nodiscard]] zot::descriptor open(const std::vector<std::string> &parts) const;

  const served_files &files_;
  element_log &elements_;
  archive_cache *archives_ = nullptr;
};

// Parses a request body {"files": [...]}. An empty body means no names: a client whose
// configuration has no files sends it. Returns nullopt for any other text.
std::optional<std::vector<std::string>> parse_file_request(const std::string &body);

}  // namespace zotconf
