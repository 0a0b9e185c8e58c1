// Test entry for every test program: GoogleTest plus a watchdog, so that a
// hang under Wine ends the program with a clear line instead of eating CI time.
#include <gtest/gtest.h>

#include <windows.h>

#include "host/module.h"

#include <cstdio>
#include <cstdlib>

namespace {

DWORD WINAPI Watchdog(LPVOID param)
{
    const DWORD ms = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(param));
    Sleep(ms);
    std::fprintf(stderr, "\nWATCHDOG: test program still running after %lu ms, aborting\n",
                 static_cast<unsigned long>(ms));
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 3);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    // The module exists before any object, as in the product.
    Module();
    testing::InitGoogleTest(&argc, argv);
    DWORD limit = 300000;
    if (const char* env = std::getenv("VN_TEST_WATCHDOG_MS"))
        limit = static_cast<DWORD>(std::strtoul(env, nullptr, 10));
    HANDLE thread = CreateThread(nullptr, 0, Watchdog,
                                 reinterpret_cast<LPVOID>(static_cast<ULONG_PTR>(limit)), 0, nullptr);
    if (thread)
        CloseHandle(thread);
    return RUN_ALL_TESTS();
}
