// SPDX-License-Identifier: Apache-2.0
// Responses for a browser, with the headers that keep a page to itself.
#pragma once

#include <string>
#include <string_view>

#include "tools/service/http_types.hpp"

namespace zotconf {

// The source expression of the content security policy for the page's own text between <tag> and
// </tag>: 'sha256-…'.
std::string source_hash(std::string_view html, const std::string &tag);

// A response that is not stored. `policy` is its content security policy.
http_answer page_answer(int status, std::string body, const char *type, const std::string &policy);

// The same for a JSON document, which loads nothing.
http_answer json_answer(int status, std::string body);

}  // namespace zotconf
