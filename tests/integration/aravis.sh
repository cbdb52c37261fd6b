#!/usr/bin/env bash
# A consumer that nobody here wrote, in front of the standard producer:
#
#   aravis.sh BUILD CTI lists | opens | streams | streams-native
#
# on the virtual bus of BUILD, or, with - instead, with the camera of this machine: one of 640 x 480.
#
# Aravis is no part of the tree. It is taken from the folder aravis/ below ZR_CONSUMERS, else below shared/consumers beside
# the tree; without it the test is skipped (77).
set -u

build=${1:?build folder}
cti=${2:?producer}
what=${3:?lists, opens, streams or streams-native}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
consumers=${ZR_CONSUMERS:-$here/../../../shared/consumers}
tool=$consumers/aravis/bin/arv-tool-0.10
streamer=$consumers/aravis/bin/arv-camera-test-0.10
name="ZRK-ORVANE GmbH-ZRK-ORVANE GmbH-Virtual U3V-VC000001" # through the producer; its own protocol has another
images=500

skip()
{
    echo "skipped: $*"
    exit 77
}
die()
{
    echo "FAIL: $*"
    cat "$work/said"
    exit 1
}

[ -x "$tool" ] && [ -x "$streamer" ] || skip "no Aravis in aravis/bin below \$ZR_CONSUMERS or ../shared/consumers"
! ldd "$tool" "$streamer" | grep 'not found' || skip "Aravis does not run here: libraries are missing"

. "$here/../support/aravis.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/zr-aravis.XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT
mkdir "$work/cti"
ln -s "$cti" "$work/cti/"
export GENICAM_GENTL64_PATH=$work/cti
[ "$build" = - ] || export LD_LIBRARY_PATH=$build/virtual_usb
# Slow enough for its two threads: when all five of its buffers are filled before its main program has given one back, it
# waits for ever for a sixth image and queues none.
export ZR_VIRTUAL_CAMERAS=width=640,height=480,fps=50

# attempt TEXT COMMAND ...: until the command says the text. It waits 100 ms for the list of cameras, which is not much
# where others build and test, and little in an emulated machine: it may try for a while, and each try is told.
attempt()
{
    local text=$1 deadline=$((SECONDS + 120))
    shift
    until "$@" >"$work/said" 2>&1 && grep -qF "$text" "$work/said"; do
        echo "once more: $(tail -n 1 "$work/said")"
        [ $SECONDS -lt $deadline ] || die "it does not say $text"
    done
}

lists() { attempt "$name (U3V)" "$tool"; }

opens()
{
    attempt "'Width' = 640" "$tool" -n "$name" values
    grep -qF "'PayloadSize' = 307200" "$work/said" || die "the node map does not tell the payload size"
    ! grep -iE 'error|fail|critical|warning' "$work/said" || die "it complains"
    attempt "Width = 320" "$tool" -n "$name" control Width=320 Width PayloadSize
    grep -qF 'PayloadSize = 153600' "$work/said" || die "the payload size does not follow the width"
}

streams()
{
    local deadline=$((SECONDS + 300)) completed=0
    until [ "$completed" -ge "$images" ]; do
        [ $SECONDS -lt $deadline ] || die "$completed images of $images"
        stream_frames "$images" 120 "$work/said" "$streamer" -n "$name" "$@"
        completed=$(final_count "$work/said" n_completed_buffers 0)
        [ "$(final_count "$work/said" n_failures 0)" = 0 ] || die "images are damaged"
        [ "$completed" -ge "$images" ] || echo "once more: $completed images; $(tail -n 1 "$work/said")"
    done
    ! grep -i critical "$work/said" || die "it complains"
    echo "$completed images, $(final_count "$work/said" n_failures -1) failures, $(final_count "$work/said" n_underruns -1) underruns"
}

case $what in
    lists) lists ;;
    opens) opens ;;
    streams) streams ;;
    streams-native) streams --native-buffers ;;
    *) die "unknown: $what" ;;
esac
