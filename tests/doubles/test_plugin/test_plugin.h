// A plug-in of the test prefix. While it initialises it registers itself as an event sink and as an extension, adds its
// page "Testseite" to the configuration sheet between the proxy and the connection pages, and writes through a logger
// of its own. Its sink answers each event with "SinkAnswer" (DWORD; absent: 0, it agrees) of
// HKCU\Software\VnLinkhostTest and appends "type:parameter;" to "Events"; the answer to its extension's publication
// goes to "Published" (hex). The same DLL serves a second plug-in, {...1233}, which comes first in the category when
// registered; "Second" of the same key chooses what it does: "fail" fails its initialisation, "same" publishes the same
// extension id. The first is {9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801234}; the extension's id is {...1235}.
#pragma once

#include <guiddef.h>

constexpr GUID CLSID_VnTestPlugin = {0x9A1C0E55, 0x2B7D, 0x4C1E, {0x9F, 0x3A, 0x5D, 0x6E, 0x7F, 0x80, 0x12, 0x34}};
constexpr GUID CLSID_VnTestPluginFirst = {0x9A1C0E55, 0x2B7D, 0x4C1E, {0x9F, 0x3A, 0x5D, 0x6E, 0x7F, 0x80, 0x12, 0x33}};
constexpr GUID IID_VnTestExtension = {0x9A1C0E55, 0x2B7D, 0x4C1E, {0x9F, 0x3A, 0x5D, 0x6E, 0x7F, 0x80, 0x12, 0x35}};

constexpr const char* kVnTestKey = "Software\\VnLinkhostTest";
