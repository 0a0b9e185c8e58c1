// The one question the system asks the platform about the network: is it
// alive, and over which kind of link. The platform's answer comes from
// Sensapi.dll, which is loaded by name for every question and dropped
// afterwards, so that the system also starts where the library is missing.
#pragma once

#include <windows.h>

namespace vn_network {

// IsNetworkAlive's flags: a local network, a wide network (a dial-up link).
constexpr DWORD kNetworkAliveLan = 1;
constexpr DWORD kNetworkAliveWan = 2;

enum class TNetworkAnswer {
    NotAvailable,  // the library or its function can't be loaded; flags 0
    Down,          // IsNetworkAlive said FALSE
    Alive,         // IsNetworkAlive said TRUE; flags tell the links
};

// Asks IsNetworkAlive of Sensapi.dll, loaded by name at each call. Writes no
// log line; the callers decide what a missing library means for them.
TNetworkAnswer AskNetworkAlive(DWORD& flags);

// The shared network test of the monitors: the platform's BOOL and its flags.
// Without the library or its function the flags are 0 and the result FALSE,
// with the line "No find function in DLL." for each call. This belongs to the
// SENS monitor, CVnSensNetworkManager::IsNetworkAliveDynamic, once that class
// exists; it lives here until then.
BOOL IsNetworkAliveDynamic(LPDWORD flags);

}  // namespace vn_network
