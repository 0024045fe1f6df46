// SPDX-License-Identifier: Apache-2.0
// Reads a checksum file that belongs to a K, and the same bytes as a service announces them. The
// input is a digit that chooses the K, then the file. In the file '@' stands for the digest of that
// K, '^' for the same in capitals, and '<' for the digest without its last digit.
#include <array>
#include <cctype>
#include <cstring>
#include <optional>

#include "fuzz/check.hpp"
#include "fuzz/handle.hpp"
#include "tests/support/files.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
using zot::fuzz::check;
namespace test = zot::test;

constexpr std::size_t line_buffer = 511;

struct known_k {
  std::string text;
  bool is_valid;
};
const std::array ks = {
    known_k{R"({"clusterId":"c","gpbs":[]})", true},
    known_k{R"({"clusterId":"c","firmwareVersion":"1.0","configId":"i","gpbs":[{}]})", true},
    known_k{R"({"gpbs":[]})", false},
    known_k{"x", false},
};

std::string upper(std::string text) {
  for (char &letter : text) {
    letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  }
  return text;
}

std::string with_digest(const std::string &text, const std::string &digest) {
  std::string whole;
  for (const char letter : text) {
    whole += letter == '@'   ? digest
             : letter == '^' ? upper(digest)
             : letter == '<' ? digest.substr(0, ZOT_CHECKSUM_LEN - 1)
                             : std::string(1, letter);
  }
  return whole;
}

// The first line, up to its first NUL.
std::string first_line(const std::string &file) {
  const std::string kept = file.substr(0, std::min(file.find('\n'), line_buffer));
  return kept.substr(0, kept.find('\0'));
}

void read_as_file(const test::temp_dir &dir, const known_k &k, const std::string &digest,
                  const std::string &file) {
  const zot::fuzz::handle handle;
  zot_ctx *const ctx = handle.get();
  const zot::k_owner record = zot::make_k();
  test::write_bytes(dir / "subsys.k", k.text);
  test::write_bytes(dir / "subsys.checksum", file);
  const int status = zot_priv_read_tmp_k(ctx, record.get(), dir.path().c_str());
  const std::string line = first_line(file);
  const bool is_checksum = line.size() == ZOT_CHECKSUM_LEN;
  const bool is_good = line == digest && k.is_valid;
  check(status == (is_good ? ZOT_OK : ZOT_ERR_CORRUPTED), "the digest on the first line decides");
  check(zot_util_get_err(ctx) == status, "the status is recorded");
  check((record->json != nullptr) == is_good, "only a verified K is parsed");
  check((record->data != nullptr) == is_checksum, "K is read once there is a checksum");
  if (is_checksum) {
    check(std::string(record->data, record->data_len) == k.text, "all bytes of K are held");
    check(record->checksum == digest, "the digest is that of the bytes");
    check(record->data[record->data_len] == '\0', "the bytes are terminated");
  }
  check(ctx->stat.bytes_read == (is_checksum ? sizeof record->checksum + k.text.size() : 0),
        "what was read is counted");
}

// A service announces bytes, of which only the first 64 count.
void compare(const known_k &k, const std::string &digest, const std::string &file) {
  const zot::fuzz::exact_copy<char> announced(file.c_str(), file.size() + 1);
  const zot::fuzz::exact_copy<char> data(k.text);
  const bool is_same = std::string(file.c_str()).substr(0, ZOT_CHECKSUM_LEN) == digest;
  const auto length = static_cast<std::uint32_t>(data.size());
  check((cmp_file_sha256(data.get(), length, announced.get()) == 0) == is_same,
        "bytes are those of their digest and of no other");
  const zot::fuzz::handle handle;
  const zot::k_owner cached = zot::make_k();
  std::memcpy(cached->checksum, digest.c_str(), sizeof cached->checksum);
  const zot_file_mem fetched{announced.get(), static_cast<std::uint32_t>(file.size())};
  check(zot_priv_is_chk_dup(handle.get(), &fetched, cached.get(), "a K") == (is_same ? 0 : 1),
        "a K is known by its digest and by no other");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const test::temp_dir dir;
  if (size == 0) {
    return 0;
  }
  const known_k &k = ks.at(bytes[0] % ks.size());
  const std::string digest = test::sha256_hex(k.text);
  const std::string file = with_digest({bytes + 1, bytes + size}, digest);
  read_as_file(dir, k, digest, file);
  compare(k, digest, file);
  return 0;
}
