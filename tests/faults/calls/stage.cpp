// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/stage.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <stdexcept>
#include <utility>

#include "tests/support/service.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t large_file = 9000;

// From each configuration to the next, one file is modified, one added, one deleted and one
// unchanged.
std::map<char, publication> make_configurations() {
  std::map<char, publication> made;
  for (const char letter : letters) {
    const auto version = static_cast<std::uint64_t>(1 + letter - 'a');
    publication one;
    one.config_id(std::string("00000000-0000-0000-0000-00000000000") + letter);
    one.put("Ap", "constant", 1, "the same in each of them");
    one.put("Wlan", "guest", version, std::string("guest of ") + letter);
    one.put("Wlan", std::string("only-") + letter, 1, std::string(large_file, letter));
    made.emplace(letter, std::move(one));
  }
  return made;
}

using objects = std::map<std::pair<std::string, std::string>, std::string>;

// The files of a configuration by category and key.
objects objects_of(const publication &published) {
  objects by_name;
  for (const auto &[path, bytes] : published.files()) {
    const std::size_t key = path.find('/', 1) + 1;
    const std::size_t version = path.find('/', key);
    by_name.emplace(std::pair{path.substr(1, key - 2), path.substr(key, version - key)}, bytes);
  }
  return by_name;
}

[[noreturn]] void serve(int ports, int life_line) {
  std::list<service> running;
  for (const char letter : letters) {
    running.emplace_back().publish(configuration(letter));
    const std::uint16_t port = running.back().port();
    static_cast<void>(::write(ports, &port, sizeof port));
  }
  const std::uint16_t closed = closed_port();
  static_cast<void>(::write(ports, &closed, sizeof closed));
  ::close(ports);
  char end = 0;
  static_cast<void>(::read(life_line, &end, sizeof end));
  ::_exit(0);
}

}  // namespace

const publication &configuration(char letter) {
  static const std::map<char, publication> all = make_configurations();
  return all.at(letter);
}

char letter_of_k(const zot_k *k) {
  if (k == nullptr || k->data == nullptr) {
    return none;
  }
  const std::string_view bytes(k->data, k->data_len);
  for (const char letter : letters) {
    if (bytes == configuration(letter).k_text()) {
      return letter;
    }
  }
  throw std::runtime_error("a K that nobody published");
}

char letter_of_entries(const returned_list &list) {
  objects found;
  for (const returned_entry &entry : list.entries) {
    if ((entry.stat & ZOT_STAT_DELETED) == 0) {
      found.emplace(std::pair{get_cat_str_by_gpb_cat(entry.category), entry.key}, entry.bytes);
    }
  }
  if (found.empty()) {
    return none;
  }
  for (const char letter : letters) {
    if (found == objects_of(configuration(letter))) {
      return letter;
    }
  }
  std::string names;
  for (const auto &[name, bytes] : found) {
    names += " " + name.second + "=" + bytes.substr(0, 12);
  }
  throw std::runtime_error("entries that are no configuration:" + names);
}

file_tree read_tree(const std::string &root) {
  file_tree tree;
  if (!fs::is_directory(root)) {
    return tree;
  }
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
    const std::string name = entry.path().lexically_relative(root).string();
    if (entry.is_directory()) {
      tree.emplace(name + "/", "");
    } else {
      tree.emplace(name, read_bytes(entry.path()));
    }
  }
  return tree;
}

void write_tree(const std::string &root, const file_tree &tree) {
  fs::create_directories(root);
  for (const fs::directory_entry &entry : fs::directory_iterator(root)) {
    fs::remove_all(entry.path());
  }
  add_tree(root, tree);
}

void add_tree(const std::string &root, const file_tree &tree) {
  for (const auto &[name, bytes] : tree) {
    const std::string path = root + "/" + name;
    if (name.ends_with('/')) {
      fs::create_directories(path);
    } else {
      write_bytes(path, bytes);
    }
  }
}

char letter_on_disk(const file_tree &tree) {
  const std::string conf = conf_folder;
  const std::string config = conf + "config";
  const auto is = [&](const std::string &name, const std::string &bytes) {
    const auto found = tree.find(conf + name);
    return found != tree.end() && found->second == bytes;
  };
  file_tree files;
  for (const auto &[name, bytes] : tree) {
    if (name.starts_with(config + "/") && !name.ends_with('/')) {
      files.emplace(name.substr(config.size()), bytes);
    }
  }
  for (const char letter : letters) {
    const publication &one = configuration(letter);
    if (is("knowledge/subsys.k", one.k_text()) &&
        is("knowledge/subsys.checksum", one.checksum_text()) && files == one.files()) {
      return letter;
    }
  }
  return none;
}

services::services() {
  std::array<int, 2> ports{};
  std::array<int, 2> life_line{};
  if (::pipe2(ports.data(), O_CLOEXEC) != 0 || ::pipe2(life_line.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  process_ = ::fork();
  if (process_ == 0) {
    ::close(ports[0]);
    ::close(life_line[1]);
    try {
      serve(ports[1], life_line[0]);
    } catch (const std::exception &) {
      ::_exit(1);
    }
  }
  ::close(ports[1]);
  ::close(life_line[0]);
  life_line_ = life_line[1];
  for (std::uint16_t &port : ports_) {
    if (::read(ports[0], &port, sizeof port) != sizeof port) {
      throw std::runtime_error("the services don't start");
    }
  }
  ::close(ports[0]);
}

services::~services() {
  ::close(life_line_);
  ::waitpid(process_, nullptr, 0);
}

std::uint16_t services::port(char letter) const {
  const std::size_t at = letters.find(letter);
  return ports_.at(at == std::string_view::npos ? letters.size() : at);
}

}  // namespace zot::test
