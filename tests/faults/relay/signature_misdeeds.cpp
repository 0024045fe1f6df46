// SPDX-License-Identifier: Apache-2.0
// Signatures that do not count.
#include "tests/faults/relay/misdeed.hpp"

namespace zot::test {
namespace {

using changing =
    std::function<std::string(const std::string &k, const std::string &good, const cast &all)>;

misdeed row(const std::string &name, const std::string &reason, const changing &change) {
  return {.name = "signature: " + name,
          .apply =
              [=](behaviour &changed, const cast &all) {
                auto &files = changed.content.files;
                files[signature_path] = change(files[k_path], files[signature_path], all);
              },
          .expected = outcome::refused,
          .reason = reason};
}

misdeed signed_by(const std::string &name, const std::string &reason, identity cast::*signer) {
  return row(name, reason, [=](const std::string &k, const std::string &, const cast &all) {
    return sign(k, {.signers = {all.*signer}});
  });
}

}  // namespace

misdeeds signature_misdeeds() {
  using text = std::string;
  misdeeds all = {
      signed_by("by an unknown authority", "signed by an unknown certificate: CN=publisher",
                &cast::stranger),
      signed_by("by an expired certificate", "the signer's certificate has expired on",
                &cast::expired),
      signed_by("by a certificate that is not yet valid",
                "the signer's certificate is not valid before", &cast::early),
      signed_by("by a revoked certificate", "the signer's certificate is revoked: CN=revoked",
                &cast::revoked),
      signed_by("by a certificate without key usage",
                "the signer's certificate does not allow digital signatures", &cast::without_usage),
      signed_by("by a certificate that may not sign",
                "the signer's certificate does not allow digital signatures", &cast::encipherer),
      signed_by("by a certificate for servers", "signed by an unknown certificate: CN=host",
                &cast::host),
      signed_by("by the authority itself",
                "the signer's certificate does not allow digital signatures", &cast::authority),
      row("of another K", "the signature is not that of this K",
          [](const text &, const text &, const cast &cast) {
            return sign("{}", {.signers = {cast.publisher}});
          }),
      row("of the K before", "the signature is not that of this K",
          [](const text &, const text &, const cast &cast) {
            return cast.generations.at(in_service).files.at(signature_path);
          }),
      row("by two signers, one of them unknown", "the signature has 2 signers, not one",
          [](const text &k, const text &, const cast &cast) {
            return sign(k, {.signers = {cast.publisher, cast.stranger}});
          }),
      row("by nobody", "the signature has 0 signers, not one",
          [](const text &k, const text &, const cast &) { return sign(k, {}); }),
      row("with K in it", "the signature is not detached",
          [](const text &k, const text &, const cast &cast) {
            return sign(k, {.has_content = true, .signers = {cast.publisher}});
          }),
      row("of other bytes, which are in it", "the signature is not detached",
          [](const text &, const text &, const cast &cast) {
            return sign("{}", {.has_content = true, .signers = {cast.publisher}});
          }),
      row("without the certificate of the signer", "the signer's certificate is missing",
          [](const text &k, const text &, const cast &cast) {
            return sign(k, {.has_certificates = false, .signers = {cast.publisher}});
          }),
      row("with a byte behind it", "the signature is not DER",
          [](const text &, const text &good, const cast &) { return good + "7"; }),
      row("in PEM", "the signature is not DER",
          [](const text &k, const text &, const cast &cast) {
            return sign(k, {.is_pem = true, .signers = {cast.publisher}});
          }),
      row("a bit flipped", "the signature is not that of this K",
          [](text, text good, const cast &) {
            good[good.size() - 5] = static_cast<char>(good[good.size() - 5] ^ 1);
            return good;
          }),
      row("text", "the signature is not DER",
          [](const text &, const text &, const cast &) { return text("signed"); }),
  };
  misdeed missing = row("none", "K is not signed", {});
  missing.apply = [](behaviour &changed, const cast &) {
    changed.content.files.erase(signature_path);
  };
  all.push_back(missing);
  return all;
}

}  // namespace zot::test
