#include "z55cgi.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "agent/status_query.h"
#include "agent_test.h"
#include "intercept.h"
#include "leaks.h"

namespace {

constexpr char kBase[] = "http://127.0.0.1:8080";

// --- Every member's request and log, good and bad.

// What a caller sees: the result and what came with it.
struct Outcome {
    std::string result;  // "0", "-1", "nothing", or the body of a GET
    std::string reply = {};
};

std::string text_of(const Reply &body) {
    return body ? body.c_str() : "nothing";
}

Outcome call_curl_GET() {
    return {text_of(curl_GET("http://127.0.0.1:8080/CGI/X?a"))};
}

Outcome call_curl_POST() {
    const int result = curl_POST("http://127.0.0.1:8080/CGI/X", post_body("<A>1</A>"));
    return {std::to_string(result), response != nullptr ? response : "null"};
}

Outcome call_perform_curl() {
    return {text_of(perform_curl("http://127.0.0.1:8080/CGI/X", "777", "a&b"))};
}

Outcome call_mobileAudio() {
    std::string reply;
    const std::string audio("RIFF\0\1\xff\0", 8);
    const int result = mobileAudio("777", audio.data(), audio.size(), reply);
    return {std::to_string(result), reply};
}

Outcome call_getSingleCameraStatus() {
    std::string reply;
    const int result = getSingleCameraStatus("777", "Temp", reply);
    return {std::to_string(result), reply};
}

Outcome call_easyRemoteControl() {
    std::string reply;
    const int result = easyRemoteControl("777", "ZOOM", reply);
    return {std::to_string(result), reply};
}

Outcome call_z55_get_photo() {
    photo_buffer photo{};
    const int result = z55_get_photo(&photo, "/DCIM/1.JPG");
    const Outcome outcome{std::to_string(result), std::string(photo.data, photo.count)};
    std::free(photo.data);
    return outcome;
}

constexpr char kReply[] = "<A>1</A>";

struct Member {
    const char *name;
    Outcome (*call)();
    std::string request;
    bool verbose;        // libcurl tells its course on standard error
    bool status_counts;  // a status other than 200 is a failure
    const char *job;     // the queue's lines up to the transfer
    std::string before;  // the log before the job
    const char *piece;   // the log of the reply's one piece
    std::string after;   // the log after the job, whatever it gave
    std::string good, transfer_error, status_error;
    Outcome succeeded, failed;
    std::string no_reply = {};     // what comes with the result when nothing came
    const char *error_texts = {};  // on standard error after a transfer error
};

const char kDefaultJob[] = "curlmgr_perform_curl called\ndefault size: 1\ncurlmgr: performing curl, name = ";
const char kHighJob[] = "curlmgr_perform_curl called\nhigh size: 1\ncurlmgr: performing curl, name = ";
const char kPollPiece[] = "*** (poll) write_callback_func: <A>1</A> ***\n";

const std::vector<Member> kMembers = {
    {.name = "curl_GET",
     .call = call_curl_GET,
     .request = "GET /CGI/X?a Session=12345",
     .verbose = false,
     .status_counts = true,
     .job = kDefaultJob,
     .before = "curl_GET url = http://127.0.0.1:8080/CGI/X?a , cookie = Session=12345\n"
               ",---  platform/Z55/ak_model,1345 -----\n",
     .piece = kPollPiece,
     .after = "",
     .good = "",
     .transfer_error = "res !=CURLE_OK: platform/Z55/ak_model,line 1364\n"
                       "After res !=CURLE_OK: platform/Z55/ak_model,line 1366\n",
     .status_error = "  (platform/Z55/ak_model: 1370)\n",
     .succeeded = {kReply},
     .failed = {"nothing"}},
    {.name = "curl_POST",
     .call = call_curl_POST,
     .request =
         "POST /CGI/X Session=12345\n"
         "HTTP/1.1\nContent-Length: 8\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n<A>1</A>",
     .verbose = false,
     .status_counts = false,
     .job = kDefaultJob,
     .before = "curl_POST  url = http://127.0.0.1:8080/CGI/X , cookie = Session=12345,---  "
               "platform/Z55/ak_model,1304 -----\n",
     .piece = kPollPiece,
     .after = "",
     .good = "curl_POST ok , res = 0\n",
     .transfer_error = "res !=CURLE_OK: platform/Z55/ak_model,line 1321\n"
                       "After res !=CURLE_OK: platform/Z55/ak_model,line 1323\n"
                       "curl_POST failure res = 7\n",
     .status_error = "",
     .succeeded = {"0", kReply},
     .failed = {"7", "null"},
     .no_reply = "null"},
    {.name = "polling",
     .call = call_perform_curl,
     .request = "GET /CGI/X?a&b Session=777",
     .verbose = true,
     .status_counts = true,
     .job = kHighJob,
     .before = "(poll) perform_curl url = http://127.0.0.1:8080/CGI/X?a&b\n"
               "*** (poll) curl_perform starts ***\n",
     .piece = kPollPiece,
     .after = "*** (poll) curl_perform ends ***\n",
     .good = "",
     .transfer_error = "After res !=CURLE_OK: platform/Z55/agent/polling,line 126\n",
     .status_error = "  (platform/Z55/agent/polling: 132)\n",
     .succeeded = {kReply},
     .failed = {"nothing"},
     .error_texts = "curl_easy_perform() failed: Couldn't connect to server\n"},
    {.name = "mobileAudio",
     .call = call_mobileAudio,
     .request = std::string("POST /CGI/MobileAudio Session=777\nRIFF\0\1\xff\0", 42),
     .verbose = false,
     .status_counts = true,
     .job = kDefaultJob,
     .before = "\n***(easy remote control) curl_perform starts ***\n",
     .piece = "",
     .after = "\n***(easy remote control) curl_perform ends ***\n",
     .good = "<A>1</A>\n",
     .transfer_error = "res !=CURLE_OK: platform/Z55/z55cgi,line 300\n"
                       "After res !=CURLE_OK: platform/Z55/z55cgi,line 301\n",
     .status_error = "  (platform/Z55/z55cgi: 305)\n",
     .succeeded = {"0", kReply},
     .failed = {"-1", kReply}},
    {.name = "getSingleCameraStatus",
     .call = call_getSingleCameraStatus,
     .request = "GET /CGI/CameraStatus?Temp Session=777",
     .verbose = false,
     .status_counts = true,
     .job = kDefaultJob,
     .before = "\n***(get camera status) curl_perform starts ***\n",
     .piece = "",
     .after = "\n***(get camera status) curl_perform ends ***\n"
              "\n***(After clean) curl_perform ends ***\n",
     .good = "CURL: PHOTO_TO_MOBILE: 0\n",
     .transfer_error = "res !=CURLE_OK: platform/Z55/z55cgi,line 227\n"
                       "After res !=CURLE_OK: platform/Z55/z55cgi,line 229\n",
     .status_error = "  (platform/Z55/z55cgi: 234)\n",
     .succeeded = {"0", kReply},
     .failed = {"-1", kReply}},
    {.name = "easyRemoteControl",
     .call = call_easyRemoteControl,
     .request = "POST /CGI/RemoteControl Session=777\n"
                "\r\n\r\n<RemoteControl><Action>ZOOM</Action></RemoteControl>",
     .verbose = false,
     .status_counts = true,
     .job = kDefaultJob,
     .before = "\n***(easy remote control) curl_perform starts ***\n",
     .piece = "",
     .after = "",
     .good = "easy remote: platform/Z55/z55cgi,line 86 \n<A>1</A>\n",
     .transfer_error = "res !=CURLE_OK, res = 7. (platform/Z55/z55cgi,line 75\n)"
                       "After res !=CURLE_OK: platform/Z55/z55cgi,line 77\n",
     .status_error = "  (platform/Z55/z55cgi: 82)\n",
     .succeeded = {"0", kReply},
     .failed = {"-1", kReply}},
    {.name = "z55_get_photo",
     .call = call_z55_get_photo,
     .request = "GET /DCIM/1.JPG -",
     .verbose = false,
     .status_counts = true,
     .job = kDefaultJob,
     .before = "\n***(photo to mobile) curl_perform starts ***\n",
     .piece = "realloc memory, size: 8\n",
     .after = "\n***(photo to mobile) curl_perform ends ***\n",
     .good = "CURL: PHOTO_TO_MOBILE: 0\n",
     .transfer_error = "res !=CURLE_OK: platform/Z55/z55cgi,line 167\n"
                       "After res !=CURLE_OK: platform/Z55/z55cgi,line 169\n",
     .status_error = "  (platform/Z55/z55cgi: 174)\n",
     .succeeded = {"0", kReply},
     .failed = {"-1", kReply}},
};

class CgiMember : public CameraTest, public testing::WithParamInterface<Member> {
  protected:
    // Makes the call and checks all that it leaves behind.
    void expect(const std::string &log, const Outcome &wanted) {
        Outcome outcome;
        std::string out;
        errors = errors_of([&] { out = output_of([&] { outcome = GetParam().call(); }); });
        EXPECT_EQ(without_statistics(out), log);
        EXPECT_EQ(outcome.result, wanted.result);
        EXPECT_EQ(outcome.reply, wanted.reply);
    }
    std::string up_to_the_transfer() const {
        const Member &member = GetParam();
        return member.before + member.job + member.name + "... \n";
    }
    // The log line of the camera's HTTP status.
    std::string status_line(int status) const {
        return GetParam().status_counts ? "res: " + std::to_string(status) + "\n" : "";
    }
    std::string errors;
};

TEST_P(CgiMember, Succeeds) {
    const Member &member = GetParam();
    camera.on_request([](const CameraRequest &) { return CameraReply{.body = kReply}; });
    expect(up_to_the_transfer() + status_line(200) + member.piece + member.after + member.good,
           member.succeeded);
    EXPECT_EQ(camera.seen(), (Texts{member.request}));
    EXPECT_EQ(!errors.empty(), member.verbose);
    EXPECT_EQ(res, 0);
}

TEST_P(CgiMember, FollowsARedirectAndTheLastStatusWins) {
    const Member &member = GetParam();
    camera.on_request([](const CameraRequest &request) {
        if (request.target == "/elsewhere") return CameraReply{.body = kReply};
        return CameraReply{.status = 302, .headers = {"Location: /elsewhere"}};
    });
    expect(up_to_the_transfer() + status_line(302) + status_line(200) + member.piece + member.after +
               member.good,
           member.succeeded);
    EXPECT_EQ(camera.requests().size(), 2u);
}

TEST_P(CgiMember, TakesAStatusOtherThan200ForAFailure) {
    const Member &member = GetParam();
    camera.on_request([](const CameraRequest &) { return CameraReply{.body = kReply, .status = 500}; });
    if (!member.status_counts) {
        return expect(up_to_the_transfer() + member.piece + member.after + member.good, member.succeeded);
    }
    expect(up_to_the_transfer() + "res: 500\n" + member.piece + member.after +
               "status != 200, status code = 500" + member.status_error,
           member.failed);
}

TEST_P(CgiMember, TakesAnHttp10AnswerForAFailure) {
    const Member &member = GetParam();
    camera.on_request(
        [](const CameraRequest &) { return CameraReply{.body = kReply, .version = "HTTP/1.0"}; });
    if (!member.status_counts) {
        return expect(up_to_the_transfer() + member.piece + member.after + member.good, member.succeeded);
    }
    expect(up_to_the_transfer() + member.piece + member.after + "status != 200, status code = 0" +
               member.status_error,
           member.failed);
}

TEST_P(CgiMember, ReportsATransferError) {
    const Member &member = GetParam();
    camera.go_away();
    expect(up_to_the_transfer() + member.after + member.transfer_error,
           {member.failed.result, member.no_reply});
    EXPECT_EQ(!errors.empty(), member.error_texts != nullptr);
    if (member.error_texts != nullptr) {
        EXPECT_NE(errors.find(member.error_texts), std::string::npos);
    }
}

TEST_P(CgiMember, EndsAReplyThatIsTooLong) {
    const Member &member = GetParam();
    const bool is_photo = std::string(member.name) == "z55_get_photo";
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    if (is_photo) GTEST_SKIP() << "a sanitizer copies the photo for each of 2000 pieces";
#endif
    const size_t limit = (is_photo ? 32 : 4) * 1024 * 1024;
    std::string log;
    const auto result_of_reply = [&](size_t length) {
        camera.on_request(
            [=](const CameraRequest &) { return CameraReply{.body = std::string(length, '#')}; });
        Outcome outcome;
        errors_of([&] { log = output_of([&] { outcome = GetParam().call(); }); });
        return outcome.result;
    };
    const std::string taken = result_of_reply(limit);
    EXPECT_NE(taken, member.failed.result);
    EXPECT_NE(taken, std::to_string(CURLE_WRITE_ERROR));
    const std::string refused = result_of_reply(limit + 1);
    EXPECT_EQ(refused, std::string(member.name) == "curl_POST" ? std::to_string(CURLE_WRITE_ERROR)
                                                               : member.failed.result);
    EXPECT_GE(limit, static_cast<size_t>(std::count(log.begin(), log.end(), '#')));
}

TEST_P(CgiMember, LeavesNothingBehind) {
    camera.on_request([](const CameraRequest &) { return CameraReply{.body = kReply}; });
    expect_nothing_left([] { errors_of([] { output_of([] { GetParam().call(); }); }); });
}

INSTANTIATE_TEST_SUITE_P(Of, CgiMember, testing::ValuesIn(kMembers), by_name);

// --- What the members do not share.

class Cgi : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        camera.on_request(
            [this](const CameraRequest &) { return CameraReply{.body = body, .chunks = chunks}; });
    }
    static std::string log_of(const std::function<void()> &call) {
        std::string log;
        errors_of([&] { log = output_of(call); });
        return without_statistics(log);
    }
    std::string body = "<A>1</A>";
    Texts chunks;
};

TEST_F(Cgi, TheGenericPostIsARequestOfLibcurlsOwnWithThePseudoHeaderInItsBody) {
    log_of([] { call_curl_POST(); });
    EXPECT_EQ(camera.requests().at(0).head,
              "POST /CGI/X HTTP/1.1\r\n"
              "Host: 127.0.0.1:8080\r\n"
              "Accept: */*\r\n"
              "Cookie: Session=12345\r\n"
              "Content-Length: 87\r\n"
              "Content-Type: application/x-www-form-urlencoded\r\n\r\n");
}

TEST_F(Cgi, TheGenericRequestsLeaveCopiesOfWhatTheySent) {
    log_of([] { (void)curl_POST("http://127.0.0.1:8080/CGI/X", post_body("<A>1</A>")); });
    EXPECT_STREQ(cookie, "Session=12345");
    EXPECT_EQ(post_fields, post_body("<A>1</A>"));
    EXPECT_STREQ(response, "<A>1</A>");
    EXPECT_EQ(res, 0);

    set_session_key("6");
    body = "second";
    log_of([] { (void)curl_GET("http://127.0.0.1:8080/CGI/X"); });
    EXPECT_STREQ(cookie, "Session=6");
    EXPECT_STREQ(response, "<A>1</A>") << "a GET leaves the last POST's reply";

    log_of([] { (void)curl_POST("http://127.0.0.1:8080/CGI/X", "b"); });
    EXPECT_STREQ(response, "second");
    EXPECT_STREQ(post_fields, "b");

    camera.go_away();
    log_of([] { (void)curl_GET("http://127.0.0.1:8080/CGI/X"); });
    EXPECT_EQ(res, 7);
    res = 0;
    log_of([] { EXPECT_EQ(curl_POST("http://127.0.0.1:8080/CGI/X", "c"), 7); });
    EXPECT_EQ(res, 7);
    EXPECT_EQ(response, nullptr);
}

TEST_F(Cgi, WithoutASessionKeyTheCookieIsEmpty) {
    set_session_key("");
    const std::string log = log_of([] {
        (void)curl_GET("http://127.0.0.1:8080/CGI/X");
        (void)curl_POST("http://127.0.0.1:8080/CGI/X", "b");
        (void)perform_curl("http://127.0.0.1:8080/CGI/X", "", "a");
    });
    EXPECT_EQ(camera.seen(),
              (Texts{"GET /CGI/X Session=", "POST /CGI/X Session=\nb", "GET /CGI/X?a Session="}));
    EXPECT_EQ(log.find("curl_GET url = http://127.0.0.1:8080/CGI/X , cookie = Session=\n"), 0u);
}

TEST_F(Cgi, AnOverlongKeyOfTheHookIsCutToTheCookie) {
    get_session_key = [] { return strdup(std::string(100, '1').c_str()); };
    log_of([] { (void)curl_GET("http://127.0.0.1:8080/CGI/X"); });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/X Session=" + std::string(41, '1')}));
    EXPECT_EQ(cookie, "Session=" + std::string(41, '1'));
}

TEST_F(Cgi, OnlyTheLastPieceOfABodyIsKept) {
    chunks = {"<A>", "1", "</A>"};
    const std::string log = log_of([] {
        EXPECT_EQ(text_of(curl_GET("http://127.0.0.1:8080/CGI/X")), "</A>");
        EXPECT_EQ(text_of(perform_curl("http://127.0.0.1:8080/CGI/X", "7", "a")), "</A>");
        std::string reply;
        (void)easyRemoteControl("7", "ZOOM", reply);
        EXPECT_EQ(reply, "</A>");
        (void)curl_POST("http://127.0.0.1:8080/CGI/X", "b");
        EXPECT_STREQ(response, "</A>");
    });
    EXPECT_NE(log.find("*** (poll) write_callback_func: <A> ***\n"
                       "*** (poll) write_callback_func: 1 ***\n"
                       "*** (poll) write_callback_func: </A> ***\n"),
              std::string::npos);
}

TEST_F(Cgi, ThePostsReplyBeforeTheLastStaysReadable) {
    const auto post = [&](const char *reply) {
        body = reply;
        log_of([] { (void)curl_POST("http://127.0.0.1:8080/CGI/X", "b"); });
        return response;
    };
    const char *first = post("the first reply");
    const char *second = post("the second reply");
    EXPECT_STREQ(first, "the first reply");
    post("the third reply");
    EXPECT_STREQ(second, "the second reply");
    camera.go_away();
    const char *third = response;
    EXPECT_EQ(post("none"), nullptr);
    EXPECT_STREQ(third, "the third reply");
}

TEST_F(Cgi, AReplyWithoutMemoryIsATransferError) {
    const std::string log = log_of([] {
        intercept::refuse_next("realloc");
        EXPECT_FALSE(curl_GET("http://127.0.0.1:8080/CGI/X"));
        EXPECT_EQ(res, CURLE_WRITE_ERROR);
        intercept::refuse_next("realloc");
        EXPECT_FALSE(perform_curl("http://127.0.0.1:8080/CGI/X", "7", "a"));
        intercept::refuse_next("realloc");
        EXPECT_EQ(curl_POST("http://127.0.0.1:8080/CGI/X", "b"), CURLE_WRITE_ERROR);
        EXPECT_EQ(response, nullptr);
    });
    EXPECT_NE(log.find("res !=CURLE_OK: platform/Z55/ak_model,line 1364\n"), std::string::npos);
    EXPECT_EQ(log.find("write_callback_func"), std::string::npos);
}

TEST_F(Cgi, AReplyWithoutBodyIsNothing) {
    body = "";
    log_of([] {
        EXPECT_FALSE(curl_GET("http://127.0.0.1:8080/CGI/X"));
        EXPECT_FALSE(perform_curl("http://127.0.0.1:8080/CGI/X", "7", "a"));
    });
}

TEST_F(Cgi, ResultsAreCutTo128Bytes) {
    body = std::string(150, 'a') + std::string(150, 'b');
    std::string reply;
    const std::string log = log_of([&] { (void)easyRemoteControl("7", "ZOOM", reply); });
    EXPECT_EQ(reply, std::string(128, 'a'));
    EXPECT_NE(log.find("line 86 \n" + std::string(128, 'a') + "\n"), std::string::npos);
    log_of([&] { (void)getSingleCameraStatus("7", "Temp", reply); });
    EXPECT_EQ(reply, std::string(128, 'a'));
    log_of([&] { (void)mobileAudio("7", "x", 1, reply); });
    EXPECT_EQ(reply, std::string(128, 'a'));
}

TEST_F(Cgi, OverlongAddressesAndActionsAreCut) {
    const std::string text(10'000, 'x');
    std::string reply;
    photo_buffer photo{};
    log_of([&] {
        (void)perform_curl(std::string(kBase) + "/CGI/X", "7", text);
        (void)getSingleCameraStatus("7", text.c_str(), reply);
        (void)easyRemoteControl("7", text.c_str(), reply);
        (void)z55_get_photo(&photo, ("/" + text).c_str());
    });
    std::free(photo.data);
    const auto url_of_199 = [](const std::string &start) {
        return start + std::string(199 - std::strlen(kBase) - start.size(), 'x');
    };
    EXPECT_EQ(camera.seen(), (Texts{"GET " + url_of_199("/CGI/X?") + " Session=7",
                                    "GET " + url_of_199("/CGI/CameraStatus?") + " Session=7",
                                    "POST /CGI/RemoteControl Session=7\n\r\n\r\n<RemoteControl><Action>" +
                                        std::string(122, 'x'),
                                    "GET " + url_of_199("/") + " -"}));
}

TEST_F(Cgi, WithoutAHostNothingIsAsked) {
    remove_conf();
    std::string reply = "old";
    photo_buffer photo{};
    const char *text = "read hostIP in login() failed.\n";
    EXPECT_EQ(log_of([&] { EXPECT_EQ(mobileAudio("c", "x", 1, reply), -1); }), text);
    EXPECT_EQ(log_of([&] { EXPECT_EQ(getSingleCameraStatus("c", "Temp", reply), -1); }), text);
    EXPECT_EQ(log_of([&] { EXPECT_EQ(easyRemoteControl("c", "ZOOM", reply), -1); }), text);
    EXPECT_EQ(log_of([&] { EXPECT_EQ(z55_get_photo(&photo, "/x"), -1); }), text);
    EXPECT_EQ(photo.count, 0u);
    EXPECT_STREQ(photo.data, "");
    std::free(photo.data);
    EXPECT_TRUE(camera.requests().empty());
}

TEST_F(Cgi, TheHostIsReadAtEachCall) {
    std::string reply;
    log_of([&] { EXPECT_EQ(easyRemoteControl("c", "ZOOM", reply), 0); });
    set_conf("hostIP", "127.0.0.1:8081");
    log_of([&] { EXPECT_EQ(easyRemoteControl("c", "ZOOM", reply), -1); });
    set_conf("hostIP", FakeCamera::kHost);
    log_of([&] { EXPECT_EQ(easyRemoteControl("c", "ZOOM", reply), 0); });
}

// The system may have refused the configuration when it was to be loaded, once in the agent's life.
TEST_F(Cgi, AHostThatCouldNotBeLoadedIsReadAtEachCall) {
    ASSERT_STREQ(hostIP, "");
    log_of([] {
        (void)get_status("Temp");
        (void)get_setting("A");
        EXPECT_EQ(post_setup("<A/>"), 0);
        EXPECT_EQ(post_remote_control("<B/>"), 0);
    });
    std::vector<std::string> targets;
    for (const CameraRequest &request : camera.requests()) targets.push_back(request.target);
    EXPECT_EQ(targets, (std::vector<std::string>{"/CGI/CameraStatus?Temp", "/CGI/CameraSetting?A",
                                                 "/CGI/CameraSetup", "/CGI/RemoteControl"}));
    EXPECT_STREQ(hostIP, "") << "other threads read it";
    std::string("127.0.0.1:8081").copy(hostIP, sizeof hostIP - 1);
    log_of([] { EXPECT_NE(post_setup("<A/>"), 0) << "what was loaded holds"; });
}

TEST_F(Cgi, MobileAudioWithoutAHandleSendsNothingAndSucceeds) {
    intercept::refuse_next("curl_easy_init");
    std::string reply = "old";
    const std::string log = log_of([&] { EXPECT_EQ(mobileAudio("c", "x", 1, reply), 0); });
    EXPECT_EQ(log,
              "\n***(easy remote control) curl_perform starts ***\n"
              "\n***(easy remote control) curl_perform ends ***\n"
              "not enough memory for a request\n"
              "\n");
    EXPECT_EQ(reply, "");
    EXPECT_TRUE(camera.requests().empty());
}

TEST_F(Cgi, AHandleWhoseTransferFailedServesNoOther) {
    const auto get = [](const char *url) { log_of([=] { (void)curl_GET(url); }); };
    get("http://127.0.0.1:8080/CGI/X");
    get("http://127.0.0.1:1/");
    const int before = intercept::transfers();
    get("http://127.0.0.1:8080/CGI/X");
    EXPECT_EQ(intercept::transfers(), before + 1);
}

TEST_F(Cgi, TheOthersFailWithoutAHandle) {
    std::string reply;
    photo_buffer photo{};
    const auto without_handle = [](const std::function<void()> &call) {
        log_of([&] {
            intercept::refuse_next("curl_easy_init");
            call();
        });
    };
    without_handle([] { EXPECT_FALSE(curl_GET("http://127.0.0.1:8080/CGI/X")); });
    EXPECT_EQ(res, 2);
    without_handle([] { EXPECT_EQ(curl_POST("http://127.0.0.1:8080/CGI/X", "b"), 2); });
    without_handle([] { EXPECT_FALSE(perform_curl("http://127.0.0.1:8080/CGI/X", "7", "a")); });
    without_handle([&] { EXPECT_EQ(getSingleCameraStatus("c", "Temp", reply), -1); });
    without_handle([&] { EXPECT_EQ(easyRemoteControl("c", "ZOOM", reply), -1); });
    without_handle([&] { EXPECT_EQ(z55_get_photo(&photo, "/x"), -1); });
    std::free(photo.data);
    EXPECT_TRUE(camera.requests().empty());
}

TEST_F(Cgi, APhotoOfSeveralPiecesIsWhole) {
    std::string picture;
    for (int i = 0; i < 5; i++) chunks.push_back(std::string(3000 + i, static_cast<char>(i)));
    for (const std::string &chunk : chunks) picture += chunk;
    photo_buffer photo{};
    const std::string log = log_of([&] { EXPECT_EQ(z55_get_photo(&photo, "/x"), 0); });
    ASSERT_EQ(photo.count, picture.size());
    EXPECT_EQ(picture, std::string(photo.data, photo.count));
    EXPECT_EQ(photo.data[photo.count], '\0');
    EXPECT_NE(log.find("realloc memory, size: 3000\nrealloc memory, size: 3001\n"), std::string::npos);
    std::free(photo.data);
}

TEST_F(Cgi, WhatIsRememberedIsCutToItsBuffer) {
    remember_cookie(std::string(10'000, 'c'));
    remember_post_fields(std::string(10'000, 'p'));
    EXPECT_EQ(cookie, std::string(49, 'c'));
    EXPECT_EQ(post_fields, std::string(349, 'p'));
}

TEST_F(Cgi, UnderSixteenThreadsTheBytesThatACallerFormattedAreTheBytesSent) {
    camera.on_request([](const CameraRequest &request) { return CameraReply{.body = request.body}; });
    constexpr int kThreads = 16, kEach = 5;
    log_of([] {
        std::vector<std::thread> callers;
        for (int i = 0; i < kThreads; i++) {
            callers.emplace_back([i] {
                for (int j = 0; j < kEach; j++) {
                    const std::string text = std::string(10 * i, 'x') + std::to_string(i * 1000 + j);
                    EXPECT_EQ(curl_POST("http://127.0.0.1:8080/" + text, post_body(text)), 0);
                }
            });
        }
        for (std::thread &caller : callers) caller.join();
    });
    ASSERT_EQ(static_cast<int>(camera.requests().size()), kThreads * kEach);
    for (const CameraRequest &request : camera.requests()) {
        EXPECT_EQ(request.body, post_body(request.target.substr(1)));
        EXPECT_EQ(request.cookie, "Session=12345");
    }
    EXPECT_EQ(camera.most_at_once(), 1);
}

// --- The document's body.

TEST(PostBody, HasThePseudoHeaderAnEmptyLineAndTheDocument) {
    EXPECT_EQ(post_body("<RemoteControl><Action>FORMATSD</Action></RemoteControl>"),
              "HTTP/1.1\nContent-Length: 56\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n"
              "<RemoteControl><Action>FORMATSD</Action></RemoteControl>");
    EXPECT_EQ(post_body("abc", 7),
              "HTTP/1.1\nContent-Length: 7\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\nabc");
    EXPECT_EQ(post_body(""),
              "HTTP/1.1\nContent-Length: 0\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n");
}

TEST(PostBody, IsCutTo349Characters) {
    const std::string body = post_body(std::string(10'000, 'x'));
    EXPECT_EQ(body.size(), 349u);
    EXPECT_EQ(body.find("HTTP/1.1\nContent-Length: 10000\n"), 0u);
}

// --- The sinks.

TEST(ResultSink, KeepsTheFirst128BytesUnterminated) {
    char buffer[130];
    std::memset(buffer, '#', sizeof buffer);
    std::string piece(300, 'x');
    EXPECT_EQ(result_write_callback(piece.data(), 3, 100, buffer), 300u);
    EXPECT_EQ(std::string(buffer, 130), std::string(128, 'x') + "##");
}

TEST(ResultSink, EveryPieceOverwritesTheOneBefore) {
    char buffer[130];
    std::memset(buffer, '#', sizeof buffer);
    std::string first = "a longer piece", second = "short";
    EXPECT_EQ(result_write_callback(first.data(), 1, 14, buffer), 14u);
    EXPECT_EQ(std::string(buffer, 130), "a longer piece" + std::string(114, '\0') + "##");
    EXPECT_EQ(result_write_callback(second.data(), 1, 5, buffer), 5u);
    EXPECT_EQ(std::string(buffer, 130), "short" + std::string(123, '\0') + "##");
}

TEST(ResultSink, CopiesUpToANul) {
    char buffer[130] = {};
    std::string piece("ab\0cd", 5);
    EXPECT_EQ(result_write_callback(piece.data(), 1, 5, buffer), 5u);
    EXPECT_EQ(std::string(buffer, 128), "ab" + std::string(126, '\0'));
}

TEST(PollSink, KeepsACopyOfTheLastPiece) {
    Reply body;
    std::string piece = "abcdef";
    EXPECT_EQ(output_of([&] { EXPECT_EQ(poll_write_callback(piece.data(), 2, 2, &body), 4u); }),
              "*** (poll) write_callback_func: abcd ***\n");
    EXPECT_EQ(*body, "abcd");
    output_of([&] { EXPECT_EQ(poll_write_callback(piece.data() + 5, 1, 1, &body), 1u); });
    EXPECT_EQ(*body, "f");
}

TEST(PollSink, EndsTheTransferWithoutMemory) {
    Reply body;
    std::string piece = "abcdef";
    intercept::refuse_next("realloc");
    EXPECT_EQ(output_of([&] { EXPECT_EQ(poll_write_callback(piece.data(), 2, 2, &body), 0u); }), "");
    EXPECT_FALSE(body);
}

TEST(PhotoSink, GrowsAndStaysTerminated) {
    photo_buffer photo{0, static_cast<char *>(std::calloc(1, 1))};
    std::string piece("\xff\xd8\0x", 4);
    EXPECT_EQ(output_of([&] {
                  EXPECT_EQ(photo_write_callback(piece.data(), 2, 2, &photo), 4u);
                  EXPECT_EQ(photo_write_callback(piece.data(), 1, 2, &photo), 2u);
              }),
              "realloc memory, size: 4\nrealloc memory, size: 2\n");
    EXPECT_EQ(photo.count, 6u);
    EXPECT_EQ(std::string(photo.data, 7), std::string("\xff\xd8\0x\xff\xd8", 6) + '\0');
    std::free(photo.data);
}

TEST(PhotoSink, LeavesNothingBehindWithoutMemory) {
    expect_nothing_left([] {
        photo_buffer photo{0, static_cast<char *>(std::calloc(1, 1))};
        std::string piece = "x";
        intercept::refuse_next("realloc");
        output_of([&] { EXPECT_EQ(photo_write_callback(piece.data(), 1, 1, &photo), 0u); });
    });
}

TEST(PhotoSink, AbortsTheTransferWithoutMemory) {
    photo_buffer photo{0, static_cast<char *>(std::calloc(1, 1))};
    std::string piece = "x";
    intercept::refuse_next("realloc");
    EXPECT_EQ(output_of([&] { EXPECT_EQ(photo_write_callback(piece.data(), 1, 1, &photo), 0u); }),
              "realloc memory, size: 1\nnot enough memory (realloc returned NULL)\n");
    EXPECT_EQ(photo.data, nullptr);
    EXPECT_EQ(photo.count, 0u);
}

TEST(PhotoSink, TakesNoMoreThanItsCountCanTell) {
    for (const uint32_t room : {1U, 2U}) {
        photo_buffer photo{UINT32_MAX - room, static_cast<char *>(std::calloc(1, 1))};
        std::string piece = "xy";
        output_of([&] { EXPECT_EQ(photo_write_callback(piece.data(), 1, 2, &photo), 0u); });
        EXPECT_EQ(photo.data, nullptr);
    }
}

struct StatusRow {
    const char *name, *line;
    int status;       // -5: left alone
    const char *log;  // "" when left alone
};

class StatusSniffer : public testing::TestWithParam<StatusRow> {};

TEST_P(StatusSniffer, Stores) {
    const StatusRow &row = GetParam();
    std::string line = row.line;
    int status = -5;
    EXPECT_EQ(output_of([&] {
                  EXPECT_EQ(http_status_code_checker(line.data(), 1, line.size(), &status), line.size());
              }),
              row.log);
    EXPECT_EQ(status, row.status);
}

INSTANTIATE_TEST_SUITE_P(
    Line, StatusSniffer,
    testing::Values(
        StatusRow{.name = "Good", .line = "HTTP/1.1 200 OK\r\n", .status = 200, .log = "res: 200\n"},
        StatusRow{
            .name = "NotFound", .line = "HTTP/1.1 404 Not Found\r\n", .status = 404, .log = "res: 404\n"},
        StatusRow{.name = "ThreeCharactersOnly", .line = "HTTP/1.1 2001", .status = 200, .log = "res: 200\n"},
        StatusRow{
            .name = "AnywhereInTheLine", .line = "Via: HTTP/1.1 301", .status = 301, .log = "res: 301\n"},
        StatusRow{.name = "NineCharactersOn", .line = "HTTP/1.1  20", .status = 20, .log = "res: 20\n"},
        StatusRow{.name = "NoNumber", .line = "HTTP/1.1 OK", .status = 0, .log = "res: 0\n"},
        StatusRow{.name = "CutShort", .line = "HTTP/1.1", .status = 0, .log = "res: 0\n"},
        StatusRow{.name = "OldVersion", .line = "HTTP/1.0 200 OK\r\n", .status = -5, .log = ""},
        StatusRow{.name = "OtherHeader", .line = "Content-Length: 3\r\n", .status = -5, .log = ""},
        StatusRow{.name = "Empty", .line = "", .status = -5, .log = ""}),
    by_name);

TEST(StatusSnifferLimits, ReadsNoFurtherThanItsLine) {
    std::string line = "HTTP/1.1 404";
    int status = -5;
    output_of([&] { EXPECT_EQ(http_status_code_checker(line.data(), 2, 5, &status), 10u); });
    EXPECT_EQ(status, 4);
    EXPECT_EQ(output_of([&] { EXPECT_EQ(http_status_code_checker(line.data(), 1, 12, nullptr), 12u); }), "");
}

}  // namespace
