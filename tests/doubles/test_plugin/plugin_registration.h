// Puts the test plug-in (vn_test_plugin.dll beside the test programs) into the
// plug-in category of the test prefix, and takes it out again.
#pragma once

#include <windows.h>

#include <string>

#include "common/test_util.h"

namespace vn_test {

inline const std::string kPluginCategoryId = "{566E4C48-60C4-4777-A4B1-D178F6C1AE38}";
inline const std::string kTestPluginKey = "CLSID\\{9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801234}";  // CLSID_VnTestPlugin
inline const std::string kFirstPluginKey = "CLSID\\{9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801233}";  // CLSID_VnTestPluginFirst

inline void RegisterTestPlugin(const std::string& key = kTestPluginKey)
{
    const std::string dll = BinDir() + "\\vn_test_plugin.dll", server = key + "\\InprocServer32",
                      category = key + "\\Implemented Categories\\" + kPluginCategoryId;
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, server.c_str(), nullptr, REG_SZ, dll.c_str(), DWORD(dll.size() + 1));
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, server.c_str(), "ThreadingModel", REG_SZ, "Both", 5);
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, category.c_str(), nullptr, REG_SZ, "", 1);
}

inline void UnregisterTestPlugin(const std::string& key = kTestPluginKey) { ::RegDeleteTreeA(HKEY_CLASSES_ROOT, key.c_str()); }

}  // namespace vn_test
