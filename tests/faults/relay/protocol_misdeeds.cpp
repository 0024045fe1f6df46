// SPDX-License-Identifier: Apache-2.0
// Statuses, headers and what is no HTTP.
#include <utility>

#include "tests/faults/relay/misdeed.hpp"

namespace zot::test {
namespace {

answering status(const std::string &line, const std::string &headers = "") {
  return always(send("HTTP/1.1 " + line + "\r\n" + headers + "Content-Length: 5\r\n\r\nsorry"));
}

std::vector<variant> unsigned_k() {
  return {{"signature", outcome::refused, "K is not signed"}};
}

misdeed other_session_each_time() {
  return {.name = "checksum: redirected to a page with another session each time",
          .apply =
              [](behaviour &changed, const cast &) {
                changed.act = [](const asked_file &asked, const answer &) {
                  return std::optional(send(
                      "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:@elsewhere@/?session=" +
                      std::to_string(asked.count) + "\r\nContent-Length: 0\r\n\r\n"));
                };
              },
          .reason = ".checksum: status 302, a redirection to http://127.0.0.1:"};
}

misdeeds statuses() {
  const std::string elsewhere = "Location: http://127.0.0.1:@elsewhere@/\r\n";
  misdeeds all;
  add(all,
      at_each({.name = "404", .reason = ": status 404"}, status("404 Not Found"), unsigned_k()));
  add(all,
      at_each({.name = "403", .reason = ": status 403"}, status("403 Forbidden"), unsigned_k()));
  add(all, at_each({.name = "500", .reason = ": status 500"}, status("500 Internal Server Error")));
  add(all, at_each({.name = "503 with Retry-After",
                    .reason = ": status 503",
                    .retry_after = std::chrono::seconds(77)},
                   status("503 Service Unavailable", "Retry-After: 77\r\n")));
  add(all, at_each({.name = "304 without a condition that holds", .reason = ": status 304"},
                   always(send("HTTP/1.1 304 Not Modified\r\n\r\n"))));
  add(all, at_each({.name = "204", .reason = ": status 204"},
                   always(send("HTTP/1.1 204 No Content\r\n\r\n"))));
  add(all, at_each({.name = "redirected to another server",
                    .reason = ": status 302, a redirection to http://127.0.0.1:"},
                   status("302 Found", elsewhere)));
  add(all, at_each({.name = "redirected from https to http",
                    .reason = ": status 301, a redirection to http://127.0.0.1:",
                    .setting = {.has_tls = true}},
                   status("301 Moved", elsewhere)));
  all.push_back(other_session_each_time());
  return all;
}

misdeeds headers() {
  const std::string too_many = ": headers of more than 65536 bytes";
  misdeeds all;
  add(all,
      at_each({.name = "headers without an end", .reason = too_many},
              always(send_without_end(ok_line, "X-Flood: " + std::string(1000, 'x') + "\r\n"))));
  add(all, at_each({.name = "an ETag of 1 MB", .reason = ": a header is too long"},
                   [](const answer &good) {
                     return send(std::string(ok_line) + "ETag: \"" + std::string(1U << 20, 'e') +
                                 "\"\r\nContent-Length: " + std::to_string(good.body.size()) +
                                 "\r\n\r\n" + good.body);
                   }));
  add(all, at_each({.name = "a negative length", .reason = ": the answer is not HTTP"},
                   [](const answer &good) {
                     return send(std::string(ok_line) + "Content-Length: -5\r\n\r\n" + good.body);
                   }));
  add(all, at_each({.name = "two lengths", .reason = ": the connection ended before all 1"},
                   [](const answer &good) {
                     const std::string size = std::to_string(good.body.size());
                     return send(std::string(ok_line) + "Content-Length: " + size +
                                 "\r\nContent-Length: 1" + size + "\r\n\r\n" + good.body);
                   },
                   {{"GPB file", outcome::failing, ": has 140001 bytes instead of 40001"}}));
  add(all, at_each({.name = "interim responses without an end", .reason = too_many},
                   always(send_without_end("", "HTTP/1.1 100 Continue\r\n\r\n"))));
  return all;
}

misdeeds no_http() {
  const std::string not_http = ": the answer is not HTTP";
  misdeeds all;
  add(all, at_each({.name = "bad chunks", .reason = ": the connection ended within the answer"},
                   always(send(std::string(ok_line) +
                               "Transfer-Encoding: chunked\r\n\r\nzz\r\nno chunk\r\n")),
                   {{"GPB file", outcome::failing, ": the connection ended before all 40001"}}));
  add(all, at_each({.name = "HTTP/0.9", .reason = not_http},
                   [](const answer &good) { return send(good.body); }));
  add(all, at_each({.name = "closed without an answer",
                    .reason = ": the connection ended without an answer"},
                   always(script())));
  add(all, at_each({.name = "bytes that are no HTTP", .reason = not_http},
                   always(send(std::string("\x15\x03\x01\0\x02\x02\x50\0\xff\xfe\r\n\r\n", 14)))));
  return all;
}

// A file breaks once, and the request for the rest is answered in this way.
misdeed after_a_break(const std::string &name, outcome expected, const std::string &reason,
                      const answering &how) {
  const auto apply = [how](behaviour &changed, const cast &) {
    changed.act = [how](const asked_file &asked, const answer &good) -> std::optional<script> {
      if (asked.path != large_file_path(offered)) {
        return std::nullopt;
      }
      const bool is_continued = asked.head.find("\r\nRange: ") != std::string::npos;
      return is_continued ? how(good) : send(good.head + good.body.substr(0, good.body.size() / 2));
    };
  };
  return {.name = "GPB file: " + name + ", after a break",
          .apply = apply,
          .expected = expected,
          .reason = reason.empty() ? "" : large_file_path(offered) + reason};
}

// A part of the file that begins at this byte.
script partial(const answer &good, std::size_t first) {
  const std::string size = std::to_string(good.body.size());
  return send("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(first) +
              "-" + std::to_string(first + good.body.size() - 1) +
              "/40001\r\nContent-Length: " + size + "\r\n\r\n" + good.body);
}

misdeeds ranges() {
  const std::string whole = large_file(offered);
  return {
      after_a_break("the rest", outcome::taken, "",
                    [](const answer &good) { return send(good.whole()); }),
      after_a_break("the whole file instead of the rest", outcome::taken, "",
                    [whole](const answer &) { return send(with_length(whole.size()) + whole); }),
      after_a_break("another range than asked for", outcome::failing, ": status 206",
                    [](const answer &good) { return partial(good, 7); }),
      after_a_break("the rest without its range", outcome::failing, ": status 206",
                    [](const answer &good) {
                      return send("HTTP/1.1 206 Partial Content\r\nContent-Length: " +
                                  std::to_string(good.body.size()) + "\r\n\r\n" + good.body);
                    }),
      after_a_break("416", outcome::failing, ": status 416", status("416 Range Not Satisfiable")),
      after_a_break(
          "other bytes", outcome::failing, ": does not have the SHA-256 that K states",
          [](const answer &good) { return send(good.head + std::string(good.body.size(), '7')); }),
      {.name = "GPB file: 206 without being asked",
       .apply = at(large_file_path(offered), [](const answer &good) { return partial(good, 10); }),
       .reason = large_file_path(offered) + ": status 206"}};
}

}  // namespace

misdeeds protocol_misdeeds() {
  misdeeds all = statuses();
  add(all, headers());
  add(all, no_http());
  add(all, ranges());
  return all;
}

}  // namespace zot::test
