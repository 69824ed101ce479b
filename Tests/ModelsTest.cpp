#include <gtest/gtest.h>
#include "WakelatchCore/Models.h"
TEST(Models, DefaultsOfAnEmptyObject) {
  EXPECT_EQ(wakelatch::decode<wakelatch::GuardSettings>("{}"), wakelatch::GuardSettings());
}
