// What the platform's own internet client does without the component, as the
// yardstick of the local proxy's benchmark:
//   bench_raw_wininet pairs <url> <threads> <seconds>
//       threads in a loop, each request preceded by a body-less pre-flight of
//       the same verb on handles of its own, as the component sends them;
//       prints "pairs/s <n>"
//   bench_raw_wininet body <url> <read size>
//       one body read in blocks of the given size; prints "MiB/s <n>"
#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "vfc/unique_resource.h"

namespace {

using CHandle = vfc::TInternetHandle;

double Now()
{
    LARGE_INTEGER frequency, t;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&t);
    return static_cast<double>(t.QuadPart) / static_cast<double>(frequency.QuadPart);
}

struct Target {
    std::string host, path;
    INTERNET_PORT port = 80;
};

bool Parse(const char* url, Target& target)
{
    char host[256] = {}, path[2048] = {};
    URL_COMPONENTSA parts = {};
    parts.dwStructSize = sizeof parts;
    parts.lpszHostName = host;
    parts.dwHostNameLength = sizeof host;
    parts.lpszUrlPath = path;
    parts.dwUrlPathLength = sizeof path;
    char extra[2048] = {};
    parts.lpszExtraInfo = extra;
    parts.dwExtraInfoLength = sizeof extra;
    if (!InternetCrackUrlA(url, 0, 0, &parts))
        return false;
    target.host = host;
    target.path = std::string(path) + extra;
    target.port = parts.nPort;
    return true;
}

// One request on handles of its own; its body is read in blocks of
// `readSize` when `read` is set. Answers the bytes read, or -1.
long long Request(HINTERNET session, const Target& target, bool read, DWORD readSize)
{
    CHandle connection(InternetConnectA(session, target.host.c_str(), target.port, nullptr, nullptr,
                                        INTERNET_SERVICE_HTTP, 0, 0));
    CHandle request(connection ? HttpOpenRequestA(connection.get(), "GET", target.path.c_str(), nullptr, nullptr, nullptr,
                                                  INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                                                      INTERNET_FLAG_KEEP_CONNECTION,
                                                  0)
                                 : nullptr);
    if (!request || !HttpSendRequestA(request.get(), nullptr, 0, nullptr, 0))
        return -1;
    DWORD status = 0, size = sizeof status;
    if (!HttpQueryInfoA(request.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr) ||
        status != HTTP_STATUS_OK)
        return -1;
    long long total = 0;
    std::vector<char> buffer(readSize);
    DWORD got = 0;
    while (read && InternetReadFile(request.get(), buffer.data(), readSize, &got) && got > 0)
        total += got;
    return total;
}

int Pairs(HINTERNET session, const Target& target, int threads, double seconds)
{
    std::atomic<long> pairs{0}, failures{0};
    const double end = Now() + seconds;
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; ++i)
        workers.emplace_back([&] {
            while (Now() < end) {
                if (Request(session, target, false, 0) < 0 || Request(session, target, true, 4096) < 0)
                    ++failures;
                else
                    ++pairs;
            }
        });
    for (auto& worker : workers)
        worker.join();
    std::printf("pairs/s %.1f failures %ld\n", static_cast<double>(pairs) / seconds, failures.load());
    return failures == 0 ? 0 : 1;
}

int Body(HINTERNET session, const Target& target, DWORD readSize)
{
    const double start = Now();
    const long long bytes = Request(session, target, true, readSize);
    if (bytes <= 0)
        return 1;
    std::printf("MiB/s %.1f bytes %lld\n", static_cast<double>(bytes) / 1048576.0 / (Now() - start), bytes);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    Target target;
    if (argc < 4 || !Parse(argv[2], target)) {
        std::fprintf(stderr, "usage: bench_raw_wininet pairs <url> <threads> <seconds> | body <url> <read size>\n");
        return 2;
    }
    CHandle session(InternetOpenA("VnLinkhost bench", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
    if (std::string(argv[1]) == "pairs" && argc == 5)
        return Pairs(session.get(), target, std::atoi(argv[3]), std::atof(argv[4]));
    return Body(session.get(), target, static_cast<DWORD>(std::atoi(argv[3])));
}
