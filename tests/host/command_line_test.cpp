// The role a command line gives the process, for the spellings users and the platform write, and the boxes shown.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/command_line.h"
#include "host/messages.h"
#include "host/module.h"
#include "host/platform_seams.h"
#include "res/resource.h"

namespace {

// "Role <n>", "Help", "Leftover", "NoRole", or "Bad: " and the parser's message.
std::string Choose(const char* commandLine)
{
    const TCommandLineChoice choice = ChooseRole(commandLine);
    const char* const outcomes[] = {"Help", "Bad: ", "Leftover", "NoRole", "Role "};
    return outcomes[choice.outcome] + choice.errorMessage + (choice.role ? std::to_string(choice.role) : "");
}

std::vector<std::string> g_boxes;  // "title|type|text" of each box shown

int WINAPI CaptureBox(HWND, LPCSTR text, LPCSTR title, UINT type)
{
    g_boxes.push_back(std::string(title) + "|" + std::to_string(type) + "|" + text);
    return IDOK;
}

const std::string kBox = "Velorin Linkhost|8192|Velorin Linkhost Component\nInternet access for the Velorin desktop "
                         "applications. Copyright (C) Velorin.\n\n";
const std::string kUsage =
    "\nUsage: VnLinkhost [-h] [-c] [-r] [-u] [-e] [-s] [-k]\nOptions:\n  -h\t--help\t\tDisplay this information\n"
    "  -c\t--configure\tConfigure the component settings\n  -r\t--register\t\tRegister as COM server\n"
    "  -u\t--unregister\tUnregister as COM server\n  -e\t--embedding\tStart as COM Server\n"
    "  -s\t--service\t\tStart as COM Service\n  -k\t--kill\t\tTerminate COM Server";

}  // namespace

TEST(ChooseRole, SpellingsGiveTheirRoleAndWrongOnesTheirRefusal)
{
    std::string words, many;  // more words than the vector holds
    for (int i = 0; i < 300; ++i)
        words += " w", many += " -e";
    // The outcome, and the arguments behind the program's name that give it; the last role wins.
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"Role 6", {"-Embedding", "/Embedding", "--embedding", "-EMBEDDING", "-emb", "-e", "-ce", "/c/e", many.substr(0, 254 * 3)}},
        {"Role 4", {"/RegServer", "-regserver", "-c /RegServer"}}, {"Role 5", {"/UnregServer"}}, {"Role 8", {"--k", "-rk"}},
        {"Role 2", {"--register", "-r", "-u -r"}}, {"Role 3", {"-r -u", "/UnregServer -u"}}, {"Role 1", {"--c", "/RegServer -c"}},
        {"Role 7", {"--s", "--service"}}, {"Help", {"--h", "-h -x", "-e -h --reg", "/h/c"}}, {"NoRole", {"", "   \t "}},
        {"Bad: option '--reg' is ambiguous", {"--reg"}}, {"Bad: option '--un' is ambiguous", {"--un"}},
        {"Bad: option '-re' is ambiguous", {"-re"}}, {"Bad: option '-u' is ambiguous", {"-ru"}},
        {"Bad: unrecognized option '-x'", {"-x", "-x -h"}}, {"Bad: option '--help' doesn't allow an argument", {"--help=x"}},
        {"Leftover", {"foo -r", "-- -r", "-", "/", "/-e", many, "-e" + words}},
    };
    for (auto& [outcome, spellings] : rows)
        for (const std::string& arguments : spellings)
            EXPECT_EQ(outcome, Choose(("VnLinkhost.exe " + arguments).c_str())) << arguments;
    // The first word is the program, whatever it looks like; a line the tokenizer refuses is left over.
    const char* const whole[][2] = {
        {"\"C:\\Program Files\\Velorin\\VnLinkhost.exe\" -Embedding", "Role 6"}, {"-e", "NoRole"}, {"", "NoRole"},
        {"0VnLinkhost.exe -e", "Leftover"}, {nullptr, "Leftover"}};
    for (const auto& row : whole)
        EXPECT_EQ(row[1], Choose(row[0])) << (row[0] ? row[0] : "null");
}

TEST(CommandLineBoxes, RefusalsShowTheUsageWithTheirErrorLineAndRolesTheirResult)
{
    TScopedSeam<decltype(VnPlatformSeams::MessageBoxA)> seam(PlatformSeams().MessageBoxA, CaptureBox);
    const std::string unknown = " ERROR: Unknown command line arguments provided\n";
    const std::pair<const char*, std::string> rows[] = {
        {"VnLinkhost.exe", " ERROR: Please specify either --configure, --register, --unregister --embedding or --service or --kill\n"},
        {"VnLinkhost.exe -h -x", ""}, {"VnLinkhost --reg", " ERROR: option '--reg' is ambiguous\n"},
        {"VnLinkhost -x -h", " ERROR: unrecognized option '-x'\n"}, {"VnLinkhost foo -r", unknown}, {"0VnLinkhost -r", unknown},
    };
    for (const auto& row : rows) {
        g_boxes.clear();
        HRESULT status = S_OK;
        EXPECT_FALSE(Module().ParseCommandLine(row.first, status)) << row.first;
        EXPECT_EQ(E_FAIL, status) << row.first;
        EXPECT_EQ(std::vector<std::string>{kBox + row.second + kUsage}, g_boxes) << row.first;
    }
    g_boxes.clear();
    ReportResult(static_cast<HRESULT>(0x8004DEAD), IDS_REGISTER_FAILED, IDS_REGISTER_OK);
    ReportResult(S_OK, IDS_UNREGISTER_FAILED, IDS_UNREGISTER_OK);
    ReportResult(S_OK, IDS_SERVICE_FAILED, 0);
    ReportResult(E_ACCESSDENIED, IDS_SERVICE_FAILED, IDS_SERVICE_OK);
    ASSERT_EQ(3u, g_boxes.size());
    EXPECT_EQ(kBox + "Velorin Linkhost COM registration failed.\nERROR: Unknown system error - 2147802797.", g_boxes[0]);
    EXPECT_EQ(kBox + "Velorin Linkhost COM unregistration succeeded.", g_boxes[1]);
    const std::string failed = kBox + "Velorin Linkhost COM service failed.\nERROR: ";  // and the system's text
    EXPECT_EQ(failed, g_boxes[2].substr(0, failed.size()));
    EXPECT_GT(g_boxes[2].size(), failed.size());
    EXPECT_EQ(std::string::npos, g_boxes[2].find("Unknown system error"));
}
