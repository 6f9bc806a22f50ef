/* Compiled as C99: the export header must not need a C++ compiler, and the
 * callback type and the exports keep their C signatures. */
#include "module/mqtt_module.h"

static void on_message(uint64_t context, const void* bytes, uint32_t size) {
    (void)context;
    (void)bytes;
    (void)size;
}

const mqtt_module_callback mqtt_module_c_callback = on_message;
int (*const mqtt_module_c_sync)(void*, uint32_t*, bool) = GetModuleInformationSync;
int (*const mqtt_module_c_create)(int, const void*, uint32_t) = CreateSensorInstance;
