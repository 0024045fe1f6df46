// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/connection.hpp"

#include <openssl/ssl.h>

namespace zotconf {
namespace {

// libcurl calls this for each new connection.
CURLcode set_certificate_time(CURL * /*curl*/, void *context, void *time) noexcept {
  const auto &now = *static_cast<const std::function<std::time_t()> *>(time);
  X509_VERIFY_PARAM *const rules = ::SSL_CTX_get0_param(static_cast<SSL_CTX *>(context));
  ::X509_VERIFY_PARAM_set_time(rules, now());
  return CURLE_OK;
}

void set_protocol(CURL *curl, const connection_options &options, const upstream_url &url) {
  set_option(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  set_option(curl, CURLOPT_FOLLOWLOCATION, 0L);
  set_option(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
  set_option(curl, CURLOPT_PATH_AS_IS, 1L);
  set_option(curl, CURLOPT_USERAGENT, "zotconf");
  set_option(curl, CURLOPT_PROXY, "");
  set_option(curl, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  if (!url.user().empty() || !url.password().empty()) {
    set_option(curl, CURLOPT_USERNAME, url.user().c_str());
    set_option(curl, CURLOPT_PASSWORD, url.password().c_str());
  }
  set_option(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.connect_timeout.count()));
  set_option(curl, CURLOPT_NOSIGNAL, 1L);
  // A lookup of a name that hangs must not delay the end.
  set_option(curl, CURLOPT_QUICK_EXIT, 1L);
}

void set_tls(CURL *curl, const connection_options &options) {
  set_option(curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set_option(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  set_option(curl, CURLOPT_SSL_VERIFYHOST, 2L);
  if (!options.ca.empty()) {
    set_option(curl, CURLOPT_CAINFO, options.ca.c_str());
    // Otherwise the certificates of the system would be trusted too.
    set_option(curl, CURLOPT_CAPATH, static_cast<const char *>(nullptr));
    set_option(curl, CURLOPT_CA_CACHE_TIMEOUT, 0L);
  }
  if (options.certificate_time) {
    set_option(curl, CURLOPT_SSL_CTX_FUNCTION, set_certificate_time);
    set_option(curl, CURLOPT_SSL_CTX_DATA, &options.certificate_time);
  }
  if (!options.certificate.empty()) {
    set_option(curl, CURLOPT_SSLCERT, options.certificate.c_str());
    set_option(curl, CURLOPT_SSLKEY,
               options.key.empty() ? options.certificate.c_str() : options.key.c_str());
    // Without a password, OpenSSL would ask for one on the terminal.
    set_option(curl, CURLOPT_KEYPASSWD, "");
  }
}

}  // namespace

void set_connection(CURL *curl, const connection_options &options, const upstream_url &url) {
  set_protocol(curl, options, url);
  set_tls(curl, options);
}

}  // namespace zotconf
