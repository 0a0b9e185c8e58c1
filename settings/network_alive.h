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
// log line; the callers decide what a missing library means for them. The
// monitors' check, CVnSensNetworkManager::IsNetworkAliveDynamic, is built on it.
TNetworkAnswer AskNetworkAlive(DWORD& flags);

}  // namespace vn_network
