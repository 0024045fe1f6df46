// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_page.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <vector>

#include "tools/output/figures.hpp"
#include "tools/publication/published.hpp"

namespace zotconf {
namespace {

constexpr std::chrono::seconds between_looks{1};

std::string base64(const std::vector<unsigned char> &bytes) {
  static constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const size_t count = std::min<size_t>(bytes.size() - at, 3);
    uint32_t group = 0;
    for (size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < count ? bytes[at + i] : 0U);
    }
    for (size_t i = 0; i < 4; ++i) {
      text += i <= count ? digits[group >> (18 - 6 * i) & 63U] : '=';
    }
  }
  return text;
}

// How a policy names the page's own part between <tag> and </tag>: 'sha256-…'.
std::string source_hash(std::string_view html, const std::string &tag) {
  const size_t begin = html.find("<" + tag + ">") + tag.size() + 2;
  const std::string hex = sha256_text(html.substr(begin, html.find("</" + tag + ">") - begin));
  std::vector<unsigned char> bytes(hex.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::from_chars(hex.data() + 2 * i, hex.data() + 2 * i + 2, bytes[i], 16);
  }
  return "'sha256-" + base64(bytes) + "'";
}

// Nothing but the page's own script and style, and no address but its own service's.
std::string page_policy() {
  return "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
         "connect-src 'self'; img-src data:; script-src " +
         source_hash(status_html, "script") + "; style-src " + source_hash(status_html, "style");
}

http_answer page_answer(std::string body, const char *type, const std::string &policy) {
  return {.status = 200,
          .type = type,
          .body = std::move(body),
          .headers = {{"Cache-Control", "no-store"},
                      {"Content-Security-Policy", policy},
                      {"Referrer-Policy", "no-referrer"},
                      {"X-Content-Type-Options", "nosniff"}},
          .file = std::nullopt,
          .result = ""};
}

// A K that the service would not hand out, whatever it holds.
std::optional<std::string> why_not_served(const publication_store &store, const element &who) {
  if (!check_subsys(who.subsys).empty() || !check_index(who.index).empty()) {
    return "not served: the folder's name is no sub-system with an index";
  }
  if (!store.open_member(latest_parts(who, ".k")).is_open()) {
    return "not served: K cannot be read as a regular file of this folder";
  }
  if (!store.open_member(latest_parts(who, ".checksum")).is_open()) {
    return "not served: there is no checksum file that can be read";
  }
  return std::nullopt;
}

publication_summary summary_of(const element &who, const stored_k &k) {
  publication_summary summary{.who = who,
                              .damage = std::nullopt,
                              .cluster = k.cluster,
                              .config_id = k.config_id,
                              .firmware = k.firmware,
                              .checksum = k.checksum,
                              .written = k.written,
                              .all = {},
                              .categories = {}};
  if (k.wrong) {
    summary.damage = k.wrong->text;
  }
  for (const listed_file &file : k.files) {
    for (auto *const total : {&summary.all, &summary.categories[file.category_name]}) {
      ++total->entries;
      total->bytes += file.size;
    }
  }
  return summary;
}

// Null for what cannot be told.
std::optional<uint64_t> known(const publication_summary &summary, uint64_t figure) {
  return summary.damage ? std::nullopt : std::optional(figure);
}

void describe_publication(json_node into, const publication_summary &summary) {
  into.set("subsys", summary.who.subsys)
      .set("index", summary.who.index)
      .set("damaged", summary.damage.has_value())
      .set("reason", stated(summary.damage.value_or("")))
      .set("config_id", stated(summary.config_id))
      .set("cluster", stated(summary.cluster))
      .set("firmware", stated(summary.firmware))
      .set("checksum", stated(summary.checksum))
      .set("written", summary.written ? stated(iso_time(*summary.written)) : std::nullopt)
      .set("entries", known(summary, summary.all.entries))
      .set("bytes", known(summary, summary.all.bytes));
  json_node categories = into.array("categories");
  for (const auto &[name, total] : summary.categories) {
    categories.append()
        .set("category", name)
        .set("entries", total.entries)
        .set("bytes", total.bytes);
  }
}

}  // namespace

std::array<publication_view::file_stamp, 2> publication_view::stamps_of(const element &who) const {
  std::array<file_stamp, 2> stamps{};
  const std::array<const char *, 2> suffixes = {".k", ".checksum"};
  for (size_t i = 0; i < stamps.size(); ++i) {
    const fs::path path = latest_file(folder_, who, suffixes.at(i));
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
      stamps.at(i) = {static_cast<int64_t>(info.st_dev), static_cast<int64_t>(info.st_ino),
                      static_cast<int64_t>(info.st_size), info.st_mtim.tv_sec,
                      info.st_mtim.tv_nsec};
    }
  }
  return stamps;
}

// The stamps are older than what is read: a K that changes meanwhile is read again next time.
publication_view::known_publication publication_view::read(const element &who) const {
  known_publication found{.stamps = stamps_of(who), .summary = {}};
  found.summary.who = who;
  found.summary.damage = why_not_served(store_, who);
  if (!found.summary.damage) {
    found.summary = summary_of(who, read_published(folder_, who));
  }
  return found;
}

void publication_view::look() {
  std::map<name, known_publication> found;
  for (const element &who : published_elements(folder_)) {
    const name called(who.subsys, who.index);
    const auto known = known_.find(called);
    const bool is_same = known != known_.end() && known->second.stamps == stamps_of(who);
    found.emplace(called, is_same ? known->second : read(who));
  }
  known_ = std::move(found);
}

void publication_view::refresh() {
  const auto now = clock::now();
  if (looked_ && now - *looked_ < between_looks) {
    return;
  }
  problem_.reset();
  try {
    look();
  } catch (const std::exception &error) {
    problem_ = error.what();
    known_.clear();
  }
  looked_ = clock::now();
}

void publication_view::describe(json_node into) {
  const std::scoped_lock guard(mutex_);
  refresh();
  into.set("problem", problem_);
  json_node publications = into.array("publications");
  for (const auto &[called, publication] : known_) {
    describe_publication(publications.append(), publication.summary);
  }
}

bool status_page::is_asked(const http_request &request) {
  return (request.method == "GET" || request.method == "HEAD") &&
         (request.path == "/" || request.path == "/status.json");
}

void status_page::set_address(const std::string &host, int port) {
  host_ = host;
  port_ = port;
}

std::string status_page::status_json() {
  json_document document;
  json_node root = document.root();
  const auto up = std::chrono::steady_clock::now() - begin_;
  root.object("service")
      .set("host", host_)
      .set("port", port_)
      .set("publication", fs::absolute(folder_).lexically_normal().string())
      .set("started", iso_time(started_))
      .set("uptime_seconds", std::chrono::duration_cast<std::chrono::seconds>(up).count());
  view_.describe(root);
  const request_log::view requests = log_.latest();
  root.set("requests_total", requests.total);
  json_node list = root.array("requests");
  for (const request_record &request : requests.latest) {
    describe(list.append(), request);
  }
  return document.line();
}

std::optional<http_answer> status_page::answer(const http_request &request) {
  if (!is_asked(request)) {
    return std::nullopt;
  }
  if (request.path == "/") {
    static const std::string policy = page_policy();
    return page_answer(std::string(status_html), "text/html; charset=utf-8", policy);
  }
  return page_answer(status_json(), "application/json",
                     "default-src 'none'; frame-ancestors 'none'");
}

}  // namespace zotconf
