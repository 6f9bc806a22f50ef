/* Compiled as C99: the export header must not need a C++ compiler. */
#include "module/mqtt_module.h"

static void on_message(uint64_t context, const void* bytes, uint32_t size) {
    (void)context;
    (void)bytes;
    (void)size;
}

int mqtt_module_c_header_check(void);
int mqtt_module_c_header_check(void) {
    mqtt_module_callback callback = on_message;
    uint32_t size = 0;
    int (*sync)(void*, uint32_t*, bool) = GetModuleInformationSync;
    int (*create)(int, const void*, uint32_t) = CreateSensorInstance;
    (void)sync;
    (void)create;
    (void)size;
    return callback != 0;
}
