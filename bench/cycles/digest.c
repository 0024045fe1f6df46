// SPDX-License-Identifier: Apache-2.0
// usage: bench_digest LIST TIMES
// Reads each file of a list in the format of sha256sum, computes its SHA-256 and compares it, TIMES
// times. It does nothing else, so it is the minimum for this work.
#define OPENSSL_API_COMPAT 0x10100000L
#include <errno.h>
#include <fcntl.h>
#include <openssl/sha.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { digits = 2 * SHA256_DIGEST_LENGTH };

struct buffer {
  unsigned char *bytes;
  size_t room;
};

_Noreturn static void fail(const char *what, const char *why) {
  fprintf(stderr, "%s: %s\n", what, why);
  exit(1);
}

// Reads a file into the buffer, followed by a zero byte. The buffer grows with the largest file.
static size_t read_whole(const char *path, struct buffer *buffer) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) {
    fail(path, strerror(errno));
  }
  const size_t size = (size_t)st.st_size;
  if (size >= buffer->room) {
    free(buffer->bytes);
    buffer->bytes = malloc(size + 1);
    buffer->room = size + 1;
  }
  size_t have = 0;
  while (buffer->bytes != NULL && have < size) {
    const ssize_t got = read(fd, buffer->bytes + have, size - have);
    if (got <= 0) {
      fail(path, "was truncated while it was read");
    }
    have += (size_t)got;
  }
  close(fd);
  if (buffer->bytes == NULL) {
    fail(path, "out of memory");
  }
  buffer->bytes[size] = '\0';
  return size;
}

static void verify(const char *line, const char *path, struct buffer *buffer) {
  static const char digit[] = "0123456789abcdef";
  const size_t size = read_whole(path, buffer);
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256_CTX context;
  SHA256_Init(&context);
  SHA256_Update(&context, buffer->bytes, size);
  SHA256_Final(digest, &context);
  char text[digits];
  for (size_t i = 0; i < sizeof digest; ++i) {
    text[2 * i] = digit[digest[i] >> 4];
    text[2 * i + 1] = digit[digest[i] & 0x0f];
  }
  if (memcmp(text, line, sizeof text) != 0) {
    fail(path, "the digest differs");
  }
}

// A line is the digest, two blanks and the path.
static unsigned long verify_all(const char *list, struct buffer *buffer) {
  enum { path_at = digits + 2 };
  unsigned long files = 0;
  while (*list != '\0') {
    const char *const end = strchr(list, '\n');
    char path[4096];
    const size_t length = end != NULL ? (size_t)(end - list) : 0;
    if (length <= path_at || length - path_at >= sizeof path) {
      fail(list, "invalid line in a list");
    }
    memcpy(path, list + path_at, length - path_at);
    path[length - path_at] = '\0';
    verify(list, path, buffer);
    list = end + 1;
    ++files;
  }
  return files;
}

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s LIST TIMES\n", argv[0]);
    return 2;
  }
  struct buffer list = {NULL, 0};
  struct buffer buffer = {NULL, 0};
  read_whole(argv[1], &list);
  for (unsigned long times = strtoul(argv[2], NULL, 10); times > 0; --times) {
    if (verify_all((const char *)list.bytes, &buffer) == 0) {
      fail(argv[1], "lists no file");
    }
  }
  free(buffer.bytes);
  free(list.bytes);
  return 0;
}
