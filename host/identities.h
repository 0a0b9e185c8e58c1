// Fixed identities of the server.
#pragma once

#include <guiddef.h>

namespace vn_id {

constexpr const char* kAppId = "{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";
constexpr const char* kClsid = "{566E4C48-7F95-4309-B372-41BF7CD4804C}";
constexpr const char* kLibId = "{566E4C48-039E-43DE-9D14-4E38B2348BD7}";
constexpr const char* kProgId = "VnLinkhost.VnLinkhostObject";
constexpr const char* kVersion = "1";
constexpr const char* kDescription = "Velorin Linkhost Object";
constexpr const char* kThreading = "Free";
constexpr const char* kExeName = "VnLinkhost.exe";
constexpr const char* kPluginCategoryDescription = "VnLinkhost Plugins COM Category";

// The in-process unmarshaller of read streams, one DLL per bitness beside the exe.
constexpr const char* kStreamUnmarshalClsid = "{566E4C48-2F1B-4C1E-9B5D-6A0E2D7C5A31}";
constexpr GUID kStreamUnmarshalGuid = {0x566E4C48, 0x2F1B, 0x4C1E, {0x9B, 0x5D, 0x6A, 0x0E, 0x2D, 0x7C, 0x5A, 0x31}};
constexpr const char* kStreamUnmarshalDescription = "Velorin Linkhost Stream Unmarshaler";
constexpr const char* kStreamDll32 = "VnLinkhostStream32.dll";
constexpr const char* kStreamDll64 = "VnLinkhostStream64.dll";

// {566E4C48-60C4-4777-A4B1-D178F6C1AE38}
constexpr GUID kPluginCategory = {0x566E4C48, 0x60C4, 0x4777, {0xA4, 0xB1, 0xD1, 0x78, 0xF6, 0xC1, 0xAE, 0x38}};
// {566E4C48-039E-43DE-9D14-4E38B2348BD7}
constexpr GUID kLibGuid = {0x566E4C48, 0x039E, 0x43DE, {0x9D, 0x14, 0x4E, 0x38, 0xB2, 0x34, 0x8B, 0xD7}};

}  // namespace vn_id
