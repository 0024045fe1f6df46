// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/model/names.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/percentage.hpp"
#include "tools/publication/fleet.hpp"
#include "tools/publication/prune.hpp"
#include "tools/publication/publish.hpp"
#include "tools/publication/sign.hpp"
#include "tools/publication/wave.hpp"
#include "tools/service/serve.hpp"

namespace zotconf {
namespace {

const command_text publish_text = {
    .name = "publish",
    .summary = "Publish a folder as the configuration of an element or a fleet",
    .about =
        "SRC contains the files, <Category>/<key>; `zotconf categories` lists the categories.\n"
        "Names that begin with a dot or end in ~ or .swp are skipped. A file gets a new version\n"
        "if no version in PUB has the same bytes. K (knowledge file) is replaced last, in one\n"
        "step.\n\n"
        "Refused are an SRC without files, an SRC that lacks more than half of the entries\n"
        "published before, and a PUB in SRC. A refused publication writes nothing, and neither\n"
        "does --dry-run.\n\n"
        "With --fleet, DIR contains common/<Category>/<key>, the files of every element, and\n"
        "elements/<INDEX>/<Category>/<key>, which replace or add files for one element. Each line\n"
        "<Category>/<key> of elements/<INDEX>/removed removes a common file from it. Every folder\n"
        "below elements is an element. If one is refused, none is published.\n\n"
        "With --wave, only some of these elements are published; the others stay as they are and\n"
        "are not read. A share, such as 1% or 0.5%, depends on the indexes alone, and a larger\n"
        "share contains a smaller one: the first 64 bits of the SHA-256 of an index in upper\n"
        "case, as a part of 2^64, are below it. A list has commas between the indexes; @FILE has\n"
        "an index on each line, and may have empty lines and comments (#). Use one --config-id\n"
        "for all waves of a rollout.\n\n"
        "With --sign-cert and --sign-key, a detached CMS signature is written next to K.",
    .examples =
        "zotconf publish site --out pub --index 001122334455 --cluster 7d0b6a52\n"
        "zotconf publish site --out pub --index 001122334455 --cluster 7d0b6a52 --dry-run\n"
        "zotconf publish site --out pub --index 001122334455 --cluster 7d0b6a52 \\\n"
        "    --sign-cert publisher.crt --sign-key publisher.key\n"
        "zotconf publish --fleet fleet --out pub --cluster 7d0b6a52\n"
        "zotconf publish --fleet fleet --wave 1% --out pub --cluster 7d0b6a52 \\\n"
        "    --config-id 3f0c1d52-9c1b-4c1e-8f0e-2f6a7d0b6a52",
    .exits = {exit_success, exit_failure, exit_usage, exit_refused}};

const command_text sign_text = {
    .name = "sign",
    .summary = "Sign the K files of a publication folder",
    .about =
        "Writes a detached CMS signature (DER, SHA-256) next to each K (knowledge file) that\n"
        "has no signature of this certificate. Use it if the publisher does not hold the key.\n"
        "Waits for a running publisher. The certificate must allow digital signatures; the key\n"
        "is EC, or RSA with at least 2048 bits.",
    .examples =
        "zotconf sign pub --sign-cert publisher.crt --sign-key publisher.key\n"
        "zotconf sign pub --index 001122334455 --sign-cert publisher.crt \\\n"
        "    --sign-key 'pkcs11:token=release;object=publisher'",
    .exits = {exit_success, exit_failure, exit_usage}};

const command_text prune_text = {
    .name = "prune",
    .summary = "Remove files of a publication folder that no K lists",
    .about =
        "Reads the K (knowledge file) of every element. Removes the versions that no K lists,\n"
        "and the folders that become empty. An element that fetched a K just before it was\n"
        "replaced still requests its files, so they stay for the grace period. Durations are\n"
        "500ms, 30s, 5m, 1h or 30d.\n\n"
        "Waits for a running publisher, and blocks new ones. The service keeps running. If a K\n"
        "cannot be read or is damaged, nothing is removed. Anything other than\n"
        "config/<Category>/<key>/<version> is skipped and listed. Symbolic links are not\n"
        "followed.",
    .examples =
        "zotconf prune pub --dry-run\n"
        "zotconf prune pub --grace 24h --json",
    .exits = {exit_success, exit_failure, exit_usage, exit_refused}};

const command_text serve_text = {
    .name = "serve",
    .summary = "Serve a publication folder over HTTP",
    .about =
        "The status page is at /. The command runs until SIGINT or SIGTERM. With --background,\n"
        "it starts a background process, exits with 0 once that process listens, and prints how\n"
        "to stop it; if it cannot start, it exits with 1. A folder that is neither empty nor\n"
        "made by `zotconf publish` is refused.",
    .examples =
        "zotconf serve pub\n"
        "zotconf serve pub --port 0 --bind ::1\n"
        "zotconf serve pub --background --pid-file serve.pid --log serve.log",
    .exits = {exit_success, exit_failure, exit_usage}};

// The options as given, before they are parsed as numbers.
struct publish_words {
  publish_options options;
  std::string max_removed;
};

struct prune_words {
  prune_options options;
  std::string grace = "1h";
};

int run_publish_words(const publish_words &words, const console &where) {
  publish_options options = words.options;
  options.max_removed = parse_percentage(words.max_removed);
  return options.fleet.empty() ? run_publish(options, where) : run_fleet(options, where);
}

constexpr const char *no_grace = "0";

int run_prune_words(const prune_words &words, const console &where) {
  prune_options options = words.options;
  options.grace = parse_duration(words.grace).value_or(std::chrono::milliseconds(0));
  return run_prune(options, where);
}

std::string check_grace(std::string_view text) {
  return text == no_grace ? "" : check_duration(text);
}

void add_limits(CLI::App &command, publish_words &words) {
  command
      .add_flag("--allow-empty", words.options.allow_empty,
                "publish an SRC without files, which removes all entries")
      ->excludes(command.get_option("--fleet"));
  command
      .add_option(
          "--max-removed", words.max_removed,
          "refuse to remove more than this share of the entries, such as 80% (default: 50%)")
      ->check(checked_by(check_percentage));
  command.add_flag("--dry-run", words.options.dry_run, "print what would change, write nothing");
}

// Each option requires the other.
void add_signing(CLI::App &command, fs::path &certificate, std::string &key, bool required) {
  CLI::Option *const first =
      command
          .add_option("--sign-cert", certificate,
                      "certificate of the signer and its chain up to the trusted one, in PEM")
          ->check(CLI::ExistingFile)
          ->required(required);
  CLI::Option *const second =
      command.add_option("--sign-key", key, "its private key: a file, or a URI such as pkcs11:...")
          ->required(required);
  first->needs(second);
  second->needs(first);
}

CLI::Option *add_wave(CLI::App &command, publish_options &options) {
  constexpr const char *name = "--wave";
  return command.add_option_function<std::string>(
      name,
      [&options](const std::string &text) {
        try {
          options.part.emplace(text);
        } catch (const std::runtime_error &wrong) {
          throw CLI::ValidationError(name, wrong.what());
        }
      },
      "part of the fleet: a share such as 1%, indexes such as 0A,0B, or @FILE with indexes");
}

// Either SRC and --index, or --fleet.
void add_what_to_publish(CLI::App &command, publish_options &options) {
  CLI::Option *const source =
      command.add_option("SRC", options.source, "folder with the files <Category>/<key>")
          ->check(CLI::ExistingDirectory);
  CLI::Option *const index = add_index(command, options.who.index);
  CLI::Option *const fleet =
      command
          .add_option("--fleet", options.fleet,
                      "folder with the files of many elements; instead of SRC and --index")
          ->check(CLI::ExistingDirectory)
          ->excludes(source)
          ->excludes(index);
  add_wave(command, options)->needs(fleet);
  command.parse_complete_callback([source, index, fleet] {
    if (fleet->empty() && source->empty()) {
      throw CLI::RequiredError("SRC or --fleet");
    }
    if (fleet->empty() && index->empty()) {
      throw CLI::RequiredError("--index");
    }
  });
}

void add_publish(command_line &line) {
  const auto words = std::make_shared<publish_words>();
  publish_options *const options = &words->options;
  options->who.subsys = "AP";
  CLI::App &command = line.add(publish_text, words, run_publish_words);
  add_what_to_publish(command, *options);
  command.add_option("--out", options->publication, "publication folder, created if missing")
      ->required();
  add_subsys(command, options->who.subsys);
  command.add_option("--cluster", options->cluster, "cluster ID, 1 to 36 characters")
      ->required()
      ->check(checked_by(check_cluster));
  command.add_option("--config-id", options->config_id, "UUID of this configuration")
      ->check(checked_by(check_uuid));
  command.add_option("--firmware", options->firmware, "firmware version, up to 511 characters")
      ->check(checked_by(check_firmware));
  add_limits(command, *words);
  add_signing(command, options->sign_certificate, options->sign_key, false);
}

void add_sign(command_line &line) {
  const auto options = std::make_shared<sign_options>();
  CLI::App &command = line.add(sign_text, options, run_sign);
  command.add_option("PUB", options->publication, "publication folder")
      ->required()
      ->check(CLI::ExistingDirectory);
  add_subsys(command, options->subsys);
  add_index(command, options->index);
  add_signing(command, options->certificate, options->key, true);
}

void add_prune(command_line &line) {
  const auto words = std::make_shared<prune_words>();
  CLI::App &command = line.add(prune_text, words, run_prune_words);
  command.add_option("PUB", words->options.publication, "publication folder")
      ->required()
      ->check(CLI::ExistingDirectory);
  command
      .add_option("--grace", words->grace,
                  "how long a file stays after the last K that listed it; 0: no grace period")
      ->check(checked_by(check_grace))
      ->capture_default_str();
  command.add_flag("--dry-run", words->options.dry_run,
                   "print what would be removed, remove nothing");
}

void add_serve(command_line &line) {
  const auto options = std::make_shared<serve_options>();
  CLI::App &command = line.add(serve_text, options, run_serve);
  command.add_option("PUB", options->publication, "publication folder")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_option("--port", options->port, "port; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command.add_option("--bind", options->bind, "address to listen on")->capture_default_str();
  command.add_flag("--background", options->background,
                   "serve in the background; return once the service listens");
  command.add_option("--pid-file", options->pid_file,
                     "file for the process ID while the service listens");
  command.add_option("--log", options->log, "file to which one line per request is appended");
}

}  // namespace

void add_service_commands(command_line &line) {
  add_publish(line);
  add_sign(line);
  add_prune(line);
  add_serve(line);
}

}  // namespace zotconf
