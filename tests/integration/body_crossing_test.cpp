// How a response body crosses to a client in another process: through the ring that the stream shares with the
// server where the unmarshaller DLL serves the client, the standard way where it is absent.
#include "integration/pipeline_fixture.h"

#include <fstream>
#include <tuple>

#include "host/identities.h"
#include "host/status.h"

namespace vn_test {
namespace {

const char* const kStreamDll = sizeof(void*) == 8 ? "VnLinkhostStream64.dll" : "VnLinkhostStream32.dll";

class BodyCrossing : public Pipeline {
protected:
    void SetUp() override { ConfigureDirect(); }

    static LONG Available(IVnWebResult* result)
    {
        vfc::TComPtr<IVnStream> stream;
        LONG available = 0;
        return SUCCEEDED(result->get_DataStream(stream.put())) && SUCCEEDED(stream->get_AvailableBytes(&available)) ? available : -2;
    }
};

// Whatever the body's size and the size of the reads, the bytes come whole from the ring, through the unmarshaller
// DLL in this process; at the end nothing is left and nothing more will come. A body cut short of its length ends
// broken once its bytes are read.
TEST_F(BodyCrossing, RingCarriesEveryBodyWholeWithEveryReadSize)
{
    const std::tuple<const char*, size_t, HRESULT> kBodies[] = {
        {"/bytes?n=0", 0, S_OK}, {"/bytes?n=1", 1, S_OK}, {"/bytes?n=4096", 4096, S_OK}, {"/bytes?n=262145", 262145, S_OK},
        {"/bytes?n=3145728", 3145728, S_OK}, {"/short?n=300000&sent=200000", 200000, VN_E_STREAM_BROKEN}};
    for (const auto& [path, size, end] : kBodies)
        for (LONG readSize : {4096, 65536, 0}) {
            vfc::TComPtr<IVnWebResult> result;
            ASSERT_EQ(S_OK, Execute(Request(Url(path), L"GET").get(), result)) << path;
            HRESULT ended = E_FAIL;
            const std::string body = Body(result.get(), &ended, readSize);
            EXPECT_EQ(std::make_tuple(size, end, -1L), std::make_tuple(body.size(), ended, Available(result.get())))
                << path << ", Read(" << readSize << ")";
            if (end == S_OK) {
                EXPECT_EQ(Header(result.get(), L"X-Body-Sha256"), Sha256(body)) << path << ", Read(" << readSize << ")";
            }
        }
    EXPECT_NE(nullptr, GetModuleHandleA(kStreamDll)) << "the reads did not go through the ring";
}

// A read that runs out of time ends the body for good, in the client's process as in the server: later reads find it
// ended short.
TEST_F(BodyCrossing, ReadThatRunsOutOfTimeEndsTheBody)
{
    vfc::TComPtr<IVnWebResult> result;
    vfc::TComPtr<IVnStream> stream;
    ASSERT_EQ(S_OK, Execute(Request(Url("/slow?n=2000&piece=1000&delay_ms=2000"), L"GET").get(), result));
    ASSERT_EQ(S_OK, result->get_DataStream(stream.put()));
    vn_streams::TSafeArray data;
    EXPECT_EQ(VN_E_READ_TIMEOUT, stream->ReadWithTimeout(0, 100, data.put()));
    EXPECT_EQ(VN_E_STREAM_BROKEN, stream->Read(0, data.put()));
    EXPECT_EQ(-1, Available(result.get()));
}

// ReadString goes to the server's stream, which reads the same ring as this process's Read: the two take turns on
// one body, and a line read there leaves nothing behind here.
TEST_F(BodyCrossing, ReadStringAndReadTakeTurnsOnOneBody)
{
    vfc::TComPtr<IVnWebResult> result;
    vfc::TComPtr<IVnStream> stream;
    ASSERT_EQ(S_OK, Execute(Request(Url("/status/200"), L"GET").get(), result));
    ASSERT_EQ(S_OK, result->get_DataStream(stream.put()));
    LONG available = 0;
    ASSERT_TRUE(WaitUntil([&] { return SUCCEEDED(stream->get_AvailableBytes(&available)) && available == 11; }, 5000))
        << "the body \"status 200\\n\" did not arrive: " << available;
    vn_streams::TSafeArray data;
    ASSERT_EQ(S_OK, stream->Read(3, data.put()));
    vfc::TBstr line, after;
    EXPECT_EQ(S_OK, stream->ReadString(line.put()));
    EXPECT_EQ(S_OK, stream->ReadString(after.put()));
    EXPECT_EQ(std::make_tuple(std::string("sta"), std::wstring(L"tus 200\n"), LONG{-1}, true),
              std::make_tuple(std::string(static_cast<const char*>(data.get()->pvData), data.get()->rgsabound[0].cElements),
                              line.str(), Available(result.get()), !after.get() || !*after.get()));
    EXPECT_NE(nullptr, GetModuleHandleA(kStreamDll)) << "the reads did not go through the ring";
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
