// The configuration record, its file "VnLinkhost.xml" in the test prefix (found here, not asked of the product),
// and its keys: the exact bytes, how a text or a file is laid over a record, the roaming folder, bad files.
#include "tests/settings/settings_support.h"

using namespace vn_config_test;
using namespace vn_settings_test;

namespace {

// Defaults with the skip flag set, as the tree writer gives them.
const std::string kKnown =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VnLinkhostConfig>\n\t<DialUp useSystemConnection = \"true\">\n"
    "\t\t<Mode>1</Mode>\n\t\t<DialConnectionName></DialConnectionName>\n\t</DialUp>\n"
    "\t<Proxy useSystemProxy = \"true\">\n\t\t<Mode>0</Mode>\n\t\t<Address>proxy</Address>\n\t\t<Port>8080</Port>\n"
    "\t\t<NoLocal>true</NoLocal>\n\t\t<Exclude>localhost</Exclude>\n\t\t<Script></Script>\n\t</Proxy>\n"
    "\t<skip-head-authentication>true</skip-head-authentication>\n</VnLinkhostConfig>\n";
const std::string kMethod = "in method [CVnLinkhostXMLConfigManager::", kLoad = kMethod + "LoadConfiguration]. Message: ";
const std::string kCannotOpenFile = "Warning " + kLoad + "Cannot open file.", kCannotLoadString = "Warning " + kLoad + "Cannot load string.";
const std::string kCannotLoadFile = "Error " + kLoad + "XML exception catched. Cannot load file.";
const std::string kCannotSaveFile = "Warning " + kMethod + "SaveConfiguration]. Message: Cannot save file.";

CConfigData Known() { CConfigData d = Defaults(); d.m_SkipHeadAuth = true; return d; }
CConfigData Unusual()  // every stored field differs from its default
{
    CConfigData d;
    d.m_ProxyMode = ProxyScript, d.m_ProxyAddress = "cache.intern", d.m_ProxyPort = 3128, d.m_ProxyExclude = "*.intern;10.*";
    d.m_ProxyScript = "http://wpad.intern/proxy.pac", d.m_DialMode = DialAlways, d.m_SkipHeadAuth = true;
    d.m_DefaultConnection = "B\xFCro-ISDN";  // ANSI, not UTF-8
    return d;
}
HRESULT Load(CConfigData& data, const std::string* text = nullptr)  // from the file, or from a text
{
    CConfigData* record = &data;
    return text ? CVnLinkhostXMLConfigManager().XMLToConfigData(vfc::TBstr(vfc::Widen(*text)).get(), &record)
                : CVnLinkhostXMLConfigManager().LoadConfiguration(&record);
}
HRESULT Save(const CConfigData& data) { return CVnLinkhostXMLConfigManager().SaveConfiguration(&data); }
std::string Replace(std::string text, const std::string& from, const std::string& to) { return text.replace(text.find(from), from.size(), to); }
const std::string kPrimary = PrimaryFile(), kSecondary = SecondaryFile();

class ConfigFile : public testing::Test {
protected:
    TConfigFilesGuard m_files;
    int LogLines(const std::string& text) const { return vn_test::CountLogLinesSince(m_log, text); }
    const size_t m_log = vn_test::LogSize();
};

TEST_F(ConfigFile, RecordIsWrittenAsTheKnownBytesOverAnyOldFileAndReadBack)
{
    EXPECT_EQ(kKnown, ToXml(Known()));
    EXPECT_EQ(Replace(kKnown, "\t<skip-head-authentication>true</skip-head-authentication>\n", ""), ToXml(Defaults()));
    EXPECT_FALSE(FileExists(kPrimary)) << "a conversion writes no file";
    CConfigData data = Unusual();
    ASSERT_EQ(S_OK, Save(data));  // a longer file, then marked read-only and hidden
    ASSERT_TRUE(::SetFileAttributesA(kPrimary.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    ASSERT_EQ(S_OK, Save(Known()));  // the local folder only; an old file loses its marks
    EXPECT_EQ(std::make_tuple(CrLf(kKnown), 0ul, false), std::make_tuple(ReadBytes(kPrimary), ::GetFileAttributesA(kPrimary.c_str()) &
              (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), FileExists(kSecondary)));
    CConfigData zeroed;
    ASSERT_EQ(S_OK, Load(zeroed));
    EXPECT_EQ(Fields(Known()), Fields(zeroed));
    // Every stored field survives, modes as numbers, texts in ANSI as they stand; the session flags are never stored.
    data = Unusual(), data.m_SessionFlags = 7;
    ASSERT_EQ(S_OK, Save(data));
    EXPECT_NE(std::string::npos, ReadBytes(kPrimary).find("<Mode>2</Mode>\r\n\t\t<DialConnectionName>B\xFCro-ISDN<"));
    ASSERT_EQ(S_OK, Load(zeroed));
    EXPECT_EQ(Fields(Unusual()), Fields(zeroed));
    data.m_ProxyAddress = "a<b&c>\"d";  // markup goes out as entities and comes back
    ASSERT_EQ(S_OK, Save(data));
    EXPECT_EQ(CrLf(Replace(ToXml(Unusual()), ">cache.intern<", ">a&lt;b&amp;c&gt;&quot;d<")), ReadBytes(kPrimary));
    ASSERT_EQ(S_OK, Load(zeroed));
    EXPECT_EQ(data.m_ProxyAddress, zeroed.m_ProxyAddress);
}

TEST_F(ConfigFile, TextOrFileIsLaidOverTheRecordElementByElementAndTheRootObjectStartsOverAnyFile)
{
    const std::function<void(CConfigData&)> none = [](CConfigData&) {};
    const std::string kException = "Error " + kMethod + "XMLToConfigData]. Message: Exception catched.", unusual = CrLf(ToXml(Unusual()));
    // The text, the status of a load from it as text and as file, what it changes, the log line of each load.
    const std::tuple<std::string, HRESULT, std::function<void(CConfigData&)>, std::string, std::string> cases[] = {
        // Absent elements, the Proxy section among them, leave their fields.
        {"<VnLinkhostConfig><DialUp useSystemConnection = \"true\"><Mode>2</Mode></DialUp></VnLinkhostConfig>", S_OK,
         [](CConfigData& d) { d.m_DialMode = DialAlways; }, "", ""},
        // Only the exact word keeps a system setting or the skip flag on.
        {"<c><Proxy><Port>1</Port></Proxy><DialUp useSystemConnection = \"TRUE\"/><skip-head-authentication>yes"
         "</skip-head-authentication></c>",
         S_OK, [](CConfigData& d) { d.m_UseSystemProxy = d.m_UseSystemConnection = d.m_SkipHeadAuth = false, d.m_ProxyPort = 1; }, "", ""},
        // Numbers are the leading digits, without any range check.
        {"<c><Proxy useSystemProxy = \"true\"><Port>abc</Port><Mode> 99999x</Mode></Proxy></c>", S_OK,
         [](CConfigData& d) { d.m_ProxyPort = 0, d.m_ProxyMode = 99999; }, "", ""},
        // Each mode from its own section; any root name; unknown elements ignored; a section at any depth, the first one.
        {"<Settings v = \"2\"><Unknown><Mode>9</Mode></Unknown><Wrapper><Proxy useSystemProxy = \"true\"><Mode>2</Mode>"
         "<Colour>red</Colour><Extra><Address>deeper</Address></Extra></Proxy></Wrapper><DialUp useSystemConnection = "
         "\"true\"><Mode>0</Mode></DialUp><Proxy useSystemProxy = \"true\"><Mode>3</Mode></Proxy></Settings>",
         S_OK, [](CConfigData& d) { d.m_ProxyMode = ProxyManual, d.m_DialMode = DialNever, d.m_ProxyAddress = "deeper"; }, "", ""},
        // Cut between elements the parser sees a clean end: what came before is read.
        {unusual.substr(0, unusual.find("\t\t<Port>")), S_OK, [](CConfigData& d) {
             d.m_UseSystemConnection = d.m_UseSystemProxy = false, d.m_DialMode = DialAlways, d.m_ProxyMode = ProxyScript;
             d.m_DefaultConnection = "B\xFCro-ISDN", d.m_ProxyAddress = "cache.intern";
         }, "", ""},
        // No root element: status 1; a text that can't be parsed: VN_E_CONFIG_XML.
        {"", S_FALSE, none, kCannotLoadString, kCannotLoadString},
        {Replace(unusual, "*.intern;10.*", "intranet&co"), VN_E_CONFIG_XML, none, kException, kCannotLoadFile},
    };
    auto lines = [](size_t log, const std::string& line) { return vn_test::CountLogLinesSince(log, line.empty() ? kMethod : line); };
    for (auto& [xml, status, change, textLine, fileLine] : cases) {
        CConfigData data = Known(), expected = Known();
        change(expected);
        size_t log = vn_test::LogSize();
        EXPECT_EQ(status, Load(data, &xml)) << xml;
        EXPECT_EQ(std::make_tuple(Fields(expected), textLine.empty() ? 0 : 1), std::make_tuple(Fields(data), lines(log, textLine))) << xml;
        WriteBytes(kPrimary, xml);
        data = Known(), log = vn_test::LogSize();
        EXPECT_EQ(status, Load(data)) << xml;
        EXPECT_EQ(std::make_tuple(Fields(expected), fileLine.empty() ? 0 : 1), std::make_tuple(Fields(data), lines(log, fileLine))) << xml;
        vfc::TComPtr<CVnLinkhostObject> root;  // a root object starts over the file all the same
        vfc::TBstr value;
        ASSERT_EQ(S_OK, CVnLinkhostObject::Create(root.put()));
        EXPECT_EQ(S_OK, root->GetConfigurationValue(vfc::TBstr(L"_xmlconfig").get(), value.put()));
        change(expected = Defaults());
        EXPECT_EQ(std::make_tuple(vfc::Widen(ToXml(expected)), status, xml), std::make_tuple(value.str(), root->LoadConfiguration(), ReadBytes(kPrimary)));
    }
    CVnLinkhostXMLConfigManager manager;
    CConfigData data, *missing = nullptr;
    EXPECT_EQ(std::make_tuple(E_POINTER, E_POINTER, E_POINTER), std::make_tuple(manager.ConfigDataToXML(nullptr, vfc::TBstr().put()),
              manager.ConfigDataToXML(&data, nullptr), manager.XMLToConfigData(nullptr, &missing)));
    EXPECT_EQ(std::make_tuple(E_POINTER, E_POINTER, E_POINTER), std::make_tuple(manager.XMLToConfigData(nullptr, nullptr),
              manager.LoadConfiguration(&missing), manager.SaveConfiguration(nullptr)));
}

TEST_F(ConfigFile, RoamingFileIsCopiedIntoTheLocalFolderAndMissingOrUnwritableFilesGiveStatusOneWithAWarning)
{
    const std::string roaming = "<VnLinkhostConfig><Proxy useSystemProxy = \"false\"><Mode>2</Mode>"
                                "<Address>roaming.example</Address><Port>3130</Port></Proxy></VnLinkhostConfig>";
    WriteBytes(kSecondary, roaming);
    CConfigData data = Defaults(), expected = Defaults();
    expected.m_UseSystemProxy = false, expected.m_ProxyMode = ProxyManual, expected.m_ProxyAddress = "roaming.example";
    expected.m_ProxyPort = 3130;
    ASSERT_EQ(S_OK, Load(data));
    EXPECT_EQ(std::make_tuple(Fields(expected), CrLf(ToXml(expected))), std::make_tuple(Fields(data), ReadBytes(kPrimary)));
    // From now on the local copy is read, whatever the roaming file says.
    WriteBytes(kSecondary, Replace(roaming, "roaming.example", "changed.roaming"));
    WriteBytes(kPrimary, Replace(ReadBytes(kPrimary), "roaming.example", "local.example"));
    ASSERT_EQ(S_OK, Load(data));
    EXPECT_EQ(std::make_tuple(std::string("local.example"), Replace(roaming, "roaming.example", "changed.roaming"), 0),
              std::make_tuple(data.m_ProxyAddress, ReadBytes(kSecondary), LogLines("Warning in method")));
    data = Unusual();
    RemovePath(kPrimary), RemovePath(kSecondary);
    EXPECT_EQ(S_FALSE, Load(data));
    EXPECT_EQ(std::make_tuple(Fields(Unusual()), 1, 1, false), std::make_tuple(Fields(data), LogLines("Warning in method"),
              LogLines(kCannotOpenFile), FileExists(kPrimary) || FileExists(kSecondary)));
    // A folder in the place of the local file: it can be neither read nor written.
    ASSERT_TRUE(::CreateDirectoryA(kPrimary.c_str(), nullptr));
    EXPECT_EQ(S_FALSE, Save(Defaults()));
    EXPECT_FALSE(FileExists(kSecondary)) << "a failed save does not go elsewhere";
    // The roaming file is read, and the failed copy into the local folder changes nothing.
    WriteBytes(kSecondary, CrLf(ToXml(Unusual())));
    EXPECT_EQ(S_OK, Load(data = Defaults()));
    EXPECT_EQ(std::make_tuple(Fields(Unusual()), 2), std::make_tuple(Fields(data), LogLines(kCannotSaveFile)));
}

TEST(ConfigKeys, ReachTheirOwnFieldsOrTheWholeRecordAsTextAndUnknownKeysFailWithALine)
{
    // Key, its text in a record of defaults, a value set, the text then read (null: status 1, the record keeps it). Integers
    // take the leading number; booleans are true only for the exact word. The first eleven rows go onto one zeroed record.
    const wchar_t* const keys[][4] = {
        {L"dialup/mode", L"1", L"2", L"2"}, {L"dialup/dialConnectionName", L"", L"B\u00FCro", L"B\u00FCro"},
        {L"dialup/useSystemConnection", L"true", L"true", L"true"}, {L"proxy/useSystemProxy", L"true", L"true", L"true"},
        {L"proxy/skipHeadAuth", L"false", L"true", L"true"}, {L"proxy/mode", L"0", L"3", L"3"}, {L"proxy/noLocal", L"true", L"true", L"true"},
        {L"proxy/address", L"proxy", L"cache.example", L"cache.example"}, {L"proxy/port", L"8080", L"3128", L"3128"},
        {L"proxy/exclude", L"localhost", L"a;b", L"a;b"}, {L"proxy/script", L"", L"http://wpad/x.pac", L"http://wpad/x.pac"},
        {L"proxy/port", L"8080", L"12abc", L"12"}, {L"proxy/port", L"8080", L"abc", L"0"}, {L"proxy/port", L"8080", L"-99999999", L"-99999999"},
        {L"proxy/port", L"8080", L"-100000000", nullptr}, {L"proxy/noLocal", L"true", L"TRUE", L"false"}};
    CConfigData all, expected;
    for (size_t i = 0; i < std::size(keys); ++i) {
        const auto& [key, byDefault, value, back] = keys[i];
        CConfigData data = Defaults();
        EXPECT_EQ(byDefault, Get(data, key));
        ASSERT_EQ(S_OK, vn_config::SetValue(i < 11 ? all : data, key, value));
        ASSERT_EQ(S_OK, vn_config::SetValue(data, key, value));
        EXPECT_EQ(back ? back : L"<untouched>", Get(data, key, back ? S_OK : S_FALSE));
        EXPECT_TRUE(back || Get(data, L"_xmlconfig").find(L"<Port>" + std::wstring(value) + L"</Port>") != std::wstring::npos);
    }
    expected.m_DialMode = 2, expected.m_DefaultConnection = "B\xFCro", expected.m_ProxyMode = 3;  // narrowed to ANSI
    expected.m_UseSystemConnection = expected.m_UseSystemProxy = expected.m_SkipHeadAuth = expected.m_ProxyNoLocal = true;
    expected.m_ProxyAddress = "cache.example", expected.m_ProxyPort = 3128, expected.m_ProxyExclude = "a;b", expected.m_ProxyScript = "http://wpad/x.pac";
    EXPECT_EQ(Fields(expected), Fields(all));
    CConfigData copy;  // the whole record as the file's text, widened, and set back over another record narrowed
    ASSERT_EQ(S_OK, vn_config::SetValue(copy, L"_xmlconfig", Get(Unusual(), L"_xmlconfig")));
    EXPECT_EQ(std::make_tuple(S_FALSE, VN_E_CONFIG_XML), std::make_tuple(vn_config::SetValue(copy, L"_xmlconfig", L"words"),
              vn_config::SetValue(copy, L"_xmlconfig", L"<c><Proxy><Address>a&b</Address></Proxy></c>")));  // neither changes it
    EXPECT_EQ(Fields(Unusual()), Fields(copy));
    EXPECT_NE(std::wstring::npos, Get(copy, L"_xmlconfig").find(L">B\u00FCro-ISDN<"));

    CConfigData data = Defaults();
    const std::string unknown = "Error in method [CVnLinkhostObject::%sConfigurationValue]. Message: Unknown configuration parameter";
    size_t log = vn_test::LogSize();
    for (const wchar_t* key : {L"Proxy/mode", L"proxy/mode ", L"_XmlConfig", L"ie/other/mode", L"ie/proxy", L"IE/proxy/mode-auto"})
        EXPECT_EQ(L"<untouched>", Get(data, key, E_INVALIDARG));
    EXPECT_EQ(6, vn_test::CountLogLinesSince(log, Replace(unknown, "%s", "Get")));
    for (const wchar_t* key : {L"ie/proxy/colour", L"ie/dialup/colour", L"ie/proxy/"})  // the system families
        EXPECT_EQ(L"", Get(data, key));
    log = vn_test::LogSize();
    for (const wchar_t* key : {L"proxy/skip-head-authentication", L"_xmlconfig ", L"ie/proxy/address", L"ie/dialup/mode"})  // read-only
        EXPECT_EQ(E_INVALIDARG, vn_config::SetValue(data, key, L"<c><Proxy><Port>1</Port></Proxy></c>"));
    EXPECT_EQ(std::make_tuple(Fields(Defaults()), 4), std::make_tuple(Fields(data), vn_test::CountLogLinesSince(log, Replace(unknown, "%s", "Set"))));
}

}  // namespace
