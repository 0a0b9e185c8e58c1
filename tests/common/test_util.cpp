#include "common/test_util.h"

#include <fstream>
#include <sstream>

namespace vn_test {

std::string BinDir()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir = path;
    return dir.substr(0, dir.find_last_of('\\'));
}

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

TChild::TChild(const std::string& commandLine)
{
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    std::string line = commandLine;
    if (!::CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &m_pi))
        m_pi = {};
}

TChild::~TChild()
{
    if (!m_pi.hProcess)
        return;
    if (::WaitForSingleObject(m_pi.hProcess, 0) == WAIT_TIMEOUT) {
        ::TerminateProcess(m_pi.hProcess, 0xDEAD);
        ::WaitForSingleObject(m_pi.hProcess, 5000);
    }
    ::CloseHandle(m_pi.hProcess);
    ::CloseHandle(m_pi.hThread);
}

DWORD TChild::Wait(DWORD timeoutMs)
{
    if (!m_pi.hProcess)
        return ~0u;
    ::WaitForSingleObject(m_pi.hProcess, timeoutMs);
    DWORD code = ~0u;
    ::GetExitCodeProcess(m_pi.hProcess, &code);
    return code;
}

DWORD RunAndWait(const std::string& commandLine, DWORD timeoutMs)
{
    TChild child(commandLine);
    if (!child.started())
        return ~0u;
    DWORD code = child.Wait(timeoutMs);
    if (code == STILL_ACTIVE) {
        ::TerminateProcess(child.handle(), 0xDEAD);
        return 0xDEAD;
    }
    return code;
}

}  // namespace vn_test
