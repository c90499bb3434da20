// muskeip: the command line of the FLIC library (see `muskeip --help`).
#include "cli_args.h"

int main(int argc, char** argv) {
    return runCommandLine(argc, argv);
}
