// quorvane hvcc: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdHvcc(int, char**) { return cli::failWith(cli::kFailed, "hvcc", "not available in this build yet"); }
