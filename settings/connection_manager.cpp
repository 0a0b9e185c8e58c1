#include "settings/connection_manager.h"

#include <wininet.h>

#include <cstring>

#include "host/log.h"
#include "host/status.h"
#include "vfc/unique_resource.h"

using namespace vn_ras;

bool CVnLinkhostConnectionManager::bConnectionOwned = false;
DWORD_PTR CVnLinkhostConnectionManager::dwDialConnection = 0;

namespace {

// The log lines carry the method names the operations had when their texts
// were fixed: ConnectEntry logs as Connect, DisconnectEntry as Disconnect.
const char kConnectMethod[] = "CVnLinkhostConnectionManager::Connect";
const char kDialogMethod[] = "CVnLinkhostConnectionManager::RasDialogConnect";
const char kDisconnectMethod[] = "CVnLinkhostConnectionManager::Disconnect";

const char kRasLibrary[] = "RASAPI32.DLL";
const char kRasDialogLibrary[] = "Rasdlg.dll";

// The fourth word holds the byte 0xEE in place of an "o"; the text stays so.
const char kEntryNotFound[] = "Connection name not f\xEEund.";

template <typename Fn>
Fn Proc(const vfc::TModule& library, const char* name)
{
    return library ? reinterpret_cast<Fn>(::GetProcAddress(library.get(), name)) : nullptr;
}

struct TGlobalMemTraits {
    using type = HGLOBAL;
    static HGLOBAL empty() noexcept { return nullptr; }
    static bool is_empty(HGLOBAL memory) noexcept { return memory == nullptr; }
    static void close(HGLOBAL memory) noexcept { ::GlobalFree(memory); }
};
using TGlobalMem = vfc::TUniqueResource<TGlobalMemTraits>;

// Calls one of the platform's enumerations, which take an array whose first
// element carries the element size: first with room for one element, and on
// ERROR_BUFFER_TOO_SMALL once more with the size the platform asked for,
// rounded up to whole elements. The list holds `count` elements on success.
template <typename Element, typename Call>
DWORD Enumerate(std::vector<Element>& list, DWORD& count, Call call)
{
    list.assign(1, Element());
    list[0].dwSize = sizeof(Element);
    DWORD size = sizeof(Element);
    count = 0;
    DWORD result = call(list.data(), &size, &count);
    if (result == kErrorBufferTooSmall) {
        size_t elements = (size + sizeof(Element) - 1) / sizeof(Element);
        list.assign(elements ? elements : 1, Element());
        list[0].dwSize = sizeof(Element);
        size = static_cast<DWORD>(list.size() * sizeof(Element));
        count = 0;
        result = call(list.data(), &size, &count);
    }
    if (result != 0 || count > list.size())
        count = 0;
    return result;
}

// The connections of the platform, or an empty list.
std::vector<TRasConn> EnumerateConnections(PFN_RasEnumConnectionsA enumConnections, DWORD& count)
{
    std::vector<TRasConn> connections;
    Enumerate(connections, count, [enumConnections](TRasConn* data, LPDWORD size, LPDWORD found) {
        return enumConnections(data, size, found);
    });
    return connections;
}

const TRasConn* FindByName(const std::vector<TRasConn>& connections, DWORD count, const std::string& entry)
{
    for (DWORD i = 0; i < count; ++i)
        if (entry == connections[i].szEntryName)
            return &connections[i];
    return nullptr;
}

DWORD ConnectStatus(PFN_RasGetConnectStatusA getConnectStatus, TRasConnHandle connection, TRasConnStatus& status)
{
    std::memset(&status, 0, sizeof status);
    status.dwSize = sizeof status;
    return getConnectStatus(connection, &status);
}

// Serves the window messages of this thread, so that its windows stay alive
// while it waits for the platform.
void DrainMessages()
{
    MSG message;
    while (::PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        ::TranslateMessage(&message);
        ::DispatchMessageA(&message);
    }
}

}  // namespace

void CVnLinkhostConnectionManager::GetConnections(std::vector<std::string>& entries)
{
    entries.clear();
    vfc::TModule library(::LoadLibraryA(kRasLibrary));
    auto enumEntries = Proc<PFN_RasEnumEntriesA>(library, "RasEnumEntriesA");
    if (!enumEntries)
        return;
    std::vector<TRasEntryName> names;
    DWORD count = 0;
    if (Enumerate(names, count, [enumEntries](TRasEntryName* data, LPDWORD size, LPDWORD found) {
            return enumEntries(nullptr, nullptr, data, size, found);
        }) != 0)
        return;
    for (DWORD i = 0; i < count; ++i)
        entries.emplace_back(names[i].szEntryName);
}

bool CVnLinkhostConnectionManager::IsConnected(const std::string& entry)
{
    vfc::TModule library(::LoadLibraryA(kRasLibrary));
    auto enumConnections = Proc<PFN_RasEnumConnectionsA>(library, "RasEnumConnectionsA");
    auto getConnectStatus = Proc<PFN_RasGetConnectStatusA>(library, "RasGetConnectStatusA");
    if (!enumConnections || !getConnectStatus)
        return false;
    DWORD count = 0;
    std::vector<TRasConn> connections = EnumerateConnections(enumConnections, count);
    const TRasConn* match = FindByName(connections, count, entry);
    if (!match)
        return false;
    TRasConnStatus status;
    return ConnectStatus(getConnectStatus, match->hrasconn, status) == 0 && status.rasconnstate == kStateConnected;
}

TRasConnHandle CVnLinkhostConnectionManager::FindConnection(const std::string& entry)
{
    vfc::TModule library(::LoadLibraryA(kRasLibrary));
    auto enumConnections = Proc<PFN_RasEnumConnectionsA>(library, "RasEnumConnectionsA");
    if (!enumConnections)
        return nullptr;
    DWORD count = 0;
    std::vector<TRasConn> connections = EnumerateConnections(enumConnections, count);
    const TRasConn* match = FindByName(connections, count, entry);
    return match ? match->hrasconn : nullptr;
}

HRESULT CVnLinkhostConnectionManager::Connect(const std::string& entry, HWND hwnd, bool bInteractive, bool bDialog)
{
    HRESULT status = bDialog ? RasDialogConnect(hwnd, bInteractive) : ConnectEntry(entry, hwnd, bInteractive);
    if (status != VN_E_NOT_AVAILABLE)
        return status;
    // No RAS on this machine. The internet client's own dial shows its
    // dialog, which a background session must not do.
    if (!bInteractive)
        return VN_E_NOT_AVAILABLE;
    std::vector<char> name(entry.begin(), entry.end());
    name.push_back('\0');
    DWORD result = ::InternetDialA(hwnd, name.data(), 0, &dwDialConnection, 0);
    if (result == 0)
        return S_OK;
    return result == kErrorUserDisconnection ? VN_E_DIAL_CANCELLED : VN_E_DIAL_FAILED;
}

HRESULT CVnLinkhostConnectionManager::Disconnect(const std::string& entry)
{
    if (dwDialConnection != 0) {
        if (::InternetHangUp(dwDialConnection, 0) != 0)
            return VN_E_HANGUP_FAILED;
        dwDialConnection = 0;
    }
    return DisconnectEntry(entry);
}

HRESULT CVnLinkhostConnectionManager::ConnectEntry(const std::string& entry, HWND hwnd, bool bInteractive)
{
    vfc::TModule library(::LoadLibraryA(kRasLibrary));
    auto rasDial = Proc<PFN_RasDialA>(library, "RasDialA");
    auto rasHangUp = Proc<PFN_RasHangUpA>(library, "RasHangUpA");
    auto getErrorString = Proc<PFN_RasGetErrorStringA>(library, "RasGetErrorStringA");
    auto getDialParams = Proc<PFN_RasGetEntryDialParamsA>(library, "RasGetEntryDialParamsA");
    if (!rasDial || !rasHangUp || !getErrorString || !getDialParams) {
        LogLine(vn_log::kError, kConnectMethod, "Faile to load RAS dll.");
        return VN_E_NOT_AVAILABLE;
    }

    std::vector<std::string> entries;
    GetConnections(entries);
    bool known = false;
    for (const std::string& name : entries)
        known = known || name == entry;
    if (!known) {
        LogLine(vn_log::kError, kConnectMethod, kEntryNotFound);
        return S_FALSE;
    }

    // Somebody else's connection is used as it is, and never hung up by us.
    if (IsConnected(entry))
        return S_OK;

    // The stored user name and password go with the dial; whether there are
    // any is the platform's business.
    TRasDialParams params;
    std::memset(&params, 0, sizeof params);
    params.dwSize = sizeof params;
    std::strncpy(params.szEntryName, entry.c_str(), kMaxEntryName);
    BOOL hasPassword = FALSE;
    getDialParams(nullptr, &params, &hasPassword);

    TRasConnHandle connection = nullptr;
    DWORD result = rasDial(nullptr, nullptr, &params, 0, nullptr, &connection);
    ::SecureZeroMemory(&params, sizeof params);
    if (result == 0) {
        bConnectionOwned = true;
        return S_OK;
    }

    char text[256] = {};
    if (getErrorString(result, text, sizeof text) != 0)
        LogLine(vn_log::kErrorDec, kConnectMethod, "Undefined RAS Dial Error", static_cast<int>(result));
    LogLine(vn_log::kErrorDec, kConnectMethod, text, static_cast<int>(result));
    // A failed dial still holds the port until its handle is hung up.
    rasHangUp(connection);
    // The user gets the phone book dialog as the second try.
    return RasDialogConnect(hwnd, bInteractive);
}

HRESULT CVnLinkhostConnectionManager::RasDialogConnect(HWND hwnd, bool bInteractive)
{
    vfc::TModule library(::LoadLibraryA(kRasDialogLibrary));
    auto phonebookDlg = Proc<PFN_RasPhonebookDlgA>(library, "RasPhonebookDlgA");
    if (!phonebookDlg) {
        LogLine(vn_log::kError, kDialogMethod, "Faile to find RasPhonebookDlg.");
        return VN_E_NOT_AVAILABLE;
    }
    if (!bInteractive)
        return VN_E_DIAL_FAILED;
    std::vector<std::string> entries;
    GetConnections(entries);
    if (entries.empty())
        return VN_E_DIAL_FAILED;

    TGlobalMem block(::GlobalAlloc(GPTR, sizeof(TRasPhonebookDlg)));
    if (!block)
        return VN_E_DIAL_FAILED;
    auto* info = static_cast<TRasPhonebookDlg*>(block.get());
    info->dwSize = sizeof(TRasPhonebookDlg);
    info->hwndOwner = hwnd;
    if (!phonebookDlg(nullptr, nullptr, info)) {
        LogLine(vn_log::kError, kDialogMethod, "User pressed \"Cancel\".");
        return VN_E_DIAL_CANCELLED;
    }
    bConnectionOwned = true;
    return S_OK;
}

HRESULT CVnLinkhostConnectionManager::DisconnectEntry(const std::string& entry)
{
    if (!bConnectionOwned) {
        LogLine(vn_log::kWarning, kDisconnectMethod, "Connection was created by another process.");
        return S_OK;
    }
    vfc::TModule library(::LoadLibraryA(kRasLibrary));
    auto rasHangUp = Proc<PFN_RasHangUpA>(library, "RasHangUpA");
    auto getConnectStatus = Proc<PFN_RasGetConnectStatusA>(library, "RasGetConnectStatusA");
    if (!rasHangUp || !getConnectStatus) {
        LogLine(vn_log::kError, kDisconnectMethod, "Faile to load RAS dll.");
        return VN_E_NOT_AVAILABLE;
    }

    std::vector<std::string> entries;
    GetConnections(entries);
    for (const std::string& name : entries) {
        if (name != entry)
            continue;
        TRasConnHandle connection = FindConnection(name);
        if (!connection)
            continue;
        TRasConnStatus status;
        if (ConnectStatus(getConnectStatus, connection, status) == kErrorInvalidHandle) {
            LogLine(vn_log::kError, kDisconnectMethod, "RasGetConnectStatus returns ERROR_INVALID_HANDLE.");
            return VN_E_HANGUP_FAILED;
        }
        rasHangUp(connection);
        // The platform needs the handle to die before the port can be used
        // again. The wait has no sleep and no limit; serving this thread's
        // messages meanwhile keeps its windows alive.
        while (ConnectStatus(getConnectStatus, connection, status) != kErrorInvalidHandle)
            DrainMessages();
        bConnectionOwned = false;
        return S_OK;
    }
    LogLine(vn_log::kError, kDisconnectMethod, kEntryNotFound);
    return S_FALSE;
}
