// SPDX-License-Identifier: Apache-2.0
#include "options.hpp"

#include <array>
#include <cstdlib>
#include <string>

namespace zot::faults {
namespace {

bool set_number(const std::string &name, std::uint64_t number, options &wanted) {
  if (name == "--count") {
    wanted.count = number;
  } else if (name == "--first") {
    wanted.first = number;
  } else if (name == "--seed") {
    wanted.seed = number;
  } else if (name == "--seconds") {
    wanted.seconds = static_cast<long>(number);
  } else if (name == "--jobs" && number > 0) {
    wanted.jobs = static_cast<unsigned>(number);
  } else {
    return false;
  }
  return true;
}

}  // namespace

const char *const usage =
    "usage: zotconf_model [--count N] [--seed S] [--first I] [--seconds T] [--jobs J]\n"
    "                     [--adapter own|client] [--lies]\n"
    "  --count     sequences, numbered from --first (0); 1000 unless told\n"
    "  --seconds   begin no sequence after this time\n"
    "  --adapter   own: the library's operations (default): the files come as an archive over "
    "HTTP,\n"
    "              through tar, and are committed with cp; client: operations as a client may\n"
    "              install them, which write and commit the files directly; K comes over HTTP\n"
    "  --lies      tell the model something wrong, and expect that it is found and made short\n";

bool parse(int count, char **words, options &wanted) {
  for (int i = 1; i < count; ++i) {
    const std::string name = words[i];
    if (name == "--lies") {
      wanted.lies = true;
      continue;
    }
    if (i + 1 == count) {
      return false;
    }
    const std::string value = words[++i];
    if (name == "--adapter" && (value == "own" || value == "client")) {
      wanted.used = value == "own" ? adapter::own : adapter::client;
      continue;
    }
    char *end = nullptr;
    const std::uint64_t number = std::strtoull(value.c_str(), &end, 10);
    if (value.empty() || *end != '\0' || !set_number(name, number, wanted)) {
      return false;
    }
  }
  return true;
}

sequence sequence_of(const options &wanted, std::uint64_t number) {
  std::seed_seq mixed{wanted.seed, wanted.seed >> 32U, number, number >> 32U};
  std::array<std::uint32_t, 2> words{};
  mixed.generate(words.begin(), words.end());
  return random_sequence((static_cast<std::uint64_t>(words[0]) << 32U) | words[1]);
}

}  // namespace zot::faults
