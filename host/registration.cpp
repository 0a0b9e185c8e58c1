// Registering and unregistering the server: the registry script, the AppID's
// LocalService value, the type library, the service and the plug-in category.
#include "host/module.h"

#include <comcat.h>
#include <oleauto.h>

#include <cstring>
#include <string>

#include "host/identities.h"
#include "res/resource.h"
#include "host/registry_apply.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "vfc/unique_resource.h"
#include "web/stream_marshal.h"

namespace {

std::string ModuleFilePath()
{
    char path[MAX_PATH] = {};
    DWORD n = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    return n > 0 && n < MAX_PATH ? std::string(path, n) : std::string();
}

// Opens HKCR\AppID\{AppID} for writing, creating the key if asked.
LONG OpenAppIdKey(vfc::TRegKey& key, bool create)
{
    vfc::TRegKey appIds;
    LONG rc = ::RegOpenKeyExA(HKEY_CLASSES_ROOT, "AppID", 0, KEY_WRITE, appIds.put());
    if (rc != ERROR_SUCCESS)
        return rc;
    if (create)
        return ::RegCreateKeyExA(appIds.get(), vn_id::kAppId, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                                 key.put(), nullptr);
    return ::RegOpenKeyExA(appIds.get(), vn_id::kAppId, 0, KEY_WRITE, key.put());
}

HRESULT RegisterTypeLibrary()
{
    std::wstring path = vfc::Widen(ModuleFilePath());
    vfc::TComPtr<ITypeLib> lib;
    return ::LoadTypeLibEx(path.c_str(), REGKIND_REGISTER, lib.put());
}

HRESULT UnregisterTypeLibrary()
{
    // Nothing to do for a library that is not registered.
    vfc::TRegKey key;
    std::string path = std::string("TypeLib\\") + vn_id::kLibId;
    if (::RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS)
        return S_OK;
    key.reset();
    HRESULT hr = ::UnRegisterTypeLib(vn_id::kLibGuid, 1, 0, LOCALE_NEUTRAL, sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32);
    // A library that was never registered is not an error here.
    return hr == TYPE_E_REGISTRYACCESS || hr == TYPE_E_LIBNOTREGISTERED ? S_OK : hr;
}

HRESULT RegisterPluginCategory()
{
    vfc::TComPtr<ICatRegister> registrar;
    HRESULT hr = ::CoCreateInstance(CLSID_StdComponentCategoriesMgr, nullptr, CLSCTX_ALL, IID_ICatRegister,
                                    registrar.put_void());
    if (FAILED(hr))
        return hr;
    CATEGORYINFO info = {};
    info.catid = vn_id::kPluginCategory;
    info.lcid = 0x800;
    std::wstring description = vfc::Widen(vn_id::kPluginCategoryDescription);
    wcsncpy(info.szDescription, description.c_str(), 127);
    return registrar->RegisterCategories(1, &info);
}

// The unmarshaller DLLs of read streams found beside the exe, each in the
// registry view of its bitness (only the 32-bit one on a 32-bit system):
// what an earlier registration left is removed first, and with `install`
// the DLLs that are there now are entered.
HRESULT RegisterStreamUnmarshalers(bool install)
{
    const std::string exe = ModuleFilePath();
    const std::string folder = exe.substr(0, exe.find_last_of('\\') + 1);
    const std::string clsidKey = std::string("CLSID\\") + vn_id::kStreamUnmarshalClsid;
    const struct {
        const char* file;
        REGSAM view;
        bool applies;
    } kDlls[] = {{vn_id::kStreamDll32, KEY_WOW64_32KEY, true}, {vn_id::kStreamDll64, KEY_WOW64_64KEY, SystemIs64Bit()}};
    for (const auto& dll : kDlls) {
        if (!dll.applies)
            continue;
        ::RegDeleteKeyExA(HKEY_CLASSES_ROOT, (clsidKey + "\\InprocServer32").c_str(), dll.view, 0);
        ::RegDeleteKeyExA(HKEY_CLASSES_ROOT, clsidKey.c_str(), dll.view, 0);
        const std::string path = folder + dll.file;
        if (!install || ::GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
            continue;
        vfc::TRegKey key, server;
        LONG rc = ::RegCreateKeyExA(HKEY_CLASSES_ROOT, clsidKey.c_str(), 0, nullptr, 0, KEY_WRITE | dll.view, nullptr,
                                    key.put(), nullptr);
        if (rc == ERROR_SUCCESS)
            rc = ::RegSetValueExA(key.get(), nullptr, 0, REG_SZ,
                                  reinterpret_cast<const BYTE*>(vn_id::kStreamUnmarshalDescription),
                                  static_cast<DWORD>(std::strlen(vn_id::kStreamUnmarshalDescription) + 1));
        if (rc == ERROR_SUCCESS)
            rc = ::RegCreateKeyExA(key.get(), "InprocServer32", 0, nullptr, 0, KEY_WRITE | dll.view, nullptr,
                                   server.put(), nullptr);
        if (rc == ERROR_SUCCESS)
            rc = ::RegSetValueExA(server.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                                  static_cast<DWORD>(path.size() + 1));
        if (rc == ERROR_SUCCESS)
            rc = ::RegSetValueExA(server.get(), "ThreadingModel", 0, REG_SZ, reinterpret_cast<const BYTE*>("Both"), 5);
        if (rc != ERROR_SUCCESS)
            return HRESULT_FROM_WIN32(rc);
    }
    return S_OK;
}

}  // namespace

vn_rgs::Replacements CVnLinkhostModule::AddCommonRGSReplacements()
{
    std::string path = ModuleFilePath();
    std::string file = path.substr(path.find_last_of('\\') + 1);
    std::string module = path.find(' ') == std::string::npos ? path : "\"" + path + "\"";
    return {{"MODULE", module},         {"MODULEFILE", file},           {"PROGID", vn_id::kProgId},
            {"VERSION", vn_id::kVersion}, {"DESCRIPTION", vn_id::kDescription}, {"THREADING", vn_id::kThreading},
            {"APPID", vn_id::kAppId},     {"CLSID", vn_id::kClsid},       {"LIBID", vn_id::kLibId}};
}

HRESULT CVnLinkhostModule::RegisterHost(bool asService)
{
    if (!RemoveService())
        return E_FAIL;
    HRESULT hr = vn_rgs::RunResourceScript(IDR_VNLINKHOST, AddCommonRGSReplacements(), true);
    if (FAILED(hr))
        return hr;
    vfc::TRegKey appId;
    LONG rc = OpenAppIdKey(appId, true);
    if (rc != ERROR_SUCCESS)
        return HRESULT_FROM_WIN32(rc);
    ::RegDeleteValueA(appId.get(), "LocalService");
    if (asService) {
        rc = ::RegSetValueExA(appId.get(), "LocalService", 0, REG_SZ, reinterpret_cast<const BYTE*>(m_szServiceName),
                              static_cast<DWORD>(std::strlen(m_szServiceName) + 1));
        if (rc != ERROR_SUCCESS)
            return HRESULT_FROM_WIN32(rc);
        if (!InstallService())
            return E_FAIL;
    }
    hr = RegisterTypeLibrary();
    if (FAILED(hr))
        return hr;
    hr = RegisterStreamUnmarshalers(true);
    if (FAILED(hr))
        return hr;
    return RegisterPluginCategory();
}

HRESULT CVnLinkhostModule::UnregisterHost()
{
    HRESULT hr = UnregisterTypeLibrary();
    if (FAILED(hr))
        return hr;
    if (!RemoveService())
        return E_FAIL;
    vfc::TRegKey appId;
    if (OpenAppIdKey(appId, false) == ERROR_SUCCESS)
        ::RegDeleteValueA(appId.get(), "LocalService");
    RegisterStreamUnmarshalers(false);
    return vn_rgs::RunResourceScript(IDR_VNLINKHOST, AddCommonRGSReplacements(), false);
}
