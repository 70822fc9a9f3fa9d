// Tests of util/stack.h: LIFO order, the empty status that differs from the
// list's, the push that never fails and bottom-first destruction.
#include "util/stack.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <vector>

namespace {

struct Frame {
  int state;
  void *next;
};

std::vector<int> g_released;
int releaseFrame(gsluctx *, void *element) {
  g_released.push_back(static_cast<Frame *>(element)->state);
  return 0;
}

class StackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(gslulstcCreateStack(nullptr, offsetof(Frame, next), &stack_), GSLULS_OK);
  }
  void TearDown() override {
    if (stack_ != nullptr) {
      EXPECT_EQ(gsluldstDestroyStack(nullptr, stack_, nullptr), GSLULS_OK);
    }
  }
  uint32_t size() {
    uint32_t n = 99;
    return gslulstsSize(nullptr, stack_, &n) == GSLULS_OK ? n : 99;
  }

  GslulsList *stack_ = nullptr;
  std::array<Frame, 3> frames_{{{1, nullptr}, {2, nullptr}, {3, nullptr}}};
};

TEST_F(StackTest, PopsInReverseOrderOfPushes) {
  for (Frame &f : frames_) EXPECT_EQ(gslulstpuPush(nullptr, stack_, &f), GSLULST_OK);
  void *top = nullptr;
  ASSERT_EQ(gslulsttTop(nullptr, stack_, &top), GSLULS_OK);
  EXPECT_EQ(top, &frames_[2]);
  EXPECT_EQ(size(), 3u);  // top does not take the element off
  for (int want = 3; want >= 1; --want) {
    void *popped = nullptr;
    ASSERT_EQ(gslulstpoPop(nullptr, stack_, &popped), GSLULS_OK);
    EXPECT_EQ(static_cast<Frame *>(popped)->state, want);
    EXPECT_EQ(static_cast<Frame *>(popped)->next, nullptr);  // free to be pushed again
  }
  EXPECT_EQ(size(), 0u);
}

TEST_F(StackTest, EmptyStackGivesFiveWhereListLastElementGivesFour) {
  Frame sentinel{};
  void *out = &sentinel;
  EXPECT_EQ(gslulstpoPop(nullptr, stack_, &out), GSLULST_EMPTY);
  EXPECT_EQ(gslulsttTop(nullptr, stack_, &out), GSLULST_EMPTY);
  EXPECT_EQ(out, &sentinel);
  EXPECT_EQ(gslulsglGetLastElement(nullptr, stack_, &out), GSLULS_EMPTY);
  EXPECT_EQ(gslulstpoPop(nullptr, nullptr, &out), GSLULS_NULL_ARG);
  EXPECT_EQ(gslulsttTop(nullptr, nullptr, &out), GSLULS_NULL_ARG);
  ASSERT_EQ(gslulstpuPush(nullptr, stack_, &frames_[0]), GSLULST_OK);
  EXPECT_EQ(gslulstpoPop(nullptr, stack_, nullptr), GSLULS_NULL_ARG);
  EXPECT_EQ(size(), 1u);  // nothing was taken off
}

// The failed adds leave the stack as it was, which destruction shows,
// releasing bottom first.
TEST_F(StackTest, PushReportsSuccessEvenWhenTheAddFails) {
  ASSERT_EQ(gslulstpuPush(nullptr, stack_, &frames_[0]), GSLULST_OK);
  ASSERT_EQ(gslulstpuPush(nullptr, stack_, &frames_[1]), GSLULST_OK);
  EXPECT_EQ(gslulstpuPush(nullptr, stack_, &frames_[0]), GSLULST_OK);  // still linked
  EXPECT_EQ(gslulstpuPush(nullptr, stack_, nullptr), GSLULST_OK);
  EXPECT_EQ(gslulstpuPush(nullptr, nullptr, &frames_[2]), GSLULST_OK);
  EXPECT_EQ(frames_[2].next, nullptr);
  g_released.clear();
  ASSERT_EQ(gsluldstDestroyStack(nullptr, stack_, releaseFrame), GSLULS_OK);
  stack_ = nullptr;
  EXPECT_EQ(g_released, (std::vector<int>{1, 2}));
}

}  // namespace
