// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>
#include <map>

#include "cycle.hpp"
#include "exit_status.hpp"
#include "names.hpp"
#include "publish.hpp"
#include "serve.hpp"

namespace {

using zotconf::cycle_options;
using zotconf::publish_options;
using zotconf::serve_options;

constexpr const char *publish_exits =
    "Exit status: 0 published or unchanged; 1 failure; 2 usage;\n"
    "3 refused: a file of SRC cannot be published, and nothing was written.\n";
constexpr const char *serve_exits =
    "Exit status: 0 stopped by SIGINT or SIGTERM; 1 failure; 2 usage.\n";
constexpr const char *cycle_exits =
    "Exit status: 0 new configuration, not rolled back, or cached entries; 1 failure; 2 usage;\n"
    "3 no update; 4 the service still offers the configuration that was rolled back;\n"
    "5 new configuration, rolled back.\n\n"
    "CMD runs, and a configuration is committed or rolled back, on a new configuration only.\n\n"
    "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.\n";

CLI::Validator checked_by(std::string (*check)(std::string_view)) {
  return {[check](std::string &value) {
            const std::string wrong = check(value);
            return wrong.empty() ? wrong : "\"" + value + "\" " + wrong;
          },
          ""};
}

void add_identity(CLI::App &command, std::string &subsys, std::string &index) {
  command.add_option("--subsys", subsys, "sub-system: AP, CP or DP")
      ->check(checked_by(zotconf::check_subsys))
      ->capture_default_str();
  command.add_option("--index", index, "the element's index, an access point's MAC address")
      ->check(checked_by(zotconf::check_index))
      ->required();
}

void add_publish(CLI::App &app, publish_options &options) {
  CLI::App &command =
      *app.add_subcommand("publish", "Publish a folder as an element's configuration");
  command.footer(publish_exits);
  command.add_option("SRC", options.source, "folder with the files <Category>/<key>")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_option("--out", options.publication, "publication folder, created if missing")
      ->required();
  options.who.subsys = "AP";
  add_identity(command, options.who.subsys, options.who.index);
  command.add_option("--cluster", options.cluster, "cluster ID, 1 to 36 characters")
      ->required()
      ->check(checked_by(zotconf::check_cluster));
  command.add_option("--config-id", options.config_id, "UUID of this configuration")
      ->check(checked_by(zotconf::check_uuid));
  command.add_option("--firmware", options.firmware, "firmware version, up to 511 characters")
      ->check(checked_by(zotconf::check_firmware));
}

void add_serve(CLI::App &app, serve_options &options) {
  CLI::App &command = *app.add_subcommand("serve", "Serve a publication folder over HTTP");
  command.footer(serve_exits);
  command.add_option("PUB", options.publication, "publication folder")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_option("--port", options.port, "port; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command.add_option("--bind", options.bind, "address to listen on")->capture_default_str();
}

// What the cycle's options say before they are checked against each other.
struct cycle_texts {
  std::vector<std::string> categories = {"all"};
  std::vector<std::string> want = {"added", "modified", "deleted"};
  std::string out;
  std::string log_level = "off";
  bool commit = false;
  bool roll_back = false;
};

const std::map<std::string, std::optional<uint32_t>> log_levels = {{"off", std::nullopt},
                                                                   {"error", ZOT_LOG_ERROR},
                                                                   {"warn", ZOT_LOG_WARN},
                                                                   {"info", ZOT_LOG_INFO},
                                                                   {"debug", ZOT_LOG_DEBUG}};

// Checks what one option alone cannot tell and fills in the rest.
void resolve(const cycle_texts &texts, cycle_options &options) {
  std::string wrong;
  const auto categories = zotconf::parse_categories(texts.categories, wrong);
  if (!categories) {
    throw CLI::ValidationError("--categories", "unknown category \"" + wrong + "\"");
  }
  const auto want = zotconf::parse_want(texts.want, wrong);
  if (!want) {
    throw CLI::ValidationError("--want", "\"" + wrong + "\" is unknown or has to stand alone");
  }
  options.categories = *categories;
  options.want = *want;
  options.log_level = log_levels.at(texts.log_level);
  if (!texts.out.empty()) {
    options.out = texts.out;
  }
  if (!options.command.empty()) {
    options.decide = zotconf::verdict::by_command;
  } else if (texts.commit || texts.roll_back) {
    options.decide = texts.commit ? zotconf::verdict::commit : zotconf::verdict::roll_back;
  }
  if (options.decide != zotconf::verdict::none && *want == ZOT_STAT_CACHED) {
    throw CLI::ValidationError("--want",
                               "cached entries are not applied, committed or rolled back");
  }
}

void add_cycle(CLI::App &app, cycle_options &options, cycle_texts &texts) {
  zot_parm_all defaults{};
  zot_util_init_conf_parm(&defaults);
  options.timeout = defaults.timeout;
  options.timeout_gpb = defaults.timeout_gpb;

  CLI::App &command =
      *app.add_subcommand("cycle", "Get a configuration, apply it, commit or roll back");
  command.footer(cycle_exits);
  add_identity(command, options.subsys, options.index);
  command.add_option("--categories", texts.categories, "all, or category names")
      ->delimiter(',')
      ->capture_default_str();
  command
      .add_option("--want", texts.want, "added, modified, deleted, unchanged; or full; or cached")
      ->delimiter(',')
      ->capture_default_str();
  command.add_option("--out", texts.out,
                     "folder for the entries' bytes; a temporary one when only --apply needs it");
  auto *const apply =
      command
          .add_option("--apply", options.command,
                      "shell command, with ZOTCONF_DIR in its environment: commit when it exits 0, "
                      "else roll back")
          ->check([](const std::string &text) { return text.empty() ? "is empty" : ""; });
  auto *const commit = command.add_flag("--commit", texts.commit, "commit a new configuration");
  auto *const roll_back =
      command.add_flag("--roll-back", texts.roll_back, "roll a new configuration back");
  commit->excludes(apply)->excludes(roll_back);
  roll_back->excludes(apply);
  command.add_option("--timeout", options.timeout, "seconds for K and checksum; 0: no limit")
      ->capture_default_str();
  command
      .add_option("--timeout-gpb", options.timeout_gpb,
                  "kept for adapters; the archive transfer has no limit")
      ->capture_default_str();
  command.add_option("--log-level", texts.log_level, "what the library logs to standard error")
      ->check(CLI::IsMember(log_levels))
      ->capture_default_str();
  command.final_callback([&options, &texts] { resolve(texts, options); });
}

int run(int argc, char **argv) {
  CLI::App app("Publishes, serves and receives configurations of managed network elements.",
               "zotconf");
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("zotconf ") + ZOTCONF_VERSION);
  publish_options publish;
  serve_options serve;
  cycle_options cycle;
  cycle_texts texts;
  add_publish(app, publish);
  add_serve(app, serve);
  add_cycle(app, cycle, texts);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? zotconf::exit_success : zotconf::exit_usage;
  }
  if (app.got_subcommand("publish")) {
    publish.who.index = zotconf::upper_case(publish.who.index);
    return run_publish(publish, std::cout, std::cerr);
  }
  if (app.got_subcommand("serve")) {
    return run_serve(serve, std::cout, std::cerr);
  }
  return run_cycle(cycle, std::cout, std::cerr);
}

}  // namespace

int main(int argc, char **argv) {
  try {
    const int status = run(argc, argv);
    std::cout.flush();
    if (!std::cout) {
      std::cerr << "zotconf: cannot write standard output\n";
      return zotconf::exit_failure;
    }
    return status;
  } catch (const std::exception &error) {
    std::cerr << "zotconf: " << error.what() << '\n';
    return zotconf::exit_failure;
  }
}
