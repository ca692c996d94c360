// quorvane config: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdConfig(int, char**) { return cli::failWith(cli::kFailed, "config", "not available in this build yet"); }
