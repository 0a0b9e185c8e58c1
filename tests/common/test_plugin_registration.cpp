#include "common/test_util.h"
#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"

namespace vn_test {

namespace {

std::string TestPluginKey()
{
    wchar_t text[64] = {};
    ::StringFromGUID2(CLSID_VnTestPlugin, text, 64);
    return "CLSID\\" + std::string(text, text + ::lstrlenW(text));
}

void SetText(const std::string& key, const char* name, const std::string& value)
{
    ::RegSetKeyValueA(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, value.c_str(), static_cast<DWORD>(value.size() + 1));
}

}  // namespace

void RegisterTestPlugin()
{
    const std::string key = TestPluginKey();
    SetText(key, nullptr, "VnLinkhost test plug-in");
    SetText(key + "\\InprocServer32", nullptr, BinDir() + "\\vn_test_plugin.dll");
    SetText(key + "\\InprocServer32", "ThreadingModel", "Both");
    SetText(key + "\\Implemented Categories\\{566E4C48-60C4-4777-A4B1-D178F6C1AE38}", nullptr, "");
}

void UnregisterTestPlugin()
{
    ::RegDeleteTreeA(HKEY_CLASSES_ROOT, TestPluginKey().c_str());
    for (const char* value : {"SinkAnswer", "SinkStatus", "Events"})
        ::RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, value);
}

void SetSinkAnswer(DWORD answer)
{
    ::RegSetKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "SinkAnswer", REG_DWORD, &answer, sizeof answer);
}

}  // namespace vn_test
