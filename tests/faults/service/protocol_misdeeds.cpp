// SPDX-License-Identifier: Apache-2.0
// Answers that are not HTTP, or that contain more than was requested.
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "tests/faults/service/misdeed.hpp"
#include "zot_conf.h"

namespace zot::test {
namespace {

using namespace std::string_literals;

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t largest_disk = std::size_t{64} * kibibyte * kibibyte + 256 * kibibyte;

const outcome fine{.what = outcome::kind::fine};
const outcome broken{.what = outcome::kind::broken};
const outcome slow{.what = outcome::kind::slow};
const outcome exceeded{.what = outcome::kind::exceeded};

outcome http(int code) {
  return {.what = outcome::kind::http, .code = code};
}

outcome corrupted(std::string text) {
  return {.what = outcome::kind::told, .code = ZOT_ERR_CORRUPTED, .text = std::move(text)};
}

// A body that lost something on its way: each file has a check of its own.
std::function<outcome(request_kind)> damaged(const std::string &checksum_text) {
  return [checksum_text](request_kind kind) {
    switch (kind) {
      case request_kind::checksum:
        return corrupted(checksum_text);
      case request_kind::k:
        return corrupted("[zot_priv_get_new_k_by_host]: New checksum = ");
      default:
        return corrupted("[ap_download_gpb]: fail to run \"tar zxvf ");
    }
  };
}

// The whole answer as it stands, whatever was asked for.
misdeed says(std::string name, std::string bytes, const outcome &expected) {
  return {
      .name = std::move(name), .act = always(send(std::move(bytes))), .expected = always(expected)};
}

// The good body below another head.
misdeed heads(std::string name, const std::string &head, const outcome &expected,
              const std::string &tail = "") {
  return {.name = std::move(name),
          .act = [head, tail](const answer &good) { return send(head + good.body + tail); },
          .expected = always(expected)};
}

std::string chunk_of(const std::string &bytes) {
  char size[17];
  std::snprintf(size, sizeof size, "%zx", bytes.size());
  return size + "\r\n"s + bytes + "\r\n";
}

void add_lengths(misdeeds &all) {
  const auto announcing = [&](std::string name, std::ptrdiff_t more, const script &end,
                              std::function<outcome(request_kind)> expected) {
    all.push_back({.name = std::move(name),
                   .act =
                       [more, end](const answer &good) {
                         const auto length = static_cast<std::ptrdiff_t>(good.body.size()) + more;
                         script steps =
                             send(with_length(static_cast<std::size_t>(length)) + good.body);
                         steps.insert(steps.end(), end.begin(), end.end());
                         return steps;
                       },
                   .expected = std::move(expected)});
  };
  announcing("announces a byte more and closes", 1, {}, always(broken));
  announcing("announces a byte more and stalls", 1, {{.what = step::kind::stall}}, always(slow));
  announcing("announces two bytes less", -2, {}, damaged("Wrong checksum size: 63"));
  // An archive ends with zeros that nobody misses.
  all.back().at = both_knowledge_files;
  all.push_back({.name = "announces a part of the body",
                 .at = bit_of(request_kind::archive),
                 .act =
                     [](const answer &good) {
                       const std::size_t packed = good.body.find_last_not_of('\0') + 1;
                       return send(with_length(packed / 2) + good.body);
                     },
                 .expected = damaged("")});

  all.push_back({.name = "announces an empty body",
                 .act = [](const answer &good) { return send(with_length(0) + good.body); },
                 .expected =
                     [](request_kind kind) {
                       return kind == request_kind::archive
                                  ? corrupted("[ap_download_gpb]: fail to run \"tar zxvf ")
                                  : http(200);
                     }});
  const std::string name = std::string(ok_line) + "Content-Length: ";
  all.push_back(heads("announces a negative length", name + "-1\r\n\r\n", broken));
  all.push_back(heads("announces a length of 2^64", name + "18446744073709551616\r\n\r\n", broken));
  all.push_back(heads("announces a length of 2^63", name + "9223372036854775808\r\n\r\n", broken));
  all.push_back(heads("announces a length in words", name + "many\r\n\r\n", broken));
}

void add_chunks(misdeeds &all) {
  const std::string head = std::string(ok_line) + "Transfer-Encoding: chunked\r\n\r\n";
  all.push_back({.name = "sends chunks",
                 .act =
                     [head](const answer &good) {
                       return send(head + chunk_of(good.body.substr(0, 10)) +
                                   chunk_of(good.body.substr(10)) + "0\r\n\r\n");
                     },
                 .expected = always(fine)});
  all.push_back(says("sends no chunk size", head + "zzzz\r\nbody\r\n0\r\n\r\n", broken));
  all.push_back(says("sends a negative chunk size", head + "-5\r\nbody\r\n0\r\n\r\n", broken));
  all.push_back(says("sends a chunk size of 2^68", head + "10000000000000000\r\nbody\r\n", broken));
  all.push_back(says("sends a chunk size without end", head + std::string(4096, '1'), broken));
  all.push_back(says("closes in a chunk size", head + "10", broken));
  all.push_back(says("closes in a chunk", head + "10\r\nbody", broken));
  all.push_back(says("closes before the last chunk", head + "4\r\nbody\r\n", broken));
  all.push_back(says("sends chunks longer than told", head + "4\r\nbody and more\r\n", broken));
  all.push_back({.name = "extends a chunk without end",
                 .act = always(send_without_end(head + "4;", std::string(kibibyte, 'e'))),
                 .expected = always(slow)});
  all.push_back({.name = "trails without end",
                 .act = always(send_without_end(head + "4\r\nbody\r\n0\r\n", "Trailer: more\r\n")),
                 .expected = always(exceeded)});
}

void add_redirections(misdeeds &all) {
  const struct {
    const char *status;
    int code;
    const char *location;
  } redirections[] = {{"301 Moved Permanently", 301, "http://127.0.0.1:@elsewhere@/planted"},
                      {"302 Found", 302, "file:///etc/hostname"},
                      {"303 See Other", 303, "http://127.0.0.1:@elsewhere@/planted"},
                      {"307 Temporary Redirect", 307, "http://127.0.0.1:@self@/"},
                      {"308 Permanent Redirect", 308, "ftp://127.0.0.1:@elsewhere@/planted"}};
  for (const auto &each : redirections) {
    all.push_back(heads("redirects with "s + each.status + " to " + each.location,
                        "HTTP/1.1 "s + each.status + "\r\nLocation: " + each.location + "\r\n\r\n",
                        http(each.code)));
  }
}

void add_provisional(misdeeds &all) {
  const std::string go_on = "HTTP/1.1 100 Continue\r\n\r\n";
  const std::string hint = "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n";
  const auto flood = [&](std::string name, std::string repeated) {
    all.push_back({.name = std::move(name),
                   .act = always(send_without_end("", std::move(repeated))),
                   .expected = always(exceeded)});
  };
  flood("sends 100 without end", go_on);
  flood("sends 103 without end", hint);
  for (const std::string &before : {go_on, hint, "HTTP/1.1 199 What\r\n\r\n"s}) {
    all.push_back({.name = "sends " + before.substr(9, 3) + " a hundred times before the answer",
                   .act =
                       [before](const answer &good) {
                         script steps = {{.bytes = before, .times = 100}};
                         steps.push_back({.bytes = good.whole()});
                         return steps;
                       },
                   .expected = always(fine)});
  }
  all.push_back(says("switches protocols", "HTTP/1.1 101 Switching Protocols\r\n\r\nanything",
                     {.what = outcome::kind::http, .code = 101, .or_broken = true}));
}

void add_headers(misdeeds &all) {
  const std::string ok = ok_line;
  all.push_back(heads("sends a header of 64 KiB",
                      ok + "X: " + std::string(64 * kibibyte, 'x') + "\r\n\r\n", fine));
  all.push_back({.name = "sends a thousand headers",
                 .act =
                     [ok](const answer &good) {
                       script steps = send(ok);
                       steps.push_back(
                           {.bytes = "X-Filler: " + std::string(52, 'x') + "\r\n", .times = 1000});
                       steps.push_back({.bytes = "\r\n" + good.body});
                       return steps;
                     },
                 .expected = always(fine)});
  all.push_back({.name = "sends headers without end",
                 .act = always(send_without_end(ok, "X-Filler: more\r\n")),
                 .expected = always(exceeded)});
  all.push_back({.name = "sends one header without end",
                 .act = always(send_without_end(ok + "X: ", std::string(kibibyte, 'x'))),
                 .expected = always(broken)});
  all.push_back(heads("sends a header without colon", ok + "rubbish\r\n\r\n", broken));
  all.push_back(heads("sends a NUL in a header", ok + "X: a\0b\r\n\r\n"s, broken));
  all.push_back(heads("folds a header", ok + "X: a\r\n b\r\n\r\n", fine));
  all.push_back(heads("ends its lines with LF", "HTTP/1.1 200 OK\nX: a\n\n", fine));
}

// Packed zeros, a hundred and sixty times their size when unpacked: one length and distance, over
// and over.
script packed_zeros(const std::string &head, std::uint64_t blocks) {
  script steps = send(head + "\x1f\x8b\x08\0\0\0\0\0\0\x03\x62"s);
  std::string repeated;
  for (int i = 0; i < 1000; ++i) {
    repeated += "\x18\x05\xa3\x60\x14\x8c\x82\x51\x30\x0a\x46\xc1\x28";
  }
  steps.push_back({.bytes = std::move(repeated), .times = blocks});
  return steps;
}

void add_encodings(misdeeds &all) {
  const std::string ok = ok_line;
  // Not unpacked: three megabytes would be 500.
  all.push_back({.name = "packs the K",
                 .at = bit_of(request_kind::k),
                 .act = always(packed_zeros(ok + "Content-Encoding: gzip\r\n\r\n", 250)),
                 .expected = always(corrupted("[zot_priv_get_new_k_by_host]: New checksum = ")),
                 .disk = 4 * kibibyte * kibibyte,
                 .memory = 8 * kibibyte * kibibyte});
  all.push_back({.name = "packs the checksum",
                 .at = bit_of(request_kind::checksum),
                 .act = always(packed_zeros(ok + "Content-Encoding: gzip\r\n\r\n", 4)),
                 .expected = always(corrupted("[zot_priv_get_new_k_by_host]: New checksum = "))});
  all.push_back(heads("calls the answer packed", ok + "Content-Encoding: gzip\r\n\r\n", fine));
  // Unpacked by some libcurl, unasked, and counted then; refused by others.
  all.push_back({.name = "packs the transfer",
                 .act = always(packed_zeros(ok + "Transfer-Encoding: gzip\r\n\r\n", 250)),
                 .expected = always(broken),
                 .timeout = 60,
                 .disk = largest_disk});
}

void add_codes(misdeeds &all) {
  for (const int code :
       {201, 202, 203, 204, 206, 300, 304, 400, 401, 403, 404, 407, 410, 416, 429, 500, 503, 599}) {
    const bool is_bare = code == 204 || code == 304;
    const std::string line = "HTTP/1.1 " + std::to_string(code) + " Because\r\n";
    const std::string rest = "WWW-Authenticate: Basic realm=\"x\"\r\nRetry-After: 1\r\n\r\n";
    all.push_back(is_bare ? says("answers " + std::to_string(code), line + rest, http(code))
                          : heads("answers " + std::to_string(code), line + rest, http(code)));
  }
}

void add_garbage(misdeeds &all) {
  all.push_back({.name = "answers as HTTP/0.9",
                 .act = [](const answer &good) { return send(good.body); },
                 .expected = always(broken)});
  const struct {
    const char *name;
    std::string bytes;
  } garbage[] = {{"sends an SSH banner", "SSH-2.0-server\r\n"},
                 {"sends a TLS alert", "\x15\x03\x01\0\x02\x02\x28"s},
                 {"sends zeros", std::string(4096, '\0')},
                 {"sends another version", "HTTP/9.9 200 OK\r\nContent-Length: 4\r\n\r\nbody"},
                 {"sends no code", "HTTP/1.1 OK\r\nContent-Length: 4\r\n\r\nbody"},
                 {"sends a code of two digits", "HTTP/1.1 20 OK\r\nContent-Length: 4\r\n\r\nbody"},
                 {"sends a code of letters", "HTTP/1.1 2OO OK\r\nContent-Length: 4\r\n\r\nbody"},
                 {"sends another protocol", "ICY 200 OK\r\nContent-Length: 4\r\n\r\nbody"},
                 {"sends empty lines", std::string(200, '\n')}};
  for (const auto &each : garbage) {
    all.push_back(says(each.name, each.bytes, broken));
  }
  all.push_back(heads("answers as HTTP/1.0", "HTTP/1.0 200 OK\r\n\r\n", fine));
  all.push_back(heads("says more after the answer", "", fine, "HTTP/1.1 200 OK\r\n\r\n"));
  all.back().act = [](const answer &good) {
    return send(good.whole() + "HTTP/1.1 500 No\r\n\r\n");
  };
}

}  // namespace

misdeeds protocol_misdeeds() {
  misdeeds all;
  add_lengths(all);
  add_chunks(all);
  add_redirections(all);
  add_provisional(all);
  add_headers(all);
  add_encodings(all);
  add_codes(all);
  add_garbage(all);
  return all;
}

}  // namespace zot::test
