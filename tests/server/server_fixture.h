// The real server's exe, a client's root object in it, and its process.
#pragma once

#include <windows.h>

#include <string>

#include "common/test_util.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/unique_resource.h"
#include "vnlinkhost.h"

namespace vn_test {

inline std::string ServerExe() { return BinDir() + "\\VnLinkhost.exe"; }
inline std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

inline DWORD RunServer(const std::string& arguments, DWORD timeoutMs = 60000)
{
    return RunAndWait(Quoted(ServerExe()) + " " + arguments, timeoutMs);
}

// A handle on the running server process, found by its image name.
class TServerProcess {
public:
    TServerProcess()
        : m_pid(FindProcess("VnLinkhost.exe")), m_handle(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, m_pid)) {}
    DWORD pid() const { return m_pid; }
    bool alive() const { return !WaitGone(0); }
    bool WaitGone(DWORD ms) const { return !m_handle || ::WaitForSingleObject(m_handle.get(), ms) == WAIT_OBJECT_0; }
    DWORD ExitCode() const { return ::GetExitCodeProcess(m_handle.get(), &m_code) ? m_code : ~0u; }

private:
    DWORD m_pid;
    vfc::THandle m_handle;
    mutable DWORD m_code = 0;
};

inline vfc::TComPtr<IVnLinkhost> CreateRoot(HRESULT* status = nullptr)
{
    vfc::TComPtr<IVnLinkhost> host;
    HRESULT hr = ::CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost, host.put_void());
    if (status)
        *status = hr;
    return host;
}

// Tells the server to end with its last client, releases it and waits for the process to go.
inline bool ShutDownServer(vfc::TComPtr<IVnLinkhost>& host, DWORD ms = 10000)
{
    TServerProcess server;
    VARIANT_BOOL inUse = VARIANT_FALSE;
    if (!host || FAILED(host->CheckShutdown(&inUse)))
        return false;
    host.reset();
    return server.WaitGone(ms);
}

}  // namespace vn_test
