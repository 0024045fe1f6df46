// SPDX-License-Identifier: Apache-2.0
// Invalid K and checksum files.
#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <utility>

#include "tests/faults/service/configurations.hpp"
#include "tests/faults/service/misdeed.hpp"
#include "tests/support/files.hpp"
#include "zot_conf.h"

namespace zot::test {
namespace {

using namespace std::string_literals;

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t mebibyte = kibibyte * 1024;

const outcome fine{.what = outcome::kind::fine};

constexpr const char *no_json = "[zot_priv_chk_vail_k_cont]: unable to parse json str";
constexpr const char *no_list = "[zot_priv_chk_vail_k_cont]: wrong gpbs format.";
constexpr const char *no_cluster = "[zot_priv_chk_vail_k_cont]: No clusterId";
constexpr const char *no_path = "[zot_priv_get_gpb_list_via_k_json]: unable to get path";
constexpr const char *no_size = "[zot_priv_get_gpb_list_via_k_json]: unable to get size of GPB";
constexpr const char *no_checksum =
    "[zot_priv_get_gpb_list_via_k_json]: unable to get checksum of GPB";
constexpr const char *no_content = "[zot_priv_verify_gpb]:Empty content in ";
constexpr const char *no_match = "[zot_priv_get_new_k_by_host]: New checksum = ";
constexpr const char *wrong_size = "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=";

outcome corrupted(std::string text) {
  return {.what = outcome::kind::told, .code = ZOT_ERR_CORRUPTED, .text = std::move(text)};
}

// A K that is announced with its right checksum.
misdeed offers(std::string name, std::string k, const outcome &expected) {
  return {.name = "offers " + std::move(name),
          .at = bit_of(request_kind::k),
          .act = [](const answer &good) { return send(good.whole()); },
          .expected = always(expected),
          .k_text = std::move(k)};
}

std::string repeated(std::string_view text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

// A K with members in front of the good ones.
std::string k_after(const std::string &members) {
  return "{" + members + second_configuration().k_text().substr(1);
}

std::string k_of(const std::string &entries) {
  return R"({"clusterId":"cluster-1","gpbs":[)" + entries + "]}";
}

std::string entry_of(const std::string &path, const std::string &size,
                     const std::string &checksum) {
  return R"({"path":")" + path + R"(","size":)" + size + R"(,"checksum":")" + checksum + "\"}";
}

// The published file of that name, said to have another size.
std::string sized(const std::string &size) {
  return k_of(entry_of("/Wlan/guest/2", size, sha256_hex("guest two")));
}

void add_nesting(misdeeds &all) {
  constexpr std::size_t depth = 100000;
  const std::size_t first = all.size();
  all.push_back(offers("a hundred thousand lists, each in the other", repeated("[", depth),
                       corrupted(no_json)));
  all.push_back(offers("a hundred thousand closed lists",
                       repeated("[", depth) + repeated("]", depth), corrupted(no_json)));
  all.push_back(offers("a hundred thousand objects, each in the other",
                       repeated("{\"a\":", depth) + "1" + repeated("}", depth),
                       corrupted(no_json)));
  all.push_back(offers("deep lists in a member that nobody needs",
                       k_after("\"x\":" + repeated("[", depth) + repeated("]", depth) + ","),
                       corrupted(no_json)));
  for (std::size_t at = first; at < all.size(); ++at) {
    all[at].disk = mebibyte;
  }
}

void add_sizes(misdeeds &all) {
  // Each number takes up to eighty bytes in memory, forty times what it takes in K.
  misdeed numbers =
      offers("a million numbers", k_after("\"x\":[0" + repeated(",0", mebibyte) + "],"), fine);
  numbers.memory = 112 * mebibyte;
  numbers.disk = 4 * mebibyte;
  all.push_back(std::move(numbers));

  misdeed text = offers("a text of eight megabytes",
                        k_after("\"x\":\"" + std::string(8 * mebibyte, 'x') + "\","), fine);
  text.memory = 40 * mebibyte;
  text.disk = 12 * mebibyte;
  text.timeout = 10;
  all.push_back(std::move(text));

  // The names of a request take a page each.
  misdeed entries = offers("ten thousand entries without a file",
                           k_of(entry_of("/Ap/a/1", "1", "0") +
                                [] {
                                  std::string more;
                                  for (int i = 0; i < 10000; ++i) {
                                    more +=
                                        "," + entry_of("/Ap/" + std::to_string(i) + "/1", "1", "0");
                                  }
                                  return more;
                                }()),
                           corrupted(no_content));
  entries.memory = 64 * mebibyte;
  entries.disk = 2 * mebibyte;
  all.push_back(std::move(entries));
}

void add_duplicates(misdeeds &all) {
  const std::string entry = entry_of("/Wlan/guest/2", "9", sha256_hex("guest two"));
  all.push_back(offers("the same member twice",
                       k_after(R"("clusterId":"cluster-2","configId":"other",)"), fine));
  all.push_back(offers("an empty list before the good one", k_after("\"gpbs\":[],"), fine));
  all.push_back(
      offers("a number before the good list", k_after("\"gpbs\":1,"), corrupted(no_list)));
  all.push_back(
      offers("a member's name in capitals", k_after("\"GPBS\":null,"), corrupted(no_list)));
  all.push_back(offers("the same entry twice", k_of(entry + "," + entry), fine));
  all.push_back(offers("two versions of one object",
                       k_of(entry + "," + entry_of("/Wlan/guest/3", "9", sha256_hex("guest two"))),
                       corrupted("duplicate entry in K")));
}

void add_numbers(misdeeds &all) {
  for (const char *const size :
       {"1e308", "1e999", "2147483647", "2147483648", "4294967295", "4294967305",
        "9223372036854775807", "9223372036854775808", "18446744073709551625", "10", "8", "-1", "-9",
        "-2147483648", "-2147483649", "-9223372036854775808", "-1e308", "-1e999"}) {
    all.push_back(offers("a file of "s + size + " bytes", sized(size), corrupted(wrong_size)));
  }
  for (const char *const size : {"0", "-0", "1e-400", "0.9"}) {
    all.push_back(
        offers("a file of "s + size + " bytes", sized(size),
               {.what = outcome::kind::told,
                .code = ZOT_ERR_WRONG_INPUT,
                .text = "[zot_priv_chk_vail_gpb]:Wrong Input: path=/Wlan/guest/2, size=0"}));
  }
  for (const char *const size : {"9", "9.0", "9.99", "0.9e1", "900e-2"}) {
    all.push_back(offers("a file of "s + size + " bytes", sized(size), fine));
  }
  for (const char *const size : {"\"9\"", "null", "true", "[9]", "{}"}) {
    all.push_back(offers("a file of "s + size + " bytes", sized(size), corrupted(no_size)));
  }
  for (const char *const size : {"NaN", "Infinity", "-", "0x9", "--9", "9,", ""}) {
    all.push_back(offers("a file of '"s + size + "' bytes", sized(size), corrupted(no_json)));
  }
}

void add_texts(misdeeds &all) {
  const std::string sum = sha256_hex("guest two");
  const auto path = [&](const std::string &text) { return k_of(entry_of(text, "9", sum)); };
  all.push_back(offers("a NUL in the middle of K", "{\"clusterId\":\"a\"\0}"s, corrupted(no_json)));
  all.push_back(offers("a NUL after K", second_configuration().k_text() + "\0rest"s, fine));
  all.push_back(offers("words after K", second_configuration().k_text() + "rest", fine));
  all.push_back(offers("an escaped NUL in a path", path("/Wlan/guest\\u0000/2"), fine));
  all.push_back(
      offers("an escaped NUL in the cluster", k_after(R"("clusterId":"a\u0000b",)"), fine));
  all.push_back(
      offers("broken UTF-8 in a key", path("/Wlan/\xff\xfe\xc3/2"), corrupted(no_content)));
  all.push_back(offers("broken UTF-8 in a category", path("/\xc3\x28/guest/2"), fine));
  all.push_back(
      offers("broken UTF-8 in the cluster", k_after("\"clusterId\":\"\xf8\xa1\xa1\","), fine));
  all.push_back(offers("half a character", path("/Wlan/\\ud800/2"), corrupted(no_json)));
  all.push_back(offers("an unknown escape", path("/Wlan/\\x/2"), corrupted(no_json)));
  all.push_back(offers("an endless text", "{\"clusterId\":\"" + std::string(mebibyte, 'x'),
                       corrupted(no_json)));
  all.back().disk = 4 * mebibyte;
  all.back().memory = 8 * mebibyte;
  all.push_back(offers("a cluster of 37 characters",
                       k_after("\"clusterId\":\"" + std::string(37, 'c') + "\","),
                       corrupted(no_cluster)));
  all.push_back(
      offers("a cluster that is a number", k_after("\"clusterId\":1,"), corrupted(no_cluster)));
  all.push_back(offers("a checksum of 65 characters",
                       k_of(entry_of("/Wlan/guest/2", "9", sum + "0")), corrupted(no_checksum)));
  all.push_back(offers("an empty checksum", k_of(entry_of("/Wlan/guest/2", "9", "")),
                       {.what = outcome::kind::told,
                        .code = ZOT_ERR_NULL_INPUT,
                        .text = "[zot_priv_verify_gpb]: null input"}));
  all.push_back(
      offers("a path of 4096 bytes", path("/Wlan/" + std::string(4090, 'x')), corrupted(no_path)));
  all.push_back(offers("a path of 4080 bytes", path("/Wlan/" + std::string(4072, 'x') + "/2"),
                       corrupted("[zot_priv_chk_vail_gpb]: path of GPB is too long: ")));
  all.push_back(offers("a name of 300 bytes", path("/Wlan/" + std::string(300, 'x') + "/2"),
                       corrupted(no_content)));
  all.push_back(offers("a path without key", path("/Wlan"), fine));
  all.push_back(offers("a path that climbs to a device",
                       path("/Wlan/" + repeated("../", 30) + "dev/zero"), corrupted(no_content)));
  all.push_back(offers("a path with what a shell expands", path("/Wlan/$(touch planted)`x`;|&/2"),
                       corrupted(no_content)));
  all.push_back(offers("a path with what a message expands", path("/Wlan/%s%n%1000000d/2"),
                       corrupted(no_content)));
}

void add_shapes(misdeeds &all) {
  for (const char *const k : {"null", "1", "[]", "{}", "\"text\"", "{\"gpbs\":{}}",
                              "{\"gpbs\":null,\"clusterId\":\"c\"}"}) {
    all.push_back(offers("a K of "s + k, k, corrupted(no_list)));
  }
  for (const char *const k : {"", " ", "{", "]", "{]", "{\"gpbs\":[}", "not JSON"}) {
    // Of a K without any byte there is no file to read back.
    all.push_back(offers(
        "a K of '"s + k + "'", k,
        k[0] != '\0' ? corrupted(no_json) : outcome{.what = outcome::kind::http, .code = 200}));
  }
  for (const char *const entry : {"1", "null", "[]", "{}", "\"/Wlan/guest/2\"", "{\"path\":1}"}) {
    all.push_back(offers("an entry of "s + entry, k_of(entry), corrupted(no_path)));
  }
  all.push_back(
      offers("a byte order mark", "\xef\xbb\xbf" + second_configuration().k_text(), fine));
  all.push_back(offers("no entries", k_of(""), fine));
}

// Another file than the one that was asked for.
misdeed hands_out(std::string name, request_kind at, const std::string &body,
                  const outcome &expected) {
  return {.name = std::move(name),
          .at = bit_of(at),
          .act = always(send(with_length(body.size()) + body)),
          .expected = always(expected)};
}

void add_mismatches(misdeeds &all) {
  const std::string k = second_configuration().k_text();
  const std::string sum = sha256_hex(k);
  std::string capitals = sum;
  std::ranges::transform(capitals, capitals.begin(), [](unsigned char digit) {
    return static_cast<char>(std::toupper(digit));
  });
  std::string altered = k;
  altered.back() = ' ';
  const auto checksum = [&](std::string name, const std::string &text, const outcome &expected) {
    all.push_back(
        hands_out("hands out " + std::move(name), request_kind::checksum, text, expected));
  };
  checksum("another checksum", std::string(64, 'a'), corrupted(no_match));
  checksum("the checksum in capitals", capitals, corrupted(no_match));
  checksum("the checksum after a blank", " " + sum, corrupted(no_match));
  checksum("a checksum of zeros", std::string(64, '\0'), corrupted(no_match));
  checksum("a checksum of bytes without meaning", repeated("\xff\xc3\x80%n", 20),
           corrupted(no_match));
  checksum("63 digits", sum.substr(1), corrupted("Wrong checksum size: 63"));
  checksum("64 digits", sum, fine);
  checksum("the checksum and more", sum + " *AABBCCDDEEFF.k\n", fine);
  checksum("the checksum and what fills 64 KiB", sum + std::string(64 * kibibyte - 64, ' '), fine);
  checksum("the checksum and a byte over 64 KiB", sum + std::string(64 * kibibyte - 63, ' '),
           {.what = outcome::kind::exceeded});
  checksum("K in place of the checksum", k, corrupted(no_match));

  const auto knowledge = [&](std::string name, const std::string &text) {
    all.push_back(
        hands_out("hands out " + std::move(name), request_kind::k, text, corrupted(no_match)));
  };
  knowledge("a K with a byte altered", altered);
  knowledge("a K with a byte more", k + " ");
  knowledge("the K in force", first_configuration().k_text());
  knowledge("a K that begins with NUL", "\0"s + k);
  knowledge("the checksum in place of K", sum + "\n");
  knowledge("a K as large as may be", std::string(64 * mebibyte, ' '));
  all.back().timeout = 60;
  all.back().disk = 65 * mebibyte;
  all.back().memory = 68 * mebibyte;
}

}  // namespace

misdeeds content_misdeeds() {
  misdeeds all;
  add_mismatches(all);
  add_nesting(all);
  add_sizes(all);
  add_duplicates(all);
  add_numbers(all);
  add_texts(all);
  add_shapes(all);
  return all;
}

}  // namespace zot::test
