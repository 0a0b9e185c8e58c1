// Helpers of the web tests: bodies whose every byte says where it belongs,
// the bytes of an IVnStream array, and a client process to kill.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/test_util.h"
#include "vfc/unique_resource.h"

namespace vn_web_test {

// A body in which no 4096-byte stretch repeats another, so that a lost,
// doubled or swapped chunk changes the bytes.
inline std::vector<BYTE> Pattern(size_t size, unsigned seed = 1)
{
    std::vector<BYTE> bytes(size);
    unsigned state = seed * 2654435761u + 12345u;
    for (size_t i = 0; i < size; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes[i] = static_cast<BYTE>(state >> 11);
    }
    return bytes;
}

inline std::vector<BYTE> Bytes(const std::string& text) { return std::vector<BYTE>(text.begin(), text.end()); }

// The bytes of an array as a read hands it out: one dimension of unsigned
// bytes from index 0. A failure is reported at the caller's line.
inline std::vector<BYTE> ArrayBytes(SAFEARRAY* array)
{
    std::vector<BYTE> bytes;
    if (!array) {
        ADD_FAILURE() << "no array";
        return bytes;
    }
    VARTYPE vt = VT_EMPTY;
    ::SafeArrayGetVartype(array, &vt);
    LONG lower = -1;
    LONG upper = -2;
    ::SafeArrayGetLBound(array, 1, &lower);
    ::SafeArrayGetUBound(array, 1, &upper);
    EXPECT_EQ(VT_UI1, vt);
    EXPECT_EQ(1u, ::SafeArrayGetDim(array));
    EXPECT_EQ(0, lower);
    void* data = nullptr;
    if (FAILED(::SafeArrayAccessData(array, &data))) {
        ADD_FAILURE() << "SafeArrayAccessData";
        return bytes;
    }
    const BYTE* p = static_cast<const BYTE*>(data);
    bytes.assign(p, p + (upper - lower + 1));
    ::SafeArrayUnaccessData(array);
    return bytes;
}

inline std::string ArrayText(SAFEARRAY* array)
{
    std::vector<BYTE> bytes = ArrayBytes(array);
    return std::string(bytes.begin(), bytes.end());
}

// A client's byte array of the given bytes.
inline SAFEARRAY* MakeArray(const std::vector<BYTE>& bytes)
{
    SAFEARRAY* array = ::SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    void* data = nullptr;
    if (array && SUCCEEDED(::SafeArrayAccessData(array, &data))) {
        if (!bytes.empty())
            std::memcpy(data, bytes.data(), bytes.size());
        ::SafeArrayUnaccessData(array);
    }
    return array;
}

// A client process: this test program once more, running nothing but the
// disabled test ClientProcess.DISABLED_SleepsUntilKilled, with its output
// thrown away. The test kills it to play the death of a client.
class TClientProcess {
public:
    TClientProcess()
    {
        char exe[MAX_PATH] = {};
        ::GetModuleFileNameA(nullptr, exe, MAX_PATH);
        std::string line = std::string("\"") + exe +
                           "\" --gtest_also_run_disabled_tests --gtest_filter=ClientProcess.DISABLED_SleepsUntilKilled";
        SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
        m_nul.reset(::CreateFileA("NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa,
                                  OPEN_EXISTING, 0, nullptr));
        STARTUPINFOA si = {};
        si.cb = sizeof si;
        si.dwFlags = STARTF_USESTDHANDLES;
        si.hStdInput = si.hStdOutput = si.hStdError = m_nul.get();
        // Under load Wine now and then refuses a start: try a few times.
        for (int attempt = 0; attempt < 5 && !m_process; ++attempt) {
            PROCESS_INFORMATION pi = {};
            std::string command = line;
            if (::CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi)) {
                m_process.reset(pi.hProcess);
                vfc::THandle thread(pi.hThread);
                m_pid = pi.dwProcessId;
            } else {
                m_error = ::GetLastError();
                ::Sleep(200);
            }
        }
    }
    // The last error of a start that failed.
    DWORD error() const { return m_error; }
    ~TClientProcess() { Kill(); }
    TClientProcess(const TClientProcess&) = delete;
    TClientProcess& operator=(const TClientProcess&) = delete;

    bool started() const { return m_process.valid(); }
    DWORD pid() const { return m_pid; }
    // Ends the process and waits until it has ended.
    void Kill()
    {
        if (m_process && ::WaitForSingleObject(m_process.get(), 0) == WAIT_TIMEOUT) {
            ::TerminateProcess(m_process.get(), 0xDEAD);
            ::WaitForSingleObject(m_process.get(), 10000);
        }
    }

private:
    vfc::THandle m_nul;
    vfc::THandle m_process;
    DWORD m_pid = 0;
    DWORD m_error = 0;
};

}  // namespace vn_web_test
