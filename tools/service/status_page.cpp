// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_page.hpp"

#include <strings.h>

#include <algorithm>
#include <utility>
#include <variant>
#include <vector>

#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/service/page_answer.hpp"
#include "tools/service/status_json.hpp"
#include "tools/service/status_rows.hpp"

namespace zotconf {
namespace {

constexpr size_t tag_digits = 32;
// Allows only the page's own script and style, and requests only to its own service.
std::string page_policy() {
  return "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
         "connect-src 'self'; img-src data:; script-src " +
         source_hash(status_html, "script") + "; style-src " + source_hash(status_html, "style");
}

http_answer refused_answer(int status, const query_error &error) {
  json_document document;
  document.root()
      .set("error", error.parameter + " " + error.text)
      .set("parameter", error.parameter);
  return json_answer(status, document.line());
}

bool has_tag(const http_request &request, const std::string &tag) {
  return std::ranges::any_of(request.headers, [&tag](const http_header &header) {
    return ::strcasecmp(header.name.c_str(), "If-None-Match") == 0 &&
           header.value.find(tag) != std::string::npos;
  });
}

// Responds with 304 and no body if the client already has this content. The tag is made of `same`.
http_answer tagged_answer(const http_request &request, std::string body, const std::string &same) {
  const std::string tag = "W/\"" + sha256_text(same).substr(0, tag_digits) + "\"";
  http_answer answer =
      has_tag(request, tag) ? json_answer(304, "") : json_answer(200, std::move(body));
  answer.headers.push_back({"ETag", tag});
  return answer;
}

}  // namespace

bool status_page::is_asked(const http_request &request) {
  return (request.method == "GET" || request.method == "HEAD") &&
         (request.path == "/" || request.path == "/status.json" || request.path == "/element.json");
}

void status_page::set_address(const std::string &host, int port) {
  host_ = host;
  port_ = port;
}

http_answer status_page::status_answer(const http_request &request) {
  const auto query = parse_status_query(request.query);
  if (const auto *const error = std::get_if<query_error>(&query)) {
    return refused_answer(400, *error);
  }
  const auto &wanted = std::get<status_query>(query);
  json_document document;
  json_node root = document.root();
  json_node service = root.object("service");
  service.set("host", host_)
      .set("port", port_)
      .set("publication", folder_.string())
      .set("started", iso_time(started_));
  const auto published = view_.latest();
  describe_page(root, *published, select_rows(all_rows(*published, elements_), elements_, wanted),
                elements_, folder_);
  const request_log::view requests = requests_.latest();
  root.set("requests_total", requests.total);
  json_node list = root.array("requests");
  for (size_t i = 0; i < std::min(wanted.requests, requests.latest.size()); ++i) {
    describe(list.append(), requests.latest[i]);
  }
  // The tag does not include the uptime, which differs in each response.
  const std::string same = document.line();
  const auto up = std::chrono::steady_clock::now() - begin_;
  service.set("uptime_seconds", std::chrono::duration_cast<std::chrono::seconds>(up).count());
  return tagged_answer(request, document.line(), same);
}

http_answer status_page::element_answer(const http_request &request) {
  const auto query = parse_element_query(request.query);
  if (const auto *const error = std::get_if<query_error>(&query)) {
    return refused_answer(400, *error);
  }
  const auto &wanted = std::get<element>(query);
  const auto rows = all_rows(*view_.latest(), elements_);
  const auto row = std::ranges::find_if(rows, [&wanted](const publication_view::row &one) {
    return printable(one->who.subsys) == wanted.subsys && printable(one->who.index) == wanted.index;
  });
  if (row == rows.end()) {
    return refused_answer(404, {.parameter = "index", .text = "is not published"});
  }
  json_document document;
  describe_details(document.root(), row_of(*row, elements_), folder_);
  const std::string body = document.line();
  return tagged_answer(request, body, body);
}

std::optional<http_answer> status_page::answer(const http_request &request) {
  if (!is_asked(request)) {
    return std::nullopt;
  }
  if (request.path == "/") {
    static const std::string policy = page_policy();
    return page_answer(200, std::string(status_html), "text/html; charset=utf-8", policy);
  }
  return request.path == "/status.json" ? status_answer(request) : element_answer(request);
}

}  // namespace zotconf
