// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/acceptance.hpp"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "tools/files/digest.hpp"
#include "tools/model/names.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/relay/trusted_time.hpp"

namespace zotconf {
namespace {

// Each value of a JSON text is preceded by one of these characters, so their number limits the
// memory that the parsed text takes. A K of half a million entries has fewer.
constexpr std::ptrdiff_t most_values = 4'000'000;

bool has_too_many_values(std::string_view k) {
  const auto precedes_value = [](char c) { return c == ',' || c == '[' || c == '{'; };
  return std::ranges::count_if(k, precedes_value) > most_values;
}

// A name in K may have any length.
std::string shortened(const std::string &name) {
  constexpr size_t longest = 120;
  return printable(name.size() <= longest ? name : name.substr(0, longest) + "...");
}

std::string printed_name(const published_file &file) {
  return shortened(file.category_name + "/" + file.key);
}

std::string why_not_file(const published_file &file) {
  if (!check_key(file.category_name).empty()) {
    return "K names the category \"" + shortened(file.category_name) + "\", which cannot be a name";
  }
  if (const std::string wrong = check_key(file.key); !wrong.empty()) {
    return printed_name(file) + " " + wrong;
  }
  if (file.size == 0 || file.size > std::numeric_limits<int32_t>::max()) {
    return printed_name(file) + " has an impossible size";
  }
  return is_digest(file.checksum) ? "" : printed_name(file) + " has no SHA-256";
}

std::string why_not_files(const std::vector<published_file> &files) {
  std::unordered_set<std::string> names;
  std::unordered_map<std::string_view, uint64_t> sizes;
  for (const published_file &file : files) {
    if (std::string wrong = why_not_file(file); !wrong.empty()) {
      return wrong;
    }
    if (!names.insert(file.category_name + "/" + file.key).second) {
      return printed_name(file) + " is listed twice";
    }
    if (sizes.try_emplace(file.checksum, file.size).first->second != file.size) {
      return printed_name(file) + " has the SHA-256 of a file with another size";
    }
  }
  return "";
}

// A K without a sequence names no element either. It cannot be bound by a signature.
std::string why_not_bound(const acceptance &rules, const manifest &content) {
  if (content.sequence == 0) {
    return rules.trusted == nullptr ? "" : "K states no sequence";
  }
  if (content.who.subsys != rules.who.subsys || content.who.index != rules.who.index) {
    return "K is that of " + one_word(shortened(content.who.subsys)) + " " +
           one_word(shortened(content.who.index));
  }
  return "";
}

std::string why_not_next(const manifest &content, const std::string &digest,
                         const accepted_before &before) {
  const bool is_stated = content.sequence != 0;
  if (!is_stated || content.sequence > before.sequence || digest == before.digest) {
    return "";
  }
  const std::string numbers = std::to_string(content.sequence) + ", the last accepted one has " +
                              std::to_string(before.sequence);
  return content.sequence == before.sequence ? "another K has the sequence " + numbers
                                             : "K is older: it has the sequence " + numbers;
}

std::string why_not_text(const std::string &k) {
  if (k.empty()) {
    return "K is empty";
  }
  if (k.find('\0') != std::string::npos) {
    return "K contains a zero byte";
  }
  return has_too_many_values(k) ? "K has too many entries" : "";
}

std::string why_not_content(const acceptance &rules, const manifest &content,
                            const std::string &digest, const accepted_before &before) {
  if (const std::string wrong = check_cluster(content.cluster); !wrong.empty()) {
    return "the cluster ID " + wrong;
  }
  if (std::string wrong = why_not_bound(rules, content); !wrong.empty()) {
    return wrong;
  }
  if (std::string wrong = why_not_next(content, digest, before); !wrong.empty()) {
    return wrong;
  }
  return why_not_files(content.files);
}

// Sets the signer, or why the signature does not count.
void check_signature(const keyring &trusted, const std::string &k,
                     const std::optional<std::string> &signature, std::time_t now,
                     judgement &made) {
  if (!signature) {
    made.wrong = "K is not signed";
    return;
  }
  keyring::verdict said = trusted.check(k, *signature, now);
  made.wrong = std::move(said.wrong);
  made.signer = std::move(said.signer);
  made.signed_at = said.signed_at;
}

}  // namespace

judgement judge_offer(const acceptance &rules, const std::string &k, const std::string &digest,
                      const std::optional<std::string> &signature, const accepted_before &before) {
  judgement made;
  if (rules.trusted != nullptr) {
    check_signature(*rules.trusted, k, signature,
                    trusted_time(std::time(nullptr), before.signed_at), made);
  }
  if (made.wrong.empty()) {
    made.wrong = why_not_text(k);
  }
  if (!made.wrong.empty()) {
    return made;
  }
  auto content = parse_manifest(k, other_category::kept);
  if (!content) {
    made.wrong = "K is not a valid manifest";
    return made;
  }
  made.wrong = why_not_content(rules, *content, digest, before);
  made.content = std::move(*content);
  return made;
}

}  // namespace zotconf
