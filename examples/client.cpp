// SPDX-License-Identifier: Apache-2.0
// A client in C++: gets the changes, applies them, commits or rolls back. Destructors release all
// resources.
// usage: client INDEX
#define ZOT_CONF_CLIENT
#include <iostream>
#include <zot_conf.hpp>

namespace {

using zotconf::change;

// Placeholder for what a service does with its configuration; false if it cannot use an entry.
bool apply(const zotconf::entry &one) {
  std::cout << name_of(one.change()) << ' ' << one.category_name() << '/' << one.key() << ", "
            << one.bytes().size() << " bytes\n";
  return one.change() == change::deleted || one.text().find('=') != std::string_view::npos;
}

bool apply_all(const zotconf::entries &changed) {
  for (const zotconf::entry one : changed) {
    if (!apply(one)) {
      std::cerr << "cannot use " << one.category_name() << '/' << one.key() << '\n';
      return false;
    }
  }
  return true;
}

int report(const zotconf::status &outcome) {
  (outcome.is_error() ? std::cerr : std::cout) << outcome.name() << ": " << outcome.text() << '\n';
  return outcome.is_error() ? 1 : 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::cerr << "usage: client INDEX\n";
    return 2;
  }
  zotconf::options settings{.index = argv[1]};
  settings.log.level = ZOT_LOG_ERROR;
  settings.log.function = [](const zotconf::log_line &line) { std::clog << line.text; };

  std::string reason;
  auto client = zotconf::handle::create(settings, &reason);
  if (!client) {
    std::cerr << "no handle: " << reason << '\n';
    return 1;
  }
  const auto changed = client->get(zotconf::category_set::all(), change::differences);
  if (!client->is_new()) {
    return report(changed.result());
  }
  const bool is_applied = apply_all(changed);
  const zotconf::status answered = is_applied ? client->commit() : client->roll_back();
  if (const auto current = client->metadata_of(zotconf::generation::current)) {
    std::cout << "in force: a configuration of cluster " << current->cluster_id << '\n';
  }
  const int exit_status = report(answered);
  return is_applied ? exit_status : 1;
}
