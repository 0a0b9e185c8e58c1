// How the system's LAN proxy settings are read into a working record and
// into the "ie/proxy/" texts. These drive the interpretation directly with
// what the platform may answer: Wine's internet client never reports the
// script and detection bits, so the precedences among the three modes can
// only be shown here; the tests beside this one show the same rules through
// the real query.
#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>

#include "settings/system_proxy.h"

using vn_settings::ApplySystemProxySettings;
using vn_settings::SystemProxyKeyText;
using vn_settings::TSystemProxySettings;

namespace {

TSystemProxySettings Flags(DWORD flags)
{
    TSystemProxySettings settings;
    settings.m_dwFlags = flags;
    return settings;
}

TSystemProxySettings Server(const char* server)
{
    TSystemProxySettings settings = Flags(PROXY_TYPE_PROXY);
    settings.m_bHasServer = true;
    settings.m_strServer = server;
    return settings;
}

TSystemProxySettings Bypass(const char* bypass)
{
    TSystemProxySettings settings = Flags(PROXY_TYPE_PROXY);
    settings.m_bHasBypass = true;
    settings.m_strBypass = bypass;
    return settings;
}

CConfigData Record()
{
    CConfigData data;
    data.SetDefaults();
    return data;
}

int ModeFor(DWORD flags)
{
    CConfigData data = Record();
    data.m_ProxyMode = -1;
    ApplySystemProxySettings(Flags(flags), data);
    return data.m_ProxyMode;
}

}  // namespace

TEST(SystemProxyMode, ManualBeatsScriptAndDetection)
{
    EXPECT_EQ(ProxyManual, ModeFor(PROXY_TYPE_DIRECT | PROXY_TYPE_PROXY | PROXY_TYPE_AUTO_PROXY_URL | PROXY_TYPE_AUTO_DETECT));
    EXPECT_EQ(ProxyManual, ModeFor(PROXY_TYPE_PROXY | PROXY_TYPE_AUTO_PROXY_URL));
    EXPECT_EQ(ProxyManual, ModeFor(PROXY_TYPE_PROXY | PROXY_TYPE_AUTO_DETECT));
}

TEST(SystemProxyMode, ScriptBeatsDetection)
{
    EXPECT_EQ(ProxyScript, ModeFor(PROXY_TYPE_DIRECT | PROXY_TYPE_AUTO_PROXY_URL | PROXY_TYPE_AUTO_DETECT));
    EXPECT_EQ(ProxyScript, ModeFor(PROXY_TYPE_AUTO_PROXY_URL));
}

TEST(SystemProxyMode, DetectionAloneGivesAutoWithNoAddress)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Flags(PROXY_TYPE_DIRECT | PROXY_TYPE_AUTO_DETECT), data);
    EXPECT_EQ(ProxyAuto, data.m_ProxyMode);
    EXPECT_EQ("", data.m_ProxyAddress);
    EXPECT_EQ(0, data.m_ProxyPort);
}

TEST(SystemProxyMode, DirectAloneGivesNone)
{
    EXPECT_EQ(ProxyNone, ModeFor(PROXY_TYPE_DIRECT));
    EXPECT_EQ(ProxyNone, ModeFor(0));
}

TEST(SystemProxyMode, OtherFieldsOfTheRecordStay)
{
    CConfigData data = Record();
    data.m_UseSystemProxy = true;
    data.m_DialMode = DialAlways;
    data.m_DefaultConnection = "Office";
    data.m_SessionFlags = 5;
    data.m_SkipHeadAuth = true;
    ApplySystemProxySettings(Server("h:1"), data);
    EXPECT_TRUE(data.m_UseSystemProxy);
    EXPECT_EQ(DialAlways, data.m_DialMode);
    EXPECT_EQ("Office", data.m_DefaultConnection);
    EXPECT_EQ(5, data.m_SessionFlags);
    EXPECT_TRUE(data.m_SkipHeadAuth);
}

TEST(SystemProxyScript, AddressIsTakenOrEmptied)
{
    TSystemProxySettings settings = Flags(PROXY_TYPE_AUTO_PROXY_URL);
    settings.m_bHasScript = true;
    settings.m_strScript = "http://wpad.example/proxy.pac";
    CConfigData data = Record();
    ApplySystemProxySettings(settings, data);
    EXPECT_EQ("http://wpad.example/proxy.pac", data.m_ProxyScript);

    data.m_ProxyScript = "http://old/script.pac";
    ApplySystemProxySettings(Flags(PROXY_TYPE_PROXY), data);
    EXPECT_EQ("", data.m_ProxyScript);
}

TEST(SystemProxyBypass, LocalAloneGivesNoLocalAndAnEmptyList)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Bypass("<local>"), data);
    EXPECT_TRUE(data.m_ProxyNoLocal);
    EXPECT_EQ("", data.m_ProxyExclude);
}

TEST(SystemProxyBypass, OnlyTheFirstLocalIsCutAndItsSeparatorStays)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Bypass("intranet;<local>;*.corp;<local>"), data);
    EXPECT_TRUE(data.m_ProxyNoLocal);
    EXPECT_EQ("intranet;;*.corp;<local>", data.m_ProxyExclude);
}

TEST(SystemProxyBypass, ListWithoutLocalClearsTheMark)
{
    CConfigData data = Record();  // the defaults have the mark set
    ApplySystemProxySettings(Bypass("a.example;b.example"), data);
    EXPECT_FALSE(data.m_ProxyNoLocal);
    EXPECT_EQ("a.example;b.example", data.m_ProxyExclude);
}

TEST(SystemProxyBypass, NoListClearsBoth)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Flags(PROXY_TYPE_PROXY), data);
    EXPECT_FALSE(data.m_ProxyNoLocal);
    EXPECT_EQ("", data.m_ProxyExclude);
}

TEST(SystemProxyServer, TextIsCutAtTheFirstColon)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Server("cache.lan:3128"), data);
    EXPECT_EQ("cache.lan", data.m_ProxyAddress);
    EXPECT_EQ(3128, data.m_ProxyPort);
}

TEST(SystemProxyServer, NoColonKeepsTheRecordsPort)
{
    CConfigData data = Record();
    data.m_ProxyPort = 8081;
    ApplySystemProxySettings(Server("bare-host"), data);
    EXPECT_EQ("bare-host", data.m_ProxyAddress);
    EXPECT_EQ(8081, data.m_ProxyPort);
}

TEST(SystemProxyServer, NoTextGivesAnEmptyAddressAndPortZero)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Flags(PROXY_TYPE_DIRECT), data);
    EXPECT_EQ("", data.m_ProxyAddress);
    EXPECT_EQ(0, data.m_ProxyPort);
}

TEST(SystemProxyServer, PerSchemeListGoesThroughTheSameCut)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Server("http=a.example:81;https=b.example:82"), data);
    EXPECT_EQ("http=a.example", data.m_ProxyAddress);
    EXPECT_EQ(81, data.m_ProxyPort);
}

TEST(SystemProxyServer, PortIsTheNumberAtTheStartOfTheRest)
{
    CConfigData data = Record();
    ApplySystemProxySettings(Server("h.example:80x"), data);
    EXPECT_EQ(80, data.m_ProxyPort);
    ApplySystemProxySettings(Server("h.example:"), data);
    EXPECT_EQ("h.example", data.m_ProxyAddress);
    EXPECT_EQ(0, data.m_ProxyPort);
}

TEST(SystemProxyKeys, ModeBitsReadOneEach)
{
    TSystemProxySettings settings = Flags(PROXY_TYPE_AUTO_PROXY_URL | PROXY_TYPE_AUTO_DETECT);
    EXPECT_EQ("true", SystemProxyKeyText(settings, "ie/proxy/mode-auto"));
    EXPECT_EQ("true", SystemProxyKeyText(settings, "ie/proxy/mode-script"));
    EXPECT_EQ("false", SystemProxyKeyText(settings, "ie/proxy/mode-manual"));
    settings = Flags(PROXY_TYPE_PROXY);
    EXPECT_EQ("false", SystemProxyKeyText(settings, "ie/proxy/mode-auto"));
    EXPECT_EQ("false", SystemProxyKeyText(settings, "ie/proxy/mode-script"));
    EXPECT_EQ("true", SystemProxyKeyText(settings, "ie/proxy/mode-manual"));
}

TEST(SystemProxyKeys, ServerTextSplitsAtTheFirstColon)
{
    TSystemProxySettings settings = Server("h.example:3128:9");
    EXPECT_EQ("h.example", SystemProxyKeyText(settings, "ie/proxy/address"));
    EXPECT_EQ("3128:9", SystemProxyKeyText(settings, "ie/proxy/port"));
}

TEST(SystemProxyKeys, BareHostIsBothAddressAndPort)
{
    TSystemProxySettings settings = Server("bare-host");
    EXPECT_EQ("bare-host", SystemProxyKeyText(settings, "ie/proxy/address"));
    EXPECT_EQ("bare-host", SystemProxyKeyText(settings, "ie/proxy/port"));
}

TEST(SystemProxyKeys, BypassListGivesExcludeAndNoLocal)
{
    TSystemProxySettings settings = Bypass("name;<local>");
    EXPECT_EQ("name;", SystemProxyKeyText(settings, "ie/proxy/exclude"));
    EXPECT_EQ("true", SystemProxyKeyText(settings, "ie/proxy/noLocal"));
    settings = Bypass("name");
    EXPECT_EQ("false", SystemProxyKeyText(settings, "ie/proxy/noLocal"));
}

TEST(SystemProxyKeys, MissingTextsGiveEmptyValues)
{
    TSystemProxySettings settings = Flags(PROXY_TYPE_DIRECT);
    for (const char* key : {"ie/proxy/script", "ie/proxy/exclude", "ie/proxy/noLocal", "ie/proxy/address", "ie/proxy/port"})
        EXPECT_EQ("", SystemProxyKeyText(settings, key)) << key;
}

TEST(SystemProxyKeys, ScriptAddressAsGiven)
{
    TSystemProxySettings settings = Flags(PROXY_TYPE_AUTO_PROXY_URL);
    settings.m_bHasScript = true;
    settings.m_strScript = "http://wpad/wpad.dat";
    EXPECT_EQ("http://wpad/wpad.dat", SystemProxyKeyText(settings, "ie/proxy/script"));
}

TEST(SystemProxyKeys, UnknownWordGivesEmptyText)
{
    TSystemProxySettings settings = Server("h:1");
    EXPECT_EQ("", SystemProxyKeyText(settings, "ie/proxy/Address"));
    EXPECT_EQ("", SystemProxyKeyText(settings, "ie/proxy/"));
    EXPECT_EQ("", SystemProxyKeyText(settings, "ie/proxy/mode"));
}
