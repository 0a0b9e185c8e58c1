// Stand-ins for the platform's event services that Wine lacks: the COM+ event system behind SENS (CEventSystem,
// CEventSubscription, under the platform's class ids), and WMI's event notification (a locator that CLSID_WbemLocator
// is treated as, and the unsecured apartment). A test registers them as in-process classes for as long as it runs
// (kStandInClasses, kTreatAs). They live in the process that creates them, keep what they are given under
// HKCU\Software\VnLinkhostTest\NetEvents of the test prefix, and call their subscribers on a thread of their own when a
// test asks:
//   "Subscriptions" (MULTI_SZ): each stored subscription as "prog id|subscription id|name|method|event class|per user";
//   "Queries" (MULTI_SZ): each notification query as "namespace|language|query|flags";
//   "Raise" (MULTI_SZ): the next event, an ISensNetwork method with the connection and the type ("ConnectionLost",
//       "LAN", "1"), or "Indicate" with the classes of the objects, one each;
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
// The keys under HKCR that a test writes, each with "InprocServer32" (this
// DLL, "Both") or, for WMI's own locator, "TreatAs" (the stand-in locator).
constexpr const char* kStandInClasses[] = {"CLSID\\{4E14FBA2-2E22-11D1-9964-00C04FBBB345}",   // CEventSystem
                                           "CLSID\\{7542E960-79C7-11D1-88F9-0080C7D771BF}",   // CEventSubscription
                                           "CLSID\\{49BD2028-1523-11D1-AD79-00C04FD8FDFF}",   // UnsecuredApartment
                                           "CLSID\\{3D2A5C10-7E41-4B8A-9C55-0F1E2D3C4B5A}"};  // the locator
constexpr const char* kTreatAs = "CLSID\\{4590F811-1D3A-11D0-891F-00AA004B2E24}\\TreatAs";  // CLSID_WbemLocator

}  // namespace vn_netevents
