// The proxy settings of the system's LAN connection, as the internet client
// keeps them per connection, and the two ways the system reads them: into a
// session's working record, and as the texts of the "ie/proxy/" keys.
// Reading the platform and interpreting what it said are kept apart, so that
// the interpretation stands on its own.
#pragma once

#include <windows.h>

#include <string>

#include "settings/config_data.h"

namespace vn_settings {

// The connection flags of the per-connection options.
constexpr DWORD kProxyTypeManual = 2;  // PROXY_TYPE_PROXY
constexpr DWORD kProxyTypeScript = 4;  // PROXY_TYPE_AUTO_PROXY_URL
constexpr DWORD kProxyTypeAuto = 8;    // PROXY_TYPE_AUTO_DETECT

// What one query of the five options gave. A text the platform did not give
// at all is marked absent, which is not the same as an empty one.
struct TSystemProxySettings {
    DWORD m_dwFlags = 0;           // option 1, the connection flags
    DWORD m_dwDiscoveryFlags = 0;  // option 5
    bool m_bHasScript = false;     // option 4, the script address
    std::string m_strScript;
    bool m_bHasBypass = false;     // option 3, the bypass list
    std::string m_strBypass;
    bool m_bHasServer = false;     // option 2, the proxy server
    std::string m_strServer;
};

// One InternetQueryOptionA with no handle for the LAN settings, asking for
// the options 4, 5, 1, 3, 2 in this order; the platform's texts are released
// with GlobalFree. False with the platform's error when the query fails.
bool QuerySystemProxySettings(TSystemProxySettings& settings, DWORD& error);

// Overwrites the proxy fields of a working record from the system:
//   - the mode: manual beats script, script beats automatic detection, and
//     with none of the three bits it is ProxyNone;
//   - the script address, or empty;
//   - the bypass list with its first "<local>" cut out (the separator beside
//     it stays), and the no-local mark whether it was there;
//   - the server text cut at its first colon, the rest read as the port; a
//     text with no colon keeps the record's port, no text at all gives an
//     empty address and port 0.
// m_UseSystemProxy and the fields outside the proxy are left alone.
void ApplySystemProxySettings(const TSystemProxySettings& settings, CConfigData& data);

// The value of one "ie/proxy/" key, the key given in full; an unknown word
// after the prefix gives an empty text.
std::string SystemProxyKeyText(const TSystemProxySettings& settings, const std::string& key);

}  // namespace vn_settings
