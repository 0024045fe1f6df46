// SPDX-License-Identifier: Apache-2.0
// Small archives that unpack to a lot of data.
#include "tests/faults/archive/rows.hpp"

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

constexpr std::uint64_t mib = 1U << 20U;

std::string pad_of(std::uint64_t size) {
  return std::string((tar_block - size % tar_block) % tar_block, '\0');
}

std::string zeros_at(const std::string &name, std::uint64_t size) {
  return gzip_around_zeros(proper_members() + tar_header({.name = name}, size), size,
                           pad_of(size) + tar_end());
}

std::string many(unsigned count, const std::string &folder, char type, const std::string &bytes) {
  std::string members = proper_members();
  for (unsigned at = 0; at < count; ++at) {
    const std::string name = folder + "/" + std::to_string(at) + (type == '5' ? "/" : "");
    members += tar_blocks({.name = name, .bytes = bytes, .type = type, .mode = 0755});
  }
  return gzip(members + tar_end());
}

// Each folder named by itself, as one name that is long enough isn't taken by every unpacker.
std::string nested(const std::string &start, unsigned levels) {
  std::string members = proper_members();
  std::string path = start;
  for (unsigned level = 0; level < levels; ++level) {
    path += "/d";
    const std::string name = path + "/";
    members += (name.size() > 100 ? long_name(name) : "") +
               tar_blocks({.name = name.substr(0, 100), .type = '5', .mode = 0755});
  }
  return gzip(members + tar_end());
}

}  // namespace

archive_rows large_rows(const row_setting &setting) {
  const std::uint64_t gib = 1024 * mib * setting.percent / 100;
  const unsigned crowd = 2000 * setting.percent;
  const unsigned deep = 100 + 1890 * setting.percent / 100;
  const std::uint64_t room = 64 * mib;
  return {
      {"1 GiB of zeros that K doesn't name",
       {{zeros_at("config/zeros", gib), setting.percent >= 9 ? "U" : "C"}},
       0,
       mib},
      {"1 GiB of zeros that K doesn't name, let through",
       {{zeros_at("config/zeros", gib), "C"}},
       room / 4},
      {"1 GiB of zeros beside config, let through", {{zeros_at("zeros", gib), "C"}}, room / 4},
      {"1 GiB of zeros at a listed path", {{zeros_at(listed_file, gib), "C"}}, room / 4},
      {"1 GiB of zeros where K names 1 GiB", {{zeros_at(announced_file, gib), "C"}}, gib},
      {"1 GiB of zeros named as K", {{zeros_at("subsys.k", gib), "C"}}, room / 4, 0, true},
      {"4 MiB of zeros, more than their announced ten bytes",
       {{zeros_at(listed_file, 4 * mib), "C"}}},
      {"members of 1 MiB of zeros each",
       {{many(static_cast<unsigned>(gib / mib) / 4, "config/many", '0', std::string(mib, '\0')),
         "C"}},
       room / 4},
      {"200,000 files", {{many(crowd, "config/many", '0', "x"), "C"}}, room},
      {"200,000 empty files", {{many(crowd, "config/many", '0', ""), "C"}}, room},
      {"200,000 directories", {{many(crowd, "config/many", '5', ""), "C"}}, room},
      {"200,000 files beside config", {{many(crowd, "many", '0', "x"), "C"}}, room},
      {"200,000 files in the scratch directory itself", {{many(crowd, ".", '0', "x"), "C"}}, room},
      {"empty files, as many as go unannounced", {{many(crowd / 10, "config/many", '0', ""), "?"}}},
      {"1,990 folders deep", {{nested("config", deep), "?"}}},
      {"1,990 folders deep beside config", {{nested("other", deep), "C"}}},
      {"more than announced that cannot be packed",
       {{archive_after(tar_blocks({.name = "config/noise", .bytes = noise(2 * mib)})), "U"}}},
      {"more than announced that isn't packed", {{noise(2 * mib), "U"}}},
  };
}

}  // namespace zot::test
