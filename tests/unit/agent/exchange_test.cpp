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
    // How many handles three more of these make after a first one.
    int handles_of_three(int result) {
        EXPECT_EQ(get("/x"), result);
        const int before = intercept::transfers();
        for (int i = 0; i < 3; i++) EXPECT_EQ(get("/x"), result);
        return intercept::transfers() - before;
    }
    FakeCamera camera;
};

TEST_F(ExchangeTest, HandleWhoseTransferSucceededServesTheNext) {
    camera.reply("/x", "x");
    EXPECT_EQ(handles_of_three(CURLE_OK), 0);
}

TEST_F(ExchangeTest, HandleWhoseTransferFailedServesNoOther) {
    camera.reply("/x", {{.hang_up = true}});
    EXPECT_EQ(handles_of_three(CURLE_GOT_NOTHING), 3);
}

// Any failure counts, the one of the lowest number too.
TEST_F(ExchangeTest, HandleThatKnewNoProtocolServesNoOther) {
    camera.reply("/x", {{.status = 302, .headers = {"Location: ftp://127.0.0.1/x"}}});
    EXPECT_EQ(handles_of_three(CURLE_UNSUPPORTED_PROTOCOL), 3);
}

TEST_F(ExchangeTest, ReleasedItsHandleServesTheNext) {
    camera.reply("/x", "x");
    EXPECT_EQ(get("/x"), 0);
    const int before = intercept::transfers();
    Exchange first({url("/x")}, Sink{});
    EXPECT_TRUE(first.prepared());
    output_of([&] { EXPECT_EQ(first.perform(), 0); });
    first.release();
    EXPECT_FALSE(first.prepared());
    EXPECT_EQ(first.status(), 200) << "is known for as long as the exchange";
    EXPECT_EQ(get("/x"), 0);
    EXPECT_EQ(intercept::transfers(), before);
}

}  // namespace
