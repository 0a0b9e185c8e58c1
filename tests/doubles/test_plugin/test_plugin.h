// A plug-in of the test prefix. While it initialises it registers itself as
// an event sink and as an extension, and writes through a logger of its own.
// What the sink does is read from HKCU\Software\VnLinkhostTest at each event:
//   "SinkAnswer" (DWORD) - the result the sink gives; absent: it agrees (0).
//   "SinkStatus" (DWORD) - the status the sink returns; absent: S_OK.
// Each event the sink hears is appended to "Events" as "type:parameter;".
#pragma once

#include <guiddef.h>

// {9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801234}
constexpr GUID CLSID_VnTestPlugin = {0x9A1C0E55, 0x2B7D, 0x4C1E, {0x9F, 0x3A, 0x5D, 0x6E, 0x7F, 0x80, 0x12, 0x34}};
// The id under which the plug-in publishes an extension ({...-1235}).
constexpr GUID IID_VnTestExtension = {0x9A1C0E55, 0x2B7D, 0x4C1E, {0x9F, 0x3A, 0x5D, 0x6E, 0x7F, 0x80, 0x12, 0x35}};

constexpr const char* kVnTestKey = "Software\\VnLinkhostTest";
