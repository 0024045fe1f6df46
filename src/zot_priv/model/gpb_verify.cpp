// SPDX-License-Identifier: Apache-2.0
// Verification of one GPB file against what K states.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"

namespace {

constexpr uint32_t read_topics = ZOT_TOPIC_GENERAL | ZOT_TOPIC_GPB;

// How much longer than stated a file may be and still be read, to tell what is wrong with it.
constexpr off_t read_beyond = 65536;

// The bytes of a file. Not read are what would wait for a writer, which counts as empty, and what
// is far larger than K lets expect, of which only the size is told.
zot::c_text read_as_stated(const char *file, int32_t size, uint32_t *real_size) {
  *real_size = 0;
  struct stat st {};
  if (::stat(file, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size >= off_t{UINT32_MAX}) {
    return nullptr;
  }
  if (st.st_size > std::max<off_t>(size, 0) + read_beyond) {
    *real_size = static_cast<uint32_t>(st.st_size);
    return nullptr;
  }
  zot::c_text content(read_file(file, real_size));
  if (content == nullptr) {
    *real_size = 0;
  }
  return content;
}

bool is_missing(const char *text) {
  return text == nullptr || text[0] == '\0';
}

}  // namespace

int zot_priv_verify_gpb(zot_ctx *handle, const char *file, int32_t size, const char *checksum,
                        void *out) {
  if (is_missing(file) || is_missing(checksum)) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input", __func__);
  }
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  uint32_t real_size = 0;
  const zot::c_text content = read_as_stated(file, size, &real_size);
  if (real_size == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]:Empty content in %s", __func__, file);
  }
  handle->stat.bytes_read += content != nullptr ? real_size : 0;

  if (content == nullptr || size < 0 || real_size != static_cast<uint32_t>(size)) {
    ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: wrong GPB size: expect/real size=%ld/%ld",
               __func__, static_cast<long>(size), static_cast<long>(real_size));
    ZOT_LOG(handle, ZOT_LOG_DEBUG, read_topics, "%sfile = %s\n", file);
    return ZOT_ERR_CORRUPTED;
  }
  if (cmp_file_sha256(content.get(), real_size, checksum) != 0) {
    ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: wrong GPB checksum: expect chksum = %s", __func__,
               checksum);
    ZOT_LOG(handle, ZOT_LOG_DEBUG, read_topics, "%sfile = %s\n", file);
    return ZOT_ERR_CORRUPTED;
  }
  if (out != nullptr) {
    std::memcpy(out, content.get(), real_size);
    ZOT_LOG(handle, ZOT_LOG_DEBUG, read_topics, "%sRead GPB into memory: Done\n");
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, read_topics, "%sVerify file : size = %ld, checksum = %s : Done\n",
          static_cast<long>(size), checksum);
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int zot_priv_chk_vail_gpb(zot_ctx *handle, zot_gpb *gpb, const char *root) {
  if (handle == nullptr || gpb == nullptr || root == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  if (is_missing(gpb->path) || gpb->size == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]:Wrong Input: path=%s, size=%ld", __func__,
                      gpb->path != nullptr ? gpb->path : "",
                      static_cast<long>(static_cast<int32_t>(gpb->size)));
  }
  char file[ZOT_PATH_SIZE];
  const int length = std::snprintf(file, sizeof file, "%s/%s/%s", root, "/config", gpb->path);
  if (length < 0 || static_cast<size_t>(length) >= sizeof file) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: path of GPB is too long: %s", __func__,
                      gpb->path);
  }
  const int status = zot_priv_verify_gpb(handle, file, static_cast<int32_t>(gpb->size),
                                         gpb->checksum, gpb->content);
  if (status != ZOT_OK) {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sVerify GPB file: \"%s\" : Failed\n",
            gpb->path);
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sVerify GPB file: \"%s\" : Done\n",
          gpb->path);
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int zot_priv_build_gpb_cont(zot_ctx *handle, zot_gpb *gpb, const char *root) {
  if (handle == nullptr || gpb == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  // A file without size, or of one that K stated as negative, is refused by the check; it needs no
  // buffer.
  const bool is_possible = gpb->size != 0 && gpb->size <= INT32_MAX;
  if (gpb->content == nullptr && is_possible) {
    gpb->content = static_cast<char *>(std::calloc(1, gpb->size));
    if (gpb->content == nullptr) {
      return zot_priv_err_set_errno(handle, ZOT_ERR_NOMEM);
    }
  }
  return zot_priv_chk_vail_gpb(handle, gpb, root);
}
