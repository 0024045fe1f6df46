// SPDX-License-Identifier: Apache-2.0
// Bodies that are too short, too long, too slow or not those of the file.
#include <utility>

#include "tests/faults/relay/misdeed.hpp"
#include "tests/support/archive.hpp"

namespace zot::test {
namespace {

constexpr std::chrono::milliseconds short_silence{1000};

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

// What each kind of file comes to when it arrives with other bytes.
std::vector<variant> unlike(const std::string &file_reason) {
  return {{"checksum", outcome::failing, ": is not a SHA-256 of 64 lower-case digits"},
          {"K", outcome::failing, "K does not match its checksum file"},
          {"signature", outcome::refused, "the signature is not DER"},
          {"GPB file", outcome::failing, file_reason}};
}

std::vector<variant> too_long(const std::string &file_reason) {
  return {{"checksum", outcome::failing, ": more than 1024 bytes"},
          {"K", outcome::failing, ": more than 67108864 bytes"},
          {"signature", outcome::failing, ": more than 65536 bytes"},
          {"GPB file", outcome::failing, file_reason}};
}

misdeeds short_bodies() {
  const std::string early_end = ": the connection ended before all";
  const std::string too_slow = ": less than 1 KiB/s for 1s";
  misdeeds all;
  add(all, at_each({.name = "closed in the middle", .reason = early_end},
                   [](const answer &good) { return send(good.head + half(good.body)); }));
  add(all, at_each({.name = "reset in the middle", .reason = early_end},
                   [](const answer &good) { return half_and(good, step::kind::reset); }));
  add(all, at_each({.name = "silent in the middle", .reason = too_slow, .silence = short_silence},
                   [](const answer &good) { return half_and(good, step::kind::stall); },
                   {{"GPB file", outcome::failing, ": nothing more for 1s"}}));
  add(all, at_each({.name = "byte by byte", .reason = too_slow, .silence = short_silence},
                   [](const answer &good) {
                     script steps = send(good.head);
                     steps.push_back({.what = step::kind::drip, .bytes = good.body});
                     return steps;
                   }));
  add(all, at_each(
               {.name = "cut in half, with that length"},
               [](const answer &good) {
                 const std::string body = half(good.body);
                 return send(with_length(body.size()) + body);
               },
               unlike(": has 20000 bytes instead of 40001")));
  add(all, at_each({.name = "empty"}, always(send(with_length(0))),
                   unlike(": has 0 bytes instead of 40001")));
  return all;
}

misdeeds long_bodies() {
  misdeeds all;
  const std::string noise(65536, '7');
  const std::string more_than_stated = ": more than 40001 bytes";
  // K may have 64 MiB. A buffer that grows takes the old one and the new one for a moment.
  constexpr std::size_t memory = std::size_t{110} << 20;
  add(all, at_each({.name = "endless, without a length", .memory = memory},
                   always(send_without_end(plain_head(), noise)), too_long(more_than_stated)));
  add(all,
      at_each({.name = "endless, in chunks", .memory = memory},
              always(send_without_end(std::string(ok_line) + "Transfer-Encoding: chunked\r\n\r\n",
                                      "10000\r\n" + noise + "\r\n")),
              too_long(more_than_stated)));
  add(all, at_each({.name = "with a length of 1 TB"},
                   always(send_without_end(with_length(std::size_t{1} << 40), noise)),
                   too_long(": has 1099511627776 bytes instead of 40001")));
  add(all, at_each(
               {.name = "one byte more, in the length too"},
               [](const answer &good) {
                 return send(with_length(good.body.size() + 1) + good.body + "7");
               },
               unlike(": has 40002 bytes instead of 40001")));
  return all;
}

// A short body that is long when it is decompressed.
const std::string &expanding_body() {
  static const std::string body =
      make_tar_gz({{.path = "long", .bytes = std::string(std::size_t{128} << 20, '7')}});
  return body;
}

misdeeds other_bodies() {
  const std::string wrong_bytes = ": does not have the SHA-256 that K states";
  misdeeds all;
  add(all,
      at_each(
          {.name = "other bytes of the same length"},
          [](const answer &good) { return send(good.head + std::string(good.body.size(), '7')); },
          unlike(wrong_bytes)));
  add(all, at_each({.name = "compressed, with bytes that are not",
                    .reason = ": the transfer failed: Error while processing content"},
                   [](const answer &good) {
                     return send(std::string(ok_line) +
                                 "Content-Encoding: gzip\r\nContent-Length: " +
                                 std::to_string(good.body.size()) + "\r\n\r\n\x1f\x8b" +
                                 good.body.substr(2));
                   },
                   {{"GPB file", outcome::failing, wrong_bytes}}));
  add(all, at_each(
               {.name = "compressed, 128 MB in the end", .memory = std::size_t{110} << 20},
               [](const answer &) {
                 const std::string &bytes = expanding_body();
                 return send(std::string(ok_line) + "Content-Encoding: gzip\r\nContent-Length: " +
                             std::to_string(bytes.size()) + "\r\n\r\n" + bytes);
               },
               too_long(": has ")));
  add(all, at_each(
               {.name = "a page of a captive portal"},
               [](const answer &) {
                 const std::string page = "<html><body>Please log in</body></html>";
                 return send(with_length(page.size()) + page);
               },
               unlike(": has 39 bytes instead of 40001")));
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
