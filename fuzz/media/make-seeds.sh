#!/usr/bin/env bash
# Makes the small seed files of fuzz_media_decoder: one of each kind of recording that once broke
# playback (program streams with MPEG audio, AC-3, Ogg/Vorbis, a late start, a rotated phone-like
# clip, widths of 16n + 8, sound alone). Each stays well under 100 KB.
set -euo pipefail
out=${1:-$(cd "$(dirname "$0")/../seeds/fuzz_media_decoder" && pwd)}
ff() { ffmpeg -y -hide_banner -loglevel error "$@"; }
v="-f lavfi -i testsrc=size=64x48:rate=25:duration=0.6"
a="-f lavfi -i sine=frequency=440:sample_rate=22050:duration=0.6"
ff $v $a -c:v mpeg2video -c:a mp2 -f vob "$out/ps-mpeg2-mp2.mpg"
ff $v $a -c:v mpeg1video -c:a libmp3lame -f mpeg "$out/ps-mpeg1-mp3.mpg"
ff $v -f lavfi -i sine=sample_rate=48000:duration=0.6 -c:v mpeg4 -c:a ac3 "$out/ac3.mkv"
ff $v $a -c:v libtheora -c:a libvorbis "$out/theora-vorbis.ogg"
# The tool drops a rotation given while it encodes; a second pass that copies keeps it.
ff $v $a -c:v libx264 -preset ultrafast -c:a aac "$out/unrotated.mp4"
ff -i "$out/unrotated.mp4" -c copy -metadata:s:v:0 rotate=90 "$out/rotated.mp4"
rm "$out/unrotated.mp4"
ff -f lavfi -i testsrc=size=568x16:rate=10:duration=0.5 -c:v libvpx -deadline realtime "$out/w568.webm"
ff -f lavfi -i testsrc=size=24x17:rate=10:duration=0.5 -c:v libx264 -preset ultrafast -pix_fmt yuv444p "$out/odd.mkv"
ff $a -c:a libmp3lame "$out/sound.mp3"
ls -l "$out"
