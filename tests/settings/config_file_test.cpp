// The configuration file "VnLinkhost.xml": its exact bytes, how the record
// is overlaid from it, the fall-back to the roaming folder, and what a bad,
// truncated or hostile file does to the manager and to a root object that
// starts over it. The files are real files in the test prefix's folders.
#include <gtest/gtest.h>

#include <windows.h>

#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "common/test_util.h"
#include "host/root_object.h"
#include "host/status.h"
#include "settings/xml_config_manager.h"
#include "tests/settings/config_file_support.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"

using namespace vn_config_test;

namespace {

const std::string kManager = "CVnLinkhostXMLConfigManager::";
const std::string kCannotOpenFile =
    "Warning in method [" + kManager + "LoadConfiguration]. Message: Cannot open file.";
const std::string kCannotLoadFile =
    "Error in method [" + kManager + "LoadConfiguration]. Message: XML exception catched. Cannot load file.";
const std::string kCannotLoadString =
    "Warning in method [" + kManager + "LoadConfiguration]. Message: Cannot load string.";
const std::string kCannotSaveFile = "Warning in method [" + kManager + "SaveConfiguration]. Message: Cannot save file.";
const std::string kTextException = "Error in method [" + kManager + "XMLToConfigData]. Message: Exception catched.";

HRESULT Save(const CConfigData& data)
{
    CVnLinkhostXMLConfigManager manager;
    return manager.SaveConfiguration(&data);
}

HRESULT Load(CConfigData& data)
{
    CVnLinkhostXMLConfigManager manager;
    CConfigData* record = &data;
    return manager.LoadConfiguration(&record);
}

// The record as text, or "<failed>" when the conversion did not succeed.
std::string ToXml(const CConfigData& data)
{
    CVnLinkhostXMLConfigManager manager;
    vfc::TBstr xml;
    if (manager.ConfigDataToXML(&data, xml.put()) != S_OK || !xml.get())
        return "<failed>";
    return vfc::Narrow(xml.str());
}

HRESULT FromXml(const std::string& text, CConfigData& data)
{
    CVnLinkhostXMLConfigManager manager;
    vfc::TBstr xml(vfc::Widen(text));
    CConfigData* record = &data;
    return manager.XMLToConfigData(xml.get(), &record);
}

CConfigData DefaultsWithSkip()
{
    CConfigData data = DefaultRecord();
    data.m_SkipHeadAuth = true;
    return data;
}

// A record in which every stored field differs from its default.
CConfigData Unusual()
{
    CConfigData data;
    data.m_UseSystemProxy = false;
    data.m_ProxyMode = ProxyScript;
    data.m_ProxyAddress = "cache.intern";
    data.m_ProxyPort = 3128;
    data.m_ProxyExclude = "*.intern;10.*";
    data.m_ProxyNoLocal = false;
    data.m_ProxyScript = "http://wpad.intern/proxy.pac";
    data.m_UseSystemConnection = false;
    data.m_DialMode = DialAlways;
    data.m_DefaultConnection = "B\xFCro-ISDN";  // ANSI, not UTF-8
    data.m_SkipHeadAuth = true;
    return data;
}

std::string Replace(std::string text, const std::string& from, const std::string& to)
{
    const size_t at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    if (at != std::string::npos)
        text.replace(at, from.size(), to);
    return text;
}

FILETIME LastWrite(const std::string& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    ::GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
    return data.ftLastWriteTime;
}

bool SameTime(const FILETIME& a, const FILETIME& b)
{
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

// Each test starts with neither file present and counts its own log lines.
class ConfigFileTest : public testing::Test {
protected:
    int LogLines(const std::string& text) const { return vn_test::CountLogLinesSince(m_log, text); }
    std::string Log() const { return vn_test::LogSince(m_log); }

    TConfigFilesGuard m_files;
    const size_t m_log = vn_test::LogSize();
};

using ConfigFileFormat = ConfigFileTest;
using ConfigFileLoad = ConfigFileTest;
using ConfigFileSave = ConfigFileTest;
using ConfigFileHostile = ConfigFileTest;
using RootObjectConfigFile = ConfigFileTest;

// ---------------------------------------------------------------------------
// The exact bytes.

TEST_F(ConfigFileFormat, RecordIsSavedAsTheKnownBytesWithCrLfOnDisk)
{
    ASSERT_EQ(S_OK, Save(DefaultsWithSkip()));
    EXPECT_EQ(WithCrLf(kKnownFile), ReadBytes(PrimaryFile()));
    EXPECT_FALSE(FileExists(SecondaryFile())) << "a save writes the local folder only";
}

TEST_F(ConfigFileFormat, TextOfTheRecordIsTheSameBytesWithBareLineFeeds)
{
    EXPECT_EQ(kKnownFile, ToXml(DefaultsWithSkip()));
    EXPECT_FALSE(FileExists(PrimaryFile())) << "a conversion writes no file";
}

TEST_F(ConfigFileFormat, SkipElementIsLeftOutWhileTheFlagIsFalse)
{
    const std::string withoutSkip =
        Replace(kKnownFile, "\t<skip-head-authentication>true</skip-head-authentication>\n", "");
    EXPECT_EQ(withoutSkip, ToXml(DefaultRecord()));
}

TEST_F(ConfigFileFormat, KnownFileIsLoadedAndSavedBackByteForByte)
{
    WriteBytes(PrimaryFile(), WithCrLf(kKnownFile));
    CConfigData data;  // zeroed: every field must come from the file
    ASSERT_EQ(S_OK, Load(data));
    EXPECT_TRUE(SameRecord(DefaultsWithSkip(), data));
    ASSERT_EQ(S_OK, Save(data));
    EXPECT_EQ(WithCrLf(kKnownFile), ReadBytes(PrimaryFile()));
}

TEST_F(ConfigFileFormat, EveryStoredFieldSurvivesASaveAndALoad)
{
    CConfigData written = Unusual();
    written.m_SessionFlags = 7;
    ASSERT_EQ(S_OK, Save(written));

    const std::string bytes = ReadBytes(PrimaryFile());
    // Modes are numbers, never words; texts keep their ANSI bytes.
    EXPECT_NE(std::string::npos, bytes.find("\t\t<Mode>2</Mode>\r\n\t\t<DialConnectionName>B\xFCro-ISDN<")) << bytes;
    EXPECT_NE(std::string::npos, bytes.find("\t\t<Mode>3</Mode>\r\n\t\t<Address>cache.intern<")) << bytes;
    EXPECT_EQ(std::string::npos, bytes.find('7')) << "the session flags are never stored";

    CConfigData read = DefaultRecord();
    ASSERT_EQ(S_OK, Load(read));
    CConfigData expected = Unusual();
    expected.m_SessionFlags = 0;
    EXPECT_TRUE(SameRecord(expected, read));
}

TEST_F(ConfigFileFormat, ValuesAreWrittenAsTheyStandAndABareAmpersandBreaksTheNextLoad)
{
    CConfigData written = DefaultRecord();
    written.m_ProxyExclude = "intranet&co";
    written.m_ProxyAddress = "a<b";
    ASSERT_EQ(S_OK, Save(written));
    const std::string bytes = ReadBytes(PrimaryFile());
    EXPECT_NE(std::string::npos, bytes.find("<Exclude>intranet&co</Exclude>")) << bytes;
    EXPECT_NE(std::string::npos, bytes.find("<Address>a<b</Address>")) << bytes;

    CConfigData read = Unusual();
    EXPECT_EQ(VN_E_CONFIG_XML, Load(read));
    EXPECT_TRUE(SameRecord(Unusual(), read));
    EXPECT_EQ(1, LogLines(kCannotLoadFile)) << Log();
}

TEST_F(ConfigFileFormat, SchemaNameIsTheConfigurationPathWithItsExtensionChanged)
{
    CVnLinkhostXMLConfigManager manager;
    std::string xsd = "<untouched>";
    EXPECT_EQ(S_OK, manager.GetXsdFileName(xsd));
    std::string expected = PrimaryFile();
    expected.replace(expected.size() - 4, 4, ".xsd");
    EXPECT_EQ(0, lstrcmpiA(expected.c_str(), xsd.c_str())) << expected << " / " << xsd;
    EXPECT_FALSE(FileExists(xsd));
    EXPECT_FALSE(FileExists(PrimaryFile()));
}

// ---------------------------------------------------------------------------
// Overlaying a record from a text.

TEST(ConfigTextOverlay, AbsentElementsLeaveTheirFields)
{
    CConfigData data = Unusual();
    data.m_UseSystemProxy = true;
    ASSERT_EQ(S_OK, FromXml("<VnLinkhostConfig><DialUp useSystemConnection = \"true\"><Mode>1</Mode></DialUp>"
                            "</VnLinkhostConfig>",
                            data));
    CConfigData expected = Unusual();
    expected.m_UseSystemProxy = true;  // no Proxy element: not reset
    expected.m_UseSystemConnection = true;
    expected.m_DialMode = DialRequired;
    EXPECT_TRUE(SameRecord(expected, data));
}

TEST(ConfigTextOverlay, SectionWithoutTheExactWordTrueTurnsTheSystemSettingOff)
{
    for (const char* attribute : {"", " useSystemProxy = \"TRUE\"", " useSystemProxy = \"1\"", " other = \"true\""}) {
        CConfigData data = DefaultRecord();
        ASSERT_EQ(S_OK, FromXml(std::string("<c><Proxy") + attribute + "><Port>1</Port></Proxy><DialUp/></c>", data));
        EXPECT_FALSE(data.m_UseSystemProxy) << attribute;
        EXPECT_FALSE(data.m_UseSystemConnection) << attribute;
        EXPECT_EQ(1, data.m_ProxyPort);
    }
}

TEST(ConfigTextOverlay, NumbersAreTheLeadingDigitsWithoutAnyRangeCheck)
{
    struct {
        const char* text;
        int port;
    } cases[] = {{"abc", 0}, {"99999", 99999}, {" 42x", 42}, {"-3", -3}, {"", 0}};
    for (auto& c : cases) {
        CConfigData data = DefaultRecord();
        ASSERT_EQ(S_OK, FromXml(std::string("<c><Proxy><Port>") + c.text + "</Port><Mode>" + c.text +
                                    "</Mode></Proxy></c>",
                                data));
        EXPECT_EQ(c.port, data.m_ProxyPort) << c.text;
        EXPECT_EQ(c.port, data.m_ProxyMode) << c.text;
    }
}

TEST(ConfigTextOverlay, SkipFlagIsClearedByAnyTextButTrueAndKeptWhenAbsent)
{
    for (const char* text : {"TRUE", "yes", "1", ""}) {
        CConfigData data = DefaultsWithSkip();
        ASSERT_EQ(S_OK, FromXml(std::string("<c><skip-head-authentication>") + text + "</skip-head-authentication></c>",
                                data));
        EXPECT_FALSE(data.m_SkipHeadAuth) << text;
    }
    CConfigData data = DefaultsWithSkip();
    ASSERT_EQ(S_OK, FromXml("<c><Proxy><Port>1</Port></Proxy></c>", data));
    EXPECT_TRUE(data.m_SkipHeadAuth);
    data = DefaultRecord();
    ASSERT_EQ(S_OK, FromXml("<c><skip-head-authentication>true</skip-head-authentication></c>", data));
    EXPECT_TRUE(data.m_SkipHeadAuth);
}

TEST(ConfigTextOverlay, EachModeIsTakenFromItsOwnSectionWhateverTheOrder)
{
    CConfigData data = DefaultRecord();
    ASSERT_EQ(S_OK, FromXml("<VnLinkhostConfig><Unknown><Mode>9</Mode></Unknown>"
                            "<Proxy useSystemProxy = \"true\"><Mode>2</Mode></Proxy>"
                            "<DialUp useSystemConnection = \"true\"><Mode>0</Mode></DialUp></VnLinkhostConfig>",
                            data));
    EXPECT_EQ(ProxyManual, data.m_ProxyMode);
    EXPECT_EQ(DialNever, data.m_DialMode);
}

TEST(ConfigTextOverlay, RootOfAnotherNameAndUnknownElementsAreReadAsTheConfiguration)
{
    CConfigData data = DefaultRecord();
    ASSERT_EQ(S_OK, FromXml("<Settings version = \"2\"><Comment>free text</Comment>"
                            "<Proxy useSystemProxy = \"false\"><Colour>red</Colour><Address>other.root</Address>"
                            "<Extra><Deeper>1</Deeper></Extra></Proxy></Settings>",
                            data));
    CConfigData expected = DefaultRecord();
    expected.m_UseSystemProxy = false;
    expected.m_ProxyAddress = "other.root";
    EXPECT_TRUE(SameRecord(expected, data));
}

TEST(ConfigTextOverlay, SectionIsFoundAtAnyDepthTheFirstInDocumentOrder)
{
    CConfigData data = DefaultRecord();
    ASSERT_EQ(S_OK, FromXml("<c><Wrapper><Proxy useSystemProxy = \"true\"><Port>1</Port></Proxy></Wrapper>"
                            "<Proxy useSystemProxy = \"true\"><Port>2</Port></Proxy></c>",
                            data));
    EXPECT_EQ(1, data.m_ProxyPort);
}

TEST(ConfigTextOverlay, TextWithoutARootElementGivesOneAndLeavesTheRecord)
{
    const size_t log = vn_test::LogSize();
    const char* texts[] = {"", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", "   ", "<!-- nothing -->",
                           "not xml at all"};
    for (const char* text : texts) {
        CConfigData data = Unusual();
        EXPECT_EQ(S_FALSE, FromXml(text, data)) << text;
        EXPECT_TRUE(SameRecord(Unusual(), data)) << text;
    }
    EXPECT_EQ(static_cast<int>(std::size(texts)), vn_test::CountLogLinesSince(log, kCannotLoadString));
}

TEST(ConfigTextOverlay, TextThatCannotBeParsedLeavesTheRecordAndGivesConfigXml)
{
    const size_t log = vn_test::LogSize();
    const char* texts[] = {"<c><Proxy><Port>1</Port><Address>a&b</Address></Proxy></c>",
                           "<c><Proxy><Port>1</Port></Proxy><Addr", "<c><Proxy><Port>1</Proxy></c>"};
    for (const char* text : texts) {
        CConfigData data = Unusual();
        EXPECT_EQ(VN_E_CONFIG_XML, FromXml(text, data)) << text;
        EXPECT_TRUE(SameRecord(Unusual(), data)) << text;
    }
    EXPECT_EQ(static_cast<int>(std::size(texts)), vn_test::CountLogLinesSince(log, kTextException));
}

TEST(ConfigTextOverlay, TreeAlreadyInTheDocumentIsReadInsteadOfTheText)
{
    CVnLinkhostXMLConfigManager manager;
    vfc::TBstr xml;
    const CConfigData built = Unusual();
    ASSERT_EQ(S_OK, manager.ConfigDataToXML(&built, xml.put()));

    CConfigData data = DefaultRecord();
    CConfigData* record = &data;
    vfc::TBstr other(L"<c><Proxy><Address>from.text</Address></Proxy></c>");
    ASSERT_EQ(S_OK, manager.XMLToConfigData(other.get(), &record));
    EXPECT_TRUE(SameRecord(Unusual(), data));
}

TEST(ConfigTextOverlay, SecondConversionReplacesTheFirstTree)
{
    CVnLinkhostXMLConfigManager manager;
    vfc::TBstr first, second;
    const CConfigData unusual = Unusual(), defaults = DefaultsWithSkip();
    ASSERT_EQ(S_OK, manager.ConfigDataToXML(&unusual, first.put()));
    ASSERT_EQ(S_OK, manager.ConfigDataToXML(&defaults, second.put()));
    EXPECT_EQ(kKnownFile, vfc::Narrow(second.str()));
}

TEST(ConfigTextOverlay, MissingRecordOrOutPointerIsAPointerError)
{
    TConfigFilesGuard files;
    CVnLinkhostXMLConfigManager manager;
    CConfigData data = DefaultRecord();
    CConfigData* none = nullptr;
    vfc::TBstr xml;
    EXPECT_EQ(E_POINTER, manager.ConfigDataToXML(nullptr, xml.put()));
    EXPECT_EQ(E_POINTER, manager.ConfigDataToXML(&data, nullptr));
    EXPECT_EQ(E_POINTER, manager.XMLToConfigData(xml.get(), nullptr));
    EXPECT_EQ(E_POINTER, manager.XMLToConfigData(xml.get(), &none));
    EXPECT_EQ(E_POINTER, manager.LoadConfiguration(&none));
    EXPECT_EQ(E_POINTER, manager.SaveConfiguration(nullptr));
    EXPECT_FALSE(FileExists(PrimaryFile()));
}

// ---------------------------------------------------------------------------
// Finding the file.

TEST_F(ConfigFileLoad, MissingFileInBothFoldersGivesOneWithOneWarningAndCreatesNothing)
{
    CConfigData data = Unusual();
    EXPECT_EQ(S_FALSE, Load(data));
    EXPECT_TRUE(SameRecord(Unusual(), data));
    EXPECT_EQ(1, LogLines(kCannotOpenFile)) << Log();
    EXPECT_EQ(1, LogLines("Warning in method")) << Log();
    EXPECT_FALSE(FileExists(PrimaryFile()));
    EXPECT_FALSE(FileExists(SecondaryFile()));
}

TEST_F(ConfigFileLoad, RoamingFileIsReadAndCopiedIntoTheLocalFolderAndNeverTouched)
{
    // Not in the writer's own form, so that the copy shows it was written anew.
    const std::string roaming = "<VnLinkhostConfig><Proxy useSystemProxy = \"false\"><Mode>2</Mode>"
                                "<Address>roaming.example</Address><Port>3130</Port></Proxy></VnLinkhostConfig>";
    WriteBytes(SecondaryFile(), roaming);
    const FILETIME written = LastWrite(SecondaryFile());

    CConfigData data = DefaultRecord();
    ASSERT_EQ(S_OK, Load(data));
    CConfigData expected = DefaultRecord();
    expected.m_UseSystemProxy = false;
    expected.m_ProxyMode = ProxyManual;
    expected.m_ProxyAddress = "roaming.example";
    expected.m_ProxyPort = 3130;
    EXPECT_TRUE(SameRecord(expected, data));
    EXPECT_EQ(WithCrLf(ToXml(expected)), ReadBytes(PrimaryFile())) << "the local copy is the record as saved";
    EXPECT_EQ(roaming, ReadBytes(SecondaryFile()));
    EXPECT_TRUE(SameTime(written, LastWrite(SecondaryFile())));

    // From now on the local copy is read, whatever the roaming file says.
    WriteBytes(SecondaryFile(), Replace(roaming, "roaming.example", "changed.roaming"));
    const FILETIME changed = LastWrite(SecondaryFile());
    const std::string changedBytes = ReadBytes(SecondaryFile());
    CConfigData again = DefaultRecord();
    ASSERT_EQ(S_OK, Load(again));
    EXPECT_EQ("roaming.example", again.m_ProxyAddress);

    WriteBytes(PrimaryFile(), Replace(ReadBytes(PrimaryFile()), "roaming.example", "local.example"));
    CConfigData local = DefaultRecord();
    ASSERT_EQ(S_OK, Load(local));
    EXPECT_EQ("local.example", local.m_ProxyAddress);

    EXPECT_EQ(changedBytes, ReadBytes(SecondaryFile()));
    EXPECT_TRUE(SameTime(changed, LastWrite(SecondaryFile())));
    EXPECT_EQ(0, LogLines("Warning in method")) << Log();
}

TEST_F(ConfigFileLoad, LocalFileThatCannotBeOpenedFallsBackToTheRoamingOne)
{
    // A folder in the place of the local file: it can be neither read nor written.
    ASSERT_TRUE(::CreateDirectoryA(PrimaryFile().c_str(), nullptr));
    WriteBytes(SecondaryFile(), WithCrLf(ToXml(Unusual())));
    CConfigData data = DefaultRecord();
    // The copy into the local folder fails, and that changes nothing for the load.
    EXPECT_EQ(S_OK, Load(data));
    EXPECT_TRUE(SameRecord(Unusual(), data));
    EXPECT_EQ(1, LogLines(kCannotSaveFile)) << Log();
    EXPECT_EQ(WithCrLf(ToXml(Unusual())), ReadBytes(SecondaryFile()));
}

// ---------------------------------------------------------------------------
// Saving.

TEST_F(ConfigFileSave, ReadOnlyHiddenFileIsSavedAndLosesItsMarks)
{
    WriteBytes(PrimaryFile(), "old");
    ASSERT_TRUE(::SetFileAttributesA(PrimaryFile().c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    ASSERT_EQ(S_OK, Save(DefaultsWithSkip()));
    EXPECT_EQ(WithCrLf(kKnownFile), ReadBytes(PrimaryFile()));
    const DWORD attributes = ::GetFileAttributesA(PrimaryFile().c_str());
    EXPECT_EQ(0u, attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN)) << attributes;
}

TEST_F(ConfigFileSave, FileThatCannotBeOpenedGivesOneWithAWarning)
{
    ASSERT_TRUE(::CreateDirectoryA(PrimaryFile().c_str(), nullptr));
    EXPECT_EQ(S_FALSE, Save(DefaultRecord()));
    EXPECT_EQ(1, LogLines(kCannotSaveFile)) << Log();
    EXPECT_FALSE(FileExists(SecondaryFile())) << "a failed save does not go elsewhere";
}

TEST_F(ConfigFileSave, ShorterRecordReplacesTheWholeOldFile)
{
    CConfigData longer = Unusual();
    longer.m_ProxyScript = std::string(5000, 's');
    ASSERT_EQ(S_OK, Save(longer));
    ASSERT_EQ(S_OK, Save(DefaultsWithSkip()));
    EXPECT_EQ(WithCrLf(kKnownFile), ReadBytes(PrimaryFile()));
}

// ---------------------------------------------------------------------------
// Bad, truncated and hostile files.

struct HostileFile {
    const char* name;
    std::string bytes;
    HRESULT status;
    std::string logLine;                     // one line of the log that the load must add
    std::function<void(CConfigData&)> read;  // what the load changes in a record of defaults
};

std::string Repeat(const std::string& part, int count)
{
    std::string out;
    out.reserve(part.size() * count);
    for (int i = 0; i < count; ++i)
        out += part;
    return out;
}

std::vector<HostileFile> HostileFiles()
{
    const std::string known = WithCrLf(kKnownFile);
    const std::string unusual = WithCrLf(ToXml(Unusual()));
    auto nothing = [](CConfigData&) {};
    return {
        {"bare ampersand", Replace(unusual, "*.intern;10.*", "intranet&co"), VN_E_CONFIG_XML, kCannotLoadFile, nothing},
        {"cut inside a tag", unusual.substr(0, unusual.find("<Address>") + 4), VN_E_CONFIG_XML, kCannotLoadFile,
         nothing},
        // Cut between elements the parser sees a clean end: what came before is read.
        {"cut between elements", unusual.substr(0, unusual.find("\t\t<Port>")), S_OK, std::string(),
         [](CConfigData& d) {
             d.m_UseSystemConnection = false;
             d.m_DialMode = DialAlways;
             d.m_DefaultConnection = "B\xFCro-ISDN";
             d.m_UseSystemProxy = false;
             d.m_ProxyMode = ProxyScript;
             d.m_ProxyAddress = "cache.intern";
         }},
        {"binary bytes", std::string("\x00\x01\xFE\x80<\x02>\xFF\x1A", 9), VN_E_CONFIG_XML, kCannotLoadFile, nothing},
        {"binary bytes after the root", unusual + std::string("\x00<\x01\x02", 4), VN_E_CONFIG_XML, kCannotLoadFile,
         nothing},
        {"empty file", "", S_FALSE, kCannotLoadString, nothing},
        {"head without a root", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n", S_FALSE, kCannotLoadString,
         nothing},
        {"plain text", "Proxy=cache.intern:3128\r\n", S_FALSE, kCannotLoadString, nothing},
        {"wrong root", Replace(Replace(unusual, "<VnLinkhostConfig>", "<Settings>"), "</VnLinkhostConfig>", "</Settings>"),
         S_OK, std::string(), [](CConfigData& d) { d = Unusual(); }},
        {"unknown elements",
         Replace(known, "\t\t<Port>8080</Port>\r\n",
                 "\t\t<Port>3131</Port>\r\n\t\t<Colour shade = \"dark\">red</Colour>\r\n\t\t<Nested><Mode>9</Mode></Nested>\r\n"),
         S_OK, std::string(),
         [](CConfigData& d) {
             d.m_ProxyPort = 3131;
             d.m_SkipHeadAuth = true;
         }},
        {"huge file",
         "<VnLinkhostConfig>" + Repeat("<Pad a = \"1\">xyz</Pad>", 50000) + "<Proxy useSystemProxy = \"true\"><Address>" +
             std::string(4 << 20, 'h') + "</Address><Port>3132</Port></Proxy></VnLinkhostConfig>",
         S_OK, std::string(),
         [](CConfigData& d) {
             d.m_ProxyAddress = std::string(4 << 20, 'h');
             d.m_ProxyPort = 3132;
         }},
        {"deeply nested", "<c>" + Repeat("<n>", 100000) + Repeat("</n>", 100000) +
                              "<Proxy useSystemProxy = \"true\"><Port>3133</Port></Proxy></c>",
         S_OK, std::string(), [](CConfigData& d) { d.m_ProxyPort = 3133; }},
        {"never closed", "<c><Proxy useSystemProxy = \"true\"><Port>3134</Port></Proxy>" + Repeat("<n>", 100000), S_OK,
         std::string(), [](CConfigData& d) { d.m_ProxyPort = 3134; }},
    };
}

TEST_F(ConfigFileHostile, EachFileGivesItsStatusAndLineAndLeavesWhatItDescribes)
{
    for (const HostileFile& file : HostileFiles()) {
        SCOPED_TRACE(file.name);
        WriteBytes(PrimaryFile(), file.bytes);
        const size_t log = vn_test::LogSize();
        CConfigData data = DefaultRecord();
        EXPECT_EQ(file.status, Load(data));
        CConfigData expected = DefaultRecord();
        file.read(expected);
        EXPECT_TRUE(SameRecord(expected, data));
        if (!file.logLine.empty()) {
            EXPECT_EQ(1, vn_test::CountLogLinesSince(log, file.logLine)) << vn_test::LogSince(log);
        } else {
            EXPECT_EQ(0, vn_test::CountLogLinesSince(log, "CVnLinkhostXMLConfigManager")) << vn_test::LogSince(log);
        }
        EXPECT_EQ(file.bytes, ReadBytes(PrimaryFile())) << "a load never writes the local file";
    }
}

// ---------------------------------------------------------------------------
// The root object over the file.

vfc::TComPtr<CVnLinkhostObject> MakeRoot()
{
    CVnLinkhostObject* raw = nullptr;
    EXPECT_EQ(S_OK, CVnLinkhostObject::Create(&raw));
    vfc::TComPtr<CVnLinkhostObject> root;
    root.attach(raw);
    return root;
}

std::wstring Key(CVnLinkhostObject* root, const wchar_t* name)
{
    vfc::TBstr key(name), value;
    EXPECT_EQ(S_OK, root->GetConfigurationValue(key.get(), value.put())) << name;
    return value.str();
}

HRESULT SetKey(CVnLinkhostObject* root, const wchar_t* name, const wchar_t* value)
{
    vfc::TBstr key(name), text(value);
    return root->SetConfigurationValue(key.get(), text.get());
}

TEST_F(RootObjectConfigFile, StartsFromTheFileOverTheDefaults)
{
    WriteBytes(PrimaryFile(), "<VnLinkhostConfig><Proxy useSystemProxy = \"true\"><Port>3128</Port></Proxy>"
                              "</VnLinkhostConfig>");
    auto root = MakeRoot();
    ASSERT_TRUE(root);
    EXPECT_EQ(L"3128", Key(root.get(), L"proxy/port"));
    EXPECT_EQ(L"proxy", Key(root.get(), L"proxy/address"));
    EXPECT_EQ(L"localhost", Key(root.get(), L"proxy/exclude"));
    EXPECT_EQ(L"1", Key(root.get(), L"dialup/mode"));
    EXPECT_EQ(L"true", Key(root.get(), L"dialup/useSystemConnection"));
}

TEST_F(RootObjectConfigFile, StartsOverEveryHostileFileWithWhatTheLoadLeaves)
{
    for (const HostileFile& file : HostileFiles()) {
        SCOPED_TRACE(file.name);
        WriteBytes(PrimaryFile(), file.bytes);
        const size_t log = vn_test::LogSize();
        auto root = MakeRoot();
        ASSERT_TRUE(root);
        CConfigData expected = DefaultRecord();
        file.read(expected);
        EXPECT_EQ(vfc::Widen(expected.m_ProxyAddress), Key(root.get(), L"proxy/address"));
        EXPECT_EQ(std::to_wstring(expected.m_ProxyPort), Key(root.get(), L"proxy/port"));
        EXPECT_EQ(expected.m_UseSystemProxy ? L"true" : L"false", Key(root.get(), L"proxy/useSystemProxy"));
        EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "starting up"));
        if (!file.logLine.empty()) {
            EXPECT_EQ(1, vn_test::CountLogLinesSince(log, file.logLine)) << vn_test::LogSince(log);
        }
    }
}

TEST_F(RootObjectConfigFile, StartsWithTheDefaultsAndCreatesNoFileWhenThereIsNone)
{
    auto root = MakeRoot();
    ASSERT_TRUE(root);
    EXPECT_EQ(L"8080", Key(root.get(), L"proxy/port"));
    EXPECT_EQ(L"true", Key(root.get(), L"proxy/useSystemProxy"));
    EXPECT_EQ(1, LogLines(kCannotOpenFile)) << Log();
    EXPECT_FALSE(FileExists(PrimaryFile()));
}

TEST_F(RootObjectConfigFile, SaveWritesTheRecordAndLoadReadsItBack)
{
    auto root = MakeRoot();
    ASSERT_TRUE(root);
    ASSERT_EQ(S_OK, SetKey(root.get(), L"proxy/address", L"saved.example"));
    ASSERT_EQ(S_OK, SetKey(root.get(), L"proxy/skipHeadAuth", L"true"));
    ASSERT_EQ(S_OK, root->SaveConfiguration());
    EXPECT_EQ(WithCrLf(Replace(kKnownFile, "<Address>proxy<", "<Address>saved.example<")), ReadBytes(PrimaryFile()));

    ASSERT_EQ(S_OK, SetKey(root.get(), L"proxy/address", L"unsaved.example"));
    ASSERT_EQ(S_OK, SetKey(root.get(), L"proxy/port", L"1"));
    ASSERT_EQ(S_OK, root->LoadConfiguration());
    EXPECT_EQ(L"saved.example", Key(root.get(), L"proxy/address"));
    EXPECT_EQ(L"8080", Key(root.get(), L"proxy/port"));

    // Without a file the record keeps what it has.
    RemovePath(PrimaryFile());
    ASSERT_EQ(S_OK, SetKey(root.get(), L"proxy/port", L"2"));
    EXPECT_EQ(S_FALSE, root->LoadConfiguration());
    EXPECT_EQ(L"2", Key(root.get(), L"proxy/port"));
    EXPECT_EQ(L"saved.example", Key(root.get(), L"proxy/address"));
}

TEST_F(RootObjectConfigFile, SaveAndLoadReportWhatTheFileAllows)
{
    auto root = MakeRoot();
    ASSERT_TRUE(root);
    ASSERT_TRUE(::CreateDirectoryA(PrimaryFile().c_str(), nullptr));
    EXPECT_EQ(S_FALSE, root->SaveConfiguration());
    EXPECT_EQ(1, LogLines(kCannotSaveFile)) << Log();
    RemovePath(PrimaryFile());

    WriteBytes(PrimaryFile(), Replace(WithCrLf(kKnownFile), "<Exclude>localhost", "<Exclude>a&b"));
    ASSERT_EQ(S_OK, SetKey(root.get(), L"proxy/exclude", L"kept"));
    EXPECT_EQ(VN_E_CONFIG_XML, root->LoadConfiguration());
    EXPECT_EQ(L"kept", Key(root.get(), L"proxy/exclude"));
}

}  // namespace
