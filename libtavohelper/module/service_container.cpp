#include "libtavohelper/module/service_container.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace corvanis::monitoring_modules::libtavohelper::module {

std::string type_name(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return status == 0 && demangled ? std::string(demangled.get()) : std::string(type.name());
}

}  // namespace corvanis::monitoring_modules::libtavohelper::module

namespace corvanis::monitoring_modules::libtavohelper::module {

// Defined here so that the framework library holds the one copy of the type information.
factory_wrapper_base::~factory_wrapper_base() = default;
instance_wrapper_base::~instance_wrapper_base() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::module
