// The proxy script's download: direct, fetched once per process into the cache file and reused, or fetched anew when
// forced; and the automatic search, which finds the script's address by the platform's discovery.
#include "integration/pipeline_fixture.h"

#include "host/platform_seams.h"
#include "host/status.h"
#include "settings/auto_proxy_helper.h"
#include "settings/proxy_config_helper.h"

namespace vn_test {
namespace {

class ProxyScript : public Pipeline {};

const char* const kCached = "function FindProxyForURL(url, host) { return \"PROXY cached:1\"; }\r\n";

// The address that the platform's discovery finds, for the seam.
std::string s_discovered;
BOOL WINAPI Discover(LPSTR url, DWORD length, DWORD)
{
    return !s_discovered.empty() && lstrcpynA(url, s_discovered.c_str(), static_cast<int>(length)) != nullptr;
}

// In this order: the automatic search below relies on the cache filled here.
TEST_F(ProxyScript, IsFetchedOnceAndReusedUnlessForced)
{
    const std::string file = BinDir() + "\\vn-script.pac";
    // The script's path, whether the download is forced; the status, what the destination holds afterwards (null: not written).
    const std::tuple<const char*, bool, HRESULT, const char*> cases[] = {
        {"/status/404", false, S_FALSE, nullptr},          // nothing cached yet
        {"/", false, S_FALSE, nullptr},                    // refused listener: a failure, the same line
        {"/pac?proxy=cached:1", false, S_OK, kCached},      // cached, in text mode
        {"/status/201", false, S_OK, kCached},              // the cache, not this address
        {"/status/200?forced", true, S_OK, "status 200\r\n"},
        {"/status/503", true, S_FALSE, nullptr},           // forced: no fallback to the cache
    };
    VnProcessMonitor monitor;
    for (auto& [path, force, expected, content] : cases) {
        DeleteFileA(file.c_str());
        const size_t log = LogSize();
        const std::string url = std::string(path) == "/" ? Url("/", "refused") : Url(path);
        const HRESULT status = CVnAutoProxyHelper::URLDownloadToFileEx(url, file, monitor, force);
        EXPECT_EQ(std::make_tuple(expected, std::string(content ? content : ""), !force && !content ? 1 : 0),
                  std::make_tuple(status, ReadWholeFile(file), CountLogLinesSince(log, "File was not downloaded."))) << path;
    }
    DeleteFileA(file.c_str());
}

// Found by discovery, the script is the process's cached one: its answer, not
// the one at the address found, names the proxy. Nothing found is said so.
TEST_F(ProxyScript, AutomaticSearchAsksTheCachedScriptOnceDiscoveryFoundOne)
{
    const TScopedSeam<decltype(VnPlatformSeams::DetectAutoProxyUrl)> seam(PlatformSeams().DetectAutoProxyUrl, Discover);
    VnProcessMonitor monitor;
    for (const std::string& found : {Url("/pac?proxy=fresh:2"), std::string()}) {
        s_discovered = found;
        const size_t log = LogSize();
        std::string proxy;
        EXPECT_EQ(found.empty() ? VN_E_WPAD_NOT_FOUND : S_OK,
                  CVnProxyConfigHelper::GetProxyAuto(proxy, monitor, "http://example.test/x"));
        EXPECT_EQ(found.empty() ? "" : "cached:1", proxy);
        EXPECT_EQ(found.empty() ? 1 : 0, CountLogLinesSince(log, "WPAD Location is not found."));
    }
}

}  // namespace
}  // namespace vn_test
