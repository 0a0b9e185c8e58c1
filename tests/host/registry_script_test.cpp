#include <gtest/gtest.h>

#include "host/registry_script.h"

namespace {

using vn_rgs::Key;

TEST(RegistryScriptSubstitute, ReplacesNamesAndDoublePercent)
{
    std::string out, error;
    ASSERT_TRUE(vn_rgs::Substitute("a %X% b %% c %Y%", {{"X", "1"}, {"Y", "two"}}, out, error));
    EXPECT_EQ("a 1 b % c two", out);
    EXPECT_FALSE(vn_rgs::Substitute("%NOPE%", {{"X", "1"}}, out, error));
    EXPECT_FALSE(vn_rgs::Substitute("50% off", {}, out, error));
}

TEST(RegistryScriptParse, KeysValuesAndRemovalFlags)
{
    const char* text = R"(HKCR
{
    NoRemove AppID
    {
        '{1-2}' = s 'It''s'
        'Some.exe' { val AppID = s '{1-2}' }
    }
    P.Q.1 = s 'Desc' { CLSID = s '{C}' }
    NoRemove CLSID
    {
        ForceRemove '{C}' = s 'Desc'
        {
            ForceRemove Programmable
            LocalServer32 = s 'C:\x\Some.exe' { val ThreadingModel = s 'Free' }
            val AppID = s '{1-2}'
            val Count = d '17'
        }
    }
})";
    vn_rgs::Script script;
    std::string error;
    ASSERT_TRUE(vn_rgs::Parse(text, script, error)) << error;
    ASSERT_EQ(1u, script.roots.size());
    const Key& root = script.roots[0];
    EXPECT_EQ("HKCR", root.name);
    ASSERT_EQ(3u, root.children.size());

    const Key& appid = root.children[0];
    EXPECT_EQ(Key::NoRemove, appid.removal);
    ASSERT_EQ(2u, appid.children.size());
    EXPECT_EQ("{1-2}", appid.children[0].name);
    EXPECT_TRUE(appid.children[0].hasDefault);
    EXPECT_EQ("It's", appid.children[0].defaultValue.data);
    EXPECT_EQ("Some.exe", appid.children[1].name);
    ASSERT_EQ(1u, appid.children[1].values.size());
    EXPECT_EQ("AppID", appid.children[1].values[0].name);

    const Key& progid = root.children[1];
    EXPECT_EQ("P.Q.1", progid.name);
    EXPECT_EQ(Key::Normal, progid.removal);
    EXPECT_EQ("Desc", progid.defaultValue.data);
    ASSERT_EQ(1u, progid.children.size());
    EXPECT_EQ("{C}", progid.children[0].defaultValue.data);

    const Key& clsid = root.children[2].children[0];
    EXPECT_EQ(Key::ForceRemove, clsid.removal);
    ASSERT_EQ(2u, clsid.children.size());
    EXPECT_EQ("Programmable", clsid.children[0].name);
    EXPECT_FALSE(clsid.children[0].hasDefault);
    EXPECT_EQ(Key::ForceRemove, clsid.children[0].removal);
    EXPECT_EQ("C:\\x\\Some.exe", clsid.children[1].defaultValue.data);
    EXPECT_EQ("Free", clsid.children[1].values[0].data);
    ASSERT_EQ(2u, clsid.values.size());
    EXPECT_EQ('d', clsid.values[1].type);
    EXPECT_EQ("17", clsid.values[1].data);
}

TEST(RegistryScriptParse, SyntaxErrorsAreReported)
{
    vn_rgs::Script script;
    std::string error;
    for (const char* bad : {"HKCR { A = s 'x' ", "HKCR { A = q 'x' }", "HKCR { val = }", "HKCR { 'open }", "HKCR A"}) {
        EXPECT_FALSE(vn_rgs::Parse(bad, script, error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
}

}  // namespace
