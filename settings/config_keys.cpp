#include "settings/config_keys.h"

#include <cstdio>
#include <cstdlib>

#include "host/log.h"
#include "settings/system_keys.h"
#include "settings/xml_config_manager.h"
#include "vfc/bstr.h"
#include "vfc/text.h"

namespace vn_config {

namespace {

enum class Kind { Integer, Boolean, Text };

struct RecordKey {
    const wchar_t* name;
    Kind kind;
    int CConfigData::*integer;
    bool CConfigData::*boolean;
    std::string CConfigData::*text;
};

constexpr RecordKey Int(const wchar_t* name, int CConfigData::*field) { return {name, Kind::Integer, field, nullptr, nullptr}; }
constexpr RecordKey Bool(const wchar_t* name, bool CConfigData::*field) { return {name, Kind::Boolean, nullptr, field, nullptr}; }
constexpr RecordKey Text(const wchar_t* name, std::string CConfigData::*field) { return {name, Kind::Text, nullptr, nullptr, field}; }

// The whole record as the text of the configuration file.
const wchar_t kXmlConfigKey[] = L"_xmlconfig";

// The record keys; the key text is not the element path of the file.
const RecordKey kRecordKeys[] = {
    Int(L"dialup/mode", &CConfigData::m_DialMode),
    Text(L"dialup/dialConnectionName", &CConfigData::m_DefaultConnection),
    Bool(L"dialup/useSystemConnection", &CConfigData::m_UseSystemConnection),
    Bool(L"proxy/useSystemProxy", &CConfigData::m_UseSystemProxy),
    Bool(L"proxy/skipHeadAuth", &CConfigData::m_SkipHeadAuth),
    Int(L"proxy/mode", &CConfigData::m_ProxyMode),
    Bool(L"proxy/noLocal", &CConfigData::m_ProxyNoLocal),
    Text(L"proxy/address", &CConfigData::m_ProxyAddress),
    Int(L"proxy/port", &CConfigData::m_ProxyPort),
    Text(L"proxy/exclude", &CConfigData::m_ProxyExclude),
    Text(L"proxy/script", &CConfigData::m_ProxyScript),
};

const RecordKey* FindKey(const std::wstring& name)
{
    for (const RecordKey& key : kRecordKeys)
        if (name == key.name)
            return &key;
    return nullptr;
}

void LogUnknown(const char* method) { LogLine(vn_log::kError, method, "Unknown configuration parameter"); }

// The record as the file's text, with bare line feeds, built by a manager
// made for the call.
HRESULT GetXmlConfig(const CConfigData& data, std::wstring& value)
{
    CVnLinkhostXMLConfigManager manager;
    vfc::TBstr xml;
    const HRESULT hr = manager.ConfigDataToXML(&data, xml.put());
    if (hr == S_OK)
        value = xml.str();
    return hr;
}

// Overlays the record with what the text holds; elements it leaves out keep
// the record's values.
HRESULT SetXmlConfig(CConfigData& data, const std::wstring& value)
{
    CVnLinkhostXMLConfigManager manager;
    vfc::TBstr xml(value);
    CConfigData* record = &data;
    return manager.XMLToConfigData(xml.get(), &record);
}

}  // namespace

HRESULT GetValue(const CConfigData& data, const std::wstring& name, std::wstring& value)
{
    const RecordKey* key = FindKey(name);
    if (!key) {
        if (name == kXmlConfigKey)
            return GetXmlConfig(data, value);
        // The read-only views of the system's settings come after the record.
        bool handled = false;
        HRESULT hr = GetSystemValue(name, value, handled);
        if (handled)
            return hr;
        LogUnknown("CVnLinkhostObject::GetConfigurationValue");
        return E_INVALIDARG;
    }
    switch (key->kind) {
    case Kind::Integer: {
        // Ten characters with the terminator: nine digits, or a sign and eight.
        char buffer[10];
        int n = std::snprintf(buffer, sizeof buffer, "%d", data.*(key->integer));
        if (n < 0 || n >= static_cast<int>(sizeof buffer)) {
            LogLine(vn_log::kError, "CVnLinkhostObject::GetConfigurationValue", "Can not convert integer value");
            return S_FALSE;
        }
        value = vfc::Widen(buffer);
        return S_OK;
    }
    case Kind::Boolean:
        value = data.*(key->boolean) ? L"true" : L"false";
        return S_OK;
    case Kind::Text:
        value = vfc::Widen(data.*(key->text));
        return S_OK;
    }
    return E_UNEXPECTED;
}

HRESULT SetValue(CConfigData& data, const std::wstring& name, const std::wstring& value)
{
    const RecordKey* key = FindKey(name);
    if (!key) {
        if (name == kXmlConfigKey)
            return SetXmlConfig(data, value);
        // The "ie/" views are read-only: setting one is an unknown key.
        LogUnknown("CVnLinkhostObject::SetConfigurationValue");
        return E_INVALIDARG;
    }
    switch (key->kind) {
    case Kind::Integer:
        data.*(key->integer) = static_cast<int>(std::strtol(vfc::Narrow(value).c_str(), nullptr, 10));
        break;
    case Kind::Boolean:
        data.*(key->boolean) = value == L"true";
        break;
    case Kind::Text:
        data.*(key->text) = vfc::Narrow(value);
        break;
    }
    return S_OK;
}

}  // namespace vn_config
