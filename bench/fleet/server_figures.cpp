// SPDX-License-Identifier: Apache-2.0
#include "bench/fleet/server_figures.hpp"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::ifstream opened(const std::string &path) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  return file;
}

std::vector<std::string> children_of(pid_t parent) {
  const std::string process = "/proc/" + std::to_string(parent);
  std::ifstream file = opened(process + "/task/" + std::to_string(parent) + "/children");
  std::vector<std::string> children;
  for (std::string child; file >> child;) {
    children.push_back(child);
  }
  if (children.empty()) {
    throw std::runtime_error(process + " has no workers");
  }
  return children;
}

double cpu_of(const std::string &process) {
  double nanoseconds = 0;
  opened("/proc/" + process + "/schedstat") >> nanoseconds;
  return nanoseconds / 1e9;
}

uint64_t memory_of(const std::string &process) {
  std::ifstream file = opened("/proc/" + process + "/status");
  for (std::string word; file >> word;) {
    if (word == "RssAnon:") {
      uint64_t kilobytes = 0;
      file >> kilobytes;
      return kilobytes * 1024;
    }
  }
  throw std::runtime_error("no memory of process " + process);
}

// A line with the names is followed by a line with the values.
uint64_t dropped_connections() {
  std::ifstream file = opened("/proc/net/netstat");
  for (std::string names, values; std::getline(file, names) && std::getline(file, values);) {
    std::istringstream name_words(names);
    std::istringstream value_words(values);
    for (std::string name, value; name_words >> name && value_words >> value;) {
      if (name == "ListenOverflows") {
        return std::stoull(value);
      }
    }
  }
  throw std::runtime_error("/proc/net/netstat has no ListenOverflows");
}

}  // namespace

server_figures figures_of_server(pid_t master) {
  server_figures all = {.dropped = dropped_connections()};
  for (const std::string &worker : children_of(master)) {
    all.cpu += cpu_of(worker);
    all.memory += memory_of(worker);
  }
  return all;
}
