#!/usr/bin/env bash
# Installs the build into a scratch prefix and uses it as a host would:
# registers the installed module with the installed tool, builds the example
# host against the installed header through pkg-config and plays a file to
# its end. Then builds the Debian package and checks its file list.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
build_dir=$(cd "$(dirname "$tool")" && pwd)
work=$3/module-package
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix

cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"
libdir=$(sed -n 's/^libdir=\${prefix}\///p' "$prefix"/lib*/pkgconfig/tempvox.pc)
with_codec=0
[ -f "$build_dir/libvoxcodec.so" ] && with_codec=1

# Outside /usr the Python package goes where Debian's interpreter of this
# version looks for it.
python_dir=lib/python$(/usr/bin/python3 -c 'import sys; print("%d.%d" % sys.version_info[:2])')/dist-packages
expected=(bin/tempvox "$libdir/libtempvox.so" include/tempvox/host.h "$libdir/pkgconfig/tempvox.pc"
          "$python_dir/tempvox/__init__.py" "$python_dir/tempvox/control.py" share/doc/tempvox/copyright)
if [ $with_codec = 1 ]; then expected+=("$libdir/libvoxcodec.so"); fi
# The plugins that hold the heavy libraries, where the installed tool and
# module look for them.
plugins=()
while IFS= read -r plugin; do plugins+=("$libdir/tempvox/$(basename "$plugin")"); done \
  < <(find "$build_dir/$libdir/tempvox" -name 'tempvox-*.so')
[ ${#plugins[@]} -ge 2 ] || { echo "FAIL: no plugins in the build tree"; exit 1; }
expected+=("${plugins[@]}")
for file in "${expected[@]}"; do
  [ -e "$prefix/$file" ] || { echo "FAIL: $file was not installed"; exit 1; }
done
echo "ok   installed: ${expected[*]}"

# A host built from the installed files only.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
flags=$(pkg-config --cflags --libs tempvox)
[ "$(pkg-config --variable=module tempvox)" = "$prefix/$libdir/libtempvox.so" ] || { echo "FAIL: module variable"; exit 1; }
# shellcheck disable=SC2086
cc -std=c11 -Wall -Wextra -Werror -o "$work/host" "$source_dir/examples/play_at_speed.c" $flags

python3 - "$work/speech.wav" <<'PY'
import sys
from wavfile import write_wav
write_wav(sys.argv[1], [((i % 160) - 80) * 150 * ((i // 2205) % 3) for i in range(22050)])
PY
export XDG_DATA_HOME=$work/data
# The sanitizer runtimes of a sanitized build must come first in a plain host.
preload=$(ldd "$prefix/$libdir/libtempvox.so" | awk '/lib(asan|ubsan|tsan)\.so/ {print $3}' | paste -sd: -)
"$prefix/bin/tempvox" regsvr "$prefix/$libdir/libtempvox.so"
LD_PRELOAD=$preload ASAN_OPTIONS=detect_leaks=0 "$work/host" "$work/speech.wav" --audio manual --level -20 --refined >"$work/host.out"
grep -q "event PlayComplete" "$work/host.out" || { echo "FAIL: no PlayComplete"; cat "$work/host.out"; exit 1; }
grep -q "profile 1" "$work/host.out" || { echo "FAIL: the profile was not set from C"; cat "$work/host.out"; exit 1; }
# One sentence through the header's member ids: sentence 1 of three.
python3 - "$work/sentences.wav" <<'PY'
import math, struct, sys
rate, samples = 16000, []
for syllables in (0, 5, 7, 4):
    for s in range(syllables):
        count = rate * 150 // 1000
        for i in range(count):
            envelope = min(1.0, i / 320, (count - i) / 480)
            phase = 2 * math.pi * (130 + 10 * s) * i / rate
            samples.append(int(6000 * envelope * sum(math.sin(h * phase) / h for h in range(1, 9))))
        samples += [0] * (rate * 60 // 1000)
    samples += [0] * (rate * 700 // 1000)
from wavfile import write_wav
write_wav(sys.argv[1], samples, rate)
PY
LD_PRELOAD=$preload ASAN_OPTIONS=detect_leaks=0 "$work/host" "$work/sentences.wav" --audio manual --sentence 1 >"$work/sentence.out" ||
  { echo "FAIL: one sentence from C"; cat "$work/sentence.out"; exit 1; }
grep -q "^sentence 1 of 3: " "$work/sentence.out" && grep -q "event PlayOneSentenceCompleted" "$work/sentence.out" &&
  grep -qx "paused" "$work/sentence.out" || { echo "FAIL: one sentence from C"; cat "$work/sentence.out"; exit 1; }
"$prefix/bin/tempvox" regsvr -u "$prefix/$libdir/libtempvox.so"
if "$prefix/bin/tempvox" regsvr -u -s "$prefix/$libdir/libtempvox.so" 2>/dev/null; then
  echo "FAIL: unregistering twice succeeded"; exit 1
fi
echo "ok   installed host played to PlayComplete through the registry"

# An installed tool finds its plugins: it decodes a FLAC file (FFmpeg) and
# fetches from a loopback server (libcurl).
sox "$work/speech.wav" "$work/speech.flac"
mkdir -p "$work/served"
cp "$work/speech.wav" "$work/served/"
python3 "$source_dir/tests/media/AudioServer.py" http "$work/served" "$work/port" "$work/requests" &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
uses_plugins() {  # uses_plugins TOOL WHERE
  rm -f "$work/from-flac.wav" "$work/from-http.wav"
  "$1" render "$work/speech.flac" "$work/from-flac.wav" >/dev/null 2>"$work/plugins.err" &&
    "$1" render "http://127.0.0.1:$(cat "$work/port")/speech.wav" "$work/from-http.wav" >/dev/null 2>>"$work/plugins.err" &&
    [ -s "$work/from-flac.wav" ] && [ -s "$work/from-http.wav" ] ||
    { echo "FAIL: the $2 tool cannot decode or download"; cat "$work/plugins.err"; exit 1; }
}
uses_plugins "$prefix/bin/tempvox" installed

# The package.
(cd "$work" && cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$work/package" >"$work/cpack.log" 2>&1) ||
  { echo "FAIL: cpack"; cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/package/*.deb)
dpkg-deb -c "$deb" | awk '{print $NF}' | sed 's|^\./||' >"$work/contents"
wanted=(usr/bin/tempvox usr/include/tempvox/host.h "usr/$libdir/libtempvox.so" "usr/$libdir/pkgconfig/tempvox.pc"
        usr/lib/python3/dist-packages/tempvox/__init__.py usr/share/doc/tempvox/copyright
        usr/share/doc/tempvox/README.Debian)
if [ $with_codec = 1 ]; then wanted+=("usr/$libdir/libvoxcodec.so"); fi
for plugin in "${plugins[@]}"; do wanted+=("usr/$plugin"); done
for file in "${wanted[@]}"; do
  grep -q -x "$file" "$work/contents" || { echo "FAIL: $file is not in the package"; cat "$work/contents"; exit 1; }
done
dpkg-deb -f "$deb" Package | grep -q -x tempvox
dpkg-deb -f "$deb" Depends | grep -q "fonts-wqy-microhei | fonts-noto-cjk" ||
  { echo "FAIL: the package does not bring a CJK font: $(dpkg-deb -f "$deb" Depends)"; exit 1; }
# Unpacked, the package's tool runs and finds what it needs.
dpkg-deb -x "$deb" "$work/root"
"$work/root/usr/bin/tempvox" --help >/dev/null 2>&1
uses_plugins "$work/root/usr/bin/tempvox" packaged
# Stripped: no symbol table, no debug sections.
for binary in "$work/root/usr/bin/tempvox" "$work/root/usr/$libdir/libtempvox.so"; do
  if readelf -S "$binary" | grep -q -E '\.symtab|\.debug_'; then
    echo "FAIL: $binary is not stripped"; exit 1
  fi
done
# The system's python3 imports the package from where the package put it.
(cd "$work" && PYTHONPATH="$work/root/usr/lib/python3/dist-packages" /usr/bin/python3 -c 'import tempvox, sys; sys.exit(0 if tempvox.Tempvox else 1)') ||
  { echo "FAIL: the system python3 cannot import the packaged tempvox"; exit 1; }
! ls "$work/root/usr/share/doc" | grep -q -v -x tempvox || { echo "FAIL: docs outside /usr/share/doc/tempvox"; exit 1; }
echo "ok   $(basename "$deb") holds: ${wanted[*]}"
