// Test entry point: the library is started once for the whole run, as an
// application would, so singletons behave as they do in production.
#include <gtest/gtest.h>

#include "qo/core/CQoInit.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  qo::CQoInit init;
  return RUN_ALL_TESTS();
}
