#include "host/log.h"

#include <windows.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <share.h>

#include <cstdarg>
#include <cstdio>
#include <cctype>
#include <cstring>
#include <fstream>

#include "vfc/critical_section.h"
#include "vfc/text.h"

namespace {

enum { kLevelTrace = 1, kLevelLog = 4 };

// The log lock: held across formatting and writing so that entries of this
// process never interleave. A function-local static, so that it exists before
// the first line of any static initialiser that logs.
vfc::TCriticalSection& LogLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;  // never destroyed: logging lasts to the end
    return *lock;
}

const char* const kFolder = "Velorin\\VnLinkhost\\Konfiguration";
const char* const kLogName = "VnLinkhost.log";

// Creates each folder of an absolute path from the top; an existing folder counts as made.
bool CreateFolderChain(const std::string& path)
{
    for (size_t i = 0; i <= path.size(); ++i) {
        if (i != path.size() && path[i] != '\\')
            continue;
        std::string part = path.substr(0, i);
        if (part.empty() || part.back() == ':')
            continue;  // drive root or UNC start
        if (!::CreateDirectoryA(part.c_str(), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS)
            return false;
    }
    return true;
}

void WriteEntry(const std::string& message)
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    std::string entry = vn_log::BuildEntry(now, ::GetCurrentProcessId(), ::GetCurrentThreadId(),
                                           vn_log::FormatWithoutArguments(message));
    std::string path = GetLogFilePath();
    // Deny-none sharing and append mode let two processes write at once.
    FILE* file = ::_fsopen(path.c_str(), "at", _SH_DENYNO);
    if (!file)
        return;
    std::fputs(entry.c_str(), file);
    std::fputc('\n', file);
    std::fflush(file);
    std::fclose(file);
}

void LogV(int level, const char* format, va_list args)
{
    // Trace lines never reach the file: they are not even formatted, so that
    // the busy paths that trace do not queue on the log lock for nothing.
    if (level == kLevelTrace)
        return;
    vfc::TLock lock(LogLock());
    WriteEntry(vfc::FormatV(format, args));
}

}  // namespace

void LogLine(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    LogV(kLevelLog, format, args);
    va_end(args);
}

void TraceLine(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    LogV(kLevelTrace, format, args);
    va_end(args);
}

bool GetKonfigurationFolder(std::string& folder)
{
    folder.clear();
    char base[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, base)))
        return false;
    char joined[MAX_PATH] = {};
    if (!::PathCombineA(joined, base, kFolder))
        return false;
    std::string absolute = joined;
    if (::PathIsRelativeA(joined)) {
        char cwd[MAX_PATH] = {};
        if (!::GetCurrentDirectoryA(MAX_PATH, cwd) || !::PathCombineA(joined, cwd, absolute.c_str()))
            return false;
    }
    char canonical[MAX_PATH] = {};
    if (!::PathCanonicalizeA(canonical, joined))
        return false;
    if (!CreateFolderChain(canonical))
        return false;
    folder = canonical;
    return true;
}

std::string GetLogFilePath()
{
    std::string folder;
    GetKonfigurationFolder(folder);
    std::string path = folder + "\\" + kLogName;
    // Whatever the attributes were (read-only, hidden), the file must take the line.
    ::GetFileAttributesA(path.c_str());
    ::SetFileAttributesA(path.c_str(), 0);
    return path;
}

void TruncateLogFile()
{
    vfc::TLock lock(LogLock());
    std::ofstream file(GetLogFilePath(), std::ios::out | std::ios::trunc);
}

namespace vn_log {

std::string FormatWithoutArguments(const std::string& message)
{
    std::string out;
    out.reserve(message.size());
    for (size_t i = 0; i < message.size(); ++i) {
        if (message[i] != '%') {
            out += message[i];
            continue;
        }
        // Collect one conversion: flags, width, precision, length, type.
        size_t j = i + 1;
        while (j < message.size() && std::strchr("-+ #0", message[j]))
            ++j;
        while (j < message.size() && (std::isdigit(static_cast<unsigned char>(message[j])) || message[j] == '.'))
            ++j;
        // The length modifier is dropped: the stand-in argument has a fixed type.
        const size_t lengthStart = j;
        while (j < message.size() && std::strchr("hlLqjztwI0123456789", message[j]))
            ++j;
        if (j >= message.size())
            break;  // a trailing lone '%' prints nothing
        const char type = message[j];
        const std::string conversion = message.substr(i, lengthStart - i);
        char buf[128] = {};
        switch (type) {
        case '%': out += '%'; break;
        case 'd': case 'i': case 'u': case 'x': case 'X': case 'o': case 'c':
            std::snprintf(buf, sizeof buf, (conversion + type).c_str(), 0);
            out += buf;
            break;
        case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A':
            std::snprintf(buf, sizeof buf, (conversion + type).c_str(), 0.0);
            out += buf;
            break;
        case 's': case 'S':
            std::snprintf(buf, sizeof buf, (conversion + 's').c_str(), "");
            out += buf;
            break;
        case 'p':
            std::snprintf(buf, sizeof buf, "%p", static_cast<void*>(nullptr));
            out += buf;
            break;
        case 'n': break;
        default:
            out.append(message, i, j - i + 1);
            break;
        }
        i = j;
    }
    return out;
}

std::string BuildEntry(const SYSTEMTIME& t, unsigned long pid, unsigned long tid, const std::string& message)
{
    std::string head = vfc::Format("[%04i-%02i-%02i %02i:%02i:%02i.%04i] pID %i tID %i ", t.wYear, t.wMonth,
                                   t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds,
                                   static_cast<int>(pid), static_cast<int>(tid));
    return head + message;
}

}  // namespace vn_log
