#!/usr/bin/env bash
# Authors a small DVD-Video disc from generated streams, for tests and the
# sample: a video manager with a First Play PGC and two menus; two title
# sets, title set 1 with menus in two languages and two titles with
# chapters, title set 2 with one title; every title has two audio streams
# and one sub-picture stream.
#
#   scripts/make-test-disc.sh OUTDIR [SECONDS]
#
# OUTDIR receives VIDEO_TS/ (it must not exist yet or be empty). SECONDS is
# the length of each title (default 4). Needs ffmpeg, spumux and dvdauthor.
set -euo pipefail
out=${1:?usage: make-test-disc.sh OUTDIR [SECONDS]}
secs=${2:-4}
for tool in ffmpeg spumux dvdauthor; do
  command -v "$tool" >/dev/null || { echo "make-test-disc: $tool is missing" >&2; exit 3; }
done
mkdir -p "$out"
out=$(cd "$out" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export VIDEO_FORMAT=NTSC

# One MPEG-2 program stream: test picture, two AC-3 tracks of different pitch.
# Menus get one audio track (a menu domain has at most one).
stream() { # name seconds pattern [tracks]
  local second=(-f lavfi -i "sine=frequency=660:duration=$2:sample_rate=48000")
  local maps=(-map 0:v -map 1:a -map 2:a)
  if [ "${4:-2}" = 1 ]; then second=(); maps=(-map 0:v -map 1:a); fi
  ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i "$3=size=720x480:rate=30000/1001:duration=$2" \
    -f lavfi -i "sine=frequency=440:duration=$2:sample_rate=48000" "${second[@]}" \
    "${maps[@]}" -target ntsc-dvd -aspect 4:3 -b:v 800k -ac 2 -b:a 96k "$1.raw.mpg"
}
# hh:mm:ss.00 of a number of seconds.
clock() { printf '%02d:%02d:%02d.00' $(( $1 / 3600 )) $(( $1 / 60 % 60 )) $(( $1 % 60 )); }
# A sub-picture stream on top: a white bar for most of the stream.
subtitle() { # name seconds
  ffmpeg -hide_banner -loglevel error -y -f lavfi -i "color=c=black:s=720x480" \
    -vf "drawbox=x=200:y=380:w=320:h=40:color=white:t=fill" -frames:v 1 -pix_fmt rgb24 bar.png
  cat > "$1.sub.xml" <<EOF
<subpictures><stream>
  <spu start="00:00:00.50" end="$(clock $(( $2 - 1 )))" image="bar.png" transparent="000000"/>
</stream></subpictures>
EOF
  spumux -s 0 "$1.sub.xml" < "$1.raw.mpg" > "$1.mpg" 2>/dev/null
}

stream menu 1 smptebars 1;   cp menu.raw.mpg menu.mpg
stream t1 "$secs" testsrc; subtitle t1 "$secs"
stream t2 "$secs" testsrc2; subtitle t2 "$secs"
stream t3 "$secs" rgbtestsrc; subtitle t3 "$secs"

half=$(clock $(( secs / 2 )))
cat > disc.xml <<EOF
<dvdauthor dest="$out">
  <vmgm>
    <fpc>jump vmgm menu 1;</fpc>
    <menus lang="en">
      <video format="ntsc" aspect="4:3"/>
      <pgc entry="title">
        <vob file="menu.mpg"/>
        <post>jump title 1;</post>
      </pgc>
      <pgc>
        <vob file="menu.mpg"/>
        <post>jump title 3;</post>
      </pgc>
    </menus>
  </vmgm>
  <titleset>
    <menus lang="en">
      <video format="ntsc" aspect="4:3"/>
      <pgc entry="root">
        <vob file="menu.mpg"/>
        <post>jump title 1;</post>
      </pgc>
    </menus>
    <menus lang="fr">
      <video format="ntsc" aspect="4:3"/>
      <pgc entry="root">
        <vob file="menu.mpg"/>
        <post>jump title 2;</post>
      </pgc>
    </menus>
    <titles>
      <video format="ntsc" aspect="4:3"/>
      <audio lang="en"/>
      <audio lang="fr"/>
      <subpicture lang="en"/>
      <pgc>
        <vob file="t1.mpg" chapters="0,00:00:01.00,$half"/>
        <post>jump title 2;</post>
      </pgc>
      <pgc>
        <vob file="t2.mpg" chapters="0,$half"/>
        <post>call vmgm menu 1;</post>
      </pgc>
    </titles>
  </titleset>
  <titleset>
    <titles>
      <video format="ntsc" aspect="4:3"/>
      <audio lang="en"/>
      <audio lang="de"/>
      <subpicture lang="en"/>
      <pgc>
        <vob file="t3.mpg" chapters="0,$half"/>
        <post>call vmgm menu 1;</post>
      </pgc>
    </titles>
  </titleset>
</dvdauthor>
EOF
dvdauthor -x disc.xml >dvdauthor.log 2>&1 || { cat dvdauthor.log >&2; exit 1; }
ls "$out/VIDEO_TS" >/dev/null
