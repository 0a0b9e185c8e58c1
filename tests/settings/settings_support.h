// Helpers of the settings tests: the prefix's own system settings, saved
// before a test changes them and put back afterwards, and the controls of
// the stand-in RASAPI32.DLL, Rasdlg.dll and Sensapi.dll.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>

#include <string>
#include <vector>

#include "common/test_util.h"
#include "settings/connection_manager.h"
#include "settings/connection_state.h"
#include "tests/doubles/rasapi32/standin_registry.h"

namespace vn_settings_test {

constexpr const char* kInternetSettings = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

// One registry value of the prefix, put back as it was (or removed again) at
// the end of the scope.
class TRegValueGuard {
public:
    TRegValueGuard(HKEY root, std::string key, std::string value)
        : m_root(root), m_key(std::move(key)), m_value(std::move(value))
    {
        DWORD size = 0;
        m_present = ::RegGetValueA(m_root, m_key.c_str(), m_value.c_str(), RRF_RT_ANY | RRF_NOEXPAND, &m_type, nullptr,
                                   &size) == ERROR_SUCCESS;
        if (m_present) {
            m_data.resize(size);
            ::RegGetValueA(m_root, m_key.c_str(), m_value.c_str(), RRF_RT_ANY | RRF_NOEXPAND, &m_type,
                           m_data.empty() ? nullptr : m_data.data(), &size);
            m_data.resize(size);
        }
    }
    ~TRegValueGuard()
    {
        if (m_present)
            ::RegSetKeyValueA(m_root, m_key.c_str(), m_value.c_str(), m_type, m_data.empty() ? nullptr : m_data.data(),
                              static_cast<DWORD>(m_data.size()));
        else
            ::RegDeleteKeyValueA(m_root, m_key.c_str(), m_value.c_str());
    }
    TRegValueGuard(const TRegValueGuard&) = delete;
    TRegValueGuard& operator=(const TRegValueGuard&) = delete;

private:
    HKEY m_root;
    std::string m_key, m_value;
    bool m_present = false;
    DWORD m_type = 0;
    std::vector<BYTE> m_data;
};

inline void SetDword(HKEY root, const char* key, const char* name, DWORD value)
{
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueA(root, key, name, REG_DWORD, &value, sizeof value)) << name;
}

inline void SetText(HKEY root, const char* key, const char* name, const std::string& text)
{
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueA(root, key, name, REG_SZ, text.c_str(), static_cast<DWORD>(text.size() + 1)))
        << name;
}

inline void SetBinary(HKEY root, const char* key, const char* name, const std::vector<BYTE>& bytes)
{
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueA(root, key, name, REG_BINARY, bytes.data(), static_cast<DWORD>(bytes.size())))
        << name;
}

inline void DeleteValue(HKEY root, const char* key, const char* name) { ::RegDeleteKeyValueA(root, key, name); }

// The values behind the LAN settings' per-connection options, the autodial
// values and the two places of the default dial-up entry, all saved.
class TSystemSettingsGuard {
public:
    TSystemSettingsGuard()
        : m_enable(HKEY_CURRENT_USER, kInternetSettings, "ProxyEnable"),
          m_server(HKEY_CURRENT_USER, kInternetSettings, "ProxyServer"),
          m_override(HKEY_CURRENT_USER, kInternetSettings, "ProxyOverride"),
          m_autodial(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial"),
          m_noNetAutodial(HKEY_CURRENT_USER, kInternetSettings, "NoNetAutodial"),
          m_profile(HKEY_CURRENT_USER, "RemoteAccess", "InternetProfile"),
          m_defaultInternet(HKEY_CURRENT_USER, "Software\\Microsoft\\RAS AutoDial\\Default", "DefaultInternet")
    {
    }

private:
    TRegValueGuard m_enable, m_server, m_override, m_autodial, m_noNetAutodial, m_profile, m_defaultInternet;
};

// The LAN proxy of the prefix through the registry values that the internet
// client keeps its per-connection options in. A null text removes the value.
inline void WriteLanProxy(bool enabled, const char* server, const char* bypass)
{
    SetDword(HKEY_CURRENT_USER, kInternetSettings, "ProxyEnable", enabled ? 1 : 0);
    if (server)
        SetText(HKEY_CURRENT_USER, kInternetSettings, "ProxyServer", server);
    else
        DeleteValue(HKEY_CURRENT_USER, kInternetSettings, "ProxyServer");
    if (bypass)
        SetText(HKEY_CURRENT_USER, kInternetSettings, "ProxyOverride", bypass);
    else
        DeleteValue(HKEY_CURRENT_USER, kInternetSettings, "ProxyOverride");
}

// The two autodial values as double words; a negative number removes one.
inline void WriteAutodial(int enableAutodial, int noNetAutodial)
{
    if (enableAutodial < 0)
        DeleteValue(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial");
    else
        SetDword(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial", static_cast<DWORD>(enableAutodial));
    if (noNetAutodial < 0)
        DeleteValue(HKEY_CURRENT_USER, kInternetSettings, "NoNetAutodial");
    else
        SetDword(HKEY_CURRENT_USER, kInternetSettings, "NoNetAutodial", static_cast<DWORD>(noNetAutodial));
}

// Controls of the stand-ins; every test starts from none of them set, which
// is a machine with RAS and an empty phone book, and a live LAN.
struct TStandIns {
    static void Reset()
    {
        for (const char* key : {vn_standin::kRasKey, vn_standin::kRasdlgKey, vn_standin::kSensapiKey})
            ::RegDeleteTreeA(HKEY_CURRENT_USER, key);
    }
    static void Entries(const std::vector<std::string>& names) { vn_standin::WriteList(vn_standin::kRasKey, "Entries", names); }
    static void Connected(const std::vector<std::string>& names)
    {
        vn_standin::WriteList(vn_standin::kRasKey, "Connected", names);
    }
    static std::vector<std::string> Connected() { return vn_standin::ReadList(vn_standin::kRasKey, "Connected"); }
    static void Ras(const char* name, DWORD value) { vn_standin::WriteDword(vn_standin::kRasKey, name, value); }
    static void Rasdlg(const char* name, DWORD value) { vn_standin::WriteDword(vn_standin::kRasdlgKey, name, value); }
    static void RasdlgDials(const std::string& entry) { vn_standin::WriteText(vn_standin::kRasdlgKey, "Dials", entry); }
    static void Network(BOOL alive, DWORD flags)
    {
        vn_standin::WriteDword(vn_standin::kSensapiKey, "Alive", alive);
        vn_standin::WriteDword(vn_standin::kSensapiKey, "Flags", flags);
    }
    static void SensapiUnloadable() { vn_standin::WriteDword(vn_standin::kSensapiKey, vn_standin::kUnloadable, 1); }
    static std::string RasCalls() { return vn_standin::ReadText(vn_standin::kRasKey, vn_standin::kCalls); }
    static std::string RasdlgCalls() { return vn_standin::ReadText(vn_standin::kRasdlgKey, vn_standin::kCalls); }
    static std::string SensapiCalls() { return vn_standin::ReadText(vn_standin::kSensapiKey, vn_standin::kCalls); }
    static void ClearCalls()
    {
        for (const char* key : {vn_standin::kRasKey, vn_standin::kRasdlgKey, vn_standin::kSensapiKey})
            ::RegDeleteKeyValueA(HKEY_CURRENT_USER, key, vn_standin::kCalls);
    }
};

inline int Occurrences(const std::string& text, const std::string& part)
{
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

// What the log gained since `offset`, with the line ends of the file's text
// mode turned back into the bare line feeds the messages were written with.
inline std::string LogTextSince(size_t offset)
{
    std::string text = vn_test::LogSince(offset), bare;
    for (char c : text)
        if (c != '\r')
            bare += c;
    return bare;
}

// A fixture for everything that dials: the stand-ins start clean, and at the
// end every link this process still owns is hung up through the product's own
// call, and the process-wide connection state is dropped, so that no test
// leaves a dial behind for the next.
class TDialFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        TStandIns::Reset();
        CVnConnectionState::DestroyInstance();
        ASSERT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned()) << "an earlier test left a dial behind";
    }
    void TearDown() override
    {
        // A state that claims a dial would hang up on destruction; the link
        // is ended below in any case.
        CVnConnectionState::getInstance()->m_bDialed = false;
        CVnConnectionState::DestroyInstance();
        vn_standin::WriteDword(vn_standin::kRasKey, "DeadHandles", 0);
        vn_standin::WriteDword(vn_standin::kRasKey, vn_standin::kUnloadable, 0);
        for (const std::string& entry : TStandIns::Connected())
            if (CVnLinkhostConnectionManager::ConnectionOwned())
                CVnLinkhostConnectionManager().DisconnectEntry(entry);
        EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned()) << "a dial of this test is still owned";
        TStandIns::Reset();
    }
};

}  // namespace vn_settings_test
