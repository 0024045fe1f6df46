// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/static_server.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

constexpr int tick = 20;        // milliseconds between checks for the end
constexpr int drip_pause = 20;  // milliseconds between two bytes

bool is_readable(const descriptor &socket, int milliseconds) {
  pollfd one{.fd = socket.get(), .events = POLLIN, .revents = 0};
  return ::poll(&one, 1, milliseconds) > 0;
}

// Reads the head of a request; empty when the connection has ended.
std::string read_head(wire &line) {
  std::string head;
  while (head.find("\r\n\r\n") == std::string::npos) {
    const std::string more = line.receive();
    if (more.empty()) {
      return "";
    }
    head += more;
  }
  return head;
}

// The value of a header; empty when there is none.
std::string header(const std::string &head, const std::string &name) {
  const std::size_t at = head.find("\r\n" + name + ": ");
  if (at == std::string::npos) {
    return "";
  }
  const std::size_t begin = at + name.size() + 4;
  return head.substr(begin, head.find("\r\n", begin) - begin);
}

std::string path_in(const std::string &head) {
  const std::size_t begin = head.find(" /");
  const std::size_t end = head.find(' ', begin + 1);
  return begin == std::string::npos ? "" : head.substr(begin + 2, end - begin - 2);
}

answer make_answer(const std::string &status, const std::string &headers, std::string body) {
  return {.head = "HTTP/1.1 " + status + "\r\n" + headers +
                  "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n",
          .body = std::move(body)};
}

answer good_answer(const offer &content, const asked_file &asked) {
  const auto found = content.files.find(asked.path);
  if (found == content.files.end()) {
    return make_answer("404 Not Found", "", "");
  }
  const std::string &bytes = found->second;
  const std::string tag = "\"" + sha256_hex(bytes).substr(0, 16) + "\"";
  if (header(asked.head, "If-None-Match") == tag) {
    return {.head = "HTTP/1.1 304 Not Modified\r\nETag: " + tag + "\r\n\r\n", .body = ""};
  }
  const std::string range = header(asked.head, "Range");
  const std::string unit = "bytes=";
  if (!range.starts_with(unit)) {
    return make_answer("200 OK", "ETag: " + tag + "\r\n", bytes);
  }
  const std::size_t begin = std::stoul(range.substr(unit.size()));
  const std::string total = std::to_string(bytes.size());
  if (begin >= bytes.size()) {
    return make_answer("416 Range Not Satisfiable", "Content-Range: bytes */" + total + "\r\n", "");
  }
  return make_answer("206 Partial Content",
                     "ETag: " + tag + "\r\nContent-Range: bytes " + std::to_string(begin) + "-" +
                         std::to_string(bytes.size() - 1) + "/" + total + "\r\n",
                     bytes.substr(begin));
}

}  // namespace

static_server::static_server()
    : elsewhere_(zotconf::listen_on("127.0.0.1", 0)),
      listening_(zotconf::listen_on("127.0.0.1", 0)),
      phase_(std::make_shared<phase>()) {
  port_ = listening_.port;
  thread_ = std::thread([this] { run(); });
}

static_server::~static_server() {
  stopping_ = true;
  thread_.join();
  end_visits();
}

bool static_server::is_visited_elsewhere() const {
  return is_readable(elsewhere_.socket, 0);
}

void static_server::behave(behaviour next) {
  const std::lock_guard lock(mutex_);
  phase_ = std::make_shared<phase>();
  phase_->what = std::move(next);
  requests_ = 0;
  end_visits();
  if (!phase_->what.is_up) {
    listening_.socket.close();
  } else if (!listening_.socket.is_open()) {
    listening_ = zotconf::listen_on("127.0.0.1", port_);
  }
}

void static_server::end_visits() {
  for (visit &each : visits_) {
    each.line.interrupt();
    each.thread.join();
  }
  visits_.clear();
}

void static_server::reap() {
  for (auto each = visits_.begin(); each != visits_.end();) {
    if (each->is_over) {
      each->thread.join();
      each = visits_.erase(each);
    } else {
      ++each;
    }
  }
}

void static_server::run() {
  while (!stopping_) {
    // Gives a thread that changes the behaviour a chance to take the lock.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::lock_guard lock(mutex_);
    if (!listening_.socket.is_open() || !is_readable(listening_.socket, tick)) {
      continue;
    }
    descriptor socket(::accept4(listening_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket.is_open()) {
      continue;
    }
    reap();
    visit &each = visits_.emplace_back(std::move(socket));
    each.thread = std::thread([this, &each, now = phase_] {
      converse(each, *now);
      each.is_over = true;
    });
  }
}

void static_server::converse(visit &each, phase &now) {
  wire &line = each.line;
  const greeting begins = now.what.begins;
  if (begins == greeting::hang_up) {
    static_cast<void>(line.receive());
    line.reset();
    return;
  }
  if (begins == greeting::silence) {
    while (!line.receive().empty()) {
    }
    return;
  }
  if (begins == greeting::http_error) {
    static_cast<void>(line.receive());
    static_cast<void>(line.send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"));
    line.finish();
    return;
  }
  if (begins == greeting::tls && !line.begin_tls(now.what.tls)) {
    line.finish();
    return;
  }
  for (std::string head = read_head(line); !head.empty(); head = read_head(line)) {
    if (!respond(line, now, head)) {
      return;
    }
  }
}

// Returns false when the connection has ended.
bool static_server::respond(wire &line, phase &now, const std::string &head) {
  ++requests_;
  asked_file asked{.path = path_in(head), .head = head, .count = 0};
  {
    const std::lock_guard lock(now.mutex);
    asked.count = ++now.counts[asked.path];
  }
  const answer good = good_answer(now.what.content, asked);
  if (now.what.act) {
    if (const auto steps = now.what.act(asked, good)) {
      act(line, *steps);
      return false;
    }
  }
  return line.send(good.whole());
}

void static_server::act(wire &line, const script &steps) {
  if (std::ranges::all_of(steps, [&](const step &one) { return perform(line, one); })) {
    line.finish();
  }
}

// Returns false when the connection has ended.
bool static_server::perform(wire &line, const step &one) {
  switch (one.what) {
    case step::kind::send: {
      const std::string bytes = with_ports(one.bytes);
      std::uint64_t left = one.times;
      while (left > 0 && !stopping_ && line.send(bytes)) {
        --left;
      }
      return left == 0;
    }
    case step::kind::drip:
      return std::ranges::all_of(one.bytes, [&](char byte) {
        std::this_thread::sleep_for(std::chrono::milliseconds(drip_pause));
        return !stopping_ && line.send(std::string_view(&byte, 1));
      });
    case step::kind::stall:
      while (!line.receive().empty()) {
      }
      return false;
    case step::kind::reset:
      line.reset();
      return false;
  }
  return false;
}

// Replaces the placeholders for ports by the ports of this server.
std::string static_server::with_ports(std::string bytes) const {
  const std::pair<std::string, int> names[] = {{"@self@", port_}, {"@elsewhere@", elsewhere_.port}};
  for (const auto &[name, port] : names) {
    if (const std::size_t at = bytes.find(name); at != std::string::npos) {
      bytes.replace(at, name.size(), std::to_string(port));
    }
  }
  return bytes;
}

}  // namespace zot::test
