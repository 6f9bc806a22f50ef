#pragma once

namespace corvanis::monitoring_modules::host {

// The whole program behind main(): parses the command line, runs the subcommand and
// answers the exit code.
int run_cli(int argc, char** argv);

}  // namespace corvanis::monitoring_modules::host
