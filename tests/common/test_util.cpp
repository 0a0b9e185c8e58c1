#include "common/test_util.h"

#include <shlobj.h>
#include <wincrypt.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "vfc/unique_resource.h"

namespace vn_test {

std::string ThisProgram()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

std::string ReadWholeFile(const std::string& path)
{
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
}

TChild::TChild(const std::string& commandLine, HANDLE output)
{
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    if (output) {
        si.dwFlags = STARTF_USESTDHANDLES;
        si.hStdOutput = si.hStdError = output;
        si.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    }
    // Under load Wine now and then refuses a start: try a few times.
    for (int attempt = 0; attempt < 5; ++attempt) {
        std::string line = commandLine;
        if (::CreateProcessA(nullptr, &line[0], nullptr, nullptr, output != nullptr, 0, nullptr, nullptr, &si, &m_pi))
            return;
        m_pi = {};
        ::Sleep(200);
    }
}

TChild::~TChild()
{
    if (m_pi.hProcess && ::WaitForSingleObject(m_pi.hProcess, 0) == WAIT_TIMEOUT)
        ::TerminateProcess(m_pi.hProcess, 0xDEAD), ::WaitForSingleObject(m_pi.hProcess, 5000);
    if (m_pi.hProcess)
        ::CloseHandle(m_pi.hProcess), ::CloseHandle(m_pi.hThread);
}

TCapturedChild::TTempOutput::TTempOutput()
{
    char folder[MAX_PATH], name[MAX_PATH];
    ::GetTempPathA(MAX_PATH, folder);
    ::GetTempFileNameA(folder, "vnt", 0, name);
    path = name;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    file = ::CreateFileA(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherit,
                         CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

DWORD RunCapture(const std::string& commandLine, std::string& output, DWORD timeoutMs)
{
    TCapturedChild child(commandLine);  // killed on leaving the scope if still running
    const DWORD code = child.Wait(timeoutMs);
    output = child.Output();
    return code == STILL_ACTIVE ? 0xDEAD : code;
}

DWORD FindProcess(const char* imageName)
{
    const vfc::THandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL ok = ::Process32First(snapshot.get(), &entry); ok; ok = ::Process32Next(snapshot.get(), &entry))
        if (entry.th32ProcessID != ::GetCurrentProcessId() && ::lstrcmpiA(entry.szExeFile, imageName) == 0)
            return entry.th32ProcessID;
    return 0;
}

std::map<DWORD, ULONGLONG> ThreadTimes(DWORD pid)
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

static std::string LogPath()
{
    char base[MAX_PATH] = {};
    ::SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, base);
    return std::string(base) + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.log";
}

std::string LogSince(size_t offset)
{
    const std::string all = ReadWholeFile(LogPath());
    return all.substr(std::min(offset, all.size()));
}

int Count(const std::string& text, const std::string& part)
{
    int count = 0;
    for (size_t pos = text.find(part); pos != std::string::npos; pos = text.find(part, pos + part.size()))
        ++count;
    return count;
}

std::map<std::string, std::string> ReadyLine(const char* variable)
{
    std::map<std::string, std::string> words;
    const char* line = std::getenv(variable);
    std::istringstream in(line ? line : "");
    for (std::string word; in >> word;)
        if (word.find('=') != std::string::npos)
            words[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return words;
}

std::string Sha256(const std::string& bytes)
{
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
    BYTE digest[32];
    DWORD size = sizeof digest;
    std::string hex;
    if (CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT) && CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash) &&
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

std::string RegText(HKEY root, const std::string& key, const char* value)
{
    char buffer[1024] = {};
    DWORD size = sizeof buffer;
    return ::RegGetValueA(root, key.c_str(), value, RRF_RT_REG_SZ, nullptr, buffer, &size) ? "<missing>" : buffer;
}

bool RegKeyExists(HKEY root, const std::string& key)
{
    HKEY handle = nullptr;
    return ::RegOpenKeyExA(root, key.c_str(), 0, KEY_READ, &handle) == ERROR_SUCCESS && ::RegCloseKey(handle) == 0;
}

}  // namespace vn_test
