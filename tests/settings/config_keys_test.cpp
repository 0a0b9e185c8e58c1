#include <gtest/gtest.h>

#include "settings/config_keys.h"

namespace {

CConfigData Defaults()
{
    CConfigData data;
    data.SetDefaults();
    return data;
}

std::wstring Get(const CConfigData& data, const wchar_t* key, HRESULT expected = S_OK)
{
    std::wstring value = L"<untouched>";
    EXPECT_EQ(expected, vn_config::GetValue(data, key, value)) << key;
    return value;
}

TEST(ConfigKeys, DefaultsReadAsText)
{
    CConfigData data = Defaults();
    EXPECT_EQ(L"1", Get(data, L"dialup/mode"));
    EXPECT_EQ(L"", Get(data, L"dialup/dialConnectionName"));
    EXPECT_EQ(L"true", Get(data, L"dialup/useSystemConnection"));
    EXPECT_EQ(L"true", Get(data, L"proxy/useSystemProxy"));
    EXPECT_EQ(L"false", Get(data, L"proxy/skipHeadAuth"));
    EXPECT_EQ(L"0", Get(data, L"proxy/mode"));
    EXPECT_EQ(L"true", Get(data, L"proxy/noLocal"));
    EXPECT_EQ(L"proxy", Get(data, L"proxy/address"));
    EXPECT_EQ(L"8080", Get(data, L"proxy/port"));
    EXPECT_EQ(L"localhost", Get(data, L"proxy/exclude"));
    EXPECT_EQ(L"", Get(data, L"proxy/script"));
}

TEST(ConfigKeys, EveryKeyReachesItsOwnField)
{
    CConfigData data;  // zeroed
    struct { const wchar_t* key; const wchar_t* value; } sets[] = {
        {L"dialup/mode", L"2"}, {L"dialup/dialConnectionName", L"Büro"}, {L"dialup/useSystemConnection", L"true"},
        {L"proxy/useSystemProxy", L"true"}, {L"proxy/skipHeadAuth", L"true"}, {L"proxy/mode", L"3"},
        {L"proxy/noLocal", L"true"}, {L"proxy/address", L"cache.example"}, {L"proxy/port", L"3128"},
        {L"proxy/exclude", L"a;b"}, {L"proxy/script", L"http://wpad/x.pac"}};
    for (auto& s : sets)
        ASSERT_EQ(S_OK, vn_config::SetValue(data, s.key, s.value)) << s.key;
    EXPECT_EQ(2, data.m_DialMode);
    EXPECT_EQ("B\xFCro", data.m_DefaultConnection);  // narrowed to the ANSI code page
    EXPECT_TRUE(data.m_UseSystemConnection);
    EXPECT_TRUE(data.m_UseSystemProxy);
    EXPECT_TRUE(data.m_SkipHeadAuth);
    EXPECT_EQ(3, data.m_ProxyMode);
    EXPECT_TRUE(data.m_ProxyNoLocal);
    EXPECT_EQ("cache.example", data.m_ProxyAddress);
    EXPECT_EQ(3128, data.m_ProxyPort);
    EXPECT_EQ("a;b", data.m_ProxyExclude);
    EXPECT_EQ("http://wpad/x.pac", data.m_ProxyScript);
    EXPECT_EQ(0, data.m_SessionFlags);
    for (auto& s : sets)
        EXPECT_EQ(s.value, Get(data, s.key));
}

TEST(ConfigKeys, KeysAreCaseSensitiveAndUnknownKeysFail)
{
    CConfigData data = Defaults();
    EXPECT_EQ(L"<untouched>", Get(data, L"Proxy/mode", E_INVALIDARG));
    EXPECT_EQ(L"<untouched>", Get(data, L"proxy/mode ", E_INVALIDARG));
    EXPECT_EQ(L"<untouched>", Get(data, L"", E_INVALIDARG));
    EXPECT_EQ(E_INVALIDARG, vn_config::SetValue(data, L"Proxy/mode", L"2"));
    EXPECT_EQ(E_INVALIDARG, vn_config::SetValue(data, L"proxy/skip-head-authentication", L"true"));
    EXPECT_EQ(0, data.m_ProxyMode);
    EXPECT_FALSE(data.m_SkipHeadAuth);
}

TEST(ConfigKeys, IntegersTakeTheLeadingNumberWithoutValidation)
{
    CConfigData data = Defaults();
    struct { const wchar_t* in; int field; const wchar_t* out; } cases[] = {
        {L"abc", 0, L"0"}, {L"70000", 70000, L"70000"}, {L"12abc", 12, L"12"},
        {L"  42", 42, L"42"}, {L"-5", -5, L"-5"}, {L"", 0, L"0"}, {L"99999999", 99999999, L"99999999"}};
    for (auto& c : cases) {
        ASSERT_EQ(S_OK, vn_config::SetValue(data, L"proxy/port", c.in));
        EXPECT_EQ(c.field, data.m_ProxyPort) << c.in;
        EXPECT_EQ(c.out, Get(data, L"proxy/port")) << c.in;
    }
}

TEST(ConfigKeys, IntegerThatDoesNotFitTenCharactersGivesStatusOne)
{
    CConfigData data = Defaults();
    for (int value : {1000000000, -100000000, 2147483647}) {
        data.m_ProxyPort = value;
        EXPECT_EQ(L"<untouched>", Get(data, L"proxy/port", S_FALSE)) << value;
    }
    data.m_ProxyPort = 999999999;
    EXPECT_EQ(L"999999999", Get(data, L"proxy/port"));
    data.m_ProxyPort = -99999999;
    EXPECT_EQ(L"-99999999", Get(data, L"proxy/port"));
}

TEST(ConfigKeys, BooleansAreTrueOnlyForExactLowerCaseTrue)
{
    CConfigData data = Defaults();
    for (const wchar_t* text : {L"TRUE", L"True", L"1", L"yes", L"true ", L""}) {
        data.m_UseSystemProxy = true;
        ASSERT_EQ(S_OK, vn_config::SetValue(data, L"proxy/useSystemProxy", text));
        EXPECT_FALSE(data.m_UseSystemProxy) << text;
    }
    ASSERT_EQ(S_OK, vn_config::SetValue(data, L"proxy/useSystemProxy", L"true"));
    EXPECT_TRUE(data.m_UseSystemProxy);
}

}  // namespace
