#include "settings/network_alive.h"

#include "vfc/unique_resource.h"

namespace vn_network {

namespace {

using PFN_IsNetworkAlive = BOOL(WINAPI*)(LPDWORD);

}  // namespace

TNetworkAnswer AskNetworkAlive(DWORD& flags)
{
    flags = 0;
    vfc::TModule library(::LoadLibraryA("Sensapi.dll"));
    if (!library)
        return TNetworkAnswer::NotAvailable;
    auto isNetworkAlive = reinterpret_cast<PFN_IsNetworkAlive>(::GetProcAddress(library.get(), "IsNetworkAlive"));
    if (!isNetworkAlive)
        return TNetworkAnswer::NotAvailable;
    DWORD given = 0;
    BOOL alive = isNetworkAlive(&given);
    flags = given;
    return alive ? TNetworkAnswer::Alive : TNetworkAnswer::Down;
}

}  // namespace vn_network
