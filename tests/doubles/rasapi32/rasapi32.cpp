// Stand-in for the platform's RASAPI32.DLL (Wine's has no phone book and no connections), told under
// HKCU\Software\VnLinkhostTest\Ras: "Entries" and "Connected" (MULTI_SZ), the phone book and the connections in order;
// what RasDialA answers ("DialError"), the state a connection reports ("ConnState"), whether all handles died
// ("DeadHandles"), status queries that still find a hung-up connection ("HangUpPolls"), all DWORD. A handle comes from
// the entry's place in the phone book: it outlives each load.
#include <windows.h>

#include <algorithm>
#include <cstdio>
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
    auto it = std::find(list.begin(), list.end(), name);
    return it == list.end() ? -1 : static_cast<int>(it - list.begin());
}

TRasConnHandle HandleOf(const std::string& entry)
{
    int index = IndexOf(Entries(), entry);
    return reinterpret_cast<TRasConnHandle>(index >= 0 ? kHandleBase + index : kUnlistedBase + IndexOf(Connected(), entry));
}

std::string EntryOf(TRasConnHandle handle)
{
    const ULONG_PTR value = reinterpret_cast<ULONG_PTR>(handle);
    const auto in = [value](ULONG_PTR base, const std::vector<std::string>& list) {
        return value >= base && value - base < list.size() ? list[value - base] : std::string();
    };
    const std::string listed = in(kHandleBase, Entries());
    return listed.empty() ? in(kUnlistedBase, Connected()) : listed;
}

void SetConnected(const std::string& entry, bool connected)
{
    std::vector<std::string> list = Connected();
    const int index = IndexOf(list, entry);
    if (connected && index < 0)
        list.push_back(entry);
    else if (!connected && index >= 0)
        list.erase(list.begin() + index);
    vn_standin::WriteList(kRasKey, "Connected", list);
}

DWORD Journal(const char* name, const std::string& argument, DWORD result)
{
    vn_standin::Journal(kRasKey, std::string(name) + "(" + argument + ")=" + std::to_string(result));
    return result;
}

// Fills the caller's array from the list as the platform does: the size
// field of the first element is checked, then the space that the list needs.
template <typename T, typename Fill>
DWORD Enumerate(const char* call, T* items, LPDWORD cb, LPDWORD count, const std::vector<std::string>& names, Fill fill)
{
    if (!items || !cb || !count)
        return ERROR_INVALID_PARAMETER;
    const DWORD given = *cb, needed = static_cast<DWORD>(names.size() * sizeof(T));
    DWORD result = items->dwSize != sizeof(T) ? kErrorInvalidSize : given < needed ? kErrorBufferTooSmall : 0;
    if (result != kErrorInvalidSize) {
        *cb = needed;
        *count = static_cast<DWORD>(names.size());
    }
    for (size_t i = 0; !result && i < names.size(); ++i) {
        items[i] = T{};
        items[i].dwSize = sizeof(T);
        fill(items[i], names[i]);
    }
    return Journal(call, std::to_string(given), result);
}

}  // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    return reason != DLL_PROCESS_ATTACH || !vn_standin::ReadDword(kRasKey, vn_standin::kUnloadable, 0);
}

extern "C" DWORD WINAPI RasEnumEntriesA(LPCSTR, LPCSTR, TRasEntryName* entries, LPDWORD cb, LPDWORD count)
{
    return Enumerate("RasEnumEntriesA", entries, cb, count, Entries(), [](TRasEntryName& entry, const std::string& name) {
        lstrcpynA(entry.szEntryName, name.c_str(), sizeof entry.szEntryName);
    });
}

extern "C" DWORD WINAPI RasEnumConnectionsA(TRasConn* connections, LPDWORD cb, LPDWORD count)
{
    return Enumerate("RasEnumConnectionsA", connections, cb, count, Connected(), [](TRasConn& connection, const std::string& name) {
        connection.hrasconn = HandleOf(name);
        lstrcpynA(connection.szEntryName, name.c_str(), sizeof connection.szEntryName);
    });
}

extern "C" DWORD WINAPI RasGetConnectStatusA(TRasConnHandle handle, TRasConnStatus* status)
{
    const std::string entry = EntryOf(handle);
    const auto answer = [&](DWORD result) { return Journal("RasGetConnectStatusA", entry, result); };
    if (!status || status->dwSize != sizeof(TRasConnStatus))
        return answer(status ? kErrorInvalidSize : ERROR_INVALID_PARAMETER);
    if (vn_standin::ReadDword(kRasKey, "DeadHandles", 0) || entry.empty() || IndexOf(Connected(), entry) < 0)
        return answer(kErrorInvalidHandle);
    if (vn_standin::ReadText(kRasKey, "HangingUp") != entry)
        return status->rasconnstate = vn_standin::ReadDword(kRasKey, "ConnState", kStateConnected), answer(0);
    // Hung up: the handle dies only after a few queries that find it disconnected.
    const DWORD left = vn_standin::ReadDword(kRasKey, "PollsLeft", 0);
    if (left)
        return vn_standin::WriteDword(kRasKey, "PollsLeft", left - 1), status->rasconnstate = kStateDisconnected, answer(0);
    SetConnected(entry, false);
    vn_standin::WriteText(kRasKey, "HangingUp", "");
    return answer(kErrorInvalidHandle);
}

extern "C" DWORD WINAPI RasGetEntryDialParamsA(LPCSTR, TRasDialParams* params, LPBOOL password)
{
    const bool valid = params && params->dwSize == sizeof(TRasDialParams);
    const DWORD result = !valid ? kErrorInvalidSize : IndexOf(Entries(), params->szEntryName) < 0 ? 623 : 0;  // 623: no such entry
    if (result == 0) {
        lstrcpynA(params->szUserName, (std::string("user of ") + params->szEntryName).c_str(), sizeof params->szUserName);
        lstrcpynA(params->szPassword, "secret", sizeof params->szPassword);
        if (password)
            *password = TRUE;
    }
    return Journal("RasGetEntryDialParamsA", params ? params->szEntryName : "", result);
}

extern "C" DWORD WINAPI RasDialA(void*, LPCSTR, TRasDialParams* params, DWORD, void* notifier, TRasConnHandle* handle)
{
    if (!params || !handle || params->dwSize != sizeof(TRasDialParams))
        return Journal("RasDialA", params ? "," + std::string(params->szUserName) : ",", kErrorInvalidSize);
    const std::string entry = params->szEntryName;
    const DWORD result = vn_standin::ReadDword(kRasKey, "DialError", 0);
    if (result == 0)
        SetConnected(entry, true);
    *handle = HandleOf(entry);  // a failed dial has a handle too, which the caller must hang up to free the port
    return Journal("RasDialA", entry + "," + params->szUserName + (notifier ? ",notifier" : ""), result);
}

extern "C" DWORD WINAPI RasHangUpA(TRasConnHandle handle)
{
    const std::string entry = EntryOf(handle);
    const DWORD polls = vn_standin::ReadDword(kRasKey, "HangUpPolls", 0);
    const bool up = !entry.empty() && IndexOf(Connected(), entry) >= 0;
    if (up && polls == 0)
        SetConnected(entry, false);
    else if (up)
        vn_standin::WriteText(kRasKey, "HangingUp", entry), vn_standin::WriteDword(kRasKey, "PollsLeft", polls);
    return Journal("RasHangUpA", entry, 0);
}

extern "C" DWORD WINAPI RasGetErrorStringA(UINT error, LPSTR text, DWORD size)
{
    if (!text || size == 0)
        return ERROR_INVALID_PARAMETER;
    std::snprintf(text, size, "Stand-in dial error %u", error);
    return 0;
}
