// The exchange under every request: its address, its status, and which handles serve another one.
#include "agent/exchange.h"

#include "agent_test.h"
#include "intercept.h"

namespace {

TEST(CameraUrl, IsCutAt199Characters) {
    EXPECT_EQ(camera_url("127.0.0.1", "/CGI/X?a"), "http://127.0.0.1/CGI/X?a");
    const std::string host = "127.0.0.1:8080";
    const std::string whole = "http://" + host + "/" + std::string(199, 'x');
    EXPECT_EQ(camera_url(host.c_str(), whole.substr(7 + host.size())), whole.substr(0, 199));
}

class ExchangeTest : public AgentTest {
  protected:
    static std::string url(const std::string &path) {
        return std::string("http://") + FakeCamera::kHost + path;
    }
    // The result of a GET of `path` that is sent past the queue.
    static int get(const std::string &path) {
        Exchange exchange({url(path)}, Sink{});
        int result = 0;
        output_of([&] { result = exchange.perform(); });
        return result;
    }
    FakeCamera camera;
};

TEST_F(ExchangeTest, HandleWhoseTransferSucceededServesTheNext) {
    camera.reply("/x", "x");
    for (int i = 0; i < 3; i++) EXPECT_EQ(get("/x"), 0);
    EXPECT_EQ(intercept::transfers(), 1);
}

TEST_F(ExchangeTest, HandleWhoseTransferFailedServesNoOther) {
    camera.reply("/x", {{.hang_up = true}});
    for (int i = 0; i < 3; i++) EXPECT_EQ(get("/x"), CURLE_GOT_NOTHING);
    EXPECT_EQ(intercept::transfers(), 3);
}

// Any failure counts, the one of the lowest number too.
TEST_F(ExchangeTest, HandleThatKnewNoProtocolServesNoOther) {
    camera.reply("/x", {{.status = 302, .headers = {"Location: ftp://127.0.0.1/x"}}});
    for (int i = 0; i < 3; i++) EXPECT_EQ(get("/x"), CURLE_UNSUPPORTED_PROTOCOL);
    EXPECT_EQ(intercept::transfers(), 3);
}

TEST_F(ExchangeTest, ReleasedItsHandleServesTheNext) {
    camera.reply("/x", "x");
    Exchange first({url("/x")}, Sink{});
    EXPECT_TRUE(first.prepared());
    output_of([&] { EXPECT_EQ(first.perform(), 0); });
    first.release();
    EXPECT_FALSE(first.prepared());
    EXPECT_EQ(first.status(), 200) << "is known for as long as the exchange";
    EXPECT_EQ(get("/x"), 0);
    EXPECT_EQ(intercept::transfers(), 1);
}

}  // namespace
