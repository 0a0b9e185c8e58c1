// Stand-in for the platform's RASAPI32.DLL, which under Wine has no phone
// book and no connections. It keeps a phone book and a connection table in
// HKCU\Software\VnLinkhostTest\Ras of the test prefix, where the test writes
// what the platform would hold:
//   "Entries" (MULTI_SZ)    - the phone book's entry names, in order.
//   "Connected" (MULTI_SZ)  - entries with a connection, in the order the
//                             platform lists connections.
//   "DialError" (DWORD)     - what RasDialA answers; 0 connects the entry.
//   "ConnState" (DWORD)     - the state a connection reports; absent: connected.
//   "DeadHandles" (DWORD)   - non-zero: every connection handle has died, so
//                             RasGetConnectStatusA gives ERROR_INVALID_HANDLE.
//   "HangUpPolls" (DWORD)   - after RasHangUpA, how many status queries still
//                             find the connection before its handle dies.
//   "NoErrorText" (DWORD)   - non-zero: RasGetErrorStringA fails.
// Each call is journalled in "Calls". A connection's handle is derived from
// the entry's place in the phone book, so it stays the same across loads.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "settings/ras_types.h"
#include "tests/doubles/rasapi32/standin_registry.h"

using namespace vn_ras;
using vn_standin::kRasKey;

namespace {

constexpr ULONG_PTR kHandleBase = 0x5000;
constexpr ULONG_PTR kUnlistedBase = 0x4000;

std::vector<std::string> Entries() { return vn_standin::ReadList(kRasKey, "Entries"); }
std::vector<std::string> Connected() { return vn_standin::ReadList(kRasKey, "Connected"); }

int IndexOf(const std::vector<std::string>& list, const std::string& name)
{
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i] == name)
            return static_cast<int>(i);
    return -1;
}

TRasConnHandle HandleOf(const std::string& entry)
{
    int index = IndexOf(Entries(), entry);
    if (index >= 0)
        return reinterpret_cast<TRasConnHandle>(kHandleBase + index);
    return reinterpret_cast<TRasConnHandle>(kUnlistedBase + IndexOf(Connected(), entry));
}

std::string EntryOf(TRasConnHandle handle)
{
    ULONG_PTR value = reinterpret_cast<ULONG_PTR>(handle);
    std::vector<std::string> entries = Entries();
    if (value >= kHandleBase && value - kHandleBase < entries.size())
        return entries[value - kHandleBase];
    std::vector<std::string> connected = Connected();
    if (value >= kUnlistedBase && value - kUnlistedBase < connected.size())
        return connected[value - kUnlistedBase];
    return std::string();
}

void Disconnect(const std::string& entry)
{
    std::vector<std::string> connected = Connected();
    int index = IndexOf(connected, entry);
    if (index >= 0) {
        connected.erase(connected.begin() + index);
        vn_standin::WriteList(kRasKey, "Connected", connected);
    }
}

std::string Call(const char* name, const std::string& argument, DWORD result)
{
    char tail[32];
    std::snprintf(tail, sizeof tail, ")=%lu", static_cast<unsigned long>(result));
    return std::string(name) + "(" + argument + tail;
}

void CopyName(char* target, size_t size, const std::string& name)
{
    std::strncpy(target, name.c_str(), size - 1);
    target[size - 1] = '\0';
}

}  // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH && vn_standin::ReadDword(kRasKey, vn_standin::kUnloadable, 0))
        return FALSE;
    return TRUE;
}

extern "C" DWORD WINAPI RasEnumEntriesA(LPCSTR, LPCSTR, TRasEntryName* entries, LPDWORD cb, LPDWORD count)
{
    if (!entries || !cb || !count)
        return ERROR_INVALID_PARAMETER;
    const DWORD given = *cb;
    DWORD result = 0;
    std::vector<std::string> names = Entries();
    const DWORD needed = static_cast<DWORD>(names.size() * sizeof(TRasEntryName));
    if (entries->dwSize != sizeof(TRasEntryName)) {
        result = kErrorInvalidSize;
    } else if (given < needed) {
        *cb = needed;
        *count = static_cast<DWORD>(names.size());
        result = kErrorBufferTooSmall;
    } else {
        for (size_t i = 0; i < names.size(); ++i) {
            TRasEntryName& entry = entries[i];
            std::memset(&entry, 0, sizeof entry);
            entry.dwSize = sizeof entry;
            CopyName(entry.szEntryName, sizeof entry.szEntryName, names[i]);
        }
        *cb = needed;
        *count = static_cast<DWORD>(names.size());
    }
    vn_standin::Journal(kRasKey, Call("RasEnumEntriesA", std::to_string(given), result));
    return result;
}

extern "C" DWORD WINAPI RasEnumConnectionsA(TRasConn* connections, LPDWORD cb, LPDWORD count)
{
    if (!connections || !cb || !count)
        return ERROR_INVALID_PARAMETER;
    const DWORD given = *cb;
    DWORD result = 0;
    std::vector<std::string> names = Connected();
    const DWORD needed = static_cast<DWORD>(names.size() * sizeof(TRasConn));
    if (connections->dwSize != sizeof(TRasConn)) {
        result = kErrorInvalidSize;
    } else if (given < needed) {
        *cb = needed;
        *count = static_cast<DWORD>(names.size());
        result = kErrorBufferTooSmall;
    } else {
        for (size_t i = 0; i < names.size(); ++i) {
            TRasConn& connection = connections[i];
            std::memset(&connection, 0, sizeof connection);
            connection.dwSize = sizeof connection;
            connection.hrasconn = HandleOf(names[i]);
            CopyName(connection.szEntryName, sizeof connection.szEntryName, names[i]);
            CopyName(connection.szDeviceType, sizeof connection.szDeviceType, "modem");
        }
        *cb = needed;
        *count = static_cast<DWORD>(names.size());
    }
    vn_standin::Journal(kRasKey, Call("RasEnumConnectionsA", std::to_string(given), result));
    return result;
}

extern "C" DWORD WINAPI RasGetConnectStatusA(TRasConnHandle handle, TRasConnStatus* status)
{
    const std::string entry = EntryOf(handle);
    DWORD result = 0;
    if (!status) {
        result = ERROR_INVALID_PARAMETER;
    } else if (status->dwSize != sizeof(TRasConnStatus)) {
        result = kErrorInvalidSize;
    } else if (vn_standin::ReadDword(kRasKey, "DeadHandles", 0) || entry.empty() || IndexOf(Connected(), entry) < 0) {
        result = kErrorInvalidHandle;
    } else if (vn_standin::ReadText(kRasKey, "HangingUp") == entry) {
        // Hung up but not yet gone: the platform needs a while before the
        // handle dies, and meanwhile reports the connection as disconnected.
        DWORD left = vn_standin::ReadDword(kRasKey, "PollsLeft", 0);
        if (left == 0) {
            Disconnect(entry);
            vn_standin::WriteText(kRasKey, "HangingUp", "");
            result = kErrorInvalidHandle;
        } else {
            vn_standin::WriteDword(kRasKey, "PollsLeft", left - 1);
            status->rasconnstate = kStateDisconnected;
        }
    } else {
        status->rasconnstate = vn_standin::ReadDword(kRasKey, "ConnState", kStateConnected);
    }
    vn_standin::Journal(kRasKey, Call("RasGetConnectStatusA", entry, result));
    return result;
}

extern "C" DWORD WINAPI RasGetEntryDialParamsA(LPCSTR, TRasDialParams* params, LPBOOL password)
{
    DWORD result = 0;
    if (!params || params->dwSize != sizeof(TRasDialParams)) {
        result = kErrorInvalidSize;
    } else if (IndexOf(Entries(), params->szEntryName) < 0) {
        result = 623;  // ERROR_CANNOT_FIND_PHONEBOOK_ENTRY
    } else {
        CopyName(params->szUserName, sizeof params->szUserName, std::string("user of ") + params->szEntryName);
        CopyName(params->szPassword, sizeof params->szPassword, "secret");
        if (password)
            *password = TRUE;
    }
    vn_standin::Journal(kRasKey, Call("RasGetEntryDialParamsA", params ? params->szEntryName : "", result));
    return result;
}

extern "C" DWORD WINAPI RasDialA(void*, LPCSTR, TRasDialParams* params, DWORD, void* notifier, TRasConnHandle* handle)
{
    DWORD result = 0;
    std::string entry;
    if (!params || !handle || params->dwSize != sizeof(TRasDialParams)) {
        result = kErrorInvalidSize;
    } else {
        entry = params->szEntryName;
        result = vn_standin::ReadDword(kRasKey, "DialError", 0);
        if (result == 0 && IndexOf(Connected(), entry) < 0) {
            std::vector<std::string> connected = Connected();
            connected.push_back(entry);
            vn_standin::WriteList(kRasKey, "Connected", connected);
        }
        // The platform hands out a handle for a failed dial as well; the
        // caller must hang it up to free the port.
        *handle = HandleOf(entry);
    }
    std::string argument = entry + "," + (params ? params->szUserName : "") + (notifier ? ",notifier" : "");
    vn_standin::Journal(kRasKey, Call("RasDialA", argument, result));
    return result;
}

extern "C" DWORD WINAPI RasHangUpA(TRasConnHandle handle)
{
    const std::string entry = EntryOf(handle);
    if (!entry.empty() && IndexOf(Connected(), entry) >= 0) {
        DWORD polls = vn_standin::ReadDword(kRasKey, "HangUpPolls", 0);
        if (polls == 0) {
            Disconnect(entry);
        } else {
            vn_standin::WriteText(kRasKey, "HangingUp", entry);
            vn_standin::WriteDword(kRasKey, "PollsLeft", polls);
        }
    }
    vn_standin::Journal(kRasKey, Call("RasHangUpA", entry, 0));
    return 0;
}

extern "C" DWORD WINAPI RasGetErrorStringA(UINT error, LPSTR text, DWORD size)
{
    if (vn_standin::ReadDword(kRasKey, "NoErrorText", 0) || !text || size == 0)
        return ERROR_INVALID_PARAMETER;
    std::snprintf(text, size, "Stand-in dial error %u", error);
    return 0;
}
