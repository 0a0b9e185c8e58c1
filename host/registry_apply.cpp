#include "host/registry_apply.h"

#include <shlwapi.h>

#include <cstdlib>

#include "vfc/unique_resource.h"

namespace vn_rgs {

namespace {

HKEY RootKey(const std::string& name)
{
    if (name == "HKCR" || name == "HKEY_CLASSES_ROOT")
        return HKEY_CLASSES_ROOT;
    if (name == "HKLM" || name == "HKEY_LOCAL_MACHINE")
        return HKEY_LOCAL_MACHINE;
    if (name == "HKCU" || name == "HKEY_CURRENT_USER")
        return HKEY_CURRENT_USER;
    return nullptr;
}

LONG SetValue(HKEY key, const Value& value)
{
    const char* name = value.name.empty() ? nullptr : value.name.c_str();
    if (value.type == 'd') {
        DWORD number = static_cast<DWORD>(std::strtoul(value.data.c_str(), nullptr, 0));
        return ::RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
    }
    return ::RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.data.c_str()),
                            static_cast<DWORD>(value.data.size() + 1));
}

LONG RegisterKey(HKEY parent, const Key& key)
{
    if (key.removal == Key::ForceRemove || key.removal == Key::Delete) {
        LONG rc = ::SHDeleteKeyA(parent, key.name.c_str());
        if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND)
            return rc;
        if (key.removal == Key::Delete)
            return ERROR_SUCCESS;
    }
    vfc::TRegKey handle;
    LONG rc = ::RegCreateKeyExA(parent, key.name.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                                handle.put(), nullptr);
    if (rc != ERROR_SUCCESS)
        return rc;
    if (key.hasDefault && (rc = SetValue(handle.get(), key.defaultValue)) != ERROR_SUCCESS)
        return rc;
    for (const Value& value : key.values)
        if ((rc = SetValue(handle.get(), value)) != ERROR_SUCCESS)
            return rc;
    for (const Key& child : key.children)
        if ((rc = RegisterKey(handle.get(), child)) != ERROR_SUCCESS)
            return rc;
    return ERROR_SUCCESS;
}

LONG UnregisterKey(HKEY parent, const Key& key)
{
    if (key.removal != Key::NoRemove) {
        LONG rc = ::SHDeleteKeyA(parent, key.name.c_str());
        return rc == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : rc;
    }
    vfc::TRegKey handle;
    LONG rc = ::RegOpenKeyExA(parent, key.name.c_str(), 0, KEY_READ | KEY_WRITE, handle.put());
    if (rc == ERROR_FILE_NOT_FOUND)
        return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS)
        return rc;
    for (const Key& child : key.children)
        if ((rc = UnregisterKey(handle.get(), child)) != ERROR_SUCCESS)
            return rc;
    return ERROR_SUCCESS;
}

HRESULT Walk(const Script& script, LONG (*fn)(HKEY, const Key&))
{
    for (const Key& root : script.roots) {
        HKEY hive = RootKey(root.name);
        if (!hive)
            return E_INVALIDARG;
        for (const Key& child : root.children) {
            LONG rc = fn(hive, child);
            if (rc != ERROR_SUCCESS)
                return HRESULT_FROM_WIN32(rc);
        }
    }
    return S_OK;
}

}  // namespace

HRESULT Register(const Script& script) { return Walk(script, RegisterKey); }

HRESULT Unregister(const Script& script) { return Walk(script, UnregisterKey); }

HRESULT RunResourceScript(UINT id, const Replacements& replacements, bool doRegister)
{
    HMODULE module = ::GetModuleHandleA(nullptr);
    HRSRC found = ::FindResourceA(module, MAKEINTRESOURCEA(id), "REGISTRY");
    if (!found)
        return HRESULT_FROM_WIN32(::GetLastError());
    HGLOBAL loaded = ::LoadResource(module, found);
    const char* data = loaded ? static_cast<const char*>(::LockResource(loaded)) : nullptr;
    if (!data)
        return HRESULT_FROM_WIN32(::GetLastError());
    std::string text(data, ::SizeofResource(module, found));
    std::string substituted, error;
    Script script;
    if (!Substitute(text, replacements, substituted, error) || !Parse(substituted, script, error))
        return E_UNEXPECTED;
    return doRegister ? Register(script) : Unregister(script);
}

}  // namespace vn_rgs
