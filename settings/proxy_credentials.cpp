#include "settings/proxy_credentials.h"

#include <atomic>
#include <map>

#include "host/log.h"
#include "host/platform_seams.h"
#include "host/status.h"
#include "vfc/critical_section.h"
#include "vfc/text.h"

namespace {

// Puts a login on a request handle: the user option unless the login is
// empty, the password option unless the password is empty. The platform's
// error of the first option it refuses, logged under `method`; 0 otherwise.
LONG SetLoginOptions(HINTERNET hRequest, DWORD userOption, DWORD passwordOption, const std::string& login,
                     const std::string& password, const char* method)
{
    const DWORD options[2] = {userOption, passwordOption};
    const std::string* texts[2] = {&login, &password};
    for (int i = 0; i < 2; ++i) {
        if (texts[i]->empty())
            continue;
        const DWORD error = VnINetApiHandlers::SetTextOption(hRequest, options[i], *texts[i]);
        if (error) {
            LogLine(vn_log::kErrorDec, method, "InternetSetOption failed", static_cast<int>(error));
            return static_cast<LONG>(error);
        }
    }
    return 0;
}

using VnINetApiHandlers::QueryTextOption;
using VnINetApiHandlers::SetTextOption;

constexpr DWORD kDialogFlags =
    FLAGS_ERROR_UI_FILTER_FOR_ERRORS | FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS | FLAGS_ERROR_UI_FLAGS_GENERATE_DATA;

// The map of proxy logins typed or found in this process, keyed by the proxy
// text as the request uses it. It is never destroyed: a request may still ask
// for a login while the process ends.
struct TLoginMap {
    struct TLogin {
        std::string login;
        std::string password;
    };
    vfc::TCriticalSection lock;
    std::map<std::string, TLogin> entries;
};

TLoginMap& Logins()
{
    static TLoginMap* map = new TLoginMap;
    return *map;
}

// One server password dialog at a time in the whole process.
vfc::TCriticalSection& ServerDialogLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;
    return *lock;
}

// Guards the making and the release of the two process-wide objects. The
// pointers are atomic so that the common case, an object that exists, takes
// no lock.
vfc::TCriticalSection& FactoryLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;
    return *lock;
}

std::atomic<IVnCredentialsManager*> g_pCredentialsManager{nullptr};
std::atomic<VnINetApiHandlers::WinINetHandler*> g_pINetApiHandler{nullptr};

// Windows XP, Server 2003, Vista and 7 have the Credential Manager with its
// prompt; older systems and anything the classification does not know keep
// their logins in the LSA store.
bool HasCredentialManager()
{
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;
    if (!::GetVersionExA(&info) || info.dwPlatformId != VER_PLATFORM_WIN32_NT)
        return false;
    if (info.dwMajorVersion == 5)
        return info.dwMinorVersion == 1 || info.dwMinorVersion == 2;
    return info.dwMajorVersion == 6;
}

IVnCredentialsManager* MakeCredentialsManager()
{
    if (HasCredentialManager()) {
        try {
            return new VnCredentialsManagers::WinCredCredentialsManager;
        } catch (...) {
            // A missing CREDUI.DLL or entry point: the LSA store takes over.
        }
    }
    return new VnCredentialsManagers::LSACredentialsManager;
}

}  // namespace

LONG CVnProxyCredentials::GetProxyCredentials(const std::string& proxy, HINTERNET hRequest, HWND hWnd, int iMode)
{
    if (!hRequest)
        return -1;
    if (iMode != 0) {
        std::string login, password;
        if (GetPassLogin(proxy, login, password) == 0) {
            // The password is never logged.
            LogLine("INFO: Login information was gotten from the storage %s %s %s", proxy.c_str(), login.c_str(), "***");
            const LONG error = SetLoginOptions(hRequest, INTERNET_OPTION_PROXY_USERNAME, INTERNET_OPTION_PROXY_PASSWORD,
                                               login, password, "CVnProxyCredentials::GetProxyCredentials");
            if (error)
                return error;
            return 0;
        }
        if (iMode == 2)
            return 0;
    }
    IVnCredentialsManager* manager = GetCredentialsManager();
    IINetApiHandler* handler = GetINetApiHandler();
    if (manager->GetCredentials(hWnd, proxy, hRequest, handler, iMode, true))
        return ERROR_INTERNET_FORCE_RETRY;
    return VN_E_PROXY_LOGIN_CANCELLED;
}

LONG CVnProxyCredentials::GetServerCredentials(HINTERNET hRequest, HWND hWnd, int iMode, std::string& login,
                                               std::string& password)
{
    if (!hRequest)
        return -1;
    if (iMode != 0 && !login.empty()) {
        LONG error = _setServerCredentials(hRequest, login, password);
        if (error)
            return error;
        return iMode == 2 ? 0 : ERROR_INTERNET_FORCE_RETRY;
    }

    DWORD result;
    {
        vfc::TLock lock(ServerDialogLock());
        ::SetLastError(0);
        result = PlatformSeams().InternetErrorDlg(hWnd ? hWnd : ::GetDesktopWindow(), hRequest,
                                                  ERROR_INTERNET_INCORRECT_PASSWORD, kDialogFlags, nullptr);
    }
    if (result == ERROR_INTERNET_FORCE_RETRY) {
        // The dialog has put the typed login on the handle; the request keeps
        // it in its own texts for the passes that follow.
        std::string typedLogin, typedPassword;
        DWORD error = QueryTextOption(hRequest, INTERNET_OPTION_USERNAME, typedLogin);
        if (!error)
            error = QueryTextOption(hRequest, INTERNET_OPTION_PASSWORD, typedPassword);
        if (error)
            return static_cast<LONG>(error);
        login.swap(typedLogin);
        password.swap(typedPassword);
        return ERROR_INTERNET_FORCE_RETRY;
    }
    if (result == ERROR_CANCELLED)
        return VN_E_SERVER_LOGIN_CANCELLED;
    return static_cast<LONG>(result);
}

LONG CVnProxyCredentials::GetPassLogin(const std::string& proxy, std::string& login, std::string& password)
{
    try {
        TLoginMap& map = Logins();
        vfc::TLock lock(map.lock);
        auto it = map.entries.find(proxy);
        if (it == map.entries.end())
            return -1;
        login = it->second.login;
        password = it->second.password;
        return 0;
    } catch (...) {
        LogLine(vn_log::kError, "CVnProxyCredentials::GetPassLogin", "Unknown exception.");
        return -1;
    }
}

void CVnProxyCredentials::_saveCredentials(const std::string& proxy, const std::string& login,
                                           const std::string& password)
{
    try {
        TLoginMap& map = Logins();
        vfc::TLock lock(map.lock);
        auto it = map.entries.find(proxy);
        if (it != map.entries.end() && (it->second.login != login || it->second.password != password)) {
            map.entries.erase(it);
            it = map.entries.end();
        }
        if (it == map.entries.end())
            map.entries.emplace(proxy, TLoginMap::TLogin{login, password});
    } catch (...) {
        LogLine(vn_log::kError, "CVnProxyCredentials::_saveCredentials", "Unknown exception.");
    }
}

LONG CVnProxyCredentials::_setServerCredentials(HINTERNET hRequest, const std::string& login,
                                                const std::string& password)
{
    return SetLoginOptions(hRequest, INTERNET_OPTION_USERNAME, INTERNET_OPTION_PASSWORD, login, password,
                           "CVnProxyCredentials::_setServerCredentials");
}

IVnCredentialsManager* GetCredentialsManager()
{
    IVnCredentialsManager* manager = g_pCredentialsManager.load(std::memory_order_acquire);
    if (manager)
        return manager;
    vfc::TLock lock(FactoryLock());
    manager = g_pCredentialsManager.load(std::memory_order_relaxed);
    if (!manager) {
        manager = MakeCredentialsManager();
        g_pCredentialsManager.store(manager, std::memory_order_release);
    }
    return manager;
}

IINetApiHandler* GetINetApiHandler()
{
    VnINetApiHandlers::WinINetHandler* handler = g_pINetApiHandler.load(std::memory_order_acquire);
    if (handler)
        return handler;
    vfc::TLock lock(FactoryLock());
    handler = g_pINetApiHandler.load(std::memory_order_relaxed);
    if (!handler) {
        handler = new VnINetApiHandlers::WinINetHandler;
        g_pINetApiHandler.store(handler, std::memory_order_release);
    }
    return handler;
}

void ReleaseCredentialObjects()
{
    vfc::TLock lock(FactoryLock());
    delete g_pCredentialsManager.exchange(nullptr);
    delete g_pINetApiHandler.exchange(nullptr);
}
