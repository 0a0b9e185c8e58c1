// Test entry for every test program: GoogleTest plus a watchdog, so that a
// hang under Wine ends the program with a clear line instead of eating CI time.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <thread>

#include "host/module.h"

int main(int argc, char** argv)
{
    // The module exists before any object, as in the product.
    Module();
    testing::InitGoogleTest(&argc, argv);
    std::thread([] {
        ::Sleep(300000);
        std::fputs("\nWATCHDOG: test program still running after 300000 ms, aborting\n", stderr);
        ::TerminateProcess(::GetCurrentProcess(), 3);
    }).detach();
    return RUN_ALL_TESTS();
}
