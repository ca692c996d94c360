// quorvane inspect: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdInspect(int, char**) { return cli::failWith(cli::kFailed, "inspect", "not available in this build yet"); }
