// SPDX-License-Identifier: Apache-2.0
#include "bare_get.h"

#include <curl/curl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "figures.h"

struct body {
  char bytes[4096];
  size_t size;
};

static size_t keep(char *data, size_t size, size_t count, void *argument) {
  struct body *const body = argument;
  const size_t more = size * count;
  if (more > sizeof body->bytes - body->size) {
    return 0;
  }
  memcpy(body->bytes + body->size, data, more);
  body->size += more;
  return more;
}

static CURLcode get(const char *url, struct body *body) {
  CURL *const curl = curl_easy_init();
  if (curl == NULL) {
    return CURLE_FAILED_INIT;
  }
  curl_easy_setopt(curl, CURLOPT_URL, url);
  // Ignores a proxy in the environment: the request is for the same machine.
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keep);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, body);
  const CURLcode result = curl_easy_perform(curl);
  curl_easy_cleanup(curl);
  return result;
}

double bare_get_seconds(const char *url) {
  struct body body = {{0}, 0};
  curl_global_init(CURL_GLOBAL_ALL);
  const double begin = wall_now();
  const CURLcode result = get(url, &body);
  const double seconds = wall_now() - begin;
  curl_global_cleanup();
  if (result != CURLE_OK || body.size == 0) {
    fprintf(stderr, "%s: %s\n", url, curl_easy_strerror(result));
    exit(1);
  }
  return seconds;
}
