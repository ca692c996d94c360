// quorvane reframe: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdReframe(int, char**) { return cli::failWith(cli::kFailed, "reframe", "not available in this build yet"); }
