#include <gtest/gtest.h>

#include "base/state.hpp"

TEST(State, BufferHasSlackBeyondReadSize) {
  kolv::Run run;
  EXPECT_EQ(run.rb.read_size, 131072);
  EXPECT_EQ(kolv::kInbuffSize - kolv::kReadSize, 4096);
}
