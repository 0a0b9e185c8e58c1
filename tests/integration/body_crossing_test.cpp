// How a response body gets from the network to a client in another process: whole and in order however the origin
// paces it, and by whichever way the bytes cross to the client.
#include "integration/pipeline_fixture.h"

namespace vn_test {
namespace {

using BodyCrossing = Pipeline;

// Bodies that come in small pieces with pauses between them, so that the receive thread's reads wait for the network
// again and again; after a request without a body, and after one whose body went out in blocks.
TEST_F(BodyCrossing, TrickledBodiesArriveWholeByLengthAndChunked)
{
    ConfigureDirect();
    for (const wchar_t* verb : {L"GET", L"POST"})
        for (const char* mode : {"length", "chunked"}) {
            auto request = Request(Url("/slow?n=30000&piece=700&delay_ms=3&seed=7&mode=") + mode, verb);
            ASSERT_EQ(S_OK, *verb == L'P' ? WriteBody(request.get(), std::string(20000, 'b')) : S_OK);
            const TAnswer answer = Answer(request.get());
            EXPECT_EQ(std::make_tuple(S_OK, S_OK, size_t(30000), answer.digest), std::make_tuple(answer.hr, answer.end, answer.body.size(),
                      Sha256(answer.body))) << vfc::Narrow(verb) << " " << mode;
        }
}

}  // namespace
}  // namespace vn_test
