// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/sign.hpp"

#include <algorithm>
#include <ostream>
#include <vector>

#include "tools/model/manifest.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/publication/published.hpp"
#include "tools/publication/signature.hpp"

namespace zotconf {
namespace {

struct signed_element {
  element who;
  const char *result = "signed";  // or unchanged, or failed
  std::string reason;             // why it failed
};

// Why a signature over this K would be useless; empty if it would not.
std::string why_not(const publication_store &store, const element &who, const std::string &k) {
  if (store.read_checksum(who).value_or("").substr(0, ZOT_CHECKSUM_LEN) != sha256_text(k)) {
    return "K does not match its checksum file";
  }
  const auto content = parse_manifest(k);
  if (!content) {
    return "K cannot be read";
  }
  if (content->sequence == 0) {
    return "K has no sequence, because an earlier version wrote it; publish it again with "
           "--sign-cert";
  }
  if (content->who.subsys != who.subsys || content->who.index != who.index) {
    return "K is that of " + content->who.subsys + " " + content->who.index;
  }
  return "";
}

signed_element sign_one(const publication_store &store, const signer &signs, const element &who) {
  const auto k = store.read_k(who);
  if (!k) {
    return {.who = who, .result = "failed", .reason = "K cannot be read"};
  }
  if (const std::string reason = why_not(store, who, *k); !reason.empty()) {
    return {.who = who, .result = "failed", .reason = reason};
  }
  const auto signature = store.read_signature(who);
  if (signature && signs.has_signed(*k, *signature)) {
    return {.who = who, .result = "unchanged", .reason = ""};
  }
  store.write_signature(who, signs.sign(*k));
  return {.who = who, .result = "signed", .reason = ""};
}

bool is_chosen(const sign_options &options, const element &who) {
  return (options.subsys.empty() || options.subsys == who.subsys) &&
         (options.index.empty() || upper_case(options.index) == who.index);
}

void write_result(const console &where, const std::vector<signed_element> &elements) {
  if (!where.is_json()) {
    const auto count = [&elements](std::string_view result) {
      return std::ranges::count(elements, result, &signed_element::result);
    };
    where.out() << "signed: " << count("signed") << " K, " << count("unchanged")
                << " already signed, " << count("failed") << " failed\n";
    return;
  }
  json_document document;
  json_node list = document.root().array("elements");
  for (const signed_element &each : elements) {
    list.append()
        .set("subsys", each.who.subsys)
        .set("index", each.who.index)
        .set("result", each.result)
        .set("reason", stated(each.reason));
  }
  where.out() << document.text();
}

}  // namespace

int run_sign(const sign_options &options, const console &where) {
  const signer signs(options.certificate, options.key);
  publication_store store(options.publication);
  store.lock();
  std::vector<signed_element> elements;
  for (const element &who : published_elements(options.publication)) {
    if (is_chosen(options, who)) {
      elements.push_back(sign_one(store, signs, who));
    }
  }
  int status = exit_success;
  for (const signed_element &each : elements) {
    if (!each.reason.empty()) {
      tell_error(where.err(), each.who.subsys + " " + each.who.index + ": " + each.reason);
      status = exit_failure;
    }
  }
  if (elements.empty()) {
    tell_error(where.err(), options.publication.string() + ": no such element is published",
               "zotconf publish --help");
    status = exit_failure;
  }
  write_result(where, elements);
  return status;
}

}  // namespace zotconf
