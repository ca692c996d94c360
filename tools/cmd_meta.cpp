// quorvane meta: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdMeta(int, char**) { return cli::failWith(cli::kFailed, "meta", "not available in this build yet"); }
