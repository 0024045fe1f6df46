// SPDX-License-Identifier: Apache-2.0
// usage: json_check FILE
// Succeeds when the file holds one JSON value and nothing else.
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>

static char *read_text(const char *path) {
  FILE *const file = fopen(path, "rb");
  if (file == NULL) {
    return NULL;
  }
  enum { longest = 1 << 20 };
  char *const text = calloc(1, longest);
  if (text != NULL && fread(text, 1, longest - 1, file) == 0) {
    free(text);
    fclose(file);
    return NULL;
  }
  fclose(file);
  return text;
}

int main(int argc, char **argv) {
  char *const text = argc == 2 ? read_text(argv[1]) : NULL;
  if (text == NULL) {
    fprintf(stderr, "json_check: nothing to read\n");
    return 2;
  }
  const char *end = NULL;
  cJSON *const value = cJSON_ParseWithOpts(text, &end, 1);
  if (value == NULL) {
    fprintf(stderr, "json_check: no JSON from here on: %.60s\n", end != NULL ? end : "");
  }
  cJSON_Delete(value);
  free(text);
  return value != NULL ? 0 : 1;
}
