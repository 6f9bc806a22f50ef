#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace corvanis::monitoring_modules::test_support {

// A TCP relay on 127.0.0.1 between MQTT clients and a broker that injects the faults a real
// broker cannot produce. It follows both directions packet by packet (MQTT fixed headers), so it
// can cut a connection the moment a given packet type is sent, or refuse what the broker granted.
// Every mode change applies at once to open connections too. The destructor closes everything and
// joins its thread.
class fault_proxy {
  public:
    // Listens on listen_port (0: a free one). Throws std::runtime_error when it cannot listen.
    fault_proxy(std::string target_host, int target_port, int listen_port = 0);
    ~fault_proxy();
    fault_proxy(const fault_proxy&) = delete;
    fault_proxy& operator=(const fault_proxy&) = delete;

    int port() const;

    // Forwards everything unchanged; ends every cut-on, refuse and silent mode.
    void pass();
    // Closes every open connection now; new ones are served in the current mode.
    void cut();
    // Closes a connection instead of forwarding its SUBSCRIBE packet: only the next one seen
    // on any connection, or every one until pass().
    void cut_on_subscribe(bool every);
    // Every SUBACK reaches the client with its return codes set to 0x80 (refused).
    void refuse_subscriptions();
    // New connections are accepted, then neither answered nor forwarded.
    void silent();

    // Connections accepted so far, silent ones included.
    std::size_t accepted() const;
    // Connections closed because of a cut-on rule.
    std::size_t cut_on_packet_count() const;

    struct state;

  private:
    std::unique_ptr<state> state_;
};

// Runs the command-line contract on the given streams: prints "ready <port>", then one "ok" per
// command line ("pass", "cut", "cut-on subscribe", "cut-on subscribe all", "refuse subscribe",
// "silent"), "error <text>" for anything else; returns at end of input.
int run_fault_proxy_cli(int argc, char** argv);

}  // namespace corvanis::monitoring_modules::test_support
