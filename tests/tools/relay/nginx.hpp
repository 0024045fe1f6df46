// SPDX-License-Identifier: Apache-2.0
// nginx with TLS and HTTP/2, on a free port of 127.0.0.1.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/tools/relay/tls_authority.hpp"
#include "tests/tools/support/process.hpp"
#include "utilities/owner.hpp"

namespace zot::test {

class nginx {
 public:
  // `more` is added to the server of the configuration.
  explicit nginx(const tls_authority &authority, const std::string &more = "") {
    write_configuration(authority, more);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::execlp("nginx", "nginx", "-p", dir_.path().c_str(), "-e", log_.c_str(), "-c",
               configuration_.c_str(), nullptr);
      ::_exit(127);
    }
    pid_ = pid;
    wait_until([this] { return exists(dir_ / "pid") && is_answering(); }, "nginx");
  }
  nginx(const nginx &) = delete;
  nginx &operator=(const nginx &) = delete;
  ~nginx() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }

  static constexpr size_t requests_of_a_connection = 200;

  static bool is_installed() { return std::system("nginx -v 2>/dev/null") == 0; }
  [[nodiscard]] std::string url() const { return "https://127.0.0.1:" + std::to_string(port_); }
  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(dir_ / ("root/" + name), bytes);
  }
  [[nodiscard]] std::string root() const { return dir_ / "root"; }
  // One line for each request: the protocol and the number of the connection.
  [[nodiscard]] std::vector<std::string> requests() const {
    std::istringstream lines(read_bytes(dir_ / "requests"));
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) {
      all.push_back(line);
    }
    return all;
  }

 private:
  static int free_port() {
    const zot::descriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(probe.get(), reinterpret_cast<sockaddr *>(&address), size);
    ::getsockname(probe.get(), reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin_port);
  }
  void write_configuration(const tls_authority &authority, const std::string &more) const {
    std::string text = "daemon off;\nmaster_process off;\npid " + (dir_ / "pid") +
                       ";\nevents { worker_connections 64; }\nhttp {\n" +
                       "log_format line '$server_protocol $connection';\naccess_log " +
                       (dir_ / "requests") + " line;\n";
    for (const char *const kind : {"client_body", "fastcgi", "proxy", "scgi", "uwsgi"}) {
      text += std::string(kind) + "_temp_path " + dir_.path() + "/" + kind + ";\n";
    }
    text += "server {\nlisten 127.0.0.1:" + std::to_string(port_) +
            " ssl http2;\nkeepalive_requests " + std::to_string(requests_of_a_connection) +
            ";\nroot " + (dir_ / "root") + ";\nssl_certificate " +
            authority.certificate_of("server") + ";\nssl_certificate_key " +
            authority.key_of("server") + ";\n" + more + "}\n}\n";
    write_bytes(configuration_, text);
  }
  [[nodiscard]] bool is_answering() const {
    const zot::descriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    address.sin_port = ::htons(static_cast<std::uint16_t>(port_));
    return ::connect(probe.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
  }

  temp_dir dir_;
  const std::string configuration_ = dir_ / "conf";
  const std::string log_ = dir_ / "log";
  const int port_ = free_port();
  pid_t pid_ = -1;
};

}  // namespace zot::test
