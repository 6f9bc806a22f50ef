#include <malloc.h>

#include "host/cli.h"

int main(int argc, char** argv) {
    // Scans run on a pool of workers; an arena per thread would keep each worker's freed
    // memory apart and grow the process by megabytes for nothing with thousands of sensors.
    // Two arenas serve workers that mostly wait on the broker.
    mallopt(M_ARENA_MAX, 2);
    return corvanis::monitoring_modules::host::run_cli(argc, argv);
}
