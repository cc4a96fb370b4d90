# For the cases' play(), in the guest: runs the tool and other programs, and leaves records.

# Timings, as GuestKms and v4l2-ctl take them. Those of inputs lack the horizontal front porch, which makes the rate.
vga="25175 640 656 752 800 480 490 492 525"
pal="27000 720 732 796 864 576 581 586 625"
hd="clear,polarities=3,width=1280,height=720,pixelclock=74250000,hs=40,hbp=220,vfp=5,vs=5,vbp=20"
full="clear,polarities=3,width=1920,height=1080,interlaced=1,pixelclock=74250000,hs=44,hbp=148,vfp=2,vs=5,vbp=15,il_vfp=2,il_vs=5,il_vbp=16"
sInstances=/sys/kernel/tracing/instances

# named <name>: the processes that call themselves so now, whatever they were started as.
named() { grep -lx "$1" /proc/[0-9]*/comm 2>/dev/null | cut -d / -f 3; }

# watch <record> <switches> <keys...>: runs the tool. A key is pressed when its turn comes, a number is a wait in
# seconds, -NAME sends a signal, !NAME kills another program, %NAME asks it to end; the last key is q. The tool runs as asUser, if that is set.
watch() {
    local szRecord=$1 szTool="VtVideoMonitor $2" szKey
    shift 2
    echo "  $szRecord" >/dev/console
    for szKey in "$@" q; do
        case $szKey in
            [0-9]*) sleep "$szKey" ;;
            -*) kill "$szKey" $(named VtVideoMonitor) ;;
            %*) kill -TERM $(named "${szKey#%}") ;;
            !*) kill -KILL $(named "${szKey#!}") ;;
            *) printf %s "$szKey" ;;
        esac
    done | su "${asUser:-root}" -s /bin/sh -c "exec $szTool" >"/records/$szRecord.out" 2>"/records/$szRecord.err"
    echo $? >"/records/$szRecord.status"
}

# Other programs, in the background: kms <record> <orders...>; video <record> <seconds before> <node> <buffers>
# [options...]; after <seconds> <command...>. settle waits for all of them.
aiOthers=
kms() { local szRecord=$1; shift; GuestKms "$@" >"/records/$szRecord.kms" 2>&1 & aiOthers="$aiOthers $!"; }
video() {
    local szRecord=$1 iSeconds=$2 szNode=$3 iBuffers=$4
    shift 4
    { sleep "$iSeconds"; v4l2-ctl -d "$szNode" --stream-mmap=4 --stream-count="$iBuffers" --verbose "$@" && printf '\ndone\n'; } \
        >"/records/$szRecord.video" 2>&1 &
    aiOthers="$aiOthers $!"
}
after() { local iSeconds=$1; shift; { sleep "$iSeconds"; "$@"; } & aiOthers="$aiOthers $!"; }
settle() { wait $aiOthers; aiOthers=; }

# fields <record> <IN|OUT> <index>[,<index>] <ms>: what the board itself says of each field; as asUser, if that is set.
fields() { su "${asUser:-root}" -s /bin/sh -c "exec GuestFields $2 $3 $4" >"/records/$1.fields" 2>"/records/$1.err"; }

# faulty <fault> <command...>: as GuestFault makes it (its GUEST_FAULT).
faulty() { local szFault=$1; shift; GUEST_FAULT=$szFault LD_PRELOAD=/test/libGuestFault.so "$@"; }

# logged <record> <command...>: how often each request was made to a device (GUEST_LOG of GuestFault).
logged() { local szRecord=$1; shift; GUEST_LOG=/records/$szRecord.requests LD_PRELOAD=/test/libGuestFault.so "$@"; }

# trace_on; trace_off <minor> <record>: what the kernel says of the buffers that a node's owner dequeues.
trace_on() { echo 512 >/sys/kernel/tracing/buffer_size_kb; echo 1 >/sys/kernel/tracing/events/v4l2/v4l2_dqbuf/enable; }
trace_off() {
    echo 0 >/sys/kernel/tracing/events/v4l2/v4l2_dqbuf/enable
    grep "v4l2_dqbuf: minor = $1," /sys/kernel/tracing/trace >"/records/$2.trace"
    echo >/sys/kernel/tracing/trace
}

# feed <node> <timings> [controls]: what the input gets. Its buffers are small: what the driver draws, it draws at the
# emulator's cost.
feed() {
    v4l2-ctl -d "$1" --set-dv-bt-timings="$2" && v4l2-ctl -d "$1" --set-fmt-video=width=320,height=180
    [ $# -lt 3 ] || v4l2-ctl -d "$1" -c "$3"
}

# feed_all: what cases find that begin with no signals of their own.
feed_all() {
    feed 0 "$hd,hfp=440" timestamp_source=0
    feed 2 "$hd,hfp=110" timestamp_source=1
}

# state <node> <record>: all that an owner may change of an input.
state() {
    # One call tells of one rectangle.
    { v4l2-ctl -d "$1" --get-fmt-video --get-dv-timings --get-parm --get-selection=target=crop
        v4l2-ctl -d "$1" --get-selection=target=compose; } >"/records/$2" 2>&1
}

# The first processes of a case may have gone before their devices are quite free.
until_true() { local iTry=0; until "$@"; do iTry=$((iTry + 1)); [ $iTry -lt 50 ] || return 1; usleep 100000; done; }
# A camera comes behind the nodes of the other inputs.
camera() { local szRecord=$1; shift; GuestCamera "$@" >"/records/$szRecord.camera" 2>&1 & iCamera=$!; }
plugged() { [ -e /dev/video6 ] && v4l2-ctl -d 6 --get-fmt-video >/dev/null 2>&1; }
unplug() { kill $iCamera; sleep 1; }
