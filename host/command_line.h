// The program's command line: its option table and the choice of the role the
// process takes. The choice is pure, so the module's entry shows the boxes and
// runs the role while the unit tests check every spelling here.
#pragma once

#include <string>

#include "vfc/cmdline_parser.h"

// The role a process takes from its command line. The module keeps it in a
// field that is RoleNone until the command line has been parsed.
enum ProcessRole {
    RoleNone = 0,
    RoleConfigure = 1,
    RoleRegister = 2,
    RoleUnregister = 3,
    RoleRegServer = 4,    // like RoleRegister but shows no box
    RoleUnregServer = 5,  // like RoleUnregister but shows no box
    RoleEmbedding = 6,
    RoleService = 7,
    RoleKill = 8,
};

// The long options: nine rows and the terminator. The order of the rows
// decides which abbreviations are ambiguous, so it must not change.
extern const vfc::TCmdlineOption g_VnLinkhostOptions[10];
// The short options, none of which takes an argument.
extern const char g_szVnLinkhostShortOptions[];

// What a command line asks of the process.
struct TCommandLineChoice {
    enum Outcome {
        Help,       // usage without an error line
        BadOption,  // usage with errorMessage as its error line
        Leftover,   // usage with "Unknown command line arguments provided"
        NoRole,     // usage asking for one of the roles
        Role,       // run role
    };
    Outcome outcome = NoRole;
    // The chosen role; RoleNone unless outcome is Role.
    ProcessRole role = RoleNone;
    // The parser's message for BadOption, such as "option '--reg' is ambiguous".
    std::string errorMessage;
};

// Parses commandLine (whole, with the program as its first word) the way the
// process entry does. The last role option wins, "-h" ends the parse at once,
// and the first bad option ends it with its message.
TCommandLineChoice ChooseRole(const char* commandLine);
