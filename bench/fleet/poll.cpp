// SPDX-License-Identifier: Apache-2.0
// Plays many elements that ask a web server for their checksums, each over its own kept connection,
// and prints what that costs as a line of JSON. The server is on this machine; what its processes
// use is counted. The modes:
//   flood  each element asks again as soon as it has its answer
//   paced  each element asks every --every seconds, more or less by --jitter percent
//   herd   all elements connect and ask once, within --spread seconds, as after a power cut
#include <arpa/inet.h>
#include <signal.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <queue>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/fleet/connection.hpp"
#include "bench/fleet/server_figures.hpp"

namespace {

using timer = std::chrono::steady_clock;
using seconds = std::chrono::duration<double>;

constexpr seconds longest_silence(60);
// A relay gives up after this time, and tries again later.
constexpr double patience = 10;
constexpr size_t opened_together = 64;
constexpr double slots_per_second = 10;

struct settings {
  std::string mode;
  std::string paths;  // file with a path on each line, one for each element
  uint16_t port = 0;
  pid_t server = 0;
  std::string authority;  // empty: no TLS
  std::string certificate;
  std::string key;
  double time = 5;
  double every = 10;
  double jitter = 0;
  double spread = 0;
};

struct element {
  connection link;
  std::string path;
  timer::time_point due;
};

// What the answers of a measurement were like.
struct answers {
  std::vector<double> latencies = {};   // seconds since the request was due
  std::vector<unsigned> per_slot = {};  // answers in each tenth of a second
  std::map<std::string, unsigned> failures = {};
  timer::time_point begin = {};
  timer::time_point end = {};
};

timer::duration exactly(double length) {
  return std::chrono::duration_cast<timer::duration>(seconds(length));
}

double length_of(timer::duration time) {
  return seconds(time).count();
}

std::string request_for(const element &asking, bool is_conditional) {
  std::string request = "GET " + asking.path + " HTTP/1.1\r\nHost: config.example.net\r\n" +
                        "User-Agent: zotconf/1.0.0\r\nAccept: */*\r\nAccept-Encoding: gzip\r\n";
  if (is_conditional) {
    request += "If-None-Match: " + asking.link.answer().etag + "\r\n";
  }
  return request + "\r\n";
}

class client {
 public:
  // When an element asks again, after the answer to the request that was due; nullopt: never.
  using next_request = std::function<std::optional<timer::time_point>(const element &)>;

  client(const web_server &server, std::vector<std::string> paths);
  ~client() { ::close(poller_); }
  client(const client &) = delete;
  client &operator=(const client &) = delete;

  [[nodiscard]] size_t size() const { return elements_.size(); }
  // Opens all connections, a few at a time, and learns the tags of the files.
  void open_all();
  void ask_at(size_t index, timer::time_point when) { due_.emplace(when, index); }
  // Runs until nothing is due and all is answered.
  answers run(int expected_status, const next_request &next);
  [[nodiscard]] tcp_traffic traffic() const;

 private:
  using appointment = std::pair<timer::time_point, size_t>;

  void start_due();
  void wait();
  void progress(size_t index);
  void record(element &answered);
  void fail(const std::string &why);

  std::vector<element> elements_;
  std::priority_queue<appointment, std::vector<appointment>, std::greater<>> due_;
  int poller_;
  size_t waiting_ = 0;
  timer::time_point last_event_ = {};
  answers all_ = {};
  int expected_status_ = 0;
  const next_request *next_ = nullptr;
};

client::client(const web_server &server, std::vector<std::string> paths)
    : poller_(epoll_create1(EPOLL_CLOEXEC)) {
  if (poller_ < 0) {
    throw std::runtime_error("epoll_create1 failed");
  }
  elements_.reserve(paths.size());
  for (std::string &path : paths) {
    elements_.push_back({.link = connection(server), .path = std::move(path), .due = {}});
  }
}

void client::open_all() {
  for (size_t begin = 0; begin < size(); begin += opened_together) {
    for (size_t index = begin; index < std::min(begin + opened_together, size()); ++index) {
      ask_at(index, timer::now());
    }
    const answers opened = run(200, [](const element &) { return std::nullopt; });
    if (!opened.failures.empty()) {
      throw std::runtime_error("cannot open the connections: " + opened.failures.begin()->first);
    }
  }
}

answers client::run(int expected_status, const next_request &next) {
  all_ = {.begin = timer::now()};
  expected_status_ = expected_status;
  next_ = &next;
  last_event_ = all_.begin;
  while (!due_.empty() || waiting_ > 0) {
    start_due();
    wait();
    if (waiting_ > 0 && timer::now() - last_event_ > longest_silence) {
      all_.failures["no answer"] += static_cast<unsigned>(std::exchange(waiting_, 0));
      break;
    }
  }
  all_.end = timer::now();
  return std::move(all_);
}

void client::start_due() {
  for (const timer::time_point now = timer::now(); !due_.empty() && due_.top().first <= now;) {
    const auto [when, index] = due_.top();
    due_.pop();
    element &asking = elements_[index];
    asking.due = when;
    ++waiting_;
    try {
      asking.link.ask(request_for(asking, expected_status_ == 304), poller_, index);
    } catch (const std::exception &error) {
      fail(error.what());
      continue;
    }
    progress(index);
  }
}

void client::wait() {
  const timer::time_point until = due_.empty() ? timer::now() + exactly(1) : due_.top().first;
  const auto pause = std::max(until - timer::now(), timer::duration::zero());
  const auto whole = std::chrono::floor<std::chrono::seconds>(pause);
  const timespec timeout = {.tv_sec = whole.count(),
                            .tv_nsec = std::chrono::nanoseconds(pause - whole).count()};
  std::array<epoll_event, 512> events;
  const int count = epoll_pwait2(poller_, events.data(), events.size(), &timeout, nullptr);
  for (int i = 0; i < count; ++i) {
    progress(events.at(static_cast<size_t>(i)).data.u64);
  }
}

void client::progress(size_t index) {
  element &changed = elements_[index];
  try {
    if (changed.link.progress()) {
      record(changed);
    }
  } catch (const std::exception &error) {
    fail(error.what());
  }
}

void client::fail(const std::string &why) {
  ++all_.failures[why];
  --waiting_;
}

void client::record(element &answered) {
  const timer::time_point now = timer::now();
  --waiting_;
  last_event_ = now;
  if (const int status = answered.link.answer().status; status != expected_status_) {
    ++all_.failures["status " + std::to_string(status)];
    return;
  }
  all_.latencies.push_back(length_of(now - answered.due));
  const auto slot = static_cast<size_t>(length_of(now - all_.begin) * slots_per_second);
  all_.per_slot.resize(std::max(all_.per_slot.size(), slot + 1));
  ++all_.per_slot[slot];
  if (const auto next = (*next_)(answered)) {
    ask_at(static_cast<size_t>(&answered - elements_.data()), *next);
  }
}

tcp_traffic client::traffic() const {
  tcp_traffic sum;
  for (const element &each : elements_) {
    const tcp_traffic part = each.link.traffic();
    sum.payload += part.payload;
    sum.frames += part.frames;
  }
  return sum;
}

// A measurement, and what was used before and after it.
class measurement {
 public:
  measurement(client &elements, const settings &given) : elements_(elements), given_(given) {}

  void run() {
    if (given_.mode != "herd") {
      elements_.open_all();
    }
    const server_figures opened = figures_of_server(given_.server);
    const tcp_traffic traffic = elements_.traffic();
    const double own = own_cpu();
    result_ = given_.mode == "herd" ? herd() : given_.mode == "flood" ? flood() : paced();
    own_cpu_ = own_cpu() - own;
    const server_figures now = figures_of_server(given_.server);
    server_cpu_ = now.cpu - opened.cpu;
    server_memory_ = now.memory - before_.memory;
    dropped_ = now.dropped - opened.dropped;
    traffic_ = elements_.traffic();
    traffic_.payload -= traffic.payload;
    traffic_.frames -= traffic.frames;
  }

  void print(std::ostream &out);
  [[nodiscard]] bool has_answers() const { return !result_.latencies.empty(); }

 private:
  static double own_cpu() {
    timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
  }

  double between(double low, double high) {
    return std::uniform_real_distribution(low, high)(random_);
  }

  answers flood() {
    const timer::time_point end = timer::now() + exactly(given_.time);
    start_within(0);
    return elements_.run(304, [end](const element &) {
      const timer::time_point now = timer::now();
      return now < end ? std::optional(now) : std::nullopt;
    });
  }

  answers paced() {
    const timer::time_point end = timer::now() + exactly(given_.time);
    start_within(given_.jitter > 0 ? given_.every : 0);
    const double vary = given_.jitter / 100;
    return elements_.run(304, [&](const element &asked) {
      const auto next = asked.due + exactly(given_.every * between(1 - vary, 1 + vary));
      return next < end ? std::optional(next) : std::nullopt;
    });
  }

  answers herd() {
    start_within(given_.spread);
    return elements_.run(200, [](const element &) { return std::nullopt; });
  }

  void start_within(double period) {
    const timer::time_point now = timer::now();
    for (size_t index = 0; index < elements_.size(); ++index) {
      elements_.ask_at(index, period > 0 ? now + exactly(between(0, period)) : now);
    }
  }

  [[nodiscard]] double latency(double share) const {
    const size_t last = result_.latencies.size() - 1;
    return result_.latencies[static_cast<size_t>(static_cast<double>(last) * share)];
  }

  client &elements_;
  const settings &given_;
  // Always the same moments, so that two measurements of a fleet differ only in what they compare.
  std::mt19937 random_{static_cast<unsigned>(elements_.size())};
  server_figures before_ = figures_of_server(given_.server);
  answers result_ = {};
  tcp_traffic traffic_ = {};
  double server_cpu_ = 0;
  double own_cpu_ = 0;
  uint64_t server_memory_ = 0;
  uint64_t dropped_ = 0;
};

void measurement::print(std::ostream &out) {
  std::ranges::sort(result_.latencies);
  out << R"({"poll":{"mode":")" << given_.mode << R"(","tls":)"
      << (given_.authority.empty() ? "false" : "true") << ",\"elements\":" << elements_.size()
      << ",\"every\":" << given_.every << ",\"jitter\":" << given_.jitter
      << ",\"spread\":" << given_.spread
      << ",\"seconds\":" << length_of(result_.end - result_.begin)
      << ",\"answers\":" << result_.latencies.size() << ",\"server_cpu\":" << server_cpu_
      << ",\"own_cpu\":" << own_cpu_ << ",\"server_memory\":" << server_memory_
      << ",\"dropped\":" << dropped_ << ",\"payload\":" << traffic_.payload
      << ",\"frames\":" << traffic_.frames;
  const auto late = std::ranges::upper_bound(result_.latencies, patience);
  out << ",\"late\":" << result_.latencies.end() - late;
  if (has_answers()) {
    out << ",\"p50\":" << latency(0.5) << ",\"p99\":" << latency(0.99) << ",\"max\":" << latency(1);
  }
  const char *separator = "";
  out << ",\"failures\":{";
  for (const auto &[why, count] : result_.failures) {
    out << std::exchange(separator, ",") << '"' << why << "\":" << count;
  }
  out << "},\"per_slot\":[";
  separator = "";
  for (const unsigned count : result_.per_slot) {
    out << std::exchange(separator, ",") << count;
  }
  out << "]}}\n";
}

std::vector<std::string> lines_of(const std::string &path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  if (lines.empty()) {
    throw std::runtime_error(path + " names no file");
  }
  return lines;
}

using tls_settings = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

tls_settings tls_of(const settings &given) {
  tls_settings tls(nullptr, SSL_CTX_free);
  if (given.authority.empty()) {
    return tls;
  }
  tls.reset(SSL_CTX_new(TLS_client_method()));
  if (!tls || SSL_CTX_load_verify_file(tls.get(), given.authority.c_str()) != 1 ||
      SSL_CTX_use_certificate_chain_file(tls.get(), given.certificate.c_str()) != 1 ||
      SSL_CTX_use_PrivateKey_file(tls.get(), given.key.c_str(), SSL_FILETYPE_PEM) != 1) {
    throw std::runtime_error("cannot read the certificates");
  }
  SSL_CTX_set_verify(tls.get(), SSL_VERIFY_PEER, nullptr);
  return tls;
}

settings settings_of(int argc, char **argv) {
  settings given;
  CLI::App line("Plays many elements that poll a web server.");
  line.add_option("mode", given.mode)->required()->check(CLI::IsMember({"flood", "paced", "herd"}));
  line.add_option("--paths", given.paths)->required();
  line.add_option("--port", given.port)->required();
  line.add_option("--server", given.server, "process whose children are the workers")->required();
  line.add_option("--ca", given.authority, "use TLS");
  line.add_option("--cert", given.certificate);
  line.add_option("--key", given.key);
  line.add_option("--time", given.time, "seconds, of flood and paced");
  line.add_option("--every", given.every, "seconds, of paced");
  line.add_option("--jitter", given.jitter, "percent, of paced");
  line.add_option("--spread", given.spread, "seconds, of herd");
  try {
    line.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    std::exit(line.exit(error));
  }
  return given;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    const settings given = settings_of(argc, argv);
    signal(SIGPIPE, SIG_IGN);
    const tls_settings tls = tls_of(given);
    const web_server server = {.address = {.sin_family = AF_INET,
                                           .sin_port = htons(given.port),
                                           .sin_addr = {.s_addr = htonl(INADDR_LOOPBACK)},
                                           .sin_zero = {}},
                               .tls = tls.get()};
    client elements(server, lines_of(given.paths));
    measurement measured(elements, given);
    measured.run();
    measured.print(std::cout);
    return measured.has_answers() ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception &error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
