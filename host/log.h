// The one diagnostic file of the system, VnLinkhost.log, in the per-user local
// application data folder. Both entry points are safe on any thread and never
// fail towards the caller.
#pragma once

#include <windows.h>

#include <string>

// Writes one entry.
void LogLine(const char* format, ...) __attribute__((format(ms_printf, 1, 2)));
// Formats like LogLine and drops the text: tracing is compiled in but silent.
void TraceLine(const char* format, ...) __attribute__((format(ms_printf, 1, 2)));

// The full path of the log file. Creates the folder with all its parents and
// clears the attributes of an existing file. When the folder can't be had, the
// path falls back to "\VnLinkhost.log" at the root of the current drive.
std::string GetLogFilePath();

// The folder "<local app data>\Velorin\VnLinkhost\Konfiguration", created with
// its parents; false (and an empty text) when any step fails. The configuration
// file lives there too.
bool GetKonfigurationFolder(std::string& folder);

// Empties the log file. Kept for maintenance tools; the system never calls it.
void TruncateLogFile();

namespace vn_log {

// The message forms of the log.
constexpr const char* kError = "Error in method [%s]. Message: %s";
constexpr const char* kErrorDec = "Error in method [%s]. Message: %s Error code: %i.";
constexpr const char* kErrorHex = "Error in method [%s]. Message: %s Error code: %X.";
constexpr const char* kWarning = "Warning in method [%s]. Message: %s";
constexpr const char* kInfo = "Info about method [%s]. Message: %s";
constexpr const char* kInfoStatus = "Info about method [%s]. Message: %s Status: %i.";

// The second formatting pass of the writer: the finished message is read as a
// format with no arguments. A conversion in it consumes an argument that is
// not there; here that argument reads as zero (numbers) or as an empty text,
// so a stray '%' changes the line but never the process.
std::string FormatWithoutArguments(const std::string& message);

// Builds one entry's text (without the line end) for the given time.
std::string BuildEntry(const SYSTEMTIME& time, unsigned long pid, unsigned long tid,
                       const std::string& message);

}  // namespace vn_log
