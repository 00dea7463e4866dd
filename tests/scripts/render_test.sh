#!/usr/bin/env bash
# tempvox render over the capture device: the gain lifts a quiet file, the
# volume scales it, a noise of another rate is not mixed, the speed level
# changes the length, and a bad input leaves no output behind.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/render
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"

python3 - "$work" <<'PY'
import struct, sys
from wavfile import write_wav
work = sys.argv[1]
def wav(name, samples, rate):
    write_wav(f"{work}/{name}", samples, rate)
def voiced(seconds, rate, peak):
    # A triangle wave of period 147 under syllables; integer arithmetic only.
    out = []
    for i in range(int(rate * seconds)):
        phase = i % 147
        tri = (phase if phase < 74 else 147 - phase) - 37      # -37..37
        syllable = 1 if (i // (rate // 5)) % 2 == 0 else 0
        out.append(tri * peak // 37 * syllable)
    return out
wav("quiet.wav", voiced(3.0, 22050, 3000), 22050)
wav("noise44k.wav", [((i * 7919) % 2001) - 1000 for i in range(44100)], 44100)
wav("noise22k.wav", [((i * 7919) % 2001) - 1000 for i in range(22050)], 22050)
PY

peak() {
  python3 - "$1" <<'PY'
import struct, sys
data = open(sys.argv[1], "rb").read()[44:]
print(max(abs(v) for (v,) in struct.iter_unpack("<h", data[: len(data) // 2 * 2])))
PY
}
duration() {
  python3 -c "import os,sys; print((os.path.getsize(sys.argv[1]) - 44) / 44100)" "$1"
}
fail() { echo "FAIL: $*"; exit 1; }

"$tool" render "$work/quiet.wav" "$work/full.wav" --just-play > "$work/full.log"
p=$(peak "$work/full.wav")
[ "$p" -ge 29000 ] && [ "$p" -le 30000 ] || fail "gain: peak $p, expected near 30000"

"$tool" render "$work/quiet.wav" "$work/half.wav" --just-play --volume 50 > /dev/null
p=$(peak "$work/half.wav")
[ "$p" -ge 14500 ] && [ "$p" -le 15000 ] || fail "volume 50: peak $p, expected near 15000"

# A noise of another sample rate is silently not mixed.
"$tool" render "$work/quiet.wav" "$work/other_rate.wav" --just-play --noise "$work/noise44k.wav" \
  > /dev/null 2> "$work/other_rate.err"
cmp -s "$work/full.wav" "$work/other_rate.wav" || fail "a noise of another rate changed the output"
[ ! -s "$work/other_rate.err" ] || fail "a noise of another rate was reported: $(cat "$work/other_rate.err")"
"$tool" render "$work/quiet.wav" "$work/same_rate.wav" --just-play --noise "$work/noise22k.wav" > /dev/null
! cmp -s "$work/full.wav" "$work/same_rate.wav" || fail "a noise of the same format was not mixed"

# Classic: faster is shorter, slower is longer, and the first 0.4 s always
# plays as is. Refined: the duration is the input's over the factor.
"$tool" render "$work/quiet.wav" "$work/fast.wav" --just-play --level 50 --classic > /dev/null
"$tool" render "$work/quiet.wav" "$work/slow.wav" --just-play --level -60 --classic > /dev/null
"$tool" render "$work/quiet.wav" "$work/fast_refined.wav" --just-play --level 50 > /dev/null
"$tool" render "$work/quiet.wav" "$work/slow_refined.wav" --just-play --level -60 > /dev/null
python3 - "$(duration "$work/full.wav")" "$(duration "$work/fast.wav")" "$(duration "$work/slow.wav")" \
  "$(duration "$work/fast_refined.wav")" "$(duration "$work/slow_refined.wav")" <<'PY' || fail "speed levels"
import sys
full, fast, slow, fast_refined, slow_refined = map(float, sys.argv[1:])
assert abs(full - 3.0) < 0.01, full
assert 2.0 < fast < 2.7, fast
assert 3.6 < slow < 4.6, slow
assert abs(fast_refined - 1.5) < 0.02, fast_refined
assert abs(slow_refined - 6.0) < 0.03, slow_refined
PY

# What render writes is what a play hears, word counting and all (render
# itself skips the counting), in both profiles.
for profile in "" --classic; do
  "$tool" render "$work/quiet.wav" "$work/rendered.wav" --level 25 $profile > /dev/null
  "$tool" play "$work/quiet.wav" --level 25 $profile --audio "capture:$work/heard.wav" > /dev/null
  cmp -s "$work/rendered.wav" "$work/heard.wav" || fail "render ${profile:-refined} differs from what play hears"
done

# A bad input: the engine's message, a non-zero exit, and no file left.
# In an English locale, the catalogue's English slot.
if LC_ALL=C.UTF-8 "$tool" render "$work/noise_missing.wav" "$work/bad.wav" 2> "$work/bad.err"; then fail "bad input accepted"; fi
grep -q "Loading audio file failed!" "$work/bad.err" || fail "no engine message for a bad input"
ls "$work"/bad.wav* >/dev/null 2>&1 && fail "a bad input left an output file"
echo "render ok"
