// quorvane params: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdParams(int, char**) { return cli::failWith(cli::kFailed, "params", "not available in this build yet"); }
