// SPDX-License-Identifier: Apache-2.0
// Connections that end early, stall or never end.
#include <string>
#include <utility>
#include <vector>

#include "tests/faults/service/misdeed.hpp"
#include "zot_conf.h"

namespace zot::test {
namespace {

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t mebibyte = kibibyte * 1024;
// What the largest file of the three may take in scratch, and what lies there beside it.
constexpr std::size_t largest_disk = 64 * mebibyte + 256 * kibibyte;

struct position {
  const char *name;
  std::size_t (*in)(const answer &good);
  bool is_empty_answer =
      false;  // to a libcurl that takes the end of the connection for that of 200
};

// Where an answer is cut.
const position positions[] = {
    {"at once", [](const answer &) { return std::size_t{0}; }},
    {"after a byte", [](const answer &) { return std::size_t{1}; }},
    {"before the code", [](const answer &) { return std::size_t{9}; }},
    {"in the status line", [](const answer &) { return std::size_t{14}; }},
    {"before the status line's LF", [](const answer &) { return std::size_t{16}; }},
    {"after the status line", [](const answer &) { return std::size_t{17}; }, true},
    {"in a header's name", [](const answer &) { return std::size_t{22}; }, true},
    {"in a header's value", [](const answer &good) { return good.head.find("2023"); }, true},
    {"in the length", [](const answer &good) { return good.head.find("\r\nConn") - 1; }, true},
    {"before the last LF of the head", [](const answer &good) { return good.head.size() - 1; }},
    {"after the head", [](const answer &good) { return good.head.size(); }},
    {"after a byte of the body", [](const answer &good) { return good.head.size() + 1; }},
    {"in the body", [](const answer &good) { return good.head.size() + good.body.size() / 2; }},
    {"before the last byte", [](const answer &good) { return good.whole().size() - 1; }},
};

misdeed cut(const std::string &verb, const position &where, const script &end,
            const outcome &expected) {
  return {.name = verb + " " + where.name,
          .act =
              [where, end](const answer &good) {
                script steps = send(good.whole().substr(0, where.in(good)));
                steps.insert(steps.end(), end.begin(), end.end());
                return steps;
              },
          .expected = always(expected)};
}

outcome empty_answer(request_kind kind) {
  if (kind == request_kind::archive) {
    return {.what = outcome::kind::told,
            .code = ZOT_ERR_CORRUPTED,
            .text = "[ap_download_gpb]: fail to run \"tar zxvf ",
            .or_broken = true};
  }
  return {.what = outcome::kind::http, .code = 200, .or_broken = true};
}

void add_cuts(misdeeds &all) {
  const outcome broken{.what = outcome::kind::broken};
  const outcome slow{.what = outcome::kind::slow};
  for (const position &where : positions) {
    all.push_back(cut("resets", where, {{.what = step::kind::reset}}, broken));
    all.push_back(cut("stalls", where, {{.what = step::kind::stall}}, slow));
    all.push_back(cut("closes", where, {}, broken));
    if (where.is_empty_answer) {
      all.back().expected = empty_answer;
    }
  }
}

misdeed without_end(std::string name, const std::string &head, const std::string &block) {
  return {.name = std::move(name),
          .act = always(send_without_end(head, block)),
          .expected = always({.what = outcome::kind::exceeded}),
          .timeout = 60,
          .disk = largest_disk};
}

void add_endless(misdeeds &all) {
  const std::string block(64 * kibibyte, 'x');
  const std::string chunked = std::string(ok_line) + "Transfer-Encoding: chunked\r\n\r\n";
  all.push_back(without_end("sends without end and length", std::string(ok_line) + "\r\n", block));
  all.push_back(without_end("sends chunks without end", chunked, "10000\r\n" + block + "\r\n"));
  all.push_back(without_end("sends one endless chunk", chunked + "7fffffffffffffff\r\n", block));
  // Nothing of these is fetched.
  for (const std::size_t announced : {std::size_t{100} * mebibyte, std::size_t{INT32_MAX} + 1}) {
    misdeed what = without_end("announces and sends " + std::to_string(announced) + " bytes",
                               with_length(announced), block);
    what.timeout = 1;
    what.disk = 256 * kibibyte;
    all.push_back(std::move(what));
  }
}

void add_slow(misdeeds &all) {
  all.push_back({.name = "sends a byte now and then",
                 .act =
                     [](const answer &good) {
                       return script{{.what = step::kind::drip, .bytes = good.whole()}};
                     },
                 .expected = always({.what = outcome::kind::slow})});
  all.push_back({.name = "sends each byte on its own",
                 .act =
                     [](const answer &good) {
                       script steps;
                       for (const char byte : good.whole()) {
                         steps.push_back({.bytes = std::string(1, byte)});
                       }
                       return steps;
                     },
                 .expected = always({.what = outcome::kind::fine})});
  all.push_back({.name = "keeps the connection after the answer",
                 .act =
                     [](const answer &good) {
                       script steps = send(with_length(good.body.size()) + good.body);
                       steps.push_back({.what = step::kind::stall});
                       return steps;
                     },
                 .expected = always({.what = outcome::kind::fine})});
}

}  // namespace

misdeeds transfer_misdeeds() {
  misdeeds all;
  all.push_back({.name = "refuses the connection",
                 .act = always(script{}),
                 .expected = always({.what = outcome::kind::broken}),
                 .before = before_request::refused});
  all.push_back({.name = "resets before it reads the request",
                 .act = always(script{}),
                 .expected = always({.what = outcome::kind::broken}),
                 .before = before_request::reset});
  add_cuts(all);
  add_slow(all);
  add_endless(all);
  return all;
}

}  // namespace zot::test
