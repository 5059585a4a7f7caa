#!/usr/bin/env bash
# Makes the demo recording: a moving test picture with a running clock, a short beep every five
# seconds and a few spoken words (when espeak-ng is there). Usage: make-demo-video.sh OUT.mp4 [SECONDS]
set -euo pipefail
out=${1:?output file}
seconds=${2:-60}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

font=/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf
clock="drawtext=fontfile=$font:text='%{pts\\:hms}':fontsize=56:fontcolor=white:box=1:boxcolor=black@0.6:boxborderw=12:x=(w-tw)/2:y=h-th-40"
[ -f "$font" ] || clock="null"

inputs=(-f lavfi -i "testsrc2=size=1280x720:rate=30:duration=$seconds"
        -f lavfi -i "sine=frequency=660:sample_rate=48000:duration=$seconds")
audio="[1:a]volume='if(lt(mod(t,5),0.15),0.35,0)':eval=frame[beeps]"
mix="[beeps]"
if command -v espeak-ng >/dev/null 2>&1; then
  espeak-ng -s 150 -w "$work/hello.wav" "Welcome to Kavot. Press A, B, C or D while the video plays to code an event." 2>/dev/null
  espeak-ng -s 150 -w "$work/later.wav" "Twenty seconds. Press the same key again to close a segment." 2>/dev/null
  inputs+=(-i "$work/hello.wav" -i "$work/later.wav")
  audio="$audio;[2:a]adelay=2000|2000,aresample=48000[s1];[3:a]adelay=20000|20000,aresample=48000[s2]"
  audio="$audio;[beeps][s1][s2]amix=inputs=3:duration=first:normalize=0[mixed]"
  mix="[mixed]"
fi

ffmpeg -hide_banner -loglevel error -y "${inputs[@]}" \
  -filter_complex "[0:v]$clock[v];$audio" -map "[v]" -map "$mix" \
  -c:v libx264 -preset veryfast -pix_fmt yuv420p -g 60 -c:a aac -b:a 128k -ac 2 -t "$seconds" "$out"
