// SPDX-License-Identifier: Apache-2.0
// Files and directories: removal, copies, whole-file reads and writes.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/file_io.hpp"
#include "utilities/own_names.hpp"
#include "utilities/owner.hpp"
#include "utilities/shell_word.hpp"
#include "utilities/text.hpp"
#include "zot_conf.h"

namespace {

constexpr size_t copy_chunk_size = 4096;
constexpr size_t line_size = 512;
constexpr mode_t new_directory_mode = 0777;
constexpr mode_t new_file_mode = 0666;

enum file_type {
  type_regular = 1,
  type_directory = 2,
  type_other = 3,
  type_no_input = -1,
  type_absent = -3,
  type_failed = -4
};

struct identity {
  dev_t device;
  ino_t inode;
};

bool is_same_file(const struct stat &st, const identity &other) {
  return st.st_dev == other.device && st.st_ino == other.inode;
}

// The root directory as the process sees it. Once it is known, it is kept.
const identity *root_identity() {
  static identity root;
  static bool is_known = false;
  if (!is_known) {
    struct stat st {};
    if (::stat("/", &st) == 0) {
      root = {st.st_dev, st.st_ino};
      is_known = true;
    }
  }
  return is_known ? &root : nullptr;
}

bool write_all(int fd, const char *data, size_t size, uint64_t *written) {
  while (size > 0) {
    const ssize_t put = ::write(fd, data, size);
    if (put < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    data += put;
    size -= static_cast<size_t>(put);
    if (written != nullptr) {
      *written += static_cast<uint64_t>(put);
    }
  }
  return true;
}

// Truncates a regular file that is longer than `size`. Other files have no size to change.
bool cut_to(int fd, uint64_t size) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    return false;
  }
  const bool is_longer = S_ISREG(st.st_mode) && static_cast<uint64_t>(st.st_size) > size;
  return !is_longer || ::ftruncate(fd, static_cast<off_t>(size)) == 0;
}

// Opens without blocking: a plain open of a FIFO would wait for its other end.
zot::descriptor open_at_once(const char *path, int flags, mode_t mode = 0) {
  return zot::descriptor(::open(path, flags | O_NONBLOCK | O_CLOEXEC, mode));
}

// Creates a new file for a copy. An existing entry is removed, never written through.
zot::descriptor create_replacing(const char *path, mode_t mode) {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  zot::descriptor created(::open(path, flags, mode));
  if (created.is_open() || ::unlink(path) != 0) {
    return created;
  }
  return zot::descriptor(::open(path, flags, mode));
}

bool copy_content(int from, int to, uint64_t *rd, uint64_t *wr) {
  char chunk[copy_chunk_size];
  for (;;) {
    const ssize_t got = zot::read_some(from, chunk, sizeof chunk);
    if (got <= 0) {
      return got == 0;
    }
    if (rd != nullptr) {
      *rd += static_cast<uint64_t>(got);
    }
    if (!write_all(to, chunk, static_cast<size_t>(got), wr)) {
      return false;
    }
  }
}

}  // namespace

int rm_rf(const char *path) {
  if (zot::is_blank(path) || std::strcmp(path, "/") == 0) {
    return -1;
  }
  if (!zot::is_plain_shell_word(path)) {
    errno = EINVAL;
    return -1;
  }
  if (const identity *const root = root_identity(); root != nullptr) {
    struct stat st {};
    const int type = get_file_type(path, &st, -1);
    if (type == type_absent) {
      return 0;
    }
    if (type < 0 || is_same_file(st, *root)) {
      return -1;
    }
  }
  // exec replaces the shell, so that rm ends with it. The buffer is larger by this word, so that
  // the same paths fit as without it.
  char command[sizeof "exec " - 1 + ZOT_PATH_SIZE];
  const int length = std::snprintf(command, sizeof command, "exec rm -rf  %s", path);
  // A truncated command would remove something else.
  if (length < 0 || static_cast<size_t>(length) >= sizeof command) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return cmd_helper_system(command);
}

int get_file_type(const char *path, struct stat *st, int fd) {
  if (path == nullptr && fd < 0) {
    return type_no_input;
  }
  struct stat local {};
  struct stat *const found = st != nullptr ? st : &local;
  if (fd < 0 && path[0] == '\0') {
    return type_absent;
  }
  if ((fd < 0 ? ::lstat(path, found) : ::fstat(fd, found)) != 0) {
    return errno == ENOENT ? type_absent : type_failed;
  }
  if (S_ISDIR(found->st_mode)) {
    return type_directory;
  }
  return S_ISREG(found->st_mode) ? type_regular : type_other;
}

int fcopy(const char *src, const char *dst) {
  return fcopy_stat(src, dst, nullptr, nullptr);
}

int fcopy_stat(const char *src, const char *dst, uint64_t *rd, uint64_t *wr) {
  if (zot::is_blank(src) || zot::is_blank(dst)) {
    errno = EINVAL;
    return -1;
  }
  const zot::descriptor from = open_at_once(src, O_RDONLY);
  struct stat from_st {};
  if (!from.is_open() || ::fstat(from.get(), &from_st) != 0) {
    return -1;
  }
  if (S_ISFIFO(from_st.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  struct stat to_st {};
  if (::lstat(dst, &to_st) != 0) {
    if (errno != ENOENT) {
      return -1;
    }
  } else if (is_same_file(to_st, {from_st.st_dev, from_st.st_ino})) {
    errno = EEXIST;
    return -1;
  }
  zot::descriptor to = create_replacing(dst, from_st.st_mode & 07777);
  if (!to.is_open()) {
    return -1;
  }
  if (rd != nullptr) {
    *rd = 0;
  }
  if (wr != nullptr) {
    *wr = 0;
  }
  return copy_content(from.get(), to.get(), rd, wr) && to.close() == 0 ? 0 : -1;
}

int mkdir_r(const char *path) {
  if (zot::is_blank(path)) {
    errno = EINVAL;
    return -1;
  }
  if (std::strcmp(path, ".") == 0) {
    return 0;
  }
  char prefix[ZOT_PATH_SIZE];
  static_cast<void>(std::snprintf(prefix, sizeof prefix, "%s", path));
  for (char *at = prefix;;) {
    at += std::strcspn(at, "/");
    at += std::strspn(at, "/");
    const char after = *at;
    *at = '\0';
    if (::mkdir(prefix, new_directory_mode) != 0 && errno != EEXIST && errno != EISDIR) {
      return -1;
    }
    if (after == '\0') {
      return 0;
    }
    *at = after;
  }
}

int chk_and_mkdir(const char *path) {
  if (zot::is_blank(path) || std::strcmp(path, "/") == 0) {
    return -1;
  }
  struct stat st {};
  if (::stat(path, &st) == 0 && S_ISDIR(st.st_mode)) {
    return 0;
  }
  {
    const zot::descriptor fd = open_at_once(path, O_RDONLY);
    if (!fd.is_open()) {
      return mkdir_r(path);
    }
    if (::fstat(fd.get(), &st) != 0) {
      return -1;
    }
  }
  if (S_ISDIR(st.st_mode)) {
    return 0;
  }
  return std::remove(path) == 0 && ::mkdir(path, new_directory_mode) == 0 ? 0 : -1;
}

char *read_line(const char *path, char *buf, size_t len) {
  if (zot::is_blank(path) || buf == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  const zot::descriptor fd = open_at_once(path, O_RDONLY);
  if (!fd.is_open()) {
    return nullptr;
  }
  char line[line_size];
  size_t have = 0;
  char *end = nullptr;
  for (ssize_t got = 1; got > 0 && end == nullptr && have < sizeof line - 1;) {
    got = zot::read_some(fd.get(), line + have, sizeof line - 1 - have);
    if (got < 0) {
      return nullptr;
    }
    end = static_cast<char *>(std::memchr(line + have, '\n', static_cast<size_t>(got)));
    have += static_cast<size_t>(got);
  }
  if (have == 0) {
    return nullptr;
  }
  *(end != nullptr ? end : line + have) = '\0';
  return std::strncpy(buf, line, len);
}

char *read_file(const char *path, uint32_t *size) {
  if (zot::is_blank(path) || size == nullptr) {
    return nullptr;
  }
  const zot::descriptor fd = open_at_once(path, O_RDONLY);
  if (!fd.is_open()) {
    return nullptr;
  }
  const off_t end = ::lseek(fd.get(), 0, SEEK_END);
  if (end < 0) {
    return nullptr;
  }
  // One byte is needed for the terminator.
  if (static_cast<uint64_t>(end) >= UINT32_MAX) {
    errno = EFBIG;
    return nullptr;
  }
  const auto wanted = static_cast<uint32_t>(end);
  *size = wanted;
  if (wanted == 0 || ::lseek(fd.get(), 0, SEEK_SET) != 0) {
    return nullptr;
  }
  zot::c_text content(static_cast<char *>(std::malloc(static_cast<size_t>(wanted) + 1)));
  if (content == nullptr) {
    return nullptr;
  }
  if (!zot::read_exactly(fd.get(), content.get(), wanted)) {
    return nullptr;
  }
  content.get()[wanted] = '\0';
  return content.release();
}

char *read_file_mmap(const char *path, uint32_t *len) {
  if (len == nullptr) {
    return nullptr;
  }
  *len = 0;
  if (zot::is_blank(path)) {
    return nullptr;
  }
  const zot::descriptor fd = open_at_once(path, O_RDONLY);
  struct stat st {};
  if (!fd.is_open() || ::fstat(fd.get(), &st) != 0) {
    return nullptr;
  }
  if (static_cast<uint64_t>(st.st_size) > UINT32_MAX) {
    errno = EFBIG;
    return nullptr;
  }
  constexpr int flags = MAP_PRIVATE | MAP_NORESERVE | MAP_POPULATE;
  void *const mapped =
      ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, flags, fd.get(), 0);
  if (mapped == MAP_FAILED) {
    return nullptr;
  }
  *len = static_cast<uint32_t>(st.st_size);
  return static_cast<char *>(mapped);
}

int free_file_mmap(void *addr, uint32_t len) {
  return addr == nullptr || len == 0 ? -1 : ::munmap(addr, len);
}

int write_file(const char *path, const void *buf, size_t size) {
  if (zot::is_blank(path) || buf == nullptr) {
    return -1;
  }
  // An existing file is truncated only after the write: to free its blocks first takes longer than
  // the write itself.
  const int truncation = size == 0 ? O_TRUNC : 0;
  zot::descriptor fd = open_at_once(path, O_WRONLY | O_CREAT | truncation, new_file_mode);
  if (!fd.is_open() || size == 0) {
    return -1;
  }
  uint64_t written = 0;
  const bool is_complete = write_all(fd.get(), static_cast<const char *>(buf), size, &written);
  const int error = errno;
  const bool is_cut = cut_to(fd.get(), written);
  if (!is_complete) {
    errno = error;
    return -1;
  }
  return is_cut && fd.close() == 0 ? 0 : -1;
}

char *str2upper(char *s) {
  if (s == nullptr) {
    return s;
  }
  for (char *at = s; *at != '\0'; ++at) {
    // ASCII letters only, whatever the host's locale is.
    if (*at >= 'a' && *at <= 'z') {
      *at = static_cast<char>(*at - 'a' + 'A');
    }
  }
  return s;
}

ZOT_PLAIN_NAME(rm_rf);
ZOT_PLAIN_NAME(get_file_type);
ZOT_PLAIN_NAME(fcopy);
ZOT_PLAIN_NAME(fcopy_stat);
ZOT_PLAIN_NAME(mkdir_r);
ZOT_PLAIN_NAME(chk_and_mkdir);
ZOT_PLAIN_NAME(read_line);
ZOT_PLAIN_NAME(read_file);
ZOT_PLAIN_NAME(read_file_mmap);
ZOT_PLAIN_NAME(free_file_mmap);
ZOT_PLAIN_NAME(write_file);
ZOT_PLAIN_NAME(str2upper);
