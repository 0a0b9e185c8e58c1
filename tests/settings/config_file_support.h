// The configuration file in the test prefix (found here, not asked of the product); a guard empties and restores both;
// a record as the file's text.
#pragma once

#include <windows.h>
#include <shlobj.h>

#include <fstream>
#include <string>

#include "common/test_util.h"
#include "settings/xml_config_manager.h"
#include "vfc/bstr.h"
#include "vfc/text.h"

namespace vn_config_test {

// The product's folder in the local or (with CSIDL_APPDATA) the roaming profile.
inline std::string VelorinFolder(int csidl = CSIDL_LOCAL_APPDATA)
{
    char base[MAX_PATH] = {};
    ::SHGetFolderPathA(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, 0, base);
    return std::string(base) + "\\Velorin";
}
inline std::string FolderFile(int csidl) { return VelorinFolder(csidl) + "\\VnLinkhost\\Konfiguration\\VnLinkhost.xml"; }
inline std::string PrimaryFile() { return FolderFile(CSIDL_LOCAL_APPDATA); }
inline std::string SecondaryFile() { return FolderFile(CSIDL_APPDATA); }
inline bool FileExists(const std::string& path) { return !(::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY); }
inline std::string ReadBytes(const std::string& path) { return FileExists(path) ? vn_test::ReadWholeFile(path) : "<missing>"; }
inline void WriteBytes(const std::string& path, const std::string& bytes)
{
    ::SHCreateDirectoryExA(nullptr, path.substr(0, path.rfind('\\')).c_str(), nullptr);
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
inline void RemovePath(const std::string& path)  // a file, or the folder a test put in its place
{
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    ::DeleteFileA(path.c_str());
    ::RemoveDirectoryA(path.c_str());
}

// A record as the tree writer gives it, with line feeds; CrLf turns them into the file's line ends (text mode).
inline std::string ToXml(const CConfigData& data)
{
    vfc::TBstr xml;
    return CVnLinkhostXMLConfigManager().ConfigDataToXML(&data, xml.put()) == S_OK ? vfc::Narrow(xml.str()) : "<failed>";
}
inline std::string CrLf(std::string text)
{
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2))
        text.insert(at, 1, '\r');
    return text;
}

class TConfigFilesGuard {
public:
    TConfigFilesGuard() { RemovePath(m_paths[0]), RemovePath(m_paths[1]); }
    ~TConfigFilesGuard()
    {
        for (int i = 0; i < 2; ++i) {
            RemovePath(m_paths[i]);
            if (m_saved[i] != "<missing>")
                WriteBytes(m_paths[i], m_saved[i]);
        }
    }

private:
    const std::string m_paths[2] = {PrimaryFile(), SecondaryFile()}, m_saved[2] = {ReadBytes(m_paths[0]), ReadBytes(m_paths[1])};
};

}  // namespace vn_config_test
