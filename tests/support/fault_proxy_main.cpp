// fault_proxy LISTEN_PORT TARGET_HOST TARGET_PORT: the relay for scripts; see fault_proxy.h.
#include "tests/support/fault_proxy.h"

int main(int argc, char** argv) {
    return corvanis::monitoring_modules::test_support::run_fault_proxy_cli(argc, argv);
}
