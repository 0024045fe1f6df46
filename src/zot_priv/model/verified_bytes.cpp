// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/model/verified_bytes.hpp"

#include <cstdlib>
#include <cstring>

#include "zot_list.hpp"

namespace {

template <class Statement>
bool states_same(const Statement &a, const zot_gpb &b) {
  return a.size == b.size && std::strcmp(a.checksum, b.checksum) == 0;
}

bool points_into(const zot_gpb &gpb) {
  return gpb.verified != nullptr && gpb.content == zot::bytes_of(gpb.verified);
}

}  // namespace

namespace zot {

void release_verified(zot_verified *verified) {
  if (verified != nullptr && --verified->owners == 0) {
    std::free(verified);
  }
}

verified_bytes share(zot_verified *verified) {
  if (verified != nullptr) {
    ++verified->owners;
  }
  return verified_bytes(verified);
}

char *bytes_of(zot_verified *verified) {
  return reinterpret_cast<char *>(verified + 1);
}

zot_verified *verified_of(const zot_gpb &gpb) {
  return points_into(gpb) && states_same(*gpb.verified, gpb) ? gpb.verified : nullptr;
}

void drop_content(zot_gpb &gpb) {
  // No buffer is ever allocated for a record of size 0.
  if (!points_into(gpb) && gpb.size != 0) {
    std::free(gpb.content);
  }
  release_verified(gpb.verified);
  gpb.verified = nullptr;
  gpb.content = nullptr;
}

void keep_content(zot_gpb &gpb, verified_bytes bytes) {
  drop_content(gpb);
  gpb.content = bytes_of(bytes.get());
  gpb.verified = bytes.release();
}

listed_files::listed_files(const zot_list *gpbs)
    : head_(gpbs), node_(gpbs != nullptr ? gpbs->next : nullptr) {}

const zot_gpb *listed_files::find(const zot_gpb &gpb) {
  while (node_ != head_ && zot_priv_cmp_gpb(&gpb_of(node_), &gpb, nullptr) < 0) {
    node_ = node_->next;
  }
  return node_ != head_ && states_same(gpb_of(node_), gpb) ? &gpb_of(node_) : nullptr;
}

zot_verified *listed_files::verified_of(const zot_gpb &gpb) {
  const zot_gpb *const found = find(gpb);
  return found != nullptr ? zot::verified_of(*found) : nullptr;
}

}  // namespace zot
