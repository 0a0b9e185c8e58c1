// The dial mode a session takes from the system: the two autodial values of
// the prefix's internet settings, read by the registry reader whatever type
// they were stored with, and only their sum decides. The "ie/dialup/mode"
// key answers the same in words.
#include <gtest/gtest.h>

#include <windows.h>

#include "common/test_util.h"
#include "settings/registry_text.h"
#include "settings/session_connection.h"
#include "settings/system_keys.h"
#include "tests/settings/settings_support.h"
#include "vfc/text.h"

using namespace vn_settings_test;
using vn_settings::RegistryValueText;

namespace {

constexpr const char* kScratch = "Software\\VnLinkhostTest\\RegistryReader";

class RegistryReader : public ::testing::Test {
protected:
    void SetUp() override { ::RegDeleteTreeA(HKEY_CURRENT_USER, kScratch); }
    void TearDown() override { ::RegDeleteTreeA(HKEY_CURRENT_USER, kScratch); }
    static std::string Read(const char* name) { return RegistryValueText(HKEY_CURRENT_USER, kScratch, name); }
};

class DialModeFromSystem : public ::testing::Test {
protected:
    void SetUp() override { TStandIns::Reset(); }
    void TearDown() override { TStandIns::Reset(); }

    static int Mode()
    {
        int mode = -1;
        EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDialMode(mode));
        return mode;
    }
    static std::wstring ModeKey()
    {
        std::wstring value;
        bool handled = false;
        EXPECT_EQ(S_OK, vn_config::GetSystemValue(L"ie/dialup/mode", value, handled));
        EXPECT_TRUE(handled);
        return value;
    }

    TSystemSettingsGuard m_guard;
};

}  // namespace

TEST_F(RegistryReader, DoubleWordIsItsDecimalNumber)
{
    SetDword(HKEY_CURRENT_USER, kScratch, "v", 1);
    EXPECT_EQ("1", Read("v"));
    SetDword(HKEY_CURRENT_USER, kScratch, "v", 0xFFFFFFFF);
    EXPECT_EQ("4294967295", Read("v"));
}

TEST_F(RegistryReader, StringIsItsText)
{
    SetText(HKEY_CURRENT_USER, kScratch, "v", "Office Dial-up");
    EXPECT_EQ("Office Dial-up", Read("v"));
}

TEST_F(RegistryReader, BinaryShiftsEachByteByItsIndexInBits)
{
    SetBinary(HKEY_CURRENT_USER, kScratch, "v", {1, 0, 0, 0});
    EXPECT_EQ("1", Read("v"));
    SetBinary(HKEY_CURRENT_USER, kScratch, "v", {0, 1});
    EXPECT_EQ("2", Read("v"));  // and not 256
    SetBinary(HKEY_CURRENT_USER, kScratch, "v", {3, 3, 3});
    EXPECT_EQ("21", Read("v"));  // 3 + 6 + 12
}

TEST_F(RegistryReader, BinaryShiftWrapsAtIndexThirtyTwo)
{
    std::vector<BYTE> bytes(34, 0);
    bytes[32] = 1;  // shifted by 0
    bytes[33] = 1;  // shifted by 1
    SetBinary(HKEY_CURRENT_USER, kScratch, "v", bytes);
    EXPECT_EQ("3", Read("v"));
}

TEST_F(RegistryReader, BinaryUpTo512BytesIsRead)
{
    std::vector<BYTE> bytes(512, 0);
    bytes[511] = 1;  // index 511 shifts by 31
    SetBinary(HKEY_CURRENT_USER, kScratch, "v", bytes);
    EXPECT_EQ("2147483648", Read("v"));
}

TEST_F(RegistryReader, ValuesBeyond512BytesGiveEmptyText)
{
    SetBinary(HKEY_CURRENT_USER, kScratch, "v", std::vector<BYTE>(513, 1));
    EXPECT_EQ("", Read("v"));
    SetText(HKEY_CURRENT_USER, kScratch, "s", std::string(600, 'x'));
    EXPECT_EQ("", Read("s"));
}

TEST_F(RegistryReader, OtherTypesAndMissingValuesGiveEmptyText)
{
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueA(HKEY_CURRENT_USER, kScratch, "x", REG_EXPAND_SZ, "%TEMP%", 7));
    EXPECT_EQ("", Read("x"));
    EXPECT_EQ("", Read("absent"));
    EXPECT_EQ("", RegistryValueText(HKEY_CURRENT_USER, "Software\\VnLinkhostTest\\NoSuchKey", "v"));
}

TEST_F(DialModeFromSystem, SumOfTheTwoValuesDecides)
{
    struct {
        int enable, noNet, mode;
    } cases[] = {
        {-1, -1, DialNever}, {0, 0, DialNever},    {1, 0, DialAlways},   {0, 1, DialAlways},
        {1, 1, DialRequired}, {2, 0, DialRequired}, {0, 2, DialRequired}, {2, 1, DialNever},
    };
    for (auto& c : cases) {
        WriteAutodial(c.enable, c.noNet);
        EXPECT_EQ(c.mode, Mode()) << "EnableAutodial " << c.enable << ", NoNetAutodial " << c.noNet;
    }
}

TEST_F(DialModeFromSystem, BinaryAndStringValuesCountByTheirNumber)
{
    WriteAutodial(-1, -1);
    SetBinary(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial", {1, 0, 0, 0});
    EXPECT_EQ(DialAlways, Mode());
    SetBinary(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial", {0, 1});
    EXPECT_EQ(DialRequired, Mode());  // 2; read as 256 it would be DialNever
    SetBinary(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial", {1});
    SetText(HKEY_CURRENT_USER, kInternetSettings, "NoNetAutodial", "1");
    EXPECT_EQ(DialRequired, Mode());
}

TEST_F(DialModeFromSystem, ModeIsLoggedInWords)
{
    WriteAutodial(1, 1);
    size_t offset = vn_test::LogSize();
    Mode();
    EXPECT_EQ(1, vn_test::CountLogLinesSince(
                     offset, "Info about method [CVnSessionConnection::GetIEDialMode]. IE Settings [Ras Mode]: DialRequired"));
}

TEST_F(DialModeFromSystem, IeDialupModeKeyAnswersInWords)
{
    WriteAutodial(0, 0);
    EXPECT_EQ(L"never", ModeKey());
    WriteAutodial(1, 0);
    EXPECT_EQ(L"always", ModeKey());
    WriteAutodial(1, 1);
    EXPECT_EQ(L"required", ModeKey());
    WriteAutodial(3, 0);
    EXPECT_EQ(L"never", ModeKey());
}

TEST_F(DialModeFromSystem, SessionTakesTheSystemsDialSettingsWhenAsked)
{
    WriteAutodial(1, 0);
    CConfigData record;
    record.SetDefaults();
    record.m_UseSystemProxy = false;
    record.m_DialMode = DialNever;
    record.m_DefaultConnection = "Office";
    CConfigData work;
    CVnSessionConnection connection(&work);
    size_t offset = vn_test::LogSize();
    ASSERT_EQ(S_OK, connection.PrepareConfigData(record));
    EXPECT_EQ(DialAlways, work.m_DialMode);
    // No phone book entries: the system has no default entry for the session.
    EXPECT_EQ("", work.m_DefaultConnection);
    EXPECT_EQ(1, Occurrences(LogTextSince(offset),
                             "Info about method [CVnSessionConnection::GetRASDefault]. cdAWorkData structure[RAS settings]: \n"
                             " m_UseSystemConnection = true;\n m_DialMode (DialNever-0,DialRequired-1,DialAlways-2) = 2;\n"
                             " m_DefaultConnection = ;\n m_SessionFlags = 0;\n"));
}

TEST_F(DialModeFromSystem, RecordWithItsOwnDialSettingsIgnoresTheSystem)
{
    WriteAutodial(1, 0);
    CConfigData record;
    record.SetDefaults();
    record.m_UseSystemProxy = false;
    record.m_UseSystemConnection = false;
    record.m_DialMode = DialRequired;
    record.m_DefaultConnection = "Office";
    CConfigData work;
    CVnSessionConnection connection(&work);
    ASSERT_EQ(S_OK, connection.PrepareConfigData(record));
    EXPECT_EQ(DialRequired, work.m_DialMode);
    EXPECT_EQ("Office", work.m_DefaultConnection);
}

TEST(SessionConnectionWithoutRecord, RefusesWithAPointerError)
{
    CVnSessionConnection connection;
    CConfigData record;
    EXPECT_EQ(E_POINTER, connection.PrepareConfigData(record));
}
