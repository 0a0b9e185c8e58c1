// Test entry for every test program: GoogleTest plus a watchdog, so that a
// hang under Wine ends the program with a clear line instead of eating CI time.
// A run that is long by design (the soak) sets VN_TEST_WATCHDOG_MS.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "host/module.h"

int main(int argc, char** argv)
{
    // The module exists before any object, as in the product.
    Module();
    testing::InitGoogleTest(&argc, argv);
    const char* limit = std::getenv("VN_TEST_WATCHDOG_MS");
    const unsigned long ms = limit ? std::strtoul(limit, nullptr, 10) : 300000;
    std::thread([ms] {
        ::Sleep(ms);
        std::fprintf(stderr, "\nWATCHDOG: test program still running after %lu ms, aborting\n", ms);
        ::TerminateProcess(::GetCurrentProcess(), 3);
    }).detach();
    return RUN_ALL_TESTS();
}
