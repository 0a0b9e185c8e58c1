#include "vfc/cmdline_parser.h"

#include <cctype>
#include <cstring>
#include <utility>

namespace vfc {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool InShortString(const char* shortOptions, char c)
{
    return shortOptions && c != '\0' && std::strchr(shortOptions, c) != nullptr;
}

// True if the first length characters of text equal those of name, ignoring
// case. A name shorter than length never matches.
bool PrefixEqualsNoCase(const char* text, const char* name, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (name[i] == '\0')
            return false;
        if (std::tolower(static_cast<unsigned char>(text[i])) !=
            std::tolower(static_cast<unsigned char>(name[i])))
            return false;
    }
    return true;
}

bool IsTableEnd(const TCmdlineOption* row) { return row->name == nullptr || row->name[0] == '\0'; }

}  // namespace

TCmdlineParser::TCmdlineParser(const char* commandLine, std::int32_t ordering_, bool skipFirst)
    : ordering(ordering_)
{
    if (commandLine) {
        const size_t length = std::strlen(commandLine);
        m_text.reset(new char[length + 1]);
        std::memcpy(m_text.get(), commandLine, length + 1);
    }
    // Value-initialised, so every slot the tokeniser leaves alone reads null.
    m_vector.reset(new char*[kMaxElements]());
    argv = m_vector.get();
    argc = Tokenize(m_text.get(), argv, kMaxElements);
    optind = first_nonopt = last_nonopt = skipFirst ? 1 : 0;
    optarg = nullptr;
    nextchar = nullptr;
    current = nullptr;
    ResetError();
}

// The text copy and the vector go with their owners; nothing else is held.
TCmdlineParser::~TCmdlineParser() = default;

TCmdlineParser& TCmdlineParser::ResetError()
{
    error_code = 0;
    error_text.clear();
    optopt = '?';
    return *this;
}

std::string TCmdlineParser::GetErrorMessage() const
{
    const char* before = nullptr;
    const char* after = "'";
    switch (error_code) {
    case 1: before = "invalid option '"; break;
    case 2: before = "unrecognized option '"; break;
    case 3: before = "option '"; after = "' is ambiguous"; break;
    case 4: before = "option '"; after = "' requires an argument"; break;
    case 5: before = "option '"; after = "' doesn't allow an argument"; break;
    default: return std::string();
    }
    return before + error_text + after;
}

const std::string& TCmdlineParser::GetErrorText() const { return error_text; }

std::int32_t TCmdlineParser::GetErrorCode() const { return error_code; }

bool TCmdlineParser::IsOption(const char* element) const
{
    if (element == nullptr || element[0] == '\0' || element[1] == '\0')
        return false;
    if (element[0] == '-')
        return true;
    return element[0] == '/' && element[1] != '-';
}

const char* TCmdlineParser::ParseOptstringPrefix(const char* shortOptions)
{
    if (shortOptions == nullptr)
        return nullptr;
    if (*shortOptions == '+') {
        ordering = kCmdlineRequireOrder;
        ++shortOptions;
    } else if (*shortOptions == '-') {
        ordering = kCmdlineReturnInOrder;
        ++shortOptions;
    }
    return *shortOptions != '\0' ? shortOptions : nullptr;
}

int TCmdlineParser::Tokenize(char* text, char** vector, int limit)
{
    // The test is against the digit '0', not the end of the text: an empty
    // text is one empty word, a text that starts with '0' is refused.
    if (text == nullptr || text[0] == '0' || limit < 2)
        return -1;

    const int capacity = limit - 1;
    int count = 0;
    auto store = [&](char* word) {
        if (count < capacity)
            vector[count] = word;
        ++count;
    };

    char* p = text;
    if (*p == '"' || *p == '\'') {
        // The program's path may be quoted; a quote left open there means
        // the text is not a command line the system understands.
        char* close = std::strchr(p + 1, *p);
        if (close == nullptr)
            return -1;
        *close = '\0';
        store(p + 1);
        p = close + 1;
    } else {
        char* word = p;
        while (*p != '\0' && !IsBlank(*p))
            ++p;
        if (*p != '\0')
            *p++ = '\0';
        store(word);
    }

    for (;;) {
        while (IsBlank(*p))
            ++p;
        if (*p == '\0')
            break;
        char* word;
        if (*p == '"' || *p == '\'') {
            const char quote = *p++;
            word = p;
            while (*p != '\0' && *p != quote)
                ++p;
        } else {
            word = p;
            while (*p != '\0' && !IsBlank(*p))
                ++p;
        }
        if (*p != '\0')
            *p++ = '\0';
        store(word);
    }
    vector[count < capacity ? count : capacity] = nullptr;
    return count;
}

std::int32_t TCmdlineParser::StoredCount() const
{
    if (argc <= 0)
        return 0;
    return argc < kMaxElements - 1 ? argc : kMaxElements - 1;
}

char* TCmdlineParser::Element(std::int32_t index) const
{
    return index >= 0 && index < StoredCount() ? argv[index] : nullptr;
}

void TCmdlineParser::RotateNonOptions()
{
    std::int32_t bottom = first_nonopt;
    std::int32_t middle = last_nonopt;
    std::int32_t top = optind;
    // Words beyond the vector were counted but never stored, so they cannot
    // move; an option never stands among them, which keeps top inside the
    // stored range in every parse. The check keeps the vector safe anyway.
    if (bottom >= 0 && top <= StoredCount()) {
        // Swap equal-length blocks until the non-options [bottom, middle)
        // stand behind the options [middle, top), each keeping its order.
        while (top > middle && middle > bottom) {
            if (top - middle > middle - bottom) {
                const std::int32_t length = middle - bottom;
                for (std::int32_t i = 0; i < length; ++i)
                    std::swap(argv[bottom + i], argv[top - length + i]);
                top -= length;
            } else {
                const std::int32_t length = top - middle;
                for (std::int32_t i = 0; i < length; ++i)
                    std::swap(argv[bottom + i], argv[middle + i]);
                bottom += length;
            }
        }
    }
    first_nonopt += optind - last_nonopt;
    last_nonopt = optind;
}

bool TCmdlineParser::NextElement(bool longAllowed)
{
    if (nextchar != nullptr && *nextchar != '\0') {
        // A '/' inside a cluster starts a new option, so "/h/c" is two.
        if (*nextchar != '/' || nextchar[1] == '\0')
            return true;
        current = nextchar;
        ++nextchar;
        return true;
    }

    if (first_nonopt > optind)
        first_nonopt = optind;
    if (last_nonopt > optind)
        last_nonopt = optind;

    if (ordering == kCmdlinePermute) {
        if (first_nonopt != last_nonopt && last_nonopt != optind)
            RotateNonOptions();
        else if (last_nonopt != optind)
            first_nonopt = optind;
        while (optind < argc && !IsOption(Element(optind)))
            ++optind;
        last_nonopt = optind;
    }

    const char* element = Element(optind);
    if (element != nullptr && std::strcmp(element, "--") == 0) {
        ++optind;
        if (first_nonopt != last_nonopt && last_nonopt != optind)
            RotateNonOptions();
        else if (first_nonopt == last_nonopt)
            first_nonopt = optind;
        last_nonopt = argc;
        optind = argc;
    }

    if (optind < argc) {
        char* word = Element(optind);
        if (IsOption(word)) {
            current = word;
            nextchar = word + ((longAllowed && word[1] == '-') ? 2 : 1);
            return true;
        }
        if (ordering != kCmdlineRequireOrder) {
            optarg = word;
            ++optind;
            optopt = 1;
            return false;
        }
    } else if (first_nonopt != last_nonopt) {
        // Pointing optind at the skipped words is how the caller learns
        // that some were left over.
        optind = first_nonopt;
    }
    optopt = -1;
    return false;
}

void TCmdlineParser::SetError(std::int32_t code, const char* text, std::int32_t length)
{
    if (error_code != 0)
        return;
    error_code = code;
    error_text.clear();
    if (current != nullptr && current[0] != '\0') {
        error_text += current[0];
        if (current[1] == '-')
            error_text += current[1];
    }
    if (text != nullptr) {
        if (length < 0) {
            error_text += text;
        } else {
            for (std::int32_t i = 0; i < length && text[i] != '\0'; ++i)
                error_text += text[i];
        }
    }
    optopt = code == 4 ? ':' : '?';
}

bool TCmdlineParser::LongOptionStep(const TCmdlineOption* longOptions)
{
    if (longOptions == nullptr || nextchar == nullptr)
        return false;

    char* equals = std::strchr(nextchar, '=');
    const size_t length = equals ? static_cast<size_t>(equals - nextchar) : std::strlen(nextchar);
    const TCmdlineOption* exact = nullptr;
    const TCmdlineOption* partial = nullptr;
    bool ambiguous = false;
    for (const TCmdlineOption* row = longOptions; !IsTableEnd(row); ++row) {
        if (!PrefixEqualsNoCase(nextchar, row->name, length))
            continue;
        if (std::strlen(row->name) == length) {
            exact = row;
            break;
        }
        if (partial != nullptr) {
            ambiguous = true;
            break;
        }
        partial = row;
    }

    char* end = nextchar + std::strlen(nextchar);
    if (ambiguous) {
        SetError(3, nextchar, -1);
        nextchar = end;
        ++optind;
        return true;
    }
    const TCmdlineOption* match = exact ? exact : partial;
    if (match == nullptr)
        return false;

    long_match = match;
    optopt = match->value;
    ++optind;
    const std::int32_t kind = match->kind & 7;
    if (equals != nullptr) {
        if (kind == kCmdlineNoArgument)
            SetError(5, match->name, -1);
        else
            optarg = equals + 1;
    } else if (kind == kCmdlineRequiredArgument) {
        if (optind < StoredCount())
            optarg = argv[optind++];
        else
            SetError(4, match->name, -1);
    }
    nextchar = end;
    return true;
}

void TCmdlineParser::ShortOptionStep(const char* shortOptions, const TCmdlineOption* longOptions)
{
    const char c = *nextchar;
    if (c != '\0')
        ++nextchar;
    const char* entry = InShortString(shortOptions, c) ? std::strchr(shortOptions, c) : nullptr;
    if (*nextchar == '\0')
        ++optind;

    if (entry == nullptr || c == ':') {
        SetError(1, &c, 1);
        return;
    }

    if (entry[0] == 'W' && entry[1] == ';') {
        // "-W name" and "-Wname" spell the long option "--name".
        if (*nextchar == '\0') {
            if (optind >= StoredCount()) {
                SetError(4, &c, 1);
                nextchar = nullptr;
                return;
            }
            nextchar = argv[optind];
        }
        if (LongOptionStep(longOptions))
            return;
        optarg = nextchar;
        ++optind;
        nextchar = nullptr;
        optopt = 'W';
        return;
    }

    if (entry[1] == ':') {
        if (*nextchar != '\0') {
            optarg = nextchar;
            ++optind;
        } else if (entry[2] != ':') {
            if (optind < StoredCount()) {
                optarg = argv[optind++];
            } else {
                SetError(4, &c, 1);
                nextchar = nullptr;
                return;
            }
        }
        nextchar = nullptr;
    }
    optopt = static_cast<unsigned char>(c);
}

std::int32_t TCmdlineParser::Next(const char* shortOptions, const TCmdlineOption* longOptions)
{
    shortOptions = ParseOptstringPrefix(shortOptions);
    optopt = '?';
    long_match = nullptr;
    optarg = nullptr;

    if (!NextElement(longOptions != nullptr))
        return optopt;

    if (longOptions == nullptr) {
        ShortOptionStep(shortOptions, nullptr);
        return optopt;
    }

    // A lone known letter is always the short option, so "-r" is never read
    // as an abbreviation of a long name.
    const char* e = Element(optind);
    if (e != nullptr && e[1] != '-' && e[2] == '\0' && InShortString(shortOptions, e[1])) {
        ShortOptionStep(shortOptions, longOptions);
        return optopt;
    }

    // Long names come before clusters, so "-register" and "/RegServer" are
    // long options even with a single-character prefix.
    if (LongOptionStep(longOptions))
        return optopt;

    if (e != nullptr && e[1] != '-' && InShortString(shortOptions, *nextchar)) {
        ShortOptionStep(shortOptions, longOptions);
        return optopt;
    }

    SetError(2, nextchar, -1);
    nextchar = nullptr;
    ++optind;
    return optopt;
}

}  // namespace vfc
