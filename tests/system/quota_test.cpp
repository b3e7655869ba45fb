// The cloud-storage quota watch against an HTTPS server of the test's own, whose certificate the view trusts.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/mount.h>

#include <filesystem>
#include <mutex>
#include <thread>

#include "poll_gate.h"
#include "poll_log.h"
#include "silent_hosts.h"

namespace {

constexpr char kKey[] = "/tmp/quota.key", kCertificate[] = "/tmp/quota.crt";
constexpr char kTrusted[] = "/etc/ssl/certs/ca-certificates.crt";

void make_certificate() {
    const std::string command =
        std::string(
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 3650 "
            "-subj /CN=quota -addext subjectAltName=IP:127.0.0.1 -keyout ") +
        kKey + " -out " + kCertificate + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl cannot make a certificate");
}

// Puts the certificate in the place of the view's authorities; the host keeps its own.
void trust_certificate() {
    if (mount("tmpfs", "/etc/ssl/certs", "tmpfs", 0, "") != 0)
        throw std::runtime_error("cannot cover the authorities");
    std::filesystem::copy_file(kCertificate, kTrusted);
}

class QuotaServer {
  public:
    QuotaServer() : server_((make_certificate(), kCertificate), kKey) {
        server_.Get(".*", [this](const httplib::Request &request, httplib::Response &response) {
            const std::lock_guard lock(lock_);
            targets_.push_back(request.target);
            response.set_content(reply_, "text/plain");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        wait_until("the quota server runs", [this] { return server_.is_running(); });
    }
    ~QuotaServer() {
        server_.stop();
        thread_.join();
    }
    std::string host() const {
        return "127.0.0.1:" + std::to_string(port_);
    }
    void answer(const std::string &reply) {
        const std::lock_guard lock(lock_);
        reply_ = reply;
    }
    std::vector<std::string> targets() {
        const std::lock_guard lock(lock_);
        return targets_;
    }

  private:
    std::mutex lock_;
    std::string reply_ = R"({"quota":1000,"used":100})";
    std::vector<std::string> targets_;
    httplib::SSLServer server_;
    int port_ = 0;
    std::thread thread_;
};

DeskOptions watching(const QuotaServer &server) {
    DeskOptions options;
    // The agent has 2 bent seconds to connect and 10 for it all; the server lives in plain time.
    options.speed = 3;
    options.conf = {{"NIMB_ARMED", "1"},
                    {"NIMB_LOW", "10"},
                    {"NIMB_HOST", server.host()},
                    {"NIMB_PERIOD", "0"},
                    {"POLL_STATUS_PERIOD_SEC", "1"}};
    return options;
}

const std::string kAlarm =
    "(poll) low nimb space event detected\n"
    "(poll) SendAlarmData!! index:1, name:alarm, status: 12 \n(poll) end SendAlarmData\n"
    "*** (nimb_poll) OK curr tv_sec:";

}  // namespace

TEST(Quota, LowSpaceOncePerExcursion) {
    QuotaServer server;
    trust_certificate();
    Desk desk(watching(server));
    EXPECT_EQ(server.targets().at(0), "/rest/2.0/cbx/quota?method=info&access_token=desk-token");
    PollGate gate(desk);
    struct {
        const char *reply;
        std::string text;
        size_t alarms;  // since the start
    } steps[] = {
        {R"({"quota":1000,"used":901})",
         "(nimbo_polling) CURL response: total = 1000, used = 901.\n" + kAlarm, 1},
        {R"({"quota":1000,"used":999})", "nimb alarm had send , don't do something\n", 1},
        {R"({"quota":1000,"used":900})", "nimb space alarm end , recover flag\n", 1},
        {R"({"quota":1000,"used":900})", "nimb alarm had send , don't do something\n", 1},
        {R"({"quota":18446744073709551615,"used":18446744073709551614})",
         "total = 18446744073709551615, used = 18446744073709551614.\n" + kAlarm, 2},
    };
    for (const auto &step : steps) {
        const size_t from = desk.log().size();
        server.answer(step.reply);
        gate.let_cycle_pass();
        desk.wait_for_log(step.text, from);
        EXPECT_EQ(desk.alarms(), std::vector<int>(step.alarms, 12)) << step.reply;
    }
}

TEST(Quota, UnusableRepliesDecideNothing) {
    QuotaServer server;
    trust_certificate();
    server.answer(R"({"quota":1000,"used":999})");
    Desk desk(watching(server));
    ASSERT_EQ(desk.alarms(), std::vector<int>{12}) << "latched: a recovery would show";
    PollGate gate(desk);
    const size_t from = desk.log().size();
    for (const std::string reply : {R"({"quota":0,"used":0})", R"({"quota":"x","used":"y"})",
                                    "no colon at all", R"({"quota":1000})", ""}) {
        server.answer(reply);
        gate.let_cycle_pass();
    }
    server.answer(std::string(100'000, ':'));
    gate.let_cycle_pass();
    EXPECT_EQ(desk.count_in_log("nimb space alarm end", from), 0);
    EXPECT_EQ(desk.count_in_log("nimb alarm had send", from), 0);
    EXPECT_EQ(desk.count_in_log("*** (nimb_poll) OK curr tv_sec:", from), 6);
    EXPECT_EQ(desk.alarms(), std::vector<int>{12});
}

TEST(Quota, ATokenThatIsNotAcceptedIsDropped) {
    QuotaServer server;
    trust_certificate();
    Desk desk(watching(server));
    PollGate gate(desk);
    desk.sdk("DELETE", "/token");
    server.answer(R"({"error_code":110,"error_msg":"expired"})");
    const size_t from = desk.log().size();
    gate.let_cycle_pass();
    desk.wait_for_log("{\"error_code\":110,\"error_msg\":\"expired\"}", from);
    EXPECT_EQ(desk.count_in_log("CURL response: total", from), 0);
    const json calls = desk.sdk("GET", "/token")["calls"];
    EXPECT_EQ(calls.back()["call"], "remove_token");
    EXPECT_EQ(calls.back()["tid"], desk.agent_pid());
}

TEST(Quota, WithoutATokenOneIsOrdered) {
    QuotaServer server;
    trust_certificate();
    Desk desk(watching(server));
    PollGate gate(desk);
    desk.sdk("PUT", "/token", {{"token", nullptr}, {"soap_token", "fresh"}});
    gate.let_cycle_pass();
    EXPECT_EQ(server.targets().back(), "/rest/2.0/cbx/quota?method=info&access_token=fresh");
    desk.sdk("PUT", "/token", {{"token", nullptr}, {"soap_result", -1}});
    const size_t asked = server.targets().size(), from = desk.log().size();
    gate.let_cycle_pass();
    desk.wait_for_log("(nimbo_polling) Cannot get token from Server by SOAP.\n*** (nimb_poll) OK", from);
    desk.sdk("PUT", "/token", {{"token", nullptr}, {"soap_token", nullptr}, {"soap_result", 0}});
    gate.let_cycle_pass();
    desk.wait_for_log("(nimbo_polling) Cannot get token!\n*** (nimb_poll) OK", from);
    EXPECT_EQ(server.targets().size(), asked);
}

TEST(Quota, ACertificateThatNobodyTrustsEndsTheCheck) {
    QuotaServer server;
    Desk desk(watching(server));
    desk.wait_for_logs({"(nimbo_polling) CURL failed: ", "*** (nimb_poll) OK"});
    EXPECT_EQ(server.targets().size(), 0u);
}

TEST(Quota, NameServersThatKeepSilentHoldThePollForTwoSeconds) {
    SilentNameServers names;
    DeskOptions options;
    options.conf = {{"NIMB_ARMED", "1"}, {"NIMB_HOST", "storage.example"}, {"NIMB_PERIOD", "0"}};
    Desk desk(options);
    desk.wait_for_logs({"(nimbo_polling) CURL failed: Timeout was reached\n", "*** (nimb_poll) OK",
                        "(nimbo_polling) CURL failed: Timeout was reached\n", "*** (nimb_poll) OK"});
    EXPECT_GT(names.questions(), 0);
}

TEST(Quota, NoProxyIsTakenFromTheEnvironment) {
    QuotaServer server;
    trust_certificate();
    DeskOptions options = watching(server);
    for (const char *name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        options.environment[name] = "http://127.0.0.1:1";
    Desk desk(options);
    EXPECT_GE(server.targets().size(), 1u);
}

TEST(Quota, UnarmedAsksNobody) {
    QuotaServer server;
    trust_certificate();
    DeskOptions options = watching(server);
    options.conf["NIMB_ARMED"] = "0";
    Desk desk(options);
    desk.wait_for_cycles(2);
    EXPECT_EQ(server.targets().size(), 0u);
    EXPECT_GE(desk.count_in_log("*** (nimb_poll) OK curr tv_sec:"), 2);
    EXPECT_EQ(desk.sdk("GET", "/token")["calls"].dump().find("readTokenFromFile"), std::string::npos);
}

TEST(Quota, IsAskedAtItsOwnPeriod) {
    QuotaServer server;
    trust_certificate();
    DeskOptions options = watching(server);
    options.conf["POLL_STATUS_PERIOD_SEC"] = "3";
    options.conf["NIMB_PERIOD"] = "18";
    Desk desk(options);
    wait_until("thirteen cycles", [&] { return poll_cycles(desk).size() >= 13; });
    const auto cycles = poll_cycles(desk);
    expect_asked_at_period(cycles, "Nimb", 18);
    EXPECT_GE(server.targets().size(), 2u);
    desk.wait_for_log("*** (nimb_poll) not long enough, curr tv_sec:");
}

TEST(Quota, AServerThatKeepsSilentHoldsThePollForTenSeconds) {
    QuotaServer server;
    trust_certificate();
    DeskOptions options = watching(server);
    // A listener that never answers: the connection is made, the handshake is not.
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof own;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&own), size), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&own), &size), 0);
    options.conf["NIMB_HOST"] = "127.0.0.1:" + std::to_string(ntohs(own.sin_port));
    Desk desk(options);
    desk.wait_for_logs({"(nimbo_polling) CURL failed: ", "*** (nimb_poll) OK", "Value of MotionEvent:0\n"});
    const AgentSize before = agent_size(desk);
    desk.wait_for_cycles(3);
    expect_same_size(desk, before);
    close(listener);
}
