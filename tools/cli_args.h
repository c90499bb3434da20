// The command line's grammar: subcommands, options, defaults and help texts (CLI11).
#ifndef MUSKEIP_TOOLS_CLI_ARGS_H
#define MUSKEIP_TOOLS_CLI_ARGS_H

// Parses the arguments and runs the chosen subcommand. Returns the exit status: 0 on success
// and for --help and --version, 1 when the work failed, 2 for a usage error.
int runCommandLine(int argc, char** argv);

#endif
