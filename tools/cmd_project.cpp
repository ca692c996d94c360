// quorvane project: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdProject(int, char**) { return cli::failWith(cli::kFailed, "project", "not available in this build yet"); }
