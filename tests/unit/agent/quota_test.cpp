// The cloud-storage watch: tokens, the request, the reply's numbers, the alarm with its latch, every failure.
#include "agent/quota.h"

#include <curl/curl.h>

#include "agent_test.h"
#include "exports.h"
#include "intercept.h"
#include "storage_service.h"
#include "vanishing_conf.h"

namespace {

constexpr char kAlarm[] =
    "(poll) low nimb space event detected\n"
    "(poll) SendAlarmData!! index:1, name:alarm, status: 12 \n(poll) end SendAlarmData\n";
constexpr char kRecovered[] = "nimb space alarm end , recover flag\n";
constexpr char kHeld[] = "nimb alarm had send , don't do something\n";

std::string reply_of(const std::string &body, const std::string &status = "200 OK",
                     const std::string &headers = "") {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

std::string quota_reply(const std::string &total, const std::string &used) {
    return reply_of("{\"quota\":" + total + ",\"used\":" + used + ",\"request_id\":9}");
}

std::string quota_log(const std::string &total, const std::string &used) {
    return "(nimbo_polling) CURL response: total = " + total + ", used = " + used + ".\n";
}

std::string check() {
    return output_of(check_quota);
}

class Quota : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        write_conf({{"NIMB_ARMED", "1"}, {"NIMB_LOW", "20"}, {"NIMB_HOST", StorageService::kHost}});
        fake_vendor::token("tok123");
    }
    // Clears the latch, which is the process's own and may be set where several tests share one.
    static void recover() {
        StorageService storage({quota_reply("1000", "0")});
        check();
    }
    static std::vector<int> alarms() {
        std::vector<int> statuses;
        for (const alarm_record &record : fake_vendor::alarms()) statuses.push_back(record.status);
        return statuses;
    }
};

// --- Without a service.

struct ArmedRow {
    const char *name;
    const char *text;
    bool armed;
};

class QuotaArmed : public Quota, public testing::WithParamInterface<ArmedRow> {};

TEST_P(QuotaArmed, IsExactlyOne) {
    set_conf("NIMB_ARMED", GetParam().text);
    fake_vendor::result("readTokenFromFile", 1);
    fake_vendor::result("soapGetToken", 1);
    check();
    EXPECT_EQ(fake_vendor::calls(),
              GetParam().armed ? (Texts{"readTokenFromFile", "soapGetToken"}) : Texts{});
}

INSTANTIATE_TEST_SUITE_P(Rows, QuotaArmed,
                         testing::Values(ArmedRow{.name = "one", .text = "1", .armed = true},
                                         ArmedRow{.name = "zero", .text = "0", .armed = false},
                                         ArmedRow{.name = "empty", .text = "", .armed = false},
                                         ArmedRow{.name = "two", .text = "2", .armed = false},
                                         ArmedRow{.name = "ten", .text = "10", .armed = false}),
                         by_name);

TEST_F(Quota, WithoutConfigurationIsNotChecked) {
    remove_conf();
    EXPECT_EQ(check(), "");
    EXPECT_EQ(fake_vendor::calls(), Texts{});
}

TEST_F(Quota, WithoutATokenFromTheServerGivesUp) {
    fake_vendor::result("readTokenFromFile", 1);
    fake_vendor::result("soapGetToken", -1);
    EXPECT_EQ(check(), "(nimbo_polling) Cannot get token from Server by SOAP.\n");
    EXPECT_EQ(fake_vendor::calls(), (Texts{"readTokenFromFile", "soapGetToken"}));
}

TEST_F(Quota, WithoutATokenAfterAllGivesUp) {
    fake_vendor::result("readTokenFromFile", 1);
    EXPECT_EQ(check(), "(nimbo_polling) Cannot get token!\n");
    EXPECT_EQ(fake_vendor::calls(), (Texts{"readTokenFromFile", "soapGetToken", "readTokenFromFile"}));
}

TEST_F(Quota, WithoutAServiceGivesUp) {
    set_conf("NIMB_HOST", "127.0.0.1:1");
    EXPECT_EQ(check(), std::string("(nimbo_polling) CURL failed: ") +
                           curl_easy_strerror(CURLE_COULDNT_CONNECT) + "\n");
    EXPECT_EQ(alarms(), std::vector<int>{});
    // Past the queue, so bounded by itself: in seconds.
    EXPECT_EQ(intercept::transfer_number(CURLOPT_CONNECTTIMEOUT), 2);
    EXPECT_EQ(intercept::transfer_number(CURLOPT_TIMEOUT), 10);
    EXPECT_EQ(intercept::transfer_number(CURLOPT_NOSIGNAL), 1);
}

TEST_F(Quota, WithoutAConfiguredHostAsksTheCompiledInOne) {
    // Its name never resolves.
    const std::string failed =
        std::string("(nimbo_polling) CURL failed: ") + curl_easy_strerror(CURLE_COULDNT_RESOLVE_HOST) + "\n";
    set_conf("NIMB_HOST", "");
    EXPECT_EQ(check(), failed);
    write_conf({{"NIMB_ARMED", "1"}});
    EXPECT_EQ(check(), failed);
}

TEST_F(Quota, WithoutMemoryForATransferGivesUp) {
    intercept::refuse_next("curl_easy_init");
    EXPECT_EQ(check(), "not enough memory for a request\n");
    EXPECT_EQ(alarms(), std::vector<int>{});
}

// --- With a service.

TEST_F(Quota, AsksWithItsToken) {
    StorageService storage({quota_reply("1000", "100")});
    EXPECT_EQ(check(), quota_log("1000", "100") + kHeld);
    const Texts requests = storage.stop();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0],
              "GET /rest/2.0/cbx/quota?method=info&access_token=tok123 HTTP/1.1\r\nHost: 127.0.0.1:8443\r\n"
              "Accept: */*\r\n\r\n");
    EXPECT_EQ(fake_vendor::calls(), Texts{"readTokenFromFile"});
}

TEST_F(Quota, AsksWithATokenFreshFromTheServer) {
    fake_vendor::result("readTokenFromFile", 1);
    fake_vendor::result("soapGetToken", 0, [] {
        fake_vendor::token("fresh");
        fake_vendor::result("readTokenFromFile", 0);
    });
    StorageService storage({quota_reply("1000", "100")});
    check();
    EXPECT_NE(storage.stop().at(0).find("access_token=fresh HTTP"), std::string::npos);
}

TEST_F(Quota, TokensAreCutAt511Characters) {
    fake_vendor::token(std::string(10'000, 't'));
    StorageService storage({quota_reply("1000", "100")});
    check();
    EXPECT_NE(storage.stop().at(0).find("access_token=" + std::string(511, 't') + " HTTP"),
              std::string::npos);
}

TEST_F(Quota, RaisesOneAlarmPerExcursion) {
    StorageService storage({quota_reply("1000", "800"), quota_reply("1000", "801"),
                            quota_reply("1000", "1000"), quota_reply("1000", "800"), quota_reply("1000", "0"),
                            quota_reply("1000", "2000")});
    EXPECT_EQ(check(), quota_log("1000", "800") + kHeld);  // 20 percent free is not low
    EXPECT_EQ(check(), quota_log("1000", "801") + kAlarm);
    EXPECT_EQ(check(), quota_log("1000", "1000") + kHeld);
    EXPECT_EQ(check(), quota_log("1000", "800") + kRecovered);
    EXPECT_EQ(check(), quota_log("1000", "0") + kHeld);
    EXPECT_EQ(check(), quota_log("1000", "2000") + kAlarm);
    EXPECT_EQ(alarms(), (std::vector<int>{12, 12}));
    storage.stop();
    recover();
}

TEST_F(Quota, OnlyADeliveredAlarmSetsTheLatch) {
    StorageService storage(Texts(3, quota_reply("1000", "900")));
    mipc_api = nullptr;
    EXPECT_EQ(check(),
              quota_log("1000", "900") + "(poll) low nimb space event detected\n(poll) mipc_api == NULL\n");
    mipc_api = &fake_vendor::table();
    EXPECT_EQ(check(), quota_log("1000", "900") + kAlarm);
    EXPECT_EQ(check(), quota_log("1000", "900") + kHeld);
    storage.stop();
    recover();
}

TEST_F(Quota, WithoutAThresholdIsNeverLow) {
    set_conf("NIMB_LOW", "");
    StorageService storage(Texts(2, quota_reply("1000", "1000")));
    EXPECT_EQ(check(), quota_log("1000", "1000") + kHeld);
    write_conf({{"NIMB_ARMED", "1"}, {"NIMB_HOST", StorageService::kHost}});
    EXPECT_EQ(check(), quota_log("1000", "1000") + kHeld);
}

TEST_F(Quota, AThresholdThatCannotBeReadRecoversNothing) {
    StorageService storage(Texts(3, quota_reply("1000", "900")));
    EXPECT_EQ(check(), quota_log("1000", "900") + kAlarm);
    const std::string text = conf_text();
    {
        const VanishingConf conf(text, 2);  // whether it is armed, and the host
        EXPECT_EQ(check(), quota_log("1000", "900"));
    }
    write_file("/tmp/working/VeloAgent.conf", text);
    EXPECT_EQ(check(), quota_log("1000", "900") + kHeld);
    storage.stop();
    recover();
}

TEST_F(Quota, NumbersHave64Bits) {
    StorageService storage({quota_reply("18446744073709551615", "18000000000000000000")});
    EXPECT_EQ(check(), quota_log("18446744073709551615", "18000000000000000000") + kAlarm);  // 2 percent
    storage.stop();
    recover();
}

TEST_F(Quota, AnErrorDropsTheToken) {
    const std::string body = "{\"error_code\":110,\"error_msg\":\"expired:1:2\"}";
    StorageService storage({reply_of(body, "401 Unauthorized")});
    EXPECT_EQ(check(), "(nimbo_polling) CURL response: " + body + "\n");
    EXPECT_EQ(fake_vendor::calls(), (Texts{"readTokenFromFile", "remove_token"}));
    EXPECT_EQ(alarms(), std::vector<int>{});
}

TEST_F(Quota, RepliesWithoutTwoNumbersFail) {
    const Texts bodies = {"", "quota", "quota:5", "quota:5 used:", "a:x,b:7", "a:7,b:x", "total:0 used:0"};
    Texts replies;
    for (const std::string &body : bodies) replies.push_back(reply_of(body));
    StorageService storage(replies);
    for (const std::string &body : bodies) {
        EXPECT_EQ(check(), "(nimbo_polling) no quota in the response: " + body + "\n");
    }
    EXPECT_EQ(alarms(), std::vector<int>{});
    EXPECT_EQ(storage.stop().size(), bodies.size());
}

TEST_F(Quota, TheFirstTwoNumbersCount) {
    StorageService storage({reply_of("x: 1000 , y: 100:7")});
    EXPECT_EQ(check(), quota_log("1000", "100") + kHeld);
}

TEST_F(Quota, PiecesThatBeginWithNoDigitDoNotCount) {
    StorageService storage({reply_of("{\"quota\":{\"total\":1000,\"used\":100},\"request_id\":9}"),
                            reply_of("a:-5,b:x7:1000,c:+5,d:100")});
    EXPECT_EQ(check(), quota_log("1000", "100") + kHeld);
    EXPECT_EQ(check(), quota_log("1000", "100") + kHeld);
}

TEST_F(Quota, OverlongRepliesAreNotKeptWhole) {
    StorageService storage({reply_of("a:1000,b:100," + std::string(1'000'000, ' ') + "error_code")});
    EXPECT_EQ(check(), quota_log("1000", "100") + kHeld);
}

TEST_F(Quota, RedirectsAreFollowedOverHttpsOnly) {
    StorageService storage({reply_of("", "302 Found", "Location: /elsewhere\r\n"), quota_reply("1000", "100"),
                            reply_of("", "302 Found", "Location: http://127.0.0.1:8080/\r\n")});
    EXPECT_EQ(check(), quota_log("1000", "100") + kHeld);
    EXPECT_EQ(check(), std::string("(nimbo_polling) CURL failed: ") +
                           curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL) + "\n");
    EXPECT_NE(storage.stop().at(1).find("GET /elsewhere HTTP/1.1"), std::string::npos);
}

TEST_F(Quota, CertificatesAreVerified) {
    const std::string refused = std::string("(nimbo_polling) CURL failed: ") +
                                curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION) + "\n";
    {
        StorageService unknown({quota_reply("1000", "900")});
        trust_storage_service(false);
        EXPECT_EQ(check(), refused);
    }
    StorageService other_name({quota_reply("1000", "900")}, "IP:127.0.0.2");
    EXPECT_EQ(check(), refused);
    EXPECT_EQ(alarms(), std::vector<int>{});
    EXPECT_EQ(other_name.stop(), Texts{});
}

}  // namespace
