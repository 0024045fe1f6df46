// SPDX-License-Identifier: Apache-2.0
// Bodies that are too short, too long, too slow or not those of the file.
#include <iterator>
#include <utility>

#include "tests/faults/relay/misdeed.hpp"

namespace zot::test {
namespace {

constexpr std::chrono::milliseconds short_silence{1000};

void add(misdeeds &all, misdeeds more) {
  all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

std::string half(const std::string &body) {
  return body.substr(0, body.size() / 2);
}

step end_with(step::kind what) {
  return {.what = what};
}

script half_and(const answer &good, step::kind what) {
  script steps = send(good.head + half(good.body));
  steps.push_back(end_with(what));
  return steps;
}

std::string plain_head() {
  return std::string(ok_line) + "Connection: close\r\n\r\n";
}

misdeeds short_bodies() {
  misdeeds all;
  add(all, at_each({.name = "closed in the middle"},
                   [](const answer &good) { return send(good.head + half(good.body)); }));
  add(all, at_each({.name = "reset in the middle"},
                   [](const answer &good) { return half_and(good, step::kind::reset); }));
  add(all, at_each({.name = "silent in the middle", .silence = short_silence},
                   [](const answer &good) { return half_and(good, step::kind::stall); }));
  add(all, at_each({.name = "byte by byte", .silence = short_silence}, [](const answer &good) {
        script steps = send(good.head);
        steps.push_back({.what = step::kind::drip, .bytes = good.body});
        return steps;
      }));
  add(all, at_each({.name = "cut in half, with that length"}, [](const answer &good) {
        const std::string body = half(good.body);
        return send(with_length(body.size()) + body);
      }));
  add(all, at_each({.name = "empty"}, always(send(with_length(0)))));
  return all;
}

misdeeds long_bodies() {
  misdeeds all;
  const std::string noise(65536, '7');
  add(all, at_each({.name = "endless, without a length", .memory = std::size_t{80} << 20},
                   always(send_without_end(plain_head(), noise))));
  add(all,
      at_each({.name = "endless, in chunks", .memory = std::size_t{80} << 20},
              always(send_without_end(std::string(ok_line) + "Transfer-Encoding: chunked\r\n\r\n",
                                      "10000\r\n" + noise + "\r\n"))));
  add(all, at_each({.name = "with a length of 1 TB", .memory = std::size_t{80} << 20},
                   always(send_without_end(with_length(std::size_t{1} << 40), noise))));
  add(all, at_each({.name = "one byte more, in the length too"}, [](const answer &good) {
        return send(with_length(good.body.size() + 1) + good.body + "7");
      }));
  return all;
}

misdeeds other_bodies() {
  misdeeds all;
  add(all, at_each({.name = "other bytes of the same length"}, [](const answer &good) {
        return send(good.head + std::string(good.body.size(), '7'));
      }));
  add(all, at_each({.name = "compressed without being asked"}, [](const answer &good) {
        return send(std::string(ok_line) + "Content-Encoding: gzip\r\nContent-Length: " +
                    std::to_string(good.body.size()) + "\r\n\r\n\x1f\x8b" + good.body.substr(2));
      }));
  add(all, at_each({.name = "a page of a captive portal"}, [](const answer &) {
        const std::string page = "<html><body>Please log in</body></html>";
        return send(with_length(page.size()) + page);
      }));
  return all;
}

}  // namespace

misdeeds transfer_misdeeds() {
  misdeeds all = short_bodies();
  add(all, long_bodies());
  add(all, other_bodies());
  return all;
}

}  // namespace zot::test
