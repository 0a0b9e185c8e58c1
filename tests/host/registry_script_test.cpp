// The registry script language: replacements, and keys with their values and
// removal flags. What the server's own script writes is checked by the server
// tests in the registry itself.
#include <gtest/gtest.h>

#include "host/registry_script.h"

namespace {

// A key on one line: removal flag, name, "=default", then its values and children in braces.
std::string Render(const vn_rgs::Key& key)
{
    const char* const removals[] = {"", "NoRemove ", "ForceRemove ", "Delete "};
    std::string text = removals[key.removal] + key.name;
    if (key.hasDefault)
        text += "=" + std::string(1, key.defaultValue.type) + ":" + key.defaultValue.data;
    text += "{";
    for (const vn_rgs::Value& value : key.values)
        text += "val " + value.name + "=" + std::string(1, value.type) + ":" + value.data + ";";
    for (const vn_rgs::Key& child : key.children)
        text += Render(child) + ";";
    return text + "}";
}

}  // namespace

TEST(RegistryScript, SubstitutesThenParsesKeysValuesAndRemovalFlags)
{
    std::string out, error;
    ASSERT_TRUE(vn_rgs::Substitute("a %X% b %% c %Y%", {{"X", "1"}, {"Y", "two"}}, out, error));
    EXPECT_EQ("a 1 b % c two", out);
    EXPECT_FALSE(vn_rgs::Substitute("%NOPE%", {{"X", "1"}}, out, error));
    EXPECT_FALSE(vn_rgs::Substitute("50% off", {}, out, error));

    vn_rgs::Script script;
    ASSERT_TRUE(vn_rgs::Parse(R"(HKCR { NoRemove AppID { '{1-2}' = s 'It''s' 'Some.exe' { val AppID = s '{1-2}' } }
        P.Q.1 = s 'Desc' { CLSID = s '{C}' }
        NoRemove CLSID { ForceRemove '{C}' = s 'Desc' { ForceRemove Programmable
            LocalServer32 = s 'C:\x\Some.exe' { val ThreadingModel = s 'Free' } val AppID = s '{1-2}' val Count = d '17' } } })",
                              script, error))
        << error;
    ASSERT_EQ(1u, script.roots.size());
    EXPECT_EQ("HKCR{NoRemove AppID{{1-2}=s:It's{};Some.exe{val AppID=s:{1-2};};};P.Q.1=s:Desc{CLSID=s:{C}{};};"
              "NoRemove CLSID{ForceRemove {C}=s:Desc{val AppID=s:{1-2};val Count=d:17;ForceRemove Programmable{};"
              "LocalServer32=s:C:\\x\\Some.exe{val ThreadingModel=s:Free;};};};}",
              Render(script.roots[0]));
    for (const char* bad : {"HKCR { A = s 'x' ", "HKCR { A = q 'x' }", "HKCR { val = }", "HKCR { 'open }", "HKCR A"}) {
        EXPECT_FALSE(vn_rgs::Parse(bad, script, error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
}
