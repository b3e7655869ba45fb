#include "alarm_sink.h"

#include <cstdio>

#include "../exports.h"
#include "../shared.h"
#include "utils/text.h"

int SendAlarmData(const char *sender, int index, const char *name, int status) {
    mipc_api_table *table = load_shared(mipc_api);
    if (table == nullptr) {
        std::printf("%s mipc_api == NULL\n", sender);
        return -1;
    }
    if (table->SendAlarmData == nullptr) {
        std::printf("%s mipc_api->SendAlarmData == NULL\n", sender);
        return -2;
    }
    alarm_record record{};
    record.index = index;
    copy_text(record.name, name);
    record.status = status;
    std::printf("%s SendAlarmData!! index:%d, name:%s, status: %d \n", sender, index, record.name, status);
    table->SendAlarmData(&record, table);
    std::printf("%s end SendAlarmData\n", sender);
    return 0;
}
