// SPDX-License-Identifier: Apache-2.0
// usage: bench_source FOLDER FILES SIZE CHANGED
// Writes FILES files of SIZE incompressible bytes, the same in each run. The first CHANGED files
// have other bytes than with CHANGED 0.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

static const char *const categories[] = {
    "Ap",     "ApGroup", "Dp",   "DhcpPool", "FirewallPolicy", "Network",   "Radio", "Schedule",
    "Tunnel", "User",    "Vlan", "VlanPool", "Wlan",           "WlanGroup", "Zone"};
enum { category_count = sizeof categories / sizeof categories[0] };

static void fill(unsigned char *bytes, size_t size, uint64_t seed) {
  uint64_t state = seed * UINT64_C(0x9e3779b97f4a7c15) + 1;
  for (size_t i = 0; i < size; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    bytes[i] = (unsigned char)(state >> 32);
  }
  // A file that begins with a zero byte counts as empty.
  bytes[0] |= 1;
}

static int write_file_number(const char *folder, unsigned long number, const unsigned char *bytes,
                             size_t size) {
  char path[4096];
  const char *const category = categories[number % category_count];
  snprintf(path, sizeof path, "%s/%s", folder, category);
  (void)mkdir(path, 0777);
  snprintf(path, sizeof path, "%s/%s/7d0b6a52-41c5-4b0e-9d7e-%012lu", folder, category, number);
  FILE *const file = fopen(path, "wb");
  if (file == NULL) {
    return 0;
  }
  const int written = fwrite(bytes, size, 1, file) == 1;
  return fclose(file) == 0 && written;
}

int main(int argc, char **argv) {
  if (argc != 5) {
    fprintf(stderr, "usage: %s FOLDER FILES SIZE CHANGED\n", argv[0]);
    return 2;
  }
  const unsigned long files = strtoul(argv[2], NULL, 10);
  const size_t size = strtoul(argv[3], NULL, 10);
  const unsigned long changed = strtoul(argv[4], NULL, 10);
  unsigned char *const bytes = size != 0 ? malloc(size) : NULL;
  if (bytes == NULL) {
    fprintf(stderr, "%s: out of memory for files of %s bytes\n", argv[0], argv[3]);
    return 1;
  }
  (void)mkdir(argv[1], 0777);
  for (unsigned long number = 0; number < files; ++number) {
    fill(bytes, size, number < changed ? number + files : number);
    if (!write_file_number(argv[1], number, bytes, size)) {
      perror(argv[1]);
      free(bytes);
      return 1;
    }
  }
  free(bytes);
  return 0;
}
