// A download through the component against the same download through the
// platform's own internet client, side by side in one run, and the latency
// of a small GET both ways. Run by hand, with the servers up:
//   bench/run-download-bench [MiB]
// The component's figures include the crossing from the server process to
// this client over COM, as every application pays it.
#include <windows.h>
#include <objbase.h>
#include <wininet.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vnlinkhost.h"

namespace {

double Now()
{
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return static_cast<double>(t.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// Bytes read through the platform's client in synchronous mode.
unsigned long long RawGet(HINTERNET session, const std::string& url)
{
    HINTERNET request = InternetOpenUrlA(session, url.c_str(), nullptr, 0,
                                         INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION, 0);
    if (!request)
        return 0;
    std::vector<char> buffer(65536);
    unsigned long long total = 0;
    DWORD read = 0;
    while (InternetReadFile(request, buffer.data(), static_cast<DWORD>(buffer.size()), &read) && read > 0)
        total += read;
    InternetCloseHandle(request);
    return total;
}

// Bytes read through the component.
unsigned long long ComponentGet(IVnWebSession* session, const std::string& url)
{
    std::wstring wide(url.begin(), url.end());
    BSTR u = SysAllocString(wide.c_str()), m = SysAllocString(L"GET");
    IVnWebRequest* request = nullptr;
    IVnWebResult* result = nullptr;
    IVnStream* stream = nullptr;
    unsigned long long total = 0;
    if (SUCCEEDED(session->CreateWebRequest(u, m, &request)) && SUCCEEDED(request->Execute(&result)) &&
        SUCCEEDED(result->get_DataStream(&stream))) {
        for (;;) {
            SAFEARRAY* data = nullptr;
            if (FAILED(stream->Read(65536, &data)) || !data)
                break;
            LONG upper = -1;
            SafeArrayGetUBound(data, 1, &upper);
            SafeArrayDestroy(data);
            if (upper < 0)
                break;
            total += static_cast<unsigned long long>(upper) + 1;
        }
    }
    if (stream)
        stream->Release();
    if (result)
        result->Release();
    if (request)
        request->Release();
    SysFreeString(u);
    SysFreeString(m);
    return total;
}

std::string OriginPort()
{
    const char* line = std::getenv("VN_ORIGIN");
    std::string text = line ? line : "";
    size_t at = text.find("http=");
    return at == std::string::npos ? "" : text.substr(at + 5, text.find(' ', at) - at - 5);
}

}  // namespace

int main(int argc, char** argv)
{
    const unsigned long long mib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 256;
    const std::string port = OriginPort();
    if (port.empty()) {
        std::fprintf(stderr, "VN_ORIGIN is not set: run through bench/run-download-bench\n");
        return 2;
    }
    const std::string big = "http://127.0.0.1:" + port + "/bytes?mode=length&n=" + std::to_string(mib << 20);
    const std::string small = "http://127.0.0.1:" + port + "/bytes?n=512";

    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    IVnLinkhost* host = nullptr;
    if (FAILED(CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost,
                                reinterpret_cast<void**>(&host)))) {
        std::fprintf(stderr, "the server is not registered\n");
        return 3;
    }
    // Direct connections for both sides.
    const wchar_t* keys[][2] = {{L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"0"},
                                {L"dialup/useSystemConnection", L"false"}, {L"dialup/mode", L"0"}};
    for (auto& key : keys) {
        BSTR k = SysAllocString(key[0]), v = SysAllocString(key[1]);
        host->SetConfigurationValue(k, v);
        SysFreeString(k);
        SysFreeString(v);
    }
    IVnWebSession* session = nullptr;
    host->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, 0, &session);
    HINTERNET raw = InternetOpenA("bench", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);

    // Warm both paths and the origin's cache of the body.
    RawGet(raw, big);
    ComponentGet(session, small);

    double t0 = Now();
    const unsigned long long rawBytes = RawGet(raw, big);
    const double rawSeconds = Now() - t0;
    t0 = Now();
    const unsigned long long componentBytes = ComponentGet(session, big);
    const double componentSeconds = Now() - t0;

    const int rounds = 50;
    t0 = Now();
    for (int i = 0; i < rounds; ++i)
        RawGet(raw, small);
    const double rawLatency = (Now() - t0) / rounds;
    t0 = Now();
    for (int i = 0; i < rounds; ++i)
        ComponentGet(session, small);
    const double componentLatency = (Now() - t0) / rounds;

    const double mb = 1024.0 * 1024.0;
    std::printf("download of %llu MiB (bytes: component %llu, raw %llu)\n", mib, componentBytes, rawBytes);
    std::printf("  raw WinInet, in process     %8.1f MiB/s\n", rawBytes / mb / rawSeconds);
    std::printf("  through VnLinkhost          %8.1f MiB/s\n", componentBytes / mb / componentSeconds);
    std::printf("  component / raw             %8.3f\n", (componentBytes / componentSeconds) / (rawBytes / rawSeconds));
    std::printf("small GET latency (%d rounds; the component's pre-flight makes two round trips by design)\n", rounds);
    std::printf("  raw WinInet, one request    %8.2f ms\n", rawLatency * 1000);
    std::printf("  through VnLinkhost          %8.2f ms\n", componentLatency * 1000);
    std::printf("  component / raw             %8.2f\n", componentLatency / rawLatency);

    InternetCloseHandle(raw);
    session->Release();
    VARIANT_BOOL inUse;
    host->CheckShutdown(&inUse);
    host->Release();
    CoUninitialize();
    return 0;
}
