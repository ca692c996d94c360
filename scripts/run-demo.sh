#!/usr/bin/env bash
# The main job shown by `make run`: the quorvane command on the bundled samples.
set -euo pipefail
tool=${1:?usage: run-demo.sh path/to/quorvane}
here=$(cd "$(dirname "$0")/.." && pwd)
samples="$here/samples"
step() { echo; echo "\$ quorvane $*"; "$tool" "$@"; }
step --help
