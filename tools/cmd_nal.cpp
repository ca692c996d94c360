// quorvane nal: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdNal(int, char**) { return cli::failWith(cli::kFailed, "nal", "not available in this build yet"); }
