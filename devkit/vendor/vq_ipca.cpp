// libvq_ipca.so: the SDK's globals and entry, and its function table.
#include <mutex>

#include "contract.h"
#include "frame_tap.h"
#include "sdk_alarms.h"
#include "sdk_calls.h"
#include "sdk_frames.h"
#include "sdk_interface.h"
#include "sdk_session.h"
#include "threads.h"

using desk::json;

DESK_EXPORT int request_vedio;
DESK_EXPORT pthread_attr_t thread_attr;
int request_vedio;
pthread_attr_t thread_attr;

namespace {

int take_audio(audio_record *record) {
    desk::keep_audio(*record);
    return 0;
}

int take_video(video_record *record) {
    desk::keep_video(*record);
    return 0;
}

int take_alarm(alarm_record *record, mipc_api_table *table);

struct SlotRow {
    int slot;
    AnyFunction function;
};

const SlotRow kRealSlots[] = {
    {kAudioSlot, reinterpret_cast<AnyFunction>(take_audio)},
    {kVideoSlot, reinterpret_cast<AnyFunction>(take_video)},
    {kAlarmSlot, reinterpret_cast<AnyFunction>(take_alarm)},
};

mipc_api_table table{};  // the agent reads the slots as they are

struct Session {
    std::string uuid, interface_name;
    int init_count = 0;
    bool null_table = false;  // what vq_ipca_init returns
    bool interface_up = false;
    json at_init;  // the replies to DESK_SDK_AT_INIT
};
std::mutex lock;

// Under `lock`. Made at the first use, never destroyed: threads outlive main.
Session &now() {
    static Session &made = *new Session;
    return made;
}

int take_alarm(alarm_record *record, mipc_api_table *given) {
    return desk::keep_alarm(*record, given == &table);
}

// The agent reads the slot without a lock of ours, as it would with the real table.
__attribute__((no_sanitize("thread"))) void put_function(int slot, AnyFunction function) {
    *const_cast<volatile AnyFunction *>(&table.slot[slot]) = function;
}

__attribute__((constructor)) void load() {
    pthread_attr_init(&thread_attr);
    pthread_attr_setstacksize(&thread_attr, 256 * 1024);
    for (const SlotRow &row : kRealSlots) put_function(row.slot, row.function);
    desk::open_tap();
    desk::apply_orders("DESK_SDK_AT_LOAD");
}

}  // namespace

namespace desk {

json session_state() {
    json slots = json::array();
    for (const AnyFunction slot : table.slot) slots.push_back(slot != nullptr);
    const std::lock_guard guard(lock);
    return {{"uuid", now().uuid},
            {"interface", now().interface_name},
            {"init_count", now().init_count},
            {"at_init", now().at_init},
            {"request_vedio", __atomic_load_n(&request_vedio, __ATOMIC_SEQ_CST)},
            {"slots", slots}};
}

void want_video(int value) {
    __atomic_store_n(&request_vedio, value, __ATOMIC_SEQ_CST);
}

void set_slot(int slot, bool present) {
    for (const SlotRow &row : kRealSlots) {
        if (row.slot == slot) return put_function(slot, present ? row.function : nullptr);
    }
    throw BadRequest{"a slot is 0, 7 or 14"};
}

void give_null_table(bool null_table) {
    const std::lock_guard guard(lock);
    now().null_table = null_table;
}

}  // namespace desk

DESK_EXPORT mipc_api_table *vq_ipca_init(const char *uuid, const char *interface_name,
                                         const device_callbacks *callbacks) {
    desk::set_callbacks(callbacks);
    {
        const std::lock_guard guard(lock);
        now().uuid = uuid == nullptr ? "" : uuid;
        now().interface_name = interface_name == nullptr ? "" : interface_name;
        now().init_count++;
        if (!now().interface_up) desk::start_interface();
        now().interface_up = true;
    }
    json replies;
    desk::quiet_thread([&replies] { replies = desk::apply_orders("DESK_SDK_AT_INIT"); }).join();
    const std::lock_guard guard(lock);
    now().at_init = replies;
    return now().null_table ? nullptr : &table;
}
