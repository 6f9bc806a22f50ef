#include "tests/support/mqtt_peer.h"

#include <signal.h>

#include <sstream>
#include <stdexcept>

namespace corvanis::monitoring_modules::test_support {

namespace {

std::string from_hex(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace

mqtt_peer::mqtt_peer(const mosquitto_broker& broker, std::string client_id)
    : broker_(broker), client_id_(std::move(client_id)) {}

mqtt_peer::~mqtt_peer() {
    for (const pid_t pid : subscribers_) {
        ::kill(pid, SIGTERM);
        wait_for_exit(pid, 5000);
    }
}

std::vector<std::string> mqtt_peer::command(std::vector<std::string> argv,
                                            const std::string& client_id) const {
    argv.insert(argv.end(), {"-h", broker_.host(), "-p", std::to_string(broker_.port())});
    if (!broker_.options().users.empty()) {
        argv.insert(argv.end(), {"-u", broker_.options().users.front().first, "-P",
                                 broker_.options().users.front().second});
    }
    if (broker_.uses_tls()) {
        const auto& tls = broker_.tls();
        argv.insert(argv.end(), {"--cafile", tls.ca_certificate_file().string(), "--cert",
                                 tls.client_certificate_file().string(), "--key",
                                 tls.client_key_file().string()});
    }
    if (!client_id_.empty()) argv.insert(argv.end(), {"-i", client_id});
    return argv;
}

void mqtt_peer::publish(const std::string& topic, const std::string& payload, int qos,
                        bool retained) {
    auto argv = command({"mosquitto_pub", "-t", topic, "-q", std::to_string(qos)}, client_id_);
    if (payload.empty()) {
        argv.push_back("-n");
    } else {
        argv.insert(argv.end(), {"-m", payload});
    }
    if (retained) argv.push_back("-r");
    run(argv, dir_.path() / "publish.log");
}

void mqtt_peer::subscribe(const std::string& filter, int qos) {
    const auto n = std::to_string(outputs_.size());
    const auto output = dir_.path() / ("subscriber" + n + ".out");
    // Line-buffered, so that its acknowledgement and messages reach the file as they happen.
    subscribers_.push_back(
        spawn(command({"stdbuf", "-oL", find_program("mosquitto_sub"), "-t", filter, "-q",
                       std::to_string(qos), "-d", "-F", "MSG\\t%t\\t%q\\t%x"},
                      client_id_ + "-sub" + n),
              output));
    outputs_.push_back(output);
    const auto acknowledged = [&] {
        return read_text(output).find("received SUBACK") != std::string::npos;
    };
    if (!eventually(acknowledged, std::chrono::seconds(5))) {
        throw std::runtime_error("mosquitto_sub did not subscribe: " + read_text(output));
    }
}

std::vector<peer_message> mqtt_peer::received() const {
    std::vector<peer_message> messages;
    for (const auto& output : outputs_) {
        std::stringstream in(read_text(output));
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("MSG\t", 0) != 0) continue;
            // Topic, QoS and the payload in hex, separated by tabs.
            std::stringstream fields(line.substr(4));
            peer_message m;
            std::string hex;
            std::getline(fields, m.topic, '\t');
            fields >> m.qos >> hex;
            m.payload = from_hex(hex);
            messages.push_back(std::move(m));
        }
    }
    return messages;
}

std::vector<peer_message> mqtt_peer::wait_for_messages(std::size_t count,
                                                       std::chrono::milliseconds timeout) {
    eventually([&] { return received().size() >= count; }, timeout);
    return received();
}

}  // namespace corvanis::monitoring_modules::test_support
