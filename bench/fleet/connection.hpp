// SPDX-License-Identifier: Apache-2.0
// The connection of an element to its web server, with HTTP/1.1 and, if wanted, TLS. No call waits.
#pragma once

#include <netinet/in.h>
#include <openssl/ssl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct web_server {
  sockaddr_in address;
  SSL_CTX *tls;  // null: without TLS
};

struct http_answer {
  int status = 0;
  std::string etag = {};
};

// What a connection has sent and received, as TCP counts it.
struct tcp_traffic {
  uint64_t payload = 0;  // bytes
  uint64_t frames = 0;
};

class connection {
 public:
  explicit connection(const web_server &server) : server_(&server) {}
  connection(connection &&) = default;
  connection &operator=(connection &&) = default;
  connection(const connection &) = delete;
  connection &operator=(const connection &) = delete;
  ~connection() = default;

  // Sends a request, on a new connection if there is none. `poller` then reports what happens, each
  // change once, with `id`; call progress() each time and after this call. Throws as progress()
  // does.
  void ask(const std::string &request, int poller, uint64_t id);
  // Does what is possible now. Returns true if that completed the answer. Throws
  // std::runtime_error if the connection has failed; it is closed then.
  bool progress();
  [[nodiscard]] const http_answer &answer() const { return answer_; }
  [[nodiscard]] tcp_traffic traffic() const;
  void close();

 private:
  // Closes without the time that a port stays reserved, so that runs can follow each other.
  class socket_owner {
   public:
    explicit socket_owner(int number) : number_(number) {}
    socket_owner(const socket_owner &) = delete;
    socket_owner &operator=(const socket_owner &) = delete;
    ~socket_owner();
    [[nodiscard]] int number() const { return number_; }

   private:
    int number_;
  };
  struct freed {
    void operator()(SSL *tls) const { SSL_free(tls); }
  };
  enum class state { idle, shaking, sending, receiving };

  void open(int poller, uint64_t id);
  bool advance();
  bool shake();
  bool send_rest();
  bool receive();
  bool is_complete();
  std::optional<size_t> write_some();
  std::optional<size_t> read_some(char *buffer, size_t size);

  const web_server *server_;
  std::unique_ptr<socket_owner> socket_;
  std::unique_ptr<SSL, freed> tls_;
  state state_ = state::idle;
  std::string output_;
  std::string input_;
  http_answer answer_;
};
