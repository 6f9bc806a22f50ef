#include "host/cli.h"

int main(int argc, char** argv) {
    return corvanis::monitoring_modules::host::run_cli(argc, argv);
}
