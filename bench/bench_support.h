#pragma once
// Pieces the broker benchmarks share: the paced publisher feed and a module-like container.

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "libstringutils/random_string_generator.h"
#include "libtavohelper/module/logs.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_paho.h"

namespace corvanis::monitoring_modules::bench {

// Writes count lines of `size` characters to stdout, rate per second, in 1 ms batches; meant
// to feed `mosquitto_pub -l` from a child process so the publisher's CPU is not ours.
inline int pace(long rate, long count, int size) {
    const std::string line = std::string(static_cast<std::size_t>(size), 'x') + "\n";
    const long per_tick = std::max(1L, rate / 1000);
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (long sent = 0; sent < count;) {
        for (long i = 0; i < per_tick && sent < count; ++i, ++sent) {
            std::fwrite(line.data(), 1, line.size(), stdout);
        }
        std::fflush(stdout);
        next.tv_nsec += 1000000;
        if (next.tv_nsec >= 1000000000) {
            next.tv_nsec -= 1000000000;
            ++next.tv_sec;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    return 0;
}

// A host that takes every message and keeps none.
struct null_host : libtavohelper::messaging::message_service_interface {
    using message_service_interface::send;
    void send(const std::vector<char>&) override {}
};

// The container as the module object and its adapter build it, over a null host.
inline std::shared_ptr<libtavohelper::module::service_container> module_container() {
    namespace tavo = libtavohelper;
    auto container = std::make_shared<tavo::module::service_container>();
    container->register_factory<tavo::messaging::message_service_interface>(std::function(
        [] { return std::unique_ptr<tavo::messaging::message_service_interface>(new null_host); }));
    container->register_factory<libstringutils::random_string_generator_interface>(
        std::function<std::unique_ptr<libstringutils::random_string_generator_interface>()>(
            &libstringutils::make_random_string_generator));
    container->register_factory<mqtt::mqtt_client_interface, mqtt::mqtt_client_settings>(
        mqtt::make_client_factory(std::weak_ptr<tavo::module::service_container>(container)));
    tavo::module::register_runtime_log(container);
    tavo::module::register_sensor_log(container);
    return container;
}

}  // namespace corvanis::monitoring_modules::bench
