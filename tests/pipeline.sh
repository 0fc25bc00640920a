#!/usr/bin/env bash
# Plays sound files with the example program: samples arrive unchanged, or the old output stays, and nothing else is
# left behind. pipeline.sh PROGRAM
set -euo pipefail
program=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
head -c 48000 "$program" >samples
echo "what an earlier run wrote" >old

# little_endian BYTES NUMBER...
little_endian()
{
    local number i
    for number in "${@:2}"; do
        for ((i = 0; i < $1; i++)); do
            printf "\\x$(printf %02x $((number >> 8 * i & 255)))"
        done
    done
}

# wav TAG CHANNELS SAMPLE-BYTES DATA-BYTES: a header of 44 bytes and the samples.
wav()
{
    printf RIFF
    little_endian 4 $((36 + $4))
    printf 'WAVEfmt '
    little_endian 4 16
    little_endian 2 "$1" "$2"
    little_endian 4 8000 $((8000 * $2 * $3))
    little_endian 2 $(($2 * $3)) $((8 * $3))
    printf data
    little_endian 4 "$4"
    cat samples
}

# play STATUS SAID INPUT ARGUMENT...: with in.wav also on standard input, as a pipe; the report goes to $report, and
# $meanwhile runs beside it.
report=/dev/stdout meanwhile=
play()
{
    local status=$1 said=$2 expected=samples actual=0
    [ "$status" = 0 ] || expected=old
    cp old out.wav
    # The last command ends when both the program and its sink have ended.
    {
        cat in.wav | "$program" --out out.wav "${@:3}" >"$report" &
        ${meanwhile:+"$meanwhile" $!}
        wait $! || actual=$?
        echo "status $actual"
    } 2>&1 | cat >log
    if ! grep -qF -- "$said" log || ! grep -qx "status $status" log ||
        ! cmp <(tail -c "$(stat -c %s $expected)" out.wav) $expected >>log 2>&1 ||
        [ "$(ls -A | xargs)" != "in.wav log old out.wav samples" ]; then
        echo "media_pipeline ${*:3}: expected status $status, \"$said\", the end of out.wav as in $expected; actual:"
        cat log
        ls -Al
        exit 1
    fi
}

wav 1 2 2 48000 >in.wav
play 0 ": 1.50 s, WAV (Microsoft), Signed 16 bit PCM, 8000 Hz, 2" in.wav --speed 0
report=/dev/full play 1 "cannot write the report" - --speed 0
wav 1 3 1 48000 >in.wav
play 0 ": 2.00 s, WAV (Microsoft), Unsigned 8 bit PCM, 8000 Hz, 3" - --speed 0
wav 1 1 3 -1 >in.wav
play 0 ": 2.00 s, WAV (Microsoft), Signed 24 bit PCM, 8000 Hz, 1" - --speed 0
wav 3 1 4 -1 >in.wav
play 0 ": 1.50 s, WAV (Microsoft), 32 bit float, 8000 Hz, 1" in.wav --speed 0
wav 3 1 8 48000 >in.wav
play 0 ": 0.75 s, WAV (Microsoft), 64 bit float, 8000 Hz, 1" - --speed 0
wav 1 1 4 60000 >in.wav
play 1 "in.wav: it is truncated" in.wav --speed 0
play 1 "/dev/stdin: it is truncated" - --speed 0
wav 1 0 2 48000 >in.wav
play 1 "in.wav: Channel count is zero." in.wav --speed 0
play 1 "out.wav: Format not recognised." out.wav --speed 0

interrupt()
{
    until [ -s .media_pipeline* ]; do :; done
    kill -INT "$1"
}
wav 1 1 2 48000 >in.wav
meanwhile=interrupt play 130 status - --speed 0.001
