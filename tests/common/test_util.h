// Small helpers shared by the test programs.
#pragma once

#include <windows.h>
#include <shlobj.h>
#include <tlhelp32.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "vfc/unique_resource.h"

namespace vn_test {

// The running test program, which runs itself as a child where a test needs that; its folder (the product's exe is
// built beside it); and a whole file (empty when it can't be read).
inline std::string ThisProgram()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}
inline std::string BinDir() { return ThisProgram().substr(0, ThisProgram().rfind('\\')); }
inline std::string ReadWholeFile(const std::string& path)
{
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
}

// A child process, killed if the test forgets it. With `capture`, its stdout and stderr go to a temporary file that can
// be read while it runs, removed at the end.
class TChild {
public:
    explicit TChild(const std::string& commandLine, bool capture = false)
    {
        STARTUPINFOA si = {};
        si.cb = sizeof si;
        if (capture) {
            char folder[MAX_PATH], name[MAX_PATH];
            ::GetTempPathA(MAX_PATH, folder);
            ::GetTempFileNameA(folder, "vnt", 0, name);
            SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
            m_output.reset(::CreateFileA((m_path = name).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         &inherit, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
            si.dwFlags = STARTF_USESTDHANDLES;
            si.hStdOutput = si.hStdError = m_output.get();
            si.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
        }
        // Under load Wine now and then refuses a start: try a few times.
        for (int attempt = 0; attempt < 5; ++attempt) {
            std::string line = commandLine;
            if (::CreateProcessA(nullptr, &line[0], nullptr, nullptr, capture, 0, nullptr, nullptr, &si, &m_pi))
                return;
            m_pi = {};
            ::Sleep(200);
        }
    }
    ~TChild()
    {
        if (m_pi.hProcess && ::WaitForSingleObject(m_pi.hProcess, 0) == WAIT_TIMEOUT)
            ::TerminateProcess(m_pi.hProcess, 0xDEAD), ::WaitForSingleObject(m_pi.hProcess, 5000);
        if (m_pi.hProcess)
            ::CloseHandle(m_pi.hProcess), ::CloseHandle(m_pi.hThread);
        m_output.reset();
        if (!m_path.empty())
            ::DeleteFileA(m_path.c_str());
    }
    TChild(const TChild&) = delete;
    TChild& operator=(const TChild&) = delete;
    bool started() const { return m_pi.hProcess != nullptr; }
    bool Running() const { return started() && ::WaitForSingleObject(m_pi.hProcess, 0) == WAIT_TIMEOUT; }
    DWORD pid() const { return m_pi.dwProcessId; }
    HANDLE handle() const { return m_pi.hProcess; }
    std::string Output() const { return ReadWholeFile(m_path); }
    // Exit code after waiting up to `timeoutMs`; STILL_ACTIVE if it did not end.
    DWORD Wait(DWORD timeoutMs)
    {
        DWORD code = ~0u;
        const bool ended = m_pi.hProcess && ::WaitForSingleObject(m_pi.hProcess, timeoutMs) != WAIT_FAILED;
        return ended && ::GetExitCodeProcess(m_pi.hProcess, &code) ? code : ~0u;
    }

private:
    PROCESS_INFORMATION m_pi = {};
    std::string m_path;
    vfc::THandle m_output;
};

// Runs a command line for up to `timeoutMs` and gives its exit code (0xDEAD
// if it had to be killed, ~0u if it could not start), and what it printed.
inline DWORD RunCapture(const std::string& commandLine, std::string& output, DWORD timeoutMs = 60000)
{
    TChild child(commandLine, true);  // killed on leaving the scope if still running
    const DWORD code = child.Wait(timeoutMs);
    output = child.Output();
    return code == STILL_ACTIVE ? 0xDEAD : code;
}
inline DWORD RunAndWait(const std::string& commandLine, DWORD timeoutMs = 60000)
{
    std::string ignored;
    return RunCapture(commandLine, ignored, timeoutMs);
}

// Polls `pred` every 20 ms until it holds or `timeoutMs` passed.
template <typename Pred>
bool WaitUntil(Pred pred, DWORD timeoutMs)
{
    for (const DWORD start = ::GetTickCount(); !pred(); ::Sleep(20))
        if (::GetTickCount() - start > timeoutMs)
            return false;
    return true;
}

// Id of a process with exactly this image name other than this one, or 0; the CPU time of each thread of a process,
// in ms (GetProcessTimes answers 0 for another process under Wine; the threads' own times are real).
inline DWORD FindProcess(const char* imageName)
{
    const vfc::THandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL ok = ::Process32First(snapshot.get(), &entry); ok; ok = ::Process32Next(snapshot.get(), &entry))
        if (entry.th32ProcessID != ::GetCurrentProcessId() && ::lstrcmpiA(entry.szExeFile, imageName) == 0)
            return entry.th32ProcessID;
    return 0;
}
inline std::map<DWORD, ULONGLONG> ThreadTimes(DWORD pid)
{
    auto ms = [](const FILETIME& time) { return (ULONGLONG(time.dwHighDateTime) << 32 | time.dwLowDateTime) / 10000; };
    std::map<DWORD, ULONGLONG> times;
    const vfc::THandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL ok = ::Thread32First(snapshot.get(), &entry); ok; ok = ::Thread32Next(snapshot.get(), &entry)) {
        const vfc::THandle thread(
            entry.th32OwnerProcessID == pid ? ::OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ThreadID) : nullptr);
        FILETIME created, ended, kernel, user;
        if (thread && ::GetThreadTimes(thread.get(), &created, &ended, &kernel, &user))
            times[entry.th32ThreadID] = ms(kernel) + ms(user);
    }
    return times;
}

// How often `part` stands in `text`, the places not overlapping.
inline int Count(const std::string& text, const std::string& part)
{
    int count = 0;
    for (size_t pos = text.find(part); pos != std::string::npos; pos = text.find(part, pos + part.size()))
        ++count;
    return count;
}

// Size of the product's log in this prefix, what came since `offset`, and how often `text` is in that.
inline std::string LogSince(size_t offset)
{
    char base[MAX_PATH] = {};
    ::SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, base);
    const std::string all = ReadWholeFile(std::string(base) + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.log");
    return all.substr(std::min(offset, all.size()));
}
inline size_t LogSize() { return LogSince(0).size(); }
inline int CountLogLinesSince(size_t offset, const std::string& text) { return Count(LogSince(offset), text); }

// The key=value words of a READY line in an environment variable.
inline std::map<std::string, std::string> ReadyLine(const char* variable)
{
    std::map<std::string, std::string> words;
    const char* line = std::getenv(variable);
    std::istringstream in(line ? line : "");
    for (std::string word; in >> word;)
        if (word.find('=') != std::string::npos)
            words[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return words;
}

// Lower-case hex SHA-256 of the bytes.
inline std::string Sha256(const std::string& bytes)
{
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
    BYTE digest[32];
    DWORD size = sizeof digest;
    std::string hex;
    if (CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT) &&
        CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash) &&
        CryptHashData(hash, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()), 0) &&
        CryptGetHashParam(hash, HP_HASHVAL, digest, &size, 0))
        for (DWORD i = 0; i < size; ++i)
            hex += {"0123456789abcdef"[digest[i] >> 4], "0123456789abcdef"[digest[i] & 15]};
    if (hash)
        CryptDestroyHash(hash);
    if (provider)
        CryptReleaseContext(provider, 0);
    return hex;
}

// Text of a registry value (REG_SZ), or "<missing>".
inline std::string RegText(HKEY root, const std::string& key, const char* value)
{
    char buffer[1024] = {};
    DWORD size = sizeof buffer;
    return ::RegGetValueA(root, key.c_str(), value, RRF_RT_REG_SZ, nullptr, buffer, &size) ? "<missing>" : buffer;
}
inline bool RegKeyExists(HKEY root, const std::string& key)
{
    HKEY handle = nullptr;
    return ::RegOpenKeyExA(root, key.c_str(), 0, KEY_READ, &handle) == ERROR_SUCCESS && ::RegCloseKey(handle) == 0;
}

}  // namespace vn_test
