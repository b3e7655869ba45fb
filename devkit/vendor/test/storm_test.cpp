// Many of everything at once: nothing is lost, nothing is counted twice, and the sanitizers stay quiet.
#include <thread>
#include <vector>

#include "agent_process.h"

namespace {

TEST(Storm, CallsFramesAlarmsAndRecordingsAtOnce) {
    AgentProcess agent;
    const std::string h264 = agent.folder().path("clip.h264");
    const std::vector<json> orders = {
        {{"name", "get_device_param"}, {"args", {"abc"}}, {"threads", 4}, {"repeat", 100}},
        {{"name", "set_device_param"}, {"args", {"alarm", "1"}}, {"threads", 4}, {"repeat", 100}},
        {{"name", "notify_Z55_connection_status"}, {"args", {0}}, {"threads", 4}, {"repeat", 100}},
        {{"name", "get_camera_snapshot"}, {"args", {0}}, {"threads", 4}, {"repeat", 100}},
    };
    agent.post("/frames/save", {{"h264", h264}});
    std::vector<std::thread> clients;
    for (const json &order : orders) {
        clients.emplace_back(
            [&agent, order] { EXPECT_EQ(agent.post("/call", order).at("results").size(), 400U); });
    }
    for (int i = 0; i < 2; i++) {
        clients.emplace_back([&agent] {
            agent.post("/capture/synthetic", {{"count", 300}, {"video_bytes", 1000}});
        });
    }
    clients.emplace_back([&agent] {
        for (int i = 0; i < 20; i++) agent.get(i % 2 == 0 ? "/state" : "/frames");
    });
    for (std::thread &client : clients) client.join();
    EXPECT_EQ(agent.get("/alarms").at("total"), 400);
    EXPECT_EQ(agent.get("/cloud_status").at("total"), 400);
    EXPECT_EQ(agent.get("/frames").at("video"), 600);
    EXPECT_EQ(agent.get("/frames").at("ownership_errors"), 0);
    const json saved = agent.post("/frames/stop", json::object());
    EXPECT_EQ(saved.at("video"), 600);
    EXPECT_EQ(saved.at("dropped"), 0) << "sound that is not saved takes nobody's place";
}

struct LibraryRow {
    const char *path, *names;
};

// The agent's link must find the vendor's names, and nothing of ours may get in the way of its own.
TEST(Exports, LibrariesShowTheVendorsNamesOnly) {
    const LibraryRow libraries[] = {
        {VENDOR_DIR "/libvq_ipca.so", "request_vedio thread_attr vq_ipca_init "},
        {VENDOR_DIR "/libef.so",
         "ExFramer_Capture_Init ExFramer_Capture_Start ExFramer_Capture_Stop SetErrorCallback "
         "desk_ef_request "},
        {VENDOR_DIR "/libusock.so",
         "desk_usock_request readTokenFromFile remove_token send_cloud_status set_video_bitrate "
         "soapGetToken "},
    };
    for (const LibraryRow &library : libraries) {
        const std::string path = library.path, file = path.substr(path.rfind('/') + 1);
        const std::string names =
            "nm -D --defined-only " + path + " | awk '{print $3}' | LC_ALL=C sort | tr '\\n' ' '";
        EXPECT_EQ(output_of(names), library.names);
        EXPECT_EQ(output_of("readelf -d " + path + " | sed -n 's/.*soname: .\\(.*\\)]/\\1/p'"), file + "\n");
    }
}

}  // namespace
