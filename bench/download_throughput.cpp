// A download through the component against the same download through the
// platform's own internet client, side by side in one run, from one origin:
//   bench/run-download-bench [rounds]
// Each round runs every variant once, in turn, so that the machine's noise
// falls on all of them alike; the first round warms caches and pools and is
// left out. Printed are medians, the spread (lowest and highest), and the
// ratio of each variant to raw WinInet reading 4 KiB at a time, which is what
// the component's receive thread does. The component's figures include the
// crossing from the server process to this client, as every application
// pays it. The server's own time in Execute comes from its counters section.
#include <windows.h>
#include <objbase.h>
#include <psapi.h>
#include <tlhelp32.h>
#include <wininet.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/counters.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vnlinkhost.h"

namespace {

// The server's own time may be this many raw requests: its pre-flight is a
// second round trip by design.
constexpr double kServerGoal = 2.5;

double Now()
{
    static const LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return static_cast<double>(t.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// Median, lowest and highest of a list of figures.
struct Summary {
    double median = 0, low = 0, high = 0;
};

Summary Summarize(std::vector<double> values)
{
    Summary s;
    if (values.empty())
        return s;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    s.median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    s.low = values.front();
    s.high = values.back();
    return s;
}

// Bytes of a GET through the platform's client in synchronous mode, read
// `chunk` bytes at a time.
unsigned long long RawGet(HINTERNET session, const std::string& url, DWORD chunk)
{
    HINTERNET request = InternetOpenUrlA(session, url.c_str(), nullptr, 0,
                                         INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION, 0);
    if (!request)
        return 0;
    std::vector<char> buffer(chunk);
    unsigned long long total = 0;
    DWORD read = 0;
    while (InternetReadFile(request, buffer.data(), chunk, &read) && read > 0)
        total += read;
    InternetCloseHandle(request);
    return total;
}

vfc::TBstr Wide(const std::string& text) { return vfc::TBstr(std::wstring(text.begin(), text.end())); }

// Bytes of a GET through the component, read with Read(readSize) until the
// body ends. `executed` gets the moment Execute returned.
unsigned long long ComponentGet(IVnWebSession* session, const std::string& url, LONG readSize, double* executed = nullptr)
{
    const vfc::TBstr u = Wide(url), m(L"GET");
    vfc::TComPtr<IVnWebRequest> request;
    vfc::TComPtr<IVnWebResult> result;
    vfc::TComPtr<IVnStream> stream;
    unsigned long long total = 0;
    if (SUCCEEDED(session->CreateWebRequest(u.get(), m.get(), request.put())) && SUCCEEDED(request->Execute(result.put()))) {
        if (executed)
            *executed = Now();
        if (SUCCEEDED(result->get_DataStream(stream.put())))
            for (;;) {
                SAFEARRAY* data = nullptr;
                if (FAILED(stream->Read(readSize, &data)) || !data)
                    break;
                LONG upper = -1;
                SafeArrayGetUBound(data, 1, &upper);
                SafeArrayDestroy(data);
                if (upper < 0)
                    break;
                total += static_cast<unsigned long long>(upper) + 1;
            }
    }
    return total;  // the stream, the result and the request are let go in this order
}

// The cross-process calls a small GET makes, with no network behind them:
// three that return a new interface of the same kind, marshalled from the
// type library (two CreateWebRequest, standing for CreateWebRequest and
// Execute, and a POST request's DataStream, an IVnStream as the result's is),
// and three releases. Reads through the ring are no calls. Gives its time in
// seconds, or -1 when a call failed.
double ComCallsAlone(IVnWebSession* session, const std::string& url)
{
    const vfc::TBstr u = Wide(url), post(L"POST"), get(L"GET");
    const double start = Now();
    bool made = false;
    {
        vfc::TComPtr<IVnWebRequest> request, second;
        vfc::TComPtr<IVnStream> stream;
        made = SUCCEEDED(session->CreateWebRequest(u.get(), post.get(), request.put())) &&
               SUCCEEDED(session->CreateWebRequest(u.get(), get.get(), second.put())) &&
               request->get_DataStream(stream.put()) == S_OK && stream;
    }
    return made ? Now() - start : -1;
}

std::string OriginPort()
{
    const char* line = std::getenv("VN_BENCH_ORIGIN");
    std::string text = line ? line : "";
    size_t at = text.find("http=");
    return at == std::string::npos ? "" : text.substr(at + 5, text.find(' ', at) - at - 5);
}

DWORD FindServer()
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    DWORD pid = 0;
    for (BOOL ok = Process32First(snapshot, &entry); ok && !pid; ok = Process32Next(snapshot, &entry))
        if (lstrcmpiA(entry.szExeFile, "VnLinkhost.exe") == 0)
            pid = entry.th32ProcessID;
    CloseHandle(snapshot);
    return pid;
}

// A whole small file, read through the platform (empty when it can't be).
std::string ReadSmallFile(const std::string& path)
{
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                              nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return "";
    std::string text;
    char buffer[4096];
    DWORD read = 0;
    while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0 && text.size() < (1 << 20))
        text.append(buffer, read);
    CloseHandle(file);
    return text;
}

// Under Wine another process's private bytes are not answered; its Unix
// process's anonymous resident memory is the same figure. The Unix process
// is found by its command line and by this prefix in its environment.
std::string UnixStatusPath()
{
    char prefix[MAX_PATH] = {};
    if (!GetEnvironmentVariableA("WINEPREFIX", prefix, MAX_PATH))
        return "";
    WIN32_FIND_DATAA entry;
    HANDLE find = FindFirstFileA("Z:\\proc\\*", &entry);
    std::string found;
    for (BOOL ok = find != INVALID_HANDLE_VALUE; ok && found.empty(); ok = FindNextFileA(find, &entry)) {
        const std::string dir = std::string("Z:\\proc\\") + entry.cFileName;
        if (entry.cFileName[0] < '0' || entry.cFileName[0] > '9' ||
            ReadSmallFile(dir + "\\cmdline").find("VnLinkhost.exe") == std::string::npos)
            continue;
        const std::string environment = ReadSmallFile(dir + "\\environ");
        if (environment.find(std::string("WINEPREFIX=") + prefix + '\0') != std::string::npos)
            found = dir + "\\status";
    }
    if (find != INVALID_HANDLE_VALUE)
        FindClose(find);
    return found;
}

// Working set and private bytes of the server, in MiB.
struct Memory {
    double workingSet = 0, privateBytes = 0;
};

Memory MemoryOf(HANDLE process, const std::string& unixStatus)
{
    PROCESS_MEMORY_COUNTERS_EX pmc = {};
    pmc.cb = sizeof pmc;
    Memory m;
    if (GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&pmc), sizeof pmc)) {
        m.workingSet = pmc.WorkingSetSize / 1048576.0;
        m.privateBytes = pmc.PrivateUsage / 1048576.0;
    }
    const std::string status = m.privateBytes == 0 && !unixStatus.empty() ? ReadSmallFile(unixStatus) : "";
    const size_t at = status.find("RssAnon:");
    if (at != std::string::npos)
        m.privateBytes = std::strtod(status.c_str() + at + 8, nullptr) / 1024.0;  // given in kB
    return m;
}

struct Variant {
    const char* name;
    bool component;
    std::function<unsigned long long(const std::string&)> run;
    std::vector<double> rates;   // MiB/s of each counted round
    std::vector<double> ratios;  // against raw 4 KiB in the same round
};

void PrintTable(std::vector<Variant>& variants, unsigned long long mib, int counted)
{
    std::printf("\n%llu MiB, %d rounds counted       median MiB/s   (low .. high)     / raw 4 KiB (median of rounds)\n",
                mib, counted);
    for (auto& v : variants) {
        const Summary rate = Summarize(v.rates), ratio = Summarize(v.ratios);
        std::printf("  %-30s %9.1f   (%7.1f .. %7.1f)   %6.3f (%5.3f .. %5.3f)\n", v.name, rate.median, rate.low, rate.high,
                    ratio.median, ratio.low, ratio.high);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    // 0 rounds: the small GET and the memory at rest only.
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 6;
    const std::string port = OriginPort();
    if (port.empty()) {
        std::fprintf(stderr, "VN_BENCH_ORIGIN is not set: run through bench/run-download-bench\n");
        return 2;
    }
    const std::string base = "http://127.0.0.1:" + port + "/bytes?n=";

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
    const DWORD serverPid = FindServer();
    HANDLE server = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, serverPid);
    const VnCounters* counters = MapCounters(serverPid);
    const std::string unixStatus = UnixStatusPath();

    ComponentGet(session, base + "512", 65536);  // the counters section exists after the first Execute
    if (!counters)
        counters = MapCounters(serverPid);
    const Memory rest = MemoryOf(server, unixStatus);

    std::printf("VnLinkhost download benchmark: %d rounds per size, the first left out\n", rounds);
    Memory peak = rest;
    for (unsigned long long mib : {64ull, 256ull}) {
        if (rounds < 2)
            break;
        const std::string url = base + std::to_string(mib << 20);
        std::vector<Variant> variants = {
            {"raw WinInet, 4 KiB reads", false, [&](const std::string& u) { return RawGet(raw, u, 4096); }, {}, {}},
            {"raw WinInet, 64 KiB reads", false, [&](const std::string& u) { return RawGet(raw, u, 65536); }, {}, {}},
            {"component, Read(4096)", true, [&](const std::string& u) { return ComponentGet(session, u, 4096); }, {}, {}},
            {"component, Read(65536)", true, [&](const std::string& u) { return ComponentGet(session, u, 65536); }, {}, {}},
            {"component, Read(0)", true, [&](const std::string& u) { return ComponentGet(session, u, 0); }, {}, {}},
        };
        for (int round = 0; round < rounds; ++round) {
            std::vector<double> rates;
            for (auto& v : variants) {
                // The server's memory is sampled while it carries the largest body.
                std::atomic<bool> running{true};
                std::thread sampler([&] {
                    while (running && mib == 256 && v.component) {
                        const Memory now = MemoryOf(server, unixStatus);
                        peak.workingSet = std::max(peak.workingSet, now.workingSet);
                        peak.privateBytes = std::max(peak.privateBytes, now.privateBytes);
                        Sleep(50);
                    }
                });
                const double start = Now();
                const unsigned long long bytes = v.run(url);
                const double seconds = Now() - start;
                running = false;
                sampler.join();
                if (bytes != (mib << 20)) {
                    std::fprintf(stderr, "%s: %llu bytes instead of %llu\n", v.name, bytes, mib << 20);
                    return 1;
                }
                rates.push_back(static_cast<double>(mib) / seconds);
            }
            if (round == 0)
                continue;
            for (size_t i = 0; i < variants.size(); ++i) {
                variants[i].rates.push_back(rates[i]);
                variants[i].ratios.push_back(rates[i] / rates[0]);
            }
        }
        PrintTable(variants, mib, rounds - 1);
    }

    // The small GET: many rounds, the first left out.
    const int smallRounds = 60;
    std::vector<double> rawMs, clientMs, executeMs, serverMs, comMs, serverRatios, clientRatios;
    for (int i = 0; i < smallRounds; ++i) {
        double start = Now();
        RawGet(raw, base + "512", 4096);
        const double rawTime = Now() - start;
        const LONG64 ticksBefore = counters ? counters->llExecuteTicks : 0;
        double executed = 0;
        start = Now();
        ComponentGet(session, base + "512", 65536, &executed);
        const double clientTime = Now() - start;
        const LONG64 ticks = counters ? counters->llExecuteTicks - ticksBefore : 0;
        const double comTime = ComCallsAlone(session, base + "512");
        if (i == 0)
            continue;
        // The machine's speed drifts between rounds: each round's own ratios,
        // of figures taken moments apart, are what is compared.
        if (comTime >= 0) {
            comMs.push_back(comTime * 1000);
            clientRatios.push_back(clientTime / (kServerGoal * rawTime + comTime));
        }
        rawMs.push_back(rawTime * 1000);
        clientMs.push_back(clientTime * 1000);
        executeMs.push_back((executed - start) * 1000);
        if (counters) {
            serverMs.push_back(static_cast<double>(ticks) * 1000.0 / static_cast<double>(counters->llFrequency));
            serverRatios.push_back(serverMs.back() / rawMs.back());
        }
    }
    const Summary r = Summarize(rawMs), c = Summarize(clientMs), e = Summarize(executeMs), s = Summarize(serverMs),
                  k = Summarize(comMs), sr = Summarize(serverRatios), cr = Summarize(clientRatios);
    std::printf("\nsmall GET of 512 bytes, %d rounds counted        median ms   (low .. high)\n", smallRounds - 1);
    std::printf("  raw WinInet, one request               %8.2f   (%6.2f .. %6.2f)\n", r.median, r.low, r.high);
    std::printf("  server's own time in Execute           %8.2f   (%6.2f .. %6.2f)   / raw %5.2f\n", s.median, s.low,
                s.high, s.median / r.median);
    std::printf("  client, from CreateWebRequest to the   %8.2f   (%6.2f .. %6.2f)\n", e.median, e.low, e.high);
    std::printf("    return of Execute\n");
    std::printf("  client, the whole GET (request, Execute,%7.2f   (%6.2f .. %6.2f)   / raw %5.2f\n", c.median, c.low,
                c.high, c.median / r.median);
    std::printf("    DataStream, reads, three releases)\n");
    std::printf("  calls of the same kind, no request behind%6.2f   (%6.2f .. %6.2f)\n", k.median, k.low, k.high);
    std::printf("  the medians: client against 2.5 x raw + those calls %6.2f against %6.2f\n", c.median,
                kServerGoal * r.median + k.median);
    std::printf("  each round's server / raw                %6.2f   (%6.2f .. %6.2f)   <= 2.5: %s\n", sr.median, sr.low,
                sr.high, sr.median <= kServerGoal ? "met" : "NOT met");
    std::printf("  each round's client / (2.5 x raw + those calls)\n");
    std::printf("                                           %6.2f   (%6.2f .. %6.2f)   <= 1: %s\n", cr.median, cr.low,
                cr.high, cr.median <= 1 ? "met" : "NOT met");
    if (!counters)
        std::printf("  (the server's counters could not be read)\n");
    if (comMs.size() + 1 < static_cast<size_t>(smallRounds))
        std::printf("  (the calls alone failed in %d rounds)\n", smallRounds - 1 - static_cast<int>(comMs.size()));

    std::printf("\nserver process memory (VnLinkhost.exe, pid %lu)      working set   private bytes%s\n",
                static_cast<unsigned long>(serverPid), unixStatus.empty() ? "" : " (Unix RssAnon)");
    std::printf("  at rest, after the first request             %8.1f MiB    %8.1f MiB\n", rest.workingSet, rest.privateBytes);
    if (rounds >= 2)
        std::printf("  highest during the 256 MiB transfers         %8.1f MiB    %8.1f MiB\n", peak.workingSet,
                    peak.privateBytes);
    const Memory after = MemoryOf(server, unixStatus);
    std::printf("  at rest, after all transfers                 %8.1f MiB    %8.1f MiB\n", after.workingSet,
                after.privateBytes);

    InternetCloseHandle(raw);
    if (server)
        CloseHandle(server);
    session->Release();
    VARIANT_BOOL inUse;
    host->CheckShutdown(&inUse);
    host->Release();
    CoUninitialize();
    return 0;
}
