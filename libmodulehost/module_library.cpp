#include "libmodulehost/module_library.h"

#include <dlfcn.h>

namespace corvanis::monitoring_modules::modulehost {

namespace protocol = libtavohelper::protocol;

module_library::module_library(const std::filesystem::path& path, receiver receive)
    : receiver_(std::move(receive)) {
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw load_error(std::string("cannot load the module: ") + dlerror());
    const auto resolve = [&](auto& function, const char* name) {
        function =
            reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(handle_, name));
        if (function == nullptr) {
            throw load_error("cannot load the module: " + path.string() + " does not export " +
                             name);
        }
    };
    resolve(get_api_level_, "GetApiLevel");
    resolve(initialize_, "InitializeModule");
    resolve(cleanup_, "CleanupModule");
    resolve(get_information_, "GetModuleInformation");
    resolve(get_information_sync_, "GetModuleInformationSync");
    resolve(create_, "CreateSensorInstance");
    resolve(scan_, "ExecuteSensorScan");
    resolve(destroy_, "DestroySensorInstance");
    resolve(meta_scan_, "ExecuteMetaScan");
    resolve(check_, "ExecuteCheck");
    api_level_ = get_api_level_();
    if (api_level_ != protocol::api_level) {
        throw load_error("cannot use the module: it speaks API level " +
                         std::to_string(api_level_) + ", this host speaks " +
                         std::to_string(protocol::api_level));
    }
    if (const int code =
            initialize_(reinterpret_cast<std::uint64_t>(this), &module_library::on_message);
        code != protocol::result_ok) {
        throw load_error("the module refused to initialise (InitializeModule answered " +
                         std::to_string(code) + ")");
    }
}

module_library::~module_library() {
    cleanup_();
}

void module_library::on_message(std::uint64_t context, const void* bytes,
                                std::uint32_t size) noexcept {
    try {
        reinterpret_cast<module_library*>(context)->receiver_(bytes, size);
    } catch (...) {
        // An exception must not unwind into the module's thread; the message is lost.
    }
}

namespace {

// Calls `call` with the block's bytes.
template <class Call>
int with_bytes(const wire::SettingsBlock& block, Call&& call) {
    const auto bytes = block.SerializeAsString();
    return call(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

}  // namespace

std::string module_library::module_information_now(bool load_languages) {
    std::uint32_t size = 0;
    if (get_information_sync_(nullptr, &size, load_languages) != protocol::result_ok) return {};
    std::string bytes(size, '\0');
    if (get_information_sync_(bytes.data(), &size, load_languages) != protocol::result_ok) {
        return {};
    }
    bytes.resize(size);
    return bytes;
}

void module_library::request_module_information(bool load_languages) {
    get_information_(load_languages);
}

int module_library::create(int id, const wire::SettingsBlock& block) {
    return with_bytes(block,
                      [&](const void* data, std::uint32_t n) { return create_(id, data, n); });
}

int module_library::scan(int id) {
    return scan_(id);
}

int module_library::destroy(int id) {
    return destroy_(id);
}

int module_library::meta_scan(int id, std::uint32_t selector, const wire::SettingsBlock& block) {
    return with_bytes(block, [&](const void* data, std::uint32_t n) {
        return meta_scan_(id, selector, data, n);
    });
}

int module_library::check(int id, const wire::SettingsBlock& block) {
    return with_bytes(block,
                      [&](const void* data, std::uint32_t n) { return check_(id, data, n); });
}

}  // namespace corvanis::monitoring_modules::modulehost
