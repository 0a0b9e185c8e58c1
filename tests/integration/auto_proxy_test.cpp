// The proxy script's download: direct, fetched once per process into the
// cache file and reused, or fetched anew when forced.
#include "integration/pipeline_fixture.h"

#include "settings/auto_proxy_helper.h"

namespace vn_test {
namespace {

class ProxyScript : public Pipeline {};

TEST_F(ProxyScript, IsFetchedOnceAndReusedUnlessForced)
{
    char folder[MAX_PATH];
    GetTempPathA(MAX_PATH, folder);
    const std::string file = std::string(folder) + "vn-script.pac";
    // The script's path, whether the download is forced; the status, what the destination holds afterwards (null: not written).
    const std::tuple<const char*, bool, HRESULT, const char*> cases[] = {
        {"/status/404", false, S_FALSE, nullptr},          // nothing cached yet
        {"/", false, S_FALSE, nullptr},                    // refused listener: a failure, the same line
        {"/status/200", false, S_OK, "status 200\r\n"},    // cached, in text mode
        {"/status/201", false, S_OK, "status 200\r\n"},    // the cache, not this address
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

}  // namespace
}  // namespace vn_test
