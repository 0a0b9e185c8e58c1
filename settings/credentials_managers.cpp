#include "settings/credentials_managers.h"

#include <cstring>
#include <stdexcept>

#include "host/log.h"
#include "res/resource.h"
#include "vfc/critical_section.h"
#include "vfc/text.h"

namespace VnCredentialsManagers {

namespace {

constexpr wchar_t kSeparator = 31;  // the unit separator between login and password
constexpr const wchar_t* kLsaSecretPrefix = L"L$Velorin.VnLinkhost.ProxyCredentials$";
constexpr ACCESS_MASK kPolicyAccess = POLICY_GET_PRIVATE_INFORMATION | POLICY_CREATE_SECRET;

// The platform's limits of a generic credential.
constexpr size_t kMaxTargetChars = 32767;
constexpr size_t kMaxLoginChars = 513;
constexpr size_t kMaxPasswordBytes = 2560;

// The prompt's buffers: the longest login and password and a terminator each.
constexpr ULONG kPromptLoginChars = CREDUI_MAX_USERNAME_LENGTH + 1;
constexpr ULONG kPromptPasswordChars = CREDUI_MAX_PASSWORD_LENGTH + 1;

// Each manager holds its lock over a whole GetCredentials, the dialog
// included, so that only one proxy dialog is open at a time and a second
// request for a login waits for the first. Never destroyed: a request may
// still run while the process ends.
vfc::TCriticalSection& LsaManagerLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;
    return *lock;
}

vfc::TCriticalSection& WinCredManagerLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;
    return *lock;
}

// A counted string over `text`, which must outlive it. False when the text is
// too long for a count of 16 bits.
bool MakeCountedString(std::wstring& text, LSA_UNICODE_STRING& counted)
{
    const size_t bytes = text.size() * sizeof(wchar_t);
    if (bytes + sizeof(wchar_t) > 0xFFFF)
        return false;
    counted.Length = static_cast<USHORT>(bytes);
    counted.MaximumLength = static_cast<USHORT>(bytes + sizeof(wchar_t));
    counted.Buffer = &text[0];
    return true;
}

// A string of the executable's string table, in wide text so that the
// prompt's umlaut does not depend on the ANSI code page.
std::wstring LoadWideString(UINT id)
{
    wchar_t buffer[1024] = {};
    int length = ::LoadStringW(::GetModuleHandleW(nullptr), id, buffer, ARRAYSIZE(buffer));
    return length > 0 ? std::wstring(buffer, static_cast<size_t>(length)) : std::wstring();
}

// Replaces the one "%s" of a resource format with `argument`.
std::wstring FillPlaceholder(std::wstring format, const std::wstring& argument)
{
    size_t at = format.find(L"%s");
    if (at != std::wstring::npos)
        format.replace(at, 2, argument);
    return format;
}

template <typename Fn>
bool Resolve(HMODULE module, const char* name, Fn& function)
{
    function = reinterpret_cast<Fn>(::GetProcAddress(module, name));
    return function != nullptr;
}

void Wipe(std::wstring& text)
{
    if (!text.empty())
        ::SecureZeroMemory(&text[0], text.size() * sizeof(wchar_t));
    text.clear();
}

void Wipe(std::string& text)
{
    if (!text.empty())
        ::SecureZeroMemory(&text[0], text.size());
    text.clear();
}

}  // namespace

void SplitLsaSecret(const std::wstring& value, std::wstring& login, std::wstring& password)
{
    size_t at = value.find(kSeparator);
    if (at == std::wstring::npos || at + 1 == value.size()) {
        login = value;
        password.clear();
        return;
    }
    login = value.substr(0, at);
    password = value.substr(at + 1);
}

// ---------------------------------------------------------------------------
// LSACredentialsManager

LSACredentialsManager::LSACredentialsManager()
{
    m_hAdvapi.reset(::LoadLibraryA("Advapi32.dll"));
    if (!m_hAdvapi) {
        LogLine(vn_log::kError, "CVnProxyCredentials::CredentialsStorage::ctor", "Advapi32.dll was not loaded.");
        return;
    }
    HMODULE module = m_hAdvapi.get();
    bool resolved = Resolve(module, "LsaOpenPolicy", m_pfnLsaOpenPolicy);
    resolved = Resolve(module, "LsaClose", m_pfnLsaClose) && resolved;
    resolved = Resolve(module, "LsaRetrievePrivateData", m_pfnLsaRetrievePrivateData) && resolved;
    resolved = Resolve(module, "LsaStorePrivateData", m_pfnLsaStorePrivateData) && resolved;
    resolved = Resolve(module, "LsaFreeMemory", m_pfnLsaFreeMemory) && resolved;
    resolved = Resolve(module, "LsaNtStatusToWinError", m_pfnLsaNtStatusToWinError) && resolved;
    if (!resolved) {
        LogLine(vn_log::kError, "CVnProxyCredentials::CredentialsStorage::ctor",
                "Some/all methods from Advapi32.dll were not found.");
        return;
    }
    m_bLoaded = true;
}

bool LSACredentialsManager::GetCredentials(HWND hWnd, const std::string& name, HINTERNET hHandle,
                                           IINetApiHandler* pHandleModifier, int iMode, bool bSave)
{
    // No name means no proxy to keep a login for: the caller simply repeats.
    if (name.empty())
        return true;
    // Both texts name the other manager; they are known by these words.
    if (!hHandle)
        throw std::invalid_argument("WinCredCredentialsManager::GetCredentials called with lpHandle == NULL");
    if (!pHandleModifier)
        throw std::invalid_argument("WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL");

    std::wstring wName = vfc::Widen(name);
    vfc::TLock lock(LsaManagerLock());

    std::wstring login, password;
    bool bFound = iMode != 0 && RetrieveCredentials(wName, login, password);
    if (iMode != 2 && !bFound) {
        if (!pHandleModifier->ShowDialog(hHandle, hWnd))
            return false;
        if (bSave) {
            std::string typedLogin, typedPassword;
            if (pHandleModifier->GetCredentials(hHandle, typedLogin, typedPassword) && !typedLogin.empty()) {
                std::wstring wLogin = vfc::Widen(typedLogin), wPassword = vfc::Widen(typedPassword);
                StoreCredentials(wName, wLogin, wPassword);
                Wipe(wPassword);
            }
            Wipe(typedPassword);
        }
        // The platform's dialog has put the login on the handle already.
        return true;
    }
    bool bSet = pHandleModifier->SetCredentials(hHandle, name, vfc::Narrow(login), vfc::Narrow(password));
    Wipe(password);
    return bSet;
}

LSA_HANDLE LSACredentialsManager::_getPolicyHandle()
{
    LSA_OBJECT_ATTRIBUTES attributes;
    std::memset(&attributes, 0, sizeof attributes);
    LSA_HANDLE policy = nullptr;
    NTSTATUS status = m_pfnLsaOpenPolicy(nullptr, &attributes, kPolicyAccess, &policy);
    if (status != 0) {
        LogLine(vn_log::kErrorDec, "CVnProxyCredentials::CredentialsStorage::_getPolicyHandle", "LsaOpenPolicy failed.",
                static_cast<int>(m_pfnLsaNtStatusToWinError(status)));
        return nullptr;
    }
    return policy;
}

bool LSACredentialsManager::StoreCredentials(const std::wstring& name, const std::wstring& login,
                                             const std::wstring& password)
{
    if (!m_bLoaded || name.empty() || login.empty())
        return false;
    std::wstring keyText = std::wstring(kLsaSecretPrefix) + name;
    std::wstring valueText = login + kSeparator + password;
    LSA_UNICODE_STRING key, value;
    if (!MakeCountedString(keyText, key) || !MakeCountedString(valueText, value)) {
        Wipe(valueText);
        return false;
    }
    LSA_HANDLE policy = _getPolicyHandle();
    if (!policy) {
        Wipe(valueText);
        return false;
    }
    // The platform's verdict on the write is not looked at: a value that did
    // not stick is asked for again after the next start, which is all the
    // user would notice.
    m_pfnLsaStorePrivateData(policy, &key, &value);
    m_pfnLsaClose(policy);
    Wipe(valueText);
    return true;
}

bool LSACredentialsManager::RetrieveCredentials(const std::wstring& name, std::wstring& login,
                                                std::wstring& password)
{
    if (!m_bLoaded)
        return false;
    std::wstring keyText = std::wstring(kLsaSecretPrefix) + name;
    LSA_UNICODE_STRING key;
    if (!MakeCountedString(keyText, key))
        return false;
    LSA_HANDLE policy = _getPolicyHandle();
    if (!policy)
        return false;
    PLSA_UNICODE_STRING data = nullptr;
    bool bFound = false;
    if (m_pfnLsaRetrievePrivateData(policy, &key, &data) == 0 && data) {
        std::wstring value;
        if (data->Buffer && data->Length)
            value.assign(data->Buffer, data->Length / sizeof(wchar_t));
        SplitLsaSecret(value, login, password);
        Wipe(value);
        m_pfnLsaFreeMemory(data);
        bFound = true;
    }
    m_pfnLsaClose(policy);
    return bFound;
}

// ---------------------------------------------------------------------------
// WinCredCredentialsManager

WinCredCredentialsManager::WinCredCredentialsManager()
{
    m_hAdvapi.reset(::LoadLibraryA("ADVAPI32.DLL"));
    m_hCredUI.reset(::LoadLibraryA("CREDUI.DLL"));
    if (!m_hAdvapi || !m_hCredUI)
        throw std::runtime_error("WinCredCredentialsManager::ctor() could not load DLLs, please default back to LSA!!");
    bool resolved = Resolve(m_hAdvapi.get(), "CredWriteW", m_pfnCredWriteW);
    resolved = Resolve(m_hAdvapi.get(), "CredReadW", m_pfnCredReadW) && resolved;
    resolved = Resolve(m_hAdvapi.get(), "CredFree", m_pfnCredFree) && resolved;
    resolved = Resolve(m_hCredUI.get(), "CredUIPromptForCredentialsW", m_pfnCredUIPromptForCredentialsW) && resolved;
    if (!resolved)
        throw std::runtime_error(
            "WinCredCredentialsManager::ctor() could not resolve certain DLL entry points, please default back to LSA!!");
}

bool WinCredCredentialsManager::GetCredentials(HWND hWnd, const std::string& name, HINTERNET hHandle,
                                               IINetApiHandler* pHandleModifier, int iMode, bool bSave)
{
    if (name.empty())
        return true;
    if (!pHandleModifier)
        throw std::invalid_argument("WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL");

    std::wstring wName = vfc::Widen(name);
    vfc::TLock lock(WinCredManagerLock());

    std::wstring login, password;
    bool bFound = iMode != 0 && RetrieveCredentials(wName, login, password);
    if (iMode != 2 && !bFound) {
        bool bTick = bSave;
        if (!_prompt(hWnd, name, login, password, bTick))
            return false;
        // Without the tick the login holds for this process only, and the
        // user is asked again after a restart.
        if (bSave && bTick)
            StoreCredentials(wName, login, password);
    }
    // Whether typed or found, the login goes on the handle and into the map.
    bool bSet = pHandleModifier->SetCredentials(hHandle, name, vfc::Narrow(login), vfc::Narrow(password));
    Wipe(password);
    return bSet;
}

bool WinCredCredentialsManager::_prompt(HWND hWnd, const std::string& name, std::wstring& login,
                                        std::wstring& password, bool& bSave)
{
    std::wstring wName = vfc::Widen(name);
    std::wstring message = FillPlaceholder(LoadWideString(IDS_PROXY_PASSWORD_PROMPT), wName);
    std::wstring caption = LoadWideString(IDS_PROJNAME);
    CREDUI_INFOW info;
    std::memset(&info, 0, sizeof info);
    info.cbSize = sizeof info;
    info.hwndParent = hWnd;
    info.pszMessageText = message.c_str();
    info.pszCaptionText = caption.c_str();
    info.hbmBanner = nullptr;

    wchar_t typedLogin[kPromptLoginChars] = {};
    wchar_t typedPassword[kPromptPasswordChars] = {};
    BOOL tick = bSave ? TRUE : FALSE;
    // Without ALWAYS_SHOW_UI the prompt answers by itself, with no window,
    // from a credential the Credential Manager holds for the target: after
    // the proxy turned the stored login down, that is the same login again,
    // and the dialogue would send it for ever. The prompt is only called
    // when the user is to answer.
    DWORD flags = CREDUI_FLAGS_GENERIC_CREDENTIALS | CREDUI_FLAGS_DO_NOT_PERSIST | CREDUI_FLAGS_EXCLUDE_CERTIFICATES |
                  CREDUI_FLAGS_ALWAYS_SHOW_UI;
    if (bSave)
        flags |= CREDUI_FLAGS_SHOW_SAVE_CHECK_BOX;
    DWORD result = m_pfnCredUIPromptForCredentialsW(&info, wName.c_str(), nullptr, 0, typedLogin, kPromptLoginChars,
                                                    typedPassword, kPromptPasswordChars, &tick, flags);
    if (result == NO_ERROR) {
        // The prompt terminates what it gives back; the last element makes sure of it.
        typedLogin[kPromptLoginChars - 1] = L'\0';
        typedPassword[kPromptPasswordChars - 1] = L'\0';
        login = typedLogin;
        password = typedPassword;
        bSave = tick != FALSE;
        // Wine's prompt gives a name typed without a domain back behind
        // "<target>\", generic credentials or not; Windows gives it as
        // typed. The target is the proxy's name and never a domain, so the
        // proxy gets what the user typed, and so does the store.
        const std::wstring targetPart = wName + L'\\';
        if (login.size() > targetPart.size() && login.compare(0, targetPart.size(), targetPart) == 0)
            login.erase(0, targetPart.size());
    }
    ::SecureZeroMemory(typedPassword, sizeof typedPassword);
    return result == NO_ERROR;
}

bool WinCredCredentialsManager::StoreCredentials(const std::wstring& name, const std::wstring& login,
                                                 const std::wstring& password)
{
    if (name.empty() || name.size() > kMaxTargetChars || login.empty() || login.size() > kMaxLoginChars ||
        password.size() * sizeof(wchar_t) > kMaxPasswordBytes)
        return false;
    CREDENTIALW credential;
    std::memset(&credential, 0, sizeof credential);
    credential.Flags = 0;
    credential.Type = CRED_TYPE_GENERIC;
    credential.TargetName = const_cast<LPWSTR>(name.c_str());
    credential.Comment = nullptr;
    // The blob is the password's characters without a terminator.
    credential.CredentialBlobSize = static_cast<DWORD>(password.size() * sizeof(wchar_t));
    credential.CredentialBlob =
        password.empty() ? nullptr : reinterpret_cast<LPBYTE>(const_cast<wchar_t*>(password.data()));
    credential.Persist = CRED_PERSIST_LOCAL_MACHINE;
    credential.AttributeCount = 0;
    credential.Attributes = nullptr;
    credential.TargetAlias = nullptr;
    credential.UserName = const_cast<LPWSTR>(login.c_str());
    return m_pfnCredWriteW(&credential, 0) != FALSE;
}

bool WinCredCredentialsManager::RetrieveCredentials(const std::wstring& name, std::wstring& login,
                                                    std::wstring& password)
{
    if (name.empty() || name.size() > kMaxTargetChars)
        return false;
    PCREDENTIALW credential = nullptr;
    if (!m_pfnCredReadW(name.c_str(), CRED_TYPE_GENERIC, 0, &credential) || !credential)
        return false;
    login = credential->UserName ? credential->UserName : L"";
    password.clear();
    if (credential->CredentialBlob && credential->CredentialBlobSize >= sizeof(wchar_t)) {
        password.resize(credential->CredentialBlobSize / sizeof(wchar_t));
        std::memcpy(&password[0], credential->CredentialBlob, password.size() * sizeof(wchar_t));
    }
    m_pfnCredFree(credential);
    return true;
}

}  // namespace VnCredentialsManagers
