#!/usr/bin/env bash
# The refined view and the save from the view, through the test container:
# snapshots decoded and measured, and transcripts of play around a save.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/view-refined
rm -rf "$work"
mkdir -p "$work"
exec python3 "$source_dir/tests/scripts/view_refined_checks.py" "$tool" "$work"
