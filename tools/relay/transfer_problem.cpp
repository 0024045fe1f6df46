// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/transfer_problem.hpp"

#include <openssl/x509_vfy.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "tools/output/duration.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

std::string with_reason(std::string text, const failed_transfer &failed) {
  const std::string reason =
      failed.reason.empty() ? curl_easy_strerror(failed.result) : failed.reason;
  return std::move(text) + ": " + printable(reason);
}

std::string refusal_text(const failed_transfer &failed) {
  long error = 0;
  curl_easy_getinfo(failed.curl, CURLINFO_OS_ERRNO, &error);
  if (error == ECONNREFUSED) {
    return ": refused";
  }
  if (error != 0) {
    return ": " + std::generic_category().message(static_cast<int>(error));
  }
  return "";
}

std::string certificate_text(const failed_transfer &failed, const upstream_url &url) {
  long verified = X509_V_OK;
  curl_easy_getinfo(failed.curl, CURLINFO_SSL_VERIFYRESULT, &verified);
  const std::string what = "the certificate of " + url.host() + " is not valid";
  // The chain is good, but the certificate is for another host.
  if (verified == X509_V_OK || verified == X509_V_ERR_UNSPECIFIED) {
    return with_reason(what, failed);
  }
  return what + ": " + ::X509_verify_cert_error_string(verified);
}

// In TLS 1.3 a server refuses the certificate of a client after the handshake, with an alert.
std::string no_answer_text(const failed_transfer &failed) {
  static constexpr std::string_view before_alert = "SSL routines::";
  if (const size_t at = failed.reason.find(before_alert); at != std::string::npos) {
    const std::string alert = failed.reason.substr(at + before_alert.size());
    return "the server ended the TLS connection: " + printable(alert.substr(0, alert.find(',')));
  }
  return failed.result == CURLE_GOT_NOTHING
             ? "the connection ended without an answer"
             : with_reason("the connection ended without an answer", failed);
}

std::string early_end_text(const failed_transfer &failed) {
  if (!failed.has_head) {
    return no_answer_text(failed);
  }
  curl_off_t length = -1;
  curl_easy_getinfo(failed.curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  return length < 0 ? "the connection ended within the answer"
                    : early_end(static_cast<uint64_t>(length));
}

}  // namespace

bool is_broken(const failed_transfer &failed) {
  switch (failed.result) {
    case CURLE_GOT_NOTHING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
      return failed.is_asked;
    default:
      return false;
  }
}

std::string problem_text(const failed_transfer &failed, const upstream_url &url) {
  if (is_broken(failed)) {
    return early_end_text(failed);
  }
  switch (failed.result) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "cannot resolve " + url.host();
    case CURLE_COULDNT_CONNECT:
      return "cannot connect to " + url.place() + refusal_text(failed);
    case CURLE_OPERATION_TIMEDOUT:
      return "cannot connect to " + url.place() + ": no answer for " +
             duration_text(failed.connect_timeout);
    case CURLE_PEER_FAILED_VERIFICATION:
      return certificate_text(failed, url);
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
      return with_reason("cannot connect to " + url.place(), failed);
    case CURLE_SSL_CERTPROBLEM:
      return with_reason("the certificate of this client cannot be used", failed);
    case CURLE_SSL_CACERT_BADFILE:
      return with_reason("the trusted certificates cannot be read", failed);
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
      return with_reason("the answer is not HTTP", failed);
    case CURLE_OUT_OF_MEMORY:
      return failed.is_asked && !failed.has_head ? "a header is too long, or there is no memory"
                                                 : with_reason("the transfer failed", failed);
    default:
      return with_reason("the transfer failed", failed);
  }
}

std::string early_end(uint64_t size) {
  return "the connection ended before all " + std::to_string(size) + " bytes had arrived";
}

}  // namespace zotconf
