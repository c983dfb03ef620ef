#!/usr/bin/env bash
# Takes docs/screenshots/compose.png: the editor under a virtual X server with a two-layer document open
# (the coffee photo with the cat photo on a layer above it). Needs xvfb-run and ImageMagick's import.
#   scripts/screenshot.sh [BUILD_DIR] [OUTPUT]
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
OUT=${2:-docs/screenshots/compose.png}
EDITOR="$BUILD/src/shell/velmorando"
CLI="$BUILD/src/velmorando-cli"
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

# The document: a layer from a second photo, moved, a little transparent and named, so the layers panel and the
# history have something to show.
"$CLI" run assets/samples/coffee.png "Doc_OpenLayer('1')" "Doc_LayerPropertyChange('1','0','250,150')" \
  "Doc_LayerPropertyChange('1','3','235')" "Doc_LayerPropertyChange('1','2','Cat')" \
  "Doc_LayerPropertyChange('0','2','Coffee')" --file assets/samples/chelsea.png -o "$WORK/compose.vmpd" >/dev/null

cat > "$WORK/shot.sh" <<INNER
#!/usr/bin/env bash
export XDG_CONFIG_HOME="$WORK/config" LANG=\${SHOT_LANG:-en_US.UTF-8}
"$EDITOR" "$WORK/compose.vmpd" &
pid=\$!
# The first grab after start can be black: wait for the window, then take the screen once it has content.
for i in \$(seq 1 30); do
  sleep 0.5
  import -window root "$WORK/shot.png" 2>/dev/null || continue
  mean=\$(convert "$WORK/shot.png" -format '%[fx:mean]' info:)
  if awk -v m="\$mean" 'BEGIN { exit !(m > 0.2) }' && [ \$i -ge 3 ]; then break; fi
done
kill \$pid
wait \$pid 2>/dev/null || true
INNER
chmod +x "$WORK/shot.sh"
xvfb-run -a -s "-screen 0 1280x800x24" "$WORK/shot.sh"
mkdir -p "$(dirname "$OUT")"
convert "$WORK/shot.png" -strip "$OUT"
echo "wrote $OUT"
