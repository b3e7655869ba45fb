#include "agent/utils/transfer.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdlib>

#include "agent_test.h"
#include "intercept.h"

namespace {

class NewTransfer : public AgentTest {
  protected:
    static std::string url(const std::string &path) {
        return std::string("http://") + FakeCamera::kHost + path;
    }
    static CURLcode perform(const Transfer &transfer) {
        CURLcode result = CURLE_OK;
        output_of([&] { result = curl_easy_perform(transfer.get()); });
        return result;
    }
    FakeCamera camera;
};

TEST_F(NewTransfer, GetsItsUrl) {
    camera.reply("/CGI/X", "x");
    EXPECT_EQ(perform(new_transfer({url("/CGI/X?a&b")})), CURLE_OK);
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/X?a&b -"}));
}

TEST_F(NewTransfer, FollowsRedirectsButNotForEver) {
    camera.reply("/1", {{.status = 302, .headers = {"Location: /2"}}});
    camera.reply("/2", "x");
    EXPECT_EQ(perform(new_transfer({url("/1")})), CURLE_OK);
    EXPECT_EQ(camera.seen(), (Texts{"GET /1 -", "GET /2 -"}));
    camera.forget();
    camera.reply("/round", {{.status = 302, .headers = {"Location: /round"}}});
    EXPECT_EQ(perform(new_transfer({url("/round")})), CURLE_TOO_MANY_REDIRECTS);
    EXPECT_EQ(camera.requests().size(), 31u);
}

TEST_F(NewTransfer, SpeaksHttpOnly) {
    for (const char *place : {"ftp://127.0.0.1:8080/x", "file:///etc/passwd", "gopher://127.0.0.1:8080/x"}) {
        camera.reply("/1", {{.status = 302, .headers = {std::string("Location: ") + place}}});
        EXPECT_EQ(perform(new_transfer({url("/1")})), CURLE_UNSUPPORTED_PROTOCOL) << place;
        EXPECT_EQ(perform(new_transfer({place})), CURLE_UNSUPPORTED_PROTOCOL) << place;
    }
    EXPECT_EQ(camera.requests().size(), 3u);
}

class NewTransferProxy : public NewTransfer, public testing::WithParamInterface<const char *> {};

TEST_P(NewTransferProxy, IsNotTakenFromTheEnvironment) {
    setenv(GetParam(), "http://127.0.0.1:1", 1);
    camera.reply("/x", "x");
    EXPECT_EQ(perform(new_transfer({url("/x")})), CURLE_OK);
    EXPECT_EQ(camera.seen(), (Texts{"GET /x -"}));
    unsetenv(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Variable, NewTransferProxy, testing::Values("http_proxy", "all_proxy", "ALL_PROXY"),
                         by_text);

curl_socket_t socket_of(const Transfer &transfer) {
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(transfer.get(), CURLINFO_ACTIVESOCKET, &socket);
    return socket;
}

int socket_option(const Transfer &transfer, int level, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(socket_of(transfer), level, option, &value, &size);
    return value;
}

TEST_F(NewTransfer, NoticesAVanishedHostByKeepAlive) {
    camera.reply("/x", "x");
    const Transfer transfer = new_transfer({.url = url("/x"), .traced = true});
    EXPECT_EQ(perform(transfer), CURLE_OK);
    EXPECT_EQ(socket_option(transfer, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(socket_option(transfer, IPPROTO_TCP, TCP_KEEPIDLE), 10);
    EXPECT_EQ(socket_option(transfer, IPPROTO_TCP, TCP_KEEPINTVL), 5);
}

TEST_F(NewTransfer, NoticesAVanishedHostWithBytesUnacknowledged) {
    camera.reply("/x", "x");
    const Transfer transfer = new_transfer({.url = url("/x"), .traced = true});
    EXPECT_EQ(perform(transfer), CURLE_OK);
    EXPECT_EQ(socket_option(transfer, IPPROTO_TCP, TCP_USER_TIMEOUT), 30'000);
}

TEST_F(NewTransfer, EndsWhenNothingComesForTenMinutes) {
    (void)new_transfer({url("/x")});
    EXPECT_EQ(intercept::transfer_number(CURLOPT_LOW_SPEED_LIMIT), 1);
    EXPECT_EQ(intercept::transfer_number(CURLOPT_LOW_SPEED_TIME), 600);
    EXPECT_EQ(intercept::transfer_number(CURLOPT_NOSIGNAL), 1);
}

TEST_F(NewTransfer, HasASocketThatNoChildInherits) {
    camera.reply("/x", "x");
    const Transfer transfer = new_transfer({.url = url("/x"), .traced = true});
    EXPECT_EQ(perform(transfer), CURLE_OK);
    EXPECT_EQ(fcntl(socket_of(transfer), F_GETFD), FD_CLOEXEC);
}

TEST_F(NewTransfer, IsNullWithoutAHandle) {
    intercept::refuse_next("curl_easy_init");
    EXPECT_EQ(new_transfer({url("/x")}), nullptr);
}

// --- The handle that serves several requests.

TEST_F(NewTransfer, SendsTheseBytesWhateverWasSentBefore) {
    const std::string query = "/CGI/CameraStatus?Battery&Space";
    const std::string get = "GET " + query +
                            " HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nAccept: */*\r\n"
                            "Cookie: Session=1234567\r\n\r\n";
    const std::string photo = "GET /photo HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nAccept: */*\r\n\r\n";
    const std::string post =
        "POST /CGI/CameraSetup HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nAccept: */*\r\n"
        "Cookie: Session=7\r\nContent-Length: 3\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n";
    camera.on_request([](const CameraRequest &) { return CameraReply{.body = "x"}; });
    for (int round = 0; round < 2; round++) {
        for (const Request &request :
             {Request{.url = url(query), .cookie = "Session=1234567"}, Request{.url = url("/photo")},
              Request{.url = url("/CGI/CameraSetup"), .cookie = "Session=7", .body = "a=b"},
              Request{.url = url(query), .cookie = "Session=1234567"}})
            EXPECT_EQ(perform(new_transfer(request)), CURLE_OK);
    }
    Texts heads;
    for (const CameraRequest &request : camera.requests()) heads.push_back(request.head);
    EXPECT_EQ(heads, (Texts{get, photo, post, get, get, photo, post, get}));
    EXPECT_EQ(intercept::transfers(), 1) << "the handles that were made";
}

TEST_F(NewTransfer, LeavesNoConnectionToTheNext) {
    camera.reply("/x", "x");
    const Transfer transfer = new_transfer({url("/x")});
    EXPECT_EQ(perform(transfer), CURLE_OK);
    EXPECT_EQ(socket_of(transfer), CURL_SOCKET_BAD);
}

TEST_F(NewTransfer, KeepsOneHandleHoweverManyWereNeededAtOnce) {
    for (const int made : {5, 9, 13}) {
        std::vector<Transfer> transfers;
        for (int i = 0; i < 5; i++) transfers.push_back(new_transfer({url("/x")}));
        EXPECT_EQ(intercept::transfers(), made);
        transfers.clear();
        EXPECT_EQ(intercept::blocks(), 1u) << "the handle that is kept";
    }
}

TEST_F(NewTransfer, LeavesNoLimitToTheNext) {
    (void)new_transfer({.url = url("/x"), .connect_seconds = 1, .whole_seconds = 1});
    EXPECT_EQ(intercept::transfer_number(CURLOPT_CONNECTTIMEOUT), 1);
    EXPECT_EQ(intercept::transfer_number(CURLOPT_TIMEOUT), 1);
    (void)new_transfer({url("/x")});
    EXPECT_EQ(intercept::transfer_number(CURLOPT_CONNECTTIMEOUT), 0);
    EXPECT_EQ(intercept::transfer_number(CURLOPT_TIMEOUT), 0);
}

// Not even for a second: a camera's name may move.
TEST_F(NewTransfer, LeavesNoAddressToTheNext) {
    (void)new_transfer({url("/x")});
    EXPECT_EQ(intercept::transfer_number(CURLOPT_DNS_CACHE_TIMEOUT), 0);
}

// What a handle was not told it would not be told for the next request either.
TEST_F(NewTransfer, IsNullWhereAHandleHasNoMemoryForAText) {
    const Request request = {.url = url("/x"), .cookie = "Session=1", .https_redirects_only = true};
    (void)new_transfer(request);
    int refused = 0;
    for (;; refused++) {
        intercept::refuse_next("curl_easy_setopt", refused);
        const Transfer transfer = new_transfer(request);
        if (intercept::still_refuses("curl_easy_setopt")) break;
        EXPECT_EQ(transfer, nullptr) << refused;
        intercept::reset();
        (void)new_transfer(request);
        EXPECT_EQ(intercept::transfers(), 1) << "a new handle after " << refused;
    }
    EXPECT_EQ(refused, 6);
}

struct OwnHandleRow {
    const char *name;
    const char *url;
    bool traced;
};

class OwnHandle : public NewTransfer, public testing::WithParamInterface<OwnHandleRow> {};

TEST_P(OwnHandle, IsMadeForEachRequest) {
    for (int i = 0; i < 3; i++) (void)new_transfer({.url = GetParam().url, .traced = GetParam().traced});
    EXPECT_EQ(intercept::transfers(), 3);
    for (int i = 0; i < 3; i++) (void)new_transfer({.url = url("/x")});
    EXPECT_EQ(intercept::transfers(), 4);
}

INSTANTIATE_TEST_SUITE_P(Of, OwnHandle,
                         testing::Values(OwnHandleRow{"ATracedRequest", "http://127.0.0.1:8080/x", true},
                                         OwnHandleRow{"ARequestByHttps", "https://127.0.0.1/x", false}),
                         by_name);

// --- The sinks.

size_t gather(char *piece, size_t size, size_t count, void *text) {
    static_cast<std::string *>(text)->append(piece, size * count);
    return size * count;
}

class TransferSinks : public NewTransfer {
  protected:
    // Performs a GET of "/x" whose body and header sinks take so many bytes.
    CURLcode get(size_t body_room, size_t header_room) {
        body.clear();
        header.clear();
        Sink body_sink{gather, &body, body_room}, header_sink{gather, &header, header_room};
        const Transfer transfer = new_transfer({url("/x")});
        set_body_sink(transfer, body_sink);
        set_header_sink(transfer, header_sink);
        return perform(transfer);
    }
    static constexpr char kHeader[] = "HTTP/1.1 200 Any\r\nX: yz\r\nContent-Length: 5\r\n\r\n";
    std::string body, header;
};

TEST_F(TransferSinks, GetBodyAndHeader) {
    camera.reply("/x", {{.body = "12345", .headers = {"X: yz"}}});
    EXPECT_EQ(get(5, sizeof kHeader - 1), CURLE_OK);
    EXPECT_EQ(body, "12345");
    EXPECT_EQ(header, kHeader);
}

TEST_F(TransferSinks, GetNothingOfABodyPieceBeyondTheirRoom) {
    camera.reply("/x", {{.chunks = {"123", "45"}}});
    EXPECT_EQ(get(4, kLargestReply), CURLE_WRITE_ERROR);
    EXPECT_EQ(body, "123");
    camera.reply("/x", {{.chunks = {"1234", "5"}}});
    EXPECT_EQ(get(4, kLargestReply), CURLE_WRITE_ERROR);
    EXPECT_EQ(body, "1234");
}

TEST_F(TransferSinks, GetNothingOfAHeaderLineBeyondTheirRoom) {
    camera.reply("/x", {{.body = "12345", .headers = {"X: yz"}}});
    EXPECT_EQ(get(kLargestReply, sizeof kHeader - 2), CURLE_WRITE_ERROR);
    EXPECT_EQ(header, "HTTP/1.1 200 Any\r\nX: yz\r\nContent-Length: 5\r\n");
    EXPECT_EQ(body, "");
}

TEST_F(TransferSinks, OfNoCallbackOnlyCount) {
    camera.reply("/x", "12345");
    for (const size_t room : {4, 5}) {
        Sink nowhere{nullptr, nullptr, room};
        const Transfer transfer = new_transfer({url("/x")});
        set_body_sink(transfer, nowhere);
        EXPECT_EQ(perform(transfer), room == 5 ? CURLE_OK : CURLE_WRITE_ERROR);
    }
}

TEST_F(TransferSinks, AreHarmlessOnNoTransfer) {
    Sink nowhere{nullptr, nullptr};
    set_body_sink(nullptr, nowhere);
    set_header_sink(nullptr, nowhere);
}

TEST(PieceText, EndsAtTheLengthOrTheFirstNul) {
    EXPECT_EQ(piece_text("abcdef", 3), "abc");
    EXPECT_EQ(piece_text("ab\0cd", 5), "ab");
    EXPECT_EQ(piece_text("abc", 0), "");
}

}  // namespace
