// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay.hpp"

#include <chrono>
#include <csignal>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <utility>

#include "tools/element/notify.hpp"
#include "tools/element/wake_up.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/publication/keyring.hpp"
#include "tools/relay/privileges.hpp"
#include "tools/relay/relay_clock.hpp"
#include "tools/relay/relay_loop.hpp"
#include "tools/relay/relay_page.hpp"
#include "tools/relay/relay_report.hpp"
#include "tools/relay/relay_state.hpp"
#include "tools/relay/relay_store.hpp"
#include "tools/relay/reporting.hpp"
#include "tools/relay/schedule.hpp"
#include "tools/relay/synchroniser.hpp"
#include "tools/relay/trusted_time.hpp"
#include "tools/service/archive_cache.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/http_server.hpp"
#include "tools/service/listener.hpp"
#include "tools/service/paged_service.hpp"

namespace zotconf {
namespace {

// A client may repeat a request that fails at once, so only one failure in ten seconds is printed.
class relayed_publication : public paged_service<relay_page> {
 public:
  using paged_service::paged_service;

  void failed(const std::exception &error) override {
    const std::scoped_lock guard(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (now < next_line_) {
      return;
    }
    next_line_ = now + std::chrono::seconds(10);
    paged_service::failed(error);
  }

 private:
  std::mutex mutex_;
  std::chrono::steady_clock::time_point next_line_;
};

// The clock of the machine. Gives the service manager its sign of life.
class machine_clock : public relay_clock {
 public:
  // `reports` is null if there are none.
  machine_clock(wake_up &wake, notifier &manager, archive_cache &archives, reporting *reports)
      : wake_(wake), manager_(manager), archives_(archives), reports_(reports) {}

  [[nodiscard]] clock::time_point now() const override { return clock::now(); }
  void wait_until(clock::time_point when) override {
    if (reports_ != nullptr) {
      reports_->collect();
    }
    const std::chrono::seconds longest(reports_ != nullptr ? 10 : 60);
    wake_.wait_until(std::min({when, manager_.next_sign(), clock::now() + longest}));
    manager_.show_life(clock::now());
    archives_.expire(clock::now());
  }
  [[nodiscard]] bool is_stopped() const override { return wake_.stop_signal() != 0; }

 private:
  wake_up &wake_;
  notifier &manager_;
  archive_cache &archives_;
  reporting *reports_;
};

void report_address(const console &where, const std::string &host, int port) {
  if (where.is_json()) {
    json_document line;
    line.root().object("listening").set("host", host).set("port", port).set("pid", ::getpid());
    where.out() << line.line() << std::flush;
    return;
  }
  where.out() << "listening on " << host_and_port(host, port) << '\n' << std::flush;
}

relay_state first_state(const relay_options &options) {
  relay_state state;
  state.upstream = without_credentials(options.server.url);
  state.who = options.who;
  state.must_be_signed = !options.keyring.empty();
  state.started = std::time(nullptr);
  state.max_age = std::chrono::duration_cast<std::chrono::seconds>(options.max_age);
  return state;
}

// Certificates of the server are judged at the same time as those of signers.
upstream_options with_trusted_time(upstream_options server,
                                   const std::function<std::time_t()> &signed_at) {
  server.certificate_time = [signed_at] { return trusted_time(std::time(nullptr), signed_at()); };
  return server;
}

// What both ways of running work with.
struct relay_tools {
  relay_tools(const relay_options &options, const console &where)
      : trusted(options.keyring.empty() ? std::nullopt
                                        : std::optional<keyring>(std::in_place, options.keyring)),
        store(options.store, options.who),
        server(with_trusted_time(options.server, [this] { return syncing.signed_at(); }),
               [this] {
                 manager.show_life(notifier::clock::now());
                 return wake.stop_signal() != 0;
               }),
        syncing({.who = options.who, .trusted = trusted ? &*trusted : nullptr}, options.keep,
                server, store),
        board(first_state(options)),
        reporter(where, manager),
        loop({.syncing = syncing,
              .store = store,
              .server = server,
              .board = board,
              .reporter = reporter}) {
    if (!options.report.url.empty()) {
      reports.emplace(options.report, options.server, board, reporter, where);
    }
  }

  notifier manager;
  wake_up wake;
  std::optional<keyring> trusted;
  relay_store store;
  upstream server;
  synchroniser syncing;
  relay_board board;
  relay_reporter reporter;
  relay_loop loop;
  std::optional<reporting> reports;
};

void report_once(relay_tools &tools) {
  if (!tools.reports) {
    return;
  }
  constexpr std::chrono::seconds longest(10);
  tools.reports->collect();
  tools.reports->finish(longest, [&tools] { return tools.wake.stop_signal() != 0; });
}

int run_once(relay_tools &tools) {
  const round_result result = tools.loop.once().result;
  report_once(tools);
  switch (result) {
    case round_result::failed:
      return exit_failure;
    case round_result::refused:
      return exit_refused;
    case round_result::unchanged:
    case round_result::updated:
    case round_result::repaired:
      break;
  }
  return exit_success;
}

std::string summary_of(const relay_options &options) {
  return options.who.subsys + " " + options.who.index + " from " +
         without_credentials(options.server.url) + ", every " + duration_text(options.every) +
         (options.keyring.empty() ? ", unsigned" : "") +
         (options.report.url.empty() ? ""
                                     : ", reports to " + without_credentials(options.report.url));
}

int serve(const relay_options &options, const console &where, relay_tools &tools) {
  listener listening = listen_on(options.bind, options.port);
  element_log elements;
  archive_cache archives(tools.store, options.compression);
  relay_page page(tools.board, elements);
  relayed_publication service(publication_service(tools.store, elements, archives), page,
                              where.err());
  report_address(where, options.bind, listening.port);
  const http_server running(std::move(listening.socket), service);
  tools.manager.ready();
  tools.reporter.tell({.what = relay_event::starting, .text = summary_of(options)});
  schedule when(options.every, std::random_device()(), options.jitter);
  machine_clock time(tools.wake, tools.manager, archives,
                     tools.reports ? &*tools.reports : nullptr);
  tools.loop.run(when, time);
  tools.manager.stopping();
  tools.reports.reset();
  tools.reporter.tell({.what = relay_event::stopping,
                       .text = "signal " + std::to_string(tools.wake.stop_signal())});
  return exit_success;
}

}  // namespace

int run_relay(const relay_options &options, const console &where) {
  give_up_root(options.user, options.store);
  ::signal(SIGPIPE, SIG_IGN);
  if (options.keyring.empty() && options.server.url.starts_with("http://")) {
    tell_warning(where.err(),
                 "without a keyring and TLS, anybody on the way can replace the configuration");
  }
  relay_tools tools(options, where);
  return options.once ? run_once(tools) : serve(options, where, tools);
}

}  // namespace zotconf
