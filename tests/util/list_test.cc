// Tests of util/list.h: the cursor rules at every position of a 4-element
// list, the statuses, the library-only walkers and the kept contracts of
// creation and destruction.
#include "util/list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "core/memory.h"
#include "tests/support/test_allocator.h"

namespace {

// The link is deliberately not the first member, so the offset matters.
struct Item {
  int id;
  void *link;
};
constexpr uint64_t kLinkOffset = offsetof(Item, link);

int idOf(const void *element) { return static_cast<const Item *>(element)->id; }

// Walks the list, checks every invariant of the record and returns the ids
// in list order.
std::vector<int> checkedIds(const GslulsList &list) {
  std::vector<int> ids;
  const void *last = nullptr;
  bool cursor_seen = false;
  for (const void *e = list.head; e != nullptr; e = static_cast<const Item *>(e)->link) {
    ids.push_back(idOf(e));
    if (ids.size() == list.cursor) cursor_seen = (e == list.current);
    last = e;
  }
  EXPECT_EQ(ids.size(), list.count);
  EXPECT_EQ(list.tail, last);
  if (list.count == 0) {
    EXPECT_EQ(list.current, nullptr);
    EXPECT_EQ(list.cursor, 0u);
  } else {
    EXPECT_TRUE(cursor_seen) << "cursor " << list.cursor << " does not name current";
  }
  return ids;
}

class ListTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(gslulscsCreateSList(nullptr, kLinkOffset, &list_), GSLULS_OK); }
  void TearDown() override { EXPECT_EQ(gslulsdDestroySList(nullptr, list_, nullptr), GSLULS_OK); }

  // Empties the list and refills it with items 1..n, cursor on position cursor.
  void refill(uint32_t n, uint32_t cursor) {
    ASSERT_EQ(gslulsrRemoveAll(nullptr, list_), GSLULS_OK);
    for (uint32_t i = 0; i < n; ++i) ASSERT_EQ(gslulsaAddElement(nullptr, list_, &items_[i]), 0);
    void *e = nullptr;
    if (cursor != 0) {
      ASSERT_EQ(gslulsgeGetElementAt(nullptr, list_, cursor, 1, &e), GSLULS_OK);
    }
  }

  GslulsList *list_ = nullptr;
  std::array<Item, 6> items_{{{1, {}}, {2, {}}, {3, {}}, {4, {}}, {5, {}}, {6, {}}}};
};

const std::vector<int> kFour{1, 2, 3, 4};

// Insert, remove and replace at every position, from every cursor position.
TEST_F(ListTest, EveryPositionFromEveryCursor) {
  for (uint32_t cursor = 1; cursor <= 4; ++cursor) {
    for (uint32_t pos = 1; pos <= 5; ++pos) {
      SCOPED_TRACE(testing::Message() << "cursor " << cursor << " position " << pos);
      refill(4, cursor);
      ASSERT_EQ(gslulsatAddElementAt(nullptr, list_, &items_[4], pos), GSLULS_OK);
      std::vector<int> want = kFour;
      want.insert(want.begin() + (pos - 1), 5);
      EXPECT_EQ(checkedIds(*list_), want);
      EXPECT_EQ(list_->cursor, pos);  // the new element
      EXPECT_EQ(list_->current, &items_[4]);
      if (pos == 5) continue;
      refill(4, cursor);
      ASSERT_EQ(gslulsrepReplaceElementAt(nullptr, list_, pos, &items_[4]), GSLULS_OK);
      want = kFour;
      want[pos - 1] = 5;
      EXPECT_EQ(checkedIds(*list_), want);
      EXPECT_EQ(items_[pos - 1].link, nullptr);
      EXPECT_EQ(list_->cursor, pos);  // the replacement
      EXPECT_EQ(list_->current, &items_[4]);
      refill(4, cursor);
      void *removed = nullptr;
      ASSERT_EQ(gslulsreRemoveElementAt(nullptr, list_, pos, &removed), GSLULS_OK);
      EXPECT_EQ(removed, &items_[pos - 1]);
      EXPECT_EQ(items_[pos - 1].link, nullptr);
      want = kFour;
      want.erase(want.begin() + (pos - 1));
      EXPECT_EQ(checkedIds(*list_), want);
      // The elements behind the removed one move up; a cursor on the last
      // position stays on the (new) last one.
      EXPECT_EQ(list_->cursor, std::min(cursor, 3u));
      EXPECT_EQ(idOf(list_->current), want[std::min(cursor, 3u) - 1]);
    }
  }
}

TEST_F(ListTest, GetAtEveryPositionMovesCursorOnlyWhenAsked) {
  for (uint32_t move : {0u, 1u}) {
    refill(4, 2);
    for (uint32_t pos : {3u, 1u, 4u, 2u, 3u}) {
      void *e = nullptr;
      ASSERT_EQ(gslulsgeGetElementAt(nullptr, list_, pos, move, &e), GSLULS_OK);
      EXPECT_EQ(e, &items_[pos - 1]) << "move " << move;
      EXPECT_EQ(list_->cursor, move != 0 ? pos : 2u);
    }
  }
}

// Each failing call leaves the list as it was. Rows: expected status, number
// of elements before the call, the call (list, a free spare element).
using L = GslulsList *;
using I = Item *;
struct StatusCase {
  int expected;
  uint32_t fill;
  int (*call)(L list, I spare);
};
void *g_out;
const StatusCase kStatusCases[] = {
    {GSLULS_OUT_OF_RANGE, 2, [](L l, I s) { return gslulsatAddElementAt(nullptr, l, s, 4); }},
    {GSLULS_ALREADY_LINKED, 2, [](L l, I) { return gslulsaAddElement(nullptr, l, l->head); }},
    {GSLULS_NULL_ARG, 2, [](L l, I) { return gslulsaAddElement(nullptr, l, nullptr); }},
    {GSLULS_EMPTY, 0, [](L l, I) { return gslulsgeGetElementAt(nullptr, l, 1, 1, &g_out); }},
    {GSLULS_OUT_OF_RANGE, 2, [](L l, I) { return gslulsgeGetElementAt(nullptr, l, 0, 1, &g_out); }},
    {GSLULS_NULL_ARG, 2, [](L l, I) { return gslulsgeGetElementAt(nullptr, l, 1, 1, nullptr); }},
    {GSLULS_EMPTY, 0, [](L l, I) { return gslulsreRemoveElementAt(nullptr, l, 1, nullptr); }},
    {GSLULS_OUT_OF_RANGE, 2, [](L l, I) { return gslulsreRemoveElementAt(nullptr, l, 3, {}); }},
    {GSLULS_NULL_ARG, 2, [](L l, I) { return gslulssSize(nullptr, l, nullptr); }},
    {GSLULS_EMPTY, 0, [](L l, I) { return gslulsceCurrentElement(nullptr, l, &g_out); }},
    {GSLULS_EMPTY, 0, [](L l, I) { return gslulsneNextElement(nullptr, l, &g_out); }},
    {GSLULS_EMPTY, 0, [](L l, I) { return gslulsglGetLastElement(nullptr, l, &g_out); }},
    {GSLULS_EMPTY, 0, [](L l, I s) { return gslulsrepReplaceElementAt(nullptr, l, 1, s); }},
    {GSLULS_OUT_OF_RANGE, 2, [](L l, I s) { return gslulsrepReplaceElementAt(nullptr, l, 3, s); }},
    {GSLULS_ALREADY_LINKED, 2, [](L l, I) { return gslulsrepReplaceElementAt({}, l, 2, l->head); }},
    {GSLULS_NO_CALLBACK, 2, [](L l, I) { return gslulsiIterate(nullptr, l, nullptr, 1); }},
    {GSLULS_NULL_ARG, 0, [](L, I) { return gslulscsCreateSList(nullptr, 0, nullptr); }},
};

TEST_F(ListTest, StatusCodesLeaveTheListUnchanged) {
  for (const StatusCase &c : kStatusCases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - kStatusCases));
    refill(c.fill, c.fill);
    const std::vector<int> before = checkedIds(*list_);
    const uint32_t cursor = list_->cursor;
    EXPECT_EQ(c.call(list_, &items_[5]), c.expected);
    EXPECT_EQ(checkedIds(*list_), before);
    EXPECT_EQ(list_->cursor, cursor);
  }
}

TEST_F(ListTest, PrependAppendAndNextKeepTheCursorRules) {
  void *e = nullptr;
  ASSERT_EQ(gslulspPrepend(nullptr, list_, &items_[1]), GSLULS_OK);  // empty: becomes cursor
  ASSERT_EQ(gslulspPrepend(nullptr, list_, &items_[0]), GSLULS_OK);
  ASSERT_EQ(gslulsapAppend(nullptr, list_, &items_[2]), GSLULS_OK);
  EXPECT_EQ(checkedIds(*list_), (std::vector<int>{1, 2, 3}));
  ASSERT_EQ(gslulsceCurrentElement(nullptr, list_, &e), GSLULS_OK);
  EXPECT_EQ(e, &items_[1]);
  ASSERT_EQ(gslulsneNextElement(nullptr, list_, &e), GSLULS_OK);
  ASSERT_EQ(gslulsneNextElement(nullptr, list_, &e), GSLULS_OK);  // at the end: null, stays
  EXPECT_EQ(e, nullptr);
  EXPECT_EQ(list_->current, &items_[2]);
  ASSERT_EQ(gslulsgeGetElementAt(nullptr, list_, 1, 1, &e), GSLULS_OK);
  ASSERT_EQ(gslulsglGetLastElement(nullptr, list_, &e), GSLULS_OK);
  EXPECT_EQ(e, &items_[2]);
  EXPECT_EQ(checkedIds(*list_).size(), list_->cursor);
  ASSERT_EQ(gslulsrRemoveAll(nullptr, list_), GSLULS_OK);
  for (const Item &item : items_) EXPECT_EQ(item.link, nullptr);
  ASSERT_EQ(gslulsapAppend(nullptr, list_, &items_[3]), GSLULS_OK);  // empty: becomes cursor
  EXPECT_EQ(checkedIds(*list_), (std::vector<int>{4}));
  ASSERT_EQ(gslulsreRemoveElementAt(nullptr, list_, 1, nullptr), GSLULS_OK);
  EXPECT_TRUE(checkedIds(*list_).empty());
}

std::vector<int> g_visited;
int visit(gsluctx *, void *element) {
  g_visited.push_back(idOf(element));
  return idOf(element) >= 2 ? idOf(element) : 0;
}

TEST_F(ListTest, IterateStopsAtFirstNonZeroUnlessKeepGoing) {
  refill(3, 1);
  EXPECT_EQ(gslulsiIterate(nullptr, list_, visit, 0), 2);
  EXPECT_EQ(gslulsiIterate(nullptr, list_, visit, 1), 3);
  EXPECT_EQ(g_visited, (std::vector<int>{1, 2, 1, 2, 3}));
  refill(0, 0);
  EXPECT_EQ(gslulsiIterate(nullptr, list_, visit, 1), GSLULS_OK);
}

TEST(ListCreation, CreationWithFailedAllocationReturnsZeroAndNullList) {
  qtest::TestAllocator::Scope allocator;
  qtest::TestAllocator::budget = 0;
  GslulsList sentinel{};
  GslulsList *list = &sentinel;
  EXPECT_EQ(gslulscsCreateSList(nullptr, kLinkOffset, &list), GSLULS_OK);
  EXPECT_EQ(list, nullptr);
}

std::vector<std::pair<gsluctx *, int>> g_released;
int release(gsluctx *ctx, void *element) {
  g_released.emplace_back(ctx, idOf(element));
  return 1;  // ignored
}

TEST(ListDestruction, DestroyHandsElementsFirstToLastWithTheCallersContext) {
  gsluctx *real = gsluizgcGetContext();
  ASSERT_NE(real, nullptr);
  for (gsluctx *given : {static_cast<gsluctx *>(nullptr), real}) {
    std::array<Item, 3> items{{{1, nullptr}, {2, nullptr}, {3, nullptr}}};
    GslulsList *list = nullptr;
    ASSERT_EQ(gslulscsCreateSList(given, kLinkOffset, &list), GSLULS_OK);
    for (Item &item : items) ASSERT_EQ(gslulsaAddElement(given, list, &item), GSLULS_OK);
    g_released.clear();
    ASSERT_EQ(gslulsdDestroySList(given, list, release), GSLULS_OK);
    // A null context reaches the callback unresolved.
    EXPECT_EQ(g_released, (decltype(g_released){{given, 1}, {given, 2}, {given, 3}}));
    for (const Item &item : items) EXPECT_EQ(item.link, nullptr);
  }
}

}  // namespace
