// Drives the built library the way a host does: dlopen, the ten C functions and
// the message callback, nothing else.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <vector>

#include "module/mqtt_module.h"
#include "tavo.pb.h"

namespace wire = corvanis::tavo::wire;

namespace {

struct api {
    void* handle = nullptr;
    decltype(&GetApiLevel) get_api_level;
    decltype(&InitializeModule) initialize;
    decltype(&CleanupModule) cleanup;
    decltype(&GetModuleInformation) get_info;
    decltype(&GetModuleInformationSync) get_info_sync;
    decltype(&CreateSensorInstance) create;
    decltype(&ExecuteSensorScan) scan;
    decltype(&DestroySensorInstance) destroy;
    decltype(&ExecuteMetaScan) meta_scan;
    decltype(&ExecuteCheck) check;

    template <class F>
    void resolve(F& f, const char* name) {
        f = reinterpret_cast<F>(dlsym(handle, name));
        ASSERT_NE(f, nullptr) << name;
    }
};

struct inbox {
    std::mutex mutex;
    std::vector<wire::ModuleMessage> messages;
    static void callback(uint64_t context, const void* bytes, uint32_t size) {
        auto* self = reinterpret_cast<inbox*>(context);
        wire::ModuleMessage m;
        ASSERT_TRUE(m.ParseFromArray(bytes, static_cast<int>(size)));
        std::lock_guard lock(self->mutex);
        self->messages.push_back(std::move(m));
    }
    std::vector<std::string> log_texts() {
        std::lock_guard lock(mutex);
        std::vector<std::string> out;
        for (const auto& m : messages)
            if (m.has_log()) out.push_back(m.log().line().text());
        return out;
    }
    void clear() {
        std::lock_guard lock(mutex);
        messages.clear();
    }
};

class module_exports : public ::testing::Test {
  protected:
    void SetUp() override {
        m.handle = dlopen(MQTT_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m.handle, nullptr) << dlerror();
        m.resolve(m.get_api_level, "GetApiLevel");
        m.resolve(m.initialize, "InitializeModule");
        m.resolve(m.cleanup, "CleanupModule");
        m.resolve(m.get_info, "GetModuleInformation");
        m.resolve(m.get_info_sync, "GetModuleInformationSync");
        m.resolve(m.create, "CreateSensorInstance");
        m.resolve(m.scan, "ExecuteSensorScan");
        m.resolve(m.destroy, "DestroySensorInstance");
        m.resolve(m.meta_scan, "ExecuteMetaScan");
        m.resolve(m.check, "ExecuteCheck");
    }
    void TearDown() override {
        if (m.handle) {
            m.cleanup();
            dlclose(m.handle);
        }
    }
    int init() { return m.initialize(reinterpret_cast<uint64_t>(&box), &inbox::callback); }
    void trace_everything() {
        wire::SettingsBlock block;
        block.set_log_threshold(7);
        const auto bytes = block.SerializeAsString();
        ASSERT_EQ(m.meta_scan(0, 2, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
        box.clear();
    }

    api m;
    inbox box;
};

TEST_F(module_exports, answers_before_initialisation) {
    EXPECT_EQ(m.get_api_level(), 6);
    EXPECT_EQ(m.scan(1), 3);
    EXPECT_EQ(m.create(1, nullptr, 0), 3);
    EXPECT_EQ(m.destroy(1), 3);
    EXPECT_EQ(m.meta_scan(1, 0, nullptr, 0), 3);
    EXPECT_EQ(m.check(1, nullptr, 0), 3);
    uint32_t size = 0;
    EXPECT_EQ(m.get_info_sync(nullptr, nullptr, true), 1);
    EXPECT_EQ(m.get_info_sync(nullptr, &size, true), 2);
    m.get_info(true);
    EXPECT_EQ(m.cleanup(), 0);
    EXPECT_EQ(m.cleanup(), 0);
    EXPECT_TRUE(box.messages.empty());
}

TEST_F(module_exports, initialises_once_and_again_after_cleanup) {
    ASSERT_EQ(init(), 0);
    trace_everything();
    EXPECT_EQ(init(), 1);
    EXPECT_EQ(box.log_texts(),
              std::vector<std::string>{"InitializeModule called on already initialized module."});
    EXPECT_EQ(m.get_api_level(), 6);
    EXPECT_EQ(m.cleanup(), 0);
    EXPECT_EQ(m.scan(1), 3);
    EXPECT_EQ(init(), 0);
    uint32_t size = 0;
    EXPECT_EQ(m.get_info_sync(nullptr, &size, false), 0);
}

TEST_F(module_exports, module_information_size_protocol) {
    ASSERT_EQ(init(), 0);
    uint32_t size = 0;
    ASSERT_EQ(m.get_info_sync(nullptr, &size, true), 0);
    ASSERT_GT(size, 0u);

    std::vector<char> buffer(size + 1, 'x');
    uint32_t small = size - 1;
    EXPECT_EQ(m.get_info_sync(buffer.data(), &small, true), 1);
    EXPECT_EQ(small, size);
    EXPECT_EQ(buffer[0], 'x');  // nothing copied

    uint32_t exact = size;
    EXPECT_EQ(m.get_info_sync(buffer.data(), &exact, true), 0);
    wire::ModuleMessage message;
    ASSERT_TRUE(message.ParseFromArray(buffer.data(), static_cast<int>(exact)));
    EXPECT_TRUE(message.module_information().load_languages());

    // The same document whatever the flag, and the same at every request.
    uint32_t again = size + 1;
    std::vector<char> second(size + 1);
    EXPECT_EQ(m.get_info_sync(second.data(), &again, false), 0);
    wire::ModuleMessage other;
    ASSERT_TRUE(other.ParseFromArray(second.data(), static_cast<int>(again)));
    EXPECT_FALSE(other.module_information().load_languages());
    EXPECT_EQ(other.module_information().description(), message.module_information().description());
}

TEST_F(module_exports, module_information_travels_through_the_callback_with_its_trace) {
    ASSERT_EQ(init(), 0);
    trace_everything();
    for (const bool flag : {true, false}) {
        box.clear();
        m.get_info(flag);
        EXPECT_EQ(box.log_texts(), (std::vector<std::string>{
                                       "### Begin get_module_information ###",
                                       std::string("Do loadLanguages: ") + (flag ? "Yes" : "No"),
                                       "### End get_module_information ###"}));
        std::lock_guard lock(box.mutex);
        ASSERT_EQ(box.messages.size(), 4u);
        EXPECT_TRUE(box.messages[2].has_module_information());
        EXPECT_EQ(box.messages[2].module_information().load_languages(), flag);
        EXPECT_NE(box.messages[2].module_information().description().find("\"Revision\":68"),
                  std::string::npos);
    }
}

TEST_F(module_exports, bad_input_gives_result_codes_never_a_crash) {
    ASSERT_EQ(init(), 0);
    trace_everything();
    const char garbage[] = {'\x0a', '\x7f', 'a'};
    EXPECT_EQ(m.create(1, garbage, sizeof garbage), 2);
    EXPECT_EQ(m.create(1, nullptr, 5), 2);
    EXPECT_EQ(m.check(1, garbage, sizeof garbage), 2);
    EXPECT_EQ(m.meta_scan(1, 0, garbage, sizeof garbage), 2);
    // The exception skipped the end line and was reported instead.
    const auto texts = box.log_texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[0], "### Begin create_sensor_instance ###");
    EXPECT_EQ(
        texts[1].rfind(
            "CreateSensorInstance failed: Could not deserialize message type SettingsBlock", 0),
        0u);

    wire::SettingsBlock block;
    block.set_kind("no_such_sensor");
    const auto bytes = block.SerializeAsString();
    EXPECT_EQ(m.create(1, bytes.data(), static_cast<uint32_t>(bytes.size())), 4);
    EXPECT_EQ(m.check(1, bytes.data(), static_cast<uint32_t>(bytes.size())), 4);
    EXPECT_EQ(m.scan(1), 6);
    EXPECT_EQ(m.destroy(1), 6);
    EXPECT_EQ(m.meta_scan(1, 99, bytes.data(), static_cast<uint32_t>(bytes.size())), 8);
}

}  // namespace
