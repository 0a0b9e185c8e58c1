// The administrative roles of the real program: what registering writes to
// the prefix and unregistering removes, and the exit status of command lines
// that do no work.
#include <gtest/gtest.h>

#include "server/server_fixture.h"

namespace {

using namespace vn_test;

const std::string kClsid = "{566E4C48-7F95-4309-B372-41BF7CD4804C}";
const std::string kAppId = "{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";
const std::string kLibId = "{566E4C48-039E-43DE-9D14-4E38B2348BD7}";
const std::string kCategory = "Component Categories\\{566E4C48-60C4-4777-A4B1-D178F6C1AE38}";

// Registry values under HKCR that registering writes and unregistering
// removes; a null text only asks for the key.
struct TRegistered {
    std::string key;
    const char* value;
    const char* text;
} const kRegistered[] = {
    {"CLSID\\" + kClsid, nullptr, "Velorin Linkhost Object"},
    {"CLSID\\" + kClsid, "AppID", kAppId.c_str()},
    {"CLSID\\" + kClsid + "\\LocalServer32", "ThreadingModel", "Free"},
    {"CLSID\\" + kClsid + "\\ProgID", nullptr, "VnLinkhost.VnLinkhostObject.1"},
    {"CLSID\\" + kClsid + "\\VersionIndependentProgID", nullptr, "VnLinkhost.VnLinkhostObject"},
    {"CLSID\\" + kClsid + "\\TypeLib", nullptr, kLibId.c_str()},
    {"CLSID\\" + kClsid + "\\Programmable", nullptr, nullptr},
    {"AppID\\" + kAppId, nullptr, "Velorin Linkhost Object"},
    {"AppID\\VnLinkhost.exe", "AppID", kAppId.c_str()},
    {"VnLinkhost.VnLinkhostObject\\CLSID", nullptr, kClsid.c_str()},
    {"VnLinkhost.VnLinkhostObject\\CurVer", nullptr, "VnLinkhost.VnLinkhostObject.1"},
    {"VnLinkhost.VnLinkhostObject.1\\CLSID", nullptr, kClsid.c_str()},
    {"TypeLib\\" + kLibId + "\\1.0", nullptr, nullptr},
};

TEST(Registration, RegServerWritesTheServerAndUnregisterRemovesAllButTheCategory)
{
    ASSERT_EQ(0u, RunServer("/RegServer"));
    for (const auto& r : kRegistered)
        EXPECT_EQ(r.text ? r.text : "", r.text ? RegText(HKEY_CLASSES_ROOT, r.key, r.value)
                                               : RegKeyExists(HKEY_CLASSES_ROOT, r.key) ? "" : "<missing>") << r.key;
    const std::string server = RegText(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid + "\\LocalServer32", nullptr);
    EXPECT_NE(std::string::npos, server.find("VnLinkhost.exe")) << server;
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "Interface\\{566E4C48-F86F-448E-B37D-2C44BF941431}\\ProxyStubClsid32"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, kCategory));

    ASSERT_EQ(0u, RunServer("-u"));
    for (const auto& r : kRegistered)
        EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, r.key)) << r.key;
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "TypeLib\\" + kLibId));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "AppID")) << "the parent key is never removed";
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, kCategory));
    HRESULT hr = S_OK;
    EXPECT_FALSE(CreateRoot(&hr));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, hr);
    EXPECT_EQ(0u, RunServer("-u")) << "unregistering twice is no error";
    EXPECT_EQ(0u, RunServer("-r")) << "the box that reports it fails at once without a display";
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid));
}

TEST(Registration, CommandLinesThatDoNoWorkEndWithEFail)
{
    // No display: the usage box fails at once instead of waiting for a click.
    for (const char* arguments : {"", "-h", "--help", "-x", "--reg", "foo -r", "-- -r", "--help=x", "-h -r"})
        EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer(arguments)) << "arguments: " << arguments;
}

}  // namespace
