#include "host/messages.h"

#include <cstdarg>

#include "host/platform_seams.h"
#include "res/resource.h"
#include "vfc/text.h"
#include "vfc/unique_resource.h"

namespace {

std::string LoadResourceString(UINT id)
{
    // Strings of the table are at most a few hundred characters.
    char buffer[2048] = {};
    int n = ::LoadStringA(::GetModuleHandleA(nullptr), id, buffer, sizeof buffer);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

}  // namespace

std::string LoadFormat(UINT id, ...)
{
    std::string format = LoadResourceString(id);
    if (format.empty())
        return {};
    va_list args;
    va_start(args, id);
    std::string text = vfc::FormatV(format.c_str(), args);
    va_end(args);
    return text;
}

void ShowMessage(const std::string& text)
{
    std::string title = LoadFormat(IDS_PROJNAME);
    std::string body = LoadFormat(IDS_MESSAGE_FRAME, text.c_str());
    PlatformSeams().MessageBoxA(nullptr, body.c_str(), title.c_str(), MB_TASKMODAL);
}

void ShowUsage(const char* errorText)
{
    std::string errorLine = errorText ? LoadFormat(IDS_ERROR_LINE, errorText) : std::string();
    ShowMessage(LoadFormat(IDS_USAGE, errorLine.c_str()));
}

void ReportResult(HRESULT status, UINT failureId, UINT successId)
{
    if (FAILED(status)) {
        std::string reason;
        vfc::TLocalMem buffer;
        char* text = nullptr;
        DWORD n = ::FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                       FORMAT_MESSAGE_IGNORE_INSERTS,
                                   nullptr, static_cast<DWORD>(status), LANG_SYSTEM_DEFAULT,
                                   reinterpret_cast<LPSTR>(&text), 0, nullptr);
        buffer.reset(text);
        if (n && text)
            reason.assign(text, n);
        else
            reason = LoadFormat(IDS_UNKNOWN_SYSTEM_ERROR, static_cast<unsigned long>(status));
        ShowMessage(LoadFormat(failureId, reason.c_str()));
    } else if (successId != 0) {
        ShowMessage(LoadFormat(successId));
    }
}
