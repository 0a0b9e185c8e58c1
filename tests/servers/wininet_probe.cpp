// Fetches one URL with WinInet in synchronous mode and prints what came back,
// so that the loopback servers and the test prefix's trust can be checked
// from inside Wine without the product.  Not part of the CMake build:
//
//   x86_64-w64-mingw32-g++-posix -std=c++17 -O2 -static
//       -o wininet_probe.exe tests/servers/wininet_probe.cpp -lwininet
//   (one command line)
//
//   wininet_probe.exe [--proxy host:port] [--method VERB] [--ignore-revocation]
//                     [--no-redirect] [--timeout ms] <url>
//
// Prints one line per attempt and exits 0 when a response arrived:
//   status=<code> bytes=<body length>
//   error=<WinInet error number>
// With --ignore-revocation, an error 12057 (revocation could not be checked)
// is answered by setting SECURITY_FLAG_IGNORE_REVOCATION on the request and
// sending again, which shows the error that comes after it.  --timeout sets
// the receive time-out (default 15000 ms) on the request handle, the only
// place where Wine honours it.

#include <windows.h>
#include <wininet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct TInternetHandle {
    HINTERNET h = nullptr;
    explicit TInternetHandle(HINTERNET handle) : h(handle) {}
    ~TInternetHandle()
    {
        if (h)
            InternetCloseHandle(h);
    }
    TInternetHandle(const TInternetHandle&) = delete;
    TInternetHandle& operator=(const TInternetHandle&) = delete;
};

int Usage()
{
    std::fprintf(stderr,
                 "usage: wininet_probe [--proxy host:port] [--method VERB] "
                 "[--ignore-revocation] [--no-redirect] [--timeout ms] <url>\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string proxy, method = "GET", url;
    bool ignoreRevocation = false, noRedirect = false;
    DWORD timeoutMs = 15000;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--proxy") && i + 1 < argc)
            proxy = argv[++i];
        else if (!std::strcmp(argv[i], "--method") && i + 1 < argc)
            method = argv[++i];
        else if (!std::strcmp(argv[i], "--ignore-revocation"))
            ignoreRevocation = true;
        else if (!std::strcmp(argv[i], "--no-redirect"))
            noRedirect = true;
        else if (!std::strcmp(argv[i], "--timeout") && i + 1 < argc)
            timeoutMs = static_cast<DWORD>(std::strtoul(argv[++i], nullptr, 10));
        else if (argv[i][0] == '-')
            return Usage();
        else
            url = argv[i];
    }
    if (url.empty())
        return Usage();

    char host[256] = {}, path[2048] = {};
    URL_COMPONENTSA parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    parts.dwHostNameLength = sizeof(host);
    parts.lpszUrlPath = path;
    parts.dwUrlPathLength = sizeof(path);
    char extra[2048] = {};
    parts.lpszExtraInfo = extra;
    parts.dwExtraInfoLength = sizeof(extra);
    if (!InternetCrackUrlA(url.c_str(), 0, 0, &parts)) {
        std::printf("error=%lu (InternetCrackUrl)\n", GetLastError());
        return 1;
    }
    const std::string object = std::string(path) + extra;

    TInternetHandle session(InternetOpenA("wininet_probe",
                                          proxy.empty() ? INTERNET_OPEN_TYPE_DIRECT : INTERNET_OPEN_TYPE_PROXY,
                                          proxy.empty() ? nullptr : proxy.c_str(), nullptr, 0));
    if (!session.h) {
        std::printf("error=%lu (InternetOpen)\n", GetLastError());
        return 1;
    }
    InternetSetOptionA(session.h, INTERNET_OPTION_CONNECT_TIMEOUT, &timeoutMs, sizeof(timeoutMs));

    TInternetHandle connection(InternetConnectA(session.h, host, parts.nPort, nullptr, nullptr,
                                                INTERNET_SERVICE_HTTP, 0, 0));
    if (!connection.h) {
        std::printf("error=%lu (InternetConnect)\n", GetLastError());
        return 1;
    }
    DWORD flags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_UI;
    if (parts.nScheme == INTERNET_SCHEME_HTTPS)
        flags |= INTERNET_FLAG_SECURE;
    if (noRedirect)
        flags |= INTERNET_FLAG_NO_AUTO_REDIRECT;
    TInternetHandle request(HttpOpenRequestA(connection.h, method.c_str(), object.c_str(), nullptr,
                                             nullptr, nullptr, flags, 0));
    if (!request.h) {
        std::printf("error=%lu (HttpOpenRequest)\n", GetLastError());
        return 1;
    }
    InternetSetOptionA(request.h, INTERNET_OPTION_RECEIVE_TIMEOUT, &timeoutMs, sizeof(timeoutMs));

    // A few sends at most: each one either answers or shows one error.
    for (int attempt = 0; attempt < 4; ++attempt) {
        if (HttpSendRequestA(request.h, nullptr, 0, nullptr, 0))
            break;
        const DWORD error = GetLastError();
        std::printf("error=%lu\n", error);
        std::fflush(stdout);
        if (error != ERROR_INTERNET_SEC_CERT_REV_FAILED || !ignoreRevocation)
            return 1;
        DWORD security = 0, size = sizeof(security);
        InternetQueryOptionA(request.h, INTERNET_OPTION_SECURITY_FLAGS, &security, &size);
        security |= SECURITY_FLAG_IGNORE_REVOCATION;
        InternetSetOptionA(request.h, INTERNET_OPTION_SECURITY_FLAGS, &security, sizeof(security));
        if (attempt == 3)
            return 1;
    }

    DWORD status = 0, size = sizeof(status);
    HttpQueryInfoA(request.h, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr);
    unsigned long long total = 0;
    char buffer[65536];
    for (int reads = 0; reads < (1 << 20); ++reads) {
        DWORD got = 0;
        if (!InternetReadFile(request.h, buffer, sizeof(buffer), &got)) {
            std::printf("status=%lu bytes=%llu read-error=%lu\n", status, total, GetLastError());
            return 1;
        }
        if (got == 0)
            break;
        total += got;
    }
    std::printf("status=%lu bytes=%llu\n", status, total);
    return 0;
}
