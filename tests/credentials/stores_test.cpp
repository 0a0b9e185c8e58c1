// The stores at rest, the Credential Manager (real under Wine) and the LSA
// private data store (which Wine only stubs); which one the factory picks for
// each platform version; the process's map of proxy logins; and the handler
// through which the stores act on a WinInet request handle.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "credentials/credentials_support.h"
#include "tests/settings/settings_support.h"

using namespace vn_cred_test;
using VnCredentialsManagers::LSACredentialsManager;
using VnCredentialsManagers::WinCredCredentialsManager;

namespace {

TEST(CredentialManagerStore, KeepsOneGenericCredentialPerProxyNameWithinThePlatformsLimits)
{
    WinCredCredentialsManager store;
    const std::string host = UniqueName("store"), a = host + ":8080", b = host + ":8081";
    std::wstring login, password = L"x";
    ASSERT_TRUE(store.StoreCredentials(Wide(a), L"user-a", L"p\u00e4ss") && store.StoreCredentials(Wide(b), L"user-b", L"pass-b"));
    EXPECT_EQ(std::make_tuple(std::wstring(L"user-a"), std::wstring(L"p\u00e4ss"), DWORD(CRED_PERSIST_LOCAL_MACHINE), 0ul), Stored(a));
    EXPECT_EQ(L"user-b", std::get<0>(Stored(b)));
    ASSERT_TRUE(Store(a, L"someone", L""));  // no blob is an empty password
    EXPECT_TRUE(store.RetrieveCredentials(Wide(a), login, password));
    EXPECT_EQ(std::make_tuple(std::wstring(L"someone"), std::wstring()), std::make_tuple(login, password));
    EXPECT_FALSE(store.RetrieveCredentials(Wide(host), login, password) || store.RetrieveCredentials(L"", login, password));
    // Wine's Credential Manager takes what the platform's limits forbid; the store keeps to them.
    ASSERT_TRUE(Store(host, std::wstring(514, L'u'), std::wstring(1281, L'p')));
    const std::tuple<std::string, std::wstring, std::wstring> limits[] = {{"", L"user", L"secret"}, {host, L"", L"secret"},
        {host, std::wstring(514, L'u'), L"secret"}, {host, L"user", std::wstring(1281, L'p')}, {host, std::wstring(513, L'u'), std::wstring(1280, L'p')}};
    for (auto& [target, user, secret] : limits) {
        Forget(target);
        EXPECT_EQ(user.size() == 513, store.StoreCredentials(Wide(target), user, secret));
        EXPECT_EQ(user.size() == 513 ? user : L"", std::get<0>(Stored(target)));
    }
    for (auto& target : {a, b, host})
        Forget(target);
}

TEST(LsaStore, IsReachedUnderWineButKeepsNothingAndItsSecretsSplitAtTheFirstUnitSeparator)
{
    const size_t log = vn_test::LogSize();
    LSACredentialsManager store;
    const std::wstring name = Wide(UniqueName("lsa"));
    std::wstring login, password;
    EXPECT_TRUE(store.IsUsable() && store.StoreCredentials(name, L"user", L"secret"));
    EXPECT_EQ(0, vn_test::CountLogLinesSince(log, "CVnProxyCredentials::CredentialsStorage"));
    EXPECT_FALSE(store.RetrieveCredentials(name, login, password));
    EXPECT_FALSE(store.StoreCredentials(L"", L"user", L"secret") || store.StoreCredentials(name, L"", L"secret"));
    const wchar_t* const secrets[][3] = {{L"user\x1f" L"secret", L"user", L"secret"}, {L"user\x1f" L"s\x1f" L"t", L"user", L"s\x1f" L"t"},
                                         {L"user", L"user", L""}, {L"user\x1f", L"user\x1f", L""}};
    for (auto& s : secrets) {
        VnCredentialsManagers::SplitLsaSecret(s[0], login, password = L"stale");
        EXPECT_EQ(std::make_tuple(std::wstring(s[1]), std::wstring(s[2])), std::make_tuple(login, password));
    }
}

TEST(LsaStore, ManagerUsesThePlatformDialogAndUnderWineAsksForEveryRequest)
{
    LSACredentialsManager manager;
    IINetApiHandler* handler = GetINetApiHandler();
    const std::string proxy = UniqueName("lsa-proxy");
    std::string login, password;
    TRequest request, next;
    TScriptedDialog dialog(ERROR_INTERNET_FORCE_RETRY, "lsa-user");
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy, request.get(), handler, 1, true));
    EXPECT_EQ(std::make_tuple(::GetDesktopWindow(), request.get(), 0ul, 7ul, false), std::make_tuple(std::get<0>(dialog.last),
              std::get<1>(dialog.last), std::get<2>(dialog.last), std::get<3>(dialog.last), std::get<4>(dialog.last)));
    EXPECT_EQ("lsa-user", request.Option(INTERNET_OPTION_PROXY_USERNAME));
    EXPECT_EQ(-1, CVnProxyCredentials::GetPassLogin(proxy, login, password)) << "the dialog's path leaves the map alone";
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy, next.get(), handler, 1, true));
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy, next.get(), handler, 2, true));  // never asks
    EXPECT_TRUE(manager.GetCredentials(nullptr, "", next.get(), handler, 0, true));     // nobody to ask for
    EXPECT_EQ(2, dialog.calls.load());
    for (DWORD answer : {DWORD(ERROR_CANCELLED), DWORD(ERROR_SUCCESS)}) {  // only a repeat counts
        TScriptedDialog other(answer);
        EXPECT_FALSE(manager.GetCredentials(nullptr, proxy, next.get(), handler, 0, true));
        EXPECT_EQ(1, other.calls.load());
    }
    // Both errors name the other manager, as they stand.
    EXPECT_EQ("WinCredCredentialsManager::GetCredentials called with lpHandle == NULL",
              ThrownBy([&] { manager.GetCredentials(nullptr, proxy, nullptr, handler, 0, true); }));
    EXPECT_EQ("WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL",
              ThrownBy([&] { manager.GetCredentials(nullptr, proxy, next.get(), nullptr, 0, true); }));
}

// Checked against this process's platform version; the test after it runs
// this one again in children that see other versions.
TEST(CredentialStoreChoice, FollowsThisProcesssPlatformVersion)
{
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_TRUE(::GetVersionExA(&info));
    char version[32];
    std::snprintf(version, sizeof version, "%lu.%lu.%lu", info.dwMajorVersion, info.dwMinorVersion, info.dwPlatformId);
    std::printf("version=%s\n", version);
    const std::set<std::string> kCredentialManager = {"5.1.2", "5.2.2", "6.0.2", "6.1.2", "6.2.2"};  // with CREDUI.DLL
    const bool expected = kCredentialManager.count(version) && !cu::ReadDword(L"Unloadable", 0);
    ReleaseCredentialObjects();
    EXPECT_EQ(expected, dynamic_cast<WinCredCredentialsManager*>(GetCredentialsManager()) != nullptr);
    EXPECT_EQ(!expected, dynamic_cast<LSACredentialsManager*>(GetCredentialsManager()) != nullptr);
}

TEST(CredentialStoreChoice, FollowsEachPlatformVersion)
{
    const char* const versions[][3] = {{"winxp", "5.1.2", ""}, {"win2003", "5.2.2", ""}, {"vista", "6.0.2", ""}, {"win7", "6.1.2", ""},
                                       {"nt40", "4.0.2", ""},  {"win2k", "5.0.2", ""},   {"win7", "6.1.2", "without CREDUI.DLL"}};
    for (auto& v : versions) {
        cu::Clear();
        cu::WriteDword(L"Unloadable", *v[2] != 0);
        const std::string output = vn_settings_test::RunUnderVersion(v[0], "CredentialStoreChoice.FollowsThisProcesssPlatformVersion");
        EXPECT_TRUE(output.find(std::string("version=") + v[1]) != std::string::npos && output.find("[  PASSED  ] 1 test.") != std::string::npos)
            << v[2] << output;
    }
    cu::Clear();
}

TEST(CredentialObjects, ReleaseEndsTheStoreAndItsLibraryAndTheNextUseMakesOneForAllThreads)
{
    ReleaseCredentialObjects();
    ASSERT_EQ(nullptr, ::GetModuleHandleA("credui.dll"));
    std::pair<IVnCredentialsManager*, IINetApiHandler*> made[8];
    std::vector<std::thread> threads;
    for (auto& m : made)
        threads.emplace_back([&m] { m = {GetCredentialsManager(), GetINetApiHandler()}; });
    for (std::thread& thread : threads)
        thread.join();
    for (auto& m : made)
        EXPECT_EQ(made[0], m);
    EXPECT_NE(nullptr, ::GetModuleHandleA("credui.dll")) << "the Credential Manager holds CREDUI.DLL for its life";
    ReleaseCredentialObjects();
    EXPECT_EQ(nullptr, ::GetModuleHandleA("credui.dll"));
    cu::WriteDword(L"Unloadable", 1);
    EXPECT_EQ("WinCredCredentialsManager::ctor() could not load DLLs, please default back to LSA!!",
              ThrownBy([] { WinCredCredentialsManager manager; }));
    cu::Clear();
}

TEST(LoginMap, KeepsOneLoginPerProxyNameForTheLifeOfTheProcess)
{
    const std::string host = UniqueName("map");
    std::string login = "untouched", password = "untouched";
    EXPECT_EQ(-1, CVnProxyCredentials::GetPassLogin(host + ":8080", login, password));
    EXPECT_EQ("untouched", login);
    CVnProxyCredentials::_saveCredentials(host + ":8080", "first", "one");
    CVnProxyCredentials::_saveCredentials(host + ":8080", "first", "two");
    CVnProxyCredentials::_saveCredentials(host + ":8081", "other", "three");
    ReleaseCredentialObjects();  // the map outlives the process-wide objects
    EXPECT_EQ(0, CVnProxyCredentials::GetPassLogin(host + ":8080", login, password));
    EXPECT_EQ(login + password, "firsttwo");
    EXPECT_EQ(0, CVnProxyCredentials::GetPassLogin(host + ":8081", login, password));
    EXPECT_EQ(std::make_tuple(std::string("other"), -1L), std::make_tuple(login, CVnProxyCredentials::GetPassLogin(host, login, password)));
}

TEST(INetApiHandler, PutsALoginOnTheHandleAndIntoTheMapAndReadsItBack)
{
    IINetApiHandler* handler = GetINetApiHandler();
    const std::string proxy = UniqueName("handler") + ":8080";
    std::string login, password;
    TRequest request, other;
    EXPECT_TRUE(handler->SetCredentials(request.get(), proxy, "user", "secret"));
    EXPECT_EQ(0, CVnProxyCredentials::GetPassLogin(proxy, login, password));
    EXPECT_EQ(std::make_tuple(std::string("user"), std::string("secret"), std::string("user"), std::string("secret")),
              std::make_tuple(request.Option(INTERNET_OPTION_PROXY_USERNAME), request.Option(INTERNET_OPTION_PROXY_PASSWORD), login, password));
    EXPECT_TRUE(handler->SetCredentials(other.get(), proxy + "-other", "user", ""));
    EXPECT_EQ("", other.Option(INTERNET_OPTION_PROXY_PASSWORD)) << "an empty part is left off";
    std::string longLogin(300, 'l'), longPassword(700, 'p');  // longer than the first buffer
    ::InternetSetOptionA(other.get(), INTERNET_OPTION_PROXY_USERNAME, &longLogin[0], DWORD(longLogin.size() + 1));
    ::InternetSetOptionA(other.get(), INTERNET_OPTION_PROXY_PASSWORD, &longPassword[0], DWORD(longPassword.size() + 1));
    EXPECT_TRUE(handler->GetCredentials(other.get(), login, password));
    EXPECT_EQ(std::make_tuple(longLogin, longPassword), std::make_tuple(login, password));
    EXPECT_FALSE(handler->GetCredentials(nullptr, login, password));
    EXPECT_EQ("", login + password);
    const size_t log = vn_test::LogSize();
    EXPECT_FALSE(handler->GetCredentials(other.session(), login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnLinkhostWITransceiver::GetCredentials]. "
                                                  "Message: InternetQueryOption failed while quering for login."));
}

}  // namespace
