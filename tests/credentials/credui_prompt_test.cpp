// The Credential Manager's own run of GetCredentials, called directly, with
// the stand-in CREDUI.DLL as the user: what the save tick does, what mode 2
// and a missing library do.
#include <gtest/gtest.h>

#include <stdexcept>

#include "credentials/credentials_support.h"
#include "settings/credentials_managers.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;
using VnCredentialsManagers::WinCredCredentialsManager;

namespace {

class CredUIPrompt : public ::testing::Test {
protected:
    void SetUp() override { VN_REQUIRE_STANDIN_CREDUI(); }

    const std::string m_proxy = UniqueName("prompt-proxy") + ":3128";
    TStoreCleanup m_cleanup{{Wide(m_proxy)}};
    TCredUIAnswers m_answers;
    TRequest m_request = TRequest::Unsent();
};

TEST_F(CredUIPrompt, WithoutSavingThereIsNoTickAndNothingIsWrittenWhateverComesBack)
{
    WinCredCredentialsManager manager;
    m_answers.TypeLogin("user", "secret");
    m_answers.LeaveTick(true);

    EXPECT_TRUE(manager.GetCredentials(nullptr, m_proxy, m_request.get(), GetINetApiHandler(), 0, false));

    EXPECT_EQ(m_answers.Dword(L"Flags"), static_cast<DWORD>(CREDUI_FLAGS_GENERIC_CREDENTIALS |
                                                           CREDUI_FLAGS_DO_NOT_PERSIST |
                                                           CREDUI_FLAGS_EXCLUDE_CERTIFICATES));
    EXPECT_EQ(m_answers.Dword(L"TickIn"), 0u);
    EXPECT_FALSE(ReadStored(Wide(m_proxy)).found);
    EXPECT_EQ(m_request.Option(INTERNET_OPTION_PROXY_USERNAME), "user");
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), 0);
}

TEST_F(CredUIPrompt, Mode1UsesTheStoredLoginWithoutAPrompt)
{
    ASSERT_TRUE(WriteStored(Wide(m_proxy), L"stored-user", L"stored-secret"));
    WinCredCredentialsManager manager;

    EXPECT_TRUE(manager.GetCredentials(nullptr, m_proxy, m_request.get(), GetINetApiHandler(), 1, true));

    EXPECT_EQ(m_answers.Prompts(), 0u);
    EXPECT_EQ(m_request.Option(INTERNET_OPTION_PROXY_USERNAME), "stored-user");
    EXPECT_EQ(m_request.Option(INTERNET_OPTION_PROXY_PASSWORD), "stored-secret");
}

TEST_F(CredUIPrompt, Mode0PromptsDespiteAStoredLoginAndATickedAnswerOverwritesIt)
{
    ASSERT_TRUE(WriteStored(Wide(m_proxy), L"stored-user", L"stored-secret"));
    WinCredCredentialsManager manager;
    m_answers.TypeLogin("new-user", "new-secret");

    EXPECT_TRUE(manager.GetCredentials(nullptr, m_proxy, m_request.get(), GetINetApiHandler(), 0, true));

    EXPECT_EQ(m_answers.Prompts(), 1u);
    TStoredCredential stored = ReadStored(Wide(m_proxy));
    EXPECT_EQ(stored.userName, L"new-user");
    EXPECT_EQ(stored.blob, L"new-secret");
    EXPECT_EQ(m_request.Option(INTERNET_OPTION_PROXY_USERNAME), "new-user");
}

TEST_F(CredUIPrompt, Mode2WithNothingStoredNeverPrompts)
{
    WinCredCredentialsManager manager;
    m_answers.TypeLogin("user", "secret");

    EXPECT_TRUE(manager.GetCredentials(nullptr, m_proxy, m_request.get(), GetINetApiHandler(), 2, true));

    EXPECT_EQ(m_answers.Prompts(), 0u);
    EXPECT_EQ(m_request.Option(INTERNET_OPTION_PROXY_USERNAME), "");
}

TEST_F(CredUIPrompt, ACancelledPromptGivesFalseAndTouchesNothing)
{
    WinCredCredentialsManager manager;
    m_answers.Cancel();

    EXPECT_FALSE(manager.GetCredentials(nullptr, m_proxy, m_request.get(), GetINetApiHandler(), 1, true));

    EXPECT_EQ(m_answers.Prompts(), 1u);
    EXPECT_EQ(m_request.Option(INTERNET_OPTION_PROXY_USERNAME), "");
    EXPECT_FALSE(ReadStored(Wide(m_proxy)).found);
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), -1);
}

TEST_F(CredUIPrompt, AnEmptyNameOrAMissingHandlerPromptsNobody)
{
    WinCredCredentialsManager manager;
    m_answers.TypeLogin("user", "secret");

    EXPECT_TRUE(manager.GetCredentials(nullptr, "", m_request.get(), GetINetApiHandler(), 0, true));
    try {
        manager.GetCredentials(nullptr, m_proxy, m_request.get(), nullptr, 0, true);
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL");
    }
    EXPECT_EQ(m_answers.Prompts(), 0u);
}

TEST_F(CredUIPrompt, ALoginRefusedByTheHandleIsNotRememberedInTheProcess)
{
    WinCredCredentialsManager manager;
    m_answers.TypeLogin("user", "secret");
    const size_t logOffset = vn_test::LogSize();

    // WinInet keeps no login options on a session handle.
    EXPECT_FALSE(manager.GetCredentials(nullptr, m_proxy, m_request.session(), GetINetApiHandler(), 0, false));

    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), -1);
    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, "Error in method [CVnProxyCredentials::SetCredentials]. "
                                                     "Message: InternetSetOption failed Error code: 12009."),
              1);
}

TEST(CredUILibrary, WithoutCREDUIDLLTheManagerCannotBeMade)
{
    VN_REQUIRE_STANDIN_CREDUI();
    ReleaseCredentialObjects();  // the process-wide store may hold the library
    ASSERT_EQ(::GetModuleHandleA("credui.dll"), nullptr) << "another object still holds CREDUI.DLL";
    TCredUIAnswers answers;
    answers.MakeUnloadable();

    try {
        WinCredCredentialsManager manager;
        ADD_FAILURE() << "made without CREDUI.DLL";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "WinCredCredentialsManager::ctor() could not load DLLs, please default back to LSA!!");
    }
}

}  // namespace
