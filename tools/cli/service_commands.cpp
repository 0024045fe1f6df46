// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/model/names.hpp"
#include "tools/publication/publish.hpp"
#include "tools/service/serve.hpp"

namespace zotconf {
namespace {

const command_text publish_text = {
    .name = "publish",
    .summary = "Publish a folder as an element's configuration",
    .about =
        "SRC holds files <Category>/<key>; `zotconf categories` lists the categories. A file "
        "gets a new\nversion when its bytes changed. K is replaced last, in one step.",
    .examples = "zotconf publish site --out pub --index 001122334455 --cluster 7d0b6a52",
    .exits = {exit_success, exit_failure, exit_usage, exit_refused}};

const command_text serve_text = {
    .name = "serve",
    .summary = "Serve a publication folder over HTTP",
    .about = "A status page is at /. Runs until SIGINT or SIGTERM.",
    .examples = "zotconf serve pub\nzotconf serve pub --port 0 --bind ::1",
    .exits = {exit_success, exit_failure, exit_usage}};

void add_publish(command_line &line) {
  const auto options = std::make_shared<publish_options>();
  options->who.subsys = "AP";
  CLI::App &command = line.add(publish_text, options, run_publish);
  command.add_option("SRC", options->source, "folder with the files <Category>/<key>")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_option("--out", options->publication, "publication folder, created if missing")
      ->required();
  add_subsys(command, options->who.subsys);
  add_index(command, options->who.index)->required();
  command.add_option("--cluster", options->cluster, "cluster ID, 1 to 36 characters")
      ->required()
      ->check(checked_by(check_cluster));
  command.add_option("--config-id", options->config_id, "UUID of this configuration")
      ->check(checked_by(check_uuid));
  command.add_option("--firmware", options->firmware, "firmware version, up to 511 characters")
      ->check(checked_by(check_firmware));
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
}

}  // namespace

void add_service_commands(command_line &line) {
  add_publish(line);
  add_serve(line);
}

}  // namespace zotconf
