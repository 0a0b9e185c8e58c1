// Small helpers shared by the test programs.
#pragma once

#include <windows.h>

#include <map>
#include <string>

namespace vn_test {

// The running test program, which runs itself as a child where a test needs that; its folder (the product's exe is
// built beside it); and a whole file (empty when it can't be read).
std::string ThisProgram();
inline std::string BinDir() { return ThisProgram().substr(0, ThisProgram().rfind('\\')); }
std::string ReadWholeFile(const std::string& path);

// A child process, killed if the test forgets it; `output` (inheritable) gets its stdout and stderr.
class TChild {
public:
    explicit TChild(const std::string& commandLine) : TChild(commandLine, nullptr) {}
    TChild(const std::string& commandLine, HANDLE output);
    ~TChild();
    TChild(const TChild&) = delete;
    TChild& operator=(const TChild&) = delete;
    bool started() const { return m_pi.hProcess != nullptr; }
    DWORD pid() const { return m_pi.dwProcessId; }
    HANDLE handle() const { return m_pi.hProcess; }
    // Exit code after waiting up to `timeoutMs`; STILL_ACTIVE if it did not end.
    DWORD Wait(DWORD timeoutMs)
    {
        DWORD code = ~0u;
        const bool ended = m_pi.hProcess && ::WaitForSingleObject(m_pi.hProcess, timeoutMs) != WAIT_FAILED;
        return ended && ::GetExitCodeProcess(m_pi.hProcess, &code) ? code : ~0u;
    }

private:
    PROCESS_INFORMATION m_pi = {};
};

// A child whose stdout and stderr go to a temporary file that can be read
// while it runs; killed, and the file removed, at the end.
class TCapturedChild {
public:
    explicit TCapturedChild(const std::string& commandLine) : m_child(commandLine, m_output.file) {}
    bool Running() const { return m_child.started() && ::WaitForSingleObject(m_child.handle(), 0) == WAIT_TIMEOUT; }
    DWORD Wait(DWORD timeoutMs) { return m_child.Wait(timeoutMs); }
    std::string Output() const { return ReadWholeFile(m_output.path); }

private:
    struct TTempOutput {
        TTempOutput();
        ~TTempOutput() { ::CloseHandle(file), ::DeleteFileA(path.c_str()); }
        std::string path;
        HANDLE file;
    } m_output;
    TChild m_child;
};

// Runs a command line for up to `timeoutMs` and gives its exit code (0xDEAD
// if it had to be killed, ~0u if it could not start), and what it printed.
DWORD RunCapture(const std::string& commandLine, std::string& output, DWORD timeoutMs = 60000);
inline DWORD RunAndWait(const std::string& commandLine, DWORD timeoutMs = 60000)
{
    std::string ignored;
    return RunCapture(commandLine, ignored, timeoutMs);
}

// Polls `pred` every 20 ms until it holds or `timeoutMs` passed.
template <typename Pred>
bool WaitUntil(Pred pred, DWORD timeoutMs)
{
    for (const DWORD start = ::GetTickCount(); !pred(); ::Sleep(20))
        if (::GetTickCount() - start > timeoutMs)
            return false;
    return true;
}

// Id of a process with exactly this image name other than this one, or 0; the CPU time of each thread of a process,
// in ms (GetProcessTimes answers 0 for another process under Wine; the threads' own times are real).
DWORD FindProcess(const char* imageName);
std::map<DWORD, ULONGLONG> ThreadTimes(DWORD pid);

// How often `part` stands in `text`, the places not overlapping.
int Count(const std::string& text, const std::string& part);

// Size of the product's log in this prefix, what came since `offset`, and how often `text` is in that.
std::string LogSince(size_t offset);
inline size_t LogSize() { return LogSince(0).size(); }
inline int CountLogLinesSince(size_t offset, const std::string& text) { return Count(LogSince(offset), text); }

// The key=value words of a READY line in an environment variable.
std::map<std::string, std::string> ReadyLine(const char* variable);

// Lower-case hex SHA-256 of the bytes.
std::string Sha256(const std::string& bytes);

// Text of a registry value (REG_SZ), or "<missing>".
std::string RegText(HKEY root, const std::string& key, const char* value);
bool RegKeyExists(HKEY root, const std::string& key);

}  // namespace vn_test
