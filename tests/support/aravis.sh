# Aravis' test programs as witnesses; sourced. They know nothing of this project.

# frames_so_far FILE: the images of a program that tells its rate each second.
frames_so_far() { awk '/frames?\/s/ { sum += $1 } END { print sum + 0 }' "$1"; }

# stream_frames WANTED LIMIT FILE PROGRAM ...: lets it stream until so many images have come, for LIMIT seconds at most,
# and ends it by Ctrl-C. What it says goes to FILE.
stream_frames()
{
    local wanted=$1 deadline=$((SECONDS + $2)) file=$3 program
    shift 3
    timeout --signal=INT --kill-after=20 $((deadline - SECONDS + 30)) stdbuf -oL "$@" >"$file" 2>&1 &
    program=$!
    while [ "$(frames_so_far "$file")" -lt "$wanted" ] && [ $SECONDS -lt "$deadline" ] && kill -0 "$program" 2>/dev/null; do
        sleep 0.2 # until: as many as wanted
    done
    kill -INT "$program" 2>/dev/null
    wait "$program"
}

# final_count FILE NAME NONE: one of the counts that it prints at its end; NONE where there is no such line.
final_count() { awk -v name="$2" -v none="$3" '$1 == name { none = $3 } END { print none }' "$1"; }
