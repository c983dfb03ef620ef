#!/usr/bin/env bash
# The program's main job on this machine: the editor on the bundled sample photo when there is a display,
# otherwise the command line front end on the same photo.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${BUILD:-build-release}
CLI="$BUILD/src/velmorando-cli"
SAMPLE=assets/samples/sample.jpg
# The help text is read once: grep -q stopping early must not break the pipe under pipefail.
HELP=$("$CLI" --help)
# Until the codec boundary reads JPEG, the command line front end works on the BMP copy.
grep -q '^  convert ' <<<"$HELP" || SAMPLE=assets/samples/sample-small.bmp

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ -x "$BUILD/src/shell/velmorando" ]; then
  echo "Starting the editor on $SAMPLE"
  exec "$BUILD/src/shell/velmorando" "$SAMPLE"
fi

OUT=${TMPDIR:-/tmp}/velmorando-sample
mkdir -p "$OUT"
echo "No display (or no editor yet): running velmorando-cli on $SAMPLE"
echo "\$ velmorando-cli info $SAMPLE"
"$CLI" info "$SAMPLE"
if grep -q '^  key ' <<<"$HELP"; then
  echo "\$ velmorando-cli key $SAMPLE -o $OUT/keyed.png"
  "$CLI" key "$SAMPLE" -o "$OUT/keyed.png"
  "$CLI" info "$OUT/keyed.png"
elif grep -q '^  convert ' <<<"$HELP"; then
  echo "\$ velmorando-cli convert $SAMPLE $OUT/sample.png"
  "$CLI" convert "$SAMPLE" "$OUT/sample.png"
  "$CLI" info "$OUT/sample.png"
fi
