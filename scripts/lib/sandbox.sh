# shellcheck shell=bash disable=SC2154
# The sandboxed network of simulated Talvo printers that scripts/demo and
# scripts/screenshots share. Sourced, not run; needs bash and root (ip netns).
#
# The network exists only inside network namespaces created here and removed
# again by sandbox_cleanup; nothing is sent on the machine's own network.
#
#   client 10.77.0.10 ──┬── printers 10.77.0.20-25 ── (LAN 10.77.0.0/24)
#                       ├── bonjour 10.77.0.30 (announced over DNS-SD only)
#                       │   (10.77.0.24 in "printers" announces itself by walkup,
#                       │    10.77.0.25 answers only when asked by address)
#                       └── router 10.77.0.1 / 10.78.0.1 ── remote 10.78.0.20
#
# The remote printer is on a network the client does not search; it is found
# because a printer on the LAN reports that network in its known-network cache.
#
# The caller sets `root` (the source tree) and `bin` (the build's bin folder),
# then calls sandbox_begin before anything else.

sandbox_begin() {
    prefix="talvo-demo-$$"
    work=$(mktemp -d)
    pids=()
    trap sandbox_cleanup EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

sandbox_cleanup() {
    local pid ns
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    for ns in $(ip netns list | awk '{print $1}' | grep "^$prefix-" || true); do ip netns del "$ns"; done
    rm -rf "$work"
}

ns() { echo "$prefix-$1"; }
in_ns() { local n=$1; shift; ip netns exec "$(ns "$n")" "$@"; }

# A segment is a bridge in a namespace of its own; a host joins it through a
# veth pair created straight into the two namespaces.
segment() {
    ip netns add "$(ns "$1")"
    ip -n "$(ns "$1")" link add br0 type bridge
    ip -n "$(ns "$1")" link set br0 up
}
port=0
join() { # join HOST SEGMENT IFNAME CIDR
    port=$((port + 1))
    ip -n "$(ns "$2")" link add "p$port" type veth peer name "$3" netns "$(ns "$1")"
    ip -n "$(ns "$2")" link set "p$port" master br0 up
    ip -n "$(ns "$1")" addr add "$4" brd + dev "$3"
    ip -n "$(ns "$1")" link set "$3" up
}
host() {
    ip netns add "$(ns "$1")"
    ip -n "$(ns "$1")" link set lo up
    in_ns "$1" sysctl -qw net.ipv6.conf.all.disable_ipv6=1
}

sandbox_network() {
    segment lan
    segment far
    host client;   join client lan eth0 10.77.0.10/24
    host printers; join printers lan eth0 10.77.0.20/24
    local a
    for a in 21 22 23 24 25; do ip -n "$(ns printers)" addr add "10.77.0.$a/24" brd + dev eth0; done
    host router;   join router lan eth0 10.77.0.1/24; join router far eth1 10.78.0.1/24
    host remote;   join remote far eth0 10.78.0.20/24
    host bonjour;  join bonjour lan eth0 10.77.0.30/24
    ip -n "$(ns client)" route add default via 10.77.0.1
    ip -n "$(ns remote)" route add default via 10.78.0.1
    in_ns router sysctl -qw net.ipv4.ip_forward=1
}

sim() { # sim HOST PRINTER-SPEC... [-- SIMULATOR-OPTION...]
    local h=$1; shift
    local args=()
    while [ $# -gt 0 ] && [ "$1" != -- ]; do args+=(--printer "$1"); shift; done
    [ $# -gt 0 ] && shift && args+=("$@")
    # Not through in_ns: $! must be the simulator itself (ip execs into it),
    # not a subshell, so the clean-up reaches it.
    ip netns exec "$(ns "$h")" "$bin/talvo-printer-sim" "${args[@]}" >"$work/$h.events" 2>"$work/$h.log" &
    pids+=($!)
}
sim_wait() { # sim_wait HOST
    local _
    for _ in $(seq 200); do
        grep -q '"event":"ready"' "$work/$1.events" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "simulator in $1 failed:"; cat "$work/$1.log"; exit 1
}

# sandbox_printers [WALKUP-KEYS]: the printers on the LAN and behind the
# router. WALKUP-KEYS are extra keys of the walkup printer's --walkup option
# (e.g. "select=2": the simulated user picks the name on the printer's panel
# two seconds after the client answered).
sandbox_printers() {
    local walkup="printer=10.77.0.24,to=10.77.0.10,interval=1"
    [ -n "${1:-}" ] && walkup="$walkup,$1"
    sim printers \
        "model=Model 4000,address=10.77.0.20,mac=00:80:92:4a:00:20,sysname=front-office" \
        "model=Model 6500,address=10.77.0.21,mac=00:80:92:4a:00:21,sysname=accounting" \
        "model=Model 1200,address=10.77.0.22,mac=00:80:92:4a:00:22,cache=10.78.0.20" \
        "model=Model 9300 MFP,address=10.77.0.23,mac=00:80:92:4a:00:23,snmp=nosuchname" \
        "model=Model 8560,address=10.77.0.24,mac=00:80:92:4a:00:24,sysname=copy-room,reply=silent" \
        "model=Model 4000,address=10.77.0.25,mac=00:80:92:4a:00:25,sysname=mail-room,reply=silent" \
        -- --raw-port --walkup "$walkup"
    sim remote \
        "model=Model 8560,address=10.78.0.20,mac=00:80:92:4a:01:20,sysname=warehouse" \
        -- --raw-port
    sim_wait printers
    sim_wait remote
}

# DNS-SD: in a host, a private D-Bus system bus and an avahi-daemon of its own
# (with a private /run), never the machine's.
mdns() { # mdns HOST
    local h=$1 dir="$work/mdns-$1" _
    mkdir -p "$dir"
    cat >"$dir/bus.conf" <<EOT
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>system</type><listen>unix:path=$dir/bus</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_type="method_call"/>
<allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>
EOT
    printf '[server]\nhost-name=%s\nuse-ipv6=no\nallow-interfaces=eth0\nenable-dbus=yes\ndisallow-other-stacks=no\n[wide-area]\nenable-wide-area=no\n[publish]\npublish-workstation=no\n' \
        "talvo-demo-$h" >"$dir/avahi.conf"
    ip netns exec "$(ns "$h")" dbus-daemon --config-file="$dir/bus.conf" --nofork --nopidfile >"$dir/bus.log" 2>&1 &
    pids+=($!)
    for _ in $(seq 50); do [ -S "$dir/bus" ] && break; sleep 0.1; done
    DBUS_SYSTEM_BUS_ADDRESS="unix:path=$dir/bus" ip netns exec "$(ns "$h")" unshare -m sh -c \
        'mount -t tmpfs tmpfs /run && mkdir /run/avahi-daemon && exec avahi-daemon --no-drop-root --no-chroot --no-proc-title --no-rlimits -f "$1"' \
        avahi "$dir/avahi.conf" >"$dir/avahi.log" 2>&1 &
    pids+=($!)
    for _ in $(seq 100); do grep -qs 'Server startup complete' "$dir/avahi.log" && break; sleep 0.1; done
    grep -q 'Server startup complete' "$dir/avahi.log" || { echo "avahi-daemon in $h failed:"; cat "$dir/avahi.log"; exit 1; }
}

# The client's and the Bonjour host's DNS-SD, and the printer that is found
# only through its "_printer._tcp" announcement.
sandbox_bonjour() {
    local _
    mdns client
    mdns bonjour
    sim bonjour "model=Model 6500,address=10.77.0.30,mac=00:80:92:4a:00:30,sysname=reception,reply=silent" -- --raw-port
    DBUS_SYSTEM_BUS_ADDRESS="unix:path=$work/mdns-bonjour/bus" ip netns exec "$(ns bonjour)" \
        avahi-publish -s "Reception printer" _printer._tcp 515 "product=(TALVO Model 6500)" "usb_MFG=TALVO" \
        >"$work/publish.log" 2>&1 &
    pids+=($!)
    for _ in $(seq 100); do grep -qs Established "$work/publish.log" && break; sleep 0.1; done
    sim_wait bonjour
}

# A CUPS usb backend that lists one simulated USB printer and never touches
# the machine's USB devices: the pane lists USB printers through it.
sandbox_usb_backend() {
    usb_backend="$work/usb-backend"
    cat >"$usb_backend" <<'EOT'
#!/bin/sh
echo 'direct usb://TALVO/Model%209300%20MFP?serial=DEMO0930 "TALVO Model 9300 MFP" "TALVO Model 9300 MFP USB" "MFG:TALVO;MDL:Model 9300 MFP;CMD:PCL,POSTSCRIPT;" ""'
EOT
    chmod 755 "$usb_backend"
}

# A private CUPS scheduler in the client host, listening only on a unix socket
# in the work folder (exported as CUPS_SERVER), with browsing off. Its
# backends are the installed ones, except usb, which only says it cannot
# print: a test page never reaches the machine's own USB devices.
sandbox_cupsd() {
    local d="$work/cups" e _
    mkdir -p "$d"/{run,spool,tmp,cache,state,log,ppd,server-bin/backend}
    for e in /usr/lib/cups/*; do
        [ "$(basename "$e")" = backend ] || ln -s "$e" "$d/server-bin/"
    done
    for e in /usr/lib/cups/backend/*; do
        [ "$(basename "$e")" = usb ] || ln -s "$e" "$d/server-bin/backend/"
    done
    for e in usb lpd socket; do
        [ -e "$d/server-bin/backend/$e" ] && continue
        printf '#!/bin/sh\necho "ERROR: this backend is not available in the demo" >&2\nexit 1\n' \
            >"$d/server-bin/backend/$e"
        chmod 755 "$d/server-bin/backend/$e"
    done
    cat >"$d/cupsd.conf" <<EOT
Listen $d/run/cups.sock
LogLevel warn
Browsing Off
BrowseLocalProtocols none
DefaultAuthType None
WebInterface No
DirtyCleanInterval 0
<Location />
  Order allow,deny
  Allow all
</Location>
<Location /admin>
  Order allow,deny
  Allow all
</Location>
<Policy default>
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
EOT
    cat >"$d/cups-files.conf" <<EOT
ServerRoot $d
RequestRoot $d/spool
TempDir $d/tmp
CacheDir $d/cache
StateDir $d/state
AccessLog $d/log/access_log
ErrorLog $d/log/error_log
PageLog $d/log/page_log
ServerBin $d/server-bin
DataDir /usr/share/cups
SystemGroup root
FileDevice No
EOT
    ip netns exec "$(ns client)" cupsd -f -c "$d/cupsd.conf" -s "$d/cups-files.conf" >"$d/cupsd.log" 2>&1 &
    pids+=($!)
    export CUPS_SERVER="$d/run/cups.sock"
    # lpstat's exit status is 0 either way: only its text says it is running.
    for _ in $(seq 100); do
        in_ns client lpstat -h "$CUPS_SERVER" -r 2>/dev/null | grep -q 'scheduler is running' && return 0
        sleep 0.1
    done
    echo "the private cupsd failed:"; cat "$d/cupsd.log" "$d/log/error_log" 2>/dev/null; exit 1
}

# The client's environment: never the user's own preferences, the private
# DNS-SD bus.
sandbox_client_env() {
    export XDG_CONFIG_HOME="$work/config"
    export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$work/mdns-client/bus"
    export AVAHI_COMPAT_NOWARN=1
}

sandbox_print_printers() {
    cat <<'EOT'
   10.77.0.20  Model 4000      supported, sysName front-office
   10.77.0.21  Model 6500      supported, sysName accounting
   10.77.0.22  Model 1200      not supported; knows the network of 10.78.0.20
   10.77.0.23  Model 9300 MFP  supported, its agent lacks the Printer-MIB name
   10.77.0.24  Model 8560      supported, silent to discovery; announces itself by walkup
   10.77.0.25  Model 4000      supported, silent to discovery; found by typing its address
   10.78.0.20  Model 8560      supported, behind the router
   10.77.0.30  Model 6500      supported, found only through Bonjour ("_printer._tcp")
EOT
}
