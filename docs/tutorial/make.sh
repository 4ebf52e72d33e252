#!/usr/bin/env bash
# Makes the pictures of docs/tutorial.md anew, by its own commands; a few minutes.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
PATH="$here/../../build/release/bin:$PATH"
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
cd "$work"

picture() {  # NAME RENDER-ARGUMENTS...
  local name=$1
  shift
  orlix render "$@" --quiet --out "out/$name"
  ffmpeg -y -loglevel error -i "$(find "out/$name" -name '*.png')" -vf scale=360:-2 -q:v 5 "$here/$name.jpg"
}

orlix --quiet new smoke --size 3m --cells 400k --out shot
sed -e '/"name": "Floor"/i\    { "type": "sphere", "name": "Ball", "radius": 40, "position": [15, 200, 0] },' \
    -e '/\/\/ What the air carries/i\        { "type": "volume", "name": "Ball volume", "object": "Ball", "tags": [{ "type": "c4d_obstacle" }] },' \
    shot/smoke_plume.json >shot/ball.json
look=(--frames 60 --size 400x500)
picture preview shot/smoke_plume.json --frames 40 --preview
picture first shot/smoke_plume.json "${look[@]}"
picture hotter shot/smoke_plume.json "${look[@]}" --set Heat.value=900
picture ball shot/ball.json "${look[@]}"
picture finer shot/ball.json "${look[@]}" --set Plume.voxel_size=0.015 --set Plume.render_voxel_size=0.015
picture evening shot/ball.json "${look[@]}" --set "Smoke look.scattering=[0.05,0.03,0.02]" \
  --set "Key.direction=[-9,-2,-3]" --set "Key.colour=[1,0.6,0.3]"
