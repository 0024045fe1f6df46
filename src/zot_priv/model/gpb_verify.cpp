// SPDX-License-Identifier: Apache-2.0
// Verification of one GPB file against what K states.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "utilities/file_io.hpp"
#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/verified.hpp"

namespace {

constexpr uint32_t read_topics = ZOT_TOPIC_GENERAL | ZOT_TOPIC_GPB;

// How much longer than stated a file may be and still be read, to tell what is wrong with it.
constexpr off_t read_beyond = 65536;

// A FIFO would make a plain open wait for a writer.
constexpr int read_flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;

// A file, and what K states of it.
struct stated_file {
  const char *name;
  int32_t size;
  const char *checksum;
  // Where the name begins, for what opens it, and for what tells of it. Null: it is whole.
  zot::gpb_folder *folder = nullptr;
};

// The name that messages tell.
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

// An open file; no size for what would wait for a writer, which counts as empty.
struct opened_file {
  explicit opened_file(const stated_file &file) : fd(open(file)) {
    struct stat st {};
    if (fd.is_open() && ::fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) &&
        st.st_size < off_t{UINT32_MAX}) {
      size = static_cast<uint32_t>(st.st_size);
    }
  }

  static zot::descriptor open(const stated_file &file) {
    return file.folder != nullptr ? file.folder->open(file.name)
                                  : zot::descriptor(::open(file.name, read_flags));
  }

  zot::descriptor fd;
  uint32_t size = 0;
};

bool is_missing(const char *text) {
  return text == nullptr || text[0] == '\0';
}

// Whether bytes of the stated size are those that the checksum stands for. To compare them with
// what stood for it before takes a fraction of the time that a digest takes.
bool has_stated_content(const char *content, const stated_file &file, const char *known) {
  const auto size = static_cast<uint32_t>(file.size);
  return (known != nullptr && std::memcmp(content, known, size) == 0) ||
         cmp_file_sha256(content, size, file.checksum) == 0;
}

constexpr const char *file_check = "zot_priv_verify_gpb";
constexpr const char *entry_check = "zot_priv_chk_vail_gpb";

[[gnu::noinline]] int refuse_empty(zot_ctx *handle, const stated_file &file) {
  const told_name name(file);
  return zot::record(handle, ZOT_ERR_CORRUPTED, file_check, __LINE__, "[%s]:Empty content in %s",
                     file_check, name.c_str());
}

[[gnu::noinline]] int refuse_size(zot_ctx *handle, const stated_file &file, uint32_t real_size) {
  const told_name name(file);
  zot::record(handle, ZOT_ERR_CORRUPTED, file_check, __LINE__,
              "[%s]: wrong GPB size: expect/real size=%ld/%ld", file_check,
              static_cast<long>(file.size), static_cast<long>(real_size));
  ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, read_topics, "%sfile = %s\n",
             name.c_str());
  return ZOT_ERR_CORRUPTED;
}

[[gnu::noinline]] int refuse_content(zot_ctx *handle, const stated_file &file) {
  const told_name name(file);
  zot::record(handle, ZOT_ERR_CORRUPTED, file_check, __LINE__,
              "[%s]: wrong GPB checksum: expect chksum = %s", file_check, file.checksum);
  ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, read_topics, "%sfile = %s\n",
             name.c_str());
  return ZOT_ERR_CORRUPTED;
}

// A file that is not far larger than K lets expect is read, to tell what is wrong with it.
int verify(zot_ctx *handle, const stated_file &file, const char *known, char *out) {
  if (is_missing(file.name) || is_missing(file.checksum)) {
    return zot::record(handle, ZOT_ERR_NULL_INPUT, file_check, __LINE__, "[%s]: null input",
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
    return refuse_size(handle, file, opened.size);
  }
  const zot::c_text content(static_cast<char *>(std::malloc(size_t{opened.size} + 1)));
  if (content == nullptr || !zot::read_exactly(opened.fd.get(), content.get(), opened.size)) {
    return refuse_empty(handle, file);
  }
  handle->stat.bytes_read += opened.size;
  if (file.size < 0 || opened.size != static_cast<uint32_t>(file.size)) {
    return refuse_size(handle, file, opened.size);
  }
  if (!has_stated_content(content.get(), file, known)) {
    return refuse_content(handle, file);
  }
  if (out != nullptr) {
    std::memcpy(out, content.get(), opened.size);
    ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, read_topics,
               "%sRead GPB into memory: Done\n");
  }
  ZOT_LOG_AT(handle, file_check, __LINE__, ZOT_LOG_DEBUG, read_topics,
             "%sVerify file : size = %ld, checksum = %s : Done\n", static_cast<long>(file.size),
             file.checksum);
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int verify_entry(zot_ctx *handle, zot_gpb *gpb, zot::gpb_folder &folder, const char *known) {
  if (is_missing(gpb->path) || gpb->size == 0) {
    return zot::record(handle, ZOT_ERR_WRONG_INPUT, entry_check, __LINE__,
                       "[%s]:Wrong Input: path=%s, size=%ld", entry_check,
                       gpb->path != nullptr ? gpb->path : "",
                       static_cast<long>(static_cast<int32_t>(gpb->size)));
  }
  if (!folder.has_room_for(gpb->path)) {
    return zot::record(handle, ZOT_ERR_CORRUPTED, entry_check, __LINE__,
                       "[%s]: path of GPB is too long: %s", entry_check, gpb->path);
  }
  const stated_file stated{gpb->path, static_cast<int32_t>(gpb->size), gpb->checksum, &folder};
  const int status = verify(handle, stated, known, gpb->content);
  if (status != ZOT_OK) {
    ZOT_LOG_AT(handle, entry_check, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
               "%sVerify GPB file: \"%s\" : Failed\n", gpb->path);
    return status;
  }
  ZOT_LOG_AT(handle, entry_check, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
             "%sVerify GPB file: \"%s\" : Done\n", gpb->path);
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

// A client's own download may fill an entry with whatever it likes.
bool is_brought_in_by_library(const zot_ctx &handle) {
  return handle.fns.download_gpb == nullptr || handle.fns.download_gpb == ap_download_gpb;
}

bool states_same_content(const zot_gpb &a, const zot_gpb &b) {
  return a.size == b.size && std::strcmp(a.checksum, b.checksum) == 0;
}

}  // namespace

namespace zot {

gpb_folder::gpb_folder(const char *root) : root_(root), root_length_(std::strlen(root)) {}

bool gpb_folder::has_room_for(const char *path) const {
  constexpr size_t between = sizeof "//config/" - 1;
  return root_length_ + between + std::strlen(path) < ZOT_PATH_SIZE;
}

// One that may be entered but not read does not open; its files do.
descriptor gpb_folder::open(const char *path) {
  if (!is_opened_) {
    is_opened_ = true;
    fd_ = descriptor(
        ::open(joined_path(root_, "/config").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  const char *const below = path + std::strspn(path, "/");
  if (fd_.is_open()) {
    descriptor file(::openat(fd_.get(), below, read_flags));
    if (file.is_open() || (errno != EMFILE && errno != ENFILE)) {
      return file;
    }
    // The folder's own may be the last descriptor that was to be had.
    fd_.close();
  }
  char whole[ZOT_PATH_SIZE];
  static_cast<void>(std::snprintf(whole, sizeof whole, "%s/config/%s", root_, below));
  return descriptor(::open(whole, read_flags));
}

int load_content(zot_ctx *handle, zot_gpb *gpb, gpb_folder &folder, const char *known) {
  // A file without size, or of one that K stated as negative, is refused by the check; it needs no
  // buffer.
  const bool is_possible = gpb->size != 0 && gpb->size <= INT32_MAX;
  if (gpb->content == nullptr && is_possible) {
    gpb->content = static_cast<char *>(std::calloc(1, gpb->size));
    if (gpb->content == nullptr) {
      return zot_priv_err_set_errno(handle, ZOT_ERR_NOMEM);
    }
  }
  return verify_entry(handle, gpb, folder, known);
}

const char *verified_content(const zot_gpb &gpb) {
  return gpb.content != nullptr && gpb.content[0] != '\0' ? gpb.content : nullptr;
}

verified_files::verified_files(const zot_list *gpbs)
    : head_(gpbs), node_(gpbs != nullptr ? gpbs->next : nullptr) {}

verified_files::verified_files(const zot_ctx *handle, uint32_t slot)
    : verified_files(is_brought_in_by_library(*handle) ? zot_priv_get_gpb(handle, slot) : nullptr) {
}

const zot_gpb *verified_files::find(const zot_gpb &gpb) {
  while (node_ != head_ && zot_priv_cmp_gpb(&gpb_of(node_), &gpb, nullptr) < 0) {
    node_ = node_->next;
  }
  return node_ != head_ && states_same_content(gpb_of(node_), gpb) ? &gpb_of(node_) : nullptr;
}

const char *verified_files::bytes_of(const zot_gpb &gpb) {
  const zot_gpb *const found = find(gpb);
  return found != nullptr ? verified_content(*found) : nullptr;
}

}  // namespace zot

int zot_priv_verify_gpb(zot_ctx *handle, const char *file, int32_t size, const char *checksum,
                        void *out) {
  return verify(handle, {file, size, checksum}, nullptr, static_cast<char *>(out));
}

int zot_priv_chk_vail_gpb(zot_ctx *handle, zot_gpb *gpb, const char *root) {
  if (handle == nullptr || gpb == nullptr || root == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  zot::gpb_folder folder(root);
  return verify_entry(handle, gpb, folder, nullptr);
}

int zot_priv_build_gpb_cont(zot_ctx *handle, zot_gpb *gpb, const char *root) {
  if (handle == nullptr || gpb == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  if (root == nullptr) {
    return zot_priv_chk_vail_gpb(handle, gpb, root);
  }
  zot::gpb_folder folder(root);
  return zot::load_content(handle, gpb, folder, nullptr);
}
