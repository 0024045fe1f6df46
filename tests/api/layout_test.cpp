// SPDX-License-Identifier: Apache-2.0
// The layout of the public records in C++. The test prints the table, so that a test log shows the
// figures of the machine that it ran on.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <string_view>
#include <utility>

#include "tests/api/record_layout.h"
#include "zot_conf.h"

namespace {

struct place {
  std::size_t offset;
  std::size_t size;
  bool operator==(const place &other) const = default;
};

struct row {
  std::string_view record;
  std::string_view field;  // empty: the whole record
  place found;
  place on_32_bit;
  place on_64_bit;

  [[nodiscard]] constexpr place wanted() const {
    return sizeof(void *) == 4 ? on_32_bit : on_64_bit;
  }
};

#define RECORD(record, size32, size64) \
  row{#record, "", {0, sizeof(record)}, {0, size32}, {0, size64}},
#define FIELD(record, field, offset32, size32, offset64, size64)         \
  row{#record,                                                           \
      #field,                                                            \
      {offsetof(record, field), sizeof(std::declval<record &>().field)}, \
      {offset32, size32},                                                \
      {offset64, size64}},
constexpr std::array layout{ZOT_RECORD_LAYOUT(RECORD, FIELD)};
#undef FIELD
#undef RECORD

consteval bool is_as_agreed() {
  for (const row &each : layout) {
    if (each.found != each.wanted()) {
      return false;
    }
  }
  return true;
}
static_assert(is_as_agreed());

// The sizes that access points rely on.
consteval std::size_t size_on_32_bit(std::string_view record) {
  for (const row &each : layout) {
    if (each.record == record && each.field.empty()) {
      return each.on_32_bit.size;
    }
  }
  return 0;
}
static_assert(size_on_32_bit("zot_log_ctl") == 32);
static_assert(size_on_32_bit("zot_parm_all") == 40);
static_assert(size_on_32_bit("zot_core_stat") == 24);
static_assert(size_on_32_bit("zot_k_meta") == 586);

void print(const row &each) {
  std::cout << std::left << std::setw(18) << each.record << std::setw(18) << each.field
            << std::right << std::setw(8) << each.found.offset << std::setw(8) << each.found.size
            << '\n';
}

TEST(Layout, RecordsAndFieldsAreWhereTheyWere) {
  std::cout << "pointers of " << 8 * sizeof(void *) << " bits\n"
            << std::left << std::setw(18) << "record" << std::setw(18) << "field" << std::right
            << std::setw(8) << "offset" << std::setw(8) << "size" << '\n';
  for (const row &each : layout) {
    print(each);
    EXPECT_EQ(each.found.offset, each.wanted().offset) << each.record << '.' << each.field;
    EXPECT_EQ(each.found.size, each.wanted().size) << each.record << '.' << each.field;
  }
}

// Detects fields that the table lacks, at the end or between two others, unless such a field fits
// into the padding there.
TEST(Layout, FieldsLeaveNoRoomButThatOfTheirAlignment) {
  std::size_t end = 0;
  std::size_t record_end = 0;
  for (const row &each : layout) {
    const bool is_record = each.field.empty();
    const std::size_t gap = is_record ? record_end - end : each.found.offset - end;
    // A member of a nested record is inside a field that was already checked.
    if (each.field.find('.') != std::string_view::npos) {
      continue;
    }
    EXPECT_LT(gap, sizeof(std::uint64_t)) << each.record << '.' << each.field;
    end = is_record ? 0 : each.found.offset + each.found.size;
    record_end = is_record ? each.found.size : record_end;
  }
  EXPECT_LT(record_end - end, sizeof(std::uint64_t));
}

}  // namespace
