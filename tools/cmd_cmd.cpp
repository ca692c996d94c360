// quorvane cmd: placeholder until its capability lands.
#include "cli.h"
#include "commands.h"

int cmdCmd(int, char**) { return cli::failWith(cli::kFailed, "cmd", "not available in this build yet"); }
