// SPDX-License-Identifier: Apache-2.0
// Counts the heap: the program defines the entry points of the allocator, so every library in the
// process uses them. Counts the requested bytes, without the overhead of the allocator. Each step
// runs on a separate stack, to measure how much of that stack it uses.
#include <errno.h>
#include <link.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <ucontext.h>

#include "probe.h"
#include "zot_conf.h"

void *__libc_malloc(size_t size);
void __libc_free(void *block);

enum owner {
  owner_contents,
  owner_gpbs,
  owner_entries,
  owner_names,
  owner_json,
  owner_transfer,
  owner_texts,
  owner_other,
  owner_count
};

static const char *const owner_names_text[owner_count] = {
    "contents", "records", "entries", "names", "json", "transfer", "texts", "other"};

// Precedes each block. Its size keeps the block aligned.
struct header {
  _Alignas(max_align_t) void *base;
  size_t size;
  unsigned owner;
};

struct usage {
  size_t bytes;
  size_t blocks;
  size_t bytes_of[owner_count];
};

// The code of one loaded file.
struct module {
  uintptr_t begin;
  uintptr_t end;
  unsigned owner;
};

enum { max_modules = 64 };

static struct module modules[max_modules];
static size_t module_count;
static struct usage now;
static struct usage peak;
static struct usage at_start;
static atomic_flag busy = ATOMIC_FLAG_INIT;

static unsigned owner_of_file(const char *path) {
  const char *const slash = strrchr(path, '/');
  const char *const name = slash != NULL ? slash + 1 : path;
  if (strncmp(name, "libzotconf.", strlen("libzotconf.")) == 0) {
    return owner_other;
  }
  if (strncmp(name, "libcjson.", strlen("libcjson.")) == 0) {
    return owner_json;
  }
  return strncmp(name, "libc.", strlen("libc.")) == 0 ? owner_texts : owner_transfer;
}

static int add_module(struct dl_phdr_info *info, size_t size, void *unused) {
  (void)size;
  (void)unused;
  for (size_t i = 0; i < info->dlpi_phnum && module_count < max_modules; ++i) {
    const ElfW(Phdr) *const segment = &info->dlpi_phdr[i];
    if (segment->p_type == PT_LOAD && (segment->p_flags & PF_X) != 0) {
      const uintptr_t begin = info->dlpi_addr + segment->p_vaddr;
      modules[module_count++] =
          (struct module){begin, begin + segment->p_memsz, owner_of_file(info->dlpi_name)};
    }
  }
  return 0;
}

// Owners, size and checksum precede the bytes of a verified file.
enum { verified_head = 80 };

// Identifies the library's own blocks by their size, which is exact for a record.
static unsigned owner_within_library(size_t size) {
  switch (size) {
    case FOOTPRINT_FILE_SIZE + verified_head:
      return owner_contents;
    case sizeof(zot_gpb):
      return owner_gpbs;
    case sizeof(zot_ret_data):
      return owner_entries;
    case sizeof(remote_file_name):
      return owner_names;
    default:
      return owner_other;
  }
}

static unsigned owner_of(const void *caller, size_t size) {
  const uintptr_t at = (uintptr_t)caller;
  for (size_t i = 0; i < module_count; ++i) {
    if (at >= modules[i].begin && at < modules[i].end) {
      return modules[i].owner == owner_other ? owner_within_library(size) : modules[i].owner;
    }
  }
  return owner_transfer;
}

static void lock(void) {
  while (atomic_flag_test_and_set_explicit(&busy, memory_order_acquire)) {
  }
}

static void unlock(void) {
  atomic_flag_clear_explicit(&busy, memory_order_release);
}

static void count_in(const struct header *header) {
  lock();
  now.bytes += header->size;
  now.blocks += 1;
  now.bytes_of[header->owner] += header->size;
  if (now.bytes > peak.bytes) {
    peak = now;
  }
  unlock();
}

static void count_out(const struct header *header) {
  lock();
  now.bytes -= header->size;
  now.blocks -= 1;
  now.bytes_of[header->owner] -= header->size;
  unlock();
}

static struct header *header_of(void *block) {
  return (struct header *)block - 1;
}

static void *allocate(size_t alignment, size_t size, const void *caller) {
  const size_t slack = sizeof(struct header) + (alignment > _Alignof(max_align_t) ? alignment : 0);
  if (size > SIZE_MAX - slack) {
    errno = ENOMEM;
    return NULL;
  }
  char *const base = __libc_malloc(size + slack);
  if (base == NULL) {
    return NULL;
  }
  char *block = base + sizeof(struct header);
  if (alignment > _Alignof(max_align_t)) {
    block += (alignment - (uintptr_t)block % alignment) % alignment;
  }
  *header_of(block) = (struct header){base, size, owner_of(caller, size)};
  count_in(header_of(block));
  return block;
}

void *malloc(size_t size) {
  return allocate(1, size, __builtin_return_address(0));
}

void free(void *block) {
  if (block != NULL) {
    count_out(header_of(block));
    __libc_free(header_of(block)->base);
  }
}

void *calloc(size_t count, size_t size) {
  if (size != 0 && count > SIZE_MAX / size) {
    errno = ENOMEM;
    return NULL;
  }
  void *const block = allocate(1, count * size, __builtin_return_address(0));
  return block != NULL ? memset(block, 0, count * size) : NULL;
}

// The old block counts in addition to the new one until its bytes are copied, as with an allocator
// that cannot extend the block in place.
void *realloc(void *block, size_t size) {
  void *const grown = allocate(1, size, __builtin_return_address(0));
  if (grown == NULL || block == NULL) {
    return grown;
  }
  const size_t before = header_of(block)->size;
  memcpy(grown, block, before < size ? before : size);
  free(block);
  return grown;
}

void *memalign(size_t alignment, size_t size) {
  return allocate(alignment, size, __builtin_return_address(0));
}

void *aligned_alloc(size_t alignment, size_t size) {
  return allocate(alignment, size, __builtin_return_address(0));
}

int posix_memalign(void **block, size_t alignment, size_t size) {
  void *const got = allocate(alignment, size, __builtin_return_address(0));
  if (got == NULL) {
    return ENOMEM;
  }
  *block = got;
  return 0;
}

void probe_start(void) {
  dl_iterate_phdr(add_module, NULL);
  at_start = now;
}

static void print_usage(const char *step, const char *when, const struct usage *usage) {
  printf("%s.%s.bytes %zu\n", step, when, usage->bytes - at_start.bytes);
  printf("%s.%s.blocks %zu\n", step, when, usage->blocks - at_start.blocks);
  for (size_t i = 0; i < owner_count; ++i) {
    printf("%s.%s.%s %zu\n", step, when, owner_names_text[i],
           usage->bytes_of[i] - at_start.bytes_of[i]);
  }
}

static struct {
  void (*run)(void *argument);
  void *argument;
} running;

static void run_step(void) {
  running.run(running.argument);
}

// Runs the step on a painted stack, and returns the number of bytes from the lowest change up.
static size_t run_on_painted_stack(void) {
  enum { size = 1024 * 1024, paint = 0x5a };
  static unsigned char stack[size];
  static ucontext_t here;
  static ucontext_t there;
  memset(stack, paint, sizeof stack);
  getcontext(&there);
  there.uc_stack.ss_sp = stack;
  there.uc_stack.ss_size = sizeof stack;
  there.uc_link = &here;
  makecontext(&there, run_step, 0);
  swapcontext(&here, &there);
  size_t untouched = 0;
  while (untouched < sizeof stack && stack[untouched] == paint) {
    ++untouched;
  }
  return sizeof stack - untouched;
}

void probe_run(const char *step, void (*run)(void *argument), void *argument) {
  running.run = run;
  running.argument = argument;
  peak = now;
  const size_t stack = run_on_painted_stack();
  const struct usage after = now;
  print_usage(step, "peak", &peak);
  print_usage(step, "held", &after);
  printf("stack.%s %zu\n", step, stack);
}
