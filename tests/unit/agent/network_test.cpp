// The device's network state and identity: shell commands, their scanning, results and logs; the connection
// report's status codes.
#include "agent/network.h"

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "agent/curlmgr.h"
#include "agent_test.h"
#include "exports.h"
#include "intercept.h"
#include "marked_log.h"
#include "read_only_conf.h"
#include "vanishing_conf.h"
#include "z55cgi.h"

namespace {

constexpr char kMacCommand[] = "line=$(ifconfig|grep HW); echo ${line##*HWaddr} | tr -d :";
constexpr char kTable[] =
    "Kernel IP routing table\n"
    "Destination     Gateway         Genmask         Flags   MSS Window  irtt Iface\n";

// The shell of a device: what each command prints, what netstat leaves in its file, whether ping succeeds.
struct Device {
    std::string interfaces = "wlan0     Link encap:Ethernet  HWaddr a1:b2:c3:d4:e5:f6\n";
    std::string routes =
        std::string(kTable) + "0.0.0.0         192.168.0.1     0.0.0.0         UG 0 0 0 wlan0\n";
    std::string mac = "a1b2c3d4e5f6\n";
    int netstat_status = 0, ping_status = 0;

    fake_os::ShellResult answer(const std::string &command) const {
        if (command == "ifconfig|grep wlan0") return {.output = interfaces};
        if (command == kMacCommand) return {.output = mac};
        if (command == "netstat -rn > gateway.txt") {
            write_file("gateway.txt", routes);
            return {.status = netstat_status};
        }
        if (command.rfind("ping ", 0) == 0) return {.status = ping_status};
        return {};
    }
};

class Network : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        unlink("gateway.txt");
        fake_os::on_shell([this](const std::string &command) { return device.answer(command); });
    }
    void TearDown() override {
        fake_os::on_shell({});
    }
    Device device;
};

// --- The default gateway.

struct RouteRow {
    const char *name;
    const char *line;
    const char *gateway;  // null for none
};

class NetworkRoute : public Network, public testing::WithParamInterface<RouteRow> {};

TEST_P(NetworkRoute, IsTheDefaultByItsDestination) {
    const auto [name, line, expected] = GetParam();
    device.routes = kTable + std::string(line);
    std::optional<std::string> gateway;
    const std::string log = output_of([&] { gateway = get_default_gateway(); });
    if (expected == nullptr) {
        EXPECT_EQ(gateway, std::nullopt);
        EXPECT_EQ(log, "Default gateway not found.\n");
    } else {
        EXPECT_EQ(gateway, expected);
        EXPECT_EQ(log, std::string("get default gateway:\"") + expected + "\"\n");
    }
    EXPECT_EQ(fake_os::shell_commands(), Texts{"netstat -rn > gateway.txt"});
    EXPECT_TRUE(file_exists("gateway.txt"));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NetworkRoute,
    testing::Values(
        RouteRow{.name = "usual line",
                 .line = "0.0.0.0         192.168.0.1     0.0.0.0         UG        0 0          0 wlan0\n",
                 .gateway = "192.168.0.1"},
        RouteRow{.name = "destination at the ninth character",
                 .line = "         0.0.0.0 10.0.0.254 x\n",
                 .gateway = "10.0.0.254"},  // at offset 9
        RouteRow{.name = "destination beyond the ninth character",
                 .line = "          0.0.0.0 10.0.0.254 x\n",
                 .gateway = nullptr},  // at offset 10
        RouteRow{.name = "only another route",
                 .line = "192.168.0.0     0.0.0.0         255.255.255.0   U 0 0 0 wlan0\n",
                 .gateway = nullptr},
        RouteRow{.name = "first of several defaults",
                 .line = "192.168.0.0     0.0.0.0         255.255.255.0   U 0 0 0 wlan0\n"
                         "0.0.0.0         192.168.0.1     0.0.0.0         UG 0 0 0 wlan0\n"
                         "0.0.0.0         192.168.0.2     0.0.0.0         UG 0 0 0 wlan0\n",
                 .gateway = "192.168.0.1"},  // the first one
        RouteRow{.name = "letters around it",
                 .line = "0.0.0.0 gw192.168.0.1x\n",
                 .gateway = "192.168.0.1"},  // from the first digit to the last
        RouteRow{.name = "leading zero", .line = "0.0.0.0 0.9.8.90\n", .gateway = "0.9.8.90"},
        RouteRow{.name = "zeros within", .line = "0.0.0.0 9.0.0.9\n", .gateway = "9.0.0.9"},
        RouteRow{.name = "five numbers", .line = "0.0.0.0 1.2.3.4.5\n", .gateway = "1.2.3.4"},
        RouteRow{.name = "no line end", .line = "0.0.0.0 1.2.3.4", .gateway = "1.2.3.4"},
        // What is no address is none, and may be a command.
        RouteRow{.name = "a letter in it", .line = "0.0.0.0 1.2.3.x 5\n", .gateway = nullptr},
        RouteRow{.name = "a number too long", .line = "0.0.0.0 1.2.3.4567\n", .gateway = nullptr},
        RouteRow{.name = "a number too large", .line = "0.0.0.0 1.2.3.256\n", .gateway = nullptr},
        RouteRow{
            .name = "a command in it", .line = "0.0.0.0 1;touch /tmp/owned;.2.3.4\n", .gateway = nullptr},
        RouteRow{.name = "command before an address",
                 .line = "0.0.0.0 1$(touch /tmp/owned).2.3.4\n0.0.0.0 1.2.3.4\n",
                 .gateway = "1.2.3.4"},
        RouteRow{.name = "three numbers", .line = "0.0.0.0 1.2.3\n", .gateway = nullptr},
        RouteRow{.name = "two numbers", .line = "0.0.0.0 1.2\n", .gateway = nullptr},
        RouteRow{.name = "no number", .line = "0.0.0.0\n", .gateway = nullptr},
        RouteRow{.name = "no line", .line = "", .gateway = nullptr}),
    by_name);

TEST_F(Network, GatewayWithoutItsFileIsNoneInSilence) {
    std::filesystem::create_directory("gateway.txt");
    EXPECT_EQ(output_of([] { EXPECT_EQ(get_default_gateway(), std::nullopt); }), "");
    std::filesystem::remove("gateway.txt");
}

TEST_F(Network, GatewayIsNotTakenFromANetstatThatFailed) {
    device.netstat_status = 256;
    const std::string log = output_of([] { EXPECT_EQ(get_default_gateway(), std::nullopt); });
    EXPECT_EQ(log, "Default gateway not found.\n");
}

TEST_F(Network, GatewayIsNetstatsAndNotWhatStoodInTheFile) {
    write_file("gateway.txt", "0.0.0.0 6.6.6.6\n");
    fake_os::on_shell({});  // which writes nothing
    const std::string log = output_of([] { EXPECT_EQ(get_default_gateway(), std::nullopt); });
    EXPECT_EQ(log, "Default gateway not found.\n");
}

TEST_F(Network, GatewayFileIsNotTheOneThatALinkPointsTo) {
    write_file("/tmp/victim", "mine");
    std::filesystem::create_symlink("/tmp/victim", "gateway.txt");
    output_of([] { EXPECT_EQ(get_default_gateway(), "192.168.0.1"); });
    EXPECT_EQ(read_file("/tmp/victim"), "mine");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status("gateway.txt")));
}

TEST_F(Network, GatewayIsLookedForInPiecesOf255Characters) {
    // What stands at the start of a piece of an overlong line is taken for the start of a line.
    device.routes = std::string(255, 'x') + "0.0.0.0 1.2.3.4\n";
    output_of([] { EXPECT_EQ(get_default_gateway(), "1.2.3.4"); });
    device.routes = std::string(242, 'x') + "0.0.0.0 1.2.3.4\n";
    output_of([] { EXPECT_EQ(get_default_gateway(), std::nullopt); });
}

TEST_F(Network, GatewayLookupsDoNotMix) {
    int inside = 0;
    bool alone = true;
    fake_os::on_shell([&](const std::string &) {
        if (__atomic_add_fetch(&inside, 1, __ATOMIC_SEQ_CST) != 1) alone = false;
        write_file("gateway.txt", device.routes);
        __atomic_sub_fetch(&inside, 1, __ATOMIC_SEQ_CST);
        return fake_os::ShellResult{};
    });
    output_of([] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; i++) {
            threads.emplace_back([] {
                for (int round = 0; round < 10; round++) EXPECT_EQ(get_default_gateway(), "192.168.0.1");
            });
        }
        for (std::thread &thread : threads) thread.join();
    });
    EXPECT_TRUE(alone);
}

// --- The hardware address.

struct MacRow {
    const char *name;
    const char *output, *mac;
};

class NetworkMac : public Network, public testing::WithParamInterface<MacRow> {};

TEST_P(NetworkMac, IsTheLastLinesTwelveCharactersInUpperCase) {
    device.mac = GetParam().output;
    std::string mac;
    const std::string log = output_of([&] { mac = get_MAC_uppercase(); });
    EXPECT_EQ(mac, GetParam().mac);
    EXPECT_EQ(log, std::string("get_MAC_uppercase = \"") + GetParam().mac + "\"\n");
    EXPECT_EQ(fake_os::shell_commands(), Texts{kMacCommand});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NetworkMac,
    testing::Values(
        MacRow{.name = "usual line", .output = "a1b2c3d4e5f6\n", .mac = "A1B2C3D4E5F6"},
        MacRow{.name = "last of two lines", .output = "first\na1b2c3d4e5f6 \n", .mac = "A1B2C3D4E5F6"},
        MacRow{.name = "longer than an address", .output = "a1b2c3d4e5f6789", .mac = "A1B2C3D4E5F6"},
        MacRow{.name = "shorter than an address", .output = "a1b2\n", .mac = "A1B2"},
        MacRow{.name = "nothing", .output = "", .mac = ""},
        MacRow{.name = "empty line", .output = "\n", .mac = ""}),
    by_name);

TEST_F(Network, WhatAFailedCommandSaysIsNothing) {
    fake_os::on_shell([](const std::string &) {
        return fake_os::ShellResult{.status = SIGKILL, .output = "wlan0 a1b2c3d4e5f6\n"};
    });
    output_of([] {
        EXPECT_EQ(get_MAC_uppercase(), "");
        EXPECT_EQ(wlan0_exists(), 0);
    });
}

// --- The interface and the ping.

struct InterfaceRow {
    const char *name;
    const char *output;
    int exists;
};

class NetworkInterface : public Network, public testing::WithParamInterface<InterfaceRow> {};

TEST_P(NetworkInterface, ExistsByTheLastLine) {
    device.interfaces = GetParam().output;
    int exists = -1;
    const std::string log = output_of([&] { exists = wlan0_exists(); });
    EXPECT_EQ(exists, GetParam().exists);
    EXPECT_EQ(log,
              GetParam().exists == 1 ? "Device \"wlan0\" exists.\n" : "Device \"wlan0\" does NOT exist.\n");
    EXPECT_EQ(fake_os::shell_commands(), Texts{"ifconfig|grep wlan0"});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NetworkInterface,
    testing::Values(InterfaceRow{.name = "usual line", .output = "wlan0     Link\n", .exists = 1},
                    InterfaceRow{.name = "within a line", .output = "x wlan0", .exists = 1},
                    InterfaceRow{.name = "nothing", .output = "", .exists = 0},
                    InterfaceRow{.name = "another", .output = "wlan1\n", .exists = 0},
                    InterfaceRow{.name = "before another", .output = "wlan0\nother\n", .exists = 0},
                    InterfaceRow{.name = "after another", .output = "other\nwlan0\n", .exists = 1}),
    by_name);

constexpr char kExists[] = "Device \"wlan0\" exists.\n";
constexpr char kMissing[] = "Device \"wlan0\" does NOT exist.\n";
constexpr char kPing[] =
    "get default gateway:\"192.168.0.1\"\ncommand:\"ping -c1 -s1 192.168.0.1\"\n"
    "Try pinging default gateway...\n";

TEST_F(Network, PingThatIsAnswered) {
    const std::string log = output_of([] { EXPECT_EQ(ping_default_gateway(), 0); });
    EXPECT_EQ(log, std::string(kExists) + kPing + "(ping_default_gateway) ping 192.168.0.1 succeeded.\n");
    EXPECT_EQ(fake_os::shell_commands(),
              (Texts{"ifconfig|grep wlan0", "netstat -rn > gateway.txt", "ping -c1 -s1 192.168.0.1"}));
}

TEST_F(Network, PingThatIsNotAnsweredIsNotRepeated) {
    for (const int status : {256, -1}) {
        device.ping_status = status;
        const std::string log = output_of([] { EXPECT_EQ(ping_default_gateway(), -1); });
        EXPECT_EQ(log, std::string(kExists) + kPing + "(ping_default_gateway) ping 192.168.0.1 failed.\n");
    }
    EXPECT_EQ(fake_os::shell_commands().size(), 6U);
}

TEST_F(Network, PingWithoutAnInterface) {
    device.interfaces = "";
    const std::string log = output_of([] { EXPECT_EQ(ping_default_gateway(), -1); });
    EXPECT_EQ(log, std::string(kMissing) + "Quit pinging default gateway.\n");
    EXPECT_EQ(fake_os::shell_commands().size(), 1U);
}

TEST_F(Network, PingWithoutAGateway) {
    device.routes = "";
    const std::string log = output_of([] { EXPECT_EQ(ping_default_gateway(), -1); });
    EXPECT_EQ(log,
              std::string(kExists) + "Default gateway not found.\nQuiting try pinging default gateway.\n");
    EXPECT_EQ(fake_os::shell_commands().size(), 2U);
}

// --- The connection report.

TEST_F(Network, ConnectedSendsOne) {
    EXPECT_EQ(output_of([] { notify_Z55_connection_status(0); }), "***** CLOUD_OK !!!!!! *****\n");
    EXPECT_EQ(fake_vendor::calls(), Texts{"send_cloud_status(1)"});
    EXPECT_EQ(fake_os::shell_commands(), Texts{});
}

TEST_F(Network, DisconnectedWithoutAnInterfaceSendsTwoAndPrintsNoStatus) {
    device.interfaces = "";
    EXPECT_EQ(output_of([] { notify_Z55_connection_status(1); }), kMissing);
    EXPECT_EQ(fake_vendor::calls(), Texts{"send_cloud_status(2)"});
    EXPECT_EQ(fake_os::shell_commands(), Texts{"ifconfig|grep wlan0"});
}

TEST_F(Network, DisconnectedWithAGatewayThatAnswersSendsThree) {
    EXPECT_EQ(output_of([] { notify_Z55_connection_status(1); }),
              std::string(kExists) + kExists + kPing +
                  "(ping_default_gateway) ping 192.168.0.1 succeeded.\n***** CLOUD_LOCAL_OK !!!!!! *****\n");
    EXPECT_EQ(fake_vendor::calls(), Texts{"send_cloud_status(3)"});
}

TEST_F(Network, DisconnectedWithAGatewayThatDoesNotAnswerSendsTwo) {
    device.ping_status = 256;
    EXPECT_EQ(output_of([] { notify_Z55_connection_status(1); }),
              std::string(kExists) + kExists + kPing +
                  "(ping_default_gateway) ping 192.168.0.1 failed.\n***** LOCAL_FAIL !!!!!! *****\n");
    EXPECT_EQ(fake_vendor::calls(), Texts{"send_cloud_status(2)"});
}

TEST_F(Network, OtherReportsDoNothing) {
    for (const int status : {5, 2, -1}) {
        EXPECT_EQ(output_of([&] { notify_Z55_connection_status(status); }), "");
    }
    EXPECT_EQ(fake_vendor::calls(), Texts{});
    EXPECT_EQ(fake_os::shell_commands(), Texts{});
}

// --- The UUID.

class NetworkUuid : public CameraTest {};

constexpr char kUuidStart[] =
    "get_uuid  start --- platform/Z55/agent/utils --- <N> ---\n "
    "url = http://127.0.0.1:8080/CGI/CameraInfo\n[QUERY CameraInfo?]\n";

std::string uuid_log(std::optional<std::string> &uuid) {
    std::string log;
    errors_of([&] { log = marked_log(output_of([&] { uuid = get_uuid(); })); });
    return log;
}

TEST_F(NetworkUuid, IsTheCameras) {
    camera.reply("/CGI/CameraInfo", "<Info><UUID>0A1B-2C</UUID></Info>");
    std::optional<std::string> uuid;
    const std::string log = uuid_log(uuid);
    EXPECT_EQ(uuid, "0A1B-2C");
    EXPECT_LOG(log, std::string(kUuidStart) +
                        "get_uuid print response = <Info><UUID>0A1B-2C</UUID></Info>\n "
                        "get_uuid print value = 0A1B-2C\n ");
    EXPECT_EQ(camera.seen(), Texts{"GET /CGI/CameraInfo? Session=12345"});
}

TEST_F(NetworkUuid, IsAskedForUntilItIsThere) {
    camera.reply("/CGI/CameraInfo", {CameraReply{.status = 500}, CameraReply{.body = "<Info></Info>"},
                                     CameraReply{.body = "<UUID>7</UUID>"}});
    std::optional<std::string> uuid;
    const std::string log = uuid_log(uuid);
    EXPECT_EQ(uuid, "7");
    EXPECT_LOG(log, std::string(kUuidStart) +
                        "[failed]\nget_uuid curl failed. response of perform_curl() is null.\n"
                        "find_xml_value failed. response of perform_curl() is null.\n[QUERY CameraInfo?]\n"
                        "get_uuid print response = <Info></Info>\n "
                        "find_xml_value failed. response of perform_curl() is null.\n[QUERY CameraInfo?]\n"
                        "get_uuid print response = <UUID>7</UUID>\n get_uuid print value = 7\n ");
    EXPECT_EQ(fake_os::pauses(), Texts{});
}

TEST_F(NetworkUuid, IsAskedForWithTheKeyOfTheMoment) {
    camera.reply("/CGI/CameraInfo",
                 {CameraReply{.body = "<ErrorCode>-9</ErrorCode>",
                              .before = [](const CameraRequest &) { set_conf("SESSION_KEY", "678"); }},
                  CameraReply{.body = "<UUID>7</UUID>"}});
    std::optional<std::string> uuid;
    uuid_log(uuid);
    EXPECT_EQ(camera.seen(),
              (Texts{"GET /CGI/CameraInfo? Session=12345", "GET /CGI/CameraInfo? Session=678"}));
}

TEST_F(NetworkUuid, IsNotAskedForAgainWhileTheQueueHasNoWorker) {
    if (begun > 1) GTEST_SKIP() << "a second worker would stay";
    camera.reply("/CGI/CameraInfo", "<UUID>7</UUID>");
    std::optional<std::string> uuid;
    std::string log;
    errors_of([&] {
        log = output_of([&] {
            curl_worker_missing();
            std::thread asker([&] { uuid = get_uuid(); });
            EXPECT_TRUE(eventually([] { return intercept::transfers() == 1; }));
            // While others ask and fail, this one waits.
            for (int i = 0; i < 1000; i++) EXPECT_FALSE(perform_curl("http://127.0.0.1:8080/x", "1", ""));
            start_curl_thread(nullptr);
            asker.join();
        });
    });
    EXPECT_EQ(uuid, "7");
    const std::string failure = "find_xml_value failed. response of perform_curl() is null.\n";
    EXPECT_NE(log.find(failure), std::string::npos);
    EXPECT_EQ(log.find(failure), log.rfind(failure)) << "one attempt before there was a worker";
    EXPECT_EQ(camera.seen(), Texts{"GET /CGI/CameraInfo? Session=12345"});
}

TEST_F(NetworkUuid, IsAskedForWithTheKeyThatCouldNotBeStored) {
    camera.reply("/CGI/CameraLogin", {{.headers = {"Set-Cookie: Session=678"}}});
    camera.reply("/CGI/CameraInfo", "<UUID>7</UUID>");
    const ReadOnlyConf read_only;
    errors_of([] { output_of([] { EXPECT_EQ(login(), 0); }); });
    std::optional<std::string> uuid;
    uuid_log(uuid);
    EXPECT_EQ(camera.seen().back(), "GET /CGI/CameraInfo? Session=678");
}

TEST_F(NetworkUuid, AddressAndKeyAreCutToTheirBuffers) {
    camera.reply("/CGI/CameraInfo", "<UUID>7</UUID>");
    set_conf("hostIP", "127.0.0.1:08080x");
    set_conf("SESSION_KEY", std::string(40, '5'));
    std::optional<std::string> uuid;
    uuid_log(uuid);
    EXPECT_EQ(camera.seen(), Texts{"GET /CGI/CameraInfo? Session=" + std::string(29, '5')});
}

TEST_F(NetworkUuid, WithoutConfigurationIsNone) {
    remove_conf();
    std::string log;
    const std::string errors =
        errors_of([&] { log = output_of([] { EXPECT_EQ(get_uuid(), std::nullopt); }); });
    EXPECT_EQ(log, "");
    EXPECT_EQ(errors, "Read hostIP failed.: No such file or directory\n");
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(NetworkUuid, WithoutAKeyInTheConfigurationIsNone) {
    camera.reply("/CGI/CameraInfo", "<UUID>7</UUID>");
    EXPECT_TRUE(at_some_vanishing(conf_text(), [] {
        std::optional<std::string> uuid;
        std::string log;
        const std::string errors = errors_of([&] { log = output_of([&] { uuid = get_uuid(); }); });
        return !uuid && log.empty() && errors == "Read session_key failed.: No such file or directory\n";
    }));
    EXPECT_EQ(camera.seen(), Texts{});
}

}  // namespace
