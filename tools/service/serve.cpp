// SPDX-License-Identifier: Apache-2.0
#include "tools/service/serve.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/service/background.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/http_server.hpp"
#include "tools/service/listener.hpp"
#include "tools/service/paged_service.hpp"
#include "tools/service/pid_file.hpp"
#include "tools/service/request_log.hpp"
#include "tools/service/status_page.hpp"

namespace zotconf {
namespace {

constexpr const char *how_to_publish = "zotconf publish SRC --out PUB --index ID --cluster ID";

// A publication folder and its status page, with a log of the requests.
class served_folder : public paged_service<status_page> {
 public:
  served_folder(const publication_store &store, element_log &elements, status_page &page,
                request_log &log, std::ostream &err)
      : paged_service(publication_service(store, elements), page, err), log_(log) {}

  void finished(const http_exchange &exchange) override {
    if (status_page::is_asked(exchange.request)) {
      return;
    }
    log_.add({.time = "",
              .client = exchange.request.client,
              .method = exchange.request.method,
              .path = exchange.request.path,
              .status = exchange.status,
              .bytes = exchange.bytes,
              .duration_us = static_cast<uint64_t>(exchange.duration.count()),
              .result = exchange.result});
  }

 private:
  request_log &log_;
};

// The stream for the request lines: a log file or standard output.
class log_stream {
 public:
  log_stream(const fs::path &path, std::ostream &standard) : standard_(standard) {
    if (path.empty()) {
      return;
    }
    file_.open(path, std::ios::app);
    if (!file_) {
      throw_errno("cannot open " + path.string());
    }
  }
  [[nodiscard]] std::ostream &stream() { return file_.is_open() ? file_ : standard_; }

 private:
  std::ostream &standard_;
  std::ofstream file_;
};

// Blocks the signals in all threads that are started later, so that only sigwait() receives them.
// SIGPIPE is ignored, because the reader of the log may exit.
sigset_t block_stop_signals() {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

void report_address(const console &where, const std::string &host, int port, bool is_background) {
  if (where.is_json()) {
    json_document line;
    line.root().object("listening").set("host", host).set("port", port).set("pid", ::getpid());
    where.out() << line.line() << std::flush;
    return;
  }
  where.out() << "listening on " << host_and_port(host, port) << '\n';
  if (is_background) {
    where.out() << "to stop: kill " << ::getpid() << '\n';
  }
  where.out() << std::flush;
}

// A folder that contains only what publish creates is an empty publication. Other files are
// accepted only beside a published K.
enum class folder_kind { published, nothing_published, other };

folder_kind kind_of(const fs::path &folder) {
  static constexpr std::array<std::string_view, 4> own = {"config", "file", ".lock", ".spent"};
  if (fs::is_directory(folder / "file" / "knowledge")) {
    return folder_kind::published;
  }
  const bool is_own = std::ranges::all_of(fs::directory_iterator(folder), [](const auto &entry) {
    return std::ranges::find(own, entry.path().filename().string()) != own.end();
  });
  return is_own ? folder_kind::nothing_published : folder_kind::other;
}

void check_folder(const fs::path &folder, std::ostream &err) {
  if (!fs::is_directory(folder)) {
    throw std::runtime_error(folder.string() + " is not a folder");
  }
  switch (kind_of(folder)) {
    case folder_kind::other:
      throw advised_error(folder.string() + ": not a publication folder", how_to_publish);
    case folder_kind::nothing_published:
      tell_warning(err, "nothing is published in " + folder.string() + " yet", how_to_publish);
      err << std::flush;
      break;
    case folder_kind::published:
      break;
  }
}

// Serves until SIGINT or SIGTERM. Calls `at_work` once it listens, which lets the parent process
// return.
int serve(const serve_options &options, const console &where, const detach &at_work) {
  const sigset_t signals = block_stop_signals();
  std::optional<pid_file> pid;
  if (!options.pid_file.empty()) {
    pid.emplace(options.pid_file);
  }
  listener listening = listen_on(options.bind, options.port);
  log_stream lines(options.log, where.out());
  const publication_store store(options.publication);
  request_log log(lines.stream(), where.is_json());
  element_log elements;
  status_page page(options.publication, store, log, elements);
  page.set_address(options.bind, listening.port);
  if (pid) {
    pid->write();
  }
  report_address(where, options.bind, listening.port, options.background);
  served_folder folder(store, elements, page, log, where.err());
  const http_server server(std::move(listening.socket), folder);
  if (at_work) {
    at_work(options.log);
  }
  int number = 0;
  ::sigwait(&signals, &number);
  return exit_success;
}

}  // namespace

int run_serve(const serve_options &options, const console &where) {
  check_folder(options.publication, where.err());
  if (!options.background) {
    return serve(options, where, nullptr);
  }
  where.out() << std::flush;
  return run_in_background([&](const detach &at_work) { return serve(options, where, at_work); });
}

}  // namespace zotconf
