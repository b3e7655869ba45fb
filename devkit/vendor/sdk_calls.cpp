#include "sdk_calls.h"

#include <dlfcn.h>
#include <time.h>

#include <atomic>
#include <thread>
#include <vector>

#include "handler_kinds.h"
#include "real_time.h"
#include "text_values.h"
#include "threads.h"

namespace desk {
namespace {

constexpr int kMostThreads = 256;
constexpr int64_t kTalkBytesPerSecond = 24000;

std::atomic<const device_callbacks *> callback_table{nullptr};
std::atomic<uint64_t> running{0}, finished{0};

struct Target {
    HandlerInvoker invoke;
    AnyFunction handler;
};

AnyFunction exported_handler(const std::string &name, bool by_pointer) {
    void *address = dlsym(RTLD_DEFAULT, name.c_str());
    if (address == nullptr) throw BadRequest{"not exported: " + name};
    if (by_pointer) address = __atomic_load_n(static_cast<void **>(address), __ATOMIC_ACQUIRE);
    if (address == nullptr) throw BadRequest{"still null: " + name};
    return reinterpret_cast<AnyFunction>(address);
}

Target find_target(const json &order) {
    const std::string name = order.at("name");
    const HandlerRow *row = find_handler(order.value("kind", name));
    if (row == nullptr) throw BadRequest{"unknown signature: " + name};
    const std::string via = order.value("via", row->slot >= 0 && !order.contains("kind") ? "table" : "dlsym");
    if (via == "dlsym") return {row->invoke, exported_handler(name, row->by_pointer)};
    const device_callbacks *callbacks = callback_table;
    if (callbacks == nullptr) throw BadRequest{"vq_ipca_init was not called yet"};
    if (row->slot < 0 || callbacks->handler[row->slot] == nullptr)
        throw BadRequest{"not in the callback table: " + name};
    return {row->invoke, callbacks->handler[row->slot]};
}

// One call; an argument that does not fit becomes {"error"}. Whatever the handler itself throws ends the
// process.
json call_once(const Target &what, const json &order) {
    struct Counted {
        Counted() {
            running++;
        }
        ~Counted() {
            running--;
            finished++;
        }
    } count;
    try {
        return what.invoke(what.handler, order);
    } catch (const BadRequest &problem) {
        return {{"error", problem.text}};
    } catch (const json::exception &problem) {
        return {{"error", problem.what()}};
    }
}

json call_repeatedly(const Target &what, const json &order, int repeat) {
    json results = json::array();
    for (int i = 0; i < repeat; i++) results.push_back(call_once(what, order));
    return results;
}

std::string pcm_of(const json &order) {
    if (!order.contains("wav")) return from_base64(order.at("pcm_base64"));
    const std::string file = read_file(order.at("wav"));
    const size_t chunk = file.find("data", 12);
    if (file.compare(0, 4, "RIFF") != 0 || chunk == std::string::npos || file.size() < chunk + 8) {
        throw BadRequest{"no WAV file: " + order.at("wav").get<std::string>()};
    }
    uint32_t size = 0;
    for (size_t i = 0; i < 4; i++) size |= uint32_t{static_cast<uint8_t>(file[chunk + 4 + i])} << (8 * i);
    return file.substr(chunk + 8, size);  // a stream's size may say more than there is
}

// Waits until the moment at which the byte `sent` is spoken.
void keep_pace(const std::string &pace, int64_t start_ns, size_t sent, size_t frame_bytes) {
    const int64_t ns = 1'000'000'000 / kTalkBytesPerSecond;
    if (pace == "real") real_sleep_until_ns(start_ns + static_cast<int64_t>(sent) * ns);
    if (pace != "bent") return;
    const timespec pause{0, static_cast<long>(static_cast<int64_t>(frame_bytes) * ns % 1'000'000'000)};
    nanosleep(&pause, nullptr);
}

json feed(AnyFunction handler, const std::string &pcm, const json &order) {
    const auto play = reinterpret_cast<int (*)(talkback_frame *)>(handler);
    const size_t frame_bytes = order.value("frame_bytes", 640);
    const std::string pace = order.value("pace", "real");
    uint32_t sequence = order.value("first_sequence", 1U);
    const int64_t start = real_now_ns();
    int frames = 0, accepted = 0;
    for (size_t at = 0; at < pcm.size(); at += frame_bytes, frames++) {
        std::vector<uint8_t> payload(
            pcm.begin() + static_cast<ptrdiff_t>(at),
            pcm.begin() + static_cast<ptrdiff_t>(std::min(at + frame_bytes, pcm.size())));
        keep_pace(pace, start, at, at == 0 ? 0 : frame_bytes);
        talkback_frame frame{};
        frame.sequence = sequence;
        frame.length = static_cast<uint32_t>(payload.size());
        frame.data = payload.data();
        accepted += play(&frame) == 0;
        sequence += order.value("sequence_step", 1U);
    }
    return {{"frames", frames}, {"accepted", accepted}};
}

}  // namespace

void set_callbacks(const device_callbacks *callbacks) {
    callback_table = callbacks;
}

json present_callbacks() {
    const device_callbacks *callbacks = callback_table;
    json out = json::object();
    for (int slot = 0; slot < kCallbackCount; slot++) {
        out[callback_name(slot)] = callbacks != nullptr && callbacks->handler[slot] != nullptr;
    }
    return out;
}

json call_handler(const json &order) {
    const Target what = find_target(order);
    const double begun = process_now_ms();
    const int count = order.value("threads", 1), repeat = order.value("repeat", 1);
    if (count < 1 || count > kMostThreads || repeat < 1)
        throw BadRequest{"threads is 1 to 256, repeat at least 1"};
    if (order.value("async", false)) {
        for (int i = 0; i < count; i++) {
            detached_thread([what, order, repeat] { call_repeatedly(what, order, repeat); });
        }
        return {{"started", count}};
    }
    std::vector<json> results(static_cast<size_t>(count));
    std::vector<std::thread> threads;
    for (json &result : results) {
        threads.push_back(quiet_thread([&] { result = call_repeatedly(what, order, repeat); }));
    }
    for (std::thread &thread : threads) thread.join();
    json all = json::array();
    for (json &result : results) {
        for (json &one : result) all.push_back(std::move(one));
    }
    return {{"results", std::move(all)}, {"begun_ms", begun}, {"ended_ms", process_now_ms()}};
}

json call_counts() {
    return {{"running", running.load()}, {"finished", finished.load()}};
}

json talk(const json &order) {
    const json call{{"name", "device_play_audio"}};
    const AnyFunction handler = find_target(call).handler;
    const std::string pcm = pcm_of(order);
    if (order.value("frame_bytes", 640) < 1) throw BadRequest{"frame_bytes is at least 1"};
    if (order.value("async", false)) {
        detached_thread([handler, pcm, order] { feed(handler, pcm, order); });
        return {{"started", 1}};
    }
    json result;
    quiet_thread([&] { result = feed(handler, pcm, order); }).join();
    return result;
}

}  // namespace desk
