// SPDX-License-Identifier: Apache-2.0
// Verification of one GPB file against what K states.
#include "zot_priv/storage/gpb_verify.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "utilities/file_io.hpp"
#include "utilities/text.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/verified_bytes.hpp"

namespace {

using zot::verified_bytes;

// A file that is longer than stated by at most this is still read, and counted as read.
constexpr off_t read_beyond = 65536;

// A file and what K states about it.
struct stated_file {
  const char *name;
  int32_t size;
  const char *checksum;
  // The folder that the name is relative to. Null if the name is a whole path.
  zot::gpb_folder *folder = nullptr;
};

// The name that messages show.
class told_name {
 public:
  explicit told_name(const stated_file &file) {
    if (file.folder != nullptr) {
      static_cast<void>(std::snprintf(text_, sizeof text_, "%s/%s/%s", file.folder->root(),
                                      "/config", file.name));
    } else {
      static_cast<void>(std::snprintf(text_, sizeof text_, "%s", file.name));
    }
  }

  [[nodiscard]] const char *c_str() const { return text_; }

 private:
  char text_[ZOT_PATH_SIZE];
};

// An open file. What is not a regular file, such as a FIFO without a writer, has no size and counts
// as empty.
struct opened_file {
  explicit opened_file(const stated_file &file) : fd(open(file)) {
    struct stat st {};
    if (fd.is_open() && ::fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) &&
        st.st_size < off_t{UINT32_MAX}) {
      size = static_cast<uint32_t>(st.st_size);
    }
  }

  static zot::descriptor open(const stated_file &file) {
    return file.folder != nullptr
               ? file.folder->open(file.name)
               : zot::descriptor(::open(file.name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }

  zot::descriptor fd;
  uint32_t size = 0;
};

// Bytes that are not verified yet. Nobody else holds them.
using unverified = zot::c_ptr<zot_verified>;

unverified new_block(uint32_t size) {
  return unverified(static_cast<zot_verified *>(std::malloc(sizeof(zot_verified) + size_t{size})));
}

verified_bytes seal(unverified bytes, const stated_file &file) {
  bytes->owners = 1;
  bytes->size = static_cast<uint32_t>(file.size);
  static_cast<void>(std::snprintf(bytes->checksum, sizeof bytes->checksum, "%s", file.checksum));
  return verified_bytes(bytes.release());
}

// Accepts bytes of the stated size if they match the checksum. To compare them with bytes that
// matched it before takes a fraction of the time of a digest.
verified_bytes check(unverified bytes, const stated_file &file, zot_verified *known) {
  const char *const read = zot::bytes_of(bytes.get());
  const auto size = static_cast<uint32_t>(file.size);
  if (known != nullptr && std::memcmp(read, zot::bytes_of(known), size) == 0) {
    return zot::share(known);
  }
  return cmp_file_sha256(read, size, file.checksum) == 0 ? seal(std::move(bytes), file) : nullptr;
}

constexpr const char *file_check = "zot_priv_verify_gpb";
constexpr const char *entry_check = "zot_priv_chk_vail_gpb";

[[gnu::noinline]] int refuse_empty(zot_ctx *handle, const stated_file &file) {
  const told_name name(file);
  return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, file_check, __LINE__, "[%s]:Empty content in %s",
                       file_check, name.c_str());
}

bool has_stated_size(const stated_file &file, uint32_t size) {
  return file.size >= 0 && size == static_cast<uint32_t>(file.size);
}

// A file of the wrong size is refused for that, whatever it holds.
[[gnu::noinline]] int refuse(zot_ctx *handle, const stated_file &file, uint32_t size) {
  if (has_stated_size(file, size)) {
    ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, file_check, __LINE__,
                  "[%s]: wrong GPB checksum: expect chksum = %s", file_check, file.checksum);
  } else {
    ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, file_check, __LINE__,
                  "[%s]: wrong GPB size: expect/real size=%ld/%ld", file_check,
                  static_cast<long>(file.size), static_cast<long>(size));
  }
  const told_name name(file);
  ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, zot::gpb_topics, "%sfile = %s\n",
             name.c_str());
  return ZOT_ERR_CORRUPTED;
}

// Reads a file and checks it. A file of the wrong size is read and counted too, unless it is far
// larger than K states. `block` is for a file of the stated size, or null.
int read_verified(zot_ctx *handle, const stated_file &file, zot_verified *known, unverified block,
                  verified_bytes &out) {
  if (zot::is_blank(file.name) || zot::is_blank(file.checksum)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_NULL_INPUT, file_check, __LINE__, "[%s]: null input",
                         file_check);
  }
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  const opened_file opened(file);
  if (opened.size == 0) {
    return refuse_empty(handle, file);
  }
  if (opened.size > std::max<int64_t>(file.size, 0) + read_beyond) {
    return refuse(handle, file, opened.size);
  }
  const bool is_of_stated_size = has_stated_size(file, opened.size);
  if (block == nullptr || !is_of_stated_size) {
    block = new_block(opened.size);
  }
  if (block == nullptr ||
      !zot::read_exactly(opened.fd.get(), zot::bytes_of(block.get()), opened.size)) {
    return refuse_empty(handle, file);
  }
  handle->stat.bytes_read += opened.size;
  if (is_of_stated_size) {
    out = check(std::move(block), file, known);
  }
  return out != nullptr ? ZOT_OK : refuse(handle, file, opened.size);
}

int tell_verified(zot_ctx *handle, const stated_file &file, bool is_kept) {
  if (is_kept) {
    ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, zot::gpb_topics,
               "%sRead GPB into memory: Done\n");
  }
  ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, zot::gpb_topics,
             "%sVerify file : size = %ld, checksum = %s : Done\n", static_cast<long>(file.size),
             file.checksum);
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

// What to do with the verified bytes of an entry.
enum purpose { look, fill_buffer, keep };

int verify_entry(zot_ctx *handle, zot_gpb *gpb, zot::gpb_folder &folder, zot_verified *known,
                 unverified block, purpose purpose) {
  if (zot::is_blank(gpb->path) || gpb->size == 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, entry_check, __LINE__,
                         "[%s]:Wrong Input: path=%s, size=%ld", entry_check,
                         gpb->path != nullptr ? gpb->path : "",
                         static_cast<long>(static_cast<int32_t>(gpb->size)));
  }
  if (!folder.fits_in_path(gpb->path)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, entry_check, __LINE__,
                         "[%s]: path of GPB is too long: %s", entry_check, gpb->path);
  }
  const stated_file stated{gpb->path, static_cast<int32_t>(gpb->size), gpb->checksum, &folder};
  verified_bytes bytes;
  const int status = read_verified(handle, stated, known, std::move(block), bytes);
  if (status != ZOT_OK) {
    ZOT_LOG_AT(handle, entry_check, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
               "%sVerify GPB file: \"%s\" : Failed\n", gpb->path);
    return status;
  }
  if (purpose == fill_buffer) {
    std::memcpy(gpb->content, zot::bytes_of(bytes.get()), gpb->size);
  } else if (purpose == keep) {
    zot::keep_content(*gpb, std::move(bytes));
  }
  tell_verified(handle, stated, purpose != look);
  ZOT_LOG_AT(handle, entry_check, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
             "%sVerify GPB file: \"%s\" : Done\n", gpb->path);
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

// The check refuses a file of size 0, or of a size that K stated as negative, so neither needs a
// buffer.
bool is_size_possible(const zot_gpb &gpb) {
  return gpb.size != 0 && gpb.size <= INT32_MAX;
}

// Whether the content of an entry is a buffer of its own.
bool has_own_buffer(const zot_gpb &gpb) {
  return gpb.content != nullptr && gpb.verified == nullptr;
}

}  // namespace

int zot::load_content(zot_ctx *handle, zot_gpb *gpb, gpb_folder &folder, zot_verified *known) {
  unverified block;
  if (is_size_possible(*gpb)) {
    block = new_block(gpb->size);
    if (block == nullptr) {
      return zot_priv_err_set_errno(handle, ZOT_ERR_NOMEM);
    }
  }
  return verify_entry(handle, gpb, folder, known, std::move(block), keep);
}

// The operations below are for adapters and tools. The library itself calls load_content().
int zot_priv_verify_gpb(zot_ctx *handle, const char *file, int32_t size, const char *checksum,
                        void *out) {
  const stated_file stated{file, size, checksum};
  verified_bytes bytes;
  if (const int status = read_verified(handle, stated, nullptr, nullptr, bytes); status != ZOT_OK) {
    return status;
  }
  if (out != nullptr) {
    std::memcpy(out, zot::bytes_of(bytes.get()), static_cast<uint32_t>(size));
  }
  return tell_verified(handle, stated, out != nullptr);
}

int zot_priv_chk_vail_gpb(zot_ctx *handle, zot_gpb *gpb, const char *root) {
  if (handle == nullptr || gpb == nullptr || root == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  zot::gpb_folder folder(root);
  if (has_own_buffer(*gpb)) {
    return verify_entry(handle, gpb, folder, nullptr, nullptr, fill_buffer);
  }
  return verify_entry(handle, gpb, folder, zot::verified_of(*gpb), nullptr,
                      gpb->content != nullptr ? keep : look);
}

int zot_priv_build_gpb_cont(zot_ctx *handle, zot_gpb *gpb, const char *root) {
  if (handle == nullptr || gpb == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  if (root == nullptr || gpb->content != nullptr) {
    return zot_priv_chk_vail_gpb(handle, gpb, root);
  }
  zot::gpb_folder folder(root);
  const int status = zot::load_content(handle, gpb, folder, nullptr);
  // Callers of this operation find a zeroed buffer after a failure. It counts as the entry's own
  // buffer.
  if (status != ZOT_OK && status != ZOT_ERR_NOMEM && is_size_possible(*gpb)) {
    gpb->content = static_cast<char *>(std::calloc(1, gpb->size));
  }
  return status;
}
