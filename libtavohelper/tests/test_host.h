#pragma once
// A minimal in-process host for framework tests: collects every module message.

#include <mutex>
#include <vector>

#include "libtavohelper/module/module_instance.h"
#include "tavo.pb.h"

namespace test_host {

namespace wire = corvanis::tavo::wire;

struct inbox {
    std::mutex mutex;
    std::vector<wire::ModuleMessage> messages;

    static void callback(std::uint64_t context, const void* bytes, std::uint32_t size) {
        auto* self = reinterpret_cast<inbox*>(context);
        wire::ModuleMessage m;
        if (m.ParseFromArray(bytes, static_cast<int>(size))) {
            std::lock_guard lock(self->mutex);
            self->messages.push_back(std::move(m));
        }
    }
    std::uint64_t context() { return reinterpret_cast<std::uint64_t>(this); }

    template <class Pred>
    std::vector<wire::ModuleMessage> take(Pred pred) {
        std::lock_guard lock(mutex);
        std::vector<wire::ModuleMessage> out;
        for (auto& m : messages)
            if (pred(m)) out.push_back(m);
        return out;
    }
    std::vector<wire::ScanResult> scan_results() {
        std::vector<wire::ScanResult> out;
        for (auto& m : take([](auto& m) { return m.has_scan_result(); }))
            out.push_back(m.scan_result());
        return out;
    }
    std::vector<wire::Log> logs() {
        std::vector<wire::Log> out;
        for (auto& m : take([](auto& m) { return m.has_log(); })) out.push_back(m.log());
        return out;
    }
};

}  // namespace test_host
