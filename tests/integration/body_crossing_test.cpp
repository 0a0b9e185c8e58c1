// How a response body gets from the network to a client in another process:
// whole and in order however the origin paces it, and by whichever way the
// bytes cross to the client.
#include "integration/pipeline_fixture.h"

namespace vn_test {
namespace {

class BodyCrossing : public Pipeline {
protected:
    void SetUp() override { ConfigureDirect(); }
};

// Bodies that come in small pieces with pauses between them, so that the
// receive thread's reads wait for the network again and again; after a
// request without a body, and after one whose body went out in blocks.
TEST_F(BodyCrossing, TrickledBodiesArriveWholeByLengthAndChunked)
{
    const struct {
        const wchar_t* verb;
        const char* mode;
    } kCases[] = {{L"GET", "length"}, {L"GET", "chunked"}, {L"POST", "length"}, {L"POST", "chunked"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.verb[0] == L'G' ? "GET " : "POST ") + c.mode);
        auto request = Request(Url("/slow?n=30000&piece=700&delay_ms=3&seed=7&mode=") + c.mode, c.verb);
        if (c.verb[0] == L'P')
            ASSERT_EQ(S_OK, WriteBody(request.get(), std::string(20000, 'b')));
        const TAnswer answer = Answer(request.get());
        EXPECT_EQ(S_OK, answer.hr);
        EXPECT_EQ(S_OK, answer.end);
        EXPECT_EQ(30000u, answer.body.size());
        EXPECT_EQ(answer.digest, Sha256(answer.body));
    }
}

}  // namespace
}  // namespace vn_test
