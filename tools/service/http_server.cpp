// SPDX-License-Identifier: Apache-2.0
#include "tools/service/http_server.hpp"

#include <microhttpd.h>
#include <netdb.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/service/worker_pool.hpp"

namespace zotconf {
namespace {

using clock = std::chrono::steady_clock;
using response_owner = std::unique_ptr<MHD_Response, zot::releaser<MHD_destroy_response>>;

constexpr size_t longest_body = size_t{64} << 20;
// Limit for all open requests together, so that many clients with long bodies do not use up the
// memory.
constexpr size_t most_body_bytes = size_t{256} << 20;
constexpr unsigned idle_seconds = 5;
constexpr size_t connection_memory = size_t{16} << 10;
constexpr rlim_t most_connections = 8192;
constexpr size_t heavy_workers = 2;

// A request, from its first line to the end of its response. It belongs to the connection thread,
// or to a worker while its connection is suspended.
struct open_request {
  clock::time_point begin = clock::now();
  http_request request;
  bool has_header = false;
  int refusal = 0;  // the status if the body is rejected
  bool is_answered = false;
  http_answer answer;
  int sent_status = 0;
};

MHD_Result add_header(void *into, MHD_ValueKind, const char *name, const char *value) {
  try {
    static_cast<http_request *>(into)->headers.push_back({name, value != nullptr ? value : ""});
    return MHD_YES;
  } catch (const std::bad_alloc &) {
    return MHD_NO;
  }
}

std::string address_of(MHD_Connection *connection) {
  const auto *const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  std::array<char, NI_MAXHOST> text{};
  if (info == nullptr || info->client_addr == nullptr) {
    return "";
  }
  const socklen_t size =
      info->client_addr->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  const int error =
      ::getnameinfo(info->client_addr, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
  return error == 0 ? text.data() : "";
}

const char *header_of(MHD_Connection *connection, const char *name) {
  return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
}

bool is_announced_too_long(MHD_Connection *connection) {
  const char *const text = header_of(connection, "Content-Length");
  uint64_t length = 0;
  return text != nullptr &&
         std::from_chars(text, text + std::strlen(text), length).ec == std::errc() &&
         length > longest_body;
}

// The descriptor of the file and the text of the body stay with the response until it is sent.
response_owner response_of(http_answer &answer) {
  response_owner response(
      answer.file ? MHD_create_response_from_fd64(answer.file->size, answer.file->file.get())
                  : MHD_create_response_from_buffer(answer.body.size(), answer.body.data(),
                                                    MHD_RESPMEM_PERSISTENT));
  if (response == nullptr) {
    throw std::bad_alloc();
  }
  if (answer.file) {
    answer.file->file.release();
  }
  MHD_add_response_header(response.get(), "Content-Type", answer.type.c_str());
  for (const http_header &header : answer.headers) {
    MHD_add_response_header(response.get(), header.name.c_str(), header.value.c_str());
  }
  return response;
}

// Uses as many descriptors as the process may open. Some are reserved for the files that are sent.
unsigned connection_limit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    return 512;
  }
  const rlim_t before = std::exchange(limit.rlim_cur, limit.rlim_max);
  const rlim_t now = ::setrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : before;
  return static_cast<unsigned>(std::min(now - now / 4, most_connections));
}

}  // namespace

class http_server::engine {
 public:
  engine(zot::descriptor socket, http_service &service);
  engine(const engine &) = delete;
  engine &operator=(const engine &) = delete;
  ~engine();

 private:
  static void *on_target(void *, const char *target, MHD_Connection *);
  static size_t on_unescape(void *, MHD_Connection *, char *text);
  static MHD_Result on_access(void *self, MHD_Connection *connection, const char *,
                              const char *method, const char *, const char *data, size_t *size,
                              void **context);
  static void on_completed(void *self, MHD_Connection *connection, void **context,
                           MHD_RequestTerminationCode how);

  MHD_Result take_header(MHD_Connection *connection, open_request &open, const char *method);
  void take_body(open_request &open, std::string_view data);
  void drop_body(open_request &open);
  bool answer(MHD_Connection *connection, open_request &open);
  void answer_beside(MHD_Connection *connection, open_request &open, worker_pool &workers);
  void make_answer(open_request &open);
  static MHD_Result send(MHD_Connection *connection, open_request &open);
  void finish(MHD_Connection *connection, open_request &open, bool is_whole);

  http_service &service_;
  std::stop_source stop_;
  size_t body_bytes_ = 0;
  worker_pool slow_{1};
  worker_pool heavy_{heavy_workers};
  MHD_Daemon *daemon_;
};

http_server::engine::engine(zot::descriptor socket, http_service &service)
    : service_(service),
      daemon_(MHD_start_daemon(
          MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr,
          &engine::on_access, this, MHD_OPTION_LISTEN_SOCKET, socket.get(),
          MHD_OPTION_CONNECTION_LIMIT, connection_limit(), MHD_OPTION_CONNECTION_TIMEOUT,
          idle_seconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, connection_memory,
          MHD_OPTION_URI_LOG_CALLBACK, &engine::on_target, nullptr, MHD_OPTION_UNESCAPE_CALLBACK,
          &engine::on_unescape, nullptr, MHD_OPTION_NOTIFY_COMPLETED, &engine::on_completed, this,
          MHD_OPTION_END)) {
  if (daemon_ == nullptr) {
    throw std::runtime_error("cannot start the HTTP server");
  }
  socket.release();
}

// Stops the workers first: no connection may be suspended when the daemon stops.
http_server::engine::~engine() {
  stop_.request_stop();
  heavy_.close();
  slow_.close();
  MHD_stop_daemon(daemon_);
}

void *http_server::engine::on_target(void *, const char *target, MHD_Connection *) {
  try {
    auto open = std::make_unique<open_request>();
    set_target(open->request, target);
    return open.release();
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

// A decoded zero byte would end the path here; on_target() has decoded the path already.
size_t http_server::engine::on_unescape(void *, MHD_Connection *, char *text) {
  return std::strlen(text);
}

// An exception must not pass through the C library; the connection is closed instead.
MHD_Result http_server::engine::on_access(void *self, MHD_Connection *connection, const char *,
                                          const char *method, const char *, const char *data,
                                          size_t *size, void **context) {
  auto *const open = static_cast<open_request *>(*context);
  auto *const server = static_cast<engine *>(self);
  try {
    if (open == nullptr) {
      return MHD_NO;
    }
    if (!open->has_header) {
      return server->take_header(connection, *open, method);
    }
    if (*size > 0) {
      server->take_body(*open, {data, std::exchange(*size, 0)});
      return MHD_YES;
    }
    if (!open->is_answered && !server->answer(connection, *open)) {
      return MHD_YES;
    }
    server->drop_body(*open);
    return send(connection, *open);
  } catch (const std::exception &) {
    return MHD_NO;
  }
}

// A client that sends its body at once does not read a response before the end of the body. A
// client with "Expect" gets the response now.
MHD_Result http_server::engine::take_header(MHD_Connection *connection, open_request &open,
                                            const char *method) {
  open.has_header = true;
  open.request.method = method;
  open.request.client = address_of(connection);
  MHD_get_connection_values(connection, MHD_HEADER_KIND, add_header, &open.request);
  if (!is_announced_too_long(connection)) {
    return MHD_YES;
  }
  open.refusal = 413;
  if (header_of(connection, "Expect") == nullptr) {
    return MHD_YES;
  }
  make_answer(open);
  return send(connection, open);
}

void http_server::engine::take_body(open_request &open, std::string_view data) {
  std::string &body = open.request.body;
  if (open.refusal != 0) {
    return;
  }
  if (body.size() + data.size() > longest_body || body_bytes_ + data.size() > most_body_bytes) {
    open.refusal = body.size() + data.size() > longest_body ? 413 : 503;
    return drop_body(open);
  }
  body.append(data);
  body_bytes_ += data.size();
}

void http_server::engine::drop_body(open_request &open) {
  body_bytes_ -= open.request.body.size();
  std::string().swap(open.request.body);
}

// Returns false if a worker makes the response; on_access() is called again when it is ready.
bool http_server::engine::answer(MHD_Connection *connection, open_request &open) {
  const http_work work = service_.work_of(open.request);
  if (work != http_work::quick && open.refusal == 0) {
    answer_beside(connection, open, work == http_work::slow ? slow_ : heavy_);
    return false;
  }
  make_answer(open);
  return true;
}

void http_server::engine::answer_beside(MHD_Connection *connection, open_request &open,
                                        worker_pool &workers) {
  MHD_suspend_connection(connection);
  const auto job = [this, connection, &open] {
    make_answer(open);
    MHD_resume_connection(connection);
  };
  if (!workers.add(job)) {
    open.answer = refused(503, "the service stops");
    open.is_answered = true;
    MHD_resume_connection(connection);
  }
}

void http_server::engine::make_answer(open_request &open) {
  try {
    open.answer = open.refusal == 0     ? service_.answer(open.request, stop_.get_token())
                  : open.refusal == 413 ? refused(413, "request refused")
                                        : refused(open.refusal, "too many long requests");
  } catch (const std::exception &error) {
    if (stop_.stop_requested()) {
      open.answer = refused(503, "the service stops");
    } else {
      service_.failed(error);
      open.answer = refused(500, "internal error");
    }
  }
  open.is_answered = true;
}

MHD_Result http_server::engine::send(MHD_Connection *connection, open_request &open) {
  const response_owner response = response_of(open.answer);
  open.sent_status = open.answer.status;
  return MHD_queue_response(connection, static_cast<unsigned>(open.answer.status), response.get());
}

void http_server::engine::on_completed(void *self, MHD_Connection *connection, void **context,
                                       MHD_RequestTerminationCode how) {
  const std::unique_ptr<open_request> open(static_cast<open_request *>(*context));
  *context = nullptr;
  if (open == nullptr) {
    return;
  }
  try {
    static_cast<engine *>(self)->finish(connection, *open,
                                        how == MHD_REQUEST_TERMINATED_COMPLETED_OK);
  } catch (const std::exception &error) {
    static_cast<engine *>(self)->service_.failed(error);
  }
}

// libmicrohttpd rejects input that is not HTTP without a call of this code. An incomplete request
// is not reported.
void http_server::engine::finish(MHD_Connection *connection, open_request &open, bool is_whole) {
  drop_body(open);
  const auto *const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_HTTP_STATUS);
  const bool is_own = open.sent_status != 0;
  if (!is_own && info == nullptr) {
    return;
  }
  std::string result = std::move(open.answer.result);
  if (!is_whole && is_own) {
    result = "broken off by the client";
  } else if (result.empty()) {
    result = is_own && open.sent_status < 400 ? "answered" : "refused";
  }
  if (open.request.method.empty()) {
    open.request.method = "-";
  }
  service_.finished(
      {.request = open.request,
       .status = is_own ? open.sent_status : static_cast<int>(info->http_status),
       .bytes = open.answer.size(),
       .duration = std::chrono::duration_cast<std::chrono::microseconds>(clock::now() - open.begin),
       .result = std::move(result)});
}

http_server::http_server(zot::descriptor socket, http_service &service)
    : engine_(std::make_unique<engine>(std::move(socket), service)) {}

http_server::~http_server() = default;

}  // namespace zotconf
