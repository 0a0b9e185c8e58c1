// The --kill role: stop the service, ask a running server to end, and
// terminate it if it is still there after ten seconds.
#include "host/module.h"

#include <tlhelp32.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/identities.h"
#include "host/log.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "vfc/unique_resource.h"
#include "vnlinkhost.h"

namespace {

constexpr DWORD kKillWaitMs = 10000;
constexpr LONG kStatusInfoLengthMismatch = static_cast<LONG>(0xC0000004);

bool NameMatches(const char* candidate, const char* name)
{
    return std::strlen(candidate) == std::strlen(name) && std::strcmp(candidate, name) == 0;
}

// The native list of old NT versions, which have no toolhelp.
DWORD FindInNativeList(const char* name)
{
    struct UnicodeString {
        USHORT Length;
        USHORT MaximumLength;
        PWSTR Buffer;
    };
    struct ProcessEntry {
        ULONG NextEntryOffset;
        ULONG NumberOfThreads;
        LARGE_INTEGER Reserved[3];
        LARGE_INTEGER CreateTime;
        LARGE_INTEGER UserTime;
        LARGE_INTEGER KernelTime;
        UnicodeString ImageName;
        LONG BasePriority;
        HANDLE UniqueProcessId;
    };
    using QueryFn = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
    HMODULE ntdll = ::GetModuleHandleA("NTDLL.DLL");
    auto query = ntdll ? reinterpret_cast<QueryFn>(::GetProcAddress(ntdll, "ZwQuerySystemInformation")) : nullptr;
    if (!query)
        return 0;
    // The size starts as the very value of the status it is compared with, so the
    // first round runs on no buffer; it doubles while the buffer is too small.
    ULONG size = static_cast<ULONG>(kStatusInfoLengthMismatch);
    std::vector<unsigned char> buffer;
    LONG status;
    for (;;) {
        status = query(5, buffer.empty() ? nullptr : buffer.data(), static_cast<ULONG>(buffer.size()), nullptr);
        if (status != kStatusInfoLengthMismatch)
            break;
        size *= 2;
        try {
            buffer.assign(size ? size : 0x10000, 0);
        } catch (...) {
            buffer.assign(0x10000, 0);
        }
    }
    // As it always did, the walk runs only when the final status is not 0.
    if (status == 0 || buffer.empty())
        return 0;
    const DWORD self = ::GetCurrentProcessId();
    for (size_t offset = 0; offset + sizeof(ProcessEntry) <= buffer.size();) {
        auto* entry = reinterpret_cast<const ProcessEntry*>(buffer.data() + offset);
        std::string image = vfc::Narrow(entry->ImageName.Buffer, entry->ImageName.Length / sizeof(wchar_t));
        DWORD pid = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(entry->UniqueProcessId));
        if (pid != self && NameMatches(image.c_str(), name))
            return pid;
        if (!entry->NextEntryOffset)
            break;
        offset += entry->NextEntryOffset;
    }
    return 0;
}

DWORD FindInToolhelp(const char* name)
{
    vfc::THandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        LogLine(vn_log::kErrorDec, "GetListProcess", "CreateToolhelp32Snapshot failed.", static_cast<int>(::GetLastError()));
        return 0;
    }
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    if (!::Process32First(snapshot.get(), &entry)) {
        LogLine(vn_log::kErrorDec, "GetListProcess", "CreateToolhelp32Snapshot failed.", static_cast<int>(::GetLastError()));
        return 0;
    }
    const DWORD self = ::GetCurrentProcessId();
    do {
        if (entry.th32ProcessID != self && NameMatches(entry.szExeFile, name))
            return entry.th32ProcessID;
    } while (::Process32Next(snapshot.get(), &entry));
    return 0;
}

}  // namespace

DWORD GetListProcess(const char* name)
{
    OSVERSIONINFOEXA version = {};
    version.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXA);
    if (!::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version))) {
        version.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);
        if (!::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version))) {
            LogLine(vn_log::kErrorDec, "GetListProcess", "GetVersionEx failed.", static_cast<int>(::GetLastError()));
            return 0;
        }
    }
    if (version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion < 5)
        return FindInNativeList(name);
    return FindInToolhelp(name);
}

HRESULT CVnLinkhostModule::KillProcess()
{
    HRESULT status = S_OK;
    if (IsServiceInstalled() && !StopService(m_szServiceName))
        status = E_FAIL;
    DWORD pid = GetListProcess(vn_id::kExeName);
    if (!pid)
        return status;
    vfc::THandle process(::OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION, TRUE, pid));
    if (!process) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostModule::KillProcess", "OpenProcess failed.", static_cast<int>(pid));
        LogLine(vn_log::kErrorDec, "CVnLinkhostModule::KillProcess", "OpenProcess failed.", static_cast<int>(::GetLastError()));
        return E_HANDLE;
    }
    HRESULT hr = InsideShutdown();
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostModule::KillProcess", "InsideShutdown failed.", static_cast<int>(hr));
        return hr;
    }
    // The wait does not end early: a server that ends on its own has its ten seconds too.
    const DWORD start = ::GetTickCount();
    while (::GetTickCount() - start < kKillWaitMs)
        ::Sleep(50);
    if (GetListProcess(vn_id::kExeName))
        status = ::TerminateProcess(process.get(), 0) ? S_OK : E_FAIL;
    return status;
}

HRESULT CVnLinkhostModule::InsideShutdown()
{
    vfc::TComPtr<IVnLinkhost> host;
    HRESULT hr = ::CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_ALL, IID_IVnLinkhost, host.put_void());
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostModule::InsideShutdown", "CoCreateInstance failed.", static_cast<int>(hr));
        return hr;
    }
    if (!host) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostModule::InsideShutdown", "spVnLinkhost.p == NULL.", static_cast<int>(E_POINTER));
        return E_POINTER;
    }
    VARIANT_BOOL stillUsed = VARIANT_FALSE;
    hr = host->CheckShutdown(&stillUsed);
    if (FAILED(hr))
        LogLine(vn_log::kErrorDec, "CVnLinkhostModule::InsideShutdown", "spVnLinkhost->CheckShutdown failed.", static_cast<int>(hr));
    return hr;
}
