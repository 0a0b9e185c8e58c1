// Test entry for every test program: GoogleTest plus a watchdog, so that a
// hang under Wine ends the program with a clear line instead of eating CI time.
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
    const char* env = std::getenv("VN_TEST_WATCHDOG_MS");
    const DWORD limit = env ? std::strtoul(env, nullptr, 10) : 300000;
    std::thread([limit] {
        ::Sleep(limit);
        std::fprintf(stderr, "\nWATCHDOG: test program still running after %lu ms, aborting\n",
                     static_cast<unsigned long>(limit));
        std::fflush(stderr);
        ::TerminateProcess(::GetCurrentProcess(), 3);
    }).detach();
    return RUN_ALL_TESTS();
}
