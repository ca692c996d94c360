// quorvane stamp: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdStamp(int, char**) { return cli::failWith(cli::kFailed, "stamp", "not available in this build yet"); }
