// The stores at rest for proxy logins, one per kind of system: the LSA secret
// store, and the Credential Manager with its password prompt. The factory
// GetCredentialsManager (settings/proxy_credentials.h) picks one by the
// system's version and keeps the one process-wide instance.
#pragma once

#include <windows.h>
#include <wininet.h>
#include <ntsecapi.h>
#include <wincred.h>

#include <string>

#include "settings/inet_api_handler.h"
#include "vfc/unique_resource.h"

class IVnCredentialsManager {
public:
    // Finds a login for the proxy `name` and puts it on the request handle
    // through `pHandleModifier`. iMode 0 asks the user at once, 1 reads the
    // store first and asks when nothing is there, 2 reads the store and never
    // asks. With `bSave` a login the user typed is written to the store.
    // False when the user turned the dialog down.
    virtual bool GetCredentials(HWND hWnd, const std::string& name, HINTERNET hHandle,
                                IINetApiHandler* pHandleModifier, int iMode, bool bSave) = 0;
    virtual ~IVnCredentialsManager() = default;
};

namespace VnCredentialsManagers {

// The LSA private data store: one secret per proxy, named
// "L$Velorin.VnLinkhost.ProxyCredentials$" and the proxy's name, holding the
// login, the character 31 and the password. Advapi32.dll is loaded by name
// when the manager is made and held for its life; without it every store
// operation gives false and the manager behaves as if nothing were stored.
class LSACredentialsManager final : public IVnCredentialsManager {
public:
    LSACredentialsManager();

    // Throws std::invalid_argument for a null handle or handler.
    bool GetCredentials(HWND hWnd, const std::string& name, HINTERNET hHandle, IINetApiHandler* pHandleModifier,
                        int iMode, bool bSave) override;

    // The store's two operations, public so that the store can be examined on
    // its own. The write gives true once the store was reached, whether or not
    // the platform kept the value; false when the store can't be used or the
    // name or login is empty.
    bool StoreCredentials(const std::wstring& name, const std::wstring& login, const std::wstring& password);
    bool RetrieveCredentials(const std::wstring& name, std::wstring& login, std::wstring& password);

    // Whether Advapi32.dll and its six functions were found.
    bool IsUsable() const { return m_bLoaded; }

private:
    using PFN_LsaOpenPolicy = NTSTATUS(NTAPI*)(PLSA_UNICODE_STRING, PLSA_OBJECT_ATTRIBUTES, ACCESS_MASK, PLSA_HANDLE);
    using PFN_LsaClose = NTSTATUS(NTAPI*)(LSA_HANDLE);
    using PFN_LsaRetrievePrivateData = NTSTATUS(NTAPI*)(LSA_HANDLE, PLSA_UNICODE_STRING, PLSA_UNICODE_STRING*);
    using PFN_LsaStorePrivateData = NTSTATUS(NTAPI*)(LSA_HANDLE, PLSA_UNICODE_STRING, PLSA_UNICODE_STRING);
    using PFN_LsaFreeMemory = NTSTATUS(NTAPI*)(PVOID);
    using PFN_LsaNtStatusToWinError = ULONG(NTAPI*)(NTSTATUS);

    // Opens the policy for reading and creating secrets; null with a log
    // line when that is refused. The caller closes it with m_pfnLsaClose.
    LSA_HANDLE _getPolicyHandle();

    vfc::TModule m_hAdvapi;
    bool m_bLoaded = false;
    PFN_LsaOpenPolicy m_pfnLsaOpenPolicy = nullptr;
    PFN_LsaClose m_pfnLsaClose = nullptr;
    PFN_LsaRetrievePrivateData m_pfnLsaRetrievePrivateData = nullptr;
    PFN_LsaStorePrivateData m_pfnLsaStorePrivateData = nullptr;
    PFN_LsaFreeMemory m_pfnLsaFreeMemory = nullptr;
    PFN_LsaNtStatusToWinError m_pfnLsaNtStatusToWinError = nullptr;
};

// The Credential Manager: one generic credential per proxy, the proxy's name
// as the target, the login as the user name and the password as the blob in
// wide characters. ADVAPI32.DLL and CREDUI.DLL are loaded by name when the
// manager is made and held for its life.
class WinCredCredentialsManager final : public IVnCredentialsManager {
public:
    // Throws std::runtime_error when a library or one of its four functions
    // is missing; the factory then falls back to the LSA store.
    WinCredCredentialsManager();

    // Throws std::invalid_argument for a null handler.
    bool GetCredentials(HWND hWnd, const std::string& name, HINTERNET hHandle, IINetApiHandler* pHandleModifier,
                        int iMode, bool bSave) override;

    // The store's two operations. The write keeps to the platform's limits:
    // a target of 1 to 32767 characters, a login of 1 to 513 characters and a
    // password of at most 1280 characters (2560 bytes); outside them nothing
    // is written and the result is false.
    bool StoreCredentials(const std::wstring& name, const std::wstring& login, const std::wstring& password);
    bool RetrieveCredentials(const std::wstring& name, std::wstring& login, std::wstring& password);

private:
    // The password prompt of CREDUI.DLL. False when the user cancelled or the
    // prompt failed; `bSave` in and out is the save tick.
    bool _prompt(HWND hWnd, const std::string& name, std::wstring& login, std::wstring& password, bool& bSave);

    using PFN_CredWriteW = BOOL(WINAPI*)(PCREDENTIALW, DWORD);
    using PFN_CredReadW = BOOL(WINAPI*)(LPCWSTR, DWORD, DWORD, PCREDENTIALW*);
    using PFN_CredFree = VOID(WINAPI*)(PVOID);
    using PFN_CredUIPromptForCredentialsW = DWORD(WINAPI*)(PCREDUI_INFOW, PCWSTR, PCtxtHandle, DWORD, PWSTR, ULONG,
                                                           PWSTR, ULONG, BOOL*, DWORD);

    vfc::TModule m_hAdvapi;
    vfc::TModule m_hCredUI;
    PFN_CredWriteW m_pfnCredWriteW = nullptr;
    PFN_CredReadW m_pfnCredReadW = nullptr;
    PFN_CredFree m_pfnCredFree = nullptr;
    PFN_CredUIPromptForCredentialsW m_pfnCredUIPromptForCredentialsW = nullptr;
};

// The content of an LSA secret split at the first character 31: the part
// before it is the login and the part after it the password. Without the
// character, or with it as the last character, the whole text is the login
// and the password is empty.
void SplitLsaSecret(const std::wstring& value, std::wstring& login, std::wstring& password);

}  // namespace VnCredentialsManagers
