// quorvane tc: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdTc(int, char**) { return cli::failWith(cli::kFailed, "tc", "not available in this build yet"); }
