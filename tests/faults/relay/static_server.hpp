// SPDX-License-Identifier: Apache-2.0
// A server of static files, which can send what no other one would.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "tests/faults/relay/offer.hpp"
#include "tests/faults/relay/wire.hpp"
#include "tests/faults/service/script.hpp"
#include "tools/service/listener.hpp"

namespace zot::test {

struct asked_file {
  std::string path;  // below the URL
  std::string head;  // of the request
  unsigned count;    // of the requests for this path, beginning with 1
};

// What the server says on a connection.
enum class greeting { plain, tls, hang_up, silence, http_error };

// How a server behaves from now on.
struct behaviour {
  offer content = {};
  greeting begins = greeting::plain;
  tls_settings tls = {};
  // Replaces an answer; nullopt: the right one is sent.
  std::function<std::optional<script>(const asked_file &, const answer &)> act = {};
  bool is_up = true;  // false: connections are refused
};

class static_server {
 public:
  static_server();
  static_server(const static_server &) = delete;
  static_server &operator=(const static_server &) = delete;
  ~static_server();

  [[nodiscard]] int port() const { return port_; }
  // Ends all connections.
  void behave(behaviour next);
  [[nodiscard]] unsigned requests() const { return requests_; }
  // Whether a client has connected to the port in the redirections.
  [[nodiscard]] bool is_visited_elsewhere() const;

 private:
  struct phase {
    behaviour what;
    std::mutex mutex;  // guards the counts
    std::map<std::string, unsigned> counts;
  };
  struct visit {
    explicit visit(descriptor socket) : line(std::move(socket)) {}
    wire line;
    std::atomic<bool> is_over = false;
    std::thread thread;
  };

  void run();
  void converse(visit &each, phase &now);
  [[nodiscard]] bool respond(wire &line, phase &now, const std::string &head);
  void act(wire &line, const script &steps);
  [[nodiscard]] bool perform(wire &line, const step &one);
  [[nodiscard]] std::string with_ports(std::string bytes) const;
  void end_visits();
  void reap();

  zotconf::listener elsewhere_;
  int port_ = 0;
  std::mutex mutex_;  // guards the three below
  zotconf::listener listening_;
  std::shared_ptr<phase> phase_;
  std::list<visit> visits_;
  std::atomic<unsigned> requests_ = 0;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace zot::test
