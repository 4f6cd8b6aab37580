#!/usr/bin/env bash
# Draws the report's images: the title band, the two page header bands, the
# icon and the summary card gradient, all at twice their size in points
# (the @2x files; the bands as JPEG, which the report embeds as they are).
# Run it again after changing a colour or a word; the
# files are committed, so neither building nor testing needs this.
set -euo pipefail
cd "$(dirname "$0")"

bold=/usr/share/texmf/fonts/opentype/public/tex-gyre/texgyreheros-bold.otf
[ -f "$bold" ] || { echo "needs fonts-texgyre" >&2; exit 1; }

# Lumeo's warm ramp: the summary card's default colours, from the top.
from='rgb(233,55,0)'
middle='rgb(189,178,1)'
to='rgb(133,134,110)'

# A band: a left-to-right ramp with two soft light waves and a word.
band() {  # file width height word x
  local file=$1 w=$2 h=$3 word=$4 x=$5
  convert -size "${h}x$((w / 2))" "gradient:$from-$middle" -rotate -90 \
    \( -size "${h}x$((w - w / 2))" "gradient:$middle-$to" -rotate -90 \) +append \
    \( -size "${w}x${h}" xc:none -fill 'rgba(255,255,255,0.10)' \
       -draw "ellipse $((w * 3 / 10)),$((h * 2)) $((w / 2)),$((h * 3 / 2)) 0,360" \
       -fill 'rgba(255,255,255,0.08)' \
       -draw "ellipse $((w * 8 / 10)),$((-h)) $((w / 3)),$((h * 3 / 2)) 0,360" \) \
    -composite \
    -font "$bold" -pointsize $((h * 30 / 100)) -fill white -gravity west \
    -annotate "+${x}+0" "$word" \
    -strip -quality 92 "JPEG:$file"
}

band title7@2x.jpg 1224 226 'Mood Report' 380
band titleRecords7@2x.jpg 1224 166 'Records' 200
band titleSummary7@2x.jpg 1224 166 'Summary' 200

# The icon: a white rounded tile with a warm sun that smiles.
convert -size 260x260 xc:none \
  -fill white -draw 'roundrectangle 4,4 255,255 52,52' \
  -fill "$from" -draw 'circle 130,130 130,40' \
  -fill "$middle" -draw 'circle 130,130 130,62' \
  -stroke white -strokewidth 14 -fill none -draw 'arc 88,92 172,166 20,160' \
  -stroke none -fill white -draw 'circle 104,112 104,100' -draw 'circle 156,112 156,100' \
  -strip PNG32:icon7@2x.png

# The summary card's gradient: its size gives the charts' size (312 × 125).
convert -size 624x125 "gradient:$from-$middle" \( -size 624x125 "gradient:$middle-$to" \) -append \
  -strip PNG24:moodSummaryGradient@2x.png
