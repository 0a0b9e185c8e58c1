#include "settings/xml_config_manager.h"

#include <windows.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "host/log.h"
#include "host/status.h"
#include "vfc/text.h"
#include "xml/xml_pull_parser_exception.h"

namespace {

const char* const kSubfolder = "Velorin\\VnLinkhost\\Konfiguration";

const char* const kXsd = "CVnLinkhostXMLConfigManager::GetXsdFileName";
const char* const kSave = "CVnLinkhostXMLConfigManager::SaveConfiguration";
const char* const kLoad = "CVnLinkhostXMLConfigManager::LoadConfiguration";
const char* const kToXml = "CVnLinkhostXMLConfigManager::ConfigDataToXML";
const char* const kFromXml = "CVnLinkhostXMLConfigManager::XMLToConfigData";

// The indent of the file: one tab per level.
const char* const kIndent = "\t";

// Creates every level of an absolute, canonical path below its drive, from
// the outside in. A level that exists already counts as made.
bool CreateFolderLevels(const std::string& path)
{
    for (size_t i = 0; i <= path.size(); ++i) {
        if (i != path.size() && path[i] != '\\')
            continue;
        const std::string level = path.substr(0, i);
        if (level.empty() || level.back() == ':' || level.back() == '\\')
            continue;  // the drive, or the leading backslashes of a share
        if (!::CreateDirectoryA(level.c_str(), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS)
            return false;
    }
    return true;
}

// "<folder csidl>\Velorin\VnLinkhost\Konfiguration", made absolute and
// canonical and created; false when any step fails.
bool GetConfigFolder(int csidl, std::string& folder)
{
    folder.clear();
    char base[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathA(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, 0, base)))
        return false;
    char joined[MAX_PATH] = {};
    if (!::PathCombineA(joined, base, kSubfolder))
        return false;
    if (::PathIsRelativeA(joined)) {
        const std::string relative = joined;
        char current[MAX_PATH] = {};
        if (!::GetCurrentDirectoryA(MAX_PATH, current) || !::PathCombineA(joined, current, relative.c_str()))
            return false;
    }
    char canonical[MAX_PATH] = {};
    if (!::PathCanonicalizeA(canonical, joined))
        return false;
    if (!CreateFolderLevels(canonical))
        return false;
    folder = canonical;
    return true;
}

const char* BoolText(bool value) { return value ? "true" : "false"; }

// The decimal number at the start of a text, as the runtime reads it: leading
// blanks are skipped, and a text without a number gives 0. No range check.
int LeadingNumber(const std::string& text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

// Adds a child holding a number in decimal. The conversion is the runtime's
// checked one; its error number comes back (0 on success).
int AddNumber(VnNode* parent, const char* name, int value, const char* failure)
{
    char buffer[255] = {};
    const errno_t error = ::_itoa_s(value, buffer, sizeof buffer, 10);
    if (error != 0) {
        LogLine(vn_log::kErrorDec, kToXml, failure, static_cast<int>(error));
        return error;
    }
    parent->AddChild(name)->SetValue(buffer);
    return 0;
}

}  // namespace

std::string CVnLinkhostXMLConfigManager::_GetConfigFilePath(int csidl)
{
    std::string folder;
    GetConfigFolder(csidl, folder);
    // A failed folder leaves a bare "\VnLinkhost.xml": the path is never empty.
    return folder + "\\" + kFileName;
}

HRESULT CVnLinkhostXMLConfigManager::GetXsdFileName(std::string& path)
{
    path.clear();
    try {
        const std::string config = _GetConfigFilePath(CSIDL_LOCAL_APPDATA);
        if (config.empty() || config.size() >= MAX_PATH) {
            LogLine(vn_log::kError, kXsd, "Invalid path.");
            return S_OK;
        }
        char buffer[MAX_PATH] = {};
        config.copy(buffer, config.size());
        buffer[config.size()] = '\0';
        if (!::PathRenameExtensionA(buffer, ".xsd")) {
            LogLine(vn_log::kError, kXsd, "PathRenameExtension failed.");
            return S_OK;
        }
        path = buffer;
    } catch (...) {
        path.clear();
    }
    return S_OK;
}

HRESULT CVnLinkhostXMLConfigManager::ConfigDataToXML(const CConfigData* pData, BSTR* pbstrXml)
{
    if (!pData || !pbstrXml)
        return E_POINTER;
    *pbstrXml = nullptr;
    try {
        if (!IsEmpty())
            Clear();
        SetHead(kHead);

        // Owned here until it becomes the document's root, so an early
        // return frees the part built so far.
        auto root = std::make_unique<VnNode>();
        root->SetName("VnLinkhostConfig");

        VnNode* dialUp = root->AddChild("DialUp");
        dialUp->SetAttribute("useSystemConnection", BoolText(pData->m_UseSystemConnection));
        if (int error = AddNumber(dialUp, "Mode", pData->m_DialMode, "Invalid value of DialMode."))
            return error;
        dialUp->AddChild("DialConnectionName")->SetValue(pData->m_DefaultConnection);

        VnNode* proxy = root->AddChild("Proxy");
        proxy->SetAttribute("useSystemProxy", BoolText(pData->m_UseSystemProxy));
        if (int error = AddNumber(proxy, "Mode", pData->m_ProxyMode, "Invalid value of ProxyMode."))
            return error;
        proxy->AddChild("Address")->SetValue(pData->m_ProxyAddress);
        if (int error = AddNumber(proxy, "Port", pData->m_ProxyPort, "Invalid value of ProxyPort."))
            return error;
        proxy->AddChild("NoLocal")->SetValue(BoolText(pData->m_ProxyNoLocal));
        proxy->AddChild("Exclude")->SetValue(pData->m_ProxyExclude);
        proxy->AddChild("Script")->SetValue(pData->m_ProxyScript);

        // The flag is written only when it is set; its absence means false.
        if (pData->m_SkipHeadAuth)
            root->AddChild("skip-head-authentication")->SetValue("true");

        SetRoot(root.release());

        std::ostringstream text;
        Write(text, kIndent);
        const std::wstring wide = vfc::Widen(text.str());
        *pbstrXml = ::SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
        if (!*pbstrXml)
            return E_OUTOFMEMORY;
        return S_OK;
    } catch (...) {
        LogLine(vn_log::kError, kToXml, "Exception catched.");
        Clear();
        return VN_E_CONFIG_XML;
    }
}

HRESULT CVnLinkhostXMLConfigManager::SaveConfiguration(const CConfigData* pData)
{
    BSTR bstrXml = nullptr;
    const HRESULT hr = ConfigDataToXML(pData, &bstrXml);
    // Only the tree is written; the text is not needed.
    ::SysFreeString(bstrXml);
    if (FAILED(hr))
        return hr;

    try {
        const std::string path = _GetConfigFilePath(CSIDL_LOCAL_APPDATA);
        if (path.empty())
            LogLine(vn_log::kError, kSave, "Invalid path.");

        // Whatever the file was marked with (read-only, hidden), it is saved,
        // and it keeps none of those marks.
        const DWORD attributes = ::GetFileAttributesA(path.c_str());
        ::SetFileAttributesA(path.c_str(), attributes & 0);

        // Text mode: every line feed of the tree becomes CR LF on disk. The
        // runtime opens files shared with readers and writers.
        std::ofstream file(path, std::ios::out | std::ios::trunc);
        if (!file.is_open()) {
            LogLine(vn_log::kWarning, kSave, "Cannot save file.");
            return S_FALSE;
        }
        try {
            Write(file, kIndent);
        } catch (...) {
            // The wording names the load on purpose; it is the line known from the field.
            LogLine(vn_log::kError, kLoad, "XML exception catched. Fail to save file.");
            return VN_E_CONFIG_XML;
        }
        file.close();
    } catch (...) {
        LogLine(vn_log::kError, kLoad, "XML exception catched. Fail to save file.");
        return VN_E_CONFIG_XML;
    }
    return hr;
}

HRESULT CVnLinkhostXMLConfigManager::LoadConfiguration(CConfigData** ppData)
{
    if (!ppData || !*ppData)
        return E_POINTER;
    try {
        Clear();

        std::string path = _GetConfigFilePath(CSIDL_LOCAL_APPDATA);
        if (path.empty())
            LogLine(vn_log::kError, kLoad, "Invalid path.");
        std::ifstream file(path, std::ios::in);
        bool bFromSecondary = false;
        if (!file.is_open()) {
            path = _GetConfigFilePath(CSIDL_APPDATA);
            if (path.empty())
                LogLine(vn_log::kError, kLoad, "Invalid path.");
            file.clear();
            file.open(path, std::ios::in);
            if (!file.is_open()) {
                LogLine(vn_log::kWarning, kLoad, "Cannot open file.");
                return S_FALSE;
            }
            bFromSecondary = true;
        }

        try {
            Load(file);
        } catch (...) {
            // XmlPullParserException, or anything else the reading threw: the
            // partial tree goes, and the record is not touched.
            file.close();
            Clear();
            LogLine(vn_log::kError, kLoad, "XML exception catched. Cannot load file.");
            return VN_E_CONFIG_XML;
        }
        file.close();

        const HRESULT hr = XMLToConfigData(nullptr, ppData);
        if (FAILED(hr)) {
            LogLine(vn_log::kErrorDec, kLoad, "XMLToConfigData failed.", static_cast<int>(hr));
            return hr;
        }
        // The settings move into the local folder; the roaming file stays
        // where it is, and a failure of this save changes nothing for the load.
        if (bFromSecondary)
            SaveConfiguration(*ppData);
        return hr;
    } catch (...) {
        Clear();
        LogLine(vn_log::kError, kLoad, "XML exception catched. Cannot load file.");
        return VN_E_CONFIG_XML;
    }
}

HRESULT CVnLinkhostXMLConfigManager::XMLToConfigData(BSTR bstrXml, CConfigData** ppData)
{
    if (!ppData || !*ppData)
        return E_POINTER;
    try {
        if (IsEmpty()) {
            Clear();
            std::istringstream text(vfc::Narrow(bstrXml, ::SysStringLen(bstrXml)));
            if (!text) {
                LogLine(vn_log::kWarning, kLoad, "Cannot open string.");
                return S_FALSE;
            }
            try {
                Load(text);
            } catch (...) {
                // A fragment of a text that can't be parsed is not read.
                Clear();
                throw;
            }
            if (IsEmpty()) {
                LogLine(vn_log::kWarning, kLoad, "Cannot load string.");
                return S_FALSE;
            }
        }
        if (!GetRoot()) {
            LogLine(vn_log::kError, kFromXml, "Document root element is NULL.");
            return VN_E_CONFIG_XML;
        }
        _ReadTree(**ppData);
        return S_OK;
    } catch (...) {
        LogLine(vn_log::kError, kFromXml, "Exception catched.");
        return VN_E_CONFIG_XML;
    }
}

void CVnLinkhostXMLConfigManager::_ReadTree(CConfigData& data)
{
    // Every lookup searches a whole subtree by name, so "Mode" is looked for
    // below its own section. The root's name is not checked: any root
    // element is read as the configuration.
    VnNode* root = GetRoot();

    if (VnNode* proxy = root->FindNode("Proxy")) {
        // An absent attribute reads as false, like any text but "true".
        data.m_UseSystemProxy = proxy->GetAttribute("useSystemProxy") == "true";
        if (VnNode* node = proxy->FindNode("Mode"))
            data.m_ProxyMode = LeadingNumber(node->GetValue());
        if (VnNode* node = proxy->FindNode("Address"))
            data.m_ProxyAddress = node->GetValue();
        if (VnNode* node = proxy->FindNode("Port"))
            data.m_ProxyPort = LeadingNumber(node->GetValue());
        if (VnNode* node = proxy->FindNode("NoLocal"))
            data.m_ProxyNoLocal = node->GetValue() == "true";
        if (VnNode* node = proxy->FindNode("Exclude"))
            data.m_ProxyExclude = node->GetValue();
        if (VnNode* node = proxy->FindNode("Script"))
            data.m_ProxyScript = node->GetValue();
    }

    if (VnNode* dialUp = root->FindNode("DialUp")) {
        data.m_UseSystemConnection = dialUp->GetAttribute("useSystemConnection") == "true";
        if (VnNode* node = dialUp->FindNode("Mode"))
            data.m_DialMode = LeadingNumber(node->GetValue());
        if (VnNode* node = dialUp->FindNode("DialConnectionName"))
            data.m_DefaultConnection = node->GetValue();
    }

    if (VnNode* node = root->FindNode("skip-head-authentication"))
        data.m_SkipHeadAuth = node->GetValue() == "true";
}
