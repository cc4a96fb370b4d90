# For the cases' judge(), outside: reads the records of a run and says what does not hold.

iPassed=0
iFailed=0

# verdict <what must hold> <command...>
verdict() {
    local szWhat=$1
    shift
    if "$@"; then
        iPassed=$((iPassed + 1))
        return
    fi
    iFailed=$((iFailed + 1))
    echo "FAILED: $szCase: $szWhat ($*)"
}

# What the tool showed. The last that was shown of a stream: its description, and its row of the table.
plain() { sed 's/\x1b\[[0-9;]*[A-Za-z]//g' "$1.out"; }
shows() { plain "$1" | grep -qF -- "$2"; }
shows_not() { ! shows "$1" "$2"; }
says() { grep -qF -- "$2" "$1.err"; }
silent() { [ ! -s "$1.err" ]; }
same() { cmp -s "$1" "$2"; }
differ() { ! cmp -s "$1" "$2"; }
ends_with() { [ "$(cat "$1.status")" = "$2" ]; }
did() { [ "$(tail -n 1 "$1")" = done ]; } # another program has come to its end
times() { [ "$(plain "$1" | grep -cF -- "$2")" = "$3" ]; }
description() { plain "$1" | sed -n "s/^ *\[$2\] - //p" | tail -n 1; }
row() { plain "$1" | awk -v n="[$2]" '$1 == n && NF > 10 && !/\(/' | tail -n 1; }
rate() { plain "$1" | sed -n "s/^\[$2\] \([0-9.]*\) [0-9.]* [0-9.]* [0-9]* (.*/\1/p" | tail -n 1; }
column() { row "$1" "$2" | awk -v i="$3" '{ print $(i + 1) }'; }
named() { case $(description "$1" "$2") in "$3"*) ;; *) return 1 ;; esac; }
described() { plain "$1" | grep -F "[$2] - " | grep -qF -- "$3"; }

# asked <record> <V: video, d: display> <number of the request>...: how often such requests were made.
asked() { awk -v type="$2" -v numbers=" ${*:3} " '$1 == type && index(numbers, " " $2 " ") { n += $3 } END { print n + 0 }' "$1.requests"; }
# What changes a device, or takes it: S_FMT, REQBUFS, QBUF, DQBUF, STREAMON, S_PARM, S_STD, S_CTRL, S_INPUT, S_EDID,
# S_PRIORITY, S_EXT_CTRLS, S_DV_TIMINGS, CREATE_BUFS, S_SELECTION and a poll for data; SET_MASTER, SETCRTC, CURSOR,
# SETPROPERTY, PAGE_FLIP, DIRTYFB, SETPLANE, OBJ_SETPROPERTY, ATOMIC.
leaves_alone() {
    [ -s "$1.requests" ] && [ "$(asked "$1" V 5 8 15 17 18 22 24 28 39 41 68 72 87 92 95)" = 0 ] && [ "$(asked "$1" P 0)" = 0 ] &&
        [ "$(asked "$1" d 30 162 163 171 176 177 183 186 188)" = 0 ]
}

# within <value> <expected> <largest relative difference>
within() { awk -v a="$1" -v b="$2" -v r="$3" 'BEGIN { d = a - b; if (d < 0) d = -d; exit !(a != "" && b > 0 && d <= b * r) }'; }
between() { awk -v a="$1" -v b="$2" -v c="$3" 'BEGIN { exit !(a != "" && b != "" && a + 0 >= b && a + 0 <= c) }'; }
truth() { awk -v n="$2" -v k="$3" '$1 == "truth" && $2 == n { for (i = 3; i < NF; i += 2) if ($i == k) print $(i + 1) }' "$1.kms"; }

# The phase of two cards, reckoned from the stamps that the program which drives them has read, as the tool writes it:
# hundredths of a line of the first card, out of ticks of 10 ns. The stamps of a card are 2 ns off here and there, which
# can turn the last tick; hence three values.
phase() {
    awk -v a="$(truth "$1" /dev/dri/card0 stamp)" -v b="$(truth "$1" /dev/dri/card1 stamp)" \
        -v hz="$(truth "$1" /dev/dri/card0 hz)" -v khz="$2" 'BEGIN {
        p = 1e9 / hz; d = (b - a) - p * int((b - a) / p)
        while (d > p / 2) d -= p
        while (d < -p / 2) d += p
        if (d < 0) d = -d
        d = int(d / 10 + 0.5); line = int(1e8 / (khz * 1000))
        printf "%d", d * 10
        for (k = d - 1; k <= d + 1; k++) printf " %.2f", int((k * 1000 + 5) / (line * 10)) / 100
        print "" }'
}
same_phase() {
    local szShown szPhase
    szPhase=$(phase "$1" 31)
    szShown=$(plain "$1" | sed -n 's/^ *\[OUT_00, OUT_01\] .* : *\([0-9.]*\) line.*/\1/p' | tail -n 1)
    echo "phase of the cards: ${szPhase%% *} ns, shown as $szShown lines"
    case " ${szPhase#* } " in *" ${szShown:-none} "*) ;; *) return 1 ;; esac
}

# What an owner dequeued, a line each: sequence, stamp in us, field (T, B or -), error flag. From the kernel's trace where
# that was recorded, for the owner does not print the field; else from what the owner printed.
dequeued() {
    if [ -f "$1.trace" ]; then
        awk '/v4l2_dqbuf/ {
            for (i = 1; i < NF; i++) if ($(i + 1) == "=") { value[$i] = $(i + 2); sub(/,$/, "", value[$i]) }
            # The time code that stands between has no keys of these names.
            print value["sequence"], substr(value["timestamp"], 1, length(value["timestamp"]) - 3),
                value["field"] == "TOP" ? "T" : value["field"] == "BOTTOM" ? "B" : "-", 0 }' "$1.trace"
        return
    fi
    awk '/cap dqbuf/ {
        for (i = 1; i < NF; i++) {
            if ($i == "seq:") seq = $(i + 1)
            if ($i == "ts:") { ts = $(i + 1); sub(/\./, "", ts); sub(/^0+/, "", ts) }
        }
        print seq, ts, "-", /[(, ]error/ ? 1 : 0 }' "$1.video"
}
# whole <record> <fields at least>: no field is missing between the first and the last that the board told of.
whole() {
    awk -v least="$2" '$1 == "field" { if (n++ && $2 != last + 16) { print FILENAME ": missing before " $0; faults++ } last = $2 }
        END { exit faults > 0 || n < least }' "$1.fields"
}

# gaps <record> [number]: sequences that the owner did not get, from its first buffer on, or from a later one.
gaps() { dequeued "$1" | awk -v first="${2:-1}" 'NR > first && $1 > last + 1 { n += $1 - last - 1 } { last = $1 } END { print n + 0 }'; }
bad() { dequeued "$1" | awk '$4 { n++ } END { print n + 0 }'; }

# compare <record of the fields> <owner's record> <fields a buffer> <time of a field in us>: every field of the board is
# one of the owner's, with its stamp, its parity, its distance in fields; and what was skipped between the first and the
# last is what the owner did not get, or got with the error flag.
compare() {
    dequeued "$2" >owner.tmp
    awk -v each="$3" -v period="$4" '
        function wrong(what) { if (faults++ < 3) print FILENAME ": " what ": " $0 }
        function ahead(a, b) { return a < b ? a - b + 4294967296 : a - b } # sequences have 32 bits
        NR == FNR { seq[$2] = $1; at[$1 $3] = $2; parity[$2] = $3; got[$1] = 1 - $4; next }
        $1 == "hz" { tick = 1e6 / $2 }
        $1 != "field" { next }
        {
            us = $3 * tick
            second = 0
            whole = sprintf("%.0f", us)
            if (each == 2 && !(whole in seq)) { second = 1; whole = sprintf("%.0f", us - period) }
            if (!(whole in seq)) { wrong("no such stamp"); next }
            off = us - second * period - whole
            if (off > 0.02 || off < -0.02) wrong("stamp")
            if ($4 != (parity[whole] == "T" && !second)) wrong("top field")
            if (us * 1000 > $6) wrong("stamp of the future")
            now = seq[whole]
            half = second
            top = now "T"; bottom = now "B"
            if (top in at && bottom in at)
                half = (parity[whole] == "B") == (at[top] + 0 < at[bottom] + 0)
            fields = each == 2 || parity[whole] != "-" ? 2 : 1
            if (n++ && ahead(now, last) > 1000) wrong("order")
            else if (n > 1) {
                steps = ahead(now, last) * fields + half - before
                if ($2 - counter != steps * 16) wrong("counter, not " steps " fields on")
                for (k = 1; k <= ahead(now, last); k++) missing += !got[sprintf("%.0f", (last + k) % 4294967296)]
                if (fields == 1 && $5 - skipped != missing) wrong("skipped, " missing " for " $5 - skipped)
            } else
                skipped = $5
            counter = $2; before = half; last = now
        }
        END { print FILENAME ": " n + 0 " fields compared, " missing + 0 " missing"; exit faults > 0 || n < 100 }' \
        owner.tmp "$1.fields"
}
