// A getopt-style parser over one Windows command line. It owns a copy of the
// text, cuts it into words in place and walks them with short options
// ("hcruesk"), long options that match without regard to case and may be
// abbreviated, and either '-' or '/' as the option prefix. It is not tied to
// any platform call, so the unit tests drive it directly.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vfc {

// One row of a long option table. A table ends with a row whose name is empty
// (or null). Only the low three bits of kind count.
struct TCmdlineOption {
    const char* name;
    std::int32_t kind;
    std::int32_t value;
};

// The kinds of a long option. Any kind whose low three bits are neither 1 nor
// 4 takes an optional argument, given only as "--name=argument".
enum : std::int32_t {
    kCmdlineNoArgument = 1,
    kCmdlineRequiredArgument = 4,
    kCmdlineOptionalArgument = 2,
};

// The orderings of the parser. A leading '+' or '-' of the short option string
// selects ordering 1 or 3 for the rest of the parse.
enum : std::int32_t {
    kCmdlineRequireOrder = 1,  // stop at the first non-option
    kCmdlinePermute = 2,       // move non-options behind the options
    kCmdlineReturnInOrder = 3, // hand non-options back as value 1
};

class TCmdlineParser {
public:
    // The element vector holds this many pointers: at most one fewer words
    // and a null pointer behind them.
    static constexpr int kMaxElements = 256;

    // Copies commandLine (which may be null), allocates the element vector
    // and tokenises. With skipFirst the first word (the program) is passed
    // over: optind, first_nonopt and last_nonopt start at 1 instead of 0.
    TCmdlineParser(const char* commandLine, std::int32_t ordering, bool skipFirst);
    virtual ~TCmdlineParser();

    TCmdlineParser(const TCmdlineParser&) = delete;
    TCmdlineParser& operator=(const TCmdlineParser&) = delete;

    // Clears the recorded error and sets optopt back to '?'.
    virtual TCmdlineParser& ResetError();
    // The recorded error as a sentence such as "invalid option '-x'"; empty
    // when there is no error.
    virtual std::string GetErrorMessage() const;
    // The offending option as the user wrote its prefix, without the sentence.
    virtual const std::string& GetErrorText() const;
    virtual std::int32_t GetErrorCode() const;
    // True for an element that starts with '-', or with '/' not followed by
    // '-', and has a second character. Null is not an option.
    virtual bool IsOption(const char* element) const;
    // Reads a leading '+' or '-' into ordering and returns the rest of the
    // string, or null when nothing is left.
    virtual const char* ParseOptstringPrefix(const char* shortOptions);
    // Moves to the next option element or the next character of a cluster.
    // False at the end (optopt -1) or for a non-option handed back in
    // ordering 3 (optopt 1, optarg the word).
    virtual bool NextElement(bool longAllowed);
    // Records an error unless one is already kept. The text of the error is
    // the prefix of current followed by length characters of text (all of it
    // for -1).
    virtual void SetError(std::int32_t code, const char* text, std::int32_t length);

    // One parsing step. Returns the value of the option found, -1 at the end,
    // '?' for an unknown or ambiguous option, ':' for a missing argument, or 1
    // for a non-option in ordering 3. With longOptions null every option
    // element is a cluster of short options, and an unknown letter is an
    // "invalid option" (code 1).
    std::int32_t Next(const char* shortOptions, const TCmdlineOption* longOptions);

    // Cuts text into words in place. Stores at most limit - 1 word pointers
    // in vector followed by a null pointer, and never writes vector[limit] or
    // beyond, but goes on counting. Returns the count of words, or -1 for a
    // null text, a text starting with the digit '0', a first word with an
    // unclosed quote, or a limit below 2.
    static int Tokenize(char* text, char** vector, int limit);

    // The parse state, laid out as the system's other parts expect to find it.
    // The pointers point into the parser's own copy of the command line.
    std::int32_t argc = 0;
    char** argv = nullptr;
    std::int32_t optind = 0;
    char* optarg = nullptr;
    std::int32_t optopt = '?';
    std::int32_t ordering = kCmdlinePermute;
    char* nextchar = nullptr;
    char* current = nullptr;
    std::int32_t first_nonopt = 0;
    std::int32_t last_nonopt = 0;
    std::int32_t error_code = 0;
    std::string error_text;
    const TCmdlineOption* long_match = nullptr;

private:
    // The element at index, or null for an index that has no stored word
    // (negative, at or beyond argc, or beyond what the vector holds).
    char* Element(std::int32_t index) const;
    // How many elements the vector really holds.
    std::int32_t StoredCount() const;
    // Moves the block of skipped non-options behind the options that
    // followed it and updates first_nonopt and last_nonopt.
    void RotateNonOptions();
    bool LongOptionStep(const TCmdlineOption* longOptions);
    void ShortOptionStep(const char* shortOptions, const TCmdlineOption* longOptions);

    // The two buffers the parser owns: the copy of the command line that the
    // elements point into, and the vector of kMaxElements element pointers.
    std::unique_ptr<char[]> m_text;
    std::unique_ptr<char*[]> m_vector;
};

}  // namespace vfc
