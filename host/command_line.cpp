#include "host/command_line.h"

namespace {

constexpr int kRowRegServer = 4;
constexpr int kRowUnregServer = 5;

}  // namespace

// Constant-initialised, so the table is complete before any code runs.
const vfc::TCmdlineOption g_VnLinkhostOptions[10] = {
    {"help", vfc::kCmdlineNoArgument, 'h'},
    {"configure", vfc::kCmdlineNoArgument, 'c'},
    {"register", vfc::kCmdlineNoArgument, 'r'},
    {"unregister", vfc::kCmdlineNoArgument, 'u'},
    {"RegServer", vfc::kCmdlineNoArgument, 'r'},
    {"UnregServer", vfc::kCmdlineNoArgument, 'u'},
    {"embedding", vfc::kCmdlineNoArgument, 'e'},
    {"Service", vfc::kCmdlineNoArgument, 's'},
    {"kill", vfc::kCmdlineNoArgument, 'k'},
    {"", 0, 0},
};

const char g_szVnLinkhostShortOptions[] = "hcruesk";

TCommandLineChoice ChooseRole(const char* commandLine)
{
    TCommandLineChoice choice;
    vfc::TCmdlineParser parser(commandLine, vfc::kCmdlinePermute, true);
    ProcessRole role = RoleNone;
    for (;;) {
        const std::int32_t value = parser.Next(g_szVnLinkhostShortOptions, g_VnLinkhostOptions);
        if (value == -1)
            break;
        switch (value) {
        case 'h':
            choice.outcome = TCommandLineChoice::Help;
            return choice;
        case 'c': role = RoleConfigure; break;
        case 'e': role = RoleEmbedding; break;
        case 's': role = RoleService; break;
        case 'k': role = RoleKill; break;
        case 'r':
            // The spelling "RegServer" asks for a silent registration; the
            // parser tells which row matched, so no text is compared here.
            role = parser.long_match == &g_VnLinkhostOptions[kRowRegServer] ? RoleRegServer
                                                                           : RoleRegister;
            break;
        case 'u':
            role = parser.long_match == &g_VnLinkhostOptions[kRowUnregServer] ? RoleUnregServer
                                                                             : RoleUnregister;
            break;
        case '?':
        case ':':
            choice.outcome = TCommandLineChoice::BadOption;
            choice.errorMessage = parser.GetErrorMessage();
            return choice;
        default:
            break;
        }
    }
    if (parser.optind != parser.argc) {
        choice.outcome = TCommandLineChoice::Leftover;
        return choice;
    }
    if (role == RoleNone) {
        choice.outcome = TCommandLineChoice::NoRole;
        return choice;
    }
    choice.outcome = TCommandLineChoice::Role;
    choice.role = role;
    return choice;
}
