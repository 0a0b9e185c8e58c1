// What the settings tests share: registry values, the stand-ins' controls and journals, a record as a tuple; and for
// every test that touches it, the configuration file in the test prefix (found here, not asked of the product), a guard
// that empties and restores both files, a record as the file's text.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "common/test_util.h"
#include "host/root_object.h"
#include "host/status.h"
#include "settings/config_keys.h"
#include "settings/connection_manager.h"
#include "settings/connection_state.h"
#include "monitors/sens_network_manager.h"
#include "settings/network_alive.h"
#include "settings/proxy_config_helper.h"
#include "settings/registry_text.h"
#include "settings/session_connection.h"
#include "settings/system_proxy.h"
#include "settings/xml_config_manager.h"
#include "tests/doubles/rasapi32/standin_registry.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"

namespace vn_settings_test {

namespace si = vn_standin;
constexpr const char* kInternetSettings = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

// Writes one value of HKCU; null data removes it.
inline void SetReg(const char* key, const char* name, DWORD type, const void* data, size_t size)
{
    if (!data)
        ::RegDeleteKeyValueA(HKEY_CURRENT_USER, key, name);
    EXPECT_EQ(0, data ? ::RegSetKeyValueA(HKEY_CURRENT_USER, key, name, type, data, DWORD(size)) : 0) << name;
}
inline void SetText(const char* key, const char* name, const char* text) { SetReg(key, name, REG_SZ, text, text ? std::strlen(text) + 1 : 0); }
inline void WriteLanProxy(DWORD enabled, const char* server, const char* bypass)
{
    SetReg(kInternetSettings, "ProxyEnable", REG_DWORD, &enabled, 4);
    SetText(kInternetSettings, "ProxyServer", server);
    SetText(kInternetSettings, "ProxyOverride", bypass);
}
inline void WriteAutodial(int enable, int noNet)  // a negative value is removed
{
    SetReg(kInternetSettings, "EnableAutodial", REG_DWORD, enable < 0 ? nullptr : &enable, 4);
    SetReg(kInternetSettings, "NoNetAutodial", REG_DWORD, noNet < 0 ? nullptr : &noNet, 4);
}

// The stand-ins' controls. With none set the machine has RAS with an empty phone book, and a live LAN.
inline void ResetStandIns(const char* value = nullptr)  // all controls, or one value of each stand-in
{
    for (const char* key : {si::kRasKey, si::kRasdlgKey, si::kSensapiKey})
        value ? ::RegDeleteKeyValueA(HKEY_CURRENT_USER, key, value) : ::RegDeleteTreeA(HKEY_CURRENT_USER, key);
}
inline void Entries(const std::vector<std::string>& names) { si::WriteList(si::kRasKey, "Entries", names); }
inline void Connected(const std::vector<std::string>& names) { si::WriteList(si::kRasKey, "Connected", names); }
inline std::vector<std::string> Connected() { return si::ReadList(si::kRasKey, "Connected"); }
inline void Network(int alive, DWORD flags)  // alive -1: there is no Sensapi.dll
{
    si::WriteDword(si::kSensapiKey, alive < 0 ? si::kUnloadable : "Alive", alive < 0 ? 1 : alive);
    si::WriteDword(si::kSensapiKey, "Flags", flags);
}
inline std::string Journal(const char* key) { return si::ReadText(key, si::kCalls); }
using vn_test::Count;
inline int Calls(const char* key, const std::string& call) { return Count(Journal(key), call); }

inline auto Fields(const CConfigData& d)
{
    return std::make_tuple(d.m_UseSystemProxy, d.m_ProxyMode, d.m_ProxyAddress, d.m_ProxyPort, d.m_ProxyExclude, d.m_ProxyNoLocal,
                           d.m_ProxyScript, d.m_UseSystemConnection, d.m_DialMode, d.m_DefaultConnection, d.m_SessionFlags, d.m_SkipHeadAuth);
}
// A key's text in the record ("<untouched>" if it gave none), checked for the status expected.
inline std::wstring Get(const CConfigData& data, const std::wstring& key, HRESULT expected = S_OK)
{
    std::wstring value = L"<untouched>";
    EXPECT_EQ(expected, vn_config::GetValue(data, key, value)) << vfc::Narrow(key);
    return value;
}
inline CConfigData Defaults() { CConfigData data; data.SetDefaults(); return data; }

}  // namespace vn_settings_test

namespace vn_config_test {

// The product's folder in the local or (with CSIDL_APPDATA) the roaming profile.
inline std::string VelorinFolder(int csidl = CSIDL_LOCAL_APPDATA)
{
    char base[MAX_PATH] = {};
    ::SHGetFolderPathA(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, 0, base);
    return std::string(base) + "\\Velorin";
}
inline std::string FolderFile(int csidl) { return VelorinFolder(csidl) + "\\VnLinkhost\\Konfiguration\\VnLinkhost.xml"; }
inline std::string PrimaryFile() { return FolderFile(CSIDL_LOCAL_APPDATA); }
inline std::string SecondaryFile() { return FolderFile(CSIDL_APPDATA); }
inline bool FileExists(const std::string& path) { return !(::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY); }
inline std::string ReadBytes(const std::string& path) { return FileExists(path) ? vn_test::ReadWholeFile(path) : "<missing>"; }
inline void WriteBytes(const std::string& path, const std::string& bytes)
{
    ::SHCreateDirectoryExA(nullptr, path.substr(0, path.rfind('\\')).c_str(), nullptr);
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
inline void RemovePath(const std::string& path)  // a file, or the folder a test put in its place
{
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    ::DeleteFileA(path.c_str());
    ::RemoveDirectoryA(path.c_str());
}

// A record as the tree writer gives it, with line feeds; CrLf turns them into the file's line ends (text mode).
inline std::string ToXml(const CConfigData& data)
{
    vfc::TBstr xml;
    return CVnLinkhostXMLConfigManager().ConfigDataToXML(&data, xml.put()) == S_OK ? vfc::Narrow(xml.str()) : "<failed>";
}
inline std::string CrLf(std::string text)
{
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2))
        text.insert(at, 1, '\r');
    return text;
}

class TConfigFilesGuard {
public:
    TConfigFilesGuard() { RemovePath(m_paths[0]), RemovePath(m_paths[1]); }
    ~TConfigFilesGuard()
    {
        for (int i = 0; i < 2; ++i) {
            RemovePath(m_paths[i]);
            if (m_saved[i] != "<missing>")
                WriteBytes(m_paths[i], m_saved[i]);
        }
    }

private:
    const std::string m_paths[2] = {PrimaryFile(), SecondaryFile()}, m_saved[2] = {ReadBytes(m_paths[0]), ReadBytes(m_paths[1])};
};

}  // namespace vn_config_test
