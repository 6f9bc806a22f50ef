#include "module/module_instance_adapter.h"

#include <stdexcept>

#include "libtavohelper/messaging/messages.h"
#include "libtavohelper/module/logs.h"
#include "libtavohelper/settings/sensor_data_wrapper.h"

namespace corvanis::monitoring_modules::mqtt {

namespace tavo = libtavohelper;
using tavo::settings::sensor_data_wrapper;

namespace {

constexpr int trace = liblog::to_int(liblog::severity::debug);

// Writes the begin line now and the end line only if the call returns normally.
class traced {
  public:
    traced(const module_instance_adapter& adapter, const char* name)
        : adapter_(adapter), name_(name) {
        adapter_.log(trace, std::string("### Begin ") + name_ + " ###");
    }
    template <class R>
    R done(R result) {
        adapter_.log(trace, std::string("### End ") + name_ + " ###");
        return result;
    }
    void done() { adapter_.log(trace, std::string("### End ") + name_ + " ###"); }

  private:
    const module_instance_adapter& adapter_;
    const char* name_;
};

}  // namespace

module_instance_adapter::module_instance_adapter(
    std::unique_ptr<tavo::module::module_instance> module)
    : module_(std::move(module)) {
    if (!module_) {
        throw std::invalid_argument("module_instance_adapter: module_instance must not be null");
    }
    tavo::module::register_runtime_log(module_->container());
    tavo::module::register_sensor_log(module_->container());
}

void module_instance_adapter::log(int severity, const std::string& text) const {
    if (auto runtime = module_->container()->find_instance<liblog::log_interface>()) {
        runtime->log(static_cast<liblog::severity>(severity), text);
    }
}

void module_instance_adapter::get_module_information(bool load_languages) {
    traced t(*this, "get_module_information");
    log(trace, std::string("Do loadLanguages: ") + (load_languages ? "Yes" : "No"));
    const tavo::messaging::module_information_message message(module_->get_module_information(),
                                                              load_languages);
    module_->container()->get_or_create<tavo::messaging::message_service_interface>()->send(
        message);
    t.done();
}

std::vector<char> module_instance_adapter::get_module_information_as_bytes(bool load_languages) {
    traced t(*this, "get_module_information_as_bytes");
    return t.done(tavo::messaging::module_information_message(module_->get_module_information(),
                                                              load_languages)
                      .serialize());
}

int module_instance_adapter::create_sensor_instance(int id, const void* data, std::uint32_t size) {
    traced t(*this, "create_sensor_instance");
    const sensor_data_wrapper settings(data, size);
    log(trace, settings.to_json());  // secrets and private keys come out masked
    return t.done(module_->dispatcher()->create_sensor_instance(id, settings));
}

int module_instance_adapter::execute_sensor_scan(int id) {
    traced t(*this, "execute_sensor_scan");
    return t.done(module_->dispatcher()->execute_sensor_scan(id));
}

int module_instance_adapter::destroy_sensor_instance(int id) {
    traced t(*this, "destroy_sensor_instance");
    return t.done(module_->dispatcher()->destroy_sensor_instance(id));
}

int module_instance_adapter::execute_meta_scan(int id, std::uint32_t selector, const void* data,
                                               std::uint32_t size) {
    traced t(*this, "execute_meta_scan");
    const sensor_data_wrapper settings(data, size);
    log(trace, settings.to_json());
    return t.done(module_->dispatcher()->execute_meta_scan(id, selector, settings));
}

int module_instance_adapter::execute_check(int id, const void* data, std::uint32_t size) {
    traced t(*this, "execute_check");
    const sensor_data_wrapper settings(data, size);
    log(trace, settings.to_json());
    return t.done(module_->dispatcher()->execute_check(id, settings));
}

}  // namespace corvanis::monitoring_modules::mqtt
