#!/usr/bin/env bash
# The language of the control's texts in our tools: the slot that the
# locale picks (LC_ALL, then LC_MESSAGES, then LANG; Chinese locales Chinese,
# all others English), --lang over it, and the container keeping the
# control's own Chinese default. Then, under Xvfb, the window's menu in the
# Chinese slot drawn in a real font: the menu's text matches Pango's own
# rendering of the same text, and with the CJK font hidden (hex boxes) it
# does not, which shows that the comparison tells them apart.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/language
rm -rf "$work"
mkdir -p "$work"
# shellcheck source=tests/scripts/checks.sh
source "$source_dir/tests/scripts/checks.sh"

# The catalogue's entry for a file that cannot be loaded, in its two slots.
chinese='装载音频文件失败!'
english='Loading audio file failed!'

# first_box ENV... -- ARGS...: the first line that the tool writes to
# standard error (the control's box) for a render of a missing file.
first_box() {
  local environment=()
  while [ "$1" != -- ]; do environment+=("$1"); shift; done
  shift
  env -i PATH="$PATH" "${environment[@]}" "$tool" render "$@" "$work/missing.wav" "$work/out.wav" 2>&1 >/dev/null |
    head -n 1
}

while IFS='|' read -r name environment arguments expected; do
  # shellcheck disable=SC2086
  check "$name" "${!expected}" "$(first_box $environment -- $arguments)"
done <<'TABLE'
LANG=C.UTF-8|LANG=C.UTF-8||english
LANG=zh_CN.UTF-8|LANG=zh_CN.UTF-8||chinese
LANG=zh_TW.Big5|LANG=zh_TW.Big5||chinese
LANG=zh alone|LANG=zh||chinese
Zhuang is not Chinese|LANG=zha_CN.UTF-8||english
LC_MESSAGES before LANG|LANG=zh_CN.UTF-8 LC_MESSAGES=en_GB.UTF-8||english
LC_ALL before both|LANG=en_US.UTF-8 LC_MESSAGES=en_US.UTF-8 LC_ALL=zh_CN.UTF-8||chinese
an empty LC_ALL counts as unset|LC_ALL= LANG=zh_CN.UTF-8||chinese
--lang en over a Chinese locale|LANG=zh_CN.UTF-8|--lang en|english
--lang=zh over an English locale|LANG=C.UTF-8|--lang=zh|chinese
TABLE
check "no locale at all" "$english" "$(first_box -- )"
check "--lang fr is refused as usage" 2 "$(set +e; "$tool" render --lang fr "$work/missing.wav" "$work/out.wav" 2>/dev/null; echo $?)"

# The container is the control's test bench: its default slot whatever the
# locale.
container=$(printf 'SetLanguageType\n' | env -i PATH="$PATH" LANG=C.UTF-8 "$tool" host 2>&1 | grep -o '"result":[0-9]*')
check "the container keeps the control's Chinese slot under LANG=C.UTF-8" '"result":1' "$container"

# --- The window's menu under Xvfb ------------------------------------------
for program in Xvfb xdotool pango-view ffmpeg; do
  command -v "$program" >/dev/null || { echo "FAIL: $program is missing (scripts/deps.sh installs it)"; exit 1; }
done
display=$((500 + RANDOM % 400))
Xvfb ":$display" -ac -nolisten tcp -screen 0 800x400x24 >/dev/null 2>&1 &
display_pid=$!
player_pid=
cleanup() {
  [ -n "$player_pid" ] && kill "$player_pid" 2>/dev/null
  kill "$display_pid" 2>/dev/null
  wait 2>/dev/null || true
}
trap cleanup EXIT
sleep 1
export DISPLAY=:$display
sox -n -r 22050 -c 1 -b 16 "$work/long.wav" synth 60 sine 300 vol 0.2

# Fonts without any CJK face: what a machine without the package shows.
mkdir -p "$work/no-cjk"
cat >"$work/no-cjk/fonts.conf" <<EOF
<?xml version="1.0"?>
<!DOCTYPE fontconfig SYSTEM "fonts.dtd">
<fontconfig>
  <dir>/usr/share/fonts/truetype/dejavu</dir>
  <cachedir>$work/no-cjk/cache</cachedir>
</fontconfig>
EOF

# menu_shot NAME ENV...: plays with the window, selects 4 s to 12 s, opens
# the menu inside the selection, takes a screenshot without the pointer and
# ends play with SIGTERM.
menu_shot() {
  local name=$1
  shift
  env "$@" "$tool" play "$work/long.wav" --view --audio null >"$work/$name.log" 2>&1 &
  player_pid=$!
  timeout 20 xdotool search --sync --onlyvisible --name '^Tempvox' >/dev/null || { echo "FAIL: $name: no window"; cat "$work/$name.log"; }
  sleep 0.5
  xdotool mousemove 100 150 mousedown 1 sleep 0.2 mousemove 200 150 sleep 0.2 mousemove 300 150 mouseup 1
  sleep 0.3
  xdotool mousemove 200 150 click 3
  sleep 0.8
  ffmpeg -loglevel error -draw_mouse 0 -f x11grab -video_size 800x400 -i "$DISPLAY" -frames:v 1 "$work/$name.png" -y
  # A signal ends play with the menu still open, as from the main window.
  kill "$player_pid" 2>/dev/null
  for _ in $(seq 50); do kill -0 "$player_pid" 2>/dev/null || break; sleep 0.1; done
  kill -9 "$player_pid" 2>/dev/null || true
  local status=0
  wait "$player_pid" 2>/dev/null || status=$?
  check "$name: SIGTERM with the menu open ends play" 143 "$status"
  player_pid=
}

# matches SHOT TEXT: "yes" when the text in the menu's white box is Pango's
# own rendering of TEXT in the desktop's font ("Sans 10" at 96 dpi, hinted
# as an X display without settings hints it): the
# same ink extent to a pixel, and a correlation of the ink above 0.9.
matches() {
  pango-view --no-display --font="Sans 10" --dpi=96 --hinting=full --margin=4 --background=white --foreground=black \
    --text="$2" -o "$work/reference.png"
  python3 - "$work/$1.png" "$work/reference.png" <<'PY'
import subprocess, sys

def gray(path):
    size = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0", path],
                          capture_output=True, text=True, check=True).stdout.strip().split(",")
    width, height = int(size[0]), int(size[1])
    raw = subprocess.run(["ffmpeg", "-loglevel", "error", "-i", path, "-pix_fmt", "gray", "-f", "rawvideo", "-"],
                         capture_output=True, check=True).stdout
    return [list(raw[y * width:(y + 1) * width]) for y in range(height)]

def inked(rows):
    """The ink (255 - grey) inside the bounding box of the text."""
    ink = [[255 - v for v in row] for row in rows]
    ys = [y for y, row in enumerate(ink) if max(row) > 60]
    xs = [x for x in range(len(ink[0])) if max(row[x] for row in ink) > 60]
    if not ys:
        return [[0]]
    return [row[min(xs):max(xs) + 1] for row in ink[min(ys):max(ys) + 1]]

shot = gray(sys.argv[1])
# The menu: the white box below and right of the pointer (200, 150); the
# view's own white is its ruler, at the top.
white = [(x, y) for y in range(140, 260) for x in range(190, 420) if shot[y][x] == 255]
if not white:
    print("no menu")
    sys.exit(0)
left, right = min(x for x, _ in white), max(x for x, _ in white)
top, bottom = min(y for _, y in white), max(y for _, y in white)
menu = inked([row[left:right + 1] for row in shot[top:bottom + 1]])
text = inked(gray(sys.argv[2]))
if abs(len(menu) - len(text)) > 1 or abs(len(menu[0]) - len(text[0])) > 1:
    print(f"extent {len(menu[0])}x{len(menu)} against {len(text[0])}x{len(text)}")
    sys.exit(0)
h, w = min(len(menu), len(text)), min(len(menu[0]), len(text[0]))
a = [menu[y][x] for y in range(h) for x in range(w)]
b = [text[y][x] for y in range(h) for x in range(w)]
ma, mb = sum(a) / len(a), sum(b) / len(b)
cov = sum((p - ma) * (q - mb) for p, q in zip(a, b))
spread = (sum((p - ma) ** 2 for p in a) * sum((q - mb) ** 2 for q in b)) ** 0.5
print("yes" if spread > 0 and cov / spread > 0.9 else f"correlation {cov / spread if spread else 0:.2f}")
PY
}

menu_shot chinese LANG=zh_CN.UTF-8
check "the Chinese menu drawn in the CJK font" yes "$(matches chinese '保存')"
menu_shot english LANG=C.UTF-8
check "the English menu" yes "$(matches english 'Save')"
menu_shot hex-boxes LANG=zh_CN.UTF-8 FONTCONFIG_FILE="$work/no-cjk/fonts.conf"
check "without a CJK font the same comparison fails (hex boxes)" no \
  "$(matches hex-boxes '保存' | sed 's/^yes$/yes/; t; s/.*/no/')"

echo "language: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
