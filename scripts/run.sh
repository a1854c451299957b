#!/usr/bin/env bash
# Sets up, builds and starts the main program. Until the desktop window
# exists that is the operations console, which reads JSON requests on stdin.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
exec build/bin/tamo-ops "$@"
