// Drives the built library the way a host does: dlopen, the ten C functions and
// the message callback, nothing else.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "module/mqtt_module.h"
#include "tavo.pb.h"

namespace wire = corvanis::tavo::wire;

namespace {

// clang-format off
#define MQTT_MODULE_EXPORTS(X)                                                          \
    X(GetApiLevel) X(InitializeModule) X(CleanupModule) X(GetModuleInformation)         \
    X(GetModuleInformationSync) X(CreateSensorInstance) X(ExecuteSensorScan)            \
    X(DestroySensorInstance) X(ExecuteMetaScan) X(ExecuteCheck)
// clang-format on

// Members named after the exports hide the header's declarations, so every call in
// the tests goes through the pointer dlsym returned.
class module_exports : public ::testing::Test {
  protected:
    void SetUp() override {
        handle = dlopen(MQTT_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
#define RESOLVE(name)                                                 \
    name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
    ASSERT_NE(name, nullptr) << #name;
        MQTT_MODULE_EXPORTS(RESOLVE)
#undef RESOLVE
    }
    void TearDown() override {
        if (handle) {
            CleanupModule();
            dlclose(handle);
        }
    }

    static void callback(uint64_t context, const void* bytes, uint32_t size) {
        auto* self = reinterpret_cast<module_exports*>(context);
        wire::ModuleMessage m;
        ASSERT_TRUE(m.ParseFromArray(bytes, static_cast<int>(size)));
        std::lock_guard lock(self->mutex);
        self->messages.push_back(std::move(m));
    }
    int init() {
        return InitializeModule(reinterpret_cast<uint64_t>(this), &callback);
    }
    // Asks for every log line, then forgets what came so far.
    void trace_everything() {
        wire::SettingsBlock block;
        block.set_log_threshold(7);
        const auto bytes = block.SerializeAsString();
        ASSERT_EQ(ExecuteMetaScan(0, 2, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
        clear();
    }
    void clear() {
        std::lock_guard lock(mutex);
        messages.clear();
    }
    std::vector<std::string> log_texts() {
        std::lock_guard lock(mutex);
        std::vector<std::string> out;
        for (const auto& m : messages)
            if (m.has_log()) out.push_back(m.log().line().text());
        return out;
    }

    void* handle = nullptr;
#define DECLARE(name) decltype(&::name) name = nullptr;
    MQTT_MODULE_EXPORTS(DECLARE)
#undef DECLARE
    std::mutex mutex;
    std::vector<wire::ModuleMessage> messages;  // guarded by mutex
};

TEST_F(module_exports, answers_before_initialisation_and_after_cleanup_and_initialises_once) {
    EXPECT_EQ(GetApiLevel(), 6);
    for (const char* round : {"before initialisation", "after cleanup"}) {
        SCOPED_TRACE(round);
        EXPECT_EQ(ExecuteSensorScan(1), 3);
        EXPECT_EQ(CreateSensorInstance(1, nullptr, 0), 3);
        EXPECT_EQ(DestroySensorInstance(1), 3);
        EXPECT_EQ(ExecuteMetaScan(1, 0, nullptr, 0), 3);
        EXPECT_EQ(ExecuteCheck(1, nullptr, 0), 3);
        uint32_t size = 0;
        EXPECT_EQ(GetModuleInformationSync(nullptr, nullptr, true), 1);
        EXPECT_EQ(GetModuleInformationSync(nullptr, &size, true), 2);
        GetModuleInformation(true);
        EXPECT_EQ(CleanupModule(), 0);
        EXPECT_TRUE(messages.empty());

        ASSERT_EQ(init(), 0);
        trace_everything();
        EXPECT_EQ(init(), 1);
        EXPECT_EQ(log_texts(), std::vector<std::string>{
                                   "InitializeModule called on already initialized module."});
        EXPECT_EQ(GetModuleInformationSync(nullptr, &size, false), 0);
        EXPECT_EQ(CleanupModule(), 0);
        clear();
    }
}

// The host asks by size first and falls back to the callback; both give the same document.
TEST_F(module_exports, module_information_by_size_protocol_and_through_the_callback) {
    ASSERT_EQ(init(), 0);
    trace_everything();
    uint32_t size = 0;
    ASSERT_EQ(GetModuleInformationSync(nullptr, &size, false), 0);
    std::vector<char> buffer(size + 1, 'x');
    uint32_t room = size - 1;
    EXPECT_EQ(GetModuleInformationSync(buffer.data(), &room, false), 1);
    EXPECT_EQ(room, size);
    EXPECT_EQ(buffer[0], 'x');  // nothing copied
    room = size + 1;
    ASSERT_EQ(GetModuleInformationSync(buffer.data(), &room, false), 0);
    EXPECT_EQ(room, size);
    wire::ModuleMessage sync;
    ASSERT_TRUE(sync.ParseFromArray(buffer.data(), static_cast<int>(room)));
    EXPECT_FALSE(sync.module_information().load_languages());

    for (const bool flag : {true, false}) {
        clear();
        GetModuleInformation(flag);
        EXPECT_EQ(log_texts(), (std::vector<std::string>{
                                   "### Begin get_module_information ###",
                                   std::string("Do loadLanguages: ") + (flag ? "Yes" : "No"),
                                   "### End get_module_information ###"}));
        std::lock_guard lock(mutex);
        ASSERT_EQ(messages.size(), 4u);
        EXPECT_EQ(messages[2].module_information().load_languages(), flag);
        EXPECT_EQ(messages[2].module_information().description(),
                  sync.module_information().description());
    }
}

TEST_F(module_exports, bad_input_gives_result_codes_never_a_crash) {
    ASSERT_EQ(init(), 0);
    trace_everything();
    const char garbage[] = {'\x0a', '\x7f', 'a'};
    EXPECT_EQ(CreateSensorInstance(1, garbage, sizeof garbage), 2);
    EXPECT_EQ(CreateSensorInstance(1, nullptr, 5), 2);
    EXPECT_EQ(ExecuteCheck(1, garbage, sizeof garbage), 2);
    EXPECT_EQ(ExecuteMetaScan(1, 0, garbage, sizeof garbage), 2);
    // The exception skipped the end line and was reported instead.
    const auto texts = log_texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[0], "### Begin create_sensor_instance ###");
    EXPECT_TRUE(texts[1].starts_with(
        "CreateSensorInstance failed: Could not deserialize message type SettingsBlock"));
}

}  // namespace
