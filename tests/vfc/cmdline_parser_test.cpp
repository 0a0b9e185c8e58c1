// The command line parser on its own: words, option elements, permutation, clusters, long names with their
// abbreviations, and the errors it records.
#include "vfc/cmdline_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using vfc::TCmdlineOption;
using vfc::TCmdlineParser;

namespace {

std::string Words(std::string text, int limit = TCmdlineParser::kMaxElements)  // "count:word|word|..." as stored
{
    char* vector[TCmdlineParser::kMaxElements] = {};
    const int count = TCmdlineParser::Tokenize(&text[0], vector, limit);
    std::string out = std::to_string(count) + ":";
    for (int i = 0; i < count && vector[i]; ++i)
        out += (i ? "|" : "") + std::string(vector[i]);
    return out;
}

std::string Elements(const TCmdlineParser& parser)
{
    std::string out;
    for (int i = 0; i < std::min(parser.argc, TCmdlineParser::kMaxElements); ++i)  // the vector's size
        out += (i ? " " : "") + std::string(parser.argv[i] ? parser.argv[i] : "<null>");
    return out;
}

// What Next gives up to -1: the value ("1" for a word handed back), '*' when a long row
// matched, the argument in brackets; then "@optind/argc", the elements if they moved, '!' and the error.
std::string Parse(const char* text, const char* shortOptions, const TCmdlineOption* table = nullptr)
{
    TCmdlineParser parser(text, vfc::kCmdlinePermute, true);
    const TCmdlineParser unmoved(text, vfc::kCmdlinePermute, true);
    std::string out;
    for (int value, guard = 0; (value = parser.Next(shortOptions, table)) != -1 && guard < 32; ++guard)
        out += (value == 1 ? std::string("1") : std::string(1, static_cast<char>(value))) + (parser.long_match ? "*" : "") +
               (parser.optarg ? "(" + std::string(parser.optarg) + ")" : "") + " ";
    out += "@" + std::to_string(parser.optind) + "/" + std::to_string(parser.argc);
    if (Elements(parser) != Elements(unmoved))
        out += " =" + Elements(parser);
    return out + (parser.GetErrorCode() ? " !" + parser.GetErrorMessage() : "");
}

const TCmdlineOption kTable[] = {{"alpha", 4, 'a'}, {"gamma", 1, 'g'}, {"", 0, 0}};
// An exact match wins unless two partial ones came first; an empty name ends a table.
const TCmdlineOption kExactAfterOne[] = {{"abc", 1, 'y'}, {"ab", 1, 'x'}, {"abd", 1, 'z'}, {"", 0, 0}, {"two", 1, 't'}};
const TCmdlineOption kExactAfterTwo[] = {{"abc", 1, 'y'}, {"abd", 1, 'z'}, {"ab", 1, 'x'}, {"", 0, 0}};

}  // namespace

TEST(CmdlineTokenize, SplitsAtBlanksAndTabsHonoursQuotesAndNeverWritesPastTheLimit)
{
    const char* const rows[][2] = {
        {"prog\t-e\t\t/k  ", "3:prog|-e|/k"}, {"   ", "1:"}, {"", "1:"}, {"prog \"\" ''", "3:prog||"},
        {"prog \"two words\" 'and three more' x", "4:prog|two words|and three more|x"},
        {"prog a\"b c\"", "3:prog|a\"b|c\""}, {"prog \"open to the end", "2:prog|open to the end"},
        {"prog \"mixed' quote\" z", "3:prog|mixed' quote|z"}, {"'C:\\a b\\x.exe'\t/h", "2:C:\\a b\\x.exe|/h"},
        {"\"C:\\Program Files\\VnLinkhost.exe\" -Embedding", "2:C:\\Program Files\\VnLinkhost.exe|-Embedding"},
        {"\"C:\\x.exe\"-e", "2:C:\\x.exe|-e"}, {"x0 0", "2:x0|0"},  // only the very first character is tested for '0'
        {"0", "-1:"}, {"0prog -e", "-1:"}, {"\"C:\\prog -e", "-1:"}, {"'prog -e", "-1:"},  // and the first word's quote
    };
    for (const auto& row : rows)
        EXPECT_EQ(row[1], Words(row[0])) << row[0];
    EXPECT_EQ("-1:|-1:|2:prog", Words("prog -e", 1) + "|" + Words("prog -e", 0) + "|" + Words("prog -e", 2));
    char* vector[TCmdlineParser::kMaxElements + 4];
    EXPECT_EQ(-1, TCmdlineParser::Tokenize(nullptr, vector, 4));
    std::string text = "prog";
    for (int i = 1; i < 300; ++i)
        text += " w" + std::to_string(i);
    for (char*& slot : vector)
        slot = &text[0];
    EXPECT_EQ(300, TCmdlineParser::Tokenize(&text[0], vector, 256));  // counts on, stores 255 and a null
    EXPECT_EQ("w254|", std::string(vector[254]) + "|" + (vector[255] ? "x" : ""));
    EXPECT_EQ(std::vector<char*>(4, &text[0]), std::vector<char*>(vector + 256, vector + 260));  // and nothing behind
}

TEST(CmdlineParser, NextGivesOptionsArgumentsAndErrors)
{
    const std::tuple<const char*, const char*, const TCmdlineOption*, const char*> rows[] = {  // text, options, table; trace
        {"prog foo -r bar -u", "ru", nullptr, "r u @3/5 =prog -r -u foo bar"},  // words move behind the options
        {"prog n1 n2 n3 -a v", "a:", nullptr, "a(v) @3/6 =prog -a v n1 n2 n3"},
        {"prog n1 n2 -a v w -b x", "a:b", nullptr, "a(v) b @4/8 =prog -a v -b n1 n2 w x"},
        {"prog -r -u", "ru", nullptr, "r u @3/3"}, {"prog -r --", "r", nullptr, "r @3/3"},
        {"prog -r -- -u x", "ru", nullptr, "r @3/5"}, {"prog foo -- -r", "r", nullptr, "@2/4 =prog -- foo -r"},
        {"prog - / /-x x-y", "x", nullptr, "@1/5"},  // no option element: a lone prefix, or '/' before '-'
        {"prog -u foo -r", "+ru", nullptr, "u @2/4"}, {"prog foo -r bar", "-r", nullptr, "1(foo) r 1(bar) @4/4"},
        {"prog -hc", "hc", nullptr, "h c @2/2"}, {"prog /h/c", "hc", nullptr, "h c @2/2"},
        {"prog -h/x", "h", nullptr, "h ? @2/2 !invalid option '/x'"},
        {"0 -e", "e", nullptr, "@1/-1"}, {nullptr, "e", nullptr, "@1/-1"}, {"-e", "e", nullptr, "@1/1"},
        {"prog -x /:", "a:", nullptr, "? ? @3/3 !invalid option '-x'"}, {"prog /:", "a:", nullptr, "? @2/2 !invalid option '/:'"},
        {"prog --alpha=x --ALPHA y -alpha=", "a:", kTable, "a*(x) a*(y) a*() @5/5"},
        {"prog --al x -a x", "a:", kTable, "a*(x) a(x) @5/5"},  // '-a' is short
        {"prog --gamma=z", "", kTable, "?* @2/2 !option '--gamma' doesn't allow an argument"},
        {"prog /GAMMA=z", "", kTable, "?* @2/2 !option '/gamma' doesn't allow an argument"},
        {"prog -x --yy", "a", kTable, "? ? @3/3 !unrecognized option '-x'"},  // only the first error is kept
        {"prog --AB", "", kExactAfterOne, "x* @2/2"}, {"prog --ab", "", kExactAfterTwo, "? @2/2 !option '--ab' is ambiguous"},
        {"prog --abcd", "", kExactAfterOne, "? @2/2 !unrecognized option '--abcd'"},
        {"prog --two", "", kExactAfterOne, "? @2/2 !unrecognized option '--two'"},
    };
    for (auto& [text, shortOptions, table, expected] : rows)
        EXPECT_EQ(expected, Parse(text, shortOptions, table)) << (text ? text : "null");
}
