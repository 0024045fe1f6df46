// SPDX-License-Identifier: Apache-2.0
// Statuses, headers and what is no HTTP.
#include <iterator>
#include <utility>

#include "tests/faults/relay/misdeed.hpp"

namespace zot::test {
namespace {

void add(misdeeds &all, misdeeds more) {
  all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

answering status(const std::string &line, const std::string &headers = "") {
  return always(send("HTTP/1.1 " + line + "\r\n" + headers + "Content-Length: 5\r\n\r\nsorry"));
}

misdeeds statuses() {
  misdeeds all;
  add(all, at_each({.name = "404"}, status("404 Not Found")));
  add(all, at_each({.name = "403"}, status("403 Forbidden")));
  add(all, at_each({.name = "500"}, status("500 Internal Server Error")));
  add(all, at_each({.name = "503 with Retry-After", .retry_after = std::chrono::seconds(77)},
                   status("503 Service Unavailable", "Retry-After: 77\r\n")));
  add(all, at_each({.name = "304 without a condition that holds"},
                   always(send("HTTP/1.1 304 Not Modified\r\n\r\n"))));
  add(all, at_each({.name = "redirected to another server"},
                   status("302 Found", "Location: http://127.0.0.1:@elsewhere@/\r\n")));
  add(all, at_each({.name = "redirected from https to http", .setting = {.has_tls = true}},
                   status("301 Moved", "Location: http://127.0.0.1:@elsewhere@/\r\n")));
  add(all, at_each({.name = "204"}, always(send("HTTP/1.1 204 No Content\r\n\r\n"))));
  return all;
}

misdeeds headers() {
  misdeeds all;
  add(all,
      at_each({.name = "headers without an end", .memory = std::size_t{8} << 20},
              always(send_without_end(ok_line, "X-Flood: " + std::string(1000, 'x') + "\r\n"))));
  add(all, at_each({.name = "an ETag of 1 MB"}, [](const answer &good) {
        return send(std::string(ok_line) + "ETag: \"" + std::string(1U << 20, 'e') +
                    "\"\r\nContent-Length: " + std::to_string(good.body.size()) + "\r\n\r\n" +
                    good.body);
      }));
  add(all, at_each({.name = "a negative length"}, [](const answer &good) {
        return send(std::string(ok_line) + "Content-Length: -5\r\n\r\n" + good.body);
      }));
  add(all, at_each({.name = "two lengths"}, [](const answer &good) {
        const std::string size = std::to_string(good.body.size());
        return send(std::string(ok_line) + "Content-Length: " + size + "\r\nContent-Length: 1" +
                    size + "\r\n\r\n" + good.body);
      }));
  add(all, at_each({.name = "interim responses without an end", .silence = std::chrono::seconds(1)},
                   always(send_without_end("", "HTTP/1.1 100 Continue\r\n\r\n"))));
  return all;
}

misdeeds no_http() {
  misdeeds all;
  add(all, at_each({.name = "bad chunks"},
                   always(send(std::string(ok_line) +
                               "Transfer-Encoding: chunked\r\n\r\nzz\r\nno chunk\r\n"))));
  add(all, at_each({.name = "HTTP/0.9"}, [](const answer &good) { return send(good.body); }));
  add(all, at_each({.name = "closed without an answer"}, always(script())));
  add(all, at_each({.name = "bytes that are no HTTP"},
                   always(send(std::string("\x15\x03\x01\0\x02\x02\x50\0\xff\xfe\r\n\r\n", 14)))));
  return all;
}

// A file breaks once, and the request for the rest is answered in this way.
misdeed after_a_break(const std::string &name, const std::function<script(const answer &)> &how) {
  return {.name = "GPB file: " + name + ", after a break",
          .apply = [=](behaviour &changed, const cast &) {
            changed.act = [=](const asked_file &asked,
                              const answer &good) -> std::optional<script> {
              if (asked.path != large_file_path(offered)) {
                return std::nullopt;
              }
              return asked.head.find("\r\nRange: ") == std::string::npos
                         ? send(good.head + good.body.substr(0, good.body.size() / 2))
                         : how(good);
            };
          }};
}

misdeeds ranges() {
  const std::string whole = large_file(offered);
  misdeeds all;
  all.push_back(after_a_break("the rest", [](const answer &good) { return send(good.whole()); }));
  all.push_back(after_a_break("the whole file instead of the rest", [whole](const answer &) {
    return send(with_length(whole.size()) + whole);
  }));
  all.push_back(after_a_break("another range than asked for", [](const answer &good) {
    return send("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 7-" +
                std::to_string(6 + good.body.size()) + "/40001\r\nContent-Length: " +
                std::to_string(good.body.size()) + "\r\n\r\n" + good.body);
  }));
  all.push_back(after_a_break("the rest without its range", [](const answer &good) {
    return send("HTTP/1.1 206 Partial Content\r\nContent-Length: " +
                std::to_string(good.body.size()) + "\r\n\r\n" + good.body);
  }));
  all.push_back(after_a_break("416", status("416 Range Not Satisfiable")));
  all.push_back(after_a_break("other bytes", [](const answer &good) {
    return send(good.head + std::string(good.body.size(), '7'));
  }));
  all.push_back({.name = "GPB file: 206 without being asked",
                 .apply = at(large_file_path(offered), [](const answer &good) {
                   return send("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 10-" +
                               std::to_string(9 + good.body.size()) + "/50000\r\nContent-Length: " +
                               std::to_string(good.body.size()) + "\r\n\r\n" + good.body);
                 })});
  return all;
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
