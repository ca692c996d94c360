// quorvane adts: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdAdts(int, char**) { return cli::failWith(cli::kFailed, "adts", "not available in this build yet"); }
