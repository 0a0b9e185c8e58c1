#include "settings/system_keys.h"

#include "settings/session_connection.h"
#include "vfc/text.h"

namespace vn_config {

HRESULT GetSystemValue(const std::wstring& name, std::wstring& value, bool& handled)
{
    static const char kProxyFamily[] = "ie/proxy/";
    static const char kDialUpFamily[] = "ie/dialup/";
    handled = false;
    const std::string key = vfc::Narrow(name);
    if (key.compare(0, sizeof kProxyFamily - 1, kProxyFamily) == 0) {
        handled = true;
        value = vfc::Widen(CVnSessionConnection::GetIEProxy(key));
    } else if (key.compare(0, sizeof kDialUpFamily - 1, kDialUpFamily) == 0) {
        handled = true;
        value = vfc::Widen(CVnSessionConnection::GetIEDialUp(key));
    }
    return S_OK;
}

}  // namespace vn_config
