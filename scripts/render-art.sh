#!/usr/bin/env bash
# Renders the icons and pictures in resources/art (our own SVG drawings) into the PNG/ICO files the
# application embeds under resources/frame. Needs imagemagick; run after editing a drawing.
set -euo pipefail
cd "$(dirname "$0")/../resources"
im=/usr/bin/convert
for n in play pause stop sync sync_red; do
    "$im" -background none -density 192 "art/$n.svg" -resize 64x64 "frame/$n.png"
done
"$im" -background none -density 96 art/video_bg.svg "frame/video_bg.png"
"$im" -background none -density 96 art/startup.svg "frame/startup.png"
"$im" -background none -density 96 art/kavri.svg -resize 256x256 "frame/kavri.png"
"$im" frame/kavri.png -define icon:auto-resize=256,64,48,32,16 "frame/kavri.ico"
