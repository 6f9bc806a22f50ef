/* The module's C interface: the ten functions a host resolves after loading the
 * library. Valid C and C++. No function throws; each answers a result code:
 * 0 success, 1 initialisation or size failure, 2 exception inside the call,
 * 3 not initialised; sensor, check and meta-scan calls may also answer the
 * dispatcher's own codes (see docs/protocol.md). */
#ifndef MQTT_MODULE_H
#define MQTT_MODULE_H

#include <stdbool.h>
#include <stdint.h>

#if defined(MQTT_MODULE_BUILD)
#define MQTT_MODULE_API __attribute__((visibility("default")))
#else
#define MQTT_MODULE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Receives every message the module sends: one serialised ModuleMessage of
 * `size` bytes, valid only during the call. May be called from any thread. */
typedef void (*mqtt_module_callback)(uint64_t host_context, const void* bytes, uint32_t size);

MQTT_MODULE_API int GetApiLevel(void);
/* Not thread-safe with any other call. */
MQTT_MODULE_API int InitializeModule(uint64_t host_context, mqtt_module_callback callback);
/* Not thread-safe with any other call. Destroys every sensor and connection. */
MQTT_MODULE_API int CleanupModule(void);
/* Sends the module information message through the callback. */
MQTT_MODULE_API void GetModuleInformation(bool load_languages);
/* Size protocol: *size holds the buffer's capacity on entry and the message's
 * size on return; a null buffer asks for the size only. */
MQTT_MODULE_API int GetModuleInformationSync(void* buffer, uint32_t* size, bool load_languages);
MQTT_MODULE_API int CreateSensorInstance(int sensor_id, const void* data, uint32_t size);
MQTT_MODULE_API int ExecuteSensorScan(int sensor_id);
MQTT_MODULE_API int DestroySensorInstance(int sensor_id);
MQTT_MODULE_API int ExecuteMetaScan(int sensor_id, uint32_t selector, const void* data,
                                    uint32_t size);
MQTT_MODULE_API int ExecuteCheck(int check_id, const void* data, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* MQTT_MODULE_H */
