// Entry point of every test binary: the runtime is brought up first, so the
// tests run on our own heap exactly as the tool does.
#include <gtest/gtest.h>

#include "core/Core.h"

int main(int argc, char** argv) {
    coreInit();
    testing::InitGoogleTest(&argc, argv);
    int status = RUN_ALL_TESTS();
    coreShutdown();
    return status;
}
