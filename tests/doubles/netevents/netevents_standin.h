// Stand-ins for the platform's event services that Wine lacks: the COM+ event
// system behind SENS (CEventSystem, CEventSubscription, under the platform's
// class ids), and WMI's event notification (a locator that CLSID_WbemLocator
// is treated as while registered, and the unsecured apartment). They live in
// the process that creates them, keep what they are given under
// HKCU\Software\VnLinkhostTest\NetEvents of the test prefix, and call their
// subscribers on a thread of their own when a test asks:
//   "Subscriptions" (MULTI_SZ): each stored subscription as
//       "prog id|subscription id|name|method|event class|per user";
//   "Queries" (MULTI_SZ): each notification query as "namespace|language|query|flags";
//   "Raise" (MULTI_SZ): the next event, an ISensNetwork method with the
//       connection and the type ("ConnectionLost", "LAN", "1"), or "Indicate"
//       with the classes of the objects, one each;
//   "Result" (DWORD): the subscribers' answer to it.
// A test sets "Raise", signals kRaise, and waits for kRaised.
#pragma once

#include <windows.h>

namespace vn_netevents {

constexpr const char* kKey = "Software\\VnLinkhostTest\\NetEvents";
constexpr const char* kRaise = "VnLinkhostTest.RaiseNetworkEvent";
constexpr const char* kRaised = "VnLinkhostTest.NetworkEventRaised";
// {3D2A5C10-7E41-4B8A-9C55-0F1E2D3C4B5A}: the stand-in locator.
constexpr CLSID kClsidLocator = {0x3D2A5C10, 0x7E41, 0x4B8A, {0x9C, 0x55, 0x0F, 0x1E, 0x2D, 0x3C, 0x4B, 0x5A}};

}  // namespace vn_netevents
