// Helpers of the tests of the configuration file: where the file lives in
// the test prefix (worked out here on its own, not asked of the product),
// byte-exact reading and writing, and a guard that gives each test empty
// folders and puts back whatever was there before.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>
#include <shlobj.h>

#include <fstream>
#include <sstream>
#include <string>

#include "settings/config_data.h"

namespace vn_config_test {

// The file as a record with all defaults and the skip flag set is written,
// with the bare line feeds of the tree writer.
constexpr const char* kKnownFile =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<VnLinkhostConfig>\n"
    "\t<DialUp useSystemConnection = \"true\">\n"
    "\t\t<Mode>1</Mode>\n"
    "\t\t<DialConnectionName></DialConnectionName>\n"
    "\t</DialUp>\n"
    "\t<Proxy useSystemProxy = \"true\">\n"
    "\t\t<Mode>0</Mode>\n"
    "\t\t<Address>proxy</Address>\n"
    "\t\t<Port>8080</Port>\n"
    "\t\t<NoLocal>true</NoLocal>\n"
    "\t\t<Exclude>localhost</Exclude>\n"
    "\t\t<Script></Script>\n"
    "\t</Proxy>\n"
    "\t<skip-head-authentication>true</skip-head-authentication>\n"
    "</VnLinkhostConfig>\n";

// Every line feed turned into CR LF, as a text-mode file holds it on disk.
inline std::string WithCrLf(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '\n')
            out += '\r';
        out += c;
    }
    return out;
}

inline CConfigData DefaultRecord()
{
    CConfigData data;
    data.SetDefaults();
    return data;
}

inline std::string FolderFile(int csidl)
{
    char base[MAX_PATH] = {};
    ::SHGetFolderPathA(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, 0, base);
    return std::string(base) + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.xml";
}
inline std::string PrimaryFile() { return FolderFile(CSIDL_LOCAL_APPDATA); }
inline std::string SecondaryFile() { return FolderFile(CSIDL_APPDATA); }

inline bool FileExists(const std::string& path)
{
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// The whole file byte for byte, or "<missing>".
inline std::string ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "<missing>";
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// Writes exactly these bytes, creating the folder if needed.
inline void WriteBytes(const std::string& path, const std::string& bytes)
{
    const std::string folder = path.substr(0, path.find_last_of('\\'));
    ::SHCreateDirectoryExA(nullptr, folder.c_str(), nullptr);
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    ASSERT_TRUE(out.is_open()) << path;
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Removes a file, or the folder that a test put in its place.
inline void RemovePath(const std::string& path)
{
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        ::RemoveDirectoryA(path.c_str());
        return;
    }
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    ::DeleteFileA(path.c_str());
}

// Empties both folders of the configuration file for the length of a scope
// and puts back what was there, so that the other tests of the prefix keep
// starting from their own state.
class TConfigFilesGuard {
public:
    TConfigFilesGuard()
    {
        for (Saved& s : m_saved) {
            s.present = FileExists(s.path);
            if (s.present)
                s.bytes = ReadBytes(s.path);
            RemovePath(s.path);
        }
    }
    ~TConfigFilesGuard()
    {
        for (Saved& s : m_saved) {
            RemovePath(s.path);
            if (s.present)
                WriteBytes(s.path, s.bytes);
        }
    }
    TConfigFilesGuard(const TConfigFilesGuard&) = delete;
    TConfigFilesGuard& operator=(const TConfigFilesGuard&) = delete;

private:
    struct Saved {
        std::string path;
        bool present = false;
        std::string bytes;
    };
    Saved m_saved[2] = {{PrimaryFile(), false, {}}, {SecondaryFile(), false, {}}};
};

// Field by field, so that a failure names each field that differs; used as
// EXPECT_TRUE(SameRecord(...)) it reports the caller's line.
inline testing::AssertionResult SameRecord(const CConfigData& expected, const CConfigData& actual)
{
    std::ostringstream diff;
    auto field = [&](const char* name, const auto& e, const auto& a) {
        if (!(e == a))
            diff << ' ' << name << ": expected " << e << ", got " << a << ';';
    };
    field("m_UseSystemProxy", expected.m_UseSystemProxy, actual.m_UseSystemProxy);
    field("m_ProxyMode", expected.m_ProxyMode, actual.m_ProxyMode);
    field("m_ProxyAddress", expected.m_ProxyAddress, actual.m_ProxyAddress);
    field("m_ProxyPort", expected.m_ProxyPort, actual.m_ProxyPort);
    field("m_ProxyExclude", expected.m_ProxyExclude, actual.m_ProxyExclude);
    field("m_ProxyNoLocal", expected.m_ProxyNoLocal, actual.m_ProxyNoLocal);
    field("m_ProxyScript", expected.m_ProxyScript, actual.m_ProxyScript);
    field("m_UseSystemConnection", expected.m_UseSystemConnection, actual.m_UseSystemConnection);
    field("m_DialMode", expected.m_DialMode, actual.m_DialMode);
    field("m_DefaultConnection", expected.m_DefaultConnection, actual.m_DefaultConnection);
    field("m_SessionFlags", expected.m_SessionFlags, actual.m_SessionFlags);
    field("m_SkipHeadAuth", expected.m_SkipHeadAuth, actual.m_SkipHeadAuth);
    if (diff.str().empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "records differ:" << diff.str();
}

}  // namespace vn_config_test
