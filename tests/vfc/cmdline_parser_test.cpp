// The command line parser on its own: cutting the text into words, telling
// options from words, the orderings, clusters, long names with their
// abbreviations and arguments, and the errors it records.
#include "vfc/cmdline_parser.h"

#include <gtest/gtest.h>

#include <string>

using vfc::TCmdlineOption;
using vfc::TCmdlineParser;

namespace {

// "count:word|word|..." of the words Tokenize stores for `text`.
std::string Words(const char* text, int limit = TCmdlineParser::kMaxElements)
{
    std::string copy = text;
    char* vector[TCmdlineParser::kMaxElements] = {};
    const int count = TCmdlineParser::Tokenize(&copy[0], vector, limit);
    std::string out = std::to_string(count) + ":";
    for (int i = 0; i < count && vector[i]; ++i)
        out += (i ? "|" : "") + std::string(vector[i]);
    return out;
}

std::string Elements(const TCmdlineParser& parser)
{
    std::string out;
    for (int i = 0; i < parser.argc; ++i)
        out += (i ? " " : "") + std::string(parser.argv[i] ? parser.argv[i] : "<null>");
    return out;
}

// What Next gives up to -1, one token per call: the value ("1" for a word
// handed back), '*' when a long row matched, the argument in brackets; then
// "@optind/argc", the elements if they were moved, and '!' with the error.
std::string Parse(const char* text, const char* shortOptions, const TCmdlineOption* table = nullptr)
{
    TCmdlineParser parser(text, vfc::kCmdlinePermute, true);
    const TCmdlineParser unmoved(text, vfc::kCmdlinePermute, true);
    std::string out;
    for (int value = parser.Next(shortOptions, table), guard = 0; value != -1 && guard < 32;
         value = parser.Next(shortOptions, table), ++guard) {
        out += value == 1 ? std::string("1") : std::string(1, static_cast<char>(value));
        out += std::string(parser.long_match ? "*" : "") + (parser.optarg ? "(" + std::string(parser.optarg) + ")" : "") + " ";
    }
    out += "@" + std::to_string(parser.optind) + "/" + std::to_string(parser.argc);
    if (Elements(parser) != Elements(unmoved))
        out += " =" + Elements(parser);
    return out + (parser.GetErrorCode() ? " !" + parser.GetErrorMessage() : "");
}

// Each kind of argument; two kinds carry high bits that the parser ignores.
const TCmdlineOption kTable[] = {{"alpha", 4, 'a'}, {"beta", 2, 'b'},    {"gamma", 1, 'g'},
                                 {"delta", 0x0C, 'd'}, {"epsilon", 0x09, 'e'}, {"", 0, 0}};
// Rows for the order of exact and partial matches, and a table that an empty name ends.
const TCmdlineOption kExactFirst[] = {{"ab", 1, 'x'}, {"abc", 1, 'y'}, {"abd", 1, 'z'}, {"", 0, 0}};
const TCmdlineOption kExactAfterOne[] = {{"abc", 1, 'y'}, {"ab", 1, 'x'}, {"abd", 1, 'z'}, {"", 0, 0}};
const TCmdlineOption kExactAfterTwo[] = {{"abc", 1, 'y'}, {"abd", 1, 'z'}, {"ab", 1, 'x'}, {"", 0, 0}};
const TCmdlineOption kEndsEarly[] = {{"one", 1, 'o'}, {"", 1, 'x'}, {"two", 1, 't'}, {nullptr, 0, 0}};

}  // namespace

TEST(CmdlineTokenize, SplitsAtBlanksAndTabsAndHonoursQuotes)
{
    const char* const rows[][2] = {
        {"prog\t-e\t\t/k  ", "3:prog|-e|/k"},
        {"   ", "1:"},  // the first word runs to the first blank: it is empty
        {"", "1:"},
        {"prog \"two words\" 'and three more' x", "4:prog|two words|and three more|x"},
        {"prog \"\" ''", "3:prog||"},
        {"prog a\"b c\"", "3:prog|a\"b|c\""},  // a quote inside a word is plain text
        {"prog \"open to the end", "2:prog|open to the end"},
        {"prog \"mixed' quote\" z", "3:prog|mixed' quote|z"},
        {"\"C:\\Program Files\\VnLinkhost.exe\" -Embedding", "2:C:\\Program Files\\VnLinkhost.exe|-Embedding"},
        {"'C:\\a b\\x.exe'\t/h", "2:C:\\a b\\x.exe|/h"},
        {"\"C:\\x.exe\"-e", "2:C:\\x.exe|-e"},  // the word behind the closing quote starts at once
        {"x0 0", "2:x0|0"},                      // only the very first character is tested for '0'
        {"0", "-1:"},
        {"0prog -e", "-1:"},
        {"\"C:\\prog -e", "-1:"},  // an unclosed quote around the first word
        {"'prog -e", "-1:"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row[1], Words(row[0])) << row[0];
    EXPECT_EQ("-1:", Words("prog -e", 1));
    EXPECT_EQ("-1:", Words("prog -e", 0));
    EXPECT_EQ("2:prog", Words("prog -e", 2));  // the smallest limit that works stores one word
    char* vector[1] = {};
    EXPECT_EQ(-1, TCmdlineParser::Tokenize(nullptr, vector, 1));
}

TEST(CmdlineTokenize, CountsBeyondTheLimitButNeverWritesPastIt)
{
    char marker = 'M';
    char* vector[TCmdlineParser::kMaxElements + 4];
    for (int limit : {4, TCmdlineParser::kMaxElements}) {
        std::string text = "prog";
        for (int i = 1; i < 300; ++i)
            text += " w" + std::to_string(i);
        for (char*& slot : vector)
            slot = &marker;
        EXPECT_EQ(300, TCmdlineParser::Tokenize(&text[0], vector, limit));
        EXPECT_STREQ(("w" + std::to_string(limit - 2)).c_str(), vector[limit - 2]);
        EXPECT_EQ(nullptr, vector[limit - 1]);
        for (int i = limit; i < limit + 4; ++i)
            EXPECT_EQ(&marker, vector[i]) << "slot " << i << " of limit " << limit;
    }
}

TEST(CmdlineParser, ConstructionCopiesTheTextAndSkipsTheProgramWord)
{
    char text[] = "prog -e";
    TCmdlineParser parser(text, vfc::kCmdlinePermute, true);
    text[6] = 'k';
    EXPECT_STREQ("prog -k", text);  // the caller's text is not cut into words
    EXPECT_EQ("prog -e", Elements(parser));
    EXPECT_EQ(1, parser.optind);
    EXPECT_EQ(1, parser.first_nonopt);
    EXPECT_EQ(1, parser.last_nonopt);
    EXPECT_EQ('?', parser.optopt);
    TCmdlineParser whole("-e", vfc::kCmdlinePermute, false);
    EXPECT_EQ(0, whole.optind);
    EXPECT_EQ('e', whole.Next("e", nullptr));
}

TEST(CmdlineParser, OptionElementsAndOrderingPrefixes)
{
    TCmdlineParser parser("prog", vfc::kCmdlinePermute, true);
    for (const char* option : {"-x", "/x", "--x", "--", "//"})
        EXPECT_TRUE(parser.IsOption(option)) << option;
    for (const char* word : {"-", "/", "/-x", "", "x", "x-y", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(parser.IsOption(word)) << (word ? word : "null");
    EXPECT_STREQ("ab", parser.ParseOptstringPrefix("ab"));
    EXPECT_EQ(vfc::kCmdlinePermute, parser.ordering);
    EXPECT_STREQ("ab", parser.ParseOptstringPrefix("+ab"));
    EXPECT_EQ(vfc::kCmdlineRequireOrder, parser.ordering);
    EXPECT_STREQ("ab", parser.ParseOptstringPrefix("-ab"));
    EXPECT_EQ(vfc::kCmdlineReturnInOrder, parser.ordering);
    EXPECT_EQ(nullptr, parser.ParseOptstringPrefix("+"));
    EXPECT_EQ(nullptr, parser.ParseOptstringPrefix(""));
}

TEST(CmdlineParser, NextGivesOptionsArgumentsAndErrors)
{
    const struct {
        const char* text;
        const char* shortOptions;
        const TCmdlineOption* table;
        const char* expected;
    } rows[] = {
        // Permutation moves words behind the options, both keeping their order.
        {"prog foo -r bar -u", "ru", nullptr, "r u @3/5 =prog -r -u foo bar"},
        {"prog n1 n2 n3 -a v", "a:", nullptr, "a(v) @3/6 =prog -a v n1 n2 n3"},
        {"prog n1 n2 -a v w -b x", "a:b", nullptr, "a(v) b @4/8 =prog -a v -b n1 n2 w x"},
        {"prog -r -u", "ru", nullptr, "r u @3/3"},
        // "--" ends the options; what follows is left over.
        {"prog -r -- -u x", "ru", nullptr, "r @3/5"},
        {"prog foo -- -r", "r", nullptr, "@2/4 =prog -- foo -r"},
        {"prog -r --", "r", nullptr, "r @3/3"},
        // '+' stops at the first word, '-' hands words back in place.
        {"prog -u foo -r", "+ru", nullptr, "u @2/4"},
        {"prog foo -r bar", "-r", nullptr, "1(foo) r 1(bar) @4/4"},
        // Clusters, also of '/' options, and a refused text.
        {"prog -hc", "hc", nullptr, "h c @2/2"},
        {"prog /h/c", "hc", nullptr, "h c @2/2"},
        {"prog -h/x", "h", nullptr, "h ? @2/2 !invalid option '/x'"},
        {"0 -e", "e", nullptr, "@1/-1"},
        {nullptr, "e", nullptr, "@1/-1"},
        // Short options with a required and an optional argument.
        {"prog -afile", "a:b::c", nullptr, "a(file) @2/2"},
        {"prog -a -b", "a:b::c", nullptr, "a(-b) @3/3"},  // the next element, whatever it looks like
        {"prog -bval -b val", "a:b::c", nullptr, "b(val) b @3/4"},
        {"prog -ca", "a:b::c", nullptr, "c : @2/2 !option '-a' requires an argument"},
        {"prog -x /:", "a:", nullptr, "? ? @3/3 !invalid option '-x'"},
        {"prog /:", "a:", nullptr, "? @2/2 !invalid option '/:'"},
        // Long options: kinds, abbreviations, capitals, a single dash or a slash.
        {"prog --alpha=x --ALPHA y -alpha=", "a:", kTable, "a*(x) a*(y) a*() @5/5"},
        {"prog --al x -a x", "a:", kTable, "a*(x) a(x) @5/5"},  // a lone known letter is the short option
        {"prog --alpha", "", kTable, ":* @2/2 !option '--alpha' requires an argument"},
        {"prog --beta=y --beta z", "", kTable, "b*(y) b* @3/4"},  // optional: only behind '='
        {"prog --gamma=z", "", kTable, "?* @2/2 !option '--gamma' doesn't allow an argument"},
        {"prog /GAMMA=z", "", kTable, "?* @2/2 !option '/gamma' doesn't allow an argument"},
        {"prog --delta q --epsilon", "", kTable, "d*(q) e* @4/4"},
        {"prog --epsilon=q", "", kTable, "?* @2/2 !option '--epsilon' doesn't allow an argument"},
        {"prog --zeta", "", kTable, "? @2/2 !unrecognized option '--zeta'"},
        {"prog -x --yy", "a", kTable, "? ? @3/3 !unrecognized option '-x'"},  // only the first error is kept
        // "W;" reads the word as a long name.
        {"prog -Wgamma -W gamma -Walpha=v", "W;", kTable, "g* g* a*(v) @5/5"},
        {"prog -Wnothing -W nothing", "W;", kTable, "W(nothing) W(nothing) @4/4"},
        {"prog -W", "W;", kTable, ": @2/2 !option '-W' requires an argument"},
        // An exact match wins unless two partial matches came first.
        {"prog --ab", "", kExactFirst, "x* @2/2"},
        {"prog --AB", "", kExactAfterOne, "x* @2/2"},
        {"prog --ab", "", kExactAfterTwo, "? @2/2 !option '--ab' is ambiguous"},
        {"prog --abcd", "", kExactFirst, "? @2/2 !unrecognized option '--abcd'"},
        {"prog --two", "", kEndsEarly, "? @2/2 !unrecognized option '--two'"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, Parse(row.text, row.shortOptions, row.table)) << (row.text ? row.text : "null");
}

TEST(CmdlineParser, RotationStaysInsideTheStoredElements)
{
    std::string text = "prog";
    for (int i = 1; i < 300; ++i)
        text += " w" + std::to_string(i);
    TCmdlineParser parser(text.c_str(), vfc::kCmdlinePermute, true);
    parser.first_nonopt = 250;  // bounds that reach into words counted but never stored
    parser.last_nonopt = 252;
    parser.optind = 290;
    parser.NextElement(false);
    EXPECT_STREQ("w250", parser.argv[250]);
    EXPECT_STREQ("w254", parser.argv[254]);
    EXPECT_EQ(nullptr, parser.argv[255]);
}

TEST(CmdlineParser, OnlyTheFirstErrorIsKeptUntilReset)
{
    TCmdlineParser parser("prog -x", vfc::kCmdlinePermute, true);
    parser.current = parser.argv[1];
    parser.SetError(3, "xyz", 2);
    parser.SetError(1, "q", 1);
    EXPECT_EQ(3, parser.GetErrorCode());
    EXPECT_EQ("-xy", parser.GetErrorText());
    parser.optopt = 'a';
    EXPECT_EQ(&parser, &parser.ResetError());
    EXPECT_EQ(0, parser.GetErrorCode());
    EXPECT_EQ("", parser.GetErrorMessage());
    EXPECT_EQ('?', parser.optopt);
    parser.current = nullptr;  // without a current element there is no prefix
    parser.SetError(4, "abc", -1);
    EXPECT_EQ("abc", parser.GetErrorText());
    EXPECT_EQ(':', parser.optopt);
}
