// The two stores at rest: the Credential Manager, real under Wine, and the
// LSA private data store, which Wine only stubs (the policy opens, but no
// secret is ever kept).
#include <gtest/gtest.h>

#include <stdexcept>

#include "credentials/credentials_support.h"
#include "host/log.h"
#include "host/status.h"
#include "settings/credentials_managers.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;
using VnCredentialsManagers::LSACredentialsManager;
using VnCredentialsManagers::SplitLsaSecret;
using VnCredentialsManagers::WinCredCredentialsManager;

namespace {

// ---------------------------------------------------------------------------
// Credential Manager

class CredentialManagerStore : public ::testing::Test {
protected:
    const std::wstring m_target = Wide(UniqueName("store-proxy")) + L":3128";
    TStoreCleanup m_cleanup{{m_target, L""}};
    WinCredCredentialsManager m_store;
};

TEST_F(CredentialManagerStore, KeepsTheLoginAsAGenericCredentialOfTheLocalMachine)
{
    const std::wstring password = L"p\u00e4ssword";
    ASSERT_TRUE(m_store.StoreCredentials(m_target, L"user", password));

    TStoredCredential stored = ReadStored(m_target);
    ASSERT_TRUE(stored.found);
    EXPECT_EQ(stored.userName, L"user");
    EXPECT_EQ(stored.blob, password);
    EXPECT_EQ(stored.blobBytes, password.size() * sizeof(wchar_t)) << "the blob has no terminator";
    EXPECT_EQ(stored.persist, static_cast<DWORD>(CRED_PERSIST_LOCAL_MACHINE));
    EXPECT_EQ(stored.flags, 0u);
}

TEST_F(CredentialManagerStore, ReadsWhatThePlatformHolds)
{
    ASSERT_TRUE(WriteStored(m_target, L"someone", L"their-secret"));

    std::wstring login, password;
    ASSERT_TRUE(m_store.RetrieveCredentials(m_target, login, password));
    EXPECT_EQ(login, L"someone");
    EXPECT_EQ(password, L"their-secret");
}

TEST_F(CredentialManagerStore, ACredentialWithoutBlobIsALoginWithAnEmptyPassword)
{
    ASSERT_TRUE(WriteStored(m_target, L"someone", L""));

    std::wstring login = L"x", password = L"x";
    ASSERT_TRUE(m_store.RetrieveCredentials(m_target, login, password));
    EXPECT_EQ(login, L"someone");
    EXPECT_EQ(password, L"");
}

TEST_F(CredentialManagerStore, AnUnknownNameFindsNothing)
{
    std::wstring login, password;
    EXPECT_FALSE(m_store.RetrieveCredentials(m_target, login, password));
    EXPECT_FALSE(m_store.RetrieveCredentials(L"", login, password));
}

TEST_F(CredentialManagerStore, TwoPortsOfOneHostAreTwoCredentials)
{
    const std::wstring host = Wide(UniqueName("store-host"));
    TStoreCleanup cleanup({host + L":8080", host + L":8081"});
    ASSERT_TRUE(m_store.StoreCredentials(host + L":8080", L"user-a", L"pass-a"));
    ASSERT_TRUE(m_store.StoreCredentials(host + L":8081", L"user-b", L"pass-b"));

    std::wstring login, password;
    ASSERT_TRUE(m_store.RetrieveCredentials(host + L":8080", login, password));
    EXPECT_EQ(login, L"user-a");
    ASSERT_TRUE(m_store.RetrieveCredentials(host + L":8081", login, password));
    EXPECT_EQ(login, L"user-b");
    EXPECT_EQ(password, L"pass-b");
}

// Wine's Credential Manager itself takes empty targets, empty and overlong
// logins and overlong passwords; the store must keep to the platform's
// documented limits by itself.
TEST_F(CredentialManagerStore, WritesNothingOutsideThePlatformsLimits)
{
    const std::wstring probe = m_target + L"-probe";
    TStoreCleanup probeCleanup({probe});
    ASSERT_TRUE(WriteStored(probe, std::wstring(514, L'u'), std::wstring(1281, L'p')))
        << "Wine is expected to accept what the limits forbid; otherwise this test shows nothing";

    EXPECT_FALSE(m_store.StoreCredentials(L"", L"user", L"secret"));
    EXPECT_FALSE(ReadStored(L"").found);

    EXPECT_FALSE(m_store.StoreCredentials(m_target, L"", L"secret"));
    EXPECT_FALSE(ReadStored(m_target).found);

    EXPECT_FALSE(m_store.StoreCredentials(m_target, std::wstring(514, L'u'), L"secret"));
    EXPECT_FALSE(ReadStored(m_target).found);

    EXPECT_FALSE(m_store.StoreCredentials(m_target, L"user", std::wstring(1281, L'p')));
    EXPECT_FALSE(ReadStored(m_target).found);
}

TEST_F(CredentialManagerStore, WritesALoginAndAPasswordOfTheLargestSize)
{
    ASSERT_TRUE(m_store.StoreCredentials(m_target, std::wstring(513, L'u'), std::wstring(1280, L'p')));

    TStoredCredential stored = ReadStored(m_target);
    ASSERT_TRUE(stored.found);
    EXPECT_EQ(stored.userName.size(), 513u);
    EXPECT_EQ(stored.blobBytes, 2560u);
}

// ---------------------------------------------------------------------------
// Across processes: a login saved through the prompt in one process is found
// by the next, which the child half below plays.

constexpr const char* kSavedProxyVar = "VN_CRED_TEST_SAVED_PROXY";
constexpr const char* kUnsavedProxyVar = "VN_CRED_TEST_UNSAVED_PROXY";

std::string Environment(const char* name)
{
    char value[1024] = {};
    DWORD n = ::GetEnvironmentVariableA(name, value, sizeof value);
    return n && n < sizeof value ? std::string(value, n) : std::string();
}

std::string SelfPath()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

TEST(StoredLoginAcrossProcesses, ATickedLoginIsUsedByTheNextProcessWithoutAskingAnUntickedOneIsAskedFor)
{
    VN_REQUIRE_STANDIN_CREDUI();
    ASSERT_NE(dynamic_cast<WinCredCredentialsManager*>(GetCredentialsManager()), nullptr);
    const std::string saved = UniqueName("saved-proxy") + ":3128";
    const std::string unsaved = UniqueName("unsaved-proxy") + ":3128";
    TStoreCleanup cleanup({Wide(saved), Wide(unsaved)});
    TCredUIAnswers answers;

    TRequest first = TRequest::Unsent();
    answers.TypeLogin("saved-user", "saved-secret");
    ASSERT_EQ(CVnProxyCredentials::GetProxyCredentials(saved, first.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);
    TRequest second = TRequest::Unsent();
    answers.TypeLogin("unsaved-user", "unsaved-secret");
    answers.LeaveTick(false);
    ASSERT_EQ(CVnProxyCredentials::GetProxyCredentials(unsaved, second.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);

    // The user of the next process cancels any prompt.
    answers.Cancel();
    ::SetEnvironmentVariableA(kSavedProxyVar, saved.c_str());
    ::SetEnvironmentVariableA(kUnsavedProxyVar, unsaved.c_str());
    std::string output;
    DWORD code = vn_test::RunCapture("\"" + SelfPath() +
                                         "\" --gtest_also_run_disabled_tests "
                                         "--gtest_filter=StoredLoginAcrossProcesses.DISABLED_ChildFindsTheTickedLogin",
                                     output);
    ::SetEnvironmentVariableA(kSavedProxyVar, nullptr);
    ::SetEnvironmentVariableA(kUnsavedProxyVar, nullptr);

    EXPECT_EQ(code, 0u) << output;
    EXPECT_NE(output.find("[  PASSED  ] 1 test."), std::string::npos) << output;
}

// The child half: run only by the test above, in a new process.
TEST(StoredLoginAcrossProcesses, DISABLED_ChildFindsTheTickedLogin)
{
    const std::string saved = Environment(kSavedProxyVar);
    const std::string unsaved = Environment(kUnsavedProxyVar);
    ASSERT_FALSE(saved.empty());
    ASSERT_FALSE(unsaved.empty());
    // The parent owns the stand-in's answers; this half only reads its journal.
    const DWORD promptsBefore = vn_credui_standin::ReadDword(L"Prompts", 0);

    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(saved, login, password), -1) << "a new process starts empty";
    TRequest request = TRequest::Unsent();
    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(saved, request.get(), nullptr, 1), ERROR_INTERNET_FORCE_RETRY);
    EXPECT_EQ(vn_credui_standin::ReadDword(L"Prompts", 0), promptsBefore);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "saved-user");
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), "saved-secret");
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(saved, login, password), 0);
    EXPECT_EQ(login, "saved-user");
    EXPECT_EQ(password, "saved-secret");

    TRequest other = TRequest::Unsent();
    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(unsaved, other.get(), nullptr, 1),
              static_cast<LONG>(VN_E_PROXY_LOGIN_CANCELLED));
    EXPECT_EQ(vn_credui_standin::ReadDword(L"Prompts", 0), promptsBefore + 1);
}

// ---------------------------------------------------------------------------
// LSA store under Wine

TEST(LsaStoreUnderWine, FindsItsSixFunctions)
{
    const size_t logOffset = vn_test::LogSize();
    LSACredentialsManager store;
    EXPECT_TRUE(store.IsUsable());
    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, "CVnProxyCredentials::CredentialsStorage::ctor"), 0);
}

TEST(LsaStoreUnderWine, AWriteReachesTheStoreButNothingIsKeptSoNothingIsFound)
{
    const std::wstring name = Wide(UniqueName("lsa-proxy"));
    LSACredentialsManager store;

    EXPECT_TRUE(store.StoreCredentials(name, L"user", L"secret"));

    std::wstring login, password;
    EXPECT_FALSE(store.RetrieveCredentials(name, login, password));
}

TEST(LsaStoreUnderWine, AnEmptyNameOrLoginIsNotWritten)
{
    LSACredentialsManager store;
    EXPECT_FALSE(store.StoreCredentials(L"", L"user", L"secret"));
    EXPECT_FALSE(store.StoreCredentials(Wide(UniqueName("lsa-proxy")), L"", L"secret"));
}

class LsaManager : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_server.listening());
        m_server.RequireProxyLogin("lsa-user", "lsa-secret");
    }
    TAuthServer m_server;
    TScriptedDialog m_dialog;
    LSACredentialsManager m_manager;
};

TEST_F(LsaManager, TheLoginTypedIntoThePlatformDialogPassesButIsNotRemembered)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_dialog.TypeLogin("lsa-user", "lsa-secret");
    const std::string proxy = m_server.ProxyText();

    EXPECT_TRUE(m_manager.GetCredentials(nullptr, proxy, request.get(), GetINetApiHandler(), 1, true));

    EXPECT_EQ(m_dialog.calls(), 1);
    EXPECT_EQ(m_dialog.error(), 0u);
    EXPECT_EQ(m_dialog.flags(), 7u);
    EXPECT_EQ(m_dialog.window(), ::GetDesktopWindow());
    EXPECT_EQ(m_dialog.handle(), request.get());
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "lsa-user");
    EXPECT_EQ(request.Send(), 200u);
    EXPECT_EQ(m_server.LastProxyAuthorization(), BasicHeader("lsa-user", "lsa-secret"));
    // The dialog's path leaves the map alone, and Wine's store kept nothing:
    // the next request asks again.
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), -1);
    TRequest next = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(next.Send(), 407u);
    EXPECT_TRUE(m_manager.GetCredentials(nullptr, proxy, next.get(), GetINetApiHandler(), 1, true));
    EXPECT_EQ(m_dialog.calls(), 2);
}

TEST_F(LsaManager, ACancelledDialogGivesFalse)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_dialog.Cancel();

    EXPECT_FALSE(m_manager.GetCredentials(nullptr, m_server.ProxyText(), request.get(), GetINetApiHandler(), 0, true));
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "");
}

TEST_F(LsaManager, Mode2NeverAsks)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_dialog.TypeLogin("lsa-user", "lsa-secret");

    EXPECT_TRUE(m_manager.GetCredentials(nullptr, m_server.ProxyText(), request.get(), GetINetApiHandler(), 2, true));

    EXPECT_EQ(m_dialog.calls(), 0);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "");
}

TEST_F(LsaManager, AnEmptyProxyNameAsksNobody)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    EXPECT_TRUE(m_manager.GetCredentials(nullptr, "", request.get(), GetINetApiHandler(), 0, true));
    EXPECT_EQ(m_dialog.calls(), 0);
}

TEST_F(LsaManager, AMissingHandleOrHandlerIsAnInvalidArgumentNamedAfterTheOtherManager)
{
    TRequest request = TRequest::Unsent();
    try {
        m_manager.GetCredentials(nullptr, "proxy:1", nullptr, GetINetApiHandler(), 0, true);
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "WinCredCredentialsManager::GetCredentials called with lpHandle == NULL");
    }
    try {
        m_manager.GetCredentials(nullptr, "proxy:1", request.get(), nullptr, 0, true);
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL");
    }
    EXPECT_EQ(m_dialog.calls(), 0);
}

// ---------------------------------------------------------------------------
// The content of an LSA secret

TEST(LsaSecretContent, SplitsAtTheFirstUnitSeparator)
{
    std::wstring login, password;
    SplitLsaSecret(L"user\x1f" L"secret", login, password);
    EXPECT_EQ(login, L"user");
    EXPECT_EQ(password, L"secret");

    SplitLsaSecret(L"user\x1f" L"sec\x1f" L"ret", login, password);
    EXPECT_EQ(login, L"user");
    EXPECT_EQ(password, L"sec\x1f" L"ret");
}

TEST(LsaSecretContent, WithoutTheSeparatorTheWholeTextIsTheLogin)
{
    std::wstring login, password = L"stale";
    SplitLsaSecret(L"user", login, password);
    EXPECT_EQ(login, L"user");
    EXPECT_EQ(password, L"");
}

TEST(LsaSecretContent, ASeparatorAtTheEndStaysInTheLogin)
{
    std::wstring login, password = L"stale";
    SplitLsaSecret(L"user\x1f", login, password);
    EXPECT_EQ(login, L"user\x1f");
    EXPECT_EQ(password, L"");
}

}  // namespace
