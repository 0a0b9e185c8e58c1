// The role a command line gives the process, and the message a wrong one
// earns, for the spellings users and the platform really write.
#include "host/command_line.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Outcome = TCommandLineChoice::Outcome;

struct RoleCase {
    const char* commandLine;
    ProcessRole role;
};

struct RefusalCase {
    const char* commandLine;
    Outcome outcome;
    const char* message;  // the parser's message, for BadOption only
};

const char* OutcomeName(Outcome outcome)
{
    switch (outcome) {
    case TCommandLineChoice::Help: return "Help";
    case TCommandLineChoice::BadOption: return "BadOption";
    case TCommandLineChoice::Leftover: return "Leftover";
    case TCommandLineChoice::NoRole: return "NoRole";
    case TCommandLineChoice::Role: return "Role";
    }
    return "?";
}

void ExpectRoles(const RoleCase* begin, const RoleCase* end)
{
    for (const RoleCase* c = begin; c != end; ++c) {
        SCOPED_TRACE(c->commandLine);
        const TCommandLineChoice choice = ChooseRole(c->commandLine);
        EXPECT_STREQ(OutcomeName(choice.outcome), "Role");
        EXPECT_EQ(choice.role, c->role);
        EXPECT_EQ(choice.errorMessage, "");
    }
}

void ExpectRefusals(const RefusalCase* begin, const RefusalCase* end)
{
    for (const RefusalCase* c = begin; c != end; ++c) {
        SCOPED_TRACE(c->commandLine ? c->commandLine : "null");
        const TCommandLineChoice choice = ChooseRole(c->commandLine);
        EXPECT_STREQ(OutcomeName(choice.outcome), OutcomeName(c->outcome));
        EXPECT_EQ(choice.role, RoleNone);
        EXPECT_EQ(choice.errorMessage, c->message);
    }
}

std::string Repeated(const char* program, const char* word, int times)
{
    std::string text = program;
    for (int i = 0; i < times; ++i)
        text += std::string(" ") + word;
    return text;
}

}  // namespace

TEST(ChooseRole, EverySpellingOfEmbeddingStartsTheServer)
{
    const RoleCase cases[] = {
        {"VnLinkhost.exe -Embedding", RoleEmbedding},
        {"VnLinkhost.exe /Embedding", RoleEmbedding},
        {"VnLinkhost.exe --embedding", RoleEmbedding},
        {"VnLinkhost.exe -EMBEDDING", RoleEmbedding},
        {"VnLinkhost.exe -emb", RoleEmbedding},
        {"VnLinkhost.exe -e", RoleEmbedding},
        {"VnLinkhost.exe --e", RoleEmbedding},
        {"\"C:\\Program Files\\Velorin\\VnLinkhost.exe\" -Embedding", RoleEmbedding},
        {"'C:\\Program Files\\VnLinkhost.exe'\t/embedding", RoleEmbedding},
    };
    ExpectRoles(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, RegServerSpellingsAreSilentRegisterSpellingsAreNot)
{
    const RoleCase cases[] = {
        {"VnLinkhost.exe /RegServer", RoleRegServer},
        {"VnLinkhost.exe -regserver", RoleRegServer},
        {"VnLinkhost.exe --REGSERVER", RoleRegServer},
        {"VnLinkhost.exe -RegS", RoleRegServer},
        {"VnLinkhost.exe /UnregServer", RoleUnregServer},
        {"VnLinkhost.exe -unregserver", RoleUnregServer},
        {"VnLinkhost.exe --register", RoleRegister},
        {"VnLinkhost.exe -register", RoleRegister},
        {"VnLinkhost.exe -regi", RoleRegister},
        {"VnLinkhost.exe -r", RoleRegister},
        {"VnLinkhost.exe /r", RoleRegister},
        {"VnLinkhost.exe --unregister", RoleUnregister},
        {"VnLinkhost.exe -u", RoleUnregister},
        {"VnLinkhost.exe --unregi", RoleUnregister},
    };
    ExpectRoles(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, ShortAndAbbreviatedFormsOfTheOtherRoles)
{
    const RoleCase cases[] = {
        {"VnLinkhost.exe --k", RoleKill},
        {"VnLinkhost.exe -k", RoleKill},
        {"VnLinkhost.exe --kill", RoleKill},
        {"VnLinkhost.exe --c", RoleConfigure},
        {"VnLinkhost.exe -c", RoleConfigure},
        {"VnLinkhost.exe /Configure", RoleConfigure},
        {"VnLinkhost.exe --s", RoleService},
        {"VnLinkhost.exe --service", RoleService},
        {"VnLinkhost.exe -s", RoleService},
        {"VnLinkhost.exe /SERVICE", RoleService},
    };
    ExpectRoles(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, LastRoleOptionWins)
{
    const RoleCase cases[] = {
        {"VnLinkhost.exe -r -u", RoleUnregister},
        {"VnLinkhost.exe -u -r", RoleRegister},
        {"VnLinkhost.exe /RegServer -c", RoleConfigure},
        {"VnLinkhost.exe -c /RegServer", RoleRegServer},
        {"VnLinkhost.exe /UnregServer -u", RoleUnregister},
        // "rk" is no name, so 'r' is short and "k" is then read as "kill".
        {"VnLinkhost.exe -rk", RoleKill},
        {"VnLinkhost.exe -ce", RoleEmbedding},
        {"VnLinkhost.exe /c/e", RoleEmbedding},
        {"VnLinkhost.exe -c\t\t-k", RoleKill},
    };
    ExpectRoles(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, HelpStopsTheParseBeforeAnythingBehindIt)
{
    const RefusalCase cases[] = {
        {"VnLinkhost.exe -h", TCommandLineChoice::Help, ""},
        {"VnLinkhost.exe --h", TCommandLineChoice::Help, ""},
        {"VnLinkhost.exe /HELP", TCommandLineChoice::Help, ""},
        {"VnLinkhost.exe -h -x", TCommandLineChoice::Help, ""},
        {"VnLinkhost.exe -e -h --reg", TCommandLineChoice::Help, ""},
        {"VnLinkhost.exe /h/c", TCommandLineChoice::Help, ""},
        {"VnLinkhost.exe -h foo", TCommandLineChoice::Help, ""},
    };
    ExpectRefusals(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, BadOptionsCarryTheParsersMessage)
{
    const RefusalCase cases[] = {
        {"VnLinkhost.exe --reg", TCommandLineChoice::BadOption, "option '--reg' is ambiguous"},
        {"VnLinkhost.exe --un", TCommandLineChoice::BadOption, "option '--un' is ambiguous"},
        {"VnLinkhost.exe -x", TCommandLineChoice::BadOption, "unrecognized option '-x'"},
        {"VnLinkhost.exe /x", TCommandLineChoice::BadOption, "unrecognized option '/x'"},
        {"VnLinkhost.exe -re", TCommandLineChoice::BadOption, "option '-re' is ambiguous"},
        {"VnLinkhost.exe -ru", TCommandLineChoice::BadOption, "option '-u' is ambiguous"},
        {"VnLinkhost.exe --help=x", TCommandLineChoice::BadOption,
         "option '--help' doesn't allow an argument"},
        {"VnLinkhost.exe /kill=now", TCommandLineChoice::BadOption,
         "option '/kill' doesn't allow an argument"},
        {"VnLinkhost.exe -x -h", TCommandLineChoice::BadOption, "unrecognized option '-x'"},
        {"VnLinkhost.exe -e --bogus -x", TCommandLineChoice::BadOption,
         "unrecognized option '--bogus'"},
        {"VnLinkhost.exe -R", TCommandLineChoice::BadOption, "option '-R' is ambiguous"},
        {"VnLinkhost.exe --embeddings", TCommandLineChoice::BadOption,
         "unrecognized option '--embeddings'"},
    };
    ExpectRefusals(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, UnconsumedWordsAreLeftOverAndNoRoleRuns)
{
    const RefusalCase cases[] = {
        {"VnLinkhost.exe foo -r", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe -r foo", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe -- -r", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe -e -- foo", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe -", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe /", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe /-e", TCommandLineChoice::Leftover, ""},
        {"VnLinkhost.exe \"\"", TCommandLineChoice::Leftover, ""},
    };
    ExpectRefusals(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, QuotesAndATrailingDoubleDashDoNotHideAnOption)
{
    const RoleCase cases[] = {
        {"VnLinkhost.exe -r --", RoleRegister},
        {"VnLinkhost.exe \"-e\"", RoleEmbedding},
        {"VnLinkhost.exe '--kill'", RoleKill},
    };
    ExpectRoles(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, NothingButTheProgramAsksForARole)
{
    const RefusalCase cases[] = {
        {"VnLinkhost.exe", TCommandLineChoice::NoRole, ""},
        {"VnLinkhost.exe   \t ", TCommandLineChoice::NoRole, ""},
        {"\"C:\\Program Files\\VnLinkhost.exe\"", TCommandLineChoice::NoRole, ""},
        {"", TCommandLineChoice::NoRole, ""},
        // The first word is the program even when it looks like an option.
        {"-e", TCommandLineChoice::NoRole, ""},
    };
    ExpectRefusals(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, TextTheTokeniserRefusesIsLeftOver)
{
    const RefusalCase cases[] = {
        {"0", TCommandLineChoice::Leftover, ""},
        {"0VnLinkhost.exe -e", TCommandLineChoice::Leftover, ""},
        {"\"C:\\Program Files\\VnLinkhost.exe -e", TCommandLineChoice::Leftover, ""},
        {"'VnLinkhost.exe -e", TCommandLineChoice::Leftover, ""},
        {nullptr, TCommandLineChoice::Leftover, ""},
    };
    ExpectRefusals(std::begin(cases), std::end(cases));
}

TEST(ChooseRole, WordsBeyondWhatTheVectorHoldsAreLeftOver)
{
    // 255 elements in all are stored and parsed.
    const std::string full = Repeated("VnLinkhost.exe", "-e", 254);
    const TCommandLineChoice stored = ChooseRole(full.c_str());
    EXPECT_STREQ(OutcomeName(stored.outcome), "Role");
    EXPECT_EQ(stored.role, RoleEmbedding);

    // The 256th and later are counted but cannot be read.
    for (int options : {255, 299, 1000}) {
        SCOPED_TRACE(options);
        const std::string text = Repeated("VnLinkhost.exe", "-e", options);
        const TCommandLineChoice choice = ChooseRole(text.c_str());
        EXPECT_STREQ(OutcomeName(choice.outcome), "Leftover");
    }

    const std::string words = "VnLinkhost.exe -e" + Repeated("", "w", 300);
    EXPECT_STREQ(OutcomeName(ChooseRole(words.c_str()).outcome), "Leftover");
}
