// main() of every test program: it is either the run of its tests or one of its own children.

#include <gtest/gtest.h>

#include "ChildProcess.h"

int main(int argc, char** argv) {
  int exitCode = 0;
  if (Kelvik::RunAsChild(argc, argv, &exitCode)) {
    return exitCode;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
