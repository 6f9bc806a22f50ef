#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "libtavohelper/protocol.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::modulehost {

namespace wire = tavo::wire;

// A module that cannot be loaded, resolved or initialised; what() says which step and why.
class load_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// One loaded and initialised module, reached only through its ten exports. Every call but
// construction and destruction may come from several threads at once.
class module_library {
  public:
    // Receives each serialised ModuleMessage, valid only during the call, on the calling thread
    // or one of the module's; it must be quick, must not throw and must not call the module.
    using receiver = std::function<void(const void* bytes, std::uint32_t size)>;

    // Loads the library, checks its API level and initialises it. Throws load_error.
    module_library(const std::filesystem::path& path, receiver receive);
    // Cleans the module up. The library stays mapped: its threads may still be ending.
    ~module_library();
    module_library(const module_library&) = delete;
    module_library& operator=(const module_library&) = delete;

    int api_level() const { return api_level_; }

    // The description document as a serialised ModuleMessage; empty when the module has none.
    std::string module_information_now(bool load_languages);
    // Asks the module to send its description document through the receiver.
    void request_module_information(bool load_languages);

    int create(int id, const wire::SettingsBlock& block);
    int scan(int id);
    int destroy(int id);
    int meta_scan(int id, std::uint32_t selector, const wire::SettingsBlock& block);
    int check(int id, const wire::SettingsBlock& block);

  private:
    static void on_message(std::uint64_t context, const void* bytes, std::uint32_t size) noexcept;

    receiver receiver_;
    void* handle_ = nullptr;
    int api_level_ = 0;
    libtavohelper::protocol::get_api_level_fn get_api_level_ = nullptr;
    libtavohelper::protocol::initialize_module_fn initialize_ = nullptr;
    libtavohelper::protocol::cleanup_module_fn cleanup_ = nullptr;
    libtavohelper::protocol::get_module_information_fn get_information_ = nullptr;
    libtavohelper::protocol::get_module_information_sync_fn get_information_sync_ = nullptr;
    libtavohelper::protocol::create_sensor_instance_fn create_ = nullptr;
    libtavohelper::protocol::execute_sensor_scan_fn scan_ = nullptr;
    libtavohelper::protocol::destroy_sensor_instance_fn destroy_ = nullptr;
    libtavohelper::protocol::execute_meta_scan_fn meta_scan_ = nullptr;
    libtavohelper::protocol::execute_check_fn check_ = nullptr;
};

}  // namespace corvanis::monitoring_modules::modulehost
