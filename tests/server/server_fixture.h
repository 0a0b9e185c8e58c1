// The real server's exe, a client's root object in it, and its process; the test plug-in (vn_test_plugin.dll beside
// the test programs) put into the plug-in category of the test prefix, and taken out again.
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

inline DWORD RunServer(const std::string& arguments, DWORD timeoutMs = 60000) { return RunAndWait(Quoted(ServerExe()) + " " + arguments, timeoutMs); }

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

inline const std::string kPluginCategoryId = "{566E4C48-60C4-4777-A4B1-D178F6C1AE38}";
inline const std::string kTestPluginKey = "CLSID\\{9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801234}";  // CLSID_VnTestPlugin
inline const std::string kFirstPluginKey = "CLSID\\{9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801233}";  // CLSID_VnTestPluginFirst

inline void RegisterTestPlugin(const std::string& key = kTestPluginKey)
{
    const std::string dll = BinDir() + "\\vn_test_plugin.dll", server = key + "\\InprocServer32",
                      category = key + "\\Implemented Categories\\" + kPluginCategoryId;
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, server.c_str(), nullptr, REG_SZ, dll.c_str(), DWORD(dll.size() + 1));
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, server.c_str(), "ThreadingModel", REG_SZ, "Both", 5);
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, category.c_str(), nullptr, REG_SZ, "", 1);
}
inline void UnregisterTestPlugin(const std::string& key = kTestPluginKey) { ::RegDeleteTreeA(HKEY_CLASSES_ROOT, key.c_str()); }

}  // namespace vn_test
