// How a response body gets from the network to a client in another process:
// whole and in order however the origin paces it, and by whichever way the
// bytes cross to the client.
#include "integration/pipeline_fixture.h"

#include <fstream>

#include "host/identities.h"
#include "host/status.h"
#include "web/stream_arrays.h"

namespace vn_test {
namespace {

const char* const kStreamDll = sizeof(void*) == 8 ? "VnLinkhostStream64.dll" : "VnLinkhostStream32.dll";

class BodyCrossing : public Pipeline {
protected:
    void SetUp() override { ConfigureDirect(); }

    // The stream of a GET's result.
    static vfc::TComPtr<IVnStream> Stream(const std::string& url, vfc::TComPtr<IVnWebResult>& result)
    {
        vfc::TComPtr<IVnStream> stream;
        auto request = Request(url, L"GET");
        if (request && Execute(request.get(), result) == S_OK)
            result->get_DataStream(stream.put());
        return stream;
    }

    // Reads to the end with Read(size); the status that ended the reading goes to `end`.
    static std::string ReadWith(IVnStream* stream, LONG size, HRESULT& end)
    {
        std::string bytes;
        for (int guard = 0; guard < 100000; ++guard) {
            vn_streams::TSafeArray data;
            end = stream->Read(size, data.put());
            vn_streams::TArrayData view(data.get());
            if (FAILED(end) || FAILED(view.status()) || view.size() == 0)
                break;
            bytes.append(reinterpret_cast<const char*>(view.get()), static_cast<size_t>(view.size()));
        }
        return bytes;
    }
};

// In this process the stream's bytes come from the ring it shares with the
// server, through the unmarshaller DLL, whatever the body's size and the
// size of the reads; at the end nothing is left and nothing more will come.
TEST_F(BodyCrossing, RingCarriesEveryBodyWholeWithEveryReadSize)
{
    for (const char* n : {"0", "1", "4096", "262145", "3145728"})
        for (LONG size : {4096, 65536, 0}) {
            SCOPED_TRACE(std::string(n) + " bytes, Read(" + std::to_string(size) + ")");
            vfc::TComPtr<IVnWebResult> result;
            auto stream = Stream(Url("/bytes?seed=3&n=") + n, result);
            ASSERT_TRUE(stream);
            HRESULT end = E_FAIL;
            const std::string body = ReadWith(stream.get(), size, end);
            EXPECT_EQ(S_OK, end);
            EXPECT_EQ(n, std::to_string(body.size()));
            EXPECT_EQ(Header(result.get(), L"X-Body-Sha256"), Sha256(body));
            LONG available = 0;
            EXPECT_EQ(S_OK, stream->get_AvailableBytes(&available));
            EXPECT_EQ(-1, available);
        }
    EXPECT_NE(nullptr, GetModuleHandleA(kStreamDll)) << "the reads did not go through the ring";
}

// A read that runs out of time ends the body for good, in the client's
// process as in the server: later reads find it ended short.
TEST_F(BodyCrossing, ReadThatRunsOutOfTimeEndsTheBody)
{
    vfc::TComPtr<IVnWebResult> result;
    auto stream = Stream(Url("/slow?n=2000&piece=1000&delay_ms=2000"), result);
    ASSERT_TRUE(stream);
    vn_streams::TSafeArray data;
    EXPECT_EQ(VN_E_READ_TIMEOUT, stream->ReadWithTimeout(0, 100, data.put()));
    EXPECT_EQ(VN_E_STREAM_BROKEN, stream->Read(0, data.put()));
    LONG available = 0;
    EXPECT_EQ(S_OK, stream->get_AvailableBytes(&available));
    EXPECT_EQ(-1, available);
}

// A script client reads a body through the same interfaces, by name. The
// session names this test's process, of the script's bitness, so that the
// server takes the ring; each Read(n) of what AvailableBytes announced must
// give those n bytes (Len counts two bytes of an array as one character).
TEST_F(BodyCrossing, ScriptClientReadsABodyThroughTheRing)
{
    char folder[MAX_PATH];
    GetTempPathA(MAX_PATH, folder);
    const std::string script = std::string(folder) + "vn-read-body.vbs";
    std::ofstream(script) << "Set host = CreateObject(\"VnLinkhost.VnLinkhostObject\")\r\n"
                             "Set session = host.CreateSession(CLng(WScript.Arguments(1)), 0, 0)\r\n"
                             "Set stream = session.CreateWebRequest(WScript.Arguments(0), \"GET\").Execute().DataStream\r\n"
                             "total = 0\r\n"
                             "Do\r\n"
                             "  a = stream.AvailableBytes\r\n"
                             "  If a = -1 Then Exit Do\r\n"
                             "  If a > 0 Then\r\n"
                             "    If Len(stream.Read(a)) <> a \\ 2 Then WScript.Echo \"short read\": WScript.Quit 1\r\n"
                             "    total = total + a\r\n"
                             "  End If\r\n"
                             "Loop\r\n"
                             "WScript.Echo \"bytes \" & total\r\n";
    std::string output;
    const DWORD code = RunCapture("cscript.exe //nologo " + Quoted(script) + " " + Url("/bytes?n=300001") + " " +
                                      std::to_string(GetCurrentProcessId()),
                                  output);
    DeleteFileA(script.c_str());
    EXPECT_EQ(0u, code) << output;
    EXPECT_NE(std::string::npos, output.find("bytes 300001")) << output;
}

// Where the unmarshaller DLL is absent, the server marshals the stream the
// standard way and a client in another process reads it all the same.
TEST_F(BodyCrossing, WithoutTheUnmarshallerDllAClientReadsByStandardMarshalling)
{
    struct TMovedDll {
        const std::string path = BinDir() + "\\" + kStreamDll, aside = path + ".absent";
        const bool moved = MoveFileA(path.c_str(), aside.c_str()) != FALSE;
        ~TMovedDll() { MoveFileA(aside.c_str(), path.c_str()); }
    } dll;
    ASSERT_TRUE(dll.moved);
    std::string output;
    const DWORD code = RunCapture(Quoted(BinDir() + "\\fetch.exe") + " " + Url("/bytes?n=300001") + " --count", output);
    EXPECT_EQ(0u, code) << output;
    EXPECT_NE(std::string::npos, output.find("300001 body bytes")) << output;
}

// The server enters the unmarshaller of its bitness, beside it, when it
// registers itself, and takes it out when it unregisters.
TEST_F(BodyCrossing, UnmarshallerComesAndGoesWithTheServersRegistration)
{
    const std::string key = std::string("CLSID\\") + vn_id::kStreamUnmarshalClsid + "\\InprocServer32";
    ASSERT_EQ(0u, RunServer("/UnregServer"));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, key));
    ASSERT_EQ(0u, RunServer("/RegServer"));
    EXPECT_EQ(BinDir() + "\\" + kStreamDll, RegText(HKEY_CLASSES_ROOT, key, nullptr));
    EXPECT_EQ("Both", RegText(HKEY_CLASSES_ROOT, key, "ThreadingModel"));
}

}  // namespace
}  // namespace vn_test
