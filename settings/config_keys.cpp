#include "settings/config_keys.h"

#include <cstdio>
#include <cstdlib>

#include "host/log.h"
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

}  // namespace

HRESULT GetValue(const CConfigData& data, const std::wstring& name, std::wstring& value)
{
    const RecordKey* key = FindKey(name);
    if (!key) {
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
