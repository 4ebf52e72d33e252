#!/usr/bin/env bash
# The demo: smoke rises around a mesh. Leaves pictures, a film, a contact sheet and a VDB sequence in out/demo.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
out=out/demo
mkdir -p "$out"
scene=$out/plume.json
cp scenes/demo/plume.json "$scene"

# A scanned rabbit from the npm registry; where it can't be had, the scene keeps its torus knot.
fetch_rabbit() {
  command -v npm >/dev/null || return 1
  local folder
  folder=$(mktemp -d)
  (cd "$folder" && timeout 60 npm pack bunny --silent >/dev/null 2>&1 && tar xzf bunny-*.tgz) || { rm -rf "$folder"; return 1; }
  python3 scenes/demo/rabbit_to_obj.py "$folder/package/index.js" "$out/rabbit.obj" || { rm -rf "$folder"; return 1; }
  rm -rf "$folder"
}
if [ -s "$out/rabbit.obj" ] || fetch_rabbit; then
  sed -i 's|{ "type": "torus_knot", "name": "obstacle", .*|{ "type": "mesh", "name": "obstacle", "file": "rabbit.obj", "scale": [14, 14, 14], "position": [0, 118, 0], "rotation": [0, 25, 0], "material": "clay" },|' "$scene"
else
  echo "no rabbit to be had: a torus knot stands in"
fi

build/release/bin/orlix run "$scene" --out "$out" --stats "$out/statistics.jsonl" --checkpoint-every 0 "$@"

if command -v ffmpeg >/dev/null; then
  ffmpeg -y -loglevel error -framerate 12 -pattern_type glob -i "$out/picture.*.png" -c:v libx264 -pix_fmt yuv420p -crf 18 "$out/plume.mp4"
  ffmpeg -y -loglevel error -pattern_type glob -i "$out/picture.*.png" -vf "select='not(mod(n\,6))',scale=320:-1,tile=6x1" \
    -frames:v 1 -update 1 "$out/contact_sheet.png"
fi
echo
echo "pictures       $out/picture.*.png and .exr"
[ -f "$out/plume.mp4" ] && echo "film           $out/plume.mp4"
[ -f "$out/contact_sheet.png" ] && echo "contact sheet  $out/contact_sheet.png"
echo "VDB sequence   $out/plume.*.vdb"
echo "statistics     $out/statistics.jsonl"
