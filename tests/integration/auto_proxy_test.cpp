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
    struct Case {
        const char* path;
        bool force;
        HRESULT expected;
        const char* content;  // of the destination afterwards; null: not written
    } cases[] = {
        {"/status/404", false, S_FALSE, nullptr},          // nothing cached yet
        {"/", false, S_FALSE, nullptr},                    // refused listener: a failure, the same line
        {"/status/200", false, S_OK, "status 200\r\n"},    // cached, in text mode
        {"/status/201", false, S_OK, "status 200\r\n"},    // the cache, not this address
        {"/status/200?forced", true, S_OK, "status 200\r\n"},
        {"/status/503", true, S_FALSE, nullptr},           // forced: no fallback to the cache
    };
    VnProcessMonitor monitor;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        DeleteFileA(file.c_str());
        const size_t log = LogSize();
        const std::string url = std::string(c.path) == "/" ? Url("/", "refused") : Url(c.path);
        EXPECT_EQ(c.expected, CVnAutoProxyHelper::URLDownloadToFileEx(url, file, monitor, c.force));
        EXPECT_EQ(c.content ? c.content : "", ReadWholeFile(file));
        EXPECT_EQ(!c.force && !c.content ? 1 : 0, CountLogLinesSince(log, "File was not downloaded."));
    }
    DeleteFileA(file.c_str());
}

}  // namespace
}  // namespace vn_test
