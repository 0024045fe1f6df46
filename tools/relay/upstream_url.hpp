// SPDX-License-Identifier: Apache-2.0
// The URL of an upstream server: http or https, with or without credentials, a path and a final
// slash.
#pragma once

#include <string>
#include <string_view>

namespace zotconf {

// The same URL without "user:password@", for messages. A text that is not a URL loses everything
// before its last "@".
std::string without_credentials(const std::string &url);

// Returns an empty text when valid, else the error.
std::string check_upstream_url(std::string_view url);

class upstream_url {
 public:
  // Throws std::runtime_error if the URL is not valid.
  explicit upstream_url(const std::string &url);

  // The URL of a file below this one, without credentials. Its path is not encoded yet.
  [[nodiscard]] std::string of(std::string_view path) const;
  [[nodiscard]] bool is_secure() const { return is_secure_; }
  [[nodiscard]] const std::string &user() const { return user_; }
  [[nodiscard]] const std::string &password() const { return password_; }
  [[nodiscard]] const std::string &host() const { return host_; }
  // HOST:PORT
  [[nodiscard]] std::string place() const { return host_ + ":" + port_; }

 private:
  std::string base_;  // without a final slash
  bool is_secure_ = false;
  std::string user_;
  std::string password_;
  std::string host_;
  std::string port_;
};

}  // namespace zotconf
