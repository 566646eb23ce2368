#!/usr/bin/env bash
# The main job: install what is missing, build, and run the command on the bundled sample.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$root/build"
"$root/build/bin/kiv-version"
