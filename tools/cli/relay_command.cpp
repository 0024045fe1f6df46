// SPDX-License-Identifier: Apache-2.0
#include <charconv>

#include "tools/cli/cli.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/percentage.hpp"
#include "tools/relay/relay.hpp"

namespace zotconf {
namespace {

const command_text relay_text = {
    .name = "relay",
    .summary = "Fetch an element's publication from a web server and serve it on the element",
    .about =
        "URL is a publication on a server of static files: a web server, an object store or a\n"
        "CDN. The command asks it for the checksum of K (knowledge file) again and again. If K\n"
        "has changed, it fetches K, verifies its signature, fetches the files that the store\n"
        "lacks, and replaces the publication in one step. It answers the library as `zotconf\n"
        "serve` does, from the last complete publication, whether URL answers or not.\n\n"
        "With --keyring, K must have a signature of a certificate that the file trusts, be that\n"
        "of this element, and have a higher sequence than the last one. --unsigned accepts any\n"
        "K. The file of --keyring may also contain certificate revocation lists.\n\n"
        "The first request is sent after a random part of --every, the others after --every,\n"
        "more or less by --jitter. With --jitter 0%, the first request is sent at once. After\n"
        "failures the pauses grow from 1 second to 5 minutes; Retry-After of the server is\n"
        "respected. A problem is printed once, not once a round.\n\n"
        "With --report, the relay sends a report by PUT to URL/<subsys>/<index>.json when it has\n"
        "changed, and once a day. It tells what the relay offers, what the element has in force,\n"
        "and what fails. The element's part comes from the file of `zotconf watch --state` that\n"
        "--element names, or from the cache, if the relay may read it. Reports that cannot be\n"
        "sent delay nothing; the pauses grow from 1 minute to 1 hour.\n\n"
        "The command does not run as root; --user names the user that root becomes. The status\n"
        "page is at /. The command runs until SIGINT or SIGTERM. With --once it updates the\n"
        "store and exits without serving it. Durations are 500ms, 30s, 5m, 1h or 30d.\n\n"
        "The service manager is notified as NOTIFY_SOCKET and WATCHDOG_USEC request.\n\n"
        "Environment, for --report without --element: ZOT_PREFIX_CONF_ROOT.",
    .examples =
        "zotconf relay --upstream https://config.example.net/site --index 001122334455 \\\n"
        "    --store /var/lib/zotconf-relay --keyring /etc/zotconf/publisher.crt\n"
        "zotconf relay --upstream https://config.example.net/site --index 001122334455 \\\n"
        "    --store /var/lib/zotconf-relay --keyring /etc/zotconf/publisher.crt --once\n"
        "zotconf relay --upstream http://127.0.0.1:8080 --index 001122334455 --store store \\\n"
        "    --unsigned --every 5s",
    .exits = {exit_success, exit_failure, exit_usage, exit_refused}};

// The options as given, before they are parsed.
struct relay_words {
  relay_options options;
  std::string every = "30s";
  std::string jitter = "10%";
  std::string max_age = "30d";
  bool is_unsigned = false;
};

int run_relay_words(const relay_words &words, const console &where) {
  relay_options options = words.options;
  options.who.index = upper_case(options.who.index);
  options.every = parse_duration(words.every).value();
  options.jitter = parse_percentage(words.jitter).value();
  options.max_age = parse_duration(words.max_age).value();
  return run_relay(options, where);
}

void check_together(const relay_words &words) {
  if (words.options.keyring.empty() && !words.is_unsigned) {
    throw CLI::RequiredError("--keyring or --unsigned");
  }
}

void add_upstream(CLI::App &command, upstream_options &server) {
  command.add_option("--upstream", server.url, "http:// or https:// URL of the publication")
      ->required()
      ->check(checked_by(check_upstream_url));
  command
      .add_option("--ca", server.ca,
                  "trusted certificates of the server, in PEM (default: those of the system)")
      ->check(CLI::ExistingFile);
  CLI::Option *const certificate =
      command.add_option("--cert", server.certificate, "certificate of this client, in PEM")
          ->check(CLI::ExistingFile);
  CLI::Option *const key =
      command.add_option("--key", server.key, "its private key, in PEM")->check(CLI::ExistingFile);
  certificate->needs(key);
  key->needs(certificate);
  command
      .add_option("--limit-rate", server.limit_rate,
                  "bytes per second of all transfers together (default: no limit)")
      ->check(CLI::PositiveNumber);
}

void add_store(CLI::App &command, relay_words &words) {
  relay_options &options = words.options;
  command.add_option("--store", options.store, "folder of the relay, created if missing")
      ->required();
  CLI::Option *const trusted =
      command
          .add_option("--keyring", options.keyring,
                      "certificates that may have signed K, and revocation lists, in PEM")
          ->check(CLI::ExistingFile);
  command.add_flag("--unsigned", words.is_unsigned, "accept a K without a signature")
      ->excludes(trusted);
  command.add_option("--keep", options.keep, "publications to keep in the store")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command.add_option("--user", options.user, "user that root becomes");
}

void add_report(CLI::App &command, report_options &report) {
  CLI::Option *const url =
      command
          .add_option("--report", report.url,
                      "http:// or https:// URL of the folder that gets the reports of the element")
          ->check(checked_by(check_upstream_url));
  command
      .add_option("--element", report.element,
                  "file of zotconf watch --state (default: the cache of the element is read)")
      ->needs(url);
}

void add_service(CLI::App &command, relay_words &words) {
  relay_options &options = words.options;
  command.add_option("--port", options.port, "port; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command.add_option("--bind", options.bind, "address to listen on")->capture_default_str();
  command
      .add_option("--compression", options.compression, "of the archives, 0 (none) to 9 (smallest)")
      ->check(CLI::Range(0, 9))
      ->capture_default_str();
}

}  // namespace

void add_relay_command(command_line &line) {
  const auto words = std::make_shared<relay_words>();
  words->options.who.subsys = "AP";
  CLI::App &command = line.add(relay_text, words, run_relay_words);
  add_upstream(command, words->options.server);
  add_subsys(command, words->options.who.subsys);
  add_index(command, words->options.who.index)->required();
  add_store(command, *words);
  add_service(command, *words);
  add_report(command, words->options.report);
  command.add_option("--every", words->every, "pause between two requests for the checksum")
      ->check(checked_by(check_duration))
      ->capture_default_str();
  command.add_option("--jitter", words->jitter, "how much the pause varies, up to 100%")
      ->check(checked_by(check_percentage))
      ->capture_default_str();
  command
      .add_option("--max-age", words->max_age,
                  "after so long without contact the status is stale; the publication is still "
                  "served")
      ->check(checked_by(check_duration))
      ->capture_default_str();
  command.add_flag("--once", words->options.once, "update the store once and exit, do not serve");
  command.parse_complete_callback([words] { check_together(*words); });
}

}  // namespace zotconf
