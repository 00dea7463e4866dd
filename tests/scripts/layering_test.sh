#!/usr/bin/env bash
# Includes point down, never up: each folder may include only itself and the
# layers beneath it. A new upward include fails here, naming the file and
# the line, before it can grow into a cycle.
# Arguments: the tempvox binary (unused), the source tree, a scratch folder.
set -euo pipefail
source_dir=$2

# Folder: the project folders its sources may include (itself always).
declare -A allowed=(
  [platform]="riff"
  [riff]=""
  [dsp]=""
  [codec]=""
  [messages]="platform resources"
  [resources]="platform"
  [engine]="dsp riff messages platform"
  [media]="riff messages platform codec"
  [view]="riff messages platform"
  [shell]="engine media view dsp riff messages platform resources tempvox"
  [tools]="shell engine media view dsp riff messages platform resources codec tempvox"
)

failures=0
checked=0
for folder in "${!allowed[@]}"; do
  [ -d "$source_dir/$folder" ] || continue
  while IFS= read -r hit; do
    file=${hit%%:*}
    rest=${hit#*:}
    line=${rest%%:*}
    target=$(sed -E 's/.*#include "([^/"]+)\/.*/\1/' <<<"$rest")
    checked=$((checked + 1))
    if [ "$target" != "$folder" ] && [[ " ${allowed[$folder]} " != *" $target "* ]]; then
      echo "FAIL: ${file#"$source_dir"/}:$line reaches up into $target/"
      failures=$((failures + 1))
    fi
  done < <(grep -rnE '^#include "[^/"]+/' "$source_dir/$folder" --include='*.cpp' --include='*.h' --include='*.c' || true)
done

# The signal kernels are pure: nothing of the project outside dsp/ and no
# operating system header beyond the standard library and the intrinsics.
while IFS= read -r hit; do
  echo "FAIL: ${hit#"$source_dir"/} is not a standard header"
  failures=$((failures + 1))
done < <(grep -rnE '^#include <(unistd|pthread|fcntl|sys/|alsa/|curl/|gtk/)' "$source_dir/dsp" || true)

# The checker itself: it saw the includes it should have.
if [ "$checked" -lt 100 ]; then
  echo "FAIL: only $checked project includes found; is the source tree '$source_dir'?"
  failures=$((failures + 1))
fi
echo "layering: $checked includes checked, $failures upward"
[ "$failures" -eq 0 ]
