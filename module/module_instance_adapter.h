#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libtavohelper/module/module_instance.h"

namespace corvanis::monitoring_modules::mqtt {

// Stands between the exports and the module object: writes the begin/end trace
// lines around each call and hands the work to the dispatcher or the message
// service. Exceptions pass through to the export; the end line is then not written.
class module_instance_adapter {
  public:
    // Throws std::invalid_argument for an empty module; registers the two logs.
    explicit module_instance_adapter(
        std::unique_ptr<libtavohelper::module::module_instance> module);

    void get_module_information(bool load_languages);
    std::vector<char> get_module_information_as_bytes(bool load_languages);
    int create_sensor_instance(int id, const void* data, std::uint32_t size);
    int execute_sensor_scan(int id);
    int destroy_sensor_instance(int id);
    int execute_meta_scan(int id, std::uint32_t selector, const void* data, std::uint32_t size);
    int execute_check(int id, const void* data, std::uint32_t size);

    // The module's logging routine: the runtime log, if there is one.
    void log(int severity, const std::string& text) const;

  private:
    std::unique_ptr<libtavohelper::module::module_instance> module_;
};

}  // namespace corvanis::monitoring_modules::mqtt
