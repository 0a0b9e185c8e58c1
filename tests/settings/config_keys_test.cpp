#include <gtest/gtest.h>

#include "settings/config_keys.h"

#include "common/test_util.h"
#include "host/root_object.h"
#include "host/status.h"
#include "tests/settings/config_file_support.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"

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

// ---------------------------------------------------------------------------
// "_xmlconfig": the whole record as the text of the configuration file, and
// the read-only "ie/" families beside the record keys.

using vn_config_test::kKnownFile;

TEST(ConfigKeysXml, ReadGivesTheRecordAsTheFileTextWithBareLineFeeds)
{
    CConfigData data = Defaults();
    data.m_SkipHeadAuth = true;
    const std::wstring text = Get(data, L"_xmlconfig");
    EXPECT_EQ(vfc::Widen(kKnownFile), text);
    EXPECT_EQ(std::wstring::npos, text.find(L'\r'));
}

TEST(ConfigKeysXml, ReadShowsTextFieldsWidenedFromTheAnsiCodePage)
{
    CConfigData data = Defaults();
    data.m_DefaultConnection = "B\xFCro";
    EXPECT_NE(std::wstring::npos, Get(data, L"_xmlconfig").find(L"<DialConnectionName>B\u00FCro</DialConnectionName>"));
}

TEST(ConfigKeysXml, SetOverlaysOnlyTheElementsTheTextHolds)
{
    CConfigData data = Defaults();
    data.m_ProxyScript = "http://wpad/kept.pac";
    ASSERT_EQ(S_OK, vn_config::SetValue(data, L"_xmlconfig",
                                        L"<VnLinkhostConfig><Proxy useSystemProxy = \"false\"><Port>3128</Port>"
                                        L"<Address>B\u00FCro.example</Address></Proxy></VnLinkhostConfig>"));
    CConfigData expected = Defaults();
    expected.m_ProxyScript = "http://wpad/kept.pac";
    expected.m_UseSystemProxy = false;
    expected.m_ProxyPort = 3128;
    expected.m_ProxyAddress = "B\xFC" "ro.example";
    EXPECT_TRUE(vn_config_test::SameRecord(expected, data));
}

TEST(ConfigKeysXml, WhatIsReadCanBeSetBackOntoAnotherRecord)
{
    CConfigData source = Defaults();
    source.m_ProxyMode = ProxyManual;
    source.m_ProxyAddress = "cache.example";
    source.m_DialMode = DialAlways;
    source.m_DefaultConnection = "ISDN";
    source.m_UseSystemConnection = false;
    source.m_SkipHeadAuth = true;
    CConfigData target;  // zeroed
    ASSERT_EQ(S_OK, vn_config::SetValue(target, L"_xmlconfig", Get(source, L"_xmlconfig")));
    EXPECT_TRUE(vn_config_test::SameRecord(source, target));
}

TEST(ConfigKeysXml, SetWithoutARootElementGivesOneAndLeavesTheRecord)
{
    for (const wchar_t* text : {L"", L"<?xml version=\"1.0\"?>", L"plain words"}) {
        CConfigData data = Defaults();
        data.m_ProxyAddress = "kept";
        EXPECT_EQ(S_FALSE, vn_config::SetValue(data, L"_xmlconfig", text)) << text;
        CConfigData expected = Defaults();
        expected.m_ProxyAddress = "kept";
        EXPECT_TRUE(vn_config_test::SameRecord(expected, data)) << text;
    }
}

TEST(ConfigKeysXml, SetWithTextThatCannotBeParsedGivesConfigXmlAndLeavesTheRecord)
{
    CConfigData data = Defaults();
    EXPECT_EQ(VN_E_CONFIG_XML, vn_config::SetValue(data, L"_xmlconfig",
                                                   L"<c><Proxy><Port>1</Port><Address>a&b</Address></Proxy></c>"));
    EXPECT_TRUE(vn_config_test::SameRecord(Defaults(), data));
}

TEST(ConfigKeysXml, KeyIsCaseSensitive)
{
    CConfigData data = Defaults();
    EXPECT_EQ(L"<untouched>", Get(data, L"_XmlConfig", E_INVALIDARG));
    EXPECT_EQ(E_INVALIDARG, vn_config::SetValue(data, L"_xmlconfig ", L"<c><Proxy><Port>1</Port></Proxy></c>"));
    EXPECT_EQ(8080, data.m_ProxyPort);
}

TEST(ConfigKeysSystem, UnknownWordsOfTheTwoFamiliesGiveEmptyTextAndOtherIeKeysAreUnknown)
{
    CConfigData data = Defaults();
    EXPECT_EQ(L"", Get(data, L"ie/proxy/colour"));
    EXPECT_EQ(L"", Get(data, L"ie/dialup/colour"));
    EXPECT_EQ(L"", Get(data, L"ie/proxy/"));
    const size_t log = vn_test::LogSize();
    EXPECT_EQ(L"<untouched>", Get(data, L"ie/other/mode", E_INVALIDARG));
    EXPECT_EQ(L"<untouched>", Get(data, L"ie/proxy", E_INVALIDARG));
    EXPECT_EQ(L"<untouched>", Get(data, L"IE/proxy/mode-auto", E_INVALIDARG));
    EXPECT_EQ(3, vn_test::CountLogLinesSince(
                     log, "Error in method [CVnLinkhostObject::GetConfigurationValue]. Message: Unknown configuration "
                          "parameter"));
}

TEST(ConfigKeysSystem, SystemKeysAreAnsweredWhateverTheRecordSays)
{
    CConfigData one = Defaults(), other;
    other.m_ProxyAddress = "record.example";
    other.m_DialMode = DialAlways;
    for (const wchar_t* key : {L"ie/proxy/address", L"ie/proxy/mode-manual", L"ie/dialup/mode"})
        EXPECT_EQ(Get(one, key), Get(other, key)) << key;
    const std::wstring mode = Get(one, L"ie/dialup/mode");
    EXPECT_TRUE(mode == L"never" || mode == L"required" || mode == L"always") << mode;
}

TEST(ConfigKeysSystem, SettingAnySystemKeyIsAnUnknownKey)
{
    CConfigData data = Defaults();
    const size_t log = vn_test::LogSize();
    for (const wchar_t* key : {L"ie/proxy/address", L"ie/proxy/mode-auto", L"ie/dialup/mode", L"ie/proxy/colour"})
        EXPECT_EQ(E_INVALIDARG, vn_config::SetValue(data, key, L"x")) << key;
    EXPECT_TRUE(vn_config_test::SameRecord(Defaults(), data));
    EXPECT_EQ(4, vn_test::CountLogLinesSince(
                     log, "Error in method [CVnLinkhostObject::SetConfigurationValue]. Message: Unknown configuration "
                          "parameter"));
}

// Through the root object, with the file of the test prefix.
class ConfigKeysRootObject : public testing::Test {
protected:
    vn_config_test::TConfigFilesGuard m_files;
};

TEST_F(ConfigKeysRootObject, XmlShowsAChangedKeyThatTheFileOnDiskDoesNotHave)
{
    vn_config_test::WriteBytes(vn_config_test::PrimaryFile(), vn_config_test::WithCrLf(kKnownFile));
    CVnLinkhostObject* raw = nullptr;
    ASSERT_EQ(S_OK, CVnLinkhostObject::Create(&raw));
    vfc::TComPtr<CVnLinkhostObject> root;
    root.attach(raw);

    vfc::TBstr address(L"proxy/address"), newAddress(L"changed.example"), xmlKey(L"_xmlconfig"), xml;
    ASSERT_EQ(S_OK, root->SetConfigurationValue(address.get(), newAddress.get()));
    ASSERT_EQ(S_OK, root->GetConfigurationValue(xmlKey.get(), xml.put()));
    std::string expected = kKnownFile;
    expected.replace(expected.find("<Address>proxy<"), 15, "<Address>changed.example<");
    EXPECT_EQ(vfc::Widen(expected), xml.str());
    EXPECT_EQ(vn_config_test::WithCrLf(kKnownFile), vn_config_test::ReadBytes(vn_config_test::PrimaryFile()));
}

TEST_F(ConfigKeysRootObject, XmlSetWithoutARootElementGivesOneThroughTheRootObject)
{
    CVnLinkhostObject* raw = nullptr;
    ASSERT_EQ(S_OK, CVnLinkhostObject::Create(&raw));
    vfc::TComPtr<CVnLinkhostObject> root;
    root.attach(raw);
    vfc::TBstr xmlKey(L"_xmlconfig"), empty(L""), port(L"proxy/port"), value;
    EXPECT_EQ(S_FALSE, root->SetConfigurationValue(xmlKey.get(), empty.get()));
    EXPECT_EQ(S_FALSE, root->SetConfigurationValue(xmlKey.get(), nullptr));
    ASSERT_EQ(S_OK, root->GetConfigurationValue(port.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());
}

}  // namespace
