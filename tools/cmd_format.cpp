// quorvane format: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdFormat(int, char**) { return cli::failWith(cli::kFailed, "format", "not available in this build yet"); }
