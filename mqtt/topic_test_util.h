#pragma once

#include <pthread.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <stdexcept>

namespace corvanis::monitoring_modules::mqtt::testing {

// Runs `body` on a thread with a stack of `bytes`, as small as a host's worker threads may
// have, and rethrows what it threw: code that recurses per level or character fails here.
inline void run_on_small_stack(std::size_t bytes, const std::function<void()>& body) {
    struct call {
        const std::function<void()>* body;
        std::exception_ptr failure;
    } state{&body, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, bytes);
    pthread_t thread;
    const int created = pthread_create(
        &thread, &attributes,
        [](void* p) -> void* {
            auto* c = static_cast<call*>(p);
            try {
                (*c->body)();
            } catch (...) {
                c->failure = std::current_exception();
            }
            return nullptr;
        },
        &state);
    pthread_attr_destroy(&attributes);
    if (created != 0) throw std::runtime_error("pthread_create failed");
    pthread_join(thread, nullptr);
    if (state.failure) std::rethrow_exception(state.failure);
}

}  // namespace corvanis::monitoring_modules::mqtt::testing
