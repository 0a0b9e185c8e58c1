// The command line parser on its own: cutting the text into words, telling
// options from words, the orderings, clusters, long names with their
// abbreviations and arguments, and the errors it records.
#include "vfc/cmdline_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using vfc::TCmdlineOption;
using vfc::TCmdlineParser;

namespace {

// Cuts text with the given limit and returns the stored words.
std::vector<std::string> Words(const char* text, int* count = nullptr)
{
    std::string copy = text;
    char* vector[TCmdlineParser::kMaxElements] = {};
    const int n = TCmdlineParser::Tokenize(&copy[0], vector, TCmdlineParser::kMaxElements);
    if (count)
        *count = n;
    std::vector<std::string> words;
    for (int i = 0; i < n && vector[i]; ++i)
        words.push_back(vector[i]);
    return words;
}

// The elements of a parser from index 0 up to argc, as text.
std::vector<std::string> Elements(const TCmdlineParser& parser)
{
    std::vector<std::string> out;
    for (int i = 0; i < parser.argc; ++i)
        out.push_back(parser.argv[i] ? parser.argv[i] : "<null>");
    return out;
}

// Runs Next until -1 (at most 64 steps) and returns the values it gave.
std::vector<int> AllValues(TCmdlineParser& parser, const char* shortOptions,
                           const TCmdlineOption* longOptions)
{
    std::vector<int> values;
    for (int guard = 0; guard < 64; ++guard) {
        const int value = parser.Next(shortOptions, longOptions);
        values.push_back(value);
        if (value == -1)
            break;
    }
    return values;
}

// A general table with each kind of argument. The kinds carry extra high bits
// in two rows, which the parser must ignore.
const TCmdlineOption kArgTable[] = {
    {"alpha", 4, 'a'},
    {"beta", 2, 'b'},
    {"gamma", 1, 'g'},
    {"delta", 0x0C, 'd'},  // low bits 4: requires an argument
    {"epsilon", 0x09, 'e'},  // low bits 1: takes none
    {"", 0, 0},
};

}  // namespace

// ---------------------------------------------------------------------------
// Tokenising

struct TokenCase {
    const char* text;
    std::vector<std::string> words;
};

TEST(CmdlineTokenize, SplitsAtBlanksAndTabsAndHonoursQuotes)
{
    const TokenCase cases[] = {
        {"prog", {"prog"}},
        {"prog -e", {"prog", "-e"}},
        {"prog\t-e\t\t/k  ", {"prog", "-e", "/k"}},
        {"   ", {""}},  // the first word runs to the first blank: it is empty
        {"", {""}},
        {"prog \"two words\" 'and three more' x", {"prog", "two words", "and three more", "x"}},
        {"prog \"\" x", {"prog", "", "x"}},
        {"prog ''", {"prog", ""}},
        {"prog a\"b c\"", {"prog", "a\"b", "c\""}},  // a quote inside a word is plain text
        {"prog \"open to the end", {"prog", "open to the end"}},
        {"prog \"mixed' quote\" z", {"prog", "mixed' quote", "z"}},
        {"\"C:\\Program Files\\VnLinkhost.exe\" -Embedding", {"C:\\Program Files\\VnLinkhost.exe", "-Embedding"}},
        {"'C:\\a b\\x.exe'\t/h", {"C:\\a b\\x.exe", "/h"}},
        {"\"C:\\x.exe\"-e", {"C:\\x.exe", "-e"}},  // the word behind the closing quote starts at once
        {"x0 0", {"x0", "0"}},  // only the very first character is tested for '0'
    };
    for (const TokenCase& c : cases) {
        SCOPED_TRACE(c.text);
        int count = 0;
        EXPECT_EQ(Words(c.text, &count), c.words);
        EXPECT_EQ(count, static_cast<int>(c.words.size()));
    }
}

TEST(CmdlineTokenize, RefusesLeadingZeroUnclosedFirstQuoteNullTextAndTinyLimit)
{
    for (const char* text : {"0", "0 -e", "0prog -e", "\"C:\\prog -e", "'prog -e"}) {
        SCOPED_TRACE(text);
        int count = 0;
        Words(text, &count);
        EXPECT_EQ(count, -1);
    }
    char* vector[4] = {};
    EXPECT_EQ(TCmdlineParser::Tokenize(nullptr, vector, 4), -1);
    char text[] = "prog -e";
    EXPECT_EQ(TCmdlineParser::Tokenize(text, vector, 1), -1);
    EXPECT_EQ(TCmdlineParser::Tokenize(text, vector, 0), -1);
    EXPECT_EQ(vector[0], nullptr);  // a refusal stores nothing
    EXPECT_EQ(TCmdlineParser::Tokenize(text, vector, 2), 2);  // the smallest limit that works
    EXPECT_STREQ(vector[0], "prog");
    EXPECT_EQ(vector[1], nullptr);
}

TEST(CmdlineTokenize, CountsBeyondTheLimitButNeverWritesPastIt)
{
    std::string text = "prog";
    for (int i = 1; i < 300; ++i)
        text += " w" + std::to_string(i);

    // Four guard slots behind the limit must keep their marker.
    char marker = 'M';
    char* vector[TCmdlineParser::kMaxElements + 4];
    for (char*& slot : vector)
        slot = &marker;
    EXPECT_EQ(TCmdlineParser::Tokenize(&text[0], vector, TCmdlineParser::kMaxElements), 300);
    EXPECT_STREQ(vector[0], "prog");
    EXPECT_STREQ(vector[254], "w254");
    EXPECT_EQ(vector[255], nullptr);
    for (int i = TCmdlineParser::kMaxElements; i < TCmdlineParser::kMaxElements + 4; ++i)
        EXPECT_EQ(vector[i], &marker) << "slot " << i;

    // With a small limit the guard slots cover the index the count reaches.
    char small[] = "a b c d e f";
    char* four[8];
    for (char*& slot : four)
        slot = &marker;
    EXPECT_EQ(TCmdlineParser::Tokenize(small, four, 4), 6);
    EXPECT_STREQ(four[2], "c");
    EXPECT_EQ(four[3], nullptr);
    for (int i = 4; i < 8; ++i)
        EXPECT_EQ(four[i], &marker) << "slot " << i;
}

// ---------------------------------------------------------------------------
// Construction

TEST(CmdlineParserConstruction, SkipFirstStartsBehindTheProgramWord)
{
    TCmdlineParser skipping("prog -e", vfc::kCmdlinePermute, true);
    EXPECT_EQ(skipping.argc, 2);
    EXPECT_EQ(skipping.optind, 1);
    EXPECT_EQ(skipping.first_nonopt, 1);
    EXPECT_EQ(skipping.last_nonopt, 1);
    EXPECT_EQ(skipping.optopt, '?');

    TCmdlineParser whole("-e", vfc::kCmdlinePermute, false);
    EXPECT_EQ(whole.optind, 0);
    EXPECT_EQ(whole.Next("e", nullptr), 'e');
}

TEST(CmdlineParserConstruction, WorksOnItsOwnCopyOfTheText)
{
    char text[] = "prog -e";
    TCmdlineParser parser(text, vfc::kCmdlinePermute, true);
    text[6] = 'k';
    EXPECT_STREQ(text, "prog -k");  // the caller's text is not cut into words
    ASSERT_EQ(parser.argc, 2);
    EXPECT_STREQ(parser.argv[1], "-e");
}

TEST(CmdlineParserConstruction, RefusedTextLeavesArgcMinusOneAndParsesNothing)
{
    for (const char* text : {"0 -e", "\"prog -e", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(text ? text : "null");
        TCmdlineParser parser(text, vfc::kCmdlinePermute, true);
        EXPECT_EQ(parser.argc, -1);
        EXPECT_EQ(parser.Next("e", nullptr), -1);
        EXPECT_NE(parser.optind, parser.argc);
    }
}

TEST(CmdlineParserConstruction, MoreThan255WordsAreCountedButOnly255Stored)
{
    std::string text = "prog";
    for (int i = 1; i < 300; ++i)
        text += " -e";
    TCmdlineParser parser(text.c_str(), vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.argc, 300);
    EXPECT_STREQ(parser.argv[254], "-e");
    EXPECT_EQ(parser.argv[255], nullptr);

    // The stored options parse; the words that were never stored are left over.
    int options = 0;
    while (parser.Next("e", nullptr) == 'e')
        ++options;
    EXPECT_EQ(options, 254);
    EXPECT_EQ(parser.optind, 255);
    EXPECT_EQ(parser.argv[255], nullptr);
}

// ---------------------------------------------------------------------------
// Option elements and the option string prefix

TEST(CmdlineIsOption, NeedsAPrefixAndASecondCharacter)
{
    TCmdlineParser parser("prog", vfc::kCmdlinePermute, true);
    const struct {
        const char* element;
        bool option;
    } cases[] = {
        {"-x", true}, {"/x", true}, {"--x", true}, {"--", true}, {"//", true},
        {"-", false}, {"/", false}, {"/-x", false}, {"", false}, {"x", false}, {"x-y", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parser.IsOption(c.element), c.option) << "'" << c.element << "'";
    EXPECT_FALSE(parser.IsOption(nullptr));
}

TEST(CmdlineOptstringPrefix, PlusAndMinusChooseTheOrderingAndAreSkipped)
{
    TCmdlineParser parser("prog", vfc::kCmdlinePermute, true);
    EXPECT_STREQ(parser.ParseOptstringPrefix("ab"), "ab");
    EXPECT_EQ(parser.ordering, vfc::kCmdlinePermute);
    EXPECT_STREQ(parser.ParseOptstringPrefix("+ab"), "ab");
    EXPECT_EQ(parser.ordering, vfc::kCmdlineRequireOrder);
    EXPECT_STREQ(parser.ParseOptstringPrefix("-ab"), "ab");
    EXPECT_EQ(parser.ordering, vfc::kCmdlineReturnInOrder);
    EXPECT_EQ(parser.ParseOptstringPrefix("+"), nullptr);
    EXPECT_EQ(parser.ordering, vfc::kCmdlineRequireOrder);
    EXPECT_EQ(parser.ParseOptstringPrefix(""), nullptr);
    EXPECT_EQ(parser.ParseOptstringPrefix(nullptr), nullptr);
}

// ---------------------------------------------------------------------------
// Orderings, permutation and "--"

TEST(CmdlinePermutation, MovesWordsBehindTheOptionsKeepingBothOrders)
{
    TCmdlineParser parser("prog foo -r bar -u", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(parser, "ru", nullptr), (std::vector<int>{'r', 'u', -1}));
    EXPECT_EQ(Elements(parser), (std::vector<std::string>{"prog", "-r", "-u", "foo", "bar"}));
    EXPECT_EQ(parser.optind, 3);  // the first left-over word
}

TEST(CmdlinePermutation, RotatesBlocksOfUnequalLength)
{
    TCmdlineParser three("prog n1 n2 n3 -a v", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(three, "a:", nullptr), (std::vector<int>{'a', -1}));
    EXPECT_EQ(Elements(three), (std::vector<std::string>{"prog", "-a", "v", "n1", "n2", "n3"}));
    EXPECT_EQ(three.optind, 3);

    TCmdlineParser two("prog n1 n2 -a v w -b x", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(two, "a:b", nullptr), (std::vector<int>{'a', 'b', -1}));
    EXPECT_EQ(Elements(two), (std::vector<std::string>{"prog", "-a", "v", "-b", "n1", "n2", "w", "x"}));
    EXPECT_EQ(two.optind, 4);
}

TEST(CmdlinePermutation, RotationKeepsBothOrdersForAnyBlockLengths)
{
    // The parser itself moves at most two option elements at a time; driving
    // the block bounds directly covers every shape of the rotation.
    for (int words = 1; words <= 4; ++words) {
        for (int options = 1; options <= 5; ++options) {
            std::string text = "prog";
            std::vector<std::string> expected = {"prog"};
            for (int i = 0; i < options; ++i)
                expected.push_back("-o" + std::to_string(i));
            for (int i = 0; i < words; ++i) {
                text += " w" + std::to_string(i);
                expected.push_back("w" + std::to_string(i));
            }
            for (int i = 0; i < options; ++i)
                text += " -o" + std::to_string(i);
            SCOPED_TRACE(text);
            TCmdlineParser parser(text.c_str(), vfc::kCmdlinePermute, true);
            parser.first_nonopt = 1;
            parser.last_nonopt = 1 + words;
            parser.optind = parser.argc;
            EXPECT_FALSE(parser.NextElement(false));
            EXPECT_EQ(Elements(parser), expected);
            EXPECT_EQ(parser.optind, 1 + options);  // the first word, now behind the options
        }
    }
}

TEST(CmdlinePermutation, RotationNeverReachesPastTheStoredElements)
{
    std::string text = "prog";
    for (int i = 1; i < 300; ++i)
        text += " w" + std::to_string(i);
    TCmdlineParser parser(text.c_str(), vfc::kCmdlinePermute, true);
    // Bounds that reach into the words that were counted but never stored.
    parser.first_nonopt = 250;
    parser.last_nonopt = 252;
    parser.optind = 290;
    parser.NextElement(false);
    EXPECT_STREQ(parser.argv[250], "w250");
    EXPECT_STREQ(parser.argv[254], "w254");
    EXPECT_EQ(parser.argv[255], nullptr);
}

TEST(CmdlinePermutation, NoWordsLeavesOptindAtArgc)
{
    TCmdlineParser parser("prog -r -u", vfc::kCmdlinePermute, true);
    AllValues(parser, "ru", nullptr);
    EXPECT_EQ(parser.optind, parser.argc);
}

TEST(CmdlineDoubleDash, EndsTheOptionsAndLeavesWhatFollowsUnconsumed)
{
    TCmdlineParser behind("prog -r -- -u x", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(behind, "ru", nullptr), (std::vector<int>{'r', -1}));
    EXPECT_EQ(behind.optind, 3);
    EXPECT_STREQ(behind.argv[behind.optind], "-u");

    // A word before "--" moves behind it and counts as left over as well.
    TCmdlineParser word("prog foo -- -r", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(word, "r", nullptr), (std::vector<int>{-1}));
    EXPECT_EQ(Elements(word), (std::vector<std::string>{"prog", "--", "foo", "-r"}));
    EXPECT_EQ(word.optind, 2);

    TCmdlineParser last("prog -r --", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(last, "r", nullptr), (std::vector<int>{'r', -1}));
    EXPECT_EQ(last.optind, last.argc);
}

TEST(CmdlineOrdering, PlusStopsAtTheFirstWord)
{
    TCmdlineParser parser("prog -u foo -r", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(parser, "+ru", nullptr), (std::vector<int>{'u', -1}));
    EXPECT_EQ(parser.optind, 2);
    EXPECT_EQ(Elements(parser), (std::vector<std::string>{"prog", "-u", "foo", "-r"}));
}

TEST(CmdlineOrdering, MinusHandsBackWordsInPlaceAsValueOne)
{
    TCmdlineParser parser("prog foo -r bar", vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.Next("-r", nullptr), 1);
    EXPECT_STREQ(parser.optarg, "foo");
    EXPECT_EQ(parser.Next("-r", nullptr), 'r');
    EXPECT_EQ(parser.optarg, nullptr);
    EXPECT_EQ(parser.Next("-r", nullptr), 1);
    EXPECT_STREQ(parser.optarg, "bar");
    EXPECT_EQ(parser.Next("-r", nullptr), -1);
    EXPECT_EQ(parser.optind, parser.argc);
}

// ---------------------------------------------------------------------------
// Clusters and prefixes

TEST(CmdlineClusters, LettersOfOneElementAreSeparateOptions)
{
    TCmdlineParser dash("prog -hc", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(dash, "hc", nullptr), (std::vector<int>{'h', 'c', -1}));

    TCmdlineParser slash("prog /h/c", vfc::kCmdlinePermute, true);
    EXPECT_EQ(AllValues(slash, "hc", nullptr), (std::vector<int>{'h', 'c', -1}));
    EXPECT_EQ(slash.optind, slash.argc);
}

TEST(CmdlineClusters, SlashInsideAClusterBecomesThePrefixOfErrors)
{
    TCmdlineParser parser("prog -h/x", vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.Next("h", nullptr), 'h');
    EXPECT_EQ(parser.Next("h", nullptr), '?');
    EXPECT_EQ(parser.GetErrorMessage(), "invalid option '/x'");
}

// ---------------------------------------------------------------------------
// Short options with arguments (no long table)

TEST(CmdlineShortArguments, RequiredOptionalAndMissing)
{
    const struct {
        const char* text;
        int value;
        const char* optarg;
        int optind;
    } cases[] = {
        {"prog -afile", 'a', "file", 2},
        {"prog -a file", 'a', "file", 3},
        {"prog -a -b", 'a', "-b", 3},  // the next element is taken whatever it looks like
        {"prog -bval", 'b', "val", 2},
        {"prog -b val", 'b', nullptr, 2},  // optional: only the rest of the element
        {"prog -c", 'c', nullptr, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        TCmdlineParser parser(c.text, vfc::kCmdlinePermute, true);
        EXPECT_EQ(parser.Next("a:b::c", nullptr), c.value);
        if (c.optarg)
            EXPECT_STREQ(parser.optarg, c.optarg);
        else
            EXPECT_EQ(parser.optarg, nullptr);
        EXPECT_EQ(parser.optind, c.optind);
        EXPECT_EQ(parser.GetErrorCode(), 0);
    }
}

TEST(CmdlineShortArguments, MissingArgumentGivesColonAndCode4)
{
    TCmdlineParser parser("prog -ca", vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.Next("a:b::c", nullptr), 'c');
    EXPECT_EQ(parser.Next("a:b::c", nullptr), ':');
    EXPECT_EQ(parser.GetErrorCode(), 4);
    EXPECT_EQ(parser.GetErrorMessage(), "option '-a' requires an argument");
    EXPECT_EQ(parser.Next("a:b::c", nullptr), -1);
}

TEST(CmdlineShortArguments, UnknownLetterAndColonAreInvalid)
{
    TCmdlineParser unknown("prog -x", vfc::kCmdlinePermute, true);
    EXPECT_EQ(unknown.Next("a:", nullptr), '?');
    EXPECT_EQ(unknown.GetErrorCode(), 1);
    EXPECT_EQ(unknown.GetErrorMessage(), "invalid option '-x'");

    TCmdlineParser colon("prog /:", vfc::kCmdlinePermute, true);
    EXPECT_EQ(colon.Next("a:", nullptr), '?');
    EXPECT_EQ(colon.GetErrorMessage(), "invalid option '/:'");
}

// ---------------------------------------------------------------------------
// Long options

TEST(CmdlineLongArguments, KindsDecideHowArgumentsAreTaken)
{
    const struct {
        const char* text;
        int value;
        const char* optarg;  // null: none expected
        int errorCode;
        const char* message;
    } cases[] = {
        {"prog --alpha=x", 'a', "x", 0, ""},
        {"prog --alpha x", 'a', "x", 0, ""},
        {"prog --alpha=", 'a', "", 0, ""},
        {"prog --ALPHA=x", 'a', "x", 0, ""},
        {"prog -alpha x", 'a', "x", 0, ""},  // a single dash introduces a long name too
        {"prog --al x", 'a', "x", 0, ""},
        {"prog --alpha", ':', nullptr, 4, "option '--alpha' requires an argument"},
        {"prog --beta=y", 'b', "y", 0, ""},
        {"prog --beta", 'b', nullptr, 0, ""},  // optional: only behind '='
        {"prog --gamma", 'g', nullptr, 0, ""},
        {"prog --gamma=z", '?', nullptr, 5, "option '--gamma' doesn't allow an argument"},
        {"prog /GAMMA=z", '?', nullptr, 5, "option '/gamma' doesn't allow an argument"},
        {"prog --delta q", 'd', "q", 0, ""},
        {"prog --delta", ':', nullptr, 4, "option '--delta' requires an argument"},
        {"prog --epsilon=q", '?', nullptr, 5, "option '--epsilon' doesn't allow an argument"},
        {"prog --zeta", '?', nullptr, 2, "unrecognized option '--zeta'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        TCmdlineParser parser(c.text, vfc::kCmdlinePermute, true);
        EXPECT_EQ(parser.Next("a:b::cW;", kArgTable), c.value);
        if (c.optarg)
            EXPECT_STREQ(parser.optarg, c.optarg);
        else
            EXPECT_EQ(parser.optarg, nullptr);
        EXPECT_EQ(parser.GetErrorCode(), c.errorCode);
        EXPECT_EQ(parser.GetErrorMessage(), c.message);
        EXPECT_EQ(parser.Next("a:b::cW;", kArgTable), -1);
        EXPECT_EQ(parser.optind, parser.argc);
    }
}

TEST(CmdlineLongArguments, LongMatchPointsAtTheRowOnlyForLongSpellings)
{
    TCmdlineParser parser("prog --gam -a x -alpha y", vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.Next("a:", kArgTable), 'g');
    EXPECT_EQ(parser.long_match, &kArgTable[2]);
    EXPECT_EQ(parser.Next("a:", kArgTable), 'a');
    EXPECT_EQ(parser.long_match, nullptr);
    EXPECT_EQ(parser.Next("a:", kArgTable), 'a');
    EXPECT_EQ(parser.long_match, &kArgTable[0]);
    EXPECT_STREQ(parser.optarg, "y");
}

TEST(CmdlineLongArguments, WSemicolonReadsTheWordAsALongName)
{
    const struct {
        const char* text;
        int value;
        const char* optarg;
    } cases[] = {
        {"prog -Wgamma", 'g', nullptr},
        {"prog -W gamma", 'g', nullptr},
        {"prog -Walpha=v", 'a', "v"},
        {"prog -Wnothing", 'W', "nothing"},
        {"prog -W nothing", 'W', "nothing"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        TCmdlineParser parser(c.text, vfc::kCmdlinePermute, true);
        EXPECT_EQ(parser.Next("W;", kArgTable), c.value);
        if (c.optarg)
            EXPECT_STREQ(parser.optarg, c.optarg);
        else
            EXPECT_EQ(parser.optarg, nullptr);
        EXPECT_EQ(parser.Next("W;", kArgTable), -1);
        EXPECT_EQ(parser.optind, parser.argc);
    }

    TCmdlineParser missing("prog -W", vfc::kCmdlinePermute, true);
    EXPECT_EQ(missing.Next("W;", kArgTable), ':');
    EXPECT_EQ(missing.GetErrorMessage(), "option '-W' requires an argument");
}

TEST(CmdlineLongMatching, ExactMatchWinsUnlessTwoPartialsCameFirst)
{
    const TCmdlineOption exactFirst[] = {{"ab", 1, 'x'}, {"abc", 1, 'y'}, {"abd", 1, 'z'}, {"", 0, 0}};
    const TCmdlineOption exactAfterOne[] = {{"abc", 1, 'y'}, {"ab", 1, 'x'}, {"abd", 1, 'z'}, {"", 0, 0}};
    const TCmdlineOption exactAfterTwo[] = {{"abc", 1, 'y'}, {"abd", 1, 'z'}, {"ab", 1, 'x'}, {"", 0, 0}};
    const TCmdlineOption oneRow[] = {{"abc", 1, 'y'}, {"", 0, 0}};

    TCmdlineParser a("prog --ab", vfc::kCmdlinePermute, true);
    EXPECT_EQ(a.Next("", exactFirst), 'x');
    TCmdlineParser b("prog --AB", vfc::kCmdlinePermute, true);
    EXPECT_EQ(b.Next("", exactAfterOne), 'x');
    EXPECT_EQ(b.long_match, &exactAfterOne[1]);
    TCmdlineParser c("prog --ab", vfc::kCmdlinePermute, true);
    EXPECT_EQ(c.Next("", exactAfterTwo), '?');
    EXPECT_EQ(c.GetErrorMessage(), "option '--ab' is ambiguous");
    TCmdlineParser d("prog --abcd", vfc::kCmdlinePermute, true);
    EXPECT_EQ(d.Next("", oneRow), '?');  // longer than every name
    EXPECT_EQ(d.GetErrorMessage(), "unrecognized option '--abcd'");
}

TEST(CmdlineLongMatching, AnEmptyNameEndsTheTable)
{
    const TCmdlineOption table[] = {{"one", 1, 'o'}, {"", 1, 'x'}, {"two", 1, 't'}, {nullptr, 0, 0}};
    TCmdlineParser parser("prog --two", vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.Next("", table), '?');
    EXPECT_EQ(parser.GetErrorCode(), 2);
}

// ---------------------------------------------------------------------------
// Errors

TEST(CmdlineErrors, OnlyTheFirstErrorIsKept)
{
    TCmdlineParser parser("prog -x --yy", vfc::kCmdlinePermute, true);
    EXPECT_EQ(parser.Next("a", kArgTable), '?');
    EXPECT_EQ(parser.Next("a", kArgTable), '?');
    EXPECT_EQ(parser.GetErrorCode(), 2);
    EXPECT_EQ(parser.GetErrorText(), "-x");
    EXPECT_EQ(parser.GetErrorMessage(), "unrecognized option '-x'");
}

TEST(CmdlineErrors, ResetErrorClearsAndLetsTheNextErrorIn)
{
    TCmdlineParser parser("prog -x --yy", vfc::kCmdlinePermute, true);
    parser.Next("a", kArgTable);
    parser.optopt = 'a';
    TCmdlineParser& same = parser.ResetError();
    EXPECT_EQ(&same, &parser);
    EXPECT_EQ(parser.GetErrorCode(), 0);
    EXPECT_EQ(parser.GetErrorText(), "");
    EXPECT_EQ(parser.GetErrorMessage(), "");
    EXPECT_EQ(parser.optopt, '?');
    EXPECT_EQ(parser.Next("a", kArgTable), '?');
    EXPECT_EQ(parser.GetErrorText(), "--yy");
}

TEST(CmdlineErrors, TextIsThePrefixOfCurrentThenTheGivenCharacters)
{
    const struct {
        const char* text;
        int code;
        const char* offending;
        int length;
        const char* errorText;
        const char* message;
        int optopt;
    } cases[] = {
        {"prog -x", 1, "xyz", 1, "-x", "invalid option '-x'", '?'},
        {"prog --x", 2, "xyz", -1, "--xyz", "unrecognized option '--xyz'", '?'},
        {"prog /x", 3, "xyz", 2, "/xy", "option '/xy' is ambiguous", '?'},
        {"prog -x", 4, "x", 5, "-x", "option '-x' requires an argument", ':'},
        {"prog --x", 5, "help", -1, "--help", "option '--help' doesn't allow an argument", '?'},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        TCmdlineParser parser(c.text, vfc::kCmdlinePermute, true);
        parser.current = parser.argv[1];
        parser.SetError(c.code, c.offending, c.length);
        EXPECT_EQ(parser.GetErrorCode(), c.code);
        EXPECT_EQ(parser.GetErrorText(), c.errorText);
        EXPECT_EQ(parser.GetErrorMessage(), c.message);
        EXPECT_EQ(parser.optopt, c.optopt);
    }

    // Without a current element there is no prefix.
    TCmdlineParser bare("prog", vfc::kCmdlinePermute, true);
    bare.SetError(2, "abc", -1);
    EXPECT_EQ(bare.GetErrorText(), "abc");
}
