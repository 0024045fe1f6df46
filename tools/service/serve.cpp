// SPDX-License-Identifier: Apache-2.0
#include "tools/service/serve.hpp"

#include <cjson/cJSON.h>
#include <httplib.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <ostream>
#include <set>
#include <thread>

#include "tools/files/archive.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/service/request_log.hpp"
#include "tools/service/status_page.hpp"

namespace zotconf {
namespace {

constexpr size_t longest_request = size_t{64} << 20;
constexpr time_t transfer_stall_seconds = 5;
constexpr const char *latest_url =
    R"(/file/knowledge/(AP|CP|DP)/([0-9A-Za-z:._-]{1,17})/latest/([0-9A-Za-z:._-]{1,17})\.(k|checksum))";

using clock = std::chrono::steady_clock;

// What is known of a request before it is answered. It belongs to the thread that answers it.
struct open_request {
  std::optional<clock::time_point> begin;
  std::string result;
};

thread_local open_request at_hand;

void note(std::string result) {
  at_hand.result = std::move(result);
}

std::string error_json(const std::string &error, const std::string &file) {
  json_document document;
  document.root().set("error", error);
  if (!file.empty()) {
    document.root().set("file", file);
  }
  return document.line();
}

void refuse(httplib::Response &response, int status, const std::string &error,
            const std::string &file = "") {
  note(file.empty() ? error : error + ": " + file);
  response.status = status;
  response.set_content(error_json(error, file), "application/json");
}

void answer_latest(const publication_store &store, const httplib::Request &request,
                   httplib::Response &response) {
  const element who{.subsys = request.matches[1], .index = request.matches[2]};
  if (request.matches[3] != who.index || !check_index(who.index).empty()) {
    return refuse(response, 404, "not found");
  }
  const bool is_k = request.matches[4] == "k";
  const auto bytes = is_k ? store.read_k(who) : store.read_checksum(who);
  if (!bytes) {
    refuse(response, 404, "not published", request.path);
    return note("not published");
  }
  note(is_k ? "sent K" : "sent the checksum");
  response.set_content(*bytes, is_k ? "application/json" : "text/plain");
}

void send_archive(std::shared_ptr<gzip_tar> packed, httplib::Response &response) {
  packed->finish();
  const size_t size = packed->size();
  response.set_content_provider(
      size, "application/gzip",
      [packed = std::move(packed)](size_t offset, size_t length, httplib::DataSink &sink) {
        std::array<char, 65536> chunk{};
        const size_t got = packed->read(offset, chunk.data(), std::min(length, chunk.size()));
        return got > 0 && sink.write(chunk.data(), got);
      });
}

void answer_archive(const publication_store &store, const std::string &body,
                    httplib::Response &response) {
  const auto names = parse_file_request(body);
  if (!names) {
    return refuse(response, 400, R"(the body must be {"files": ["/config/...", ...]})");
  }
  const auto packed = std::make_shared<gzip_tar>();
  std::set<std::vector<std::string>> seen;
  for (const std::string &name : *names) {
    const auto parts = split_member_name(name);
    if (!parts) {
      return refuse(response, 400, "not a name of the form /config/category/key/version", name);
    }
    if (!seen.insert(*parts).second) {
      continue;
    }
    const zot::descriptor file = store.open_member(*parts);
    if (!file.is_open()) {
      return refuse(response, 404, "no such file", name);
    }
    packed->add(file.get(),
                (*parts)[0] + "/" + (*parts)[1] + "/" + (*parts)[2] + "/" + (*parts)[3]);
  }
  note("sent " + std::to_string(seen.size()) + (seen.size() == 1 ? " file" : " files"));
  send_archive(packed, response);
}

bool read_body(const httplib::ContentReader &reader, std::string &body) {
  return reader([&body](const char *data, size_t size) {
    body.append(data, size);
    return true;
  });
}

void add_routes(httplib::Server &server, const publication_store &store, std::ostream &err) {
  server.Get(latest_url, [&store](const httplib::Request &request, httplib::Response &response) {
    answer_latest(store, request, response);
  });
  // Read through a reader: the library's own limit for form bodies is far below a long file list.
  server.Post("/tgz", [&store](const httplib::Request &, httplib::Response &response,
                               const httplib::ContentReader &reader) {
    std::string body;
    if (read_body(reader, body)) {
      answer_archive(store, body, response);
    }
  });
  server.set_error_handler([](const httplib::Request &, httplib::Response &response) {
    if (response.body.empty()) {
      refuse(response, response.status, response.status == 404 ? "not found" : "request refused");
    }
  });
  server.set_exception_handler(
      [&err](const httplib::Request &, httplib::Response &response, std::exception_ptr failure) {
        try {
          std::rethrow_exception(std::move(failure));
        } catch (const std::exception &error) {
          err << "zotconf: " + printable(error.what()) + "\n" << std::flush;
        }
        refuse(response, 500, "internal error");
      });
}

void set_limits(httplib::Server &server) {
  server.set_payload_max_length(longest_request);
  // A connection carries one request, so an idle client holds no thread and delays no stop.
  server.set_keep_alive_max_count(1);
  server.set_keep_alive_timeout(transfer_stall_seconds);
  server.set_read_timeout(transfer_stall_seconds);
  server.set_write_timeout(transfer_stall_seconds);
  // Address reuse lets a restarted service bind at once; port sharing, which the default allows,
  // would let two services answer on one port in turns.
  server.set_socket_options([](socket_t socket) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
}

sigset_t stop_signals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  return signals;
}

// Waits for a stop signal in a thread of its own and ends the server's loop.
class stopper {
 public:
  explicit stopper(httplib::Server &server) : server_(server), thread_([this] { wait(); }) {}
  stopper(const stopper &) = delete;
  stopper &operator=(const stopper &) = delete;
  ~stopper() {
    finished_ = true;
    ::pthread_kill(thread_.native_handle(), SIGTERM);
    thread_.join();
  }

  [[nodiscard]] bool was_asked() const { return asked_; }

 private:
  void wait() {
    const sigset_t signals = stop_signals();
    int number = 0;
    ::sigwait(&signals, &number);
    asked_ = !finished_;
    // A signal may come before the loop has begun, and only a running loop can be stopped.
    while (!finished_ && !server_.is_running()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    server_.stop();
  }

  httplib::Server &server_;
  std::atomic<bool> finished_ = false;
  std::atomic<bool> asked_ = false;
  std::thread thread_;
};

int bind_port(httplib::Server &server, const serve_options &options) {
  if (options.port == 0) {
    return server.bind_to_any_port(options.bind);
  }
  return server.bind_to_port(options.bind, options.port) ? options.port : -1;
}

std::string host_text(const std::string &host) {
  return host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

void tell_address(const console &where, const std::string &host, int port) {
  if (!where.is_json()) {
    where.out() << "listening on " << host_text(host) << ':' << port << std::endl;
    return;
  }
  json_document line;
  line.root().object("listening").set("host", host).set("port", port);
  where.out() << line.line() << std::flush;
}

uint64_t microseconds_since(const std::optional<clock::time_point> &begin) {
  const auto span = begin ? clock::now() - *begin : clock::duration::zero();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(span).count());
}

uint64_t length_of(const httplib::Response &response) {
  const std::string text = response.get_header_value("Content-Length");
  uint64_t length = 0;
  std::from_chars(text.data(), text.data() + text.size(), length);
  return length;
}

std::string result_of(std::string noted, const httplib::Response &response) {
  if (response.content_provider_ && !response.content_provider_success_) {
    return "broken off by the client";
  }
  if (noted.empty()) {
    noted = response.status < 400 ? "answered" : "refused";
  }
  return noted;
}

request_record record_of(const httplib::Request &request, const httplib::Response &response) {
  open_request done = std::exchange(at_hand, {});
  return {.time = "",
          .client = request.remote_addr,
          .method = request.method,
          .path = request.path,
          .status = response.status,
          .bytes = length_of(response),
          .duration_us = microseconds_since(done.begin),
          .result = result_of(std::move(done.result), response)};
}

http_request plain_request(const httplib::Request &request) {
  const size_t mark = request.target.find('?');
  http_request plain{.method = request.method,
                     .path = request.path,
                     .query = mark == std::string::npos ? "" : request.target.substr(mark + 1),
                     .headers = {},
                     .body = "",
                     .client = request.remote_addr};
  for (const auto &[name, value] : request.headers) {
    plain.headers.push_back({name, value});
  }
  return plain;
}

void send(const http_answer &answer, httplib::Response &response) {
  response.status = answer.status;
  for (const http_header &header : answer.headers) {
    response.set_header(header.name, header.value);
  }
  response.set_content(answer.body, answer.type);
}

void show_page(httplib::Server &server, status_page &page) {
  server.set_pre_routing_handler(
      [&page](const httplib::Request &request, httplib::Response &response) {
        at_hand = {.begin = clock::now(), .result = ""};
        const auto answer = page.answer(plain_request(request));
        if (!answer) {
          return httplib::Server::HandlerResponse::Unhandled;
        }
        send(*answer, response);
        return httplib::Server::HandlerResponse::Handled;
      });
}

void keep_log(httplib::Server &server, request_log &log) {
  server.set_logger([&log](const httplib::Request &request, const httplib::Response &response) {
    if (!status_page::is_asked(plain_request(request))) {
      log.add(record_of(request, response));
    }
  });
}

}  // namespace

std::optional<std::vector<std::string>> parse_file_request(const std::string &body) {
  std::vector<std::string> names;
  if (body.empty()) {
    return names;
  }
  const zot::json_tree root(cJSON_ParseWithLengthOpts(body.c_str(), body.size() + 1, nullptr, 1));
  const cJSON *const files = cJSON_GetObjectItem(root.get(), "files");
  if (!cJSON_IsArray(files)) {
    return std::nullopt;
  }
  for (const cJSON *item = files->child; item != nullptr; item = item->next) {
    if (!cJSON_IsString(item)) {
      return std::nullopt;
    }
    names.emplace_back(item->valuestring);
  }
  return names;
}

int run_serve(const serve_options &options, const console &where) {
  if (!fs::is_directory(options.publication)) {
    where.err() << "zotconf: " << options.publication.string() << " is not a folder\n";
    return exit_failure;
  }
  // Blocked before any thread starts, so that only the stopper receives them.
  const sigset_t signals = stop_signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const publication_store store(options.publication);
  request_log log(where.out(), where.is_json());
  status_page page(options.publication, store, log);
  httplib::Server server;
  set_limits(server);
  add_routes(server, store, where.err());
  show_page(server, page);
  keep_log(server, log);
  const int port = bind_port(server, options);
  if (port < 0) {
    where.err() << "zotconf: cannot listen on " << host_text(options.bind) << ':' << options.port
                << '\n';
    return exit_failure;
  }
  page.set_address(options.bind, port);
  tell_address(where, options.bind, port);
  const stopper stop(server);
  const bool stopped = server.listen_after_bind();
  if (!stopped && !stop.was_asked()) {
    where.err() << "zotconf: the service stopped unexpectedly\n";
    return exit_failure;
  }
  return exit_success;
}

}  // namespace zotconf
