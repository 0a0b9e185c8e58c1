// Which store the factory picks. The answer of GetVersionExA is fixed when a
// process starts, so each case runs a copy of this test program under a name
// of its own, for which the prefix's AppDefaults give the Windows version.
#include <gtest/gtest.h>

#include <cstdio>
#include <typeinfo>

#include "credentials/credentials_support.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;

namespace {

std::string SelfPath()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

// A copy of this program beside it, run as the given Wine version; the copy
// and its AppDefaults key go when the object does.
class TVersionedCopy {
public:
    explicit TVersionedCopy(const std::string& version)
        : m_name("vncred_" + version + "_" + std::to_string(::GetCurrentProcessId()) + ".exe"),
          m_path(vn_test::BinDir() + "\\" + m_name),
          m_key("Software\\Wine\\AppDefaults\\" + m_name)
    {
        m_ready = ::CopyFileA(SelfPath().c_str(), m_path.c_str(), FALSE) &&
                  ::RegSetKeyValueA(HKEY_CURRENT_USER, m_key.c_str(), "Version", REG_SZ, version.c_str(),
                                    static_cast<DWORD>(version.size() + 1)) == ERROR_SUCCESS;
    }
    ~TVersionedCopy()
    {
        ::RegDeleteTreeA(HKEY_CURRENT_USER, m_key.c_str());
        ::DeleteFileA(m_path.c_str());
    }
    TVersionedCopy(const TVersionedCopy&) = delete;
    TVersionedCopy& operator=(const TVersionedCopy&) = delete;

    bool ready() const { return m_ready; }

    // What the copy reports: "version=<major>.<minor> store=<kind>", or the
    // whole output when that line is missing.
    std::string Report() const
    {
        std::string output;
        vn_test::RunCapture("\"" + m_path +
                                "\" --gtest_also_run_disabled_tests "
                                "--gtest_filter=CredentialStoreChoice.DISABLED_ChildReportsItsStore",
                            output);
        size_t at = output.find("version=");
        if (at == std::string::npos)
            return output;
        return output.substr(at, output.find_first_of("\r\n", at) - at);
    }

private:
    std::string m_name, m_path, m_key;
    bool m_ready = false;
};

std::string ReportFor(const std::string& version)
{
    TVersionedCopy copy(version);
    if (!copy.ready())
        return "copy not made";
    return copy.Report();
}

TEST(CredentialStoreChoice, WindowsXPServer2003VistaAnd7UseTheCredentialManager)
{
    VN_REQUIRE_STANDIN_CREDUI();
    EXPECT_EQ(ReportFor("winxp"), "version=5.1 store=WinCred");
    EXPECT_EQ(ReportFor("win2003"), "version=5.2 store=WinCred");
    EXPECT_EQ(ReportFor("vista"), "version=6.0 store=WinCred");
    EXPECT_EQ(ReportFor("win7"), "version=6.1 store=WinCred");
}

TEST(CredentialStoreChoice, NT4AndWindows2000UseTheLsaStore)
{
    EXPECT_EQ(ReportFor("nt40"), "version=4.0 store=LSA");
    EXPECT_EQ(ReportFor("win2k"), "version=5.0 store=LSA");
}

TEST(CredentialStoreChoice, WithoutCREDUIDLLTheLsaStoreTakesOver)
{
    VN_REQUIRE_STANDIN_CREDUI();
    TCredUIAnswers answers;
    answers.MakeUnloadable();
    EXPECT_EQ(ReportFor("win7"), "version=6.1 store=LSA");
}

// The child half: run only by the tests above, in a copy of this program.
TEST(CredentialStoreChoice, DISABLED_ChildReportsItsStore)
{
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_TRUE(::GetVersionExA(&info));
    IVnCredentialsManager* manager = GetCredentialsManager();
    const char* kind = dynamic_cast<VnCredentialsManagers::WinCredCredentialsManager*>(manager) ? "WinCred"
                       : dynamic_cast<VnCredentialsManagers::LSACredentialsManager*>(manager)   ? "LSA"
                                                                                                : "unknown";
    std::printf("version=%lu.%lu store=%s\n", info.dwMajorVersion, info.dwMinorVersion, kind);
    std::fflush(stdout);
}

}  // namespace
