// Helpers of the web tests: bodies whose every byte says where it belongs,
// byte arrays as clients hand them in and get them back, and a client process
// that a test kills.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <cstring>
#include <string>

#include "common/test_util.h"

namespace vn_web_test {

// No 4096-byte stretch repeats another, so a lost, doubled or swapped chunk shows.
inline std::string Pattern(size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    unsigned state = seed * 2654435761u + 12345u;
    for (char& b : bytes) {
        state ^= state << 13, state ^= state >> 17, state ^= state << 5;
        b = static_cast<char>(state >> 11);
    }
    return bytes;
}

inline SAFEARRAY* MakeArray(const std::string& bytes)
{
    SAFEARRAY* array = ::SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    if (array && !bytes.empty())
        std::memcpy(array->pvData, bytes.data(), bytes.size());
    return array;
}

// The bytes of an array as a read hands it out: one dimension of bytes from index 0.
inline std::string ArrayText(SAFEARRAY* array)
{
    VARTYPE vt = VT_EMPTY;
    LONG lower = -1, upper = -2;
    if (!array || FAILED(::SafeArrayGetVartype(array, &vt)) || vt != VT_UI1 || ::SafeArrayGetDim(array) != 1 ||
        FAILED(::SafeArrayGetLBound(array, 1, &lower)) || lower != 0 || FAILED(::SafeArrayGetUBound(array, 1, &upper)))
        return "<no byte array>";
    return std::string(static_cast<const char*>(array->pvData), static_cast<size_t>(upper + 1));
}

// This test program once more, running only ClientProcess.DISABLED_SleepsUntilKilled:
// a client whose death the test brings about.
class TClient : public vn_test::TChild {
public:
    TClient() : TChild(CommandLine()) {}
    void Kill()
    {
        ::TerminateProcess(handle(), 0xDEAD);
        Wait(10000);
    }

private:
    static std::string CommandLine()
    {
        char exe[MAX_PATH] = {};
        ::GetModuleFileNameA(nullptr, exe, MAX_PATH);
        return "\"" + std::string(exe) + "\" --gtest_also_run_disabled_tests "
                                         "--gtest_filter=ClientProcess.DISABLED_SleepsUntilKilled";
    }
};

}  // namespace vn_web_test
