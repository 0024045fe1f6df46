// SPDX-License-Identifier: Apache-2.0
// Unpacks archives that a service may send into the scratch directory, one after the other. The
// input is one archive if it starts like one; otherwise its bytes choose the members.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>

#include "fuzz/check.hpp"
#include "tests/support/archive.hpp"
#include "tests/support/element.hpp"
#include "tests/support/service.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
namespace fs = std::filesystem;
namespace test = zot::test;
using zot::fuzz::check;

constexpr std::size_t most_archives = 3;
constexpr std::size_t most_members = 8;
constexpr const char *k_text = R"({"clusterId":"c","gpbs":[]})";
constexpr std::array<const char *, 2> paths = {"/Wlan/guest/1", "/Zone/z/2"};
constexpr std::array<const char *, 2> contents = {"the guests", "a zone"};

// Parts of names, so that members collide with each other and with existing files.
constexpr std::array<const char *, 24> pieces = {"config",
                                                 "Wlan",
                                                 "guest",
                                                 "1",
                                                 "Zone",
                                                 "z",
                                                 "2",
                                                 "subsys.k",
                                                 "gpb.tgz",
                                                 "tmp",
                                                 "subsys.checksum",
                                                 "..",
                                                 ".",
                                                 "",
                                                 "link",
                                                 "other",
                                                 "*",
                                                 "-C",
                                                 "keep",
                                                 "inner",
                                                 "knowledge",
                                                 "\n",
                                                 "0",
                                                 "subsys.k.tmp"};
// The targets of links: the directory of this process, wherever that is, or nothing.
constexpr std::array<const char *, 12> targets = {"@/outside",
                                                  "@/outside/keep",
                                                  "@/scratch/tmp/zot/subsys.k",
                                                  "../../../outside",
                                                  "../subsys.k",
                                                  "../../outside/keep",
                                                  "subsys.k",
                                                  "config/Wlan/guest/1",
                                                  "config",
                                                  ".",
                                                  "config/link",
                                                  "@/conf/writable/zot/knowledge"};
constexpr std::array<unsigned, 8> modes = {0644, 0755, 0, 04755, 02755, 01777, 0500, 0200};

// Everything below a directory: its type and mode, and the content of a file or the target of a
// link.
using snapshot = std::map<std::string, std::string>;

std::string look_at(const fs::path &path) {
  struct stat st {};
  check(::lstat(path.c_str(), &st) == 0, "what is listed is there");
  std::string text = std::to_string(st.st_mode) + " " + std::to_string(st.st_uid) + " ";
  if (S_ISREG(st.st_mode)) {
    text += test::read_bytes(path);
  } else if (S_ISLNK(st.st_mode)) {
    text += fs::read_symlink(path).string();
  }
  return text;
}

snapshot look_below(const fs::path &top, const fs::path &left_out) {
  snapshot seen;
  fs::recursive_directory_iterator at(top);
  for (const fs::directory_entry &entry : at) {
    if (entry.path() == left_out) {
      at.disable_recursion_pending();
    } else {
      seen.emplace(entry.path().string(), look_at(entry.path()));
    }
  }
  return seen;
}

class stage {
 public:
  stage() : element_(remote_.port()) {
    const fs::path dir = element_.dir().path();
    test::write_bytes(dir / "outside/keep", "kept");
    test::write_bytes(dir / "outside/inner/keep", "kept too");
    test::write_bytes(fs::path(element_.conf_root()) / "knowledge/subsys.k", "in force");
    check(zot_priv_reload_sys_paths(element_.handle()) == ZOT_OK, "there are directories");
    outside_ = look_outside();
    gpb_top_ = fs::path(element_.tmp_root()) / "config";
  }

  void clear() const {
    for (const fs::directory_entry &entry : fs::directory_iterator(element_.tmp_root())) {
      fs::remove_all(entry.path());
    }
    fs::create_directory(gpb_top_);
  }

  void unpack(const std::string &archive);
  [[nodiscard]] std::string with_place(std::string target) const;

 private:
  [[nodiscard]] fs::path k_file() const { return fs::path(element_.tmp_root()) / "subsys.k"; }
  [[nodiscard]] fs::path checksum_file() const {
    return fs::path(element_.tmp_root()) / "subsys.checksum";
  }
  [[nodiscard]] snapshot look_outside() const {
    return look_below(element_.dir().path(), element_.tmp_root());
  }
  void fetch_k() const;
  void check_scratch() const;
  void check_set() const;

  test::service remote_;
  test::element element_;
  snapshot outside_;
  fs::path gpb_top_;
};

std::string stage::with_place(std::string target) const {
  if (target.starts_with('@')) {
    target.replace(0, 1, element_.dir().path());
  }
  return target;
}

void add_listed(zot_list *list) {
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const std::string bytes = contents.at(i);
    std::int32_t category = 0;
    std::uint64_t version = 0;
    char key[ZOT_KEY_LEN + 1];
    char name[ZOT_KEY_LEN + 1];
    check(get_gpb_meta_by_path(paths.at(i), &category, key, sizeof key, &version, name,
                               sizeof name) == 0,
          "the files have paths");
    zot_gpb *const gpb = zot_priv_gpb_new(paths.at(i), static_cast<std::uint32_t>(bytes.size()),
                                          category, test::sha256_hex(bytes).c_str(), key, version);
    list_add_tail(list, &gpb->node);
  }
}

// There are only directories and plain files. The files have one name and no set-user-ID or
// set-group-ID bits.
void stage::check_scratch() const {
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(element_.tmp_root())) {
    struct stat st {};
    check(::lstat(entry.path().c_str(), &st) == 0, "what is listed is there");
    check(S_ISDIR(st.st_mode) || S_ISREG(st.st_mode), "only directories and files are left");
    check(!S_ISREG(st.st_mode) || st.st_nlink == 1, "no file has two names");
    check(!S_ISREG(st.st_mode) || (st.st_mode & (S_ISUID | S_ISGID)) == 0,
          "no file runs as its owner");
  }
}

// The files of the configuration are there as published, and no others.
void stage::check_set() const {
  check(test::read_bytes(k_file()) == k_text, "K is the one that was fetched");
  check(test::read_bytes(checksum_file()) == test::sha256_hex(k_text) + "\n", "so is its checksum");
  std::vector<std::string> wanted;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    wanted.push_back(std::string(paths.at(i)).substr(1));
    check(test::read_bytes(gpb_top_ / wanted.back()) == contents.at(i), "each file is verified");
  }
  check(test::tree(gpb_top_) == wanted, "no file is there that K does not name");
}

// Leaves K as every get leaves it before it requests an archive.
void stage::fetch_k() const {
  for (const auto &[path, bytes] : {std::pair(k_file(), std::string(k_text)),
                                    std::pair(checksum_file(), test::sha256_hex(k_text) + "\n")}) {
    const std::string partial = path.string() + ".tmp";
    test::write_bytes(partial, bytes);
    fs::rename(partial, path);
  }
}

void stage::unpack(const std::string &archive) {
  zot_ctx *const handle = element_.handle();
  remote_.clear_overrides();
  remote_.clear_requests();
  remote_.answer("/tgz", 200, archive);
  element_.log().clear();
  fetch_k();
  zot_k k{};
  const zot::gpb_list_owner list = zot::make_gpb_list(handle);
  add_listed(list.get());
  const int status = ap_download_gpb(handle, &k, list.get());
  check(look_outside() == outside_, "nothing outside the scratch directory changes");
  check_scratch();
  if (status == ZOT_OK) {
    check_set();
  } else {
    check(status == ZOT_ERR_CORRUPTED || status == ZOT_ERR_GENERIC, "the archive is refused");
  }
}

std::string make_name(FuzzedDataProvider &input) {
  std::string name = input.ConsumeBool() ? "config" : "";
  for (int left = input.ConsumeIntegralInRange<int>(0, 4); left > 0; --left) {
    name += name.empty() && input.ConsumeBool() ? "" : "/";
    name += pieces.at(input.ConsumeIntegralInRange<std::size_t>(0, pieces.size() - 1));
  }
  return name;
}

test::member make_member(FuzzedDataProvider &input, const stage &where) {
  test::member one;
  const auto listed = input.ConsumeIntegralInRange<std::size_t>(0, 3);
  if (listed < paths.size()) {
    one.path = "config" + std::string(paths.at(listed));
    one.bytes = contents.at(listed);
  } else {
    one.path = make_name(input);
    one.bytes = input.ConsumeRandomLengthString(16);
  }
  if (input.ConsumeBool()) {
    one.type = static_cast<test::member_type>(
        input.ConsumeIntegralInRange<int>(0, static_cast<int>(test::member_type::chardev)));
    one.mode = modes.at(input.ConsumeIntegralInRange<std::size_t>(0, modes.size() - 1));
    one.target = where.with_place(
        targets.at(input.ConsumeIntegralInRange<std::size_t>(0, targets.size() - 1)));
  }
  return one;
}

// Nothing if no archive can be made of the members.
std::optional<std::string> make_archive(FuzzedDataProvider &input, const stage &where) {
  std::vector<test::member> members;
  if (input.ConsumeBool()) {
    for (std::size_t i = 0; i < paths.size(); ++i) {
      members.push_back({.path = "config" + std::string(paths.at(i)), .bytes = contents.at(i)});
    }
  }
  for (auto left = input.ConsumeIntegralInRange<std::size_t>(0, most_members); left > 0; --left) {
    members.push_back(make_member(input, where));
  }
  try {
    return test::make_tar_gz(members);
  } catch (const std::runtime_error &) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static stage where;
  where.clear();
  if (size > 1 && bytes[0] == 0x1f && bytes[1] == 0x8b) {
    where.unpack({bytes, bytes + size});
    return 0;
  }
  FuzzedDataProvider input(bytes, size);
  for (std::size_t i = 0; i < most_archives && input.remaining_bytes() > 0; ++i) {
    if (const auto archive = make_archive(input, where); archive.has_value()) {
      where.unpack(*archive);
    }
  }
  return 0;
}
