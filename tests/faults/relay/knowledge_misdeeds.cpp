// SPDX-License-Identifier: Apache-2.0
// A K, or a checksum, that may not come into service although its signature is good.
#include <stdexcept>
#include <utility>

#include "tests/faults/relay/misdeed.hpp"
#include "tests/support/files.hpp"

namespace zot::test {
namespace {

using zotconf::manifest;
using applying = std::function<void(behaviour &, const cast &)>;

constexpr std::size_t longest_k = std::size_t{64} << 20;

misdeed refused(const std::string &name, const std::string &reason, applying apply) {
  return {.name = name, .apply = std::move(apply), .expected = outcome::refused, .reason = reason};
}

// A K that is rendered from changed content.
misdeed content(const std::string &name, const std::string &reason,
                const std::function<void(manifest &)> &change) {
  return refused("K: " + name, reason, [=](behaviour &changed, const cast &all) {
    manifest made = manifest_of(offered);
    change(made);
    changed.content.set_k(made, all.publisher);
  });
}

// A K whose text is changed.
misdeed text(const std::string &name, const std::string &reason,
             const std::function<std::string(std::string)> &change) {
  return refused("K: " + name, reason, [=](behaviour &changed, const cast &all) {
    std::string k = changed.content.files[k_path];
    std::erase_if(k, [](char c) { return c == '\t' || c == '\n'; });
    changed.content.set_k(change(std::move(k)), all.publisher);
  });
}

std::string replace(std::string whole, const std::string &part, const std::string &by) {
  const std::size_t at = whole.find(part);
  if (at == std::string::npos) {
    throw std::invalid_argument("no " + part + " in K");
  }
  return whole.replace(at, part.size(), by);
}

misdeed replaced(const std::string &name, const std::string &reason, const std::string &part,
                 const std::string &by) {
  return text(name, reason, [=](std::string k) { return replace(std::move(k), part, by); });
}

misdeed path(const std::string &name, const std::string &reason, const std::string &bad) {
  return replaced(name, reason, "/Wlan/guest/6", bad);
}

misdeed harmless(misdeed row) {
  row.expected = outcome::taken;
  return row;
}

misdeed with_memory(std::size_t megabytes, misdeed row) {
  row.memory = megabytes << 20;
  return row;
}

misdeed failing(misdeed row) {
  row.expected = outcome::failing;
  return row;
}

misdeed size(const std::string &written, const std::string &reason) {
  return text("the size " + written, reason, [=](std::string k) {
    const std::size_t begin = k.find("\"size\":") + 7;
    return k.replace(begin, k.find(',', begin) - begin, written);
  });
}

misdeeds bindings() {
  return {
      content("of another element", "K is that of AP 001122334466",
              [](manifest &made) { made.who.index = "001122334466"; }),
      content("of another sub-system", "K is that of DP 001122334455",
              [](manifest &made) { made.who.subsys = "DP"; }),
      content("of this element in lower case", "K is that of ap 001122334455",
              [](manifest &made) { made.who = {.subsys = "ap", .index = "001122334455"}; }),
      content("an older sequence", "K is older",
              [](manifest &made) {
                made = manifest_of(in_service - 1);
                made.cluster = "cluster-2";
              }),
      content("the sequence of the K in service, other bytes", "another K has the sequence 5",
              [](manifest &made) { made.sequence = in_service; }),
      content("without a sequence", "K states no sequence",
              [](manifest &made) { made.sequence = 0; }),
      replaced("a negative sequence", "K states no sequence", "\"sequence\":6", "\"sequence\":-2"),
      replaced("a sequence with a fraction", "K states no sequence", "\"sequence\":6",
               "\"sequence\":6.5"),
      replaced("a sequence of 10^300", "K states no sequence", "\"sequence\":6",
               "\"sequence\":1e300"),
      replaced("a sequence in quotes", "K states no sequence", "\"sequence\":6",
               "\"sequence\":\"6\""),
  };
}

misdeeds paths() {
  return {
      path("a path with ..", "Wlan/.. cannot be a path component", "/Wlan/../6"),
      path("a path with .. as its category", "K names the category \"..\"", "/../guest/6"),
      path("a path that leaves the folder",
           "Wlan/../../../../../outside cannot be a path component",
           "/Wlan/../../../../../outside/6"),
      path("a path without a leading slash", "K is not a valid manifest", "Wlan/guest/6"),
      path("an absolute path of the system", "K is not a valid manifest", "/etc/passwd"),
      path("a path with two slashes", "Wlan//guest cannot be a path component", "/Wlan//guest/6"),
      path("a path that begins with two slashes", "K is not a valid manifest", "//Wlan/guest/6"),
      path("a path of two parts", "K is not a valid manifest", "/Wlan/6"),
      path("a path of four parts", "Wlan/guest/more cannot be a path component",
           "/Wlan/guest/more/6"),
      path("a path with a control character", "Wlan/gu?est contains a control character",
           "/Wlan/gu\\u0001est/6"),
      path("a path with a line break", "Wlan/gu?est contains a control character",
           "/Wlan/gu\\nest/6"),
      path("a path with an escape sequence", "Wlan/?[31mguest contains a control character",
           "/Wlan/\\u001b[31mguest/6"),
      path("a path that is no UTF-8", "is not UTF-8", "/Wlan/gu\xff\xfe/6"),
      path("a key of 53 bytes", "has a key over 52 characters",
           "/Wlan/" + std::string(53, 'k') + "/6"),
      with_memory(16, path("a key of 1 MB", "... has a key over 52 characters",
                           "/Wlan/" + std::string(1U << 20, 'k') + "/6")),
      path("a category of 5000 bytes", "CCC...\", which cannot be a name",
           "/" + std::string(5000, 'C') + "/guest/6"),
      path("a version with a leading zero", "K is not a valid manifest", "/Wlan/guest/06"),
      path("a version in hexadecimal", "K is not a valid manifest", "/Wlan/guest/0x6"),
      path("a version beyond 64 bits", "K is not a valid manifest",
           "/Wlan/guest/18446744073709551616"),
      path("an empty path", "K is not a valid manifest", ""),
      path("a path with a query", "K is not a valid manifest", "/Wlan/guest/6?x=1"),
  };
}

misdeeds entries() {
  return {
      content("an entry twice", "is listed twice",
              [](manifest &made) { made.files.push_back(made.files[0]); }),
      content("two versions of one key", "is listed twice",
              [](manifest &made) {
                made.files.push_back(made.files[0]);
                made.files.back().version = 99;
              }),
      size("0", "has an impossible size"),
      size("-1", "K is not a valid manifest"),
      size("9223372036854775808", "K is not a valid manifest"),
      size("1e400", "K is not a valid manifest"),
      size("\"14\"", "K is not a valid manifest"),
      harmless(size("12.5", "")),
      content("a checksum that is empty", "has no SHA-256",
              [](manifest &made) { made.files[0].checksum.clear(); }),
      content("a checksum in upper case", "has no SHA-256",
              [](manifest &made) { made.files[0].checksum = std::string(64, 'A'); }),
      content("a checksum that leaves the folder", "has no SHA-256",
              [](manifest &made) { made.files[0].checksum = "../../../../../../outside"; }),
      replaced("no checksum", "has no SHA-256", "\"checksum\"", "\"other\""),
      replaced("no list of files", "K is not a valid manifest", "\"gpbs\"", "\"other\""),
      content("no cluster ID", "the cluster ID is empty",
              [](manifest &made) { made.cluster.clear(); }),
      content("a cluster ID of 37 bytes", "the cluster ID is longer than 36 bytes",
              [](manifest &made) { made.cluster = std::string(37, 'c'); }),
  };
}

misdeeds documents() {
  return {
      failing(text("empty", "K does not match its checksum file",
                   [](const std::string &) { return std::string(); })),
      text("a zero byte", "K contains a zero byte",
           [](std::string k) { return std::move(k) + std::string(1, '\0'); }),
      text("cut in half", "K is not a valid manifest",
           [](const std::string &k) { return k.substr(0, k.size() / 2); }),
      text("nested a million times", "K is not a valid manifest",
           [](const std::string &) { return std::string(1000000, '['); }),
      harmless(text("a name nested 900 times", "",
                    [](const std::string &k) {
                      return replace(
                          k, "{", "{\"x\":" + std::string(900, '[') + std::string(900, ']') + ",");
                    })),
  };
}

misdeeds large_documents() {
  misdeed many =
      text("ten million entries in 60 MB", "K has too many entries", [](const std::string &k) {
        std::string list;
        for (int entry = 0; entry < 10'000'000; ++entry) {
          list += "{\"a\":1},";
        }
        return replace(k, "\"gpbs\":[", "\"gpbs\":[" + list.substr(0, 60'000'000));
      });
  many.memory = std::size_t{200} << 20;
  misdeed text_only = text(
      "60 MB in one name", "the cluster ID is longer than 36 bytes",
      [](const std::string &k) { return replace(k, "cluster-1", std::string(60'000'000, 'c')); });
  text_only.memory = std::size_t{300} << 20;
  misdeed too_long = text("longer than 64 MB", ".k: more than 67108864 bytes",
                          [](const std::string &k) { return k + std::string(longest_k, ' '); });
  too_long.expected = outcome::failing;
  too_long.memory = std::size_t{100} << 20;
  misdeed too_much =
      content("files that exceed the disk", "no space left in the store", [](manifest &made) {
        for (std::uint64_t number = 0; number < 20000; ++number) {
          made.files.push_back(made.files[0]);
          made.files.back().key = "large" + std::to_string(number);
          made.files.back().checksum = sha256_hex(std::to_string(number));
          made.files.back().size = 2147483647;
        }
      });
  too_much.expected = outcome::failing;
  too_much.memory = std::size_t{60} << 20;
  misdeeds all = {many, text_only, too_long, too_much};
  for (misdeed &row : all) {
    row.silence = std::chrono::seconds(60);
  }
  return all;
}

misdeed checksum(const std::string &name, const std::string &reason,
                 const std::function<std::string(std::string)> &change) {
  return {.name = "checksum: " + name,
          .apply =
              [=](behaviour &changed, const cast &) {
                std::string &text = changed.content.files[checksum_path];
                text = change(text);
              },
          .reason = reason};
}

misdeeds checksums() {
  const std::string no_digest = "is not a SHA-256 of 64 lower-case digits";
  return {
      checksum("in upper case", no_digest,
               [](const std::string &) { return std::string(64, 'A') + "\n"; }),
      checksum("with a name behind it", no_digest,
               [](const std::string &good) { return replace(good, "\n", "  001122334455.k\n"); }),
      checksum("with CR LF", no_digest,
               [](const std::string &good) { return replace(good, "\n", "\r\n"); }),
      checksum("with a blank before it", no_digest,
               [](const std::string &good) { return " " + good; }),
      checksum("with a zero byte behind it", no_digest,
               [](const std::string &good) { return good + std::string(1, '\0'); }),
      checksum("of another K", "K does not match its checksum file",
               [](const std::string &) { return sha256_hex("other") + "\n"; }),
  };
}

// Parts of different publications, as a cache that does not ask may send them.
misdeeds mixtures() {
  const auto from_generation = [](const std::string &name, std::uint64_t number) {
    return [=](behaviour &changed, const cast &all) {
      changed.content.files[name] = all.generations.at(number).files.at(name);
    };
  };
  return {
      {.name = "the K before, with its signature",
       .apply =
           [=](behaviour &changed, const cast &all) {
             from_generation(k_path, in_service)(changed, all);
             from_generation(signature_path, in_service)(changed, all);
           },
       .reason = "K does not match its checksum file"},
      {.name = "the checksum before",
       .apply = from_generation(checksum_path, in_service),
       .expected = outcome::silent},
      {.name = "files of another publication",
       .apply =
           [](behaviour &changed, const cast &all) {
             std::string &bytes = changed.content.files[large_file_path(offered)];
             bytes = all.generations.at(mended).files.at(large_file_path(mended));
           },
       .reason = "does not have the SHA-256 that K states"},
      {.name = "a file of the publication is missing",
       .apply = [](behaviour &changed,
                   const cast &) { changed.content.files.erase("config/Wlan/guest/6"); },
       .reason = "config/Wlan/guest/6: status 404"},
      {.name = "a checksum that changes with each request",
       .apply =
           [](behaviour &changed, const cast &) {
             changed.act = [](const asked_file &asked, const answer &) -> std::optional<script> {
               if (asked.path != checksum_path) {
                 return std::nullopt;
               }
               const std::string text = sha256_hex(std::to_string(asked.count)) + "\n";
               return send(with_length(text.size()) + text);
             };
           },
       .reason = "K does not match its checksum file"},
  };
}

}  // namespace

misdeeds knowledge_misdeeds() {
  misdeeds all = bindings();
  for (auto *const more : {paths, entries, documents, large_documents, checksums, mixtures}) {
    add(all, more());
  }
  return all;
}

}  // namespace zot::test
