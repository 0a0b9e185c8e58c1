// libFuzzer target for the command-line parser and the process's choice of role (see run-fuzz). The first byte
// picks the ordering, whether the program's word is skipped, and the option tables: the program's own, or ones
// with arguments that reach the parser's other paths. The rest is the command line.
#include "host/command_line.h"
#include "tests/fuzz/fuzz_check.h"

namespace {

const vfc::TCmdlineOption kArguments[] = {{"name", 4, 'n'}, {"opt", 2, 'o'}, {"flag", 1, 'f'}, {"", 0, 0}};
const char* const kShort[] = {g_szVnLinkhostShortOptions, "W;a:b::h", "+a:c", "-hb::"};
const vfc::TCmdlineOption* const kLong[] = {g_VnLinkhostOptions, kArguments, nullptr, g_VnLinkhostOptions};

// Whether v is something the tables can give, or one of -1, 1, '?' and ':'.
bool Known(std::int32_t v, const char* shortOptions, const vfc::TCmdlineOption* table)
{
    for (; table && *table->name; ++table)
        if (table->value == v)
            return true;
    return v == -1 || v == 1 || v == '?' || v == ':' || (v > 0 && v < 256 && std::strchr(shortOptions, v));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const uint8_t mode = size ? data[0] : 0;
    const std::string text(reinterpret_cast<const char*>(data) + !!size, size - !!size);  // read up to a NUL
    const char* shortOptions = kShort[(mode >> 3) & 3];
    const vfc::TCmdlineOption* table = kLong[(mode >> 5) & 3];
    vfc::TCmdlineParser parser(text.c_str(), 1 + (mode & 3) % 3, (mode & 4) != 0);
    const int stored = std::min(std::max(parser.argc, 0), vfc::TCmdlineParser::kMaxElements - 1);
    std::vector<char*> words(parser.argv, parser.argv + stored);
    std::int32_t value = 0;
    // Each step takes a character or a word at least, so the parse ends well inside twice the input's length.
    for (size_t step = 0; step <= 2 * size && (value = parser.Next(shortOptions, table)) != -1; ++step) {
        Check(Known(value, shortOptions, table) && parser.optind >= 0 && parser.optind <= std::max(parser.argc, 1));
        Check((value != '?' && value != ':') || !parser.GetErrorMessage().empty());
        // An argument is the tail of one of the command line's words.
        Check(!parser.optarg || std::any_of(words.begin(), words.end(), [&](char* w) {
            return parser.optarg >= w && parser.optarg <= w + std::strlen(w);
        }));
    }
    Check(value == -1);
    // Permuting moves words about and never loses or repeats one.
    std::vector<char*> after(parser.argv, parser.argv + stored);
    std::sort(words.begin(), words.end()), std::sort(after.begin(), after.end());
    Check(words == after);
    const TCommandLineChoice choice = ChooseRole(text.c_str());
    Check((choice.outcome == TCommandLineChoice::Role) == (choice.role > RoleNone && choice.role <= RoleKill));
    Check((choice.outcome == TCommandLineChoice::BadOption) == !choice.errorMessage.empty());
    return 0;
}
