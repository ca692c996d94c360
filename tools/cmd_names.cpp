// quorvane names: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdNames(int, char**) { return cli::failWith(cli::kFailed, "names", "not available in this build yet"); }
